// Shared state of the fake libvlc's source files.
#pragma once

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
    libvlc_log_cb logCallback = nullptr;
    void* logData = nullptr;
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

inline void Count(const char* name) {
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
