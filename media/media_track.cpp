// VLCMediaTrackQRV: a copy of one libvlc_media_track_t.
#include <vlc/vlc.h>

#include "media/record_support.h"
#include "media/records.h"

namespace {

// Ratios are unsigned integer divisions turned into doubles: 30000/1001 is 29.0.
double TruncatedRatio(unsigned numerator, unsigned denominator) {
    return denominator == 0 ? 0.0 : static_cast<double>(numerator / denominator);
}

}  // namespace

REALobject NewVLCMediaTrackQRV(const libvlc_media_track_t* track) {
    TRACEF("%p", "NewVLCMediaTrackQRV", static_cast<const void*>(track));
    if (track == nullptr) return nullptr;
    REALobject object = REALnewInstance("VLCMediaTrackQRV");
    if (object == nullptr) return nullptr;
    auto& d = DataOf<MediaTrackData>(object, VLCMediaTrackQRVClass);
    d.codec = track->i_codec;
    d.originalCode = track->i_original_fourcc;
    d.id = track->i_id;
    d.type = track->i_type;
    d.profile = track->i_profile;
    d.level = track->i_level;
    d.bitrate = track->i_bitrate;
    d.language = BuildStringUTF8(track->psz_language);
    d.description = BuildStringUTF8(track->psz_description);
    if (track->i_type == libvlc_track_text && track->subtitle != nullptr && track->subtitle->psz_encoding != nullptr)
        d.encoding = BuildStringUTF8(track->subtitle->psz_encoding);
    if (track->i_type == libvlc_track_video && track->video != nullptr) {
        const libvlc_video_track_t& v = *track->video;
        d.height = v.i_height;
        d.width = v.i_width;
        d.sarNum = v.i_sar_num;
        d.sarDen = v.i_sar_den;
        d.frameRateNum = v.i_frame_rate_num;
        d.frameRateDen = v.i_frame_rate_den;
        d.frameRate = TruncatedRatio(v.i_frame_rate_num, v.i_frame_rate_den);
        d.sar = TruncatedRatio(v.i_sar_num, v.i_sar_den);
    }
    if (track->i_type == libvlc_track_audio && track->audio != nullptr) {
        d.channels = track->audio->i_channels;
        d.rate = track->audio->i_rate;
    }
    d.codecString = FourCCString(track->i_codec);
    return object;
}

// Also the constructor: a record made by host code starts and stays empty.
static void VLCMediaTrackDestructor(REALobject self) {
    auto& d = DataOf<MediaTrackData>(self, VLCMediaTrackQRVClass);
    ReleaseField(d.codecString);
    ReleaseField(d.language);
    ReleaseField(d.description);
    ReleaseField(d.encoding);
}

// Sar and FrameRate store the double only; the fraction fields keep their values.
static double getSar(REALobject self, RBInteger) { return DataOf<MediaTrackData>(self, VLCMediaTrackQRVClass).sar; }
static void setSar(REALobject self, RBInteger, double value) {
    DataOf<MediaTrackData>(self, VLCMediaTrackQRVClass).sar = value;
}
static double getFrameRate(REALobject self, RBInteger) {
    return DataOf<MediaTrackData>(self, VLCMediaTrackQRVClass).frameRate;
}
static void setFrameRate(REALobject self, RBInteger, double value) {
    DataOf<MediaTrackData>(self, VLCMediaTrackQRVClass).frameRate = value;
}

namespace {

REALproperty kProperties[] = {
    QRV_PROPERTY("Sar", "Double", getSar, setSar),
    QRV_PROPERTY("FrameRate", "Double", getFrameRate, setFrameRate),
    QRV_FIELD_PROPERTY("CodecString", "String", MediaTrackData, codecString),
    QRV_FIELD_PROPERTY("Codec", "Integer", MediaTrackData, codec),
    QRV_FIELD_PROPERTY("OriginalCode", "Integer", MediaTrackData, originalCode),
    QRV_FIELD_PROPERTY("ID", "Integer", MediaTrackData, id),
    QRV_FIELD_PROPERTY("Type", "Integer", MediaTrackData, type),
    QRV_FIELD_PROPERTY("Profile", "Integer", MediaTrackData, profile),
    QRV_FIELD_PROPERTY("Level", "Integer", MediaTrackData, level),
    QRV_FIELD_PROPERTY("Bitrate", "Integer", MediaTrackData, bitrate),
    QRV_FIELD_PROPERTY("Language", "String", MediaTrackData, language),
    QRV_FIELD_PROPERTY("Description", "String", MediaTrackData, description),
    QRV_FIELD_PROPERTY("Channels", "Integer", MediaTrackData, channels),
    QRV_FIELD_PROPERTY("Rate", "Integer", MediaTrackData, rate),
    QRV_FIELD_PROPERTY("Height", "Integer", MediaTrackData, height),
    QRV_FIELD_PROPERTY("Width", "Integer", MediaTrackData, width),
    QRV_FIELD_PROPERTY("SarNum", "Integer", MediaTrackData, sarNum),
    QRV_FIELD_PROPERTY("SarDen", "Integer", MediaTrackData, sarDen),
    QRV_FIELD_PROPERTY("FrameRateNum", "Integer", MediaTrackData, frameRateNum),
    QRV_FIELD_PROPERTY("FrameRateDen", "Integer", MediaTrackData, frameRateDen),
    QRV_FIELD_PROPERTY("Encoding", "String", MediaTrackData, encoding),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD_FLAGS(VLCMediaTrackDestructor, "Constructor", kFlagPrivateConstructor),
    QRV_METHOD(VLCMediaTrackDestructor, "Destructor"),
};

REALconstant kConstants[] = {
    QRV_CONSTANT("TrackUnknown = -1"),
    QRV_CONSTANT("TrackAudio = 0"),
    QRV_CONSTANT("TrackVideo = 1"),
    QRV_CONSTANT("TrackText = 2"),
};

}  // namespace

REALclassDefinition VLCMediaTrackQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaTrackQRV",
    .dataSize = sizeof(MediaTrackData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .constants = kConstants,
    .constantCount = std::size(kConstants),
    .mFlags = kFlagConsoleSafe,
};
