// Moving libvlc's notifications onto the main thread. A callback that already
// runs there raises the host event at once; any other copies the event (media
// retained, strings copied) and posts it, and the posted task raises the event
// and gives back what the copy held, handler or not.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "binding/vlc_table.h"
#include "events/event_manager.h"
#include "media/media.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/platform.h"
#include "plugin/text.h"
#include "plugin/trace.h"

namespace {

// One notification in transit.
struct EventData {
    DeferredEventFunction function;
    void* userData;
    libvlc_event_t event;
};

bool RetainsMedia(int type) {
    return type == libvlc_MediaSubItemAdded || type == libvlc_MediaFreed || type == libvlc_MediaPlayerMediaChanged ||
           (type >= libvlc_MediaListItemAdded && type <= libvlc_MediaListWillDeleteItem) ||
           type == libvlc_MediaListPlayerNextItemSet;
}

bool IsVlmEvent(int type) { return type >= libvlc_VlmMediaAdded && type <= libvlc_VlmMediaInstanceStatusError; }

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

void GiveBack(libvlc_event_t& event) {
    if (RetainsMedia(event.type) && Word(event, 0) != nullptr && vlcfn::_libvlc_media_release != nullptr)
        vlcfn::_libvlc_media_release(static_cast<libvlc_media_t*>(Word(event, 0)));
    int copies = event.type == libvlc_MediaPlayerSnapshotTaken ? 1 : IsVlmEvent(event.type) ? 2 : 0;
    for (int i = 0; i < copies; ++i) {
        free(Word(event, i));
        SetWord(event, i, nullptr);
    }
}

void RunPostedEvent(void* data) {
    auto* record = static_cast<EventData*>(data);
    record->function(&record->event, record->userData);
    GiveBack(record->event);
    delete record;
}

// ---- raising on the main thread ----------------------------------------------

REALobject Manager(void* userData) { return static_cast<REALobject>(userData); }

void* Handler(void* userData, size_t index, const char* traceName) {
    if (userData == nullptr) return nullptr;
    void* handler = LookupEventHandler(Manager(userData), VLCEventManagerQRVClass, index);
    TRACEF("%p", traceName, handler);
    return handler;
}

template <typename... Args>
void Call(void* handler, void* userData, Args... args) {
    reinterpret_cast<void (*)(REALobject, Args...)>(handler)(Manager(userData), args...);
}

void RaiseNone(size_t index, const char* name, void* userData) {
    if (void* h = Handler(userData, index, name)) Call(h, userData);
}

// Enumerated fields widen without sign, plain ints with sign. The field is
// read as raw bits: libvlc may store a value outside the enumeration.
template <typename Field>
void RaiseUInt(size_t index, const char* name, void* userData, const Field& field) {
    static_assert(sizeof(Field) == sizeof(uint32_t));
    uint32_t value = 0;
    memcpy(&value, &field, sizeof value);
    if (void* h = Handler(userData, index, name)) Call(h, userData, RBInteger{value});
}

void RaiseInt(size_t index, const char* name, void* userData, int value) {
    if (void* h = Handler(userData, index, name)) Call(h, userData, RBInteger{value});
}

void RaiseInt64(size_t index, const char* name, void* userData, int64_t value) {
    if (void* h = Handler(userData, index, name)) Call(h, userData, RBInteger{value});
}

void RaiseDouble(size_t index, const char* name, void* userData, float value) {
    if (void* h = Handler(userData, index, name)) Call(h, userData, static_cast<double>(value));
}

void RaiseBool(size_t index, const char* name, void* userData, int value) {
    if (void* h = Handler(userData, index, name)) Call(h, userData, LowByte(value));
}

// The handler gets a new wrapper; the plug-in drops its own reference afterwards.
REALobject WrapMedia(void* userData, libvlc_media_t* media) {
    return NewVLCMediaQRV(media, EventManagerOf(Manager(userData)).vlc, true);
}

void RaiseMedia(size_t index, const char* name, void* userData, libvlc_media_t* media) {
    void* h = Handler(userData, index, name);
    if (h == nullptr) return;
    REALobject object = WrapMedia(userData, media);
    Call(h, userData, object);
    if (object != nullptr) REALUnlockObject(object);
}

void RaiseMediaIndex(size_t index, const char* name, void* userData, libvlc_media_t* media, int position) {
    void* h = Handler(userData, index, name);
    if (h == nullptr) return;
    REALobject object = WrapMedia(userData, media);
    Call(h, userData, object, RBInteger{position});
    if (object != nullptr) REALUnlockObject(object);
}

REALstring HostText(const char* text) {
    return text != nullptr ? REALBuildUnicodeString(text, static_cast<int64_t>(strlen(text)), kEncodingUTF8) : nullptr;
}

void RaiseString(size_t index, const char* name, void* userData, const char* text) {
    void* h = Handler(userData, index, name);
    if (h == nullptr) return;
    REALstring string = HostText(text);
    Call(h, userData, string);
    if (string != nullptr) REALUnlockString(string);
}

void RaiseStrings(size_t index, const char* name, void* userData, const char* mediaName, const char* instanceName) {
    void* h = Handler(userData, index, name);
    if (h == nullptr) return;
    REALstring media = HostText(mediaName);
    REALstring instance = HostText(instanceName);
    Call(h, userData, media, instance);
    if (instance != nullptr) REALUnlockString(instance);
    if (media != nullptr) REALUnlockString(media);
}

// On the main thread the event is raised inside the callback; elsewhere it is posted.
void Dispatch(const libvlc_event_t* event, void* userData, DeferredEventFunction later) {
    if (PlatformIsMainThread()) {
        TRACEF("%p, %p", "Call now on main thread...", static_cast<const void*>(event), userData);
        later(event, userData);
    } else {
        TRACEF("%p, %p", "Call later on main thread...", static_cast<const void*>(event), userData);
        CallEvent(event, userData, later);
    }
}

// LaterCallback<name> raises on the main thread; Callback<name> is what libvlc calls.
#define X(name, type, raiser, ...)                                            \
    void LaterCallback##name(const libvlc_event_t* e, void* userData) {       \
        raiser(k##name, "Event " #name, userData __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                         \
    void Callback##name(const libvlc_event_t* e, void* userData) { Dispatch(e, userData, LaterCallback##name); }
#include "events/events.def"
#undef X

}  // namespace

void CallEvent(const libvlc_event_t* event, void* userData, DeferredEventFunction function) {
    TRACEF("%p, %p, %p", "CallEvent", static_cast<const void*>(event), userData, reinterpret_cast<void*>(function));
    if (function == nullptr) return;
    auto* record = new (std::nothrow) EventData{function, userData, *event};
    if (record == nullptr) return;
    TRACEF("%p, %p", "CallEvent", userData, reinterpret_cast<void*>(function));
    TakeOn(record->event);
    PlatformPostToMainThread(RunPostedEvent, record);
}

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
