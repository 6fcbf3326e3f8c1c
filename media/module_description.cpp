#include "media/records.h"

REALclassDefinition VLCModuleDescriptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCModuleDescriptionQRV",
    .dataSize = sizeof(ModuleDescriptionData),
    .mFlags = kFlagConsoleSafe,
};
