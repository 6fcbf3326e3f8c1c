// Video frames decoded into a VLCMediaPlayerQRV's own buffer, and copied out
// as memory, memory blocks, pictures or images.
#pragma once

#include "playback/media_player.h"
#include "plugin/platform.h"

// Frees the whole frame state: mutex, colour space, data provider, current
// image, target context, buffer; each field cleared. Only for the destructor,
// once libvlc can no longer call back.
void FreeImages(MediaPlayerData& d);

// HasNewFrame, read and written under the frame mutex.
RBBoolean GetHasNewFrame(REALobject self, RBInteger);
void SetHasNewFrame(REALobject self, RBInteger, RBBoolean value);

void VideoSetCallback(REALobject self, RBInteger width, RBInteger height, RBInteger contextHandle);
// True when libvlc may be given this format: no frame buffer yet (libvlc has no
// callbacks to write through), or a one-plane, 4-bytes-a-pixel chroma whose
// rows fit the buffer. Otherwise raises OutOfBoundsException.
bool CaptureTakesFormat(MediaPlayerData& d, const char* chroma, uint32_t width, uint32_t height, uint32_t pitch);
void* GetMemory(REALobject self);
REALmemoryBlock CopyMemory(REALobject self);
RBBoolean CopyToMemory(REALobject self, void* dest, RBInteger offset, RBInteger rowBytes);
REALpicture CopyPicture(REALobject self);

// One row of frame pixels (bytes b0 b1 b2 x each) as the words of a picture
// with the given layout.
void WritePictureRow(PixelLayout layout, uint32_t* out, const uint8_t* in, int64_t width);
REALobject CopyCGImage(REALobject self);
