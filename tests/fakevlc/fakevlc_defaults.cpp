// Weak defaults of every function of the plug-in's list: count the call, answer
// what the test set (0 or NULL otherwise). fakevlc.cpp overrides some.
#include "tests/fakevlc/fakevlc_state.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// Old functions libvlc 3.0's headers no longer declare.
extern "C" {
int libvlc_vlm_get_media_instance_title(libvlc_instance_t*, const char*, int);
int libvlc_vlm_get_media_instance_chapter(libvlc_instance_t*, const char*, int);
int libvlc_vlm_get_media_instance_seekable(libvlc_instance_t*, const char*, int);
}

#define X(name, ret, params) \
    extern "C" __attribute__((weak, visibility("default"))) ret name params { return fakevlc::Respond<ret>(#name); }
#include "binding/functions.def"
#undef X
