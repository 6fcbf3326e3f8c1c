// The names the 4.0 fake exports with 4.0's signatures, where they differ from
// 3.0's. Built without libvlc 3.0's headers, which declare them otherwise;
// every one aborts when called (the plug-in must never bind them on 4.x).
#include <cstdint>

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace fakevlc {
[[noreturn]] void Unexpected(const char* name);
}

extern "C" {
struct libvlc_instance_t;
struct libvlc_media_t;
struct libvlc_media_player_t;
struct libvlc_media_list_t;
struct libvlc_media_list_player_t;
struct libvlc_media_discoverer_t;
struct libvlc_renderer_discoverer_t;
struct libvlc_media_player_cbs;
struct libvlc_media_discoverer_cbs;
struct libvlc_renderer_discoverer_cbs;
struct libvlc_media_open_cbs;
struct libvlc_dialog_cbs;
// 104 bytes: counters widened to 64 bits, late pictures added, stream output gone.
struct libvlc_media_stats_t {
    uint64_t i_read_bytes;
    float f_input_bitrate;
    uint64_t i_demux_read_bytes;
    float f_demux_bitrate;
    uint64_t i_demux_corrupted, i_demux_discontinuity, i_decoded_video, i_decoded_audio, i_displayed_pictures,
        i_late_pictures, i_lost_pictures, i_played_abuffers, i_lost_abuffers;
};
using libvlc_time_t = int64_t;  // microseconds
using libvlc_state_t = int;     // Playing 2 ... Error 6 on the current branch
}

#define CHANGED fakevlc::Unexpected(__func__)

EXPORT libvlc_media_t* libvlc_media_new_location(const char*) { CHANGED; }
EXPORT libvlc_media_t* libvlc_media_new_path(const char*) { CHANGED; }
EXPORT libvlc_media_t* libvlc_media_new_fd(int) { CHANGED; }
EXPORT libvlc_media_t* libvlc_media_new_as_node(const char*) { CHANGED; }
EXPORT libvlc_media_t* libvlc_media_new_callbacks(const libvlc_media_open_cbs*, void*) { CHANGED; }
EXPORT int libvlc_media_save_meta(libvlc_instance_t*, libvlc_media_t*) { CHANGED; }
EXPORT bool libvlc_media_get_stats(libvlc_media_t*, libvlc_media_stats_t*) { CHANGED; }
EXPORT libvlc_time_t libvlc_media_get_duration(libvlc_media_t*) { CHANGED; }
EXPORT libvlc_media_player_t* libvlc_media_player_new(libvlc_instance_t*, const libvlc_media_player_cbs*, void*) {
    CHANGED;
}
EXPORT libvlc_media_player_t* libvlc_media_player_new_from_media(libvlc_instance_t*, libvlc_media_t*,
                                                                 const libvlc_media_player_cbs*, void*) {
    CHANGED;
}
EXPORT libvlc_time_t libvlc_media_player_get_length(libvlc_media_player_t*) { CHANGED; }
EXPORT libvlc_time_t libvlc_media_player_get_time(libvlc_media_player_t*) { CHANGED; }
EXPORT int libvlc_media_player_set_time(libvlc_media_player_t*, libvlc_time_t, bool) { CHANGED; }
EXPORT double libvlc_media_player_get_position(libvlc_media_player_t*) { CHANGED; }
EXPORT int libvlc_media_player_set_position(libvlc_media_player_t*, double, bool) { CHANGED; }
EXPORT libvlc_state_t libvlc_media_player_get_state(libvlc_media_player_t*) { CHANGED; }
EXPORT int libvlc_video_set_deinterlace(libvlc_media_player_t*, int, const char*) { CHANGED; }
EXPORT int libvlc_audio_output_device_set(libvlc_media_player_t*, const char*) { CHANGED; }
EXPORT libvlc_media_list_t* libvlc_media_list_new(void) { CHANGED; }
EXPORT libvlc_media_list_player_t* libvlc_media_list_player_new(libvlc_instance_t*, const libvlc_media_player_cbs*,
                                                                void*) {
    CHANGED;
}
EXPORT libvlc_state_t libvlc_media_list_player_get_state(libvlc_media_list_player_t*) { CHANGED; }
EXPORT libvlc_media_discoverer_t* libvlc_media_discoverer_new(libvlc_instance_t*, const char*,
                                                              const libvlc_media_discoverer_cbs*, void*) {
    CHANGED;
}
EXPORT void libvlc_dialog_set_callbacks(libvlc_instance_t*, const libvlc_dialog_cbs*, void*) { CHANGED; }
EXPORT libvlc_renderer_discoverer_t* libvlc_renderer_discoverer_new(libvlc_instance_t*, const char*,
                                                                    const libvlc_renderer_discoverer_cbs*, void*) {
    CHANGED;
}
