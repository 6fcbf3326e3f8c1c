#pragma once

#include <cstdint>

#include "plugin/registration.h"

struct EventManagerData {
    int64_t handle;  // libvlc_event_manager_t* of the source
    REALobject parent;
    REALobject vlc;
};
