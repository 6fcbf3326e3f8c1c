// What the fake libvlc's two source files share: counting a call and the answer the test set.
#pragma once

#include <type_traits>

#include "tests/fakevlc/fakevlc_control.h"

namespace fakevlc {
struct Answer {
    int64_t integer = 0;
    void* pointer = nullptr;
};

// Counts a call; stops the process for a call libvlc does not allow inside an event callback.
void Count(const char* name);
Answer AnswerOf(const char* name);
// The 4.0 fake: counts the call, then aborts naming the function.
[[noreturn]] void Unexpected(const char* name);

template <typename R>
R Respond(const char* name) {
    Count(name);
    if constexpr (std::is_pointer_v<R>)
        return static_cast<R>(AnswerOf(name).pointer);
    else if constexpr (!std::is_void_v<R>)
        return static_cast<R>(AnswerOf(name).integer);
}
}  // namespace fakevlc
