// VLCMediaDiscovererQRV and VLCMediaLibraryQRV share one data layout.
#pragma once

#include <cstdint>

#include "plugin/registration.h"

struct ServiceData {
    int64_t handle;  // libvlc_media_discoverer_t* or libvlc_media_library_t*
    REALobject vlc;
    // A media discoverer's service runs (libvlc 3.0 crashes stopping one that
    // does not, and a second start would orphan the first service).
    int64_t running;
};
