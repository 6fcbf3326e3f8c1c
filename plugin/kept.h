// Memory the plug-in deliberately never frees: strings some libvlc getters
// hand over and the plug-in does not give back, temporary paths that outlive
// their objects. Marked so that the sanitizer builds' leak check skips them.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

inline void DeliberatelyKept(const void* pointer) {
#if defined(__SANITIZE_ADDRESS__)
    if (pointer != nullptr) __lsan_ignore_object(pointer);
#else
    (void)pointer;
#endif
}
