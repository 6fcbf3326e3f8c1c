// Shared core of the Apple stand-ins: reference-counted objects that abort on
// an over-release, on a use after release and on a pointer that is no object
// of the expected kind, and that are counted at exit (a leak fails the run).
#pragma once

#include <cstddef>

namespace standin {

enum class Kind { String, URL, ColorSpace, DataProvider, Image, Context };

struct Object {
    explicit Object(Kind k) : kind(k) {}
    virtual ~Object() = default;
    // Frees what the object holds; the object itself stays as a tombstone.
    virtual void Dispose() {}
    Kind kind;
    long refs = 1;
    bool immortal = false;  // constant strings
};

// Registers a new object with one reference and gives it back.
template <typename T>
T* Adopt(T* object);
void Register(Object* object);
// The live object of that kind behind `pointer`, else an abort naming `function`.
Object* Checked(const void* pointer, Kind kind, const char* function);
template <typename T>
T* As(const void* pointer, Kind kind, const char* function) {
    return static_cast<T*>(Checked(pointer, kind, function));
}
// The kind of the live object behind `pointer`, else an abort.
Kind KindOf(const void* pointer, const char* function);
void Retain(const void* pointer, Kind kind, const char* function);
void Release(const void* pointer, Kind kind, const char* function);
// A window's drawing context of width x height pixels (0xAARRGGBB words): what
// it shows changes only when CGContextFlush pushes what was drawn.
void* CreateWindowContext(size_t width, size_t height);
const unsigned char* WindowShown(void* context);
// Prints the message and aborts, as the real frameworks crash on such misuse.
[[noreturn]] void Fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

template <typename T>
T* Adopt(T* object) {
    Register(object);
    return object;
}

}  // namespace standin

extern "C" int pthread_main_np(void);
