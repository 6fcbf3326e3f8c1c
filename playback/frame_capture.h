// Video frames decoded into a VLCMediaPlayerQRV's own buffer, and copied out
// as memory, memory blocks, pictures or images.
#pragma once

#include "playback/media_player.h"

// Frees the whole frame state: mutex, colour space, data provider, current
// image, target context, buffer; each field cleared. Only for the destructor,
// once libvlc can no longer call back.
void FreeImages(MediaPlayerData& d);

// HasNewFrame, read and written under the frame mutex.
RBBoolean GetHasNewFrame(REALobject self, RBInteger);
void SetHasNewFrame(REALobject self, RBInteger, RBBoolean value);

void VideoSetCallback(REALobject self, RBInteger width, RBInteger height, RBInteger contextHandle);
void* GetMemory(REALobject self);
REALmemoryBlock CopyMemory(REALobject self);
RBBoolean CopyToMemory(REALobject self, void* dest, RBInteger offset, RBInteger rowBytes);
REALpicture CopyPicture(REALobject self);
REALobject CopyCGImage(REALobject self);
