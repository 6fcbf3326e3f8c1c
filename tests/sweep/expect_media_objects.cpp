// Sweep expectations of the media objects: instance methods, media, records,
// equalizer, discoverer, library and media list.
#include "tests/support/test_support.h"
#include "tests/sweep/sweep.h"

using namespace sweep;
using emu::Host;
using emu::Value;

namespace {

// Standard-field properties: no libvlc, no handle test.
void Fields(std::vector<Expect>& m, std::initializer_list<const char*> readWrite,
            std::initializer_list<const char*> readOnly = {}) {
    for (const char* name : readWrite) {
        m.push_back(Field(name));
        m.push_back(Silent(std::string("set ") + name));
    }
    for (const char* name : readOnly) m.push_back(Field(name));
}

// A constructor taking an instance: the function is tested first, then the argument.
Expect InstanceConstructor(const std::string& declaration, const std::string& entry) {
    return {declaration, Missing(entry), Nil("vlc parameter is nil"), Nil("vlc parameter is nil")};
}

// A shared factory taking an instance.
Expect Factory(const std::string& declaration, const std::string& entry) {
    return {"shared " + declaration, Missing(entry), Nil("vlc parameter is nil"), Nil("vlc parameter is nil")};
}

Value Instance(Host& host) { return qrvtest::HeadlessInstance(host); }

Value Media(Host& host) {
    return host.CallShared("VLCMediaQRV", "MediaWithPath", {Instance(host), host.String("/tmp/qrv-sweep.mp4")});
}

// Records have no handle: a fresh one is as initialised as it gets.
ClassSweep Record(const char* name, std::initializer_list<const char*> fields, bool constructor) {
    ClassSweep c{name};
    c.initialised = [name](Host& host) { return host.NewRaw(name); };
    Fields(c.members, fields);
    if (constructor) c.members.push_back(Silent("Constructor"));
    return c;
}

}  // namespace

SWEEP_CLASS(InstanceMethods) {
    ClassSweep c{"VLCInstanceQRV"};
    auto& m = c.members;
    m.push_back(Custom("Constructor(args() as string)", Missing("_libvlc_new"), Nothing()));
    m.push_back(TFH("SetAppID(ID as string, Version as string, Icon as String)", "_libvlc_set_app_id"));
    m.push_back(TFH("SetUserAgent(AppName as string, httpUserAgent as string)", "_libvlc_set_user_agent"));
    m.push_back(TFH("AddUserInterface(name as string) as Boolean", "_libvlc_add_intf"));
    m.push_back(TFH("WaitUserInterface", "_libvlc_wait"));
    m.push_back(TFH("GetAudioOutputList as VLCAudioOutputQRV", "_libvlc_audio_output_list_get"));
    m.push_back(TFH("AudioOutputDevices(ModuleName as string) as VLCAudioOutputDeviceQRV",
                    "_libvlc_audio_output_device_list_get"));
    m.push_back(TFH("GetVideoFilterList as VLCModuleDescriptionQRV", "_libvlc_video_filter_list_get"));
    m.push_back(TFH("GetAudioFilterList as VLCModuleDescriptionQRV", "_libvlc_audio_filter_list_get"));
    m.push_back(
        TFH("GetAudioOutputDeviceCount(AudioOutputName as string) as integer", "_libvlc_audio_output_device_count"));
    m.push_back(TFH("GetAudioOutputDeviceLongName(AudioOutputName as string, index as integer) as string",
                    "_libvlc_audio_output_device_longname"));
    m.push_back(TFH("GetAudioOutputDeviceID(AudioOutputName as string, index as integer) as string",
                    "_libvlc_audio_output_device_id"));
    return c;
}

SWEEP_CLASS(Media) {
    ClassSweep c{"VLCMediaQRV"};
    // Made by the URL constructor, which marks the temporary descriptor unused.
    c.uninitialised = [](Host& host) { return host.New("VLCMediaQRV", {Value(), host.String("x")}); };
    c.initialised = Media;
    auto& m = c.members;
    Fields(m, {"Handle"}, {"VLC"});
    m.push_back(HTF("get Tag", "_libvlc_media_get_user_data"));
    m.push_back(HTF("set Tag", "_libvlc_media_set_user_data"));
    m.push_back({"Constructor(original as VLCMediaQRV)", Missing("_libvlc_media_duplicate"),
                 Nil("original parameter is nil"), Nil("original parameter is nil")});
    m.push_back(InstanceConstructor("Constructor(vlc as VLCInstanceQRV, URL as string)", "_libvlc_media_new_location"));
    m.push_back(TFH("Clone as VLCMediaQRV", "_libvlc_media_duplicate"));
    m.push_back(HTF("SetMeta(meta as integer, value as string)", "_libvlc_media_set_meta"));
    m.push_back(HTF("Meta(type as integer) as string", "_libvlc_media_get_meta"));
    m.push_back(TFH("SaveMeta as Boolean", "_libvlc_media_save_meta"));
    m.push_back(HTF("AddOption(options as string)", "_libvlc_media_add_option"));
    m.push_back(HTF("AddOptionFlag(options as string, flags as UInt32)", "_libvlc_media_add_option_flag"));
    m.push_back(HTF("Duration as Int64", "_libvlc_media_get_duration"));
    m.push_back(HTF("MRL as string", "_libvlc_media_get_mrl"));
    m.push_back(HTF("State as integer", "_libvlc_media_get_state"));
    m.push_back(TFH("Parse", "_libvlc_media_parse"));
    m.push_back(TFH("ParseAsync", "_libvlc_media_parse_async"));
    m.push_back(TFH("IsParsed as Boolean", "_libvlc_media_is_parsed"));
    m.push_back(HTF("SubItems as VLCMediaListQRV", "_libvlc_media_subitems"));
    m.push_back(TFH("Tracks as VLCMediaTrackQRV()", "_libvlc_media_tracks_get"));
    m.push_back(TFH("TrackInfos as VLCMediaTrackInfoQRV()", "_libvlc_media_get_tracks_info"));
    m.push_back(TFH("Stats as VLCMediaStatsQRV", "_libvlc_media_get_stats"));
    m.push_back(
        Factory("NewAsNode(vlc as VLCInstanceQRV, name as string) as VLCMediaQRV", "_libvlc_media_new_as_node"));
    m.push_back(
        Factory("MediaWithURL(vlc as VLCInstanceQRV, URL as string) as VLCMediaQRV", "_libvlc_media_new_location"));
    m.push_back(
        Factory("MediaWithPath(vlc as VLCInstanceQRV, Path as string) as VLCMediaQRV", "_libvlc_media_new_path"));
    m.push_back(
        Factory("MediaWithFile(vlc as VLCInstanceQRV, file as folderitem) as VLCMediaQRV", "_libvlc_media_new_path"));
    m.push_back(Factory("MediaWithFileDescriptor(vlc as VLCInstanceQRV, fd as integer) as VLCMediaQRV",
                        "_libvlc_media_new_fd"));
    m.push_back(
        Factory("MediaWithData(vlc as VLCInstanceQRV, data as memoryblock) as VLCMediaQRV", "_libvlc_media_new_fd"));
    m.push_back(Factory("MediaWithData(vlc as VLCInstanceQRV, data as string) as VLCMediaQRV", "_libvlc_media_new_fd"));
    return c;
}

SWEEP_CLASS(MediaList) {
    ClassSweep c{"VLCMediaListQRV"};
    c.initialised = [](Host& host) { return host.New("VLCMediaListQRV", {Instance(host)}); };
    auto& m = c.members;
    Fields(m, {"Handle"}, {"VLC"});
    m.push_back(InstanceConstructor("Constructor(vlc as VLCInstanceQRV)", "_libvlc_media_list_new"));
    m.push_back(HTF("Lock", "_libvlc_media_list_lock"));
    m.push_back(HTF("Unlock", "_libvlc_media_list_unlock"));
    m.push_back(HTF("Remove(index as integer) as boolean", "_libvlc_media_list_remove_index"));
    m.push_back(HTF("Count as integer", "_libvlc_media_list_count"));
    m.push_back(HTF("isReadOnly as boolean", "_libvlc_media_list_is_readonly"));
    m.push_back(HTF("ItemAtIndex(index as integer) as VLCMediaQRV", "_libvlc_media_list_item_at_index"));
    m.push_back(HTF("IndexOfItem(item as VLCMediaQRV) as integer", "").WithNil("item parameter is nil"));
    m.push_back(
        HTF("InsertMedia(item as VLCMediaQRV, index as integer) as boolean", "").WithNil("item parameter is nil"));
    m.push_back(HTF("SetMedia(item as VLCMediaQRV)", "").WithNil("item parameter is nil"));
    m.push_back(HTF("GetMedia as VLCMediaQRV", "_libvlc_media_list_media"));
    m.push_back(HTF("AddMedia(item as VLCMediaQRV) as boolean", "").WithNil("item parameter is nil"));
    return c;
}

SWEEP_CLASS(MediaLibrary) {
    ClassSweep c{"VLCMediaLibraryQRV"};
    c.initialised = [](Host& host) { return host.New("VLCMediaLibraryQRV", {Instance(host)}); };
    auto& m = c.members;
    Fields(m, {"Handle"}, {"VLC"});
    m.push_back(InstanceConstructor("Constructor(vlc as VLCInstanceQRV)", "_libvlc_media_library_new"));
    m.push_back(HTF("Load as Boolean", "_libvlc_media_library_load"));
    m.push_back(HTF("MediaList as VLCMediaListQRV", "_libvlc_media_library_media_list"));
    return c;
}

SWEEP_CLASS(MediaDiscoverer) {
    ClassSweep c{"VLCMediaDiscovererQRV"};
    c.initialised = [](Host& host) {
        return host.New("VLCMediaDiscovererQRV", {Instance(host), host.String("podcast")});
    };
    auto& m = c.members;
    Fields(m, {"Handle"}, {"VLC"});
    m.push_back(InstanceConstructor("Constructor(vlc as VLCInstanceQRV, name as string)",
                                    "_libvlc_media_discoverer_new_from_name"));
    m.push_back(HTF("MediaList as VLCMediaListQRV", "_libvlc_media_discoverer_media_list"));
    m.push_back(HTF("LocalizedName as string", "_libvlc_media_discoverer_localized_name"));
    m.push_back(HTF("IsRunning as boolean", "_libvlc_media_discoverer_is_running"));
    return c;
}

SWEEP_CLASS(Equalizer) {
    ClassSweep c{"VLCEqualizerQRV"};
    c.initialised = [](Host& host) { return host.New("VLCEqualizerQRV", {Value()}); };
    auto& m = c.members;
    Fields(m, {"Handle"}, {"VLC"});
    m.push_back(TFH("get Preamp", "_libvlc_audio_equalizer_get_preamp"));
    m.push_back(TFH("set Preamp", "_libvlc_audio_equalizer_set_preamp"));
    // Constructors need no instance: a nil one is allowed.
    m.push_back(
        {"Constructor(vlc as VLCInstanceQRV = nil)", Missing("_libvlc_audio_equalizer_new"), Nothing(), Nothing()});
    m.push_back({"Constructor(index as Integer, vlc as VLCInstanceQRV = nil)",
                 Missing("_libvlc_audio_equalizer_new_from_preset"), Nothing(), Nothing()});
    m.push_back(TFH("Map(Index as Integer) as Single", "_libvlc_audio_equalizer_get_amp_at_index"));
    m.push_back(TFH("assign Map(Index as Integer) as Single", "_libvlc_audio_equalizer_set_amp_at_index"));
    m.push_back(Custom("shared get PresetCount", Missing("_libvlc_audio_equalizer_get_preset_count"), Nothing()));
    m.push_back(Custom("shared get BandCount", Missing("_libvlc_audio_equalizer_get_band_count"), Nothing()));
    m.push_back(Custom("shared PresetName(index as Integer) as string",
                       Missing("_libvlc_audio_equalizer_get_preset_name"), Nothing()));
    m.push_back(Custom("shared BandFrequency(index as Integer) as double",
                       Missing("_libvlc_audio_equalizer_get_band_frequency"), Nothing()));
    return c;
}

SWEEP_CLASS(TrackDescription) { return Record("VLCTrackDescriptionQRV", {"Name", "ID", "NextTrack"}, false); }
SWEEP_CLASS(AudioOutput) { return Record("VLCAudioOutputQRV", {"Name", "Description", "NextOutput"}, true); }
SWEEP_CLASS(AudioOutputDevice) {
    return Record("VLCAudioOutputDeviceQRV", {"Device", "Description", "NextOutput"}, true);
}
SWEEP_CLASS(ModuleDescription) {
    return Record("VLCModuleDescriptionQRV", {"Name", "ShortName", "LongName", "Help", "NextModule"}, false);
}
SWEEP_CLASS(MediaStats) {
    return Record("VLCMediaStatsQRV",
                  {"ReadBytes", "InputBitrate", "DemuxRead_bytes", "DemuxBitrate", "DemuxCorrupted",
                   "DemuxDiscontinuity", "DecodedVideo", "DecodedAudio", "DisplayedPictures", "LostPictures",
                   "PlayedAbuffers", "LostAbuffers", "SentPackets", "SentBytes", "SendBitrate"},
                  false);
}
SWEEP_CLASS(MediaTrackInfo) {
    return Record("VLCMediaTrackInfoQRV",
                  {"Codec", "ID", "Type", "Profile", "Level", "Channels", "Rate", "Height", "Width", "CodecString"},
                  true);
}
SWEEP_CLASS(MediaTrack) {
    return Record("VLCMediaTrackQRV",
                  {"Sar",     "FrameRate", "CodecString", "Codec",    "OriginalCode", "ID",           "Type",
                   "Profile", "Level",     "Bitrate",     "Language", "Description",  "Channels",     "Rate",
                   "Height",  "Width",     "SarNum",      "SarDen",   "FrameRateNum", "FrameRateDen", "Encoding"},
                  true);
}
