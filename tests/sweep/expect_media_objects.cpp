// Sweep expectations of the instance, media, media list, library, discoverer,
// equalizer and the records.
#include "tests/support/test_support.h"
#include "tests/sweep/sweep.h"

using namespace sweep;
using emu::Host;
using emu::Value;

namespace {
const char kVlcNil[] = "vlc parameter is nil";

// Records: standard fields, computed properties and a constructor that need nothing.
ClassSweep Record(const char* name, bool constructor, std::initializer_list<const char*> computed = {}) {
    ClassSweep c{name};
    if (constructor) c.members.push_back(Silent("Constructor"));
    for (const char* property : computed) {
        c.members.push_back(Silent(std::string("get ") + property));
        c.members.push_back(Silent(std::string("set ") + property));
    }
    return c;
}
}  // namespace

SWEEP_CLASS(Instance) {
    ClassSweep c{"VLCInstanceQRV"};
    c.initialised = qrvtest::HeadlessInstance;
    c.members = {
        {"Constructor(args() as string)", Missing("_libvlc_new"), Nothing()},
        TFH("SetAppID(ID as string, Version as string, Icon as String)", "_libvlc_set_app_id"),
        TFH("SetUserAgent(AppName as string, httpUserAgent as string)", "_libvlc_set_user_agent"),
        TFH("AddUserInterface(name as string) as Boolean", "_libvlc_add_intf"),
        TFH("WaitUserInterface", "_libvlc_wait"),
        TFH("GetAudioOutputList as VLCAudioOutputQRV", "_libvlc_audio_output_list_get"),
        TFH("AudioOutputDevices(ModuleName as string) as VLCAudioOutputDeviceQRV",
            "_libvlc_audio_output_device_list_get"),
        TFH("GetVideoFilterList as VLCModuleDescriptionQRV", "_libvlc_video_filter_list_get"),
        TFH("GetAudioFilterList as VLCModuleDescriptionQRV", "_libvlc_audio_filter_list_get"),
        TFH("GetAudioOutputDeviceCount(AudioOutputName as string) as integer", "_libvlc_audio_output_device_count"),
        TFH("GetAudioOutputDeviceLongName(AudioOutputName as string, index as integer) as string",
            "_libvlc_audio_output_device_longname"),
        TFH("GetAudioOutputDeviceID(AudioOutputName as string, index as integer) as string",
            "_libvlc_audio_output_device_id"),
        TFH("ClearLog", "_libvlc_log_unset"),
        // Guarded by the application-identifier function.
        TFH("SetLogFile(File as FolderItem)", "_libvlc_set_app_id").WithNil(Nil("File is nil!?")),
        TFH("SetLogEvent", "_libvlc_log_set"),
        Silent("ExitHandler as VLCExitHandlerQRV"),
        TFH("assign ExitHandler as VLCExitHandlerQRV", "_libvlc_set_exit_handler").WithNil(Nothing()),
        SharedCall("Clock as Int64", "_libvlc_clock"),
        SharedCall("GetVersion as string", "_libvlc_get_version"),
        SharedCall("GetCompiler as string", "_libvlc_get_compiler"),
        SharedCall("GetChangeset as string", "_libvlc_get_changeset"),
        SharedCall("ErrorMessage as string", "_libvlc_errmsg"),
        SharedCall("ClearError", "_libvlc_clearerr"),
    };
    for (const char* member :
         {"LoadLibrary(path as folderitem) as boolean", "LoadLibrary(path as string) as boolean",
          "getenv(name as string) as string", "setlocale(category as integer, locale as string) as string",
          "GetLoadError as string", "get Debugging", "set Debugging"})
        c.members.push_back(Silent(std::string("shared ") + member));
    return c;
}

SWEEP_CLASS(Media) {
    ClassSweep c{"VLCMediaQRV"};
    // Made by the URL constructor, which marks the temporary descriptor unused.
    c.uninitialised = [](Host& host) { return host.New("VLCMediaQRV", {Value(), host.String("x")}); };
    c.initialised = [](Host& host) {
        return host.CallShared("VLCMediaQRV", "MediaWithPath",
                               {qrvtest::HeadlessInstance(host), host.String("/tmp/qrv-sweep.mp4")});
    };
    c.members = {
        HTF("get Tag", "_libvlc_media_get_user_data"),
        HTF("set Tag", "_libvlc_media_set_user_data"),
        TakesObject("Constructor(original as VLCMediaQRV)", "_libvlc_media_duplicate", "original parameter is nil"),
        TakesObject("Constructor(vlc as VLCInstanceQRV, URL as string)", "_libvlc_media_new_location", kVlcNil),
        TFH("Clone as VLCMediaQRV", "_libvlc_media_duplicate"),
        HTF("SetMeta(meta as integer, value as string)", "_libvlc_media_set_meta"),
        HTF("Meta(type as integer) as string", "_libvlc_media_get_meta"),
        TFH("SaveMeta as Boolean", "_libvlc_media_save_meta"),
        HTF("AddOption(options as string)", "_libvlc_media_add_option"),
        HTF("AddOptionFlag(options as string, flags as UInt32)", "_libvlc_media_add_option_flag"),
        HTF("Duration as Int64", "_libvlc_media_get_duration"),
        HTF("MRL as string", "_libvlc_media_get_mrl"),
        HTF("State as integer", "_libvlc_media_get_state"),
        TFH("Parse", "_libvlc_media_parse"),
        TFH("ParseAsync", "_libvlc_media_parse_async"),
        TFH("IsParsed as Boolean", "_libvlc_media_is_parsed"),
        HTF("SubItems as VLCMediaListQRV", "_libvlc_media_subitems"),
        TFH("Tracks as VLCMediaTrackQRV()", "_libvlc_media_tracks_get"),
        TFH("TrackInfos as VLCMediaTrackInfoQRV()", "_libvlc_media_get_tracks_info"),
        TFH("Stats as VLCMediaStatsQRV", "_libvlc_media_get_stats"),
    };
    for (auto [factory, entry] : std::initializer_list<std::pair<const char*, const char*>>{
             {"NewAsNode(vlc as VLCInstanceQRV, name as string) as VLCMediaQRV", "_libvlc_media_new_as_node"},
             {"MediaWithURL(vlc as VLCInstanceQRV, URL as string) as VLCMediaQRV", "_libvlc_media_new_location"},
             {"MediaWithPath(vlc as VLCInstanceQRV, Path as string) as VLCMediaQRV", "_libvlc_media_new_path"},
             {"MediaWithFile(vlc as VLCInstanceQRV, file as folderitem) as VLCMediaQRV", "_libvlc_media_new_path"},
             {"MediaWithFileDescriptor(vlc as VLCInstanceQRV, fd as integer) as VLCMediaQRV", "_libvlc_media_new_fd"},
             {"MediaWithData(vlc as VLCInstanceQRV, data as memoryblock) as VLCMediaQRV", "_libvlc_media_new_fd"},
             {"MediaWithData(vlc as VLCInstanceQRV, data as string) as VLCMediaQRV", "_libvlc_media_new_fd"}})
        c.members.push_back(TakesObject(std::string("shared ") + factory, entry, kVlcNil));
    return c;
}

SWEEP_CLASS(MediaList) {
    ClassSweep c{"VLCMediaListQRV"};
    c.initialised = [](Host& host) { return host.New("VLCMediaListQRV", {qrvtest::HeadlessInstance(host)}); };
    Raised nilItem = Nil("item parameter is nil");
    c.members = {
        TakesObject("Constructor(vlc as VLCInstanceQRV)", "_libvlc_media_list_new", kVlcNil),
        HTF("Lock", "_libvlc_media_list_lock"),
        HTF("Unlock", "_libvlc_media_list_unlock"),
        HTF("Remove(index as integer) as boolean", "_libvlc_media_list_remove_index"),
        HTF("Count as integer", "_libvlc_media_list_count"),
        HTF("isReadOnly as boolean", "_libvlc_media_list_is_readonly"),
        HTF("ItemAtIndex(index as integer) as VLCMediaQRV", "_libvlc_media_list_item_at_index"),
        HTF("IndexOfItem(item as VLCMediaQRV) as integer", "").WithNil(nilItem),
        HTF("InsertMedia(item as VLCMediaQRV, index as integer) as boolean", "").WithNil(nilItem),
        HTF("SetMedia(item as VLCMediaQRV)", "").WithNil(nilItem),
        HTF("GetMedia as VLCMediaQRV", "_libvlc_media_list_media"),
        HTF("AddMedia(item as VLCMediaQRV) as boolean", "").WithNil(nilItem),
    };
    return c;
}

SWEEP_CLASS(MediaLibrary) {
    ClassSweep c{"VLCMediaLibraryQRV"};
    c.initialised = [](Host& host) { return host.New("VLCMediaLibraryQRV", {qrvtest::HeadlessInstance(host)}); };
    c.members = {TakesObject("Constructor(vlc as VLCInstanceQRV)", "_libvlc_media_library_new", kVlcNil),
                 HTF("Load as Boolean", "_libvlc_media_library_load"),
                 HTF("MediaList as VLCMediaListQRV", "_libvlc_media_library_media_list")};
    return c;
}

SWEEP_CLASS(MediaDiscoverer) {
    ClassSweep c{"VLCMediaDiscovererQRV"};
    c.initialised = [](Host& host) {
        return host.New("VLCMediaDiscovererQRV", {qrvtest::HeadlessInstance(host), host.String("podcast")});
    };
    c.members = {TakesObject("Constructor(vlc as VLCInstanceQRV, name as string)",
                             "_libvlc_media_discoverer_new_from_name", kVlcNil),
                 HTF("MediaList as VLCMediaListQRV", "_libvlc_media_discoverer_media_list"),
                 HTF("LocalizedName as string", "_libvlc_media_discoverer_localized_name"),
                 HTF("IsRunning as boolean", "_libvlc_media_discoverer_is_running")};
    return c;
}

SWEEP_CLASS(Equalizer) {
    ClassSweep c{"VLCEqualizerQRV"};
    c.initialised = [](Host& host) { return host.New("VLCEqualizerQRV", {Value()}); };
    c.members = {
        TFH("get Preamp", "_libvlc_audio_equalizer_get_preamp"),
        TFH("set Preamp", "_libvlc_audio_equalizer_set_preamp"),
        // Constructors need no instance: a nil one is allowed.
        {"Constructor(vlc as VLCInstanceQRV = nil)", Missing("_libvlc_audio_equalizer_new"), Nothing(), Nothing()},
        {"Constructor(index as Integer, vlc as VLCInstanceQRV = nil)",
         Missing("_libvlc_audio_equalizer_new_from_preset"), Nothing(), Nothing()},
        TFH("Map(Index as Integer) as Single", "_libvlc_audio_equalizer_get_amp_at_index"),
        TFH("assign Map(Index as Integer) as Single", "_libvlc_audio_equalizer_set_amp_at_index"),
        SharedCall("get PresetCount", "_libvlc_audio_equalizer_get_preset_count"),
        SharedCall("get BandCount", "_libvlc_audio_equalizer_get_band_count"),
        SharedCall("PresetName(index as Integer) as string", "_libvlc_audio_equalizer_get_preset_name"),
        SharedCall("BandFrequency(index as Integer) as double", "_libvlc_audio_equalizer_get_band_frequency"),
    };
    return c;
}

SWEEP_CLASS(AudioOutput) { return Record("VLCAudioOutputQRV", true); }
SWEEP_CLASS(AudioOutputDevice) { return Record("VLCAudioOutputDeviceQRV", true); }
SWEEP_CLASS(MediaTrackInfo) { return Record("VLCMediaTrackInfoQRV", true); }
SWEEP_CLASS(MediaTrack) { return Record("VLCMediaTrackQRV", true, {"Sar", "FrameRate"}); }
SWEEP_CLASS(MediaStats) { return Record("VLCMediaStatsQRV", false, {"InputBitrate", "DemuxBitrate", "SendBitrate"}); }
