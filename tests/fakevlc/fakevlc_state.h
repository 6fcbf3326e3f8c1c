// Shared state of the fake libvlc's source files.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/fakevlc/fakevlc_control.h"

namespace fakevlc {
struct Answer {
    int64_t integer = 0;
    double real = 0;
    void* pointer = nullptr;
};

struct State {
    std::mutex lock;
    std::map<std::string, Answer> answers;
    std::map<std::string, int64_t> calls;
    std::map<std::string, std::string> texts;
    std::map<std::string, int64_t> ints;
    std::map<libvlc_media_t*, int64_t> mediaRefs;
    struct Listener {
        libvlc_event_manager_t* manager;
        int type;
        libvlc_callback_t callback;
        void* data;
    };
    std::vector<Listener> listeners;
    std::recursive_mutex eventLock;  // held while callbacks run; recursive like libvlc's
    libvlc_log_cb logCallback = nullptr;
    void* logData = nullptr;
    FILE* logStream = nullptr;
    void (*exitHandler)(void*) = nullptr;
    void* exitData = nullptr;
    // What libvlc_video_set_callbacks and _set_format gave, and the copy a
    // video output takes when it opens: libvlc's memory output keeps both.
    struct Video {
        libvlc_video_lock_cb lock = nullptr;
        libvlc_video_unlock_cb unlock = nullptr;
        libvlc_video_display_cb display = nullptr;
        void* opaque = nullptr;
        unsigned width = 0, height = 0, pitch = 0;
    };
    Video video;
    Video output;
    bool outputOpen = false;
    std::vector<libvlc_media_t*> media;
};

inline State& S() {
    static State* state = new State;  // lives as long as the process: callbacks may still run at exit
    return *state;
}

// Depth of event callbacks running on this thread (fakevlc_fire).
inline thread_local int gInsideEventCallback = 0;

// libvlc calls back holding locks its own functions take: from inside a
// callback only these may be called; any other would deadlock in libvlc, and
// the fake stops the process instead of hanging.
inline bool AllowedInsideEventCallback(const char* name) {
    for (const char* allowed :
         {"libvlc_media_retain", "libvlc_media_release", "libvlc_event_attach", "libvlc_event_detach"})
        if (strcmp(name, allowed) == 0) return true;
    return false;
}

inline void Count(const char* name) {
    if (gInsideEventCallback > 0 && !AllowedInsideEventCallback(name)) {
        fprintf(stderr, "fake libvlc: %s called from inside an event callback: libvlc would deadlock\n", name);
        abort();
    }
    std::lock_guard<std::mutex> hold(S().lock);
    ++S().calls[name];
}

inline Answer AnswerOf(const char* name) {
    std::lock_guard<std::mutex> hold(S().lock);
    auto it = S().answers.find(name);
    return it == S().answers.end() ? Answer{} : it->second;
}

template <typename R>
inline R Respond(const char* name) {
    Count(name);
    if constexpr (std::is_void_v<R>) {
        return;
    } else {
        Answer a = AnswerOf(name);
        if constexpr (std::is_pointer_v<R>)
            return static_cast<R>(a.pointer);
        else if constexpr (std::is_floating_point_v<R>)
            return static_cast<R>(a.real);
        else
            return static_cast<R>(a.integer);
    }
}

inline void Record(const std::string& key, const char* text) {
    std::lock_guard<std::mutex> hold(S().lock);
    S().texts[key] = text ? text : "(null)";
}

inline void RecordInt(const std::string& key, int64_t value) {
    std::lock_guard<std::mutex> hold(S().lock);
    S().ints[key] = value;
}

inline libvlc_event_manager_t* const kManager = reinterpret_cast<libvlc_event_manager_t*>(0xE7E47);

}  // namespace fakevlc
