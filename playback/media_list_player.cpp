#include "playback/media_list_player.h"

REALclassDefinition VLCMediaListPlayerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaListPlayerQRV",
    .dataSize = sizeof(MediaListPlayerData),
    .mFlags = kFlagConsoleSafe,
};
