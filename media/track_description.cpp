#include "media/records.h"

REALclassDefinition VLCTrackDescriptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCTrackDescriptionQRV",
    .dataSize = sizeof(TrackDescriptionData),
    .mFlags = kFlagConsoleSafe,
};
