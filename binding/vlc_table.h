// The process-wide libvlc function table, generated from functions.def.
// Every wrapper calls libvlc only as vlcfn::_libvlc_xxx(...) and tests the
// entry first; an entry stays null when the loaded libvlc lacks the function.
#pragma once

#include <vlc/vlc.h>

#include <cstddef>

namespace vlcfn {

#define X(name, ret, params)        \
    using name##_t = ret(*) params; \
    extern name##_t _##name;
#include "binding/functions.def"
#undef X

// One slot per function, in lookup order; name without the leading underscore.
struct Entry {
    const char* name;
    void** slot;
};
extern const Entry kEntries[];
extern const size_t kEntryCount;

}  // namespace vlcfn
