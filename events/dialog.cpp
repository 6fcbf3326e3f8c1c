// VLCDialogQRV: libvlc's questions to the user (login, question, progress) as host events.
#include "plugin/registration.h"

REALclassDefinition VLCDialogQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCDialogQRV",
    .mFlags = kFlagConsoleSafe,
};
