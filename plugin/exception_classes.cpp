// The plug-in's two exception classes: plain subclasses of the host's
// RuntimeException, raised with fixed messages.
#include "plugin/registration.h"

REALclassDefinition VLCMissingFunctionExceptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMissingFunctionExceptionQRV",
    .superName = "RuntimeException",
    .mFlags = kFlagConsoleSafe,
};

REALclassDefinition VLCNotInitializedExceptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCNotInitializedExceptionQRV",
    .superName = "RuntimeException",
    .mFlags = kFlagConsoleSafe,
};
