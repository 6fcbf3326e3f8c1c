// Record classes: plain host copies of libvlc's lists and structures.
#pragma once

#include <cstdint>

#include "plugin/registration.h"

struct libvlc_audio_output_t;
struct libvlc_audio_output_device_t;
struct libvlc_module_description_t;
struct libvlc_track_description_t;
struct libvlc_media_track_t;
struct libvlc_media_stats_t;

struct TrackDescriptionData {
    REALstring name;
    int64_t id;
    REALobject nextTrack;
};

struct AudioOutputData {
    REALstring name;
    REALstring description;
    REALobject nextOutput;
};

struct AudioOutputDeviceData {
    REALstring device;
    REALstring description;
    REALobject nextOutput;
};

struct ModuleDescriptionData {
    REALstring name;
    REALstring shortName;
    REALstring longName;
    REALstring help;
    REALobject nextModule;
};

// Each Single sits in a 64-bit slot of its own (the float in its first 4 bytes).
struct MediaStatsData {
    int64_t readBytes;
    int64_t inputBitrate;
    int64_t demuxReadBytes;
    int64_t demuxBitrate;
    int64_t demuxCorrupted;
    int64_t demuxDiscontinuity;
    int64_t decodedVideo;
    int64_t decodedAudio;
    int64_t displayedPictures;
    int64_t lostPictures;
    int64_t playedAbuffers;
    int64_t lostAbuffers;
    int64_t sentPackets;
    int64_t sentBytes;
    int64_t sendBitrate;
};

struct MediaTrackInfoData {
    int64_t codec, id, type, profile, level, channels, rate, height, width;
    REALstring codecString;
};

struct MediaTrackData {
    double sar;
    double frameRate;
    REALstring codecString;
    int64_t codec, originalCode, id, type, profile, level, bitrate;
    REALstring language;
    REALstring description;
    int64_t channels, rate, height, width, sarNum, sarDen, frameRateNum, frameRateDen;
    REALstring encoding;
};

REALobject NewVLCAudioOutputQRV(const libvlc_audio_output_t* node);
REALobject NewVLCAudioOutputDeviceQRV(const libvlc_audio_output_device_t* node);
REALobject NewVLCModuleDescriptionQRV(const libvlc_module_description_t* node);
REALobject NewVLCTrackDescriptionQRV(const libvlc_track_description_t* node);
REALobject NewVLCMediaTrackQRV(const libvlc_media_track_t* track);
REALobject NewVLCMediaTrackInfoQRV(const void* record28);  // one 28-byte libvlc_media_track_info_t
REALobject NewVLCMediaStatsQRV(const libvlc_media_stats_t* stats);
