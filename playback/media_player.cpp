#include "playback/media_player.h"

REALclassDefinition VLCMediaPlayerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaPlayerQRV",
    .dataSize = sizeof(MediaPlayerData),
    .mFlags = kFlagConsoleSafe,
};
