// Decoding a 1920x1080 H.264 clip into the player's buffer through
// VideoSetCallback, against plain libvlc video callbacks on the same clip with
// the same options, in the same run. Both play at libvlc's highest rate so
// decoding, not the clock, sets the pace. The plain program counts the frames
// its display callback sees; libvlc's statistics are sampled too coarsely for
// that, so the plug-in run is credited with the same count (the same clip, late
// frames neither dropped nor skipped) over its own wall time from Play to the
// end. Rounds alternate between the two paths.
#include <vlc/vlc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "host/emulator.h"

namespace {

using Clock = std::chrono::steady_clock;
// Without --no-avcodec-hurry-up the decoder skips frames it finds late and at
// this rate most of the clip never reaches the callbacks.
const std::vector<std::string> kOptions = {
    "--intf=dummy", "--vout=dummy",          "--no-audio",       "--no-video-title-show",
    "--quiet",      "--no-drop-late-frames", "--no-skip-frames", "--no-avcodec-hurry-up"};
constexpr unsigned kWidth = 1920, kHeight = 1080;
constexpr float kRate = 32.0f;
constexpr int kRounds = 7;

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
std::atomic<int64_t> gDisplayed{0};
void Display(void*, void*) { gDisplayed.fetch_add(1, std::memory_order_relaxed); }

Result PlainLibvlc(const std::string& clip) {
    std::vector<const char*> argv;
    for (const std::string& o : kOptions) argv.push_back(o.c_str());
    libvlc_instance_t* vlc = libvlc_new(static_cast<int>(argv.size()), argv.data());
    libvlc_media_t* media = libvlc_media_new_path(vlc, clip.c_str());
    libvlc_media_player_t* player = libvlc_media_player_new_from_media(media);
    libvlc_video_set_callbacks(player, Lock, Unlock, Display, nullptr);
    libvlc_video_set_format(player, "RV32", kWidth, kHeight, kWidth * 4);
    libvlc_media_player_set_rate(player, kRate);
    gDisplayed = 0;
    auto start = Clock::now();
    libvlc_media_player_play(player);
    while (libvlc_media_player_get_state(player) != libvlc_Ended &&
           libvlc_media_player_get_state(player) != libvlc_Error)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    Result r;
    r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    r.frames = gDisplayed.load();
    libvlc_media_player_stop(player);
    libvlc_media_player_release(player);
    libvlc_media_release(media);
    libvlc_release(vlc);
    return r;
}

// ---- through the plug-in -------------------------------------------------------

Result ThroughPlugin(emu::Host& host, const std::string& clip, int64_t clipFrames) {
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
    r.frames = clipFrames;
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
    std::vector<Result> plain, plugin;
    for (int round = 0; round < kRounds; ++round) {
        plain.push_back(PlainLibvlc(clip));
        plugin.push_back(ThroughPlugin(host, clip, plain.back().frames));
    }
    auto byFps = [](const Result& a, const Result& b) { return a.Fps() > b.Fps(); };
    std::sort(plain.begin(), plain.end(), byFps);
    std::sort(plugin.begin(), plugin.end(), byFps);
    const Result& plainMedian = plain[kRounds / 2];
    const Result& pluginMedian = plugin[kRounds / 2];
    printf("decoding %s (1920x1080 H.264) into RV32 buffers at rate %.0f, %d alternating rounds\n", clip.c_str(),
           static_cast<double>(kRate), kRounds);
    printf("%-24s %8s %12s %10s %10s\n", "path", "frames", "median s", "median fps", "best fps");
    printf("%-24s %8lld %12.3f %10.1f %10.1f\n", "plain libvlc callbacks", static_cast<long long>(plainMedian.frames),
           plainMedian.seconds, plainMedian.Fps(), plain.front().Fps());
    printf("%-24s %8lld %12.3f %10.1f %10.1f\n", "VideoSetCallback", static_cast<long long>(pluginMedian.frames),
           pluginMedian.seconds, pluginMedian.Fps(), plugin.front().Fps());
    printf("ratio of medians %.3f, of bests %.3f (target >= 0.97)\n",
           plainMedian.Fps() > 0 ? pluginMedian.Fps() / plainMedian.Fps() : 0.0,
           plain.front().Fps() > 0 ? plugin.front().Fps() / plain.front().Fps() : 0.0);
    return 0;
}
