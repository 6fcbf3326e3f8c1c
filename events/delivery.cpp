// Moving libvlc's notifications onto the main thread. Every callback copies the
// event (media retained, strings copied) and queues it, also on the main thread:
// libvlc calls back while holding locks its own getters need, so a handler run
// inside the callback could deadlock. The main thread raises the host event and
// gives back what the copy held, handler or not.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "binding/vlc_table.h"
#include "events/delivery_queue.h"
#include "events/event_manager.h"
#include "media/media.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/text.h"
#include "plugin/trace.h"

namespace {

constexpr bool RetainsMedia(int type) {
    return type == libvlc_MediaSubItemAdded || type == libvlc_MediaFreed || type == libvlc_MediaPlayerMediaChanged ||
           (type >= libvlc_MediaListItemAdded && type <= libvlc_MediaListWillDeleteItem) ||
           type == libvlc_MediaListPlayerNextItemSet;
}

constexpr bool IsVlmEvent(int type) {
    return type >= libvlc_VlmMediaAdded && type <= libvlc_VlmMediaInstanceStatusError;
}

// A zero-filled copy of length + 4 bytes; null for null, on overflow or without memory.
char* CopyText(const char* text) {
    if (text == nullptr) return nullptr;
    size_t length = strlen(text);
    if (length > SIZE_MAX - 4) return nullptr;
    char* copy = static_cast<char*>(calloc(length + 4, 1));
    if (copy != nullptr) memcpy(copy, text, length);
    return copy;
}

// The union's first and second machine words.
void* Word(const libvlc_event_t& event, int i) {
    void* word;
    memcpy(&word, reinterpret_cast<const char*>(&event.u) + i * sizeof(void*), sizeof word);
    return word;
}

void SetWord(libvlc_event_t& event, int i, void* word) {
    memcpy(reinterpret_cast<char*>(&event.u) + i * sizeof(void*), &word, sizeof word);
}

void TakeOn(libvlc_event_t& event) {
    if (RetainsMedia(event.type) && Word(event, 0) != nullptr && vlcfn::_libvlc_media_retain != nullptr)
        vlcfn::_libvlc_media_retain(static_cast<libvlc_media_t*>(Word(event, 0)));
    int copies = event.type == libvlc_MediaPlayerSnapshotTaken ? 1 : IsVlmEvent(event.type) ? 2 : 0;
    for (int i = 0; i < copies; ++i) SetWord(event, i, CopyText(static_cast<const char*>(Word(event, i))));
}

// Events with neither media nor strings have nothing to take on or give back.
constexpr bool HoldsSomething(int type) {
    return RetainsMedia(type) || IsVlmEvent(type) || type == libvlc_MediaPlayerSnapshotTaken;
}

void GiveBack(libvlc_event_t& event) {
    if (RetainsMedia(event.type) && Word(event, 0) != nullptr && vlcfn::_libvlc_media_release != nullptr)
        vlcfn::_libvlc_media_release(static_cast<libvlc_media_t*>(Word(event, 0)));
    int copies = event.type == libvlc_MediaPlayerSnapshotTaken ? 1 : IsVlmEvent(event.type) ? 2 : 0;
    for (int i = 0; i < copies; ++i) {
        free(Word(event, i));
        SetWord(event, i, nullptr);
    }
}

using GiveBackFunction = void (*)(libvlc_event_t&);
constexpr GiveBackFunction GiveBackFor(int type) { return HoldsSomething(type) ? GiveBack : nullptr; }

// Copies the event, takes on its media and strings, and queues it for the
// manager whose delivery target libvlc passed.
void CallEvent(const libvlc_event_t* event, void* userData, const DeliveryRoute& route) {
    TRACEF("%p, %p, %s", "CallEvent", static_cast<const void*>(event), userData, route.traceName);
    if (userData == nullptr) return;
    if (route.giveBack == nullptr) return PostDelivery(static_cast<DeliveryTarget*>(userData), route, *event);
    libvlc_event_t copy = *event;
    TakeOn(copy);
    PostDelivery(static_cast<DeliveryTarget*>(userData), route, copy);
}

// ---- raising on the main thread ----------------------------------------------

// The raisers get the manager and its handler, looked up by the queue.
template <typename... Args>
void Call(void* handler, REALobject manager, Args... args) {
    reinterpret_cast<void (*)(REALobject, Args...)>(handler)(manager, args...);
}

void RaiseNone(REALobject manager, void* handler) { Call(handler, manager); }

// Enumerated fields widen without sign, plain ints with sign. The field is
// read as raw bits: libvlc may store a value outside the enumeration.
template <typename Field>
void RaiseUInt(REALobject manager, void* handler, const Field& field) {
    static_assert(sizeof(Field) == sizeof(uint32_t));
    uint32_t value = 0;
    memcpy(&value, &field, sizeof value);
    Call(handler, manager, RBInteger{value});
}

void RaiseInt(REALobject manager, void* handler, int value) { Call(handler, manager, RBInteger{value}); }

void RaiseInt64(REALobject manager, void* handler, int64_t value) { Call(handler, manager, RBInteger{value}); }

void RaiseDouble(REALobject manager, void* handler, float value) { Call(handler, manager, static_cast<double>(value)); }

void RaiseBool(REALobject manager, void* handler, int value) { Call(handler, manager, LowByte(value)); }

// The handler gets a new wrapper; the plug-in drops its own reference afterwards.
template <typename... Args>
void RaiseWrapped(REALobject manager, void* handler, libvlc_media_t* media, Args... args) {
    REALobject object = NewVLCMediaQRV(media, EventManagerOf(manager).vlc, true);
    Call(handler, manager, object, RBInteger{args}...);
    if (object != nullptr) REALUnlockObject(object);
}

void RaiseMedia(REALobject manager, void* handler, libvlc_media_t* media) { RaiseWrapped(manager, handler, media); }

void RaiseMediaIndex(REALobject manager, void* handler, libvlc_media_t* media, int position) {
    RaiseWrapped(manager, handler, media, position);
}

REALstring HostText(const char* text) {
    return text != nullptr ? REALBuildUnicodeString(text, static_cast<int64_t>(strlen(text)), kEncodingUTF8) : nullptr;
}

void RaiseString(REALobject manager, void* handler, const char* text) {
    REALstring string = HostText(text);
    Call(handler, manager, string);
    if (string != nullptr) REALUnlockString(string);
}

void RaiseStrings(REALobject manager, void* handler, const char* mediaName, const char* instanceName) {
    REALstring media = HostText(mediaName);
    REALstring instance = HostText(instanceName);
    Call(handler, manager, media, instance);
    if (instance != nullptr) REALUnlockString(instance);
    if (media != nullptr) REALUnlockString(media);
}

// LaterCallback<name> builds the handler's arguments from the copied event.
#define X(name, type, kind, raiser, ...)                                                       \
    void LaterCallback##name(REALobject manager, void* handler, const libvlc_event_t& event) { \
        [[maybe_unused]] const libvlc_event_t* e = &event;                                     \
        raiser(manager, handler __VA_OPT__(, ) __VA_ARGS__);                                   \
    }
#include "events/events.def"
#undef X

constexpr bool kLatestValueOnly = true, kDiscrete = false;
#define VALUE kLatestValueOnly
#define DISCRETE kDiscrete

const DeliveryRoute kEventRoutes[kLibvlcEventCount] = {
#define X(name, type, kind, ...) \
    {k##name, &VLCEventManagerQRVClass, k##name, "Event " #name, kind, type, LaterCallback##name, GiveBackFor(type)},
#include "events/events.def"
#undef X
};

#undef VALUE
#undef DISCRETE

// Callback<name> is what libvlc calls, on any thread; the user data is the
// manager's delivery target.
#define X(name, type, ...)                                                                       \
    void Callback##name(const libvlc_event_t* e, void* userData) {                               \
        TRACEF("%p, %p", "Call later on main thread...", static_cast<const void*>(e), userData); \
        CallEvent(e, userData, kEventRoutes[k##name]);                                           \
    }
#include "events/events.def"
#undef X

}  // namespace

const libvlc_callback_t kEventCallbacks[kLibvlcEventCount] = {
#define X(name, type, ...) Callback##name,
#include "events/events.def"
#undef X
};

const libvlc_event_type_t kEventTypes[kLibvlcEventCount] = {
#define X(name, type, ...) type,
#include "events/events.def"
#undef X
};

const char* const kEventNames[kLibvlcEventCount] = {
#define X(name, type, ...) #name,
#include "events/events.def"
#undef X
};
