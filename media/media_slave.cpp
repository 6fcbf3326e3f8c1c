// VLCMediaSlaveQRV: one subtitle or audio file attached to a media.
#include "plugin/registration.h"

REALclassDefinition VLCMediaSlaveQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaSlaveQRV",
    .mFlags = kFlagConsoleSafe,
};
