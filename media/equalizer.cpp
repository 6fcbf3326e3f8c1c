#include "media/equalizer.h"

REALclassDefinition VLCEqualizerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCEqualizerQRV",
    .dataSize = sizeof(EqualizerData),
    .mFlags = kFlagConsoleSafe,
};
