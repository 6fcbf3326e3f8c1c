// Sweep expectations of the media player and the media list player: they
// trace and test the libvlc function before the handle.
#include "tests/support/test_support.h"
#include "tests/sweep/sweep.h"

using namespace sweep;
using emu::Host;
using emu::Value;

namespace {

Value Instance(Host& host) { return qrvtest::HeadlessInstance(host); }

void AddAll(std::vector<Expect>& m, std::initializer_list<std::pair<const char*, const char*>> rows) {
    for (auto [member, entry] : rows) m.push_back(TFH(member, std::string("_") + entry));
}

}  // namespace

SWEEP_CLASS(MediaPlayer) {
    ClassSweep c{"VLCMediaPlayerQRV"};
    c.initialised = [](Host& host) { return host.New("VLCMediaPlayerQRV", {Instance(host)}); };
    auto& m = c.members;
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
         {"get SPUDelay", "libvlc_video_get_spu_delay"},
         {"set SPUDelay", "libvlc_video_set_spu_delay"},
         {"get AudioDelay", "libvlc_audio_get_delay"},
         {"set AudioDelay", "libvlc_audio_set_delay"},
         {"get AudioOutputDeviceType", "libvlc_audio_output_get_device_type"},
         {"set AudioOutputDeviceType", "libvlc_audio_output_set_device_type"},
         {"get Volume", "libvlc_audio_get_volume"},
         {"set Volume", "libvlc_audio_set_volume"},
         {"get Mute", "libvlc_audio_get_mute"},
         {"set Mute", "libvlc_audio_set_mute"},
         {"get CropGeometry", "libvlc_video_get_crop_geometry"},
         {"set CropGeometry", "libvlc_video_set_crop_geometry"},
         {"get SPU", "libvlc_video_get_spu"},
         {"set SPU", "libvlc_video_set_spu"},
         {"get AspectRatio", "libvlc_video_get_aspect_ratio"},
         {"set AspectRatio", "libvlc_video_set_aspect_ratio"},
         {"get Rate", "libvlc_media_player_get_rate"},
         {"set Rate", "libvlc_media_player_set_rate"},
         {"get Title", "libvlc_media_player_get_title"},
         {"set Title", "libvlc_media_player_set_title"},
         {"get Chapter", "libvlc_media_player_get_chapter"},
         {"set Chapter", "libvlc_media_player_set_chapter"},
         {"get Time", "libvlc_media_player_get_time"},
         {"set Time", "libvlc_media_player_set_time"},
         {"get HWND", "libvlc_media_player_get_hwnd"},
         {"set HWND", "libvlc_media_player_set_hwnd"},
         {"get XWindow", "libvlc_media_player_get_xwindow"},
         {"set XWindow", "libvlc_media_player_set_xwindow"},
         {"get AGL", "libvlc_media_player_get_agl"},
         {"set AGL", "libvlc_media_player_set_agl"},
         {"get NSObject", "libvlc_media_player_get_nsobject"},
         {"set NSObject", "libvlc_media_player_set_nsobject"},
         {"get Position", "libvlc_media_player_get_position"},
         {"set Position", "libvlc_media_player_set_position"},
         {"get Scale", "libvlc_video_get_scale"},
         {"set Scale", "libvlc_video_set_scale"},
         {"get FullScreen", "libvlc_get_fullscreen"},
         {"set FullScreen", "libvlc_set_fullscreen"},
         {"get AudioTrackCount", "libvlc_audio_get_track_count"},
         {"get AudioTrack", "libvlc_audio_get_track"},
         {"set AudioTrack", "libvlc_audio_set_track"},
         {"get VideoTrackCount", "libvlc_video_get_track_count"},
         {"get VideoTrack", "libvlc_video_get_track"},
         {"set VideoTrack", "libvlc_video_set_track"},
         {"get VideoTrackDescription", "libvlc_video_get_track_description"},
         {"get VideoTeleText", "libvlc_video_get_teletext"},
         {"set VideoTeleText", "libvlc_video_set_teletext"},
         {"get Media", "libvlc_media_player_get_media"},
         {"get IsPlaying", "libvlc_media_player_is_playing"},
         {"get AudioChannel", "libvlc_audio_get_channel"},
         {"set AudioChannel", "libvlc_audio_set_channel"},
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
         {"VideoMarqueeString(option as integer) as String", "libvlc_video_get_marquee_string"},
         {"assign VideoMarqueeString(option as integer) as String", "libvlc_video_set_marquee_string"},
         {"VideoMarquee(option as integer) as integer", "libvlc_video_get_marquee_int"},
         {"assign VideoMarquee(option as integer) as integer", "libvlc_video_set_marquee_int"},
         {"VideoAdjustFloat(option as integer) as single", "libvlc_video_get_adjust_float"},
         {"assign VideoAdjustFloat(option as integer) as single", "libvlc_video_set_adjust_float"},
         {"VideoAdjust(option as integer) as integer", "libvlc_video_get_adjust_int"},
         {"assign VideoAdjust(option as integer) as integer", "libvlc_video_set_adjust_int"},
         {"VideoLogo(option as integer) as integer", "libvlc_video_get_logo_int"},
         {"assign VideoLogo(option as integer) as integer", "libvlc_video_set_logo_int"},
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
    m.push_back(TFH("set Media", "_libvlc_media_player_set_media").WithNil("media parameter is nil"));
    // nil removes the equalizer.
    m.push_back(TFH("SetEqualizer(Equalizer as VLCEqualizerQRV = nil)", "_libvlc_media_player_set_equalizer")
                    .WithNilRaising(Nothing()));
    m.push_back({"Constructor(media as VLCMediaQRV)", Missing("_libvlc_media_player_new_from_media"),
                 Nil("media parameter is nil"), Nil("media parameter is nil")});
    m.push_back({"Constructor(VLCInstance as VLCInstanceQRV)", Missing("_libvlc_media_player_new"),
                 Nil("vlc parameter is nil"), Nil("vlc parameter is nil")});
    // The frame readers test nothing: without a frame they answer nil or false.
    for (const char* reader : {"GetMemory as Ptr", "CopyMemory as memoryblock",
                               "CopyToMemory(dest as Ptr, offset as integer, RowBytes as integer) as boolean",
                               "CopyPicture as Picture", "CopyCGImage as Variant"})
        m.push_back(Silent(reader));
    for (const char* field : {"Handle", "HasNewFrame"}) {
        m.push_back(Field(field));
        m.push_back(Silent(std::string("set ") + field));
    }
    m.push_back(Field("VLC"));
    m.push_back(Field("Tag"));
    return c;
}

SWEEP_CLASS(MediaListPlayer) {
    ClassSweep c{"VLCMediaListPlayerQRV"};
    c.initialised = [](Host& host) { return host.New("VLCMediaListPlayerQRV", {Instance(host)}); };
    auto& m = c.members;
    AddAll(m, {{"Play", "libvlc_media_list_player_play"},
               {"Pause", "libvlc_media_list_player_pause"},
               {"Stop", "libvlc_media_list_player_stop"},
               {"MoveNext as Boolean", "libvlc_media_list_player_next"},
               // It tests the function it calls (README lists the departure).
               {"MovePrevious as Boolean", "libvlc_media_list_player_previous"},
               {"PlayItemAtIndex(index as integer) as Boolean", "libvlc_media_list_player_play_item_at_index"},
               {"IsPlaying as boolean", "libvlc_media_list_player_is_playing"},
               {"State as integer", "libvlc_media_list_player_get_state"},
               {"SetPlaybackMode(mode as integer)", "libvlc_media_list_player_set_playback_mode"}});
    m.push_back(
        TFH("PlayItem(item as VLCMediaQRV) as Boolean", "_libvlc_media_list_player_play_item").WithNil("Item is nil"));
    m.push_back(TFH("SetMediaPlayer(player as VLCMediaPlayerQRV)", "_libvlc_media_list_player_set_media_player")
                    .WithNil("Player is nil"));
    m.push_back(TFH("SetMediaList(list as VLCMediaListQRV)", "_libvlc_media_list_player_set_media_list")
                    .WithNil("List is nil"));
    m.push_back({"Constructor(vlc as VLCInstanceQRV)", Missing("_libvlc_media_list_player_new"),
                 Nil("vlc parameter is nil"), Nil("vlc parameter is nil")});
    for (const char* field : {"Handle", "List", "Player"}) {
        m.push_back(Field(field));
        m.push_back(Silent(std::string("set ") + field));
    }
    m.push_back(Field("VLC"));
    return c;
}
