// VLCExitHandlerQRV and VLCInstanceQRV's ExitHandler: libvlc's exit request is
// raised as ExitEvent on the thread libvlc calls from, looked up on the
// instance that registered it.
#include "binding/vlc_table.h"
#include "events/event_manager.h"
#include "events/log_forwarding.h"
#include "media/instance.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"

namespace {

// One handler for the whole process, held locked while set.
REALobject gExitHandler = nullptr;

void CallExitEvent(void* opaque) {
    if (opaque == nullptr) return;
    auto instance = static_cast<REALobject>(opaque);
    void* handler = LookupEventHandler(instance, VLCExitHandlerQRVClass, 0);
    TRACEF("%p", "Event ExitEvent", handler);
    if (handler != nullptr) reinterpret_cast<void (*)(REALobject)>(handler)(instance);
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
    vlcfn::_libvlc_set_exit_handler(reinterpret_cast<libvlc_instance_t*>(InstanceOf(self).handle), CallExitEvent, self);
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
