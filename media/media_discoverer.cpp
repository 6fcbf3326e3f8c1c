// VLCMediaDiscovererQRV: one libvlc media discoverer, found by service name.
// Members test the handle, trace, then test the libvlc function (GUARD_HTF).
#include <vlc/vlc.h>

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

}  // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// An instance whose handle is 0 is reported, yet kept in VLC.
static void VLCMediaDiscovererConstructor(REALobject self, REALobject vlc, REALstring name) {
    TRACE("VLCMediaDiscovererConstructor");
    if (!VLC_NEED(libvlc_media_discoverer_new_from_name)) return;
    ServiceData& d = DiscovererOf(self);
    if (libvlc_instance_t* instance = KeepInstanceArgument(vlc, d.vlc)) {
        rbText text(name);
        d.handle = reinterpret_cast<int64_t>(vlcfn::_libvlc_media_discoverer_new_from_name(instance, text.GetUTF8()));
    }
}

#pragma GCC diagnostic pop

static void VLCMediaDiscovererDestructor(REALobject self) {
    ServiceData& d = DiscovererOf(self);
    ReleaseHandleAndInstance(d.handle, vlcfn::_libvlc_media_discoverer_release, d.vlc);
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

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Handle", "Integer", ServiceData, handle),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", ServiceData, vlc),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCMediaDiscovererConstructor, "Constructor(vlc as VLCInstanceQRV, name as string)"),
    QRV_METHOD(VLCMediaDiscovererDestructor, "Destructor"),
    QRV_METHOD(GetMediaList, "MediaList as VLCMediaListQRV"),
    QRV_METHOD(GetLocalizedName, "LocalizedName as string"),
    QRV_METHOD(IsRunning, "IsRunning as boolean"),
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
    .mFlags = kFlagConsoleSafe,
};
