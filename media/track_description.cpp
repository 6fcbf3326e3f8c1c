// VLCTrackDescriptionQRV: one node of libvlc's track description list.
#include <vlc/vlc.h>

#include "media/record_support.h"
#include "media/records.h"
#include "plugin/trace.h"

REALobject NewVLCTrackDescriptionQRV(const libvlc_track_description_t* node) {
    return NewRecordChain<TrackDescriptionData>(node, "NewVLCTrackDescriptionQRV", VLCTrackDescriptionQRVClass,
                                                [](auto& d, const auto& n) {
                                                    d.name = BuildStringUTF8(n.psz_name);
                                                    d.id = n.i_id;
                                                    return &d.nextTrack;
                                                });
}

static void VLCTrackDescriptionDestructor(REALobject self) {
    auto& data = DataOf<TrackDescriptionData>(self, VLCTrackDescriptionQRVClass);
    ReleaseField(data.name);
    ReleaseField(data.nextTrack);
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Name", "String", TrackDescriptionData, name),
    QRV_FIELD_PROPERTY("ID", "Integer", TrackDescriptionData, id),
    QRV_FIELD_PROPERTY("NextTrack", "VLCTrackDescriptionQRV", TrackDescriptionData, nextTrack),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCTrackDescriptionDestructor, "Destructor"),
};

}  // namespace

REALclassDefinition VLCTrackDescriptionQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCTrackDescriptionQRV",
    .dataSize = sizeof(TrackDescriptionData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .mFlags = kFlagConsoleSafe,
};
