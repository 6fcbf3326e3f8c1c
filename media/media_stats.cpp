#include "media/records.h"

REALclassDefinition VLCMediaStatsQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaStatsQRV",
    .dataSize = sizeof(MediaStatsData),
    .mFlags = kFlagConsoleSafe,
};
