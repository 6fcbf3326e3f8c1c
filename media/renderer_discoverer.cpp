// VLCRendererDiscovererQRV and VLCRendererItemQRV: casting devices found on the
// network. A discoverer raises ItemAdded / ItemDeleted on the main thread with a
// record of the item; the record holds the item for as long as it lives.
// Members test the handle, trace, then test the libvlc function (GUARD_HTF).
#include <vlc/vlc.h>

#include "binding/library.h"
#include "events/delivery_queue.h"
#include "media/discovery.h"
#include "media/instance.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/text.h"

namespace {

struct RendererDiscovererData {
    int64_t handle;  // libvlc_renderer_discoverer_t*
    REALobject vlc;
    // Not seen by the host: what the destructor undoes.
    int64_t started;
    DeliveryTarget* target;
    libvlc_event_manager_t* manager;
    uint32_t attached;  // bit i: event i of the class record is attached to `manager`
};

struct RendererItemData {
    int64_t handle;  // libvlc_renderer_item_t*, held by this record
    REALstring name;
    REALstring type;
    REALstring iconURI;
    int64_t flags;
};

RendererDiscovererData& DiscovererOf(REALobject self) {
    return DataOf<RendererDiscovererData>(self, VLCRendererDiscovererQRVClass);
}
libvlc_renderer_discoverer_t* DiscovererHandle(REALobject self) {
    return reinterpret_cast<libvlc_renderer_discoverer_t*>(DiscovererOf(self).handle);
}

// A record of the item with a hold of its own; its texts are read now, on the main thread.
REALobject NewVLCRendererItemQRV(libvlc_renderer_item_t* item) {
    TRACEF("%p", "NewVLCRendererItemQRV", static_cast<void*>(item));
    if (item == nullptr) return nullptr;
    REALobject object = REALnewInstance(VLCRendererItemQRVClass.name);
    if (object == nullptr) return nullptr;
    NoteLibvlcHolder(object);
    auto& d = DataOf<RendererItemData>(object, VLCRendererItemQRVClass);
    auto text = [item](const char* (*read)(const libvlc_renderer_item_t*)) {
        return read != nullptr ? BuildStringUTF8(read(item)) : nullptr;
    };
    d.name = text(vlcfn::_libvlc_renderer_item_name);
    d.type = text(vlcfn::_libvlc_renderer_item_type);
    d.iconURI = text(vlcfn::_libvlc_renderer_item_icon_uri);
    if (vlcfn::_libvlc_renderer_item_flags != nullptr) d.flags = vlcfn::_libvlc_renderer_item_flags(item);
    if (vlcfn::_libvlc_renderer_item_hold != nullptr && vlcfn::_libvlc_renderer_item_release != nullptr)
        d.handle = reinterpret_cast<int64_t>(vlcfn::_libvlc_renderer_item_hold(item));
    return object;
}

libvlc_renderer_item_t* ItemOf(const libvlc_event_t& event) {
    return event.type == libvlc_RendererDiscovererItemAdded ? event.u.renderer_discoverer_item_added.item
                                                            : event.u.renderer_discoverer_item_deleted.item;
}

// The handler gets a new record; the plug-in drops its own reference afterwards.
void RaiseItem(REALobject discoverer, void* handler, const libvlc_event_t& event) {
    REALobject item = NewVLCRendererItemQRV(ItemOf(event));
    reinterpret_cast<void (*)(REALobject, REALobject)>(handler)(discoverer, item);
    if (item != nullptr) REALUnlockObject(item);
}

// The hold the callback took, given back once the event was raised or dropped.
void ReleaseItemHold(libvlc_event_t& event) {
    if (vlcfn::_libvlc_renderer_item_release != nullptr) vlcfn::_libvlc_renderer_item_release(ItemOf(event));
}

const DeliveryRoute kItemRoutes[] = {
    {kRendererRouteFirst + 0, &VLCRendererDiscovererQRVClass, 0, "Event ItemAdded", false,
     libvlc_RendererDiscovererItemAdded, RaiseItem, ReleaseItemHold},
    {kRendererRouteFirst + 1, &VLCRendererDiscovererQRVClass, 1, "Event ItemDeleted", false,
     libvlc_RendererDiscovererItemDeleted, RaiseItem, ReleaseItemHold},
};
static_assert(std::size(kItemRoutes) == kRendererRouteCount);

// On libvlc's thread, its event lock held: the item is valid only during the
// call, so the delivery takes a hold on it here. Without hold and release the
// item cannot outlive the call, and the event is not delivered.
template <size_t route>
void CallItemEvent(const libvlc_event_t* event, void* userData) {
    TRACEF("%p, %p", "Call later on main thread...", static_cast<const void*>(event), userData);
    libvlc_renderer_item_t* item = ItemOf(*event);
    if (userData == nullptr || item == nullptr || vlcfn::_libvlc_renderer_item_hold == nullptr ||
        vlcfn::_libvlc_renderer_item_release == nullptr)
        return;
    libvlc_event_t copy{};
    copy.type = event->type;
    if (event->type == libvlc_RendererDiscovererItemAdded)
        copy.u.renderer_discoverer_item_added.item = vlcfn::_libvlc_renderer_item_hold(item);
    else
        copy.u.renderer_discoverer_item_deleted.item = vlcfn::_libvlc_renderer_item_hold(item);
    PostDelivery(static_cast<DeliveryTarget*>(userData), kItemRoutes[route], copy);
}

const libvlc_callback_t kItemCallbacks[] = {CallItemEvent<0>, CallItemEvent<1>};

// Attaches the events the host subclass handles (none on an event manager 0).
void AttachHandledEvents(REALobject self) {
    RendererDiscovererData& d = DiscovererOf(self);
    if (vlcfn::_libvlc_renderer_discoverer_event_manager == nullptr || vlcfn::_libvlc_event_attach == nullptr) return;
    libvlc_event_manager_t* manager = vlcfn::_libvlc_renderer_discoverer_event_manager(DiscovererHandle(self));
    if (manager == nullptr) return;
    for (size_t i = 0; i < std::size(kItemRoutes); ++i) {
        if (LookupEventHandler(self, VLCRendererDiscovererQRVClass, i) == nullptr) continue;
        TRACEF("%s", "Install", kItemRoutes[i].traceName);
        if (d.target == nullptr) d.target = NewDeliveryTarget(self);
        if (vlcfn::_libvlc_event_attach(manager, kItemRoutes[i].eventType, kItemCallbacks[i], d.target) == 0) {
            d.manager = manager;
            d.attached |= 1u << i;
        }
    }
}

// Stops, detaches exactly what was attached, drops queued deliveries, releases
// the discoverer and gives back the instance.
void EndDiscoverer(RendererDiscovererData& d) {
    auto* discoverer = reinterpret_cast<libvlc_renderer_discoverer_t*>(d.handle);
    if (discoverer != nullptr && d.started != 0 && vlcfn::_libvlc_renderer_discoverer_stop != nullptr)
        vlcfn::_libvlc_renderer_discoverer_stop(discoverer);
    d.started = 0;
    for (size_t i = 0; i < std::size(kItemRoutes) && vlcfn::_libvlc_event_detach != nullptr; ++i) {
        if ((d.attached & (1u << i)) == 0) continue;
        vlcfn::_libvlc_event_detach(d.manager, kItemRoutes[i].eventType, kItemCallbacks[i], d.target);
        d.attached &= ~(1u << i);
    }
    // Released below, the discoverer's event manager cannot call any more.
    bool mayStillCall = d.attached != 0 && vlcfn::_libvlc_renderer_discoverer_release == nullptr;
    RetireDeliveryTarget(d.target, mayStillCall);
    d.target = nullptr;
    d.manager = nullptr;
    d.attached = 0;
    ReleaseHandleAndInstance(d.handle, vlcfn::_libvlc_renderer_discoverer_release, d.vlc);
}

}  // namespace

// A constructor run again on a live discoverer ends the first one.
static void VLCRendererDiscovererConstructor(REALobject self, REALobject vlc, REALstring name) {
    NoteLibvlcHolder(self);
    TRACE("VLCRendererDiscovererConstructor");
    RendererDiscovererData& d = DiscovererOf(self);
    EndDiscoverer(d);
    if (!VLC_NEED(libvlc_renderer_discoverer_new)) return;
    if (vlc == nullptr || HandleOf(vlc, VLCInstanceQRVClass) == 0) {
        RaiseNilObjectException("vlc parameter is nil");
        return;
    }
    libvlc_instance_t* instance = KeepInstanceArgument(vlc, d.vlc);
    rbText text(name);
    d.handle = reinterpret_cast<int64_t>(vlcfn::_libvlc_renderer_discoverer_new(instance, text.GetUTF8()));
    TRACEF("%p", "handle", reinterpret_cast<void*>(d.handle));
    if (d.handle != 0) AttachHandledEvents(self);
}

static void VLCRendererDiscovererDestructor(REALobject self) {
    EndDiscoverer(DiscovererOf(self));
    ForgetLibvlcHolder(self);
}

// A started discoverer is stopped first, so that it restarts.
static RBBoolean Start(REALobject self) {
    GUARD_HTF(DiscovererOf(self).handle, "Start", libvlc_renderer_discoverer_start, false);
    RendererDiscovererData& d = DiscovererOf(self);
    if (d.started != 0) {
        if (vlcfn::_libvlc_renderer_discoverer_stop == nullptr) return true;  // it runs, and cannot restart
        vlcfn::_libvlc_renderer_discoverer_stop(DiscovererHandle(self));
    }
    d.started = vlcfn::_libvlc_renderer_discoverer_start(DiscovererHandle(self)) == 0;
    return d.started != 0;
}

static void Stop(REALobject self) {
    GUARD_HTF(DiscovererOf(self).handle, "Stop", libvlc_renderer_discoverer_stop, );
    vlcfn::_libvlc_renderer_discoverer_stop(DiscovererHandle(self));
    DiscovererOf(self).started = 0;
}

static void VLCRendererItemDestructor(REALobject self) {
    auto& d = DataOf<RendererItemData>(self, VLCRendererItemQRVClass);
    if (d.handle != 0 && vlcfn::_libvlc_renderer_item_release != nullptr)
        vlcfn::_libvlc_renderer_item_release(reinterpret_cast<libvlc_renderer_item_t*>(d.handle));
    d.handle = 0;
    ReleaseField(d.name);
    ReleaseField(d.type);
    ReleaseField(d.iconURI);
    ForgetLibvlcHolder(self);
}

// VLCMediaPlayerQRV.SetRenderer: nil (or an item holding nothing) plays locally again.
RBBoolean SetRenderer(REALobject self, REALobject item) {
    GUARD_TFH(HandleOf(self, VLCMediaPlayerQRVClass), "SetRenderer", libvlc_media_player_set_renderer, false);
    auto* renderer = reinterpret_cast<libvlc_renderer_item_t*>(HandleOf(item, VLCRendererItemQRVClass));
    return vlcfn::_libvlc_media_player_set_renderer(
               reinterpret_cast<libvlc_media_player_t*>(HandleOf(self, VLCMediaPlayerQRVClass)), renderer) == 0;
}

namespace {

REALproperty kDiscovererProperties[] = {
    QRV_READONLY_FIELD_PROPERTY("Handle", "Integer", RendererDiscovererData, handle),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", RendererDiscovererData, vlc),
};

REALmethodDefinition kDiscovererMethods[] = {
    QRV_METHOD(VLCRendererDiscovererConstructor, "Constructor(vlc as VLCInstanceQRV, name as string)"),
    QRV_METHOD(VLCRendererDiscovererDestructor, "Destructor"),
    QRV_METHOD(Start, "Start as boolean"),
    QRV_METHOD(Stop, "Stop"),
};

REALevent kDiscovererEvents[] = {
    QRV_EVENT("ItemAdded(item as VLCRendererItemQRV)"),
    QRV_EVENT("ItemDeleted(item as VLCRendererItemQRV)"),
};

// The item's handle holds a libvlc reference the destructor gives back: read-only.
REALproperty kItemProperties[] = {
    QRV_READONLY_FIELD_PROPERTY("Handle", "Integer", RendererItemData, handle),
    QRV_FIELD_PROPERTY("Name", "String", RendererItemData, name),
    QRV_FIELD_PROPERTY("Type", "String", RendererItemData, type),
    QRV_FIELD_PROPERTY("IconURI", "String", RendererItemData, iconURI),
    QRV_FIELD_PROPERTY("Flags", "Integer", RendererItemData, flags),
};

REALmethodDefinition kItemMethods[] = {
    QRV_METHOD(VLCRendererItemDestructor, "Destructor"),
};

REALconstant kItemConstants[] = {
    QRV_CONSTANT("kRendererCanAudio = 1"),
    QRV_CONSTANT("kRendererCanVideo = 2"),
};

}  // namespace

REALclassDefinition VLCRendererDiscovererQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCRendererDiscovererQRV",
    .dataSize = sizeof(RendererDiscovererData),
    .properties = kDiscovererProperties,
    .propertyCount = std::size(kDiscovererProperties),
    .methods = kDiscovererMethods,
    .methodCount = std::size(kDiscovererMethods),
    .events = kDiscovererEvents,
    .eventCount = std::size(kDiscovererEvents),
    .mFlags = kFlagConsoleSafe,
};
REALclassDefinition VLCRendererItemQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCRendererItemQRV",
    .dataSize = sizeof(RendererItemData),
    .properties = kItemProperties,
    .propertyCount = std::size(kItemProperties),
    .methods = kItemMethods,
    .methodCount = std::size(kItemMethods),
    .constants = kItemConstants,
    .constantCount = std::size(kItemConstants),
    .mFlags = kFlagConsoleSafe,
};
