// VLCMediaPlayerQRV: one libvlc media player plus its frame capture state.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "plugin/registration.h"

struct MediaPlayerData {
    int64_t handle;  // libvlc_media_player_t*
    RBBoolean hasNewFrame;
    int64_t frameWidth;
    int64_t frameHeight;
    int64_t frameRowBytes;
    int64_t drawX, drawY, drawWidth, drawHeight;
    void* targetContext;  // CGContextRef on macOS, cairo_t* on Linux
    uint8_t* frameBuffer;
    pthread_mutex_t* frameMutex;
    REALobject vlc;
    void* currentImage;  // CGImageRef / cairo_surface_t*
    void* colorSpace;
    void* dataProvider;
    REALobject tag;    // Variant
    REALobject media;  // VLCMediaQRV, locked
    // Bytes allocated for frameBuffer. It only grows over the player's life: a
    // video output opened with an earlier size keeps writing that many bytes.
    int64_t frameBufferBytes;
};
static_assert(sizeof(MediaPlayerData) == 19 * 8);

inline MediaPlayerData& PlayerOf(REALobject object) { return DataOf<MediaPlayerData>(object, VLCMediaPlayerQRVClass); }
