// VLCRendererDiscovererQRV and VLCRendererItemQRV: casting devices found on the network.
#include "plugin/registration.h"

REALclassDefinition VLCRendererDiscovererQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCRendererDiscovererQRV",
    .mFlags = kFlagConsoleSafe,
};
REALclassDefinition VLCRendererItemQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCRendererItemQRV",
    .mFlags = kFlagConsoleSafe,
};
