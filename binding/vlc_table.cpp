#include "binding/vlc_table.h"

namespace vlcfn {

#define X(name, majors, ret, params) name##_t _##name = nullptr;
#include "binding/functions.def"
#undef X

const Entry kEntries[] = {
#define X(name, majors, ret, params) {#name, reinterpret_cast<void**>(&_##name), majors},
#include "binding/functions.def"
#undef X
};

const size_t kEntryCount = sizeof(kEntries) / sizeof(kEntries[0]);
static_assert(sizeof(kEntries) / sizeof(kEntries[0]) == 290, "functions.def lists 290 functions");

}  // namespace vlcfn
