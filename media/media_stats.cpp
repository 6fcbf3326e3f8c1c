// VLCMediaStatsQRV: a copy of libvlc_media_stats_t. Holds no references, so it
// has no destructor.
#include <vlc/vlc.h>

#include <cstring>

#include "media/record_support.h"
#include "media/records.h"

REALobject NewVLCMediaStatsQRV(const libvlc_media_stats_t* stats) {
    TRACEF("%p", "NewVLCMediaStatsQRV", static_cast<const void*>(stats));
    if (stats == nullptr) return nullptr;
    REALobject object = REALnewInstance("VLCMediaStatsQRV");
    if (object == nullptr) return nullptr;
    auto& d = DataOf<MediaStatsData>(object, VLCMediaStatsQRVClass);
    // The three floats are copied bit for bit into the low half of their slots.
    auto single = [](int64_t& slot, float value) { memcpy(&slot, &value, sizeof value); };
    d.readBytes = stats->i_read_bytes;
    single(d.inputBitrate, stats->f_input_bitrate);
    d.demuxReadBytes = stats->i_demux_read_bytes;
    single(d.demuxBitrate, stats->f_demux_bitrate);
    d.demuxCorrupted = stats->i_demux_corrupted;
    d.demuxDiscontinuity = stats->i_demux_discontinuity;
    d.decodedVideo = stats->i_decoded_video;
    d.decodedAudio = stats->i_decoded_audio;
    d.displayedPictures = stats->i_displayed_pictures;
    d.lostPictures = stats->i_lost_pictures;
    d.playedAbuffers = stats->i_played_abuffers;
    d.lostAbuffers = stats->i_lost_abuffers;
    d.sentPackets = stats->i_sent_packets;
    d.sentBytes = stats->i_sent_bytes;
    single(d.sendBitrate, stats->f_send_bitrate);
    return object;
}

namespace {

// Accessors of the Single fields: the float held in the slot's first 4 bytes.
template <int64_t MediaStatsData::*Slot>
float GetSingle(REALobject self, RBInteger) {
    float value;
    memcpy(&value, &(DataOf<MediaStatsData>(self, VLCMediaStatsQRVClass).*Slot), sizeof value);
    return value;
}

template <int64_t MediaStatsData::*Slot>
void SetSingle(REALobject self, RBInteger, float value) {
    memcpy(&(DataOf<MediaStatsData>(self, VLCMediaStatsQRVClass).*Slot), &value, sizeof value);
}

}  // namespace

static float getf_input_bitrate(REALobject self, RBInteger p) {
    return GetSingle<&MediaStatsData::inputBitrate>(self, p);
}
static void setf_input_bitrate(REALobject self, RBInteger p, float v) {
    SetSingle<&MediaStatsData::inputBitrate>(self, p, v);
}
static float getf_demux_bitrate(REALobject self, RBInteger p) {
    return GetSingle<&MediaStatsData::demuxBitrate>(self, p);
}
static void setf_demux_bitrate(REALobject self, RBInteger p, float v) {
    SetSingle<&MediaStatsData::demuxBitrate>(self, p, v);
}
static float getf_send_bitrate(REALobject self, RBInteger p) {
    return GetSingle<&MediaStatsData::sendBitrate>(self, p);
}
static void setf_send_bitrate(REALobject self, RBInteger p, float v) {
    SetSingle<&MediaStatsData::sendBitrate>(self, p, v);
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("ReadBytes", "Integer", MediaStatsData, readBytes),
    QRV_PROPERTY("InputBitrate", "Single", getf_input_bitrate, setf_input_bitrate),
    QRV_FIELD_PROPERTY("DemuxRead_bytes", "Integer", MediaStatsData, demuxReadBytes),
    QRV_PROPERTY("DemuxBitrate", "Single", getf_demux_bitrate, setf_demux_bitrate),
    QRV_FIELD_PROPERTY("DemuxCorrupted", "Integer", MediaStatsData, demuxCorrupted),
    QRV_FIELD_PROPERTY("DemuxDiscontinuity", "Integer", MediaStatsData, demuxDiscontinuity),
    QRV_FIELD_PROPERTY("DecodedVideo", "Integer", MediaStatsData, decodedVideo),
    QRV_FIELD_PROPERTY("DecodedAudio", "Integer", MediaStatsData, decodedAudio),
    QRV_FIELD_PROPERTY("DisplayedPictures", "Integer", MediaStatsData, displayedPictures),
    QRV_FIELD_PROPERTY("LostPictures", "Integer", MediaStatsData, lostPictures),
    QRV_FIELD_PROPERTY("PlayedAbuffers", "Integer", MediaStatsData, playedAbuffers),
    QRV_FIELD_PROPERTY("LostAbuffers", "Integer", MediaStatsData, lostAbuffers),
    QRV_FIELD_PROPERTY("SentPackets", "Integer", MediaStatsData, sentPackets),
    QRV_FIELD_PROPERTY("SentBytes", "Integer", MediaStatsData, sentBytes),
    QRV_PROPERTY("SendBitrate", "Single", getf_send_bitrate, setf_send_bitrate),
};

}  // namespace

REALclassDefinition VLCMediaStatsQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaStatsQRV",
    .dataSize = sizeof(MediaStatsData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .mFlags = kFlagConsoleSafe,
};
