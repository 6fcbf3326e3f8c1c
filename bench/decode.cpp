// Decoding a 1920x1080 H.264 clip into the player's buffer through
// VideoSetCallback, against plain libvlc video callbacks on the same clip with
// the same options, in the same run. Both play at a high rate so decoding, not
// the clock, sets the pace. libvlc's statistics are sampled too coarsely to
// count frames at that rate, so the figure is the clip's frame count over the
// wall time from Play to the end.
#include <vlc/vlc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "host/emulator.h"

namespace {

using Clock = std::chrono::steady_clock;
const std::vector<std::string> kOptions = {"--intf=dummy",          "--vout=dummy", "--no-audio",
                                           "--no-video-title-show", "--quiet",      "--no-drop-late-frames",
                                           "--no-skip-frames"};
constexpr unsigned kWidth = 1920, kHeight = 1080;
constexpr float kRate = 32.0f;
constexpr int64_t kClipFrames = 150;  // scripts/bench makes 5 s at 30 fps

struct Result {
    double seconds = 0;
    int64_t frames = 0;
    double Fps() const { return seconds > 0 ? frames / seconds : 0; }
};

// ---- plain libvlc --------------------------------------------------------------

std::vector<uint8_t> gBuffer(size_t{kWidth} * kHeight * 4);
void* Lock(void*, void** planes) {
    planes[0] = gBuffer.data();
    return nullptr;
}
void Unlock(void*, void*, void* const*) {}
void Display(void*, void*) {}

Result PlainLibvlc(const std::string& clip) {
    std::vector<const char*> argv;
    for (const std::string& o : kOptions) argv.push_back(o.c_str());
    libvlc_instance_t* vlc = libvlc_new(static_cast<int>(argv.size()), argv.data());
    libvlc_media_t* media = libvlc_media_new_path(vlc, clip.c_str());
    libvlc_media_player_t* player = libvlc_media_player_new_from_media(media);
    libvlc_video_set_callbacks(player, Lock, Unlock, Display, nullptr);
    libvlc_video_set_format(player, "RV32", kWidth, kHeight, kWidth * 4);
    libvlc_media_player_set_rate(player, kRate);
    auto start = Clock::now();
    libvlc_media_player_play(player);
    while (libvlc_media_player_get_state(player) != libvlc_Ended &&
           libvlc_media_player_get_state(player) != libvlc_Error)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    Result r;
    r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    r.frames = kClipFrames;
    libvlc_media_player_stop(player);
    libvlc_media_player_release(player);
    libvlc_media_release(media);
    libvlc_release(vlc);
    return r;
}

// ---- through the plug-in -------------------------------------------------------

Result ThroughPlugin(emu::Host& host, const std::string& clip) {
    using emu::Value;
    Value vlc = host.New("VLCInstanceQRV", {host.StringArray(kOptions)});
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(clip)});
    Value player = host.New("VLCMediaPlayerQRV", {media});
    host.Call(player, "VideoSetCallback", {Value::Int(kWidth), Value::Int(kHeight)});
    host.Set(player, "Rate", Value::Dbl(kRate));
    auto start = Clock::now();
    host.Call(player, "Play");
    for (;;) {
        int64_t state = host.Get(player, "State").AsInt();
        if (state == libvlc_Ended || state == libvlc_Error) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    Result r;
    r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    r.frames = kClipFrames;
    host.Call(player, "Stop");
    return r;
}

}  // namespace

int main(int argc, char** argv) {
    std::string clip = getenv("QRV_DECODE_CLIP") ? getenv("QRV_DECODE_CLIP") : "";
    for (int i = 1; i < argc; ++i)
        if (argv[i][0] != '-') clip = argv[i];
    if (clip.empty()) {
        printf("decode: no 1920x1080 clip given (scripts/bench makes one with ffmpeg); skipped\n");
        return 0;
    }
    emu::Host host;
    if (!host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String("libvlc.so.5")}).AsBool()) {
        fprintf(stderr, "cannot load libvlc.so.5\n");
        return 1;
    }
    Result plain, plugin;
    for (int round = 0; round < 5; ++round) {
        Result a = PlainLibvlc(clip), b = ThroughPlugin(host, clip);
        if (a.Fps() > plain.Fps()) plain = a;
        if (b.Fps() > plugin.Fps()) plugin = b;
    }
    printf("decoding %s (1920x1080 H.264) into RV32 buffers, best of 5 interleaved rounds\n", clip.c_str());
    printf("%-24s %8s %10s %10s\n", "path", "frames", "seconds", "fps");
    printf("%-24s %8lld %10.3f %10.1f\n", "plain libvlc callbacks", static_cast<long long>(plain.frames), plain.seconds,
           plain.Fps());
    printf("%-24s %8lld %10.3f %10.1f\n", "VideoSetCallback", static_cast<long long>(plugin.frames), plugin.seconds,
           plugin.Fps());
    printf("ratio %.3f (target >= 0.97)\n", plain.Fps() > 0 ? plugin.Fps() / plain.Fps() : 0.0);
    return 0;
}
