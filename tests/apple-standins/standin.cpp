// Object registry of the Apple stand-ins, the main-thread test and the exit-time leak count.
#include "tests/apple-standins/standin.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <unordered_map>

namespace standin {

namespace {

const char* const kKindNames[] = {"CFString", "CFURL", "CGColorSpace", "CGDataProvider", "CGImage", "CGContext"};

struct Registry {
    std::mutex lock;
    std::unordered_map<const void*, Object*> live;
    // Released objects are never freed, so their addresses are not reused and a late use is recognised.
    std::unordered_map<const void*, Object*> dead;
};
Registry& TheRegistry() {
    static Registry* registry = new Registry;
    return *registry;
}

Object* Find(Registry& r, const void* pointer, Kind kind, const char* function) {
    auto it = r.live.find(pointer);
    if (it != r.live.end()) {
        if (it->second->kind != kind)
            Fail("%s: %p is a %s, not a %s", function, pointer, kKindNames[int(it->second->kind)],
                 kKindNames[int(kind)]);
        return it->second;
    }
    auto dead = r.dead.find(pointer);
    if (dead != r.dead.end())
        Fail("%s: %p is a %s used after its last release", function, pointer, kKindNames[int(dead->second->kind)]);
    Fail("%s: %p is no %s", function, pointer, kKindNames[int(kind)]);
}

// Live objects at exit are leaks: listed, and the process fails.
__attribute__((destructor)) void CountLeaks() {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> hold(r.lock);
    std::map<int, int> leaked;
    for (auto& [address, object] : r.live)
        if (!object->immortal) ++leaked[int(object->kind)];
    if (leaked.empty()) return;
    for (auto [kind, count] : leaked)
        fprintf(stderr, "apple stand-ins: %d %s object(s) leaked\n", count, kKindNames[kind]);
    fflush(stderr);
    _exit(70);
}

}  // namespace

void Fail(const char* format, ...) {
    va_list args;
    va_start(args, format);
    fputs("apple stand-ins: ", stderr);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
    abort();
}

void Register(Object* object) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> hold(r.lock);
    r.live[object] = object;
}

Object* Checked(const void* pointer, Kind kind, const char* function) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> hold(r.lock);
    return Find(r, pointer, kind, function);
}

Kind KindOf(const void* pointer, const char* function) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> hold(r.lock);
    auto it = r.live.find(pointer);
    if (it != r.live.end()) return it->second->kind;
    return Find(r, pointer, Kind::String, function)->kind;  // aborts: dead or unknown
}

void Retain(const void* pointer, Kind kind, const char* function) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> hold(r.lock);
    ++Find(r, pointer, kind, function)->refs;
}

void Release(const void* pointer, Kind kind, const char* function) {
    Object* object;
    {
        Registry& r = TheRegistry();
        std::lock_guard<std::mutex> hold(r.lock);
        object = Find(r, pointer, kind, function);
        if (object->immortal || --object->refs > 0) return;
        r.live.erase(pointer);
        r.dead[pointer] = object;
    }
    object->Dispose();  // outside the lock: it may release what it holds
}

}  // namespace standin

// The process's first thread is the main thread, as on macOS.
extern "C" int pthread_main_np(void) { return syscall(SYS_gettid) == getpid() ? 1 : 0; }
