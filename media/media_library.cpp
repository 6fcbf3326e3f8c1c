#include "media/discoverer_library.h"

REALclassDefinition VLCMediaLibraryQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaLibraryQRV",
    .dataSize = sizeof(ServiceData),
    .mFlags = kFlagConsoleSafe,
};
