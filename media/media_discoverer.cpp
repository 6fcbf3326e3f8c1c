// VLCMediaDiscovererQRV: one libvlc media discoverer, found by service name.
// Members test the handle, trace, then test the libvlc function (GUARD_HTF).
#include <vlc/vlc.h>

#include <cstring>

#include "binding/library.h"
#include "events/event_manager.h"
#include "media/discoverer_library.h"
#include "media/instance.h"
#include "playback/media_list.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/text.h"

namespace {

ServiceData& DiscovererOf(REALobject self) { return DataOf<ServiceData>(self, VLCMediaDiscovererQRVClass); }
libvlc_media_discoverer_t* DiscovererHandle(REALobject self) {
    return reinterpret_cast<libvlc_media_discoverer_t*>(DiscovererOf(self).handle);
}

// libvlc 3.0 makes a discoverer for any name and only its start fails: a name
// is a service when one of libvlc's categories lists it. Without the list
// functions the name is not checked.
bool IsService(libvlc_instance_t* instance, const char* name) {
    if (vlcfn::_libvlc_media_discoverer_list_get == nullptr || vlcfn::_libvlc_media_discoverer_list_release == nullptr)
        return true;
    bool found = false;
    for (int category = libvlc_media_discoverer_devices; category <= libvlc_media_discoverer_localdirs; ++category) {
        libvlc_media_discoverer_description_t** services = nullptr;
        size_t count = vlcfn::_libvlc_media_discoverer_list_get(
            instance, static_cast<libvlc_media_discoverer_category_t>(category), &services);
        for (size_t i = 0; i < count && services != nullptr && !found; ++i)
            found = services[i] != nullptr && services[i]->psz_name != nullptr && name != nullptr &&
                    strcmp(services[i]->psz_name, name) == 0;
        if (services != nullptr) vlcfn::_libvlc_media_discoverer_list_release(services, count);
    }
    return found;
}

}  // namespace

// libvlc 3.0 stops a running discoverer as it releases it, and frees its event
// manager with it: the managers listening there are detached first.
static void LetGoOfDiscoverer(REALobject self) {
    EndEventsFrom(self);
    ServiceData& d = DiscovererOf(self);
    ReleaseHandle(d.handle, vlcfn::_libvlc_media_discoverer_release);
    d.running = 0;
}

// Everything the destructor ends; a constructor run again ends it first.
static void EndDiscoverer(REALobject self) {
    LetGoOfDiscoverer(self);
    ServiceData& d = DiscovererOf(self);
    d.handle = 0;
    ReleaseField(d.vlc);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// An instance whose handle is 0 is reported, yet kept in VLC.
static void VLCMediaDiscovererConstructor(REALobject self, REALobject vlc, REALstring name) {
    NoteLibvlcHolder(self);
    TRACE("VLCMediaDiscovererConstructor");
    EndDiscoverer(self);
    ServiceData& d = DiscovererOf(self);
    if (!VLC_NEED(libvlc_media_discoverer_new_from_name)) return;
    if (libvlc_instance_t* instance = KeepInstanceArgument(vlc, d.vlc)) {
        rbText text(name);
        d.handle = reinterpret_cast<int64_t>(vlcfn::_libvlc_media_discoverer_new_from_name(instance, text.GetUTF8()));
        d.running = d.handle != 0;  // libvlc answers only a discoverer it started
    }
}

#pragma GCC diagnostic pop

static void VLCMediaDiscovererDestructor(REALobject self) {
    EndDiscoverer(self);
    ForgetLibvlcHolder(self);
}

// libvlc 3.0 has no retain for media discoverers: only 0 is written.
static void SetHandle(REALobject self, RBInteger, RBInteger value) {
    ServiceData& d = DiscovererOf(self);
    WriteHandle<libvlc_media_discoverer_t>(d.handle, value, nullptr, "_libvlc_media_discoverer_retain",
                                           [self] { LetGoOfDiscoverer(self); });
}

static REALobject GetMediaList(REALobject self) {
    GUARD_HTF(DiscovererOf(self).handle, "GetMediaList", libvlc_media_discoverer_media_list, nullptr);
    return NewVLCMediaListQRV(vlcfn::_libvlc_media_discoverer_media_list(DiscovererHandle(self)),
                              DiscovererOf(self).vlc);
}

static REALstring GetLocalizedName(REALobject self) {
    GUARD_HTF(DiscovererOf(self).handle, "GetLocalizedName", libvlc_media_discoverer_localized_name, nullptr);
    return BuildStringUTF8Kept(vlcfn::_libvlc_media_discoverer_localized_name(DiscovererHandle(self)));
}

static RBBoolean IsRunning(REALobject self) {
    GUARD_HTF(DiscovererOf(self).handle, "IsRunning", libvlc_media_discoverer_is_running, false);
    return LowByte(vlcfn::_libvlc_media_discoverer_is_running(DiscovererHandle(self)));
}

// A discoverer made but not started; nil when libvlc has no such service (its
// podcast service, for one, works only with a playlist and is refused here).
static REALobject Create(REALobject vlc, REALstring name) {
    TRACE("Create");
    if (!VLC_NEED(libvlc_media_discoverer_new)) return nullptr;
    int64_t instance = HandleOf(vlc, VLCInstanceQRVClass);
    if (instance == 0) {
        RaiseNilObjectException("vlc parameter is nil");
        return nullptr;
    }
    rbText text(name);
    libvlc_media_discoverer_t* discoverer =
        vlcfn::_libvlc_media_discoverer_new(reinterpret_cast<libvlc_instance_t*>(instance), text.GetUTF8());
    TRACEF("%p", "handle", static_cast<void*>(discoverer));
    if (discoverer == nullptr) return nullptr;
    if (!IsService(reinterpret_cast<libvlc_instance_t*>(instance), text.GetUTF8())) {
        if (vlcfn::_libvlc_media_discoverer_release != nullptr) vlcfn::_libvlc_media_discoverer_release(discoverer);
        return nullptr;
    }
    REALobject object = REALnewInstance(VLCMediaDiscovererQRVClass.name);
    if (object == nullptr) {
        if (vlcfn::_libvlc_media_discoverer_release != nullptr) vlcfn::_libvlc_media_discoverer_release(discoverer);
        return nullptr;
    }
    NoteLibvlcHolder(object);
    ServiceData& d = DiscovererOf(object);
    d.handle = reinterpret_cast<int64_t>(discoverer);
    REALLockObject(vlc);
    d.vlc = vlc;
    return object;
}

// A running discoverer is stopped first, so that it restarts.
static RBBoolean Start(REALobject self) {
    GUARD_HTF(DiscovererOf(self).handle, "Start", libvlc_media_discoverer_start, false);
    ServiceData& d = DiscovererOf(self);
    if (d.running != 0) {
        if (vlcfn::_libvlc_media_discoverer_stop == nullptr) return true;  // it runs, and cannot restart
        vlcfn::_libvlc_media_discoverer_stop(DiscovererHandle(self));
        d.running = 0;
    }
    d.running = vlcfn::_libvlc_media_discoverer_start(DiscovererHandle(self)) == 0;
    return d.running != 0;
}

// Stopping a discoverer that does not run does nothing.
static void Stop(REALobject self) {
    GUARD_HTF(DiscovererOf(self).handle, "Stop", libvlc_media_discoverer_stop, );
    ServiceData& d = DiscovererOf(self);
    if (d.running == 0) return;
    vlcfn::_libvlc_media_discoverer_stop(DiscovererHandle(self));
    d.running = 0;
}

namespace {

REALproperty kProperties[] = {
    QRV_PROPERTY("Handle", "Integer", ReadHandle<VLCMediaDiscovererQRVClass>, SetHandle),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", ServiceData, vlc),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCMediaDiscovererConstructor, "Constructor(vlc as VLCInstanceQRV, name as string)"),
    QRV_METHOD(VLCMediaDiscovererDestructor, "Destructor"),
    QRV_METHOD(GetMediaList, "MediaList as VLCMediaListQRV"),
    QRV_METHOD(GetLocalizedName, "LocalizedName as string"),
    QRV_METHOD(IsRunning, "IsRunning as boolean"),
    QRV_METHOD(Start, "Start as boolean"),
    QRV_METHOD(Stop, "Stop"),
};

REALmethodDefinition kSharedMethods[] = {
    QRV_METHOD(Create, "Create(vlc as VLCInstanceQRV, name as string) as VLCMediaDiscovererQRV"),
};

REALconstant kConstants[] = {
    QRV_CONSTANT("kCategoryDevices = 0"),
    QRV_CONSTANT("kCategoryLAN = 1"),
    QRV_CONSTANT("kCategoryPodcasts = 2"),
    QRV_CONSTANT("kCategoryLocalDirs = 3"),
};

}  // namespace

REALclassDefinition VLCMediaDiscovererQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaDiscovererQRV",
    .dataSize = sizeof(ServiceData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .constants = kConstants,
    .constantCount = std::size(kConstants),
    .mFlags = kFlagConsoleSafe,
    .sharedMethods = kSharedMethods,
    .sharedMethodCount = std::size(kSharedMethods),
};
