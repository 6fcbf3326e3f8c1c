#include "events/event_manager.h"

REALclassDefinition VLCEventManagerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCEventManagerQRV",
    .dataSize = sizeof(EventManagerData),
    .mFlags = kFlagConsoleSafe,
};
