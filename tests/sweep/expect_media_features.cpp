// Sweep expectations of the libvlc 3.0 additions (media_features).
#include "tests/sweep/sweep.h"

namespace sweep {

std::vector<ClassSweep> MediaFeatureSweeps() { return {}; }

}  // namespace sweep
