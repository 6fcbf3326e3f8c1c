// The process-wide libvlc function table, generated from functions.def.
// Every wrapper calls libvlc only as vlcfn::_libvlc_xxx(...) and tests the
// entry first; an entry stays null when the loaded libvlc lacks the function
// or when its contract differs in the loaded libvlc's major.
#pragma once

#include <vlc/vlc.h>

#include <cstddef>

namespace vlcfn {

// The libvlc majors an entry holds for, one bit per major.
inline constexpr unsigned V23 = 1u << 2 | 1u << 3;
inline constexpr unsigned V234 = V23 | 1u << 4;

inline constexpr bool HoldsFor(unsigned majors, int major) {
    return major > 0 && major < 32 && (majors >> major & 1u) != 0;
}

#define X(name, majors, ret, params) \
    using name##_t = ret(*) params;  \
    extern name##_t _##name;
#include "binding/functions.def"
#undef X

// One slot per function, in lookup order; name without the leading underscore.
struct Entry {
    const char* name;
    void** slot;
    unsigned majors;
};
extern const Entry kEntries[];
extern const size_t kEntryCount;

// The major of a libvlc_get_version() text ("3.0.24 Vetinari", "4.0.0-dev"):
// the leading number when a '.' follows it, else 0.
inline int MajorOfVersion(const char* version) {
    if (version == nullptr || *version < '0' || *version > '9') return 0;
    int major = 0;
    for (; *version >= '0' && *version <= '9'; ++version) {
        if (major > 1000) return 0;
        major = major * 10 + (*version - '0');
    }
    return *version == '.' ? major : 0;
}

}  // namespace vlcfn
