// Sweep expectations of the media player, the media list player and the event
// manager. The players trace and test the libvlc function before the handle.
#include "tests/sweep/sweep.h"

namespace sweep {
namespace {

// Each row also stands for its setting form ("set Name" for "get Name",
// "assign" before a method), which calls the function's "set" counterpart.
void AddWithSetters(std::vector<Expect>& m, std::initializer_list<const char*> rows) {
    AddRows(m, TFH, rows);
    for (std::string row : rows) {
        std::string setter = row.substr(row.find(": ") + 2), key = row.substr(0, row.find(": "));
        setter.replace(setter.find("get_"), 3, "set");
        m.push_back(TFH(key.rfind("get ", 0) == 0 ? "set " + key.substr(4) : "assign " + key, "_libvlc_" + setter));
    }
}

ClassSweep MediaPlayer() {
    ClassSweep c{"VLCMediaPlayerQRV"};
    auto& m = c.members;
    AddWithSetters(m, {"get SPUDelay: video_get_spu_delay",
                       "get AudioDelay: audio_get_delay",
                       "get AudioOutputDeviceType: audio_output_get_device_type",
                       "get Volume: audio_get_volume",
                       "get Mute: audio_get_mute",
                       "get CropGeometry: video_get_crop_geometry",
                       "get SPU: video_get_spu",
                       "get AspectRatio: video_get_aspect_ratio",
                       "get Rate: media_player_get_rate",
                       "get Title: media_player_get_title",
                       "get Chapter: media_player_get_chapter",
                       "get Time: media_player_get_time",
                       "get HWND: media_player_get_hwnd",
                       "get XWindow: media_player_get_xwindow",
                       "get AGL: media_player_get_agl",
                       "get NSObject: media_player_get_nsobject",
                       "get Position: media_player_get_position",
                       "get Scale: video_get_scale",
                       "get FullScreen: get_fullscreen",
                       "get AudioTrack: audio_get_track",
                       "get VideoTrack: video_get_track",
                       "get VideoTeleText: video_get_teletext",
                       "get AudioChannel: audio_get_channel",
                       "VideoMarqueeString(option as integer) as String: video_get_marquee_string",
                       "VideoMarquee(option as integer) as integer: video_get_marquee_int",
                       "VideoAdjustFloat(option as integer) as single: video_get_adjust_float",
                       "VideoAdjust(option as integer) as integer: video_get_adjust_int",
                       "VideoLogo(option as integer) as integer: video_get_logo_int"});
    AddRows(m, TFH,
            {"get ProgramScrambled: media_player_program_scrambled",
             "get FPS: media_player_get_fps",
             "get CanPause: media_player_can_pause",
             "get IsSeekable: media_player_is_seekable",
             "get HasVOut: media_player_has_vout",
             "get Width: video_get_width",
             "get Height: video_get_height",
             "get TitleCount: media_player_get_title_count",
             "get WillPlay: media_player_will_play",
             "get ChapterCount: media_player_get_chapter_count",
             "get Length: media_player_get_length",
             "get GetAudioTrackDescription: audio_get_track_description",
             "get GetVideoTitleDescription: video_get_title_description",
             "get GetSPUDescription: video_get_spu_description",
             "get SPUCount: video_get_spu_count",
             "get State: media_player_get_state",
             "get AudioOutputDevices: audio_output_device_enum",
             "get AudioTrackCount: audio_get_track_count",
             "get VideoTrackCount: video_get_track_count",
             "get VideoTrackDescription: video_get_track_description",
             "get Media: media_player_get_media",
             "get IsPlaying: media_player_is_playing",
             "Play as boolean: media_player_play",
             "Pause: media_player_pause",
             "Pause(pause as boolean): media_player_set_pause",
             "Stop: media_player_stop",
             "NextFrame: media_player_next_frame",
             "NextChapter: media_player_next_chapter",
             "PreviousChapter: media_player_previous_chapter",
             "ToggleFullScreen: toggle_fullscreen",
             "ToggleTeletext: toggle_teletext",
             "ToggleMute: audio_toggle_mute",
             "SetVideoTitleDisplay(position as Integer, timeout as Integer): media_player_set_video_title_display",
             "Navigate(Navigate as integer): media_player_navigate",
             "VideoSetKeyInput(on as boolean): video_set_key_input",
             "VideoSetMouseInput(on as boolean): video_set_mouse_input",
             "VideoGetSize(num as integer, byref px as UInt32, byref py as UInt32) as Boolean: video_get_size",
             "VideoGetCursor(num as integer, byref px as integer, byref py as integer) as Boolean: video_get_cursor",
             "VideoSetLogoString(option as integer, logo as String): video_set_logo_string",
             "VideoSetDeinterlace(Mode as string): video_set_deinterlace",
             "SetAudioOutput(AudioOutputName as string) as boolean: audio_output_set",
             "SetAudioOutputDevice(AudioOutputName as string, deviceID as string): audio_output_device_set",
             "GetChapterCountForTitle(title as integer) as integer: media_player_get_chapter_count_for_title",
             "SetSubtitleFile(filename as string) as boolean: video_set_subtitle_file",
             "GetChapterDescription(index as integer) as VLCTrackDescriptionQRV: video_get_chapter_description",
             "VideoTakeSnapshot(num as integer, path as string, width as integer, height as integer) as boolean: "
             "video_take_snapshot",
             "VideoSetCallback(width as integer, height as integer, CGContextHandle as integer = 0): "
             "video_set_callbacks",
             "VideoSetFormat(chroma as string, width as UInt32, height as UInt32, pitch as UInt32): "
             "video_set_format"});
    m.push_back(TFH("set Media", "_libvlc_media_player_set_media").WithNil(Nil("media parameter is nil")));
    // nil removes the equalizer.
    m.push_back(TFH("SetEqualizer(Equalizer as VLCEqualizerQRV = nil)", "_libvlc_media_player_set_equalizer")
                    .WithNil(Nothing()));
    m.push_back(TakesObject("Constructor(media as VLCMediaQRV)", "_libvlc_media_player_new_from_media",
                            "media parameter is nil"));
    m.push_back(
        TakesObject("Constructor(VLCInstance as VLCInstanceQRV)", "_libvlc_media_player_new", "vlc parameter is nil"));
    // The frame readers test nothing: without a frame they answer nil or false.
    for (const char* reader :
         {"GetMemory as Ptr", "CopyMemory as memoryblock",
          "CopyToMemory(dest as Ptr, offset as integer, RowBytes as integer) as boolean", "CopyPicture as Picture",
          "CopyCGImage as Variant", "get HasNewFrame", "set HasNewFrame"})
        m.push_back(Silent(reader));
    return c;
}

ClassSweep MediaListPlayer() {
    ClassSweep c{"VLCMediaListPlayerQRV"};
    // MovePrevious tests the function it calls (README lists the departure).
    AddRows(c.members, TFH,
            {"Play: media_list_player_play", "Pause: media_list_player_pause", "Stop: media_list_player_stop",
             "MoveNext as Boolean: media_list_player_next", "MovePrevious as Boolean: media_list_player_previous",
             "PlayItemAtIndex(index as integer) as Boolean: media_list_player_play_item_at_index",
             "IsPlaying as boolean: media_list_player_is_playing", "State as integer: media_list_player_get_state",
             "SetPlaybackMode(mode as integer): media_list_player_set_playback_mode"});
    for (auto [member, entry, message] : std::initializer_list<std::tuple<const char*, const char*, const char*>>{
             {"PlayItem(item as VLCMediaQRV) as Boolean", "_libvlc_media_list_player_play_item", "Item is nil"},
             {"SetMediaPlayer(player as VLCMediaPlayerQRV)", "_libvlc_media_list_player_set_media_player",
              "Player is nil"},
             {"SetMediaList(list as VLCMediaListQRV)", "_libvlc_media_list_player_set_media_list", "List is nil"}})
        c.members.push_back(TFH(member, entry).WithNil(Nil(message)));
    c.members.push_back(
        TakesObject("Constructor(vlc as VLCInstanceQRV)", "_libvlc_media_list_player_new", "vlc parameter is nil"));
    return c;
}

ClassSweep EventManager() {
    ClassSweep c{"VLCEventManagerQRV"};
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

}  // namespace

std::vector<ClassSweep> PlaybackSweeps() { return {MediaPlayer(), MediaListPlayer(), EventManager()}; }

}  // namespace sweep
