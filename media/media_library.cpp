// VLCMediaLibraryQRV: the libvlc media library. Members test the handle,
// trace, then test the libvlc function (GUARD_HTF).
#include <vlc/vlc.h>

#include "binding/library.h"
#include "media/discoverer_library.h"
#include "media/instance.h"
#include "playback/media_list.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"

namespace {

ServiceData& LibraryOf(REALobject self) { return DataOf<ServiceData>(self, VLCMediaLibraryQRVClass); }
libvlc_media_library_t* LibraryHandle(REALobject self) {
    return reinterpret_cast<libvlc_media_library_t*>(LibraryOf(self).handle);
}

}  // namespace

// Everything the destructor ends; a constructor run again ends it first.
static void EndLibrary(ServiceData& d) {
    ReleaseHandleAndInstance(d.handle, vlcfn::_libvlc_media_library_release, d.vlc);
}

// An instance whose handle is 0 is reported, yet kept in VLC.
static void VLCMediaLibraryConstructor(REALobject self, REALobject vlc) {
    NoteLibvlcHolder(self);
    TRACE("VLCMediaLibraryConstructor");
    ServiceData& d = LibraryOf(self);
    EndLibrary(d);
    if (!VLC_NEED(libvlc_media_library_new)) return;
    if (libvlc_instance_t* instance = KeepInstanceArgument(vlc, d.vlc))
        d.handle = reinterpret_cast<int64_t>(vlcfn::_libvlc_media_library_new(instance));
}

static void VLCMediaLibraryDestructor(REALobject self) {
    EndLibrary(LibraryOf(self));
    ForgetLibvlcHolder(self);
}

static void SetHandle(REALobject self, RBInteger, RBInteger value) {
    ServiceData& d = LibraryOf(self);
    WriteHandle(d.handle, value, vlcfn::_libvlc_media_library_retain, "_libvlc_media_library_retain",
                [&d] { ReleaseHandle(d.handle, vlcfn::_libvlc_media_library_release); });
}

static RBBoolean Load(REALobject self) {
    GUARD_HTF(LibraryOf(self).handle, "Load", libvlc_media_library_load, false);
    return vlcfn::_libvlc_media_library_load(LibraryHandle(self)) == 0;
}

static REALobject GetMediaList(REALobject self) {
    GUARD_HTF(LibraryOf(self).handle, "GetMediaList", libvlc_media_library_media_list, nullptr);
    return NewVLCMediaListQRV(vlcfn::_libvlc_media_library_media_list(LibraryHandle(self)), LibraryOf(self).vlc);
}

namespace {

REALproperty kProperties[] = {
    QRV_PROPERTY("Handle", "Integer", ReadHandle<VLCMediaLibraryQRVClass>, SetHandle),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", ServiceData, vlc),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCMediaLibraryConstructor, "Constructor(vlc as VLCInstanceQRV)"),
    QRV_METHOD(VLCMediaLibraryDestructor, "Destructor"),
    QRV_METHOD(Load, "Load as Boolean"),
    QRV_METHOD(GetMediaList, "MediaList as VLCMediaListQRV"),
};

}  // namespace

REALclassDefinition VLCMediaLibraryQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaLibraryQRV",
    .dataSize = sizeof(ServiceData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .mFlags = kFlagConsoleSafe,
};
