// VLCMediaTrackInfoQRV: one record of the older libvlc_media_track_info_t array.
#include <vlc/vlc.h>

#include "media/record_support.h"
#include "media/records.h"

static_assert(sizeof(libvlc_media_track_info_t) == 28, "track info records are 28 bytes");

REALobject NewVLCMediaTrackInfoQRV(const void* record28) {
    TRACEF("%p", "NewVLCMediaTrackInfoQRV", record28);
    if (record28 == nullptr) return nullptr;
    REALobject object = REALnewInstance("VLCMediaTrackInfoQRV");
    if (object == nullptr) return nullptr;
    const auto& info = *static_cast<const libvlc_media_track_info_t*>(record28);
    auto& d = DataOf<MediaTrackInfoData>(object, VLCMediaTrackInfoQRVClass);
    d.codec = info.i_codec;
    d.id = info.i_id;
    d.type = info.i_type;
    d.profile = info.i_profile;
    d.level = info.i_level;
    if (info.i_type == libvlc_track_audio) {
        d.channels = info.u.audio.i_channels;
        d.rate = info.u.audio.i_rate;
    } else if (info.i_type == libvlc_track_video) {
        d.height = info.u.video.i_height;
        d.width = info.u.video.i_width;
    }
    d.codecString = FourCCString(info.i_codec);
    return object;
}

// Also the constructor: a record made by host code starts and stays empty.
static void VLCMediaTrackInfoDestructor(REALobject self) {
    ReleaseField(DataOf<MediaTrackInfoData>(self, VLCMediaTrackInfoQRVClass).codecString);
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Codec", "Integer", MediaTrackInfoData, codec),
    QRV_FIELD_PROPERTY("ID", "Integer", MediaTrackInfoData, id),
    QRV_FIELD_PROPERTY("Type", "Integer", MediaTrackInfoData, type),
    QRV_FIELD_PROPERTY("Profile", "Integer", MediaTrackInfoData, profile),
    QRV_FIELD_PROPERTY("Level", "Integer", MediaTrackInfoData, level),
    QRV_FIELD_PROPERTY("Channels", "Integer", MediaTrackInfoData, channels),
    QRV_FIELD_PROPERTY("Rate", "Integer", MediaTrackInfoData, rate),
    QRV_FIELD_PROPERTY("Height", "Integer", MediaTrackInfoData, height),
    QRV_FIELD_PROPERTY("Width", "Integer", MediaTrackInfoData, width),
    QRV_FIELD_PROPERTY("CodecString", "String", MediaTrackInfoData, codecString),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD_FLAGS(VLCMediaTrackInfoDestructor, "Constructor", kFlagPrivateConstructor),
    QRV_METHOD(VLCMediaTrackInfoDestructor, "Destructor"),
};

REALconstant kConstants[] = {
    QRV_CONSTANT("TrackUnknown = -1"),
    QRV_CONSTANT("TrackAudio = 0"),
    QRV_CONSTANT("TrackVideo = 1"),
    QRV_CONSTANT("TrackText = 2"),
};

}  // namespace

REALclassDefinition VLCMediaTrackInfoQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaTrackInfoQRV",
    .dataSize = sizeof(MediaTrackInfoData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .constants = kConstants,
    .constantCount = std::size(kConstants),
    .mFlags = kFlagConsoleSafe,
};
