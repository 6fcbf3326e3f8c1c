#pragma once

#include <cstdint>

#include "plugin/registration.h"

struct MediaListPlayerData {
    int64_t handle;  // libvlc_media_list_player_t*
    REALobject list;
    REALobject player;
    REALobject vlc;
};
