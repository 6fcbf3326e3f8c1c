// What the fake libvlc's two source files share: counting a call and the
// answer the test set for it.
#pragma once

#include <type_traits>

#include "tests/fakevlc/fakevlc_control.h"

namespace fakevlc {
struct Answer {
    int64_t integer = 0;
    double real = 0;
    void* pointer = nullptr;
};

// Counts a call by its libvlc name; stops the process for a call from inside
// an event callback that libvlc does not allow there (libvlc would deadlock).
void Count(const char* name);
Answer AnswerOf(const char* name);

template <typename R>
R Respond(const char* name) {
    Count(name);
    if constexpr (!std::is_void_v<R>) {
        Answer a = AnswerOf(name);
        if constexpr (std::is_pointer_v<R>)
            return static_cast<R>(a.pointer);
        else if constexpr (std::is_floating_point_v<R>)
            return static_cast<R>(a.real);
        else
            return static_cast<R>(a.integer);
    }
}
}  // namespace fakevlc
