#include "media/media.h"

REALclassDefinition VLCMediaQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaQRV",
    .dataSize = sizeof(MediaData),
    .mFlags = kFlagConsoleSafe,
};
