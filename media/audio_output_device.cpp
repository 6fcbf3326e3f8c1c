#include "media/records.h"

REALclassDefinition VLCAudioOutputDeviceQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCAudioOutputDeviceQRV",
    .dataSize = sizeof(AudioOutputDeviceData),
    .mFlags = kFlagConsoleSafe,
};
