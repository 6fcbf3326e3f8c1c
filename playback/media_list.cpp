// VLCMediaListQRV: one libvlc media list. Every member tests the handle first,
// then traces, then tests the libvlc function (GUARD_HTF), so an uninitialised
// list writes no trace line.
#include "playback/media_list.h"

#include <vlc/vlc.h>

#include <unordered_map>

#include "binding/library.h"
#include "events/event_manager.h"
#include "media/instance.h"
#include "media/media.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"

namespace {

MediaListData& ListOf(REALobject self) { return DataOf<MediaListData>(self, VLCMediaListQRVClass); }
libvlc_media_list_t* ListHandle(REALobject self) { return reinterpret_cast<libvlc_media_list_t*>(ListOf(self).handle); }

// A media argument: present and initialised, else "item parameter is nil".
libvlc_media_t* ItemArgument(REALobject item) {
    auto media = reinterpret_cast<libvlc_media_t*>(HandleOf(item, VLCMediaQRVClass));
    if (media == nullptr) RaiseNilObjectException("item parameter is nil");
    return media;
}

// The libvlc lists the program holds locked, each with the object that locked
// it. libvlc's list lock is not recursive: a second Lock on the main thread
// hangs it for good. Main thread only.
std::unordered_map<libvlc_media_list_t*, REALobject>& LockedLists() {
    static auto* lists = new std::unordered_map<libvlc_media_list_t*, REALobject>;
    return *lists;
}

// A list still locked by this object is unlocked before it goes.
void UnlockListsOf(REALobject self) {
    for (auto it = LockedLists().begin(); it != LockedLists().end();) {
        if (it->second != self) {
            ++it;
            continue;
        }
        if (it->first == ListHandle(self) && vlcfn::_libvlc_media_list_unlock != nullptr)
            vlcfn::_libvlc_media_list_unlock(it->first);
        it = LockedLists().erase(it);
    }
}

}  // namespace

REALobject NewVLCMediaListQRV(libvlc_media_list_t* list, REALobject vlc) {
    TRACEF("%p", "NewVLCMediaListQRV", static_cast<void*>(list));
    if (list == nullptr) return nullptr;
    REALobject object = REALnewInstance("VLCMediaListQRV");
    if (object == nullptr) return nullptr;
    NoteLibvlcHolder(object);
    ListOf(object).handle = reinterpret_cast<int64_t>(list);
    ListOf(object).vlc = vlc;
    if (vlc != nullptr) REALLockObject(vlc);
    return object;
}

// libvlc frees the list's event manager with the list: the managers listening
// there are detached first, and a lock the program holds is given back.
static void LetGoOfList(REALobject self) {
    EndEventsFrom(self);
    UnlockListsOf(self);
    ReleaseHandle(ListOf(self).handle, vlcfn::_libvlc_media_list_release);
}

// Everything the destructor ends; a constructor run again ends it first.
static void EndList(REALobject self) {
    LetGoOfList(self);
    MediaListData& d = ListOf(self);
    d.handle = 0;
    ReleaseField(d.vlc);
}

// An instance whose handle is 0 is reported and still kept.
static void VLCMediaListConstructor(REALobject self, REALobject vlc) {
    NoteLibvlcHolder(self);
    TRACE("VLCMediaListConstructor");
    EndList(self);
    MediaListData& d = ListOf(self);
    if (!VLC_NEED(libvlc_media_list_new)) return;
    if (libvlc_instance_t* instance = KeepInstanceArgument(vlc, d.vlc))
        d.handle = reinterpret_cast<int64_t>(vlcfn::_libvlc_media_list_new(instance));
}

static void VLCMediaListDestructor(REALobject self) {
    EndList(self);
    ForgetLibvlcHolder(self);
}

static void SetHandle(REALobject self, RBInteger, RBInteger value) {
    WriteHandle(ListOf(self).handle, value, vlcfn::_libvlc_media_list_retain, "_libvlc_media_list_retain",
                [self] { LetGoOfList(self); });
}

static void Lock(REALobject self) {
    GUARD_HTF(ListOf(self).handle, "Lock", libvlc_media_list_lock, );
    if (!LockedLists().emplace(ListHandle(self), self).second) {
        RaiseException("RuntimeException", "The list is already locked.");
        return;
    }
    vlcfn::_libvlc_media_list_lock(ListHandle(self));
}

static void Unlock(REALobject self) {
    GUARD_HTF(ListOf(self).handle, "Unlock", libvlc_media_list_unlock, );
    LockedLists().erase(ListHandle(self));
    vlcfn::_libvlc_media_list_unlock(ListHandle(self));
}

static RBBoolean RemoveIndex(REALobject self, RBInteger index) {
    GUARD_HTF(ListOf(self).handle, "RemoveIndex", libvlc_media_list_remove_index, false);
    return vlcfn::_libvlc_media_list_remove_index(ListHandle(self), static_cast<int>(index)) == 0;
}

static RBInteger Count(REALobject self) {
    GUARD_HTF(ListOf(self).handle, "Count", libvlc_media_list_count, 0);
    return vlcfn::_libvlc_media_list_count(ListHandle(self));
}

static RBBoolean isReadOnly(REALobject self) {
    GUARD_HTF(ListOf(self).handle, "isReadOnly", libvlc_media_list_is_readonly, false);
    return LowByte(vlcfn::_libvlc_media_list_is_readonly(ListHandle(self)));
}

static REALobject ItemAtIndex(REALobject self, RBInteger index) {
    GUARD_HTF(ListOf(self).handle, "ItemAtIndex", libvlc_media_list_item_at_index, nullptr);
    return NewVLCMediaQRV(vlcfn::_libvlc_media_list_item_at_index(ListHandle(self), static_cast<int>(index)),
                          ListOf(self).vlc, false);
}

static RBInteger IndexOfItem(REALobject self, REALobject item) {
    GUARD_HTF(ListOf(self).handle, "IndexOfItem", libvlc_media_list_index_of_item, 0);
    libvlc_media_t* media = ItemArgument(item);
    if (media == nullptr) return 0;
    return vlcfn::_libvlc_media_list_index_of_item(ListHandle(self), media);
}

static RBBoolean InsertMedia(REALobject self, REALobject item, RBInteger index) {
    GUARD_HTF(ListOf(self).handle, "InsertMedia", libvlc_media_list_insert_media, false);
    libvlc_media_t* media = ItemArgument(item);
    if (media == nullptr) return false;
    // libvlc does not check the index: outside 0 to Count it corrupts the list.
    if (!VLC_NEED(libvlc_media_list_count)) return false;
    int64_t count = vlcfn::_libvlc_media_list_count(ListHandle(self));
    if (index < 0 || index > count) {
        RaiseOutOfBoundsException(index, count + 1, "index", "InsertMedia");
        return false;
    }
    return vlcfn::_libvlc_media_list_insert_media(ListHandle(self), media, static_cast<int>(index)) == 0;
}

static void SetMedia(REALobject self, REALobject item) {
    GUARD_HTF(ListOf(self).handle, "SetMedia", libvlc_media_list_set_media, );
    libvlc_media_t* media = ItemArgument(item);
    if (media == nullptr) return;
    vlcfn::_libvlc_media_list_set_media(ListHandle(self), media);
}

static REALobject GetMedia(REALobject self) {
    GUARD_HTF(ListOf(self).handle, "GetMedia", libvlc_media_list_media, nullptr);
    return NewVLCMediaQRV(vlcfn::_libvlc_media_list_media(ListHandle(self)), ListOf(self).vlc, false);
}

static RBBoolean AddMedia(REALobject self, REALobject item) {
    GUARD_HTF(ListOf(self).handle, "AddMedia", libvlc_media_list_add_media, false);
    libvlc_media_t* media = ItemArgument(item);
    if (media == nullptr) return false;
    return vlcfn::_libvlc_media_list_add_media(ListHandle(self), media) == 0;
}

namespace {

REALproperty kProperties[] = {
    QRV_PROPERTY("Handle", "Integer", ReadHandle<VLCMediaListQRVClass>, SetHandle),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", MediaListData, vlc),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCMediaListConstructor, "Constructor(vlc as VLCInstanceQRV)"),
    QRV_METHOD(VLCMediaListDestructor, "Destructor"),
    QRV_METHOD(Lock, "Lock"),
    QRV_METHOD(Unlock, "Unlock"),
    QRV_METHOD(RemoveIndex, "Remove(index as integer) as boolean"),
    QRV_METHOD(Count, "Count as integer"),
    QRV_METHOD(isReadOnly, "isReadOnly as boolean"),
    QRV_METHOD(ItemAtIndex, "ItemAtIndex(index as integer) as VLCMediaQRV"),
    QRV_METHOD(IndexOfItem, "IndexOfItem(item as VLCMediaQRV) as integer"),
    QRV_METHOD(InsertMedia, "InsertMedia(item as VLCMediaQRV, index as integer) as boolean"),
    QRV_METHOD(SetMedia, "SetMedia(item as VLCMediaQRV)"),
    QRV_METHOD(GetMedia, "GetMedia as VLCMediaQRV"),
    QRV_METHOD(AddMedia, "AddMedia(item as VLCMediaQRV) as boolean"),
};

}  // namespace

REALclassDefinition VLCMediaListQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaListQRV",
    .dataSize = sizeof(MediaListData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .mFlags = kFlagConsoleSafe,
};
