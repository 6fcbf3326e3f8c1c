// qrvhost play: plays a file headless through VLCMediaPlayerQRV, as a host
// program would, capturing frames with VideoSetCallback and CopyPicture.
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>

#include "host/emulator.h"
#include "host/qrvhost.h"

namespace {

using emu::Host;
using emu::Value;
using Clock = std::chrono::steady_clock;

struct PlayOptions {
    std::string file = emu::SourceDir() + "/samples/sample.mp4";
    std::string libvlc = "libvlc.so.5";
    double seconds = 0;  // 0: until the end
    std::string pngDir;
    int every = 10;
    bool trace = false;
    bool events = false;
};

bool Parse(const std::vector<std::string>& args, PlayOptions& o) {
    bool fileSeen = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        bool hasValue = i + 1 < args.size();
        if (a == "--libvlc" && hasValue)
            o.libvlc = args[++i];
        else if (a == "--seconds" && hasValue)
            o.seconds = atof(args[++i].c_str());
        else if (a == "--png" && hasValue)
            o.pngDir = args[++i];
        else if (a == "--every" && hasValue)
            o.every = atoi(args[++i].c_str());
        else if (a == "--trace")
            o.trace = true;
        else if (a == "--events")
            o.events = true;
        else if (!a.empty() && a[0] != '-' && !fileSeen)
            o.file = a, fileSeen = true;
        else
            return false;
    }
    return o.every >= 1;
}

std::string Timestamp(int64_t ms) {
    char text[32];
    snprintf(text, sizeof text, "%02lld:%02lld.%03lld", static_cast<long long>(ms / 60000),
             static_cast<long long>(ms / 1000 % 60), static_cast<long long>(ms % 1000));
    return text;
}

// The first video track's size, from the parsed media.
bool VideoSize(Host& host, const Value& media, int64_t& width, int64_t& height) {
    host.Call(media, "Parse");
    for (const Value& track : host.ArrayObjects(host.Call(media, "Tracks"))) {
        if (track.IsNil() || host.Get(track, "Type").AsInt() != 1) continue;
        width = host.Get(track, "Width").AsInt();
        height = host.Get(track, "Height").AsInt();
        return width > 0 && height > 0;
    }
    return false;
}

// --events: handlers that print each event as it is raised, with a main-thread check.
bool OnMain() { return syscall(SYS_gettid) == getpid(); }
void Say(const char* name, const std::string& arguments) {
    printf("  event %-28s %-22s %s\n", name, arguments.c_str(), OnMain() ? "(main thread)" : "(NOT the main thread)");
}
#define NO_ARGS(name)                                                         \
    {                                                                         \
#name, reinterpret_cast < void*>(+[](REALobject) { Say(#name, ""); }) \
    }
#define INT_ARG(name)                                                                                     \
    {                                                                                                     \
#name, reinterpret_cast < void*>(+[](REALobject, RBInteger v) { Say(#name, std::to_string(v)); }) \
    }
#define BOOL_ARG(name)                                                                                       \
    {                                                                                                        \
#name, reinterpret_cast < void*>(+[](REALobject, RBBoolean v) { Say(#name, v ? "true" : "false"); }) \
    }
#define DOUBLE_ARG(name)                                                                               \
    {                                                                                                  \
#name, reinterpret_cast < void*>(+[](REALobject, double v) { Say(#name, std::to_string(v)); }) \
    }
#define MEDIA_ARG(name)                                                                                      \
    {                                                                                                        \
#name, reinterpret_cast < void*>(+[](REALobject, REALobject m) { Say(#name, m ? "media" : "nil"); }) \
    }

std::map<std::string, void*> EventPrinters() {
    return {NO_ARGS(MediaPlayerOpening),
            NO_ARGS(MediaPlayerBuffering),
            NO_ARGS(MediaPlayerPlaying),
            NO_ARGS(MediaPlayerPaused),
            NO_ARGS(MediaPlayerStopped),
            NO_ARGS(MediaPlayerEndReached),
            NO_ARGS(MediaPlayerEncounteredError),
            INT_ARG(MediaPlayerTimeChanged),
            DOUBLE_ARG(MediaPlayerPositionChanged),
            INT_ARG(MediaPlayerLengthChanged),
            BOOL_ARG(MediaPlayerSeekableChanged),
            BOOL_ARG(MediaPlayerPausableChanged),
            INT_ARG(MediaPlayerVout),
            MEDIA_ARG(MediaPlayerMediaChanged),
            INT_ARG(MediaPlayerScrambledChanged)};
}

}  // namespace

int Play(const std::vector<std::string>& args) {
    PlayOptions o;
    if (!Parse(args, o)) {
        fprintf(
            stderr,
            "usage: qrvhost play [FILE] [--libvlc PATH] [--seconds N] [--png DIR] [--every N] [--trace] [--events]\n");
        return 2;
    }
    Host host;
    if (o.trace) host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    if (!host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(o.libvlc)}).AsBool()) {
        fprintf(stderr, "qrvhost: cannot load %s: %s\n", o.libvlc.c_str(),
                host.Text(host.CallShared("VLCInstanceQRV", "GetLoadError")).c_str());
        return 1;
    }
    Value vlc = host.New(
        "VLCInstanceQRV",
        {host.StringArray({"--intf=dummy", "--vout=dummy", "--aout=dummy", "--no-video-title-show", "--quiet"})});
    if (host.Get(vlc, "Handle").AsInt() == 0) {
        fprintf(stderr, "qrvhost: libvlc_new failed\n");
        return 1;
    }
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(o.file)});
    if (media.IsNil()) {
        fprintf(stderr, "qrvhost: cannot open %s\n", o.file.c_str());
        return 1;
    }
    int64_t width = 0, height = 0;
    bool video = VideoSize(host, media, width, height);
    Value player = host.New("VLCMediaPlayerQRV", {media});
    if (video) host.Call(player, "VideoSetCallback", {Value::Int(width), Value::Int(height)});
    Value events;
    if (o.events) {
        host.DefineSubclass("QrvhostEvents", "VLCEventManagerQRV", EventPrinters());
        events = host.New("QrvhostEvents", {player});
    }
    if (!o.pngDir.empty()) mkdir(o.pngDir.c_str(), 0755);

    printf("playing %s (%s)\n", o.file.c_str(),
           video ? (std::to_string(width) + "x" + std::to_string(height) + " video").c_str() : "no video");
    if (!host.Call(player, "Play").AsBool()) {
        fprintf(stderr, "qrvhost: Play failed\n");
        return 1;
    }
    auto start = Clock::now();
    auto lastProgress = start;
    int seen = 0, captured = 0, saved = 0;
    double captureSeconds = 0;
    for (;;) {
        host.PumpFor(std::chrono::milliseconds(5));
        int64_t state = host.Get(player, "State").AsInt();
        if (state == 6 || state == 7) break;  // ended, error
        double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        if (o.seconds > 0 && elapsed >= o.seconds) break;
        if (elapsed > 600) break;
        if (video && host.Get(player, "HasNewFrame").AsBool()) {
            ++seen;
            auto before = Clock::now();
            Value picture = host.Call(player, "CopyPicture");
            captureSeconds += std::chrono::duration<double>(Clock::now() - before).count();
            if (!picture.IsNil()) {
                ++captured;
                if (!o.pngDir.empty() && (captured - 1) % o.every == 0) {
                    char name[64];
                    snprintf(name, sizeof name, "/frame-%05d.png", captured);
                    if (host.SavePNG(picture, o.pngDir + name)) ++saved;
                }
            }
        }
        if (!o.events && Clock::now() - lastProgress >= std::chrono::milliseconds(250)) {
            lastProgress = Clock::now();
            printf("  %s / %s\n", Timestamp(host.Get(player, "Time").AsInt()).c_str(),
                   Timestamp(host.Get(player, "Length").AsInt()).c_str());
            fflush(stdout);
        }
    }
    int64_t length = host.Get(player, "Length").AsInt();
    int64_t state = host.Get(player, "State").AsInt();
    Value stats = host.Call(media, "Stats");
    // libvlc copies its counters into the statistics about once a second.
    int64_t counted = stats.IsNil() ? -1 : host.Get(stats, "DisplayedPictures").AsInt();
    host.Call(player, "Stop");
    host.PumpFor(std::chrono::milliseconds(20));
    events = Value();
    printf("summary\n");
    printf("  length            %s\n", Timestamp(length).c_str());
    static const char* const kStateNames[] = {"nothing special", "opening", "buffering", "playing",
                                              "paused",          "stopped", "ended",     "error"};
    printf("  end state         %s\n", state >= 0 && state <= 7 ? kStateNames[state] : "unknown");
    printf("  frames displayed  %d seen through HasNewFrame (libvlc statistics, sampled: %lld)\n", seen,
           static_cast<long long>(counted));
    printf("  frames captured   %d\n", captured);
    if (!o.pngDir.empty()) printf("  PNG files         %d in %s\n", saved, o.pngDir.c_str());
    if (captured > 0) printf("  capture cost      %.1f us per CopyPicture\n", captureSeconds / captured * 1e6);
    return state == 7 ? 1 : 0;
}
