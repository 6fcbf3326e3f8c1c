// Handlers of the events suites record each raise as one line ("MediaPlayerTimeChanged 500")
// and whether it ran off the main thread.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace eventstest {

using Lines = std::vector<std::string>;

struct Seen {
    emu::Host* host = nullptr;
    emu::Value player;  // read by the handlers that call back into the player
    emu::Value kept;    // an object a handler keeps
    Lines raised;
    bool offMainThread = false;
};
inline Seen* seen = nullptr;

template <typename Number>
std::string Show(Number n) {
    return (std::ostringstream() << +n).str();  // + shows a boolean byte as a number
}
inline std::string Show(REALstring s) { return s ? seen->host->Text(emu::Value::BorrowString(s)) : "<nil>"; }
inline std::string Show(REALobject o) {
    return o ? Show(seen->host->Get(emu::Value::BorrowObject(o), "Handle").AsInt()) : "<nil>";
}

// An event name as a template argument.
template <size_t N>
struct Name {
    char text[N];
    constexpr Name(const char (&name)[N]) { std::copy_n(name, N, text); }
};

template <Name event, typename... Args>
void Record(REALobject, Args... args) {
    std::string line = event.text;
    ((line.append(" ").append(Show(args))), ...);
    seen->raised.push_back(line);
    if (syscall(SYS_gettid) != getpid()) seen->offMainThread = true;
}

// A handler-table entry: the event recorded under its own name.
template <Name event, typename... Args>
std::pair<const std::string, void*> On() {
    return {event.text, reinterpret_cast<void*>(&Record<event, Args...>)};
}

// Reads the player's time when Stopped arrives: libvlc sends Stopped inside
// its stop call, holding the lock its getters take.
inline void OnStoppedReadingTime(REALobject o) {
    Record<"MediaPlayerStopped", RBInteger>(o, seen->host->Get(seen->player, "Time").AsInt());
}

// The arguments of each raise of `event`, in order.
inline Lines ArgumentsOf(const std::string& event) {
    Lines found;
    for (const std::string& line : seen->raised)
        if (line.rfind(event + " ", 0) == 0) found.push_back(line.substr(event.size() + 1));
    return found;
}

inline std::vector<double> NumbersOf(const std::string& event) {
    std::vector<double> numbers;
    for (const std::string& arguments : ArgumentsOf(event)) numbers.push_back(std::stod(arguments));
    return numbers;
}

}  // namespace eventstest
