// Sweep expectations of the media player, the media list player and the event
// manager. The players trace and test the libvlc function before the handle.
#include "tests/support/test_support.h"
#include "tests/sweep/sweep.h"

using namespace sweep;
using emu::Host;

namespace {

// Rows of {member, libvlc function}.
using Rows = std::initializer_list<std::pair<const char*, const char*>>;

void AddAll(std::vector<Expect>& m, Rows rows) {
    for (auto [member, entry] : rows) m.push_back(TFH(member, std::string("_") + entry));
}

// Each row also stands for its setting form ("set Name" for "get Name",
// "assign" before a method), which calls the function's "set" counterpart.
void AddWithSetters(std::vector<Expect>& m, Rows rows) {
    for (auto [member, entry] : rows) {
        std::string key = member, setter = entry;
        setter.replace(setter.find("get_"), 3, "set");
        m.push_back(TFH(key, std::string("_") + entry));
        m.push_back(TFH(key.rfind("get ", 0) == 0 ? "set " + key.substr(4) : "assign " + key, "_" + setter));
    }
}

}  // namespace

SWEEP_CLASS(MediaPlayer) {
    ClassSweep c{"VLCMediaPlayerQRV"};
    c.initialised = [](Host& host) { return host.New("VLCMediaPlayerQRV", {qrvtest::HeadlessInstance(host)}); };
    auto& m = c.members;
    AddWithSetters(m, {{"get SPUDelay", "libvlc_video_get_spu_delay"},
                       {"get AudioDelay", "libvlc_audio_get_delay"},
                       {"get AudioOutputDeviceType", "libvlc_audio_output_get_device_type"},
                       {"get Volume", "libvlc_audio_get_volume"},
                       {"get Mute", "libvlc_audio_get_mute"},
                       {"get CropGeometry", "libvlc_video_get_crop_geometry"},
                       {"get SPU", "libvlc_video_get_spu"},
                       {"get AspectRatio", "libvlc_video_get_aspect_ratio"},
                       {"get Rate", "libvlc_media_player_get_rate"},
                       {"get Title", "libvlc_media_player_get_title"},
                       {"get Chapter", "libvlc_media_player_get_chapter"},
                       {"get Time", "libvlc_media_player_get_time"},
                       {"get HWND", "libvlc_media_player_get_hwnd"},
                       {"get XWindow", "libvlc_media_player_get_xwindow"},
                       {"get AGL", "libvlc_media_player_get_agl"},
                       {"get NSObject", "libvlc_media_player_get_nsobject"},
                       {"get Position", "libvlc_media_player_get_position"},
                       {"get Scale", "libvlc_video_get_scale"},
                       {"get FullScreen", "libvlc_get_fullscreen"},
                       {"get AudioTrack", "libvlc_audio_get_track"},
                       {"get VideoTrack", "libvlc_video_get_track"},
                       {"get VideoTeleText", "libvlc_video_get_teletext"},
                       {"get AudioChannel", "libvlc_audio_get_channel"},
                       {"VideoMarqueeString(option as integer) as String", "libvlc_video_get_marquee_string"},
                       {"VideoMarquee(option as integer) as integer", "libvlc_video_get_marquee_int"},
                       {"VideoAdjustFloat(option as integer) as single", "libvlc_video_get_adjust_float"},
                       {"VideoAdjust(option as integer) as integer", "libvlc_video_get_adjust_int"},
                       {"VideoLogo(option as integer) as integer", "libvlc_video_get_logo_int"}});
    AddAll(
        m,
        {{"get ProgramScrambled", "libvlc_media_player_program_scrambled"},
         {"get FPS", "libvlc_media_player_get_fps"},
         {"get CanPause", "libvlc_media_player_can_pause"},
         {"get IsSeekable", "libvlc_media_player_is_seekable"},
         {"get HasVOut", "libvlc_media_player_has_vout"},
         {"get Width", "libvlc_video_get_width"},
         {"get Height", "libvlc_video_get_height"},
         {"get TitleCount", "libvlc_media_player_get_title_count"},
         {"get WillPlay", "libvlc_media_player_will_play"},
         {"get ChapterCount", "libvlc_media_player_get_chapter_count"},
         {"get Length", "libvlc_media_player_get_length"},
         {"get GetAudioTrackDescription", "libvlc_audio_get_track_description"},
         {"get GetVideoTitleDescription", "libvlc_video_get_title_description"},
         {"get GetSPUDescription", "libvlc_video_get_spu_description"},
         {"get SPUCount", "libvlc_video_get_spu_count"},
         {"get State", "libvlc_media_player_get_state"},
         {"get AudioOutputDevices", "libvlc_audio_output_device_enum"},
         {"get AudioTrackCount", "libvlc_audio_get_track_count"},
         {"get VideoTrackCount", "libvlc_video_get_track_count"},
         {"get VideoTrackDescription", "libvlc_video_get_track_description"},
         {"get Media", "libvlc_media_player_get_media"},
         {"get IsPlaying", "libvlc_media_player_is_playing"},
         {"Play as boolean", "libvlc_media_player_play"},
         {"Pause", "libvlc_media_player_pause"},
         {"Pause(pause as boolean)", "libvlc_media_player_set_pause"},
         {"Stop", "libvlc_media_player_stop"},
         {"NextFrame", "libvlc_media_player_next_frame"},
         {"NextChapter", "libvlc_media_player_next_chapter"},
         {"PreviousChapter", "libvlc_media_player_previous_chapter"},
         {"ToggleFullScreen", "libvlc_toggle_fullscreen"},
         {"ToggleTeletext", "libvlc_toggle_teletext"},
         {"ToggleMute", "libvlc_audio_toggle_mute"},
         {"SetVideoTitleDisplay(position as Integer, timeout as Integer)",
          "libvlc_media_player_set_video_title_display"},
         {"Navigate(Navigate as integer)", "libvlc_media_player_navigate"},
         {"VideoSetKeyInput(on as boolean)", "libvlc_video_set_key_input"},
         {"VideoSetMouseInput(on as boolean)", "libvlc_video_set_mouse_input"},
         {"VideoGetSize(num as integer, byref px as UInt32, byref py as UInt32) as Boolean", "libvlc_video_get_size"},
         {"VideoGetCursor(num as integer, byref px as integer, byref py as integer) as Boolean",
          "libvlc_video_get_cursor"},
         {"VideoSetLogoString(option as integer, logo as String)", "libvlc_video_set_logo_string"},
         {"VideoSetDeinterlace(Mode as string)", "libvlc_video_set_deinterlace"},
         {"SetAudioOutput(AudioOutputName as string) as boolean", "libvlc_audio_output_set"},
         {"SetAudioOutputDevice(AudioOutputName as string, deviceID as string)", "libvlc_audio_output_device_set"},
         {"GetChapterCountForTitle(title as integer) as integer", "libvlc_media_player_get_chapter_count_for_title"},
         {"SetSubtitleFile(filename as string) as boolean", "libvlc_video_set_subtitle_file"},
         {"GetChapterDescription(index as integer) as VLCTrackDescriptionQRV", "libvlc_video_get_chapter_description"},
         {"VideoTakeSnapshot(num as integer, path as string, width as integer, height as integer) as boolean",
          "libvlc_video_take_snapshot"},
         {"VideoSetCallback(width as integer, height as integer, CGContextHandle as integer = 0)",
          "libvlc_video_set_callbacks"},
         {"VideoSetFormat(chroma as string, width as UInt32, height as UInt32, pitch as UInt32)",
          "libvlc_video_set_format"}});
    m.push_back(TFH("set Media", "_libvlc_media_player_set_media").WithNil(Nil("media parameter is nil")));
    // nil removes the equalizer.
    m.push_back(TFH("SetEqualizer(Equalizer as VLCEqualizerQRV = nil)", "_libvlc_media_player_set_equalizer")
                    .WithNil(Nothing()));
    m.push_back(TakesObject("Constructor(media as VLCMediaQRV)", "_libvlc_media_player_new_from_media",
                            "media parameter is nil"));
    m.push_back(
        TakesObject("Constructor(VLCInstance as VLCInstanceQRV)", "_libvlc_media_player_new", "vlc parameter is nil"));
    // The frame readers test nothing: without a frame they answer nil or false.
    for (const char* reader : {"GetMemory as Ptr", "CopyMemory as memoryblock",
                               "CopyToMemory(dest as Ptr, offset as integer, RowBytes as integer) as boolean",
                               "CopyPicture as Picture", "CopyCGImage as Variant"})
        m.push_back(Silent(reader));
    m.push_back(Silent("get HasNewFrame"));
    m.push_back(Silent("set HasNewFrame"));
    return c;
}

SWEEP_CLASS(MediaListPlayer) {
    ClassSweep c{"VLCMediaListPlayerQRV"};
    c.initialised = [](Host& host) { return host.New("VLCMediaListPlayerQRV", {qrvtest::HeadlessInstance(host)}); };
    AddAll(c.members, {{"Play", "libvlc_media_list_player_play"},
                       {"Pause", "libvlc_media_list_player_pause"},
                       {"Stop", "libvlc_media_list_player_stop"},
                       {"MoveNext as Boolean", "libvlc_media_list_player_next"},
                       // It tests the function it calls (README lists the departure).
                       {"MovePrevious as Boolean", "libvlc_media_list_player_previous"},
                       {"PlayItemAtIndex(index as integer) as Boolean", "libvlc_media_list_player_play_item_at_index"},
                       {"IsPlaying as boolean", "libvlc_media_list_player_is_playing"},
                       {"State as integer", "libvlc_media_list_player_get_state"},
                       {"SetPlaybackMode(mode as integer)", "libvlc_media_list_player_set_playback_mode"}});
    c.members.push_back(TFH("PlayItem(item as VLCMediaQRV) as Boolean", "_libvlc_media_list_player_play_item")
                            .WithNil(Nil("Item is nil")));
    c.members.push_back(TFH("SetMediaPlayer(player as VLCMediaPlayerQRV)", "_libvlc_media_list_player_set_media_player")
                            .WithNil(Nil("Player is nil")));
    c.members.push_back(TFH("SetMediaList(list as VLCMediaListQRV)", "_libvlc_media_list_player_set_media_list")
                            .WithNil(Nil("List is nil")));
    c.members.push_back(
        TakesObject("Constructor(vlc as VLCInstanceQRV)", "_libvlc_media_list_player_new", "vlc parameter is nil"));
    return c;
}

SWEEP_CLASS(EventManager) {
    ClassSweep c{"VLCEventManagerQRV"};
    c.initialised = [](Host& host) {
        return host.New("VLCEventManagerQRV", {host.New("VLCMediaPlayerQRV", {qrvtest::HeadlessInstance(host)})});
    };
    c.members = {
        Silent("Listen"),
        TakesObject("Constructor(MediaPlayer as VLCMediaPlayerQRV)", "_libvlc_media_player_event_manager",
                    "media parameter is nil"),
        TakesObject("Constructor(Media as VLCMediaQRV)", "_libvlc_media_event_manager", "media parameter is nil"),
        TakesObject("Constructor(MediaDiscoverer as VLCMediaDiscovererQRV)", "_libvlc_media_discoverer_event_manager",
                    "Discoverer parameter is nil"),
        TakesObject("Constructor(MediaList as VLCMediaListQRV)", "_libvlc_media_list_event_manager",
                    "list parameter is nil"),
        TakesObject("Constructor(MediaListPlayer as VLCMediaListPlayerQRV)", "_libvlc_media_list_player_event_manager",
                    "list parameter is nil"),
    };
    return c;
}
