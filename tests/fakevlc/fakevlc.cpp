// A fake libvlc for the cases a real one cannot produce: missing functions,
// odd answers, events and log lines from worker threads. Every function of the
// plug-in's list exists here as a weak default answering what the test set;
// the behaviour tests need is written out below and overrides those defaults.
#include <malloc.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/fakevlc/fakevlc_state.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

using namespace fakevlc;

// ---- behaviour tests rely on -------------------------------------------------

extern "C" {

libvlc_instance_t* libvlc_new(int argc, const char* const* argv) {
    Count("libvlc_new");
    std::string joined;
    for (int i = 0; i < argc; ++i) joined += std::string(i ? "\n" : "") + (argv[i] ? argv[i] : "(null)");
    Record("libvlc_new.argv", argv == nullptr ? "(null argv)" : joined.c_str());
    RecordInt("libvlc_new.argc", argc);
    Answer a = AnswerOf("libvlc_new");
    return static_cast<libvlc_instance_t*>(a.pointer ? a.pointer : reinterpret_cast<void*>(0x1A57));
}

// Answers a new media, or NULL when the test set the answer -1.
libvlc_media_t* libvlc_media_new_path(libvlc_instance_t*, const char* path) {
    Count("libvlc_media_new_path");
    Record("libvlc_media_new_path.path", path);
    if (AnswerOf("libvlc_media_new_path").integer == -1) return nullptr;
    return fakevlc_new_media();
}

// Out-parameter functions answer the pointer and count the test set.
unsigned libvlc_media_tracks_get(libvlc_media_t*, libvlc_media_track_t*** tracks) {
    Count("libvlc_media_tracks_get");
    Answer a = AnswerOf("libvlc_media_tracks_get");
    *tracks = static_cast<libvlc_media_track_t**>(a.pointer);
    return static_cast<unsigned>(a.integer);
}

int libvlc_media_get_tracks_info(libvlc_media_t*, libvlc_media_track_info_t** info) {
    Count("libvlc_media_get_tracks_info");
    Answer a = AnswerOf("libvlc_media_get_tracks_info");
    *info = static_cast<libvlc_media_track_info_t*>(a.pointer);
    return static_cast<int>(a.integer);
}

int libvlc_media_get_stats(libvlc_media_t*, libvlc_media_stats_t* stats) {
    Count("libvlc_media_get_stats");
    Answer a = AnswerOf("libvlc_media_get_stats");
    if (a.pointer == nullptr) return 0;
    *stats = *static_cast<const libvlc_media_stats_t*>(a.pointer);
    return a.integer != 0 ? static_cast<int>(a.integer) : 1;  // a test may answer any int
}

libvlc_media_t* libvlc_media_new_location(libvlc_instance_t*, const char* url) {
    Count("libvlc_media_new_location");
    Record("libvlc_media_new_location.url", url);
    return fakevlc_new_media();
}

void libvlc_media_retain(libvlc_media_t* media) {
    Count("libvlc_media_retain");
    std::lock_guard<std::mutex> hold(S().lock);
    ++S().mediaRefs[media];
}

void libvlc_media_release(libvlc_media_t* media) {
    Count("libvlc_media_release");
    std::lock_guard<std::mutex> hold(S().lock);
    --S().mediaRefs[media];
}

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

// Every object shares one event manager; the test can make the getters answer
// NULL by setting their answer to -1.
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
    std::lock_guard<std::recursive_mutex> events(S().eventLock);
    std::lock_guard<std::mutex> hold(S().lock);
    S().listeners.push_back({manager, static_cast<int>(type), callback, data});
    return 0;
}

// As libvlc 3.0: detaching a listener that is not attached aborts.
void libvlc_event_detach(libvlc_event_manager_t* manager, libvlc_event_type_t type, libvlc_callback_t callback,
                         void* data) {
    Count("libvlc_event_detach");
    std::lock_guard<std::recursive_mutex> events(S().eventLock);
    std::lock_guard<std::mutex> hold(S().lock);
    auto& l = S().listeners;
    for (auto it = l.begin(); it != l.end(); ++it)
        if (it->manager == manager && it->type == static_cast<int>(type) && it->callback == callback &&
            it->data == data) {
            l.erase(it);
            return;
        }
    fprintf(stderr, "fake libvlc: libvlc_event_detach of a listener that is not attached (type %d)\n",
            static_cast<int>(type));
    abort();
}

// Stopping sends Stopped on the calling thread before it returns, as libvlc does.
void libvlc_media_player_stop(libvlc_media_player_t*) {
    Count("libvlc_media_player_stop");
    libvlc_event_t stopped{};
    stopped.type = libvlc_MediaPlayerStopped;
    fakevlc_fire(kManager, &stopped);
}

void libvlc_log_set(libvlc_instance_t*, libvlc_log_cb cb, void* data) {
    Count("libvlc_log_set");
    std::lock_guard<std::mutex> hold(S().lock);
    S().logCallback = cb;
    S().logData = data;
    S().logStream = nullptr;
}

void libvlc_log_set_file(libvlc_instance_t*, FILE* stream) {
    Count("libvlc_log_set_file");
    std::lock_guard<std::mutex> hold(S().lock);
    S().logCallback = nullptr;
    S().logStream = stream;
}

void libvlc_log_unset(libvlc_instance_t*) {
    Count("libvlc_log_unset");
    std::lock_guard<std::mutex> hold(S().lock);
    S().logCallback = nullptr;
    S().logStream = nullptr;
}

// Log contexts of the fake carry the module, file and line to report.
struct FakeLogContext {
    const char* module;
    const char* file;
    unsigned line;
};

void libvlc_log_get_context(const libvlc_log_t* ctx, const char** module, const char** file, unsigned* line) {
    Count("libvlc_log_get_context");
    auto* c = reinterpret_cast<const FakeLogContext*>(ctx);
    *module = c->module;
    *file = c->file;
    *line = c->line;
}

void libvlc_log_get_object(const libvlc_log_t*, const char** name, const char** header, uintptr_t* id) {
    Count("libvlc_log_get_object");
    *name = "fake object";
    *header = nullptr;
    *id = 42;
}

void libvlc_set_exit_handler(libvlc_instance_t*, void (*cb)(void*), void* opaque) {
    Count("libvlc_set_exit_handler");
    std::lock_guard<std::mutex> hold(S().lock);
    S().exitHandler = cb;
    S().exitData = opaque;
}

void libvlc_video_set_callbacks(libvlc_media_player_t*, libvlc_video_lock_cb lock, libvlc_video_unlock_cb unlock,
                                libvlc_video_display_cb display, void* opaque) {
    Count("libvlc_video_set_callbacks");
    std::lock_guard<std::mutex> hold(S().lock);
    State::Video& v = S().video;
    v.lock = lock;
    v.unlock = unlock;
    v.display = display;
    v.opaque = opaque;
}

void libvlc_video_set_format(libvlc_media_player_t*, const char* chroma, unsigned width, unsigned height,
                             unsigned pitch) {
    Count("libvlc_video_set_format");
    Record("libvlc_video_set_format.chroma", chroma);
    RecordInt("libvlc_video_set_format.width", width);
    RecordInt("libvlc_video_set_format.height", height);
    RecordInt("libvlc_video_set_format.pitch", pitch);
    std::lock_guard<std::mutex> hold(S().lock);
    S().video.width = width;
    S().video.height = height;
    S().video.pitch = pitch;
}

// Volume and mute remember what was set, as a real output would.
int libvlc_audio_set_volume(libvlc_media_player_t*, int volume) {
    Count("libvlc_audio_set_volume");
    RecordInt("libvlc_audio_set_volume.volume", volume);
    return 0;
}
int libvlc_audio_get_volume(libvlc_media_player_t*) {
    Count("libvlc_audio_get_volume");
    return static_cast<int>(fakevlc_int("libvlc_audio_set_volume.volume"));
}
void libvlc_audio_set_mute(libvlc_media_player_t*, int status) {
    Count("libvlc_audio_set_mute");
    RecordInt("libvlc_audio_set_mute.status", status);
}
int libvlc_audio_get_mute(libvlc_media_player_t*) {
    Count("libvlc_audio_get_mute");
    return static_cast<int>(fakevlc_int("libvlc_audio_set_mute.status"));
}

void libvlc_media_list_player_set_playback_mode(libvlc_media_list_player_t*, libvlc_playback_mode_t mode) {
    Count("libvlc_media_list_player_set_playback_mode");
    RecordInt("libvlc_media_list_player_set_playback_mode.mode", mode);
}

// ---- control -----------------------------------------------------------------

__attribute__((visibility("default"))) void fakevlc_reset(void) {
    State& s = S();
    std::lock_guard<std::mutex> hold(s.lock);
    s.answers.clear();
    s.calls.clear();
    s.texts.clear();
    s.ints.clear();
    s.mediaRefs.clear();
    for (libvlc_media_t* media : s.media) delete[] reinterpret_cast<char*>(media);
    s.media.clear();
    s.listeners.clear();
    s.logCallback = nullptr;
    s.logStream = nullptr;
    s.exitHandler = nullptr;
    s.video = {};
    s.output = {};
    s.outputOpen = false;
}

__attribute__((visibility("default"))) void fakevlc_set_int(const char* function, int64_t value) {
    std::lock_guard<std::mutex> hold(S().lock);
    S().answers[function].integer = value;
}

__attribute__((visibility("default"))) void fakevlc_set_double(const char* function, double value) {
    std::lock_guard<std::mutex> hold(S().lock);
    S().answers[function].real = value;
}

__attribute__((visibility("default"))) void fakevlc_set_ptr(const char* function, void* value) {
    std::lock_guard<std::mutex> hold(S().lock);
    S().answers[function].pointer = value;
}

__attribute__((visibility("default"))) int64_t fakevlc_calls(const char* function) {
    std::lock_guard<std::mutex> hold(S().lock);
    auto it = S().calls.find(function);
    return it == S().calls.end() ? 0 : it->second;
}

__attribute__((visibility("default"))) const char* fakevlc_text(const char* key) {
    std::lock_guard<std::mutex> hold(S().lock);
    auto it = S().texts.find(key);
    return it == S().texts.end() ? nullptr : it->second.c_str();
}

__attribute__((visibility("default"))) int64_t fakevlc_int(const char* key) {
    std::lock_guard<std::mutex> hold(S().lock);
    auto it = S().ints.find(key);
    return it == S().ints.end() ? -999 : it->second;
}

__attribute__((visibility("default"))) libvlc_media_t* fakevlc_new_media(void) {
    std::lock_guard<std::mutex> hold(S().lock);
    // Distinct addresses that are never dereferenced by the plug-in.
    auto* media = reinterpret_cast<libvlc_media_t*>(new char[16]);
    S().media.push_back(media);
    S().mediaRefs[media] = 1;
    return media;
}

__attribute__((visibility("default"))) int64_t fakevlc_media_refs(libvlc_media_t* media) {
    std::lock_guard<std::mutex> hold(S().lock);
    return S().mediaRefs[media];
}

__attribute__((visibility("default"))) libvlc_event_manager_t* fakevlc_event_manager(void) { return kManager; }

__attribute__((visibility("default"))) int64_t fakevlc_attached(libvlc_event_manager_t* manager, int type) {
    std::lock_guard<std::mutex> hold(S().lock);
    int64_t n = 0;
    for (const auto& l : S().listeners)
        if (l.manager == manager && l.type == type) ++n;
    return n;
}

__attribute__((visibility("default"))) int fakevlc_listener(libvlc_event_manager_t* manager, int type,
                                                            libvlc_callback_t* callback, void** data) {
    std::lock_guard<std::mutex> hold(S().lock);
    for (const auto& l : S().listeners)
        if (l.manager == manager && l.type == type) {
            *callback = l.callback;
            *data = l.data;
            return 1;
        }
    return 0;
}

// Callbacks run with the event lock held, as libvlc's do: a callback that calls
// back into libvlc (other than what libvlc allows there) would deadlock.
__attribute__((visibility("default"))) void fakevlc_fire(libvlc_event_manager_t* manager, const libvlc_event_t* event) {
    std::lock_guard<std::recursive_mutex> events(S().eventLock);
    std::vector<State::Listener> matching;
    {
        std::lock_guard<std::mutex> hold(S().lock);
        for (const auto& l : S().listeners)
            if (l.manager == manager && l.type == event->type) matching.push_back(l);
    }
    ++gInsideEventCallback;
    for (const auto& l : matching) l.callback(event, l.data);
    --gInsideEventCallback;
}

__attribute__((visibility("default"))) int fakevlc_log_route(void) {
    std::lock_guard<std::mutex> hold(S().lock);
    return S().logCallback != nullptr ? 1 : S().logStream != nullptr ? 2 : 0;
}

__attribute__((visibility("default"))) void fakevlc_fire_from_threads(libvlc_event_manager_t* manager,
                                                                      const libvlc_event_t* event, int threads,
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

namespace {

void CallLog(libvlc_log_cb cb, void* data, int level, const FakeLogContext* context, const char* format, ...) {
    va_list args;
    va_start(args, format);
    cb(data, level, reinterpret_cast<const libvlc_log_t*>(context), format, args);
    va_end(args);
}

}  // namespace

__attribute__((visibility("default"))) void fakevlc_log(int level, const char* module, const char* file, unsigned line,
                                                        const char* text, int onNewThread) {
    libvlc_log_cb cb;
    void* data;
    FILE* stream;
    {
        std::lock_guard<std::mutex> hold(S().lock);
        cb = S().logCallback;
        data = S().logData;
        stream = S().logStream;
    }
    FakeLogContext context{module, file, line};
    auto emit = [&] {
        if (cb != nullptr) CallLog(cb, data, level, &context, "%s", text);
        if (stream != nullptr) fprintf(stream, "%s\n", text);  // libvlc writes its log file itself
    };
    if (onNewThread) {
        std::thread worker(emit);
        worker.join();
    } else {
        emit();
    }
}

__attribute__((visibility("default"))) void fakevlc_request_exit(void) {
    void (*handler)(void*);
    void* data;
    {
        std::lock_guard<std::mutex> hold(S().lock);
        handler = S().exitHandler;
        data = S().exitData;
    }
    if (handler == nullptr) return;
    std::thread worker(handler, data);
    worker.join();
}

__attribute__((visibility("default"))) void fakevlc_vout(int open) {
    std::lock_guard<std::mutex> hold(S().lock);
    S().outputOpen = open != 0;
    S().output = S().video;
}

// Runs the lock callback, holds the frame for `milliseconds`, then unlocks,
// as a slow decoder would.
__attribute__((visibility("default"))) void fakevlc_hold_frame(int64_t milliseconds) {
    State::Video v;
    {
        std::lock_guard<std::mutex> hold(S().lock);
        v = S().outputOpen ? S().output : S().video;
    }
    if (v.lock == nullptr) return;
    void* planes[3] = {nullptr, nullptr, nullptr};
    void* picture = v.lock(v.opaque, planes);
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    if (v.unlock) v.unlock(v.opaque, picture, planes);
}

__attribute__((visibility("default"))) int fakevlc_render_frame(int64_t frame) {
    State::Video v;
    {
        std::lock_guard<std::mutex> hold(S().lock);
        v = S().outputOpen ? S().output : S().video;
    }
    if (v.lock == nullptr) return 0;
    void* planes[3] = {nullptr, nullptr, nullptr};
    void* picture = v.lock(v.opaque, planes);
    size_t needed = size_t{v.pitch} * v.height;
    int result = 1;
    if (planes[0] == nullptr || malloc_usable_size(planes[0]) < needed) {
        result = -1;  // libvlc would write past the plane
    } else {
        auto* bytes = static_cast<uint8_t*>(planes[0]);
        for (unsigned y = 0; y < v.height; ++y) {
            uint8_t* row = bytes + size_t{y} * v.pitch;
            memset(row, 0xEE, v.pitch);
            for (unsigned x = 0; x < v.width && 4 * (x + 1) <= v.pitch; ++x)
                for (int c = 0; c < 4; ++c) row[4 * x + c] = fakevlc_pattern(x, y, frame, c);
        }
    }
    if (v.unlock) v.unlock(v.opaque, picture, planes);
    if (v.display) v.display(v.opaque, picture);
    return result;
}

}  // extern "C"
