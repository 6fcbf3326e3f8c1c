// A fake libvlc of the 4.0 development branch ("4.0.0-dev"): every call is
// counted; a call of a function whose 4.x contract differs from the one the
// plug-in's list records aborts, naming it. The libvlc objects it hands out are
// reference counted; releasing one it does not hold aborts, as libvlc's
// assertions would.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "tests/fakevlc/fakevlc_state.h"

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace fakevlc {
namespace {

struct Registry {
    std::map<std::string, Answer> answers;
    std::map<std::string, int64_t> calls;
    std::map<void*, int64_t> refs;  // objects handed out, by reference count
};
std::mutex gLock;
Registry& gRegistry = *new Registry;  // never destroyed: destructors may call in at exit

[[noreturn]] void Abort(const std::string& why) {
    fprintf(stderr, "fake libvlc 4.0: %s\n", why.c_str());
    abort();
}

void* NewObject(const char* name) {
    Count(name);
    void* object = malloc(16);
    std::lock_guard<std::mutex> hold(gLock);
    gRegistry.refs[object] = 1;
    return object;
}

void Retain(const char* name, void* object) {
    Count(name);
    std::lock_guard<std::mutex> hold(gLock);
    auto it = gRegistry.refs.find(object);
    if (it == gRegistry.refs.end()) Abort(std::string(name) + " of an object it does not hold");
    ++it->second;
}

void Release(const char* name, void* object) {
    Count(name);
    std::lock_guard<std::mutex> hold(gLock);
    auto it = gRegistry.refs.find(object);
    if (it == gRegistry.refs.end()) Abort(std::string(name) + " of an object it does not hold");
    if (--it->second > 0) return;
    gRegistry.refs.erase(it);
    free(object);
}

}  // namespace

void Count(const char* name) {
    std::lock_guard<std::mutex> hold(gLock);
    ++gRegistry.calls[name];
}

Answer AnswerOf(const char* name) {
    std::lock_guard<std::mutex> hold(gLock);
    auto it = gRegistry.answers.find(name);
    return it == gRegistry.answers.end() ? Answer{} : it->second;
}

void Unexpected(const char* name) {
    Count(name);
    Abort(std::string(name) + " called: its 4.x contract differs from libvlc 3.0's");
}

}  // namespace fakevlc

using fakevlc::Release;
using fakevlc::Retain;

EXPORT void fakevlc_reset(void) {
    std::lock_guard<std::mutex> hold(fakevlc::gLock);
    fakevlc::gRegistry.answers.clear();
    fakevlc::gRegistry.calls.clear();
}
EXPORT void fakevlc_set_int(const char* f, int64_t value) {
    std::lock_guard<std::mutex> hold(fakevlc::gLock);
    fakevlc::gRegistry.answers[f].integer = value;
}
EXPORT void fakevlc_set_ptr(const char* f, void* value) {
    std::lock_guard<std::mutex> hold(fakevlc::gLock);
    fakevlc::gRegistry.answers[f].pointer = value;
}
EXPORT int64_t fakevlc_calls(const char* function) {
    std::lock_guard<std::mutex> hold(fakevlc::gLock);
    auto it = fakevlc::gRegistry.calls.find(function);
    return it == fakevlc::gRegistry.calls.end() ? 0 : it->second;
}
// A libvlc object held once, for a test to put behind a wrapper; how many the fake holds.
EXPORT void* fakevlc_new_object(void) { return fakevlc::NewObject("fakevlc_new_object"); }
EXPORT int64_t fakevlc_live_objects(void) {
    std::lock_guard<std::mutex> hold(fakevlc::gLock);
    return static_cast<int64_t>(fakevlc::gRegistry.refs.size());
}

// What the nightlies report, unless a test sets another text (or null).
EXPORT const char* libvlc_get_version(void) {
    fakevlc::Count("libvlc_get_version");
    fakevlc::Answer set = fakevlc::AnswerOf("libvlc_get_version");
    if (set.integer == -1) return nullptr;
    return set.pointer != nullptr ? static_cast<const char*>(set.pointer) : "4.0.0-dev Otto Chriek";
}

EXPORT libvlc_instance_t* libvlc_new(int, const char* const*) {
    return static_cast<libvlc_instance_t*>(fakevlc::NewObject("libvlc_new"));
}
EXPORT void libvlc_retain(libvlc_instance_t* p) { Retain("libvlc_retain", p); }
EXPORT void libvlc_release(libvlc_instance_t* p) { Release("libvlc_release", p); }
EXPORT libvlc_equalizer_t* libvlc_audio_equalizer_new(void) {
    return static_cast<libvlc_equalizer_t*>(fakevlc::NewObject("libvlc_audio_equalizer_new"));
}
EXPORT libvlc_equalizer_t* libvlc_audio_equalizer_new_from_preset(unsigned) {
    return static_cast<libvlc_equalizer_t*>(fakevlc::NewObject("libvlc_audio_equalizer_new_from_preset"));
}
EXPORT void libvlc_audio_equalizer_release(libvlc_equalizer_t* p) { Release("libvlc_audio_equalizer_release", p); }
EXPORT void libvlc_media_retain(libvlc_media_t* p) { Retain("libvlc_media_retain", p); }
EXPORT void libvlc_media_release(libvlc_media_t* p) { Release("libvlc_media_release", p); }
EXPORT void libvlc_media_player_retain(libvlc_media_player_t* p) { Retain("libvlc_media_player_retain", p); }
EXPORT void libvlc_media_player_release(libvlc_media_player_t* p) { Release("libvlc_media_player_release", p); }
EXPORT void libvlc_media_list_retain(libvlc_media_list_t* p) { Retain("libvlc_media_list_retain", p); }
EXPORT void libvlc_media_list_release(libvlc_media_list_t* p) { Release("libvlc_media_list_release", p); }
EXPORT void libvlc_media_list_player_release(libvlc_media_list_player_t* p) {
    Release("libvlc_media_list_player_release", p);
}
EXPORT void libvlc_renderer_item_release(libvlc_renderer_item_t* p) { Release("libvlc_renderer_item_release", p); }
