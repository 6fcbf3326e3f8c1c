#pragma once

#include <cstdint>

#include "plugin/registration.h"

struct libvlc_media_list_t;

struct MediaListData {
    int64_t handle;  // libvlc_media_list_t*
    REALobject vlc;
};

// A VLCMediaListQRV taking over libvlc's reference of list, keeping vlc locked.
REALobject NewVLCMediaListQRV(libvlc_media_list_t* list, REALobject vlc);
