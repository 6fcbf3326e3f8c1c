// Events and the main loop: event tokens written into the class records,
// handler lookup for test subclasses, and GLib's default context pumped on
// the calling thread.
#include <glib.h>

#include <thread>

#include "host/emulator_internal.h"

namespace emu {

void AssignEventTokens(Host::Impl& state, REALclassDefinition* record) {
    for (size_t i = 0; i < record->eventCount; ++i) {
        int64_t token = state.nextToken++;
        EventToken entry{ParseDeclaration(record->events[i].declaration).name, nullptr};
        if (record->version == 9) {
            // Old hosts: the event word is the address of a record whose second word is the token.
            entry.indirection = new int64_t[2]{0, token};
            record->events[i].forSystemUse = reinterpret_cast<RBInteger>(entry.indirection);
        } else {
            record->events[i].forSystemUse = token;
        }
        state.tokens[token] = entry;
    }
}

void* GetEventInstance(REALobject object, RBInteger token) {
    Host::Impl& state = State();
    ObjectInfo* info = CheckedObject(object, "GetEventInstance");
    if (info == nullptr) return nullptr;
    auto event = state.tokens.find(token);
    if (event == state.tokens.end()) {
        Fault("GetEventInstance was handed " + std::to_string(token) + ", which is no event token of this host");
        return nullptr;
    }
    for (ClassInfo* c = info->cls; c != nullptr; c = c->super) {
        auto handler = c->handlers.find(event->second.name);
        if (handler != c->handlers.end()) return handler->second;
    }
    return nullptr;
}

bool Host::PumpUntil(const std::function<bool()>& done, std::chrono::milliseconds deadline) {
    auto end = std::chrono::steady_clock::now() + deadline;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        if (!g_main_context_iteration(nullptr, FALSE)) std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

void Host::PumpFor(std::chrono::milliseconds duration) {
    PumpUntil([] { return false; }, duration);
}

}  // namespace emu
