// VLCMediaPlayerQRV: one libvlc media player. Every member traces, tests its
// libvlc function, then the handle (GUARD_TFH), converts and calls libvlc with
// the handle first. Frame capture lives in frame_capture.cpp.
#include "playback/media_player.h"

#include <vlc/vlc.h>

#include <cstdlib>

#include "binding/library.h"
#include "events/event_manager.h"
#include "media/discovery.h"
#include "media/equalizer.h"
#include "media/instance.h"
#include "media/media.h"
#include "media/records.h"
#include "playback/frame_capture.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/text.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

libvlc_media_player_t* Player(REALobject self) {
    return reinterpret_cast<libvlc_media_player_t*>(PlayerOf(self).handle);
}

// A heap mutex with default attributes; null (and no locking) if it cannot be
// made. The constructors call it once the earlier frame state is gone.
void MakeFrameMutex(MediaPlayerData& d) {
    auto* mutex = static_cast<pthread_mutex_t*>(calloc(1, sizeof(pthread_mutex_t)));
    if (mutex != nullptr) pthread_mutex_init(mutex, nullptr);
    d.frameMutex = mutex;
}

}  // namespace

// Trace, function, handle.
#define PLAYER_GUARD_TFH(traceName, fn, zero) GUARD_TFH(PlayerOf(self).handle, traceName, fn, zero)

// One wrapper per libvlc getter or setter, by conversion.
#define PLAYER_GET(Name, Type, traceName, fn, convert) \
    static Type Name(REALobject self, RBInteger) {     \
        using Result = Type;                           \
        PLAYER_GUARD_TFH(traceName, fn, Result());     \
        return convert(vlcfn::_##fn(Player(self)));    \
    }
#define PLAYER_SET(Name, Type, traceName, fn, convert)         \
    static void Name(REALobject self, RBInteger, Type value) { \
        PLAYER_GUARD_TFH(traceName, fn, );                     \
        vlcfn::_##fn(Player(self), convert(value));            \
    }
#define PLAYER_ACTION(Name, traceName, fn) \
    static void Name(REALobject self) {    \
        PLAYER_GUARD_TFH(traceName, fn, ); \
        vlcfn::_##fn(Player(self));        \
    }

// Conversions (the names of the player's documentation).
#define AS_IS(x) (x)
#define I32(x) static_cast<RBInteger>(x)
#define NARROW(x) static_cast<int>(x)
#define B8(x) LowByte(x)
#define B01(x) ((x) != 0 ? 1 : 0)
#define F_OUT(x) static_cast<double>(x)
#define F_IN(x) static_cast<float>(x)
#define SOUT(x) BuildStringUTF8Kept(x)

PLAYER_GET(program_scrambled, RBBoolean, "program_scrambled", libvlc_media_player_program_scrambled, B8)
PLAYER_GET(GetFPS, double, "GetFPS", libvlc_media_player_get_fps, F_OUT)
PLAYER_GET(CanPause, RBBoolean, "CanPause", libvlc_media_player_can_pause, B8)
PLAYER_GET(IsSeekable, RBBoolean, "IsSeekable", libvlc_media_player_is_seekable, B8)
// The low byte, sign-extended: a count above 127 reads negative.
PLAYER_GET(HasVOut, RBInteger, "HasVOut", libvlc_media_player_has_vout, static_cast<int8_t>)
PLAYER_GET(GetWidth, RBInteger, "GetWidth", libvlc_video_get_width, I32)
PLAYER_GET(GetHeight, RBInteger, "GetHeight", libvlc_video_get_height, I32)
PLAYER_GET(GetTitleCount, RBInteger, "GetTitleCount", libvlc_media_player_get_title_count, I32)
PLAYER_GET(WillPlay, RBBoolean, "WillPlay", libvlc_media_player_will_play, B8)
PLAYER_GET(GetChapterCount, RBInteger, "GetChapterCount", libvlc_media_player_get_chapter_count, I32)
PLAYER_GET(GetLength, int64_t, "GetLength", libvlc_media_player_get_length, AS_IS)
PLAYER_GET(GetSPUCount, RBInteger, "GetSPUCount", libvlc_video_get_spu_count, I32)
PLAYER_GET(GetState, RBInteger, "GetState", libvlc_media_player_get_state, I32)
PLAYER_GET(rbGetSPUDelay, int64_t, "rbGetSPUDelay", libvlc_video_get_spu_delay, AS_IS)
PLAYER_SET(rbSetSPUDelay, int64_t, "rbSetSPUDelay", libvlc_video_set_spu_delay, AS_IS)
PLAYER_GET(GetDelay, int64_t, "GetDelay", libvlc_audio_get_delay, AS_IS)
PLAYER_SET(SetDelay, int64_t, "SetDelay", libvlc_audio_set_delay, AS_IS)
PLAYER_GET(GetAudioOutputDeviceType, RBInteger, "GetAudioOutputDeviceType", libvlc_audio_output_get_device_type, I32)
PLAYER_SET(SetAudioOutputDeviceType, RBInteger, "SetAudioOutputDeviceType", libvlc_audio_output_set_device_type, NARROW)
PLAYER_GET(GetVolume, RBInteger, "GetVolume", libvlc_audio_get_volume, I32)
PLAYER_SET(SetVolume, RBInteger, "SetVolume", libvlc_audio_set_volume, NARROW)
PLAYER_GET(GetMute, RBBoolean, "GetMute", libvlc_audio_get_mute, B8)
PLAYER_SET(SetMute, RBBoolean, "SetMute", libvlc_audio_set_mute, B01)
PLAYER_GET(GetCropGeometry, REALstring, "GetCropGeometry", libvlc_video_get_crop_geometry, SOUT)
PLAYER_GET(GetSPU, RBInteger, "GetSPU", libvlc_video_get_spu, I32)
PLAYER_SET(SetSPU, RBInteger, "SetSPU", libvlc_video_set_spu, NARROW)
PLAYER_GET(GetAspectRatio, REALstring, "GetAspectRatio", libvlc_video_get_aspect_ratio, SOUT)
PLAYER_GET(GetRate, double, "GetRate", libvlc_media_player_get_rate, F_OUT)
PLAYER_SET(SetRate, double, "SetRate", libvlc_media_player_set_rate, F_IN)
PLAYER_GET(GetTitle, RBInteger, "GetTitle", libvlc_media_player_get_title, I32)
PLAYER_SET(SetTitle, RBInteger, "SetTitle", libvlc_media_player_set_title, NARROW)
PLAYER_GET(GetChapter, RBInteger, "GetChapter", libvlc_media_player_get_chapter, I32)
PLAYER_SET(SetChapter, RBInteger, "SetChapter", libvlc_media_player_set_chapter, NARROW)
PLAYER_GET(rbGetTime, int64_t, "rbGetTime", libvlc_media_player_get_time, AS_IS)
PLAYER_SET(rbSetTime, int64_t, "rbSetTime", libvlc_media_player_set_time, AS_IS)
PLAYER_GET(GetHWND, RBInteger, "GetHWND", libvlc_media_player_get_hwnd, reinterpret_cast<RBInteger>)
PLAYER_SET(SetHWND, RBInteger, "SetHWND", libvlc_media_player_set_hwnd, reinterpret_cast<void*>)
PLAYER_GET(GetXWindow, uint32_t, "GetXWindow", libvlc_media_player_get_xwindow, AS_IS)
PLAYER_SET(SetXWindow, uint32_t, "SetXWindow", libvlc_media_player_set_xwindow, AS_IS)
PLAYER_GET(GetAGL, uint32_t, "GetAGL", libvlc_media_player_get_agl, AS_IS)
PLAYER_SET(SetAGL, uint32_t, "SetAGL", libvlc_media_player_set_agl, AS_IS)
PLAYER_GET(GetNSObject, void*, "GetNSObject", libvlc_media_player_get_nsobject, AS_IS)
PLAYER_SET(SetNSObject, void*, "SetNSObject", libvlc_media_player_set_nsobject, AS_IS)
PLAYER_GET(GetPosition, double, "GetPosition", libvlc_media_player_get_position, F_OUT)
PLAYER_SET(SetPosition, double, "SetPosition", libvlc_media_player_set_position, F_IN)
PLAYER_GET(GetScale, double, "GetScale", libvlc_video_get_scale, F_OUT)
PLAYER_SET(SetScale, double, "SetScale", libvlc_video_set_scale, F_IN)
PLAYER_GET(GetFullScreen, RBBoolean, "GetFullScreen", libvlc_get_fullscreen, B8)
PLAYER_SET(SetFullScreen, RBBoolean, "SetFullScreen", libvlc_set_fullscreen, B01)
PLAYER_GET(GetAudioTrackCount, RBInteger, "GetAudioTrackCount", libvlc_audio_get_track_count, I32)
PLAYER_GET(GetAudioTrack, RBInteger, "GetAudioTrack", libvlc_audio_get_track, I32)
PLAYER_SET(SetAudioTrack, RBInteger, "SetAudioTrack", libvlc_audio_set_track, NARROW)
PLAYER_GET(GetVideoTrackCount, RBInteger, "GetVideoTrackCount", libvlc_video_get_track_count, I32)
PLAYER_GET(GetVideoTrack, RBInteger, "GetVideoTrack", libvlc_video_get_track, I32)
PLAYER_SET(SetVideoTrack, RBInteger, "SetVideoTrack", libvlc_video_set_track, NARROW)
PLAYER_GET(GetVideoTeleText, RBInteger, "GetVideoTeleText", libvlc_video_get_teletext, I32)
PLAYER_SET(SetVideoTeleText, RBInteger, "SetVideoTeleText", libvlc_video_set_teletext, NARROW)
PLAYER_GET(IsPlaying, RBBoolean, "IsPlaying", libvlc_media_player_is_playing, B8)
PLAYER_GET(GetChannel, RBInteger, "GetChannel", libvlc_audio_get_channel, I32)
PLAYER_SET(SetChannel, RBInteger, "SetChannel", libvlc_audio_set_channel, NARROW)

// A nil string passes NULL (libvlc then resets the setting).
static void SetAspectRatio(REALobject self, RBInteger, REALstring value) {
    PLAYER_GUARD_TFH("SetAspectRatio", libvlc_video_set_aspect_ratio, );
    rbText text(value);
    vlcfn::_libvlc_video_set_aspect_ratio(Player(self), value != nullptr ? text.GetUTF8() : nullptr);
}

static void SetCropGeometry(REALobject self, RBInteger, REALstring value) {
    PLAYER_GUARD_TFH("SetCropGeometry", libvlc_video_set_crop_geometry, );
    rbText text(value);
    vlcfn::_libvlc_video_set_crop_geometry(Player(self), text.GetUTF8());
}

// Description lists: the getter and the release function are both tested
// (each after a trace line) before the handle.
#define GUARD_DESCRIPTION(traceName, fn, releaseFn) \
    TRACE(traceName);                               \
    if (!VLC_NEED(fn)) return nullptr;              \
    TRACE(traceName);                               \
    if (!VLC_NEED(releaseFn)) return nullptr;       \
    if (!HandleReady(PlayerOf(self).handle)) return nullptr

static REALobject TrackDescriptions(libvlc_track_description_t* list) {
    if (list == nullptr) return nullptr;
    REALobject head = NewVLCTrackDescriptionQRV(list);
    vlcfn::_libvlc_track_description_release(list);
    return head;
}

#define PLAYER_DESCRIPTION(Name, traceName, fn)                             \
    static REALobject Name(REALobject self, RBInteger) {                    \
        GUARD_DESCRIPTION(traceName, fn, libvlc_track_description_release); \
        return TrackDescriptions(vlcfn::_##fn(Player(self)));               \
    }

PLAYER_DESCRIPTION(GetAudioTrackDescription, "GetAudioTrackDescription", libvlc_audio_get_track_description)
PLAYER_DESCRIPTION(GetVideoTitleDescription, "GetVideoTitleDescription", libvlc_video_get_title_description)
PLAYER_DESCRIPTION(GetSPUDescription, "GetSPUDescription", libvlc_video_get_spu_description)
PLAYER_DESCRIPTION(GetVideoTrackDescription, "GetVideoTrackDescription", libvlc_video_get_track_description)

static REALobject GetChapterDescription(REALobject self, RBInteger title) {
    GUARD_DESCRIPTION("GetChapterDescription", libvlc_video_get_chapter_description, libvlc_track_description_release);
    return TrackDescriptions(vlcfn::_libvlc_video_get_chapter_description(Player(self), static_cast<int>(title)));
}

static REALobject AudioOutputDevices(REALobject self, RBInteger) {
    GUARD_DESCRIPTION("AudioOutputDevices", libvlc_audio_output_device_enum, libvlc_audio_output_device_list_release);
    libvlc_audio_output_device_t* list = vlcfn::_libvlc_audio_output_device_enum(Player(self));
    if (list == nullptr) return nullptr;
    REALobject head = NewVLCAudioOutputDeviceQRV(list);
    vlcfn::_libvlc_audio_output_device_list_release(list);
    return head;
}

// ---- the media ---------------------------------------------------------------

// The media given to the player is answered itself; otherwise libvlc's, in a new wrapper.
static REALobject GetMedia(REALobject self, RBInteger) {
    PLAYER_GUARD_TFH("GetMedia", libvlc_media_player_get_media, nullptr);
    MediaPlayerData& d = PlayerOf(self);
    if (d.media != nullptr) {
        REALLockObject(d.media);
        return d.media;
    }
    return NewVLCMediaQRV(vlcfn::_libvlc_media_player_get_media(Player(self)), d.vlc, false);
}

static void SetMedia(REALobject self, RBInteger, REALobject media) {
    PLAYER_GUARD_TFH("SetMedia", libvlc_media_player_set_media, );
    int64_t handle = HandleOf(media, VLCMediaQRVClass);
    if (handle == 0) {
        RaiseNilObjectException("media parameter is nil");
        return;
    }
    MediaPlayerData& d = PlayerOf(self);
    ReleaseField(d.media);
    vlcfn::_libvlc_media_player_set_media(Player(self), reinterpret_cast<libvlc_media_t*>(handle));
    REALLockObject(media);
    d.media = media;
}

// ---- constructors and destructor ---------------------------------------------

// Detaches every output, stops a capturing player (another holder of the libvlc
// player, a Handle written elsewhere, would keep it writing into this object's
// frame buffer), then releases: no callback into this object runs afterwards.
// libvlc frees the player's event manager with it: its managers detach first.
static void LetGoOfPlayer(REALobject self) {
    EndEventsFrom(self);
    MediaPlayerData& d = PlayerOf(self);
    if (d.handle == 0 || vlcfn::_libvlc_media_player_release == nullptr) return;
    auto player = reinterpret_cast<libvlc_media_player_t*>(d.handle);
    if (vlcfn::_libvlc_media_player_set_nsobject) vlcfn::_libvlc_media_player_set_nsobject(player, nullptr);
    if (vlcfn::_libvlc_media_player_set_xwindow) vlcfn::_libvlc_media_player_set_xwindow(player, 0);
    if (vlcfn::_libvlc_media_player_set_hwnd) vlcfn::_libvlc_media_player_set_hwnd(player, nullptr);
    if (vlcfn::_libvlc_video_set_callbacks)
        vlcfn::_libvlc_video_set_callbacks(player, nullptr, nullptr, nullptr, nullptr);
    if (d.frameBuffer != nullptr && vlcfn::_libvlc_media_player_stop) vlcfn::_libvlc_media_player_stop(player);
    vlcfn::_libvlc_media_player_release(player);
}

// Everything the destructor ends; a constructor run again ends it first.
static void EndPlayer(REALobject self) {
    LetGoOfPlayer(self);
    MediaPlayerData& d = PlayerOf(self);
    d.handle = 0;
    FreeImages(d);
    d.hasNewFrame = 0;
    ReleaseField(d.vlc);
    ReleaseField(d.tag);
    ReleaseField(d.media);
}

static void VLCMediaPlayerConstructorInstance(REALobject self, REALobject vlc) {
    NoteLibvlcHolder(self);
    TRACE("VLCMediaPlayerConstructorInstance");
    EndPlayer(self);
    MediaPlayerData& d = PlayerOf(self);
    if (!VLC_NEED(libvlc_media_player_new)) return;
    MakeFrameMutex(d);
    int64_t instance = HandleOf(vlc, VLCInstanceQRVClass);
    if (instance == 0) {
        RaiseNilObjectException("vlc parameter is nil");
        return;
    }
    d.handle =
        reinterpret_cast<int64_t>(vlcfn::_libvlc_media_player_new(reinterpret_cast<libvlc_instance_t*>(instance)));
    d.vlc = vlc;
    REALLockObject(vlc);
}

// A player made from a media keeps that media and has no VLC.
static void VLCMediaPlayerConstructorMedia(REALobject self, REALobject media) {
    NoteLibvlcHolder(self);
    TRACE("VLCMediaPlayerConstructorMedia");
    EndPlayer(self);
    MediaPlayerData& d = PlayerOf(self);
    if (!VLC_NEED(libvlc_media_player_new_from_media)) return;
    MakeFrameMutex(d);
    int64_t handle = HandleOf(media, VLCMediaQRVClass);
    if (handle == 0) {
        RaiseNilObjectException("media parameter is nil");
        return;
    }
    d.handle = reinterpret_cast<int64_t>(
        vlcfn::_libvlc_media_player_new_from_media(reinterpret_cast<libvlc_media_t*>(handle)));
    d.media = media;
    REALLockObject(media);
}

static void VLCMediaPlayerDestructor(REALobject self) {
    EndPlayer(self);
    ForgetLibvlcHolder(self);
}

// The frame state stays: the next VideoSetCallback installs it on the new player.
static void SetHandle(REALobject self, RBInteger, RBInteger value) {
    WriteHandle(PlayerOf(self).handle, value, vlcfn::_libvlc_media_player_retain, "_libvlc_media_player_retain",
                [self] { LetGoOfPlayer(self); });
}

// ---- methods -----------------------------------------------------------------

static RBBoolean Play(REALobject self) {
    PLAYER_GUARD_TFH("Play", libvlc_media_player_play, false);
    return vlcfn::_libvlc_media_player_play(Player(self)) == 0;
}

static void SetPause(REALobject self, RBBoolean pause) {
    PLAYER_GUARD_TFH("SetPause", libvlc_media_player_set_pause, );
    vlcfn::_libvlc_media_player_set_pause(Player(self), pause != 0 ? 1 : 0);
}

PLAYER_ACTION(Pause, "Pause", libvlc_media_player_pause)
PLAYER_ACTION(Stop, "Stop", libvlc_media_player_stop)
PLAYER_ACTION(NextFrame, "NextFrame", libvlc_media_player_next_frame)
PLAYER_ACTION(NextChapter, "NextChapter", libvlc_media_player_next_chapter)
PLAYER_ACTION(PreviousChapter, "PreviousChapter", libvlc_media_player_previous_chapter)
PLAYER_ACTION(ToggleFullScreen, "ToggleFullScreen", libvlc_toggle_fullscreen)
PLAYER_ACTION(ToggleTeletext, "ToggleTeletext", libvlc_toggle_teletext)
PLAYER_ACTION(ToggleMute, "ToggleMute", libvlc_audio_toggle_mute)

static void SetVideoTitleDisplay(REALobject self, RBInteger position, RBInteger timeout) {
    PLAYER_GUARD_TFH("SetVideoTitleDisplay", libvlc_media_player_set_video_title_display, );
    // libvlc indexes a table with the position: only -1 (disable) to 8 exist.
    if (position < libvlc_position_disable || position > libvlc_position_bottom_right) {
        RaiseOutOfBoundsException(position, libvlc_position_bottom_right + 1, "position", "SetVideoTitleDisplay");
        return;
    }
    vlcfn::_libvlc_media_player_set_video_title_display(Player(self), static_cast<libvlc_position_t>(position),
                                                        static_cast<unsigned>(timeout));
}

static void Navigate(REALobject self, RBInteger navigate) {
    PLAYER_GUARD_TFH("Navigate", libvlc_media_player_navigate, );
    vlcfn::_libvlc_media_player_navigate(Player(self), static_cast<unsigned>(navigate));
}

static void VideoSetKeyInput(REALobject self, RBBoolean on) {
    PLAYER_GUARD_TFH("VideoSetKeyInput", libvlc_video_set_key_input, );
    vlcfn::_libvlc_video_set_key_input(Player(self), on != 0 ? 1 : 0);
}

static void VideoSetMouseInput(REALobject self, RBBoolean on) {
    PLAYER_GUARD_TFH("VideoSetMouseInput", libvlc_video_set_mouse_input, );
    vlcfn::_libvlc_video_set_mouse_input(Player(self), on != 0 ? 1 : 0);
}

// The variables are copied in, written by libvlc, and copied back whatever the result.
static RBBoolean VideoGetSize(REALobject self, RBInteger num, uint32_t* px, uint32_t* py) {
    PLAYER_GUARD_TFH("VideoGetSize", libvlc_video_get_size, false);
    unsigned x = *px, y = *py;
    int result = vlcfn::_libvlc_video_get_size(Player(self), static_cast<unsigned>(num), &x, &y);
    *px = x;
    *py = y;
    return result == 0;
}

static RBBoolean VideoGetCursor(REALobject self, RBInteger num, RBInteger* px, RBInteger* py) {
    PLAYER_GUARD_TFH("VideoGetCursor", libvlc_video_get_cursor, false);
    int x = static_cast<int>(*px), y = static_cast<int>(*py);
    int result = vlcfn::_libvlc_video_get_cursor(Player(self), static_cast<unsigned>(num), &x, &y);
    *px = x;
    *py = y;
    return result == 0;
}

static void VideoSetLogoString(REALobject self, RBInteger option, REALstring logo) {
    PLAYER_GUARD_TFH("VideoSetLogoString", libvlc_video_set_logo_string, );
    rbText text(logo);
    vlcfn::_libvlc_video_set_logo_string(Player(self), static_cast<unsigned>(option), text.GetUTF8());
}

// Option getters and their assigning forms.
#define PLAYER_OPTION_GET(Name, Type, traceName, fn, convert)                      \
    static Type Name(REALobject self, RBInteger option) {                          \
        using Result = Type;                                                       \
        PLAYER_GUARD_TFH(traceName, fn, Result());                                 \
        return convert(vlcfn::_##fn(Player(self), static_cast<unsigned>(option))); \
    }
#define PLAYER_OPTION_SET(Name, Type, traceName, fn, convert)                      \
    static void Name(REALobject self, RBInteger option, Type value) {              \
        PLAYER_GUARD_TFH(traceName, fn, );                                         \
        vlcfn::_##fn(Player(self), static_cast<unsigned>(option), convert(value)); \
    }

PLAYER_OPTION_GET(VideoGetMarqueeString, REALstring, "VideoGetMarqueeString", libvlc_video_get_marquee_string, SOUT)
PLAYER_OPTION_GET(VideoGetMarquee, RBInteger, "VideoGetMarquee", libvlc_video_get_marquee_int, I32)
PLAYER_OPTION_SET(VideoSetMarquee, RBInteger, "VideoSetMarquee", libvlc_video_set_marquee_int, NARROW)
PLAYER_OPTION_GET(VideoGetAdjustFloat, float, "VideoGetAdjustFloat", libvlc_video_get_adjust_float, AS_IS)
PLAYER_OPTION_SET(VideoSetAdjustFloat, float, "VideoSetAdjustFloat", libvlc_video_set_adjust_float, AS_IS)
PLAYER_OPTION_GET(VideoGetAdjust, RBInteger, "VideoGetAdjust", libvlc_video_get_adjust_int, I32)
PLAYER_OPTION_SET(VideoSetAdjust, RBInteger, "VideoSetAdjust", libvlc_video_set_adjust_int, NARROW)
PLAYER_OPTION_GET(VideoGetLogo, RBInteger, "VideoGetLogo", libvlc_video_get_logo_int, I32)
PLAYER_OPTION_SET(VideoSetLogo, RBInteger, "VideoSetLogo", libvlc_video_set_logo_int, NARROW)

static void VideoSetMarqueeString(REALobject self, RBInteger option, REALstring value) {
    PLAYER_GUARD_TFH("VideoSetMarqueeString", libvlc_video_set_marquee_string, );
    rbText text(value);
    vlcfn::_libvlc_video_set_marquee_string(Player(self), static_cast<unsigned>(option), text.GetUTF8());
}

static void VideoSetDeinterlace(REALobject self, REALstring mode) {
    PLAYER_GUARD_TFH("VideoSetDeinterlace", libvlc_video_set_deinterlace, );
    rbText text(mode);
    vlcfn::_libvlc_video_set_deinterlace(Player(self), mode != nullptr ? text.GetUTF8() : nullptr);
}

static RBBoolean SetAudioOutput(REALobject self, REALstring name) {
    PLAYER_GUARD_TFH("SetAudioOutput", libvlc_audio_output_set, false);
    rbText text(name);
    return vlcfn::_libvlc_audio_output_set(Player(self), text.GetUTF8()) == 0;
}

static void SetAudioOutputDevice(REALobject self, REALstring name, REALstring deviceID) {
    PLAYER_GUARD_TFH("SetAudioOutputDevice", libvlc_audio_output_device_set, );
    rbText module(name), device(deviceID);
    vlcfn::_libvlc_audio_output_device_set(Player(self), module.GetUTF8(), device.GetUTF8());
}

static RBInteger GetChapterCountForTitle(REALobject self, RBInteger title) {
    PLAYER_GUARD_TFH("GetChapterCountForTitle", libvlc_media_player_get_chapter_count_for_title, 0);
    return vlcfn::_libvlc_media_player_get_chapter_count_for_title(Player(self), static_cast<int>(title));
}

static RBBoolean SetSubtitleFile(REALobject self, REALstring filename) {
    PLAYER_GUARD_TFH("SetSubtitleFile", libvlc_video_set_subtitle_file, false);
    rbText text(filename);
    return LowByte(vlcfn::_libvlc_video_set_subtitle_file(Player(self), text.GetUTF8()));
}

static RBBoolean VideoTakeSnapshot(REALobject self, RBInteger num, REALstring path, RBInteger width, RBInteger height) {
    PLAYER_GUARD_TFH("VideoTakeSnapshot", libvlc_video_take_snapshot, false);
    rbText text(path);
    return vlcfn::_libvlc_video_take_snapshot(Player(self), static_cast<unsigned>(num), text.GetUTF8(),
                                              static_cast<unsigned>(width), static_cast<unsigned>(height)) == 0;
}

// libvlc copies the settings: the equalizer object is not kept.
static void SetEqualizer(REALobject self, REALobject equalizer) {
    PLAYER_GUARD_TFH("SetEqualizer", libvlc_media_player_set_equalizer, );
    auto handle = reinterpret_cast<libvlc_equalizer_t*>(HandleOf(equalizer, VLCEqualizerQRVClass));
    vlcfn::_libvlc_media_player_set_equalizer(Player(self), handle);
}

// While frames are captured, only a format that fits the frame buffer reaches libvlc.
static void VideoSetFormat(REALobject self, REALstring chroma, uint32_t width, uint32_t height, uint32_t pitch) {
    PLAYER_GUARD_TFH("VideoSetFormat", libvlc_video_set_format, );
    rbText text(chroma);
    if (!CaptureTakesFormat(PlayerOf(self), text.GetUTF8(), width, height, pitch)) return;
    vlcfn::_libvlc_video_set_format(Player(self), text.GetUTF8(), width, height, pitch);
}

// ---- role and slaves -----------------------------------------------------------

static RBInteger GetRole(REALobject self) {
    PLAYER_GUARD_TFH("Role", libvlc_media_player_get_role, 0);
    return vlcfn::_libvlc_media_player_get_role(Player(self));
}

static RBBoolean SetRole(REALobject self, RBInteger role) {
    PLAYER_GUARD_TFH("SetRole", libvlc_media_player_set_role, false);
    return vlcfn::_libvlc_media_player_set_role(Player(self), static_cast<unsigned>(role)) == 0;
}

static RBBoolean AddSlave(REALobject self, RBInteger type, REALstring uri, RBBoolean select) {
    PLAYER_GUARD_TFH("AddSlave", libvlc_media_player_add_slave, false);
    if (!SlaveTypeInRange(type, "AddSlave")) return false;
    rbText text(uri);
    return vlcfn::_libvlc_media_player_add_slave(Player(self), static_cast<libvlc_media_slave_type_t>(type),
                                                 text.GetUTF8(), select != 0) == 0;
}

// ---- class record ------------------------------------------------------------

namespace {

REALproperty kProperties[] = {
    QRV_READONLY_PROPERTY("ProgramScrambled", "boolean", program_scrambled),
    QRV_READONLY_PROPERTY("FPS", "double", GetFPS),
    QRV_READONLY_PROPERTY("CanPause", "boolean", CanPause),
    QRV_READONLY_PROPERTY("IsSeekable", "boolean", IsSeekable),
    QRV_READONLY_PROPERTY("HasVOut", "Integer", HasVOut),
    QRV_READONLY_PROPERTY("Width", "integer", GetWidth),
    QRV_READONLY_PROPERTY("Height", "integer", GetHeight),
    QRV_READONLY_PROPERTY("TitleCount", "integer", GetTitleCount),
    QRV_READONLY_PROPERTY("WillPlay", "boolean", WillPlay),
    QRV_READONLY_PROPERTY("ChapterCount", "integer", GetChapterCount),
    QRV_READONLY_PROPERTY("Length", "Int64", GetLength),
    QRV_READONLY_PROPERTY("GetAudioTrackDescription", "VLCTrackDescriptionQRV", GetAudioTrackDescription),
    QRV_READONLY_PROPERTY("GetVideoTitleDescription", "VLCTrackDescriptionQRV", GetVideoTitleDescription),
    QRV_READONLY_PROPERTY("GetSPUDescription", "VLCTrackDescriptionQRV", GetSPUDescription),
    QRV_READONLY_PROPERTY("SPUCount", "integer", GetSPUCount),
    QRV_READONLY_PROPERTY("State", "integer", GetState),
    QRV_READONLY_PROPERTY("AudioOutputDevices", "VLCAudioOutputDeviceQRV", AudioOutputDevices),
    QRV_PROPERTY("SPUDelay", "Int64", rbGetSPUDelay, rbSetSPUDelay),
    QRV_PROPERTY("AudioDelay", "Int64", GetDelay, SetDelay),
    QRV_PROPERTY("AudioOutputDeviceType", "integer", GetAudioOutputDeviceType, SetAudioOutputDeviceType),
    QRV_PROPERTY("Volume", "integer", GetVolume, SetVolume),
    QRV_PROPERTY("Mute", "boolean", GetMute, SetMute),
    QRV_PROPERTY("CropGeometry", "string", GetCropGeometry, SetCropGeometry),
    QRV_PROPERTY("SPU", "integer", GetSPU, SetSPU),
    QRV_PROPERTY("AspectRatio", "string", GetAspectRatio, SetAspectRatio),
    QRV_PROPERTY("Rate", "double", GetRate, SetRate),
    QRV_PROPERTY("Title", "integer", GetTitle, SetTitle),
    QRV_PROPERTY("Chapter", "integer", GetChapter, SetChapter),
    QRV_PROPERTY("Time", "Int64", rbGetTime, rbSetTime),
    QRV_PROPERTY("HWND", "Integer", GetHWND, SetHWND),
    QRV_PROPERTY("XWindow", "UInt32", GetXWindow, SetXWindow),
    QRV_PROPERTY("AGL", "UInt32", GetAGL, SetAGL),
    QRV_PROPERTY("NSObject", "Ptr", GetNSObject, SetNSObject),
    QRV_PROPERTY("Position", "double", GetPosition, SetPosition),
    QRV_PROPERTY("Scale", "double", GetScale, SetScale),
    QRV_PROPERTY("FullScreen", "boolean", GetFullScreen, SetFullScreen),
    QRV_READONLY_PROPERTY("AudioTrackCount", "integer", GetAudioTrackCount),
    QRV_PROPERTY("AudioTrack", "integer", GetAudioTrack, SetAudioTrack),
    QRV_READONLY_PROPERTY("VideoTrackCount", "integer", GetVideoTrackCount),
    QRV_PROPERTY("VideoTrack", "integer", GetVideoTrack, SetVideoTrack),
    QRV_READONLY_PROPERTY("VideoTrackDescription", "VLCTrackDescriptionQRV", GetVideoTrackDescription),
    QRV_PROPERTY("VideoTeleText", "integer", GetVideoTeleText, SetVideoTeleText),
    QRV_PROPERTY("Media", "VLCMediaQRV", GetMedia, SetMedia),
    QRV_READONLY_PROPERTY("IsPlaying", "boolean", IsPlaying),
    QRV_PROPERTY("AudioChannel", "integer", GetChannel, SetChannel),
    QRV_PROPERTY("Handle", "Integer", ReadHandle<VLCMediaPlayerQRVClass>, SetHandle),
    QRV_PROPERTY("HasNewFrame", "Boolean", GetHasNewFrame, SetHasNewFrame),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", MediaPlayerData, vlc),
    QRV_READONLY_FIELD_PROPERTY("Tag", "Variant", MediaPlayerData, tag),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCMediaPlayerConstructorMedia, "Constructor(media as VLCMediaQRV)"),
    QRV_METHOD(VLCMediaPlayerConstructorInstance, "Constructor(VLCInstance as VLCInstanceQRV)"),
    QRV_METHOD(VLCMediaPlayerDestructor, "Destructor"),
    QRV_METHOD(Play, "Play as boolean"),
    QRV_METHOD(Pause, "Pause"),
    QRV_METHOD(SetPause, "Pause(pause as boolean)"),
    QRV_METHOD(Stop, "Stop"),
    QRV_METHOD(NextFrame, "NextFrame"),
    QRV_METHOD(NextChapter, "NextChapter"),
    QRV_METHOD(PreviousChapter, "PreviousChapter"),
    QRV_METHOD(ToggleFullScreen, "ToggleFullScreen"),
    QRV_METHOD(ToggleTeletext, "ToggleTeletext"),
    QRV_METHOD(ToggleMute, "ToggleMute"),
    QRV_METHOD(SetVideoTitleDisplay, "SetVideoTitleDisplay(position as Integer, timeout as Integer)"),
    QRV_METHOD(Navigate, "Navigate(Navigate as integer)"),
    QRV_METHOD(VideoSetKeyInput, "VideoSetKeyInput(on as boolean)"),
    QRV_METHOD(VideoSetMouseInput, "VideoSetMouseInput(on as boolean)"),
    QRV_METHOD(VideoGetSize, "VideoGetSize(num as integer, byref px as UInt32, byref py as UInt32) as Boolean"),
    QRV_METHOD(VideoGetCursor, "VideoGetCursor(num as integer, byref px as integer, byref py as integer) as Boolean"),
    QRV_METHOD(VideoSetLogoString, "VideoSetLogoString(option as integer, logo as String)"),
    QRV_ASSIGN_METHOD(VideoGetMarqueeString, VideoSetMarqueeString, "VideoMarqueeString(option as integer) as String"),
    QRV_ASSIGN_METHOD(VideoGetMarquee, VideoSetMarquee, "VideoMarquee(option as integer) as integer"),
    QRV_ASSIGN_METHOD(VideoGetAdjustFloat, VideoSetAdjustFloat, "VideoAdjustFloat(option as integer) as single"),
    QRV_ASSIGN_METHOD(VideoGetAdjust, VideoSetAdjust, "VideoAdjust(option as integer) as integer"),
    QRV_ASSIGN_METHOD(VideoGetLogo, VideoSetLogo, "VideoLogo(option as integer) as integer"),
    QRV_METHOD(VideoSetDeinterlace, "VideoSetDeinterlace(Mode as string)"),
    QRV_METHOD(SetAudioOutput, "SetAudioOutput(AudioOutputName as string) as boolean"),
    QRV_METHOD(SetAudioOutputDevice, "SetAudioOutputDevice(AudioOutputName as string, deviceID as string)"),
    QRV_METHOD(GetChapterCountForTitle, "GetChapterCountForTitle(title as integer) as integer"),
    QRV_METHOD(SetSubtitleFile, "SetSubtitleFile(filename as string) as boolean"),
    QRV_METHOD(GetChapterDescription, "GetChapterDescription(index as integer) as VLCTrackDescriptionQRV"),
    QRV_METHOD(VideoTakeSnapshot,
               "VideoTakeSnapshot(num as integer, path as string, width as integer, height as integer) as boolean"),
    QRV_METHOD(SetEqualizer, "SetEqualizer(Equalizer as VLCEqualizerQRV = nil)"),
    QRV_METHOD(VideoSetCallback,
               "VideoSetCallback(width as integer, height as integer, CGContextHandle as integer = 0)"),
    QRV_METHOD(VideoSetFormat, "VideoSetFormat(chroma as string, width as UInt32, height as UInt32, pitch as UInt32)"),
    QRV_METHOD(GetMemory, "GetMemory as Ptr"),
    QRV_METHOD(CopyMemory, "CopyMemory as memoryblock"),
    QRV_METHOD(CopyToMemory, "CopyToMemory(dest as Ptr, offset as integer, RowBytes as integer) as boolean"),
    QRV_METHOD_FLAGS(CopyPicture, "CopyPicture as Picture", kFlagPictureMarker),
    QRV_METHOD_FLAGS(CopyCGImage, "CopyCGImage as Variant", kFlagPictureMarker),
    QRV_METHOD(SetRenderer, "SetRenderer(item as VLCRendererItemQRV) as boolean"),
    QRV_METHOD_FLAGS(SnapshotPicture, "SnapshotPicture(width as integer, height as integer) as Picture",
                     kFlagPictureMarker),
    QRV_METHOD(GetRole, "Role as integer"),
    QRV_METHOD(SetRole, "SetRole(role as integer) as boolean"),
    QRV_METHOD(AddSlave, "AddSlave(type as integer, uri as string, select as boolean) as boolean"),
};

REALconstant kConstants[] = {
    QRV_CONSTANT("kStateNothingSpecial = 0"),
    QRV_CONSTANT("kStateOpening = 1"),
    QRV_CONSTANT("kStateBuffering = 2"),
    QRV_CONSTANT("kStatePlaying = 3"),
    QRV_CONSTANT("kStatePaused = 4"),
    QRV_CONSTANT("kStateStopped = 5"),
    QRV_CONSTANT("kStateEnded = 6"),
    QRV_CONSTANT("kStateError = 7"),
    QRV_CONSTANT("kMarqueeEnable = 0"),
    QRV_CONSTANT("kMarqueeText = 1"),
    QRV_CONSTANT("kMarqueeColor = 2"),
    QRV_CONSTANT("kMarqueeOpacity = 3"),
    QRV_CONSTANT("kMarqueePosition = 4"),
    QRV_CONSTANT("kMarqueeRefresh = 5"),
    QRV_CONSTANT("kMarqueeSize = 6"),
    QRV_CONSTANT("kMarqueeTimeout = 7"),
    QRV_CONSTANT("kMarqueeX = 8"),
    QRV_CONSTANT("kMarqueeY = 9"),
    QRV_CONSTANT("kLogoEnable = 0"),
    QRV_CONSTANT("kLogoFile = 1"),
    QRV_CONSTANT("kLogoX = 2"),
    QRV_CONSTANT("kLogoY = 3"),
    QRV_CONSTANT("kLogoDelay = 4"),
    QRV_CONSTANT("kLogoRepeat = 5"),
    QRV_CONSTANT("kLogoOpacity = 6"),
    QRV_CONSTANT("kLogoPosition = 7"),
    QRV_CONSTANT("kAdjustEnable = 0"),
    QRV_CONSTANT("kAdjustContrast = 1"),
    QRV_CONSTANT("kAdjustBrightness = 2"),
    QRV_CONSTANT("kAdjustHue = 3"),
    QRV_CONSTANT("kAdjustSaturation = 4"),
    QRV_CONSTANT("kAdjustGamma = 5"),
    QRV_CONSTANT("kAudioChannelError = -1"),
    QRV_CONSTANT("kAudioChannelStereo = 1"),
    QRV_CONSTANT("kAudioChannelRStereo = 2"),
    QRV_CONSTANT("kAudioChannelLeft = 3"),
    QRV_CONSTANT("kAudioChannelRight = 4"),
    QRV_CONSTANT("kAudioChannelDolbys = 5"),
    QRV_CONSTANT("kAudioOutputDevice_Error = -1"),
    QRV_CONSTANT("kAudioOutputDevice_Mono = 1"),
    QRV_CONSTANT("kAudioOutputDevice_Stereo = 2"),
    QRV_CONSTANT("kAudioOutputDevice_2F2R = 4"),
    QRV_CONSTANT("kAudioOutputDevice_3F2R = 5"),
    QRV_CONSTANT("kAudioOutputDevice_5_1 = 6"),
    QRV_CONSTANT("kAudioOutputDevice_6_1 = 7"),
    QRV_CONSTANT("kAudioOutputDevice_7_1 = 8"),
    QRV_CONSTANT("kAudioOutputDevice_SPDIF = 10"),
    QRV_CONSTANT("kNavigateActivate = 0"),
    QRV_CONSTANT("kNavigateUp = 1"),
    QRV_CONSTANT("kNavigateDown = 2"),
    QRV_CONSTANT("kNavigateLeft = 3"),
    QRV_CONSTANT("kNavigateRight = 4"),
    QRV_CONSTANT("kVideoTitleDisplayPositionDisable = -1"),
    QRV_CONSTANT("kVideoTitleDisplayPositionCenter = 0"),
    QRV_CONSTANT("kVideoTitleDisplayPositionLeft = 1"),
    QRV_CONSTANT("kVideoTitleDisplayPositionRight = 2"),
    QRV_CONSTANT("kVideoTitleDisplayPositionTop = 3"),
    QRV_CONSTANT("kVideoTitleDisplayPositionTopLeft = 4"),
    QRV_CONSTANT("kVideoTitleDisplayPositionTopRight = 5"),
    QRV_CONSTANT("kVideoTitleDisplayPositionBottom = 6"),
    QRV_CONSTANT("kVideoTitleDisplayPositionBottomLeft = 7"),
    QRV_CONSTANT("kVideoTitleDisplayPositionBottomRight = 8"),
    QRV_CONSTANT("kRoleNone = 0"),
    QRV_CONSTANT("kRoleMusic = 1"),
    QRV_CONSTANT("kRoleVideo = 2"),
    QRV_CONSTANT("kRoleCommunication = 3"),
    QRV_CONSTANT("kRoleGame = 4"),
    QRV_CONSTANT("kRoleNotification = 5"),
    QRV_CONSTANT("kRoleAnimation = 6"),
    QRV_CONSTANT("kRoleProduction = 7"),
    QRV_CONSTANT("kRoleAccessibility = 8"),
    QRV_CONSTANT("kRoleTest = 9"),
};

}  // namespace

REALclassDefinition VLCMediaPlayerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaPlayerQRV",
    .dataSize = sizeof(MediaPlayerData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .constants = kConstants,
    .constantCount = std::size(kConstants),
    .mFlags = kFlagConsoleSafe,
};
