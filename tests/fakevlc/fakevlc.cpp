// A fake libvlc for what a real one cannot produce: missing functions, odd answers,
// events and log lines from worker threads. Overrides the weak defaults where tests need behaviour.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/fakevlc/fakevlc_state.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#define EXPORT __attribute__((visibility("default")))

namespace fakevlc {
namespace {

struct Listener {
    libvlc_event_manager_t* manager;
    int type;
    libvlc_callback_t callback;
    void* data;
    bool operator==(const Listener&) const = default;
};

// What libvlc_video_set_callbacks and _set_format gave; an opening output copies it, as libvlc's memory output does.
struct Video {
    libvlc_video_lock_cb lock = nullptr;
    libvlc_video_unlock_cb unlock = nullptr;
    libvlc_video_display_cb display = nullptr;
    void* opaque = nullptr;
    unsigned width = 0, height = 0, pitch = 0;
};

// Everything fakevlc_reset sets back.
struct Registry {
    std::map<std::string, Answer> answers;
    std::map<std::string, int64_t> calls, ints;
    std::map<std::string, std::string> texts;
    std::map<libvlc_media_t*, int64_t> mediaRefs;  // keys allocated by fakevlc_new_media, freed by fakevlc_reset
    std::vector<Listener> listeners;
    libvlc_log_cb logCallback = nullptr;
    void* logData = nullptr;
    FILE* logStream = nullptr;
    void (*exitHandler)(void*) = nullptr;
    void* exitData = nullptr;
    Video video, output;
    bool outputOpen = false;
};

struct State : Registry {
    std::mutex lock;
    std::recursive_mutex eventLock;  // held while callbacks run; recursive like libvlc's
};
State& gState = *new State;  // never destroyed: callbacks may still run at exit

// Runs `f` on the registry under the fake's lock.
template <typename F>
auto Locked(F f) {
    std::lock_guard<std::mutex> hold(gState.lock);
    return f(static_cast<Registry&>(gState));
}

using HoldEvents = std::lock_guard<std::recursive_mutex>;

thread_local int gInsideEventCallback = 0;  // depth of fakevlc_fire on this thread

libvlc_event_manager_t* const kManager = reinterpret_cast<libvlc_event_manager_t*>(0xE7E47);

[[noreturn]] void Abort(const std::string& why) {
    fprintf(stderr, "fake libvlc: %s\n", why.c_str());
    abort();
}

void Record(const std::string& key, const char* text) {
    Locked([&](Registry& r) { r.texts[key] = text ? text : "(null)"; });
}
void Record(const std::string& key, int64_t value) {
    Locked([&](Registry& r) { r.ints[key] = value; });
}

// Setters record their argument; getters answer it back, as a real output would.
template <typename Value>
void CountAndRecord(const char* name, const char* argument, Value value) {
    Count(name);
    Record(std::string(name) + "." + argument, value);
}
int Recall(const char* name, const char* key) {
    Count(name);
    return static_cast<int>(fakevlc_int(key));
}

template <typename Value>
Value Find(const std::map<std::string, Value>& map, const std::string& key, Value missing) {
    return Locked([&](Registry&) {
        auto it = map.find(key);
        return it == map.end() ? missing : it->second;
    });
}

void SetLogRoute(const char* name, libvlc_log_cb callback, void* data, FILE* stream) {
    Count(name);
    Locked([&](Registry& r) { std::tie(r.logCallback, r.logData, r.logStream) = std::tie(callback, data, stream); });
}

// Log contexts of the fake carry the module, file and line to report.
struct LogContext {
    const char* module;
    const char* file;
    unsigned line;
};

void CallLog(libvlc_log_cb cb, void* data, int level, const LogContext* context, const char* format, ...) {
    va_list args;
    va_start(args, format);
    cb(data, level, reinterpret_cast<const libvlc_log_t*>(context), format, args);
    va_end(args);
}

// The callbacks of the open video output, else the last set.
Video CurrentVideo() {
    return Locked([](Registry& r) { return r.outputOpen ? r.output : r.video; });
}

std::vector<Listener> ListenersOf(libvlc_event_manager_t* manager, int type) {
    return Locked([&](Registry& r) {
        std::vector<Listener> found;
        for (const Listener& l : r.listeners)
            if (l.manager == manager && l.type == type) found.push_back(l);
        return found;
    });
}

// libvlc would crash on an object that is not one of its media.
void ChangeMediaRefs(const char* name, libvlc_media_t* media, int by) {
    Count(name);
    bool known = Locked([&](Registry& r) {
        auto it = r.mediaRefs.find(media);
        if (it != r.mediaRefs.end()) it->second += by;
        return it != r.mediaRefs.end();
    });
    if (!known) Abort(std::string(name) + " of an object that is no media of the fake");
}

}  // namespace

// libvlc calls back holding locks its own functions take: inside a callback only
// these may be called; any other would deadlock libvlc, so the fake stops instead.
void Count(const char* name) {
    constexpr std::string_view allowed[] = {"libvlc_media_retain", "libvlc_media_release", "libvlc_event_attach",
                                            "libvlc_event_detach"};
    if (gInsideEventCallback > 0 && std::find(std::begin(allowed), std::end(allowed), name) == std::end(allowed))
        Abort(std::string(name) + " called from inside an event callback: libvlc would deadlock");
    Locked([&](Registry& r) { ++r.calls[name]; });
}

Answer AnswerOf(const char* name) { return Find(gState.answers, name, Answer{}); }

}  // namespace fakevlc

using namespace fakevlc;

extern "C" {

libvlc_instance_t* libvlc_new(int argc, const char* const* argv) {
    Count("libvlc_new");
    std::string joined;
    for (int i = 0; i < argc; ++i) joined += std::string(i ? "\n" : "") + (argv[i] ? argv[i] : "(null)");
    Record("libvlc_new.argv", argv == nullptr ? "(null argv)" : joined.c_str());
    Record("libvlc_new.argc", argc);
    void* answer = AnswerOf("libvlc_new").pointer;
    return static_cast<libvlc_instance_t*>(answer ? answer : reinterpret_cast<void*>(0x1A57));
}

// Answers a new media, or NULL when the test set the answer -1.
libvlc_media_t* libvlc_media_new_path(libvlc_instance_t*, const char* path) {
    CountAndRecord("libvlc_media_new_path", "path", path);
    return AnswerOf("libvlc_media_new_path").integer == -1 ? nullptr : fakevlc_new_media();
}

libvlc_media_t* libvlc_media_new_location(libvlc_instance_t*, const char*) {
    Count("libvlc_media_new_location");
    return fakevlc_new_media();
}

// Out-parameter functions answer the pointer and count the test set.
unsigned libvlc_media_tracks_get(libvlc_media_t*, libvlc_media_track_t*** tracks) {
    *tracks = Respond<libvlc_media_track_t**>("libvlc_media_tracks_get");
    return static_cast<unsigned>(AnswerOf("libvlc_media_tracks_get").integer);
}

int libvlc_media_get_tracks_info(libvlc_media_t*, libvlc_media_track_info_t** info) {
    *info = Respond<libvlc_media_track_info_t*>("libvlc_media_get_tracks_info");
    return static_cast<int>(AnswerOf("libvlc_media_get_tracks_info").integer);
}

int libvlc_media_get_stats(libvlc_media_t*, libvlc_media_stats_t* stats) {
    Count("libvlc_media_get_stats");
    Answer a = AnswerOf("libvlc_media_get_stats");
    if (a.pointer == nullptr) return 0;
    *stats = *static_cast<const libvlc_media_stats_t*>(a.pointer);
    return a.integer != 0 ? static_cast<int>(a.integer) : 1;  // a test may answer any int
}

void libvlc_media_retain(libvlc_media_t* media) { ChangeMediaRefs("libvlc_media_retain", media, 1); }

void libvlc_media_release(libvlc_media_t* media) { ChangeMediaRefs("libvlc_media_release", media, -1); }

// Objects the plug-in only passes back to the fake: distinct, never dereferenced.
#define FAKE_OBJECT(Type, name, params)          \
    Type* name params {                          \
        Count(#name);                            \
        static char storage[16];                 \
        return reinterpret_cast<Type*>(storage); \
    }
FAKE_OBJECT(libvlc_media_player_t, libvlc_media_player_new, (libvlc_instance_t*))
FAKE_OBJECT(libvlc_media_player_t, libvlc_media_player_new_from_media, (libvlc_media_t*))
FAKE_OBJECT(libvlc_media_list_t, libvlc_media_list_new, (libvlc_instance_t*))
FAKE_OBJECT(libvlc_media_list_player_t, libvlc_media_list_player_new, (libvlc_instance_t*))
FAKE_OBJECT(libvlc_equalizer_t, libvlc_audio_equalizer_new, (void))
#undef FAKE_OBJECT

// Every object shares one event manager; a getter answers NULL when its answer is set to -1.
#define FAKE_EVENT_MANAGER(name, Source)                           \
    libvlc_event_manager_t* name(Source*) {                        \
        Count(#name);                                              \
        return AnswerOf(#name).integer == -1 ? nullptr : kManager; \
    }
FAKE_EVENT_MANAGER(libvlc_media_player_event_manager, libvlc_media_player_t)
FAKE_EVENT_MANAGER(libvlc_media_event_manager, libvlc_media_t)
FAKE_EVENT_MANAGER(libvlc_media_list_event_manager, libvlc_media_list_t)
FAKE_EVENT_MANAGER(libvlc_media_list_player_event_manager, libvlc_media_list_player_t)
FAKE_EVENT_MANAGER(libvlc_media_discoverer_event_manager, libvlc_media_discoverer_t)
#undef FAKE_EVENT_MANAGER

int libvlc_event_attach(libvlc_event_manager_t* manager, libvlc_event_type_t type, libvlc_callback_t callback,
                        void* data) {
    Count("libvlc_event_attach");
    HoldEvents events(gState.eventLock);
    Locked([&](Registry& r) { r.listeners.push_back({manager, static_cast<int>(type), callback, data}); });
    return 0;
}

// As libvlc 3.0: detaching a listener that is not attached aborts.
void libvlc_event_detach(libvlc_event_manager_t* manager, libvlc_event_type_t type, libvlc_callback_t callback,
                         void* data) {
    Count("libvlc_event_detach");
    HoldEvents events(gState.eventLock);
    bool attached = Locked([&](Registry& r) {
        auto it = std::find(r.listeners.begin(), r.listeners.end(),
                            Listener{manager, static_cast<int>(type), callback, data});
        if (it == r.listeners.end()) return false;
        r.listeners.erase(it);
        return true;
    });
    if (!attached) Abort("libvlc_event_detach of a listener that is not attached, type " + std::to_string(type));
}

// Stopping sends Stopped on the calling thread before it returns, as libvlc does.
void libvlc_media_player_stop(libvlc_media_player_t*) {
    Count("libvlc_media_player_stop");
    libvlc_event_t stopped{};
    stopped.type = libvlc_MediaPlayerStopped;
    fakevlc_fire(kManager, &stopped);
}

void libvlc_log_set(libvlc_instance_t*, libvlc_log_cb cb, void* data) {
    SetLogRoute("libvlc_log_set", cb, data, nullptr);
}
void libvlc_log_set_file(libvlc_instance_t*, FILE* stream) {
    SetLogRoute("libvlc_log_set_file", nullptr, nullptr, stream);
}
void libvlc_log_unset(libvlc_instance_t*) { SetLogRoute("libvlc_log_unset", nullptr, nullptr, nullptr); }

void libvlc_log_get_context(const libvlc_log_t* ctx, const char** module, const char** file, unsigned* line) {
    Count("libvlc_log_get_context");
    auto* c = reinterpret_cast<const LogContext*>(ctx);
    std::tie(*module, *file, *line) = std::tie(c->module, c->file, c->line);
}

void libvlc_log_get_object(const libvlc_log_t*, const char** name, const char** header, uintptr_t* id) {
    Count("libvlc_log_get_object");
    std::tie(*name, *header, *id) = std::make_tuple("fake object", nullptr, 42);
}

void libvlc_set_exit_handler(libvlc_instance_t*, void (*cb)(void*), void* opaque) {
    Count("libvlc_set_exit_handler");
    Locked([&](Registry& r) { std::tie(r.exitHandler, r.exitData) = std::tie(cb, opaque); });
}

void libvlc_video_set_callbacks(libvlc_media_player_t*, libvlc_video_lock_cb lock, libvlc_video_unlock_cb unlock,
                                libvlc_video_display_cb display, void* opaque) {
    Count("libvlc_video_set_callbacks");
    Locked([&](Registry& r) {
        std::tie(r.video.lock, r.video.unlock, r.video.display, r.video.opaque) =
            std::tie(lock, unlock, display, opaque);
    });
}

void libvlc_video_set_format(libvlc_media_player_t*, const char* chroma, unsigned width, unsigned height,
                             unsigned pitch) {
    CountAndRecord("libvlc_video_set_format", "chroma", chroma);
    Locked(
        [&](Registry& r) { std::tie(r.video.width, r.video.height, r.video.pitch) = std::tie(width, height, pitch); });
}

void libvlc_video_set_deinterlace(libvlc_media_player_t*, const char* mode) {
    CountAndRecord("libvlc_video_set_deinterlace", "mode", mode);
}

int libvlc_audio_set_volume(libvlc_media_player_t*, int volume) {
    CountAndRecord("libvlc_audio_set_volume", "volume", volume);
    return 0;
}
int libvlc_audio_get_volume(libvlc_media_player_t*) {
    return Recall("libvlc_audio_get_volume", "libvlc_audio_set_volume.volume");
}
void libvlc_audio_set_mute(libvlc_media_player_t*, int status) {
    CountAndRecord("libvlc_audio_set_mute", "status", status);
}
int libvlc_audio_get_mute(libvlc_media_player_t*) {
    return Recall("libvlc_audio_get_mute", "libvlc_audio_set_mute.status");
}
void libvlc_video_set_mouse_input(libvlc_media_player_t*, unsigned on) {
    CountAndRecord("libvlc_video_set_mouse_input", "on", on);
}
void libvlc_video_set_key_input(libvlc_media_player_t*, unsigned on) {
    CountAndRecord("libvlc_video_set_key_input", "on", on);
}
void libvlc_media_list_player_set_playback_mode(libvlc_media_list_player_t*, libvlc_playback_mode_t mode) {
    CountAndRecord("libvlc_media_list_player_set_playback_mode", "mode", mode);
}

// libvlc 3.0, unless a test sets another version text.
const char* libvlc_get_version(void) {
    Count("libvlc_get_version");
    void* set = AnswerOf("libvlc_get_version").pointer;
    return set != nullptr ? static_cast<const char*>(set) : "3.0.24 Vetinari";
}

// Control functions (fakevlc_control.h).
EXPORT void fakevlc_reset(void) {
    Locked([](Registry& r) {
        for (auto& [media, refs] : r.mediaRefs) delete[] reinterpret_cast<char*>(media);
        r = Registry{};
    });
}

EXPORT void fakevlc_set_int(const char* f, int64_t value) {
    Locked([&](Registry& r) { r.answers[f].integer = value; });
}
EXPORT void fakevlc_set_ptr(const char* f, void* value) {
    Locked([&](Registry& r) { r.answers[f].pointer = value; });
}
EXPORT int64_t fakevlc_calls(const char* function) { return Find(gState.calls, function, int64_t{0}); }
EXPORT int64_t fakevlc_int(const char* key) { return Find(gState.ints, key, int64_t{-999}); }
EXPORT int64_t fakevlc_media_refs(libvlc_media_t* media) {
    return Locked([&](Registry& r) { return r.mediaRefs.contains(media) ? r.mediaRefs[media] : 0; });
}

EXPORT const char* fakevlc_text(const char* key) {
    return Locked([&](Registry& r) { return r.texts.contains(key) ? r.texts[key].c_str() : nullptr; });
}

// Distinct addresses that the plug-in never dereferences.
EXPORT libvlc_media_t* fakevlc_new_media(void) {
    auto* media = reinterpret_cast<libvlc_media_t*>(new char[16]);
    Locked([&](Registry& r) { r.mediaRefs[media] = 1; });
    return media;
}

EXPORT libvlc_event_manager_t* fakevlc_event_manager(void) { return kManager; }

EXPORT int64_t fakevlc_attached(libvlc_event_manager_t* manager, int type) {
    return static_cast<int64_t>(ListenersOf(manager, type).size());
}

EXPORT int fakevlc_listener(libvlc_event_manager_t* manager, int type, libvlc_callback_t* callback, void** data) {
    std::vector<Listener> found = ListenersOf(manager, type);
    if (found.empty()) return 0;
    std::tie(*callback, *data) = std::tie(found[0].callback, found[0].data);
    return 1;
}

// Callbacks run with the event lock held, as libvlc's do: a callback that calls
// back into libvlc (other than what libvlc allows there) would deadlock.
EXPORT void fakevlc_fire(libvlc_event_manager_t* manager, const libvlc_event_t* event) {
    HoldEvents events(gState.eventLock);
    ++gInsideEventCallback;
    for (const Listener& l : ListenersOf(manager, event->type)) l.callback(event, l.data);
    --gInsideEventCallback;
}

EXPORT void fakevlc_fire_from_threads(libvlc_event_manager_t* manager, const libvlc_event_t* event, int threads,
                                      int64_t count) {
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([=] {
            libvlc_event_t copy = *event;
            for (int64_t i = 0; i < count; ++i) {
                copy.u.media_player_time_changed.new_time = t * int64_t{1000000000} + i;
                fakevlc_fire(manager, &copy);
            }
        });
    for (auto& w : workers) w.join();
}

EXPORT int fakevlc_log_route(void) {
    return Locked([](Registry& r) { return r.logCallback != nullptr ? 1 : r.logStream != nullptr ? 2 : 0; });
}

EXPORT void fakevlc_log(int level, const char* module, const char* file, unsigned line, const char* text,
                        int onNewThread) {
    auto [cb, data, stream] = Locked([](Registry& r) { return std::tuple(r.logCallback, r.logData, r.logStream); });
    LogContext context{module, file, line};
    auto emit = [&] {
        if (cb != nullptr) CallLog(cb, data, level, &context, "%s", text);
        if (stream != nullptr) fprintf(stream, "%s\n", text);  // libvlc writes its log file itself
    };
    if (onNewThread)
        std::thread(emit).join();
    else
        emit();
}

EXPORT void fakevlc_request_exit(void) {
    auto [handler, data] = Locked([](Registry& r) { return std::pair(r.exitHandler, r.exitData); });
    if (handler != nullptr) std::thread(handler, data).join();
}

EXPORT void fakevlc_vout(int open) {
    Locked([&](Registry& r) {
        r.outputOpen = open != 0;
        r.output = r.video;
    });
}

// Holds the frame between lock and unlock, as a slow decoder would.
EXPORT void fakevlc_hold_frame(int64_t milliseconds) {
    Video v = CurrentVideo();
    if (v.lock == nullptr) return;
    void* planes[3] = {nullptr, nullptr, nullptr};
    void* picture = v.lock(v.opaque, planes);
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    if (v.unlock) v.unlock(v.opaque, picture, planes);
}

EXPORT int fakevlc_render_frame(int64_t frame) {
    Video v = CurrentVideo();
    if (v.lock == nullptr) return 0;
    void* planes[3] = {nullptr, nullptr, nullptr};
    void* picture = v.lock(v.opaque, planes);
    // libvlc would write past a plane smaller than pitch x height.
    bool fits = planes[0] != nullptr && malloc_usable_size(planes[0]) >= size_t{v.pitch} * v.height;
    for (unsigned y = 0; fits && y < v.height; ++y) {
        uint8_t* row = static_cast<uint8_t*>(planes[0]) + size_t{y} * v.pitch;
        memset(row, 0xEE, v.pitch);
        for (unsigned x = 0; x < v.width && 4 * (x + 1) <= v.pitch; ++x)
            for (int c = 0; c < 4; ++c) row[4 * x + c] = fakevlc_pattern(x, y, frame, c);
    }
    if (v.unlock) v.unlock(v.opaque, picture, planes);
    if (v.display) v.display(v.opaque, picture);
    return fits ? 1 : -1;
}

}  // extern "C"
