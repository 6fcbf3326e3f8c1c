// VLCEventManagerQRV and the event delivery it relies on.
#pragma once

#include <vlc/vlc.h>

#include <cstdint>

#include "plugin/registration.h"

struct EventManagerData {
    int64_t handle;  // libvlc_event_manager_t* of the source
    REALobject parent;
    REALobject vlc;
};

inline EventManagerData& EventManagerOf(REALobject object) {
    return DataOf<EventManagerData>(object, VLCEventManagerQRVClass);
}

// The events by their record index; kLog is the 48th record, raised by log forwarding.
enum EventIndex : size_t {
#define X(name, type, ...) k##name,
#include "events/events.def"
#undef X
    kLog,
    kLibvlcEventCount = kLog,
};

// The handler the host object implements for event `index` of `cls`, or null.
// On record-version-9 hosts the event word points at a record holding the token.
void* LookupEventHandler(REALobject object, const REALclassDefinition& cls, size_t index);

// Called by each event source's destructor before it releases its libvlc
// object: detaches every manager listening to `source`.
void EndEventsFrom(REALobject source);

// libvlc's callbacks, one per event, in record order.
extern const libvlc_callback_t kEventCallbacks[kLibvlcEventCount];
extern const libvlc_event_type_t kEventTypes[kLibvlcEventCount];
extern const char* const kEventNames[kLibvlcEventCount];
