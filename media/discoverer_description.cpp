// The services libvlc can discover media or renderers with, as record chains.
#include "plugin/registration.h"

REALclassDefinition VLCMediaDiscovererDescriptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaDiscovererDescriptionQRV",
    .mFlags = kFlagConsoleSafe,
};
REALclassDefinition VLCRendererDiscovererDescriptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCRendererDiscovererDescriptionQRV",
    .mFlags = kFlagConsoleSafe,
};
