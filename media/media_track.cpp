#include "media/records.h"

REALclassDefinition VLCMediaTrackQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaTrackQRV",
    .dataSize = sizeof(MediaTrackData),
    .mFlags = kFlagConsoleSafe,
};
