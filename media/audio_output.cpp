#include "media/records.h"

REALclassDefinition VLCAudioOutputQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCAudioOutputQRV",
    .dataSize = sizeof(AudioOutputData),
    .mFlags = kFlagConsoleSafe,
};
