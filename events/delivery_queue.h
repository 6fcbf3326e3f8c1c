// The plug-in's one queue of deliveries to the main thread: libvlc events, log
// lines and exit requests, each bound for one host object. Posting never runs
// anything inline; the main thread drains in posting order, drops deliveries
// whose object is gone, and a newer value event replaces a queued older one.
#pragma once

#include <vlc/vlc.h>

#include "events/event_manager.h"

// Route numbers: the 47 libvlc events by record index, then the Log and Exit
// routes, the dialog events (error, login, question, progress, progress
// update, cancel) and the renderer item events (added, deleted).
inline constexpr size_t kLogRoute = kLog;
inline constexpr size_t kExitRoute = kLog + 1;
inline constexpr size_t kDialogRouteFirst = kLog + 2;
inline constexpr size_t kDialogRouteCount = 6;
inline constexpr size_t kRendererRouteFirst = kDialogRouteFirst + kDialogRouteCount;
inline constexpr size_t kRendererRouteCount = 2;
inline constexpr size_t kRouteCount = kRendererRouteFirst + kRendererRouteCount;

// What the main thread does with one delivery of a kind.
struct DeliveryRoute {
    size_t id;                       // route number, unique
    const REALclassDefinition* cls;  // whose event record the handler is looked up by
    size_t eventIndex;               // that record's index
    const char* traceName;           // "Event MediaPlayerTimeChanged"
    bool latestValueOnly;            // carries a current value: a newer one replaces it while queued
    int eventType;                   // the event's type: a queued copy keeps only its union
    void (*raise)(REALobject object, void* handler, const libvlc_event_t& event);
    // Frees what the copy holds, raised or dropped; null when it holds nothing.
    void (*giveBack)(libvlc_event_t& event);
};

// The host object deliveries go to; libvlc holds it as its callback user data,
// so it outlives the object until libvlc stops calling and the queue holds
// nothing for it.
struct DeliveryTarget;

// Main thread: a target for this object, referenced once by its owner.
DeliveryTarget* NewDeliveryTarget(REALobject object);
// Main thread: the object is going away. Queued and later deliveries are
// dropped; the owner's reference is given back unless libvlc may still call
// with this target (then it is kept for the rest of the process).
void RetireDeliveryTarget(DeliveryTarget* target, bool libvlcMayStillCall);

// Any thread: queues a copy of the event for the target. The copy's media and
// strings must already be the delivery's own (route.giveBack frees them).
void PostDelivery(DeliveryTarget* target, const DeliveryRoute& route, const libvlc_event_t& event);
