// Sweep expectations of the instance, media, media list, library, discoverer,
// equalizer and the records.
#include "tests/sweep/sweep.h"

namespace sweep {
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

ClassSweep Instance() {
    ClassSweep c{"VLCInstanceQRV"};
    AddRows(c.members, TFH,
            {"SetAppID(ID as string, Version as string, Icon as String): set_app_id",
             "SetUserAgent(AppName as string, httpUserAgent as string): set_user_agent",
             "AddUserInterface(name as string) as Boolean: add_intf", "WaitUserInterface: wait",
             "GetAudioOutputList as VLCAudioOutputQRV: audio_output_list_get",
             "AudioOutputDevices(ModuleName as string) as VLCAudioOutputDeviceQRV: audio_output_device_list_get",
             "GetVideoFilterList as VLCModuleDescriptionQRV: video_filter_list_get",
             "GetAudioFilterList as VLCModuleDescriptionQRV: audio_filter_list_get",
             "GetAudioOutputDeviceCount(AudioOutputName as string) as integer: audio_output_device_count",
             "GetAudioOutputDeviceLongName(AudioOutputName as string, index as integer) as string: "
             "audio_output_device_longname",
             "GetAudioOutputDeviceID(AudioOutputName as string, index as integer) as string: audio_output_device_id",
             "ClearLog: log_unset", "SetLogEvent: log_set"});
    AddRows(c.members, SharedCall,
            {"Clock as Int64: clock", "GetVersion as string: get_version", "GetCompiler as string: get_compiler",
             "GetChangeset as string: get_changeset", "ErrorMessage as string: errmsg", "ClearError: clearerr"});
    c.members.push_back({"Constructor(args() as string)", Missing("_libvlc_new"), Nothing()});
    // Guarded by the application-identifier function.
    c.members.push_back(TFH("SetLogFile(File as FolderItem)", "_libvlc_set_app_id").WithNil(Nil("File is nil!?")));
    c.members.push_back(Silent("ExitHandler as VLCExitHandlerQRV"));
    c.members.push_back(TFH("assign ExitHandler as VLCExitHandlerQRV", "_libvlc_set_exit_handler").WithNil(Nothing()));
    for (const char* member :
         {"LoadLibrary(path as folderitem) as boolean", "LoadLibrary(path as string) as boolean",
          "getenv(name as string) as string", "setlocale(category as integer, locale as string) as string",
          "GetLoadError as string", "get Debugging", "set Debugging"})
        c.members.push_back(Silent(std::string("shared ") + member));
    return c;
}

ClassSweep Media() {
    ClassSweep c{"VLCMediaQRV"};
    // Made by the URL constructor, which marks the temporary descriptor unused.
    c.uninitialised = [](emu::Host& host) { return host.New("VLCMediaQRV", {emu::Value(), host.String("x")}); };
    AddRows(c.members, HTF,
            {"get Tag: media_get_user_data", "set Tag: media_set_user_data",
             "SetMeta(meta as integer, value as string): media_set_meta",
             "Meta(type as integer) as string: media_get_meta", "AddOption(options as string): media_add_option",
             "AddOptionFlag(options as string, flags as UInt32): media_add_option_flag",
             "Duration as Int64: media_get_duration", "MRL as string: media_get_mrl",
             "State as integer: media_get_state", "SubItems as VLCMediaListQRV: media_subitems"});
    AddRows(
        c.members, TFH,
        {"Clone as VLCMediaQRV: media_duplicate", "SaveMeta as Boolean: media_save_meta", "Parse: media_parse",
         "ParseAsync: media_parse_async", "IsParsed as Boolean: media_is_parsed",
         "Tracks as VLCMediaTrackQRV(): media_tracks_get",
         "TrackInfos as VLCMediaTrackInfoQRV(): media_get_tracks_info", "Stats as VLCMediaStatsQRV: media_get_stats"});
    c.members.push_back(
        TakesObject("Constructor(original as VLCMediaQRV)", "_libvlc_media_duplicate", "original parameter is nil"));
    c.members.push_back(
        TakesObject("Constructor(vlc as VLCInstanceQRV, URL as string)", "_libvlc_media_new_location", kVlcNil));
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

ClassSweep MediaList() {
    ClassSweep c{"VLCMediaListQRV"};
    AddRows(c.members, HTF,
            {"Lock: media_list_lock", "Unlock: media_list_unlock",
             "Remove(index as integer) as boolean: media_list_remove_index", "Count as integer: media_list_count",
             "isReadOnly as boolean: media_list_is_readonly",
             "ItemAtIndex(index as integer) as VLCMediaQRV: media_list_item_at_index",
             "GetMedia as VLCMediaQRV: media_list_media"});
    for (const char* member : {"IndexOfItem(item as VLCMediaQRV) as integer",
                               "InsertMedia(item as VLCMediaQRV, index as integer) as boolean",
                               "SetMedia(item as VLCMediaQRV)", "AddMedia(item as VLCMediaQRV) as boolean"})
        c.members.push_back(HTF(member, "").WithNil(Nil("item parameter is nil")));
    c.members.push_back(TakesObject("Constructor(vlc as VLCInstanceQRV)", "_libvlc_media_list_new", kVlcNil));
    return c;
}

ClassSweep MediaLibrary() {
    ClassSweep c{"VLCMediaLibraryQRV"};
    AddRows(c.members, HTF,
            {"Load as Boolean: media_library_load", "MediaList as VLCMediaListQRV: media_library_media_list"});
    c.members.push_back(TakesObject("Constructor(vlc as VLCInstanceQRV)", "_libvlc_media_library_new", kVlcNil));
    return c;
}

ClassSweep MediaDiscoverer() {
    ClassSweep c{"VLCMediaDiscovererQRV"};
    AddRows(c.members, HTF,
            {"MediaList as VLCMediaListQRV: media_discoverer_media_list",
             "LocalizedName as string: media_discoverer_localized_name",
             "IsRunning as boolean: media_discoverer_is_running"});
    c.members.push_back(TakesObject("Constructor(vlc as VLCInstanceQRV, name as string)",
                                    "_libvlc_media_discoverer_new_from_name", kVlcNil));
    return c;
}

ClassSweep Equalizer() {
    ClassSweep c{"VLCEqualizerQRV"};
    AddRows(c.members, TFH,
            {"get Preamp: audio_equalizer_get_preamp", "set Preamp: audio_equalizer_set_preamp",
             "Map(Index as Integer) as Single: audio_equalizer_get_amp_at_index",
             "assign Map(Index as Integer) as Single: audio_equalizer_set_amp_at_index"});
    AddRows(c.members, SharedCall,
            {"get PresetCount: audio_equalizer_get_preset_count", "get BandCount: audio_equalizer_get_band_count",
             "PresetName(index as Integer) as string: audio_equalizer_get_preset_name",
             "BandFrequency(index as Integer) as double: audio_equalizer_get_band_frequency"});
    // Constructors need no instance: a nil one is allowed.
    c.members.push_back(
        {"Constructor(vlc as VLCInstanceQRV = nil)", Missing("_libvlc_audio_equalizer_new"), Nothing(), Nothing()});
    c.members.push_back({"Constructor(index as Integer, vlc as VLCInstanceQRV = nil)",
                         Missing("_libvlc_audio_equalizer_new_from_preset"), Nothing(), Nothing()});
    return c;
}

}  // namespace

std::vector<ClassSweep> MediaObjectSweeps() {
    std::vector<ClassSweep> all = {Instance(), Media(), MediaList(), MediaLibrary(), MediaDiscoverer(), Equalizer()};
    for (const char* record : {"VLCAudioOutputQRV", "VLCAudioOutputDeviceQRV", "VLCMediaTrackInfoQRV"})
        all.push_back(Record(record, true));
    all.push_back(Record("VLCMediaTrackQRV", true, {"Sar", "FrameRate"}));
    all.push_back(Record("VLCMediaStatsQRV", false, {"InputBitrate", "DemuxBitrate", "SendBitrate"}));
    // Handle writes keep libvlc's references; 0 written over 0 does nothing.
    for (const char* owner : {"VLCInstanceQRV", "VLCMediaQRV", "VLCMediaListQRV", "VLCMediaLibraryQRV",
                              "VLCMediaDiscovererQRV", "VLCEqualizerQRV", "VLCMediaPlayerQRV", "VLCMediaListPlayerQRV"})
        all.push_back(Record(owner, false, {"Handle"}));
    return all;
}

}  // namespace sweep
