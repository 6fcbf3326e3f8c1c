#include "media/discoverer_library.h"

REALclassDefinition VLCMediaDiscovererQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaDiscovererQRV",
    .dataSize = sizeof(ServiceData),
    .mFlags = kFlagConsoleSafe,
};
