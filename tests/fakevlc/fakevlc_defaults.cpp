// Weak defaults of every function of the plug-in's list: count the call, answer
// what the test set (0 or NULL otherwise). fakevlc.cpp (fakevlc4.cpp) overrides some.
#include "binding/vlc_table.h"
#include "tests/fakevlc/fakevlc_state.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// Old functions libvlc 3.0's headers no longer declare.
extern "C" {
int libvlc_vlm_get_media_instance_title(libvlc_instance_t*, const char*, int);
int libvlc_vlm_get_media_instance_chapter(libvlc_instance_t*, const char*, int);
int libvlc_vlm_get_media_instance_seekable(libvlc_instance_t*, const char*, int);
}

#ifndef FAKEVLC_MAJOR4
#define X(name, majors, ret, params) \
    extern "C" __attribute__((weak, visibility("default"))) ret name params { return fakevlc::Respond<ret>(#name); }
#else
// The 4.0 fake: a name whose contract differs in 4.x (fakevlc4_changed.cpp
// gives some of them 4.0's signature) or that 4.0 removed aborts when called;
// early nightlies still exported some of the removed ones.
#define X(name, majors, ret, params)                                          \
    extern "C" __attribute__((weak, visibility("default"))) ret name params { \
        if (!vlcfn::HoldsFor(vlcfn::majors, 4)) fakevlc::Unexpected(#name);   \
        return fakevlc::Respond<ret>(#name);                                  \
    }
#endif
#include "binding/functions.def"
#undef X
