// VLCMediaQRV: one libvlc media.
#pragma once

#include <cstddef>
#include <cstdint>

#include "plugin/registration.h"

struct libvlc_media_t;

struct MediaData {
    int64_t handle;  // libvlc_media_t*
    REALobject vlc;  // VLCInstanceQRV, locked
    int32_t tempFD;  // descriptor to close in the destructor, -1 when none
    char* tempPath;  // temporary file of MediaWithData
};

inline MediaData& MediaOf(REALobject object) { return DataOf<MediaData>(object, VLCMediaQRVClass); }

// The only way a libvlc media pointer becomes a VLCMediaQRV. With retain set
// the media is retained (borrowed pointers); otherwise the new object takes
// over the caller's reference.
REALobject NewVLCMediaQRV(libvlc_media_t* media, REALobject vlc, bool retain);

struct libvlc_media_slave_t;

// A chain of VLCMediaSlaveQRV records copied from libvlc's slave array; nil when empty.
REALobject NewVLCMediaSlaveQRV(libvlc_media_slave_t* const* slaves, size_t count);

// True for a slave type libvlc knows (subtitle, audio); otherwise raises
// OutOfBoundsException for the parameter "type" of methodName.
bool SlaveTypeInRange(RBInteger type, const char* methodName);

// VLCMediaQRV.MediaWithMemoryBlock (memory_media.cpp): a media reading the
// block in place through libvlc's stream callbacks.
REALobject MediaWithMemoryBlock(REALobject vlc, REALmemoryBlock data);

// A duplicate of a memory-block media reads the original's block: it keeps the
// block locked as well. Answers the duplicate, or null (released) when that
// cannot be arranged; other media pass through.
libvlc_media_t* KeepBlockForDuplicate(libvlc_media_t* original, libvlc_media_t* duplicate);
