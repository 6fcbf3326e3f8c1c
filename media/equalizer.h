#pragma once

#include <cstdint>

#include "plugin/registration.h"

struct EqualizerData {
    int64_t handle;  // libvlc_equalizer_t*
    REALobject vlc;
};
