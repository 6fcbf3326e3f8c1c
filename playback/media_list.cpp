#include "playback/media_list.h"

REALclassDefinition VLCMediaListQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaListQRV",
    .dataSize = sizeof(MediaListData),
    .mFlags = kFlagConsoleSafe,
};
