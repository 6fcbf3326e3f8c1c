#include "media/records.h"

REALclassDefinition VLCMediaTrackInfoQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaTrackInfoQRV",
    .dataSize = sizeof(MediaTrackInfoData),
    .mFlags = kFlagConsoleSafe,
};
