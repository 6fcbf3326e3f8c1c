// Service and renderer discovery, and the player members that use what it finds.
#pragma once

#include <vlc/vlc.h>

#include <cstddef>

#include "plugin/registration.h"

// Record chains made from libvlc 3.0's description arrays; nil for none.
REALobject NewVLCMediaDiscovererDescriptionQRV(libvlc_media_discoverer_description_t* const* services, size_t count);
REALobject NewVLCRendererDiscovererDescriptionQRV(libvlc_rd_description_t* const* services, size_t count);

// VLCMediaPlayerQRV members (renderer_discoverer.cpp, snapshot.cpp).
RBBoolean SetRenderer(REALobject self, REALobject item);
REALpicture SnapshotPicture(REALobject self, RBInteger width, RBInteger height);
