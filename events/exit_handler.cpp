#include "plugin/registration.h"

REALclassDefinition VLCExitHandlerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCExitHandlerQRV",
    .mFlags = kFlagConsoleSafe,
};
