// Sweep expectations of the libvlc 3.0 additions (discovery).
#include "tests/sweep/sweep.h"

namespace sweep {

std::vector<ClassSweep> DiscoverySweeps() { return {}; }

}  // namespace sweep
