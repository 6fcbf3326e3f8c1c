// Sweep expectations of the libvlc 3.0 additions (dialogs).
#include "tests/sweep/sweep.h"

namespace sweep {

std::vector<ClassSweep> DialogSweeps() { return {}; }

}  // namespace sweep
