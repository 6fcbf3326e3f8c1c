// VLCExitHandlerQRV and VLCInstanceQRV's ExitHandler: libvlc's exit request is
// raised as ExitEvent, looked up on the instance that registered it. It is
// queued for the main thread like every event (host code runs nowhere else),
// and dropped if the instance is gone by then.
#include "binding/vlc_table.h"
#include "events/delivery_queue.h"
#include "events/event_manager.h"
#include "events/log_forwarding.h"
#include "media/instance.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"

namespace {

// One handler for the whole process, held locked while set.
REALobject gExitHandler = nullptr;

void RaiseExitEvent(REALobject instance, void* handler, const libvlc_event_t&) {
    reinterpret_cast<void (*)(REALobject)>(handler)(instance);
}

const DeliveryRoute kExitDelivery = {kExitRoute, &VLCExitHandlerQRVClass, 0,      "Event ExitEvent", false,
                                     0,          RaiseExitEvent,          nullptr};

// On whichever libvlc thread asks to exit; the opaque is the instance's delivery target.
void CallExitEvent(void* opaque) {
    if (opaque == nullptr) return;
    libvlc_event_t request{};
    PostDelivery(static_cast<DeliveryTarget*>(opaque), kExitDelivery, request);
}

}  // namespace

REALobject GetExitHandler(REALobject) {
    if (gExitHandler == nullptr) return nullptr;
    REALLockObject(gExitHandler);
    return gExitHandler;
}

// Assigning nil drops the handler but leaves libvlc's registration in force.
void SetExitHandler(REALobject self, REALobject handler) {
    GUARD_TFH(InstanceOf(self).handle, "SetExitHandler", libvlc_set_exit_handler, );
    ReleaseField(gExitHandler);
    if (handler == nullptr) return;
    REALLockObject(handler);
    gExitHandler = handler;
    vlcfn::_libvlc_set_exit_handler(reinterpret_cast<libvlc_instance_t*>(InstanceOf(self).handle), CallExitEvent,
                                    ExitDeliveryTarget(self));
}

namespace {

REALevent kEvents[] = {
    QRV_EVENT("ExitEvent"),
};

}  // namespace

REALclassDefinition VLCExitHandlerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCExitHandlerQRV",
    .events = kEvents,
    .eventCount = std::size(kEvents),
    .mFlags = kFlagConsoleSafe,
};
