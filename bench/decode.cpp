// Decoding a 1920x1080 H.264 clip into the player's buffer through
// VideoSetCallback, against plain libvlc video callbacks on the same clip with
// the same options, in the same run. Both play at libvlc's highest rate so
// decoding, not the clock, sets the pace. Each side counts the frames it
// receives itself: the plain program in its display callback, the plug-in run
// through the plug-in's own display path, which draws every frame it is handed
// into the host's context (a one-pixel surface here, so the draw costs next to
// nothing, observed so that each draw is counted). Rounds alternate which side
// runs first.
#include <cairo.h>
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
constexpr int kRounds = 9;

struct Result {
    double seconds = 0;
    int64_t frames = 0;
    bool ended = false;  // reached Ended rather than Error
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
    r.ended = libvlc_media_player_get_state(player) == libvlc_Ended;
    libvlc_media_player_stop(player);
    libvlc_media_player_release(player);
    libvlc_media_release(media);
    libvlc_release(vlc);
    return r;
}

// ---- through the plug-in -------------------------------------------------------

std::atomic<int64_t> gDrawn{0};
void CountDraw(cairo_surface_t*, cairo_surface_t*, void*) { gDrawn.fetch_add(1, std::memory_order_relaxed); }

// The context the plug-in draws each displayed frame into: one pixel, under an
// observer that counts the draws (cairo turns a fill that covers the whole
// surface into a paint, so both are counted).
cairo_t* CountingContext() {
    cairo_surface_t* pixel = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1, 1);
    cairo_surface_t* observer = cairo_surface_create_observer(pixel, CAIRO_SURFACE_OBSERVER_NORMAL);
    cairo_surface_observer_add_fill_callback(observer, CountDraw, nullptr);
    cairo_surface_observer_add_paint_callback(observer, CountDraw, nullptr);
    cairo_t* context = cairo_create(observer);
    cairo_surface_destroy(observer);
    cairo_surface_destroy(pixel);
    return context;
}

Result ThroughPlugin(emu::Host& host, const std::string& clip) {
    using emu::Value;
    Value vlc = host.New("VLCInstanceQRV", {host.StringArray(kOptions)});
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(clip)});
    Value player = host.New("VLCMediaPlayerQRV", {media});
    cairo_t* context = CountingContext();
    host.Call(player, "VideoSetCallback",
              {Value::Int(kWidth), Value::Int(kHeight), Value::Int(reinterpret_cast<intptr_t>(context))});
    cairo_destroy(context);  // the player keeps its own reference
    host.Set(player, "Rate", Value::Dbl(kRate));
    gDrawn = 0;
    auto start = Clock::now();
    host.Call(player, "Play");
    int64_t state;
    for (;;) {
        state = host.Get(player, "State").AsInt();
        if (state == libvlc_Ended || state == libvlc_Error) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    Result r;
    r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    r.frames = gDrawn.load();
    r.ended = state == libvlc_Ended;
    host.Call(player, "Stop");
    return r;
}

// ---- figures -------------------------------------------------------------------

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

void PrintRow(const char* path, const std::vector<Result>& runs) {
    std::vector<double> fps, frames;
    for (const Result& r : runs) {
        fps.push_back(r.Fps());
        frames.push_back(static_cast<double>(r.frames));
    }
    auto [lowFps, highFps] = std::minmax_element(fps.begin(), fps.end());
    auto [lowFrames, highFrames] = std::minmax_element(frames.begin(), frames.end());
    printf("%-24s %10.1f   %7.1f .. %-7.1f %8.0f .. %.0f\n", path, Median(fps), *lowFps, *highFps, *lowFrames,
           *highFrames);
}

}  // namespace

int main(int argc, char** argv) {
    std::string clip = getenv("QRV_DECODE_CLIP") ? getenv("QRV_DECODE_CLIP") : "";
    for (int i = 1; i < argc; ++i)
        if (argv[i][0] != '-') clip = argv[i];
    if (clip.empty()) {
        printf("decode: no 1920x1080 clip given (scripts/bench makes one with ffmpeg)\n");
        printf("FAIL decode VideoSetCallback not measured: no clip (target >= 0.97x plain libvlc fps)\n");
        return 1;
    }
    emu::Host host;
    if (!host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String("libvlc.so.5")}).AsBool()) {
        fprintf(stderr, "cannot load libvlc.so.5\n");
        return 1;
    }
    printf(
        "decoding %s (1920x1080 H.264) into RV32 buffers at rate %.0f; %d rounds, the side that runs\n"
        "first alternating; medians of the rounds and the lowest .. highest round\n\n",
        clip.c_str(), static_cast<double>(kRate), kRounds);
    std::vector<Result> plain, plugin;
    std::vector<double> ratios;  // per round, so that both sides saw the same load
    for (int round = 0; round < kRounds; ++round) {
        if (round % 2 == 0) {
            plain.push_back(PlainLibvlc(clip));
            plugin.push_back(ThroughPlugin(host, clip));
        } else {
            plugin.push_back(ThroughPlugin(host, clip));
            plain.push_back(PlainLibvlc(clip));
        }
        ratios.push_back(plain.back().Fps() > 0 ? plugin.back().Fps() / plain.back().Fps() : 0.0);
        const Result& a = plain.back();
        const Result& b = plugin.back();
        printf("round %d (%s first): plain %lld frames in %.3f s%s, plug-in %lld frames in %.3f s%s, ratio %.3f\n",
               round + 1, round % 2 == 0 ? "plain" : "plug-in", static_cast<long long>(a.frames), a.seconds,
               a.ended ? "" : " (error)", static_cast<long long>(b.frames), b.seconds, b.ended ? "" : " (error)",
               ratios.back());
        fflush(stdout);
    }
    printf("\n");
    printf("%-24s %10s   %-18s %s\n", "path", "median fps", "fps range", "frames received");
    PrintRow("plain libvlc callbacks", plain);
    PrintRow("VideoSetCallback", plugin);
    auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
    double ratio = Median(ratios);
    printf("%-24s %10.3f   %.3f .. %.3f\n\n", "ratio (per round)", ratio, *low, *high);
    bool pass = ratio >= 0.97;
    printf("%s decode VideoSetCallback %.3fx plain libvlc fps (target >= 0.97x)\n", pass ? "PASS" : "FAIL", ratio);
    return pass ? 0 : 1;
}
