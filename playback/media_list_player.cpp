// VLCMediaListPlayerQRV: plays a VLCMediaListQRV through a VLCMediaPlayerQRV.
// Members trace, test the libvlc function, then the handle (GUARD_TFH).
#include "playback/media_list_player.h"

#include <vlc/vlc.h>

#include "binding/library.h"
#include "events/event_manager.h"
#include "media/instance.h"
#include "media/media.h"
#include "playback/media_list.h"
#include "playback/media_player.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"

namespace {

MediaListPlayerData& ListPlayerOf(REALobject self) {
    return DataOf<MediaListPlayerData>(self, VLCMediaListPlayerQRVClass);
}
libvlc_media_list_player_t* ListPlayer(REALobject self) {
    return reinterpret_cast<libvlc_media_list_player_t*>(ListPlayerOf(self).handle);
}

}  // namespace

#define LIST_PLAYER_GUARD_TFH(traceName, fn, zero) GUARD_TFH(ListPlayerOf(self).handle, traceName, fn, zero)

// libvlc frees the list player's event manager with it: the managers listening
// there are detached first.
static void LetGoOfListPlayer(REALobject self) {
    EndEventsFrom(self);
    ReleaseHandle(ListPlayerOf(self).handle, vlcfn::_libvlc_media_list_player_release);
}

// Everything the destructor ends; a constructor run again ends it first.
// List and Player hold one lock each, taken by SetMediaList and SetMediaPlayer
// (or a write of the property); libvlc keeps references of its own.
static void EndListPlayer(REALobject self) {
    LetGoOfListPlayer(self);
    MediaListPlayerData& d = ListPlayerOf(self);
    d.handle = 0;
    ReleaseField(d.list);
    ReleaseField(d.player);
    ReleaseField(d.vlc);
}

// An instance whose handle is 0 is reported and still kept.
static void VLCMediaListPlayerConstructor(REALobject self, REALobject vlc) {
    NoteLibvlcHolder(self);
    TRACE("VLCMediaListPlayerConstructor");
    EndListPlayer(self);
    MediaListPlayerData& d = ListPlayerOf(self);
    if (!VLC_NEED(libvlc_media_list_player_new)) return;
    if (libvlc_instance_t* instance = KeepInstanceArgument(vlc, d.vlc))
        d.handle = reinterpret_cast<int64_t>(vlcfn::_libvlc_media_list_player_new(instance));
}

static void VLCMediaListPlayerDestructor(REALobject self) {
    EndListPlayer(self);
    ForgetLibvlcHolder(self);
}

// The list of bound functions has no retain for list players: only 0 is written.
static void SetHandle(REALobject self, RBInteger, RBInteger value) {
    WriteHandle<libvlc_media_list_player_t>(ListPlayerOf(self).handle, value, nullptr,
                                            "_libvlc_media_list_player_retain", [self] { LetGoOfListPlayer(self); });
}

static void Play(REALobject self) {
    LIST_PLAYER_GUARD_TFH("Play", libvlc_media_list_player_play, );
    vlcfn::_libvlc_media_list_player_play(ListPlayer(self));
}

static void Pause(REALobject self) {
    LIST_PLAYER_GUARD_TFH("Pause", libvlc_media_list_player_pause, );
    vlcfn::_libvlc_media_list_player_pause(ListPlayer(self));
}

static void Stop(REALobject self) {
    LIST_PLAYER_GUARD_TFH("Stop", libvlc_media_list_player_stop, );
    vlcfn::_libvlc_media_list_player_stop(ListPlayer(self));
}

static RBBoolean MoveNext(REALobject self) {
    LIST_PLAYER_GUARD_TFH("MoveNext", libvlc_media_list_player_next, false);
    return vlcfn::_libvlc_media_list_player_next(ListPlayer(self)) == 0;
}

static RBBoolean MovePrevious(REALobject self) {
    LIST_PLAYER_GUARD_TFH("MovePrevious", libvlc_media_list_player_previous, false);
    return vlcfn::_libvlc_media_list_player_previous(ListPlayer(self)) == 0;
}

// libvlc reads the list without testing it: without one, PlayItemAtIndex and
// PlayItem raise instead.
static bool HasList(REALobject self) {
    if (ListPlayerOf(self).list != nullptr) return true;
    RaiseNilObjectException("List is nil");
    return false;
}

static RBBoolean PlayItemAtIndex(REALobject self, RBInteger index) {
    LIST_PLAYER_GUARD_TFH("PlayItemAtIndex", libvlc_media_list_player_play_item_at_index, false);
    if (!HasList(self)) return false;
    return vlcfn::_libvlc_media_list_player_play_item_at_index(ListPlayer(self), static_cast<int>(index)) == 0;
}

static RBBoolean PlayItem(REALobject self, REALobject item) {
    LIST_PLAYER_GUARD_TFH("PlayItem", libvlc_media_list_player_play_item, false);
    int64_t media = HandleOf(item, VLCMediaQRVClass);
    if (media == 0) {
        RaiseNilObjectException("Item is nil");
        return false;
    }
    if (!HasList(self)) return false;
    return vlcfn::_libvlc_media_list_player_play_item(ListPlayer(self), reinterpret_cast<libvlc_media_t*>(media)) == 0;
}

static RBBoolean IsPlaying(REALobject self) {
    LIST_PLAYER_GUARD_TFH("IsPlaying", libvlc_media_list_player_is_playing, false);
    return LowByte(vlcfn::_libvlc_media_list_player_is_playing(ListPlayer(self)));
}

static RBInteger GetState(REALobject self) {
    LIST_PLAYER_GUARD_TFH("GetState", libvlc_media_list_player_get_state, 0);
    return static_cast<RBInteger>(vlcfn::_libvlc_media_list_player_get_state(ListPlayer(self)));
}

// The lock taken on the new player or list replaces the one on the object it replaces.
static void KeepInSlot(REALobject& slot, REALobject object) {
    REALLockObject(object);
    ReleaseField(slot);
    slot = object;
}

static void SetMediaPlayer(REALobject self, REALobject player) {
    LIST_PLAYER_GUARD_TFH("SetMediaPlayer", libvlc_media_list_player_set_media_player, );
    int64_t handle = HandleOf(player, VLCMediaPlayerQRVClass);
    if (handle == 0) {
        RaiseNilObjectException("Player is nil");
        return;
    }
    KeepInSlot(ListPlayerOf(self).player, player);
    vlcfn::_libvlc_media_list_player_set_media_player(ListPlayer(self),
                                                      reinterpret_cast<libvlc_media_player_t*>(handle));
}

static void SetMediaList(REALobject self, REALobject list) {
    LIST_PLAYER_GUARD_TFH("SetMediaList", libvlc_media_list_player_set_media_list, );
    int64_t handle = HandleOf(list, VLCMediaListQRVClass);
    if (handle == 0) {
        RaiseNilObjectException("List is nil");
        return;
    }
    KeepInSlot(ListPlayerOf(self).list, list);
    vlcfn::_libvlc_media_list_player_set_media_list(ListPlayer(self), reinterpret_cast<libvlc_media_list_t*>(handle));
}

static void SetPlaybackMode(REALobject self, RBInteger mode) {
    LIST_PLAYER_GUARD_TFH("SetPlaybackMode", libvlc_media_list_player_set_playback_mode, );
    vlcfn::_libvlc_media_list_player_set_playback_mode(ListPlayer(self), static_cast<libvlc_playback_mode_t>(mode));
}

namespace {

REALproperty kProperties[] = {
    QRV_PROPERTY("Handle", "Integer", ReadHandle<VLCMediaListPlayerQRVClass>, SetHandle),
    QRV_FIELD_PROPERTY("List", "VLCMediaListQRV", MediaListPlayerData, list),
    QRV_FIELD_PROPERTY("Player", "VLCMediaPlayerQRV", MediaListPlayerData, player),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", MediaListPlayerData, vlc),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCMediaListPlayerConstructor, "Constructor(vlc as VLCInstanceQRV)"),
    QRV_METHOD(VLCMediaListPlayerDestructor, "Destructor"),
    QRV_METHOD(Play, "Play"),
    QRV_METHOD(Pause, "Pause"),
    QRV_METHOD(Stop, "Stop"),
    QRV_METHOD(MoveNext, "MoveNext as Boolean"),
    QRV_METHOD(MovePrevious, "MovePrevious as Boolean"),
    QRV_METHOD(PlayItemAtIndex, "PlayItemAtIndex(index as integer) as Boolean"),
    QRV_METHOD(PlayItem, "PlayItem(item as VLCMediaQRV) as Boolean"),
    QRV_METHOD(IsPlaying, "IsPlaying as boolean"),
    QRV_METHOD(GetState, "State as integer"),
    QRV_METHOD(SetMediaPlayer, "SetMediaPlayer(player as VLCMediaPlayerQRV)"),
    QRV_METHOD(SetMediaList, "SetMediaList(list as VLCMediaListQRV)"),
    QRV_METHOD(SetPlaybackMode, "SetPlaybackMode(mode as integer)"),
};

REALconstant kConstants[] = {
    QRV_CONSTANT("kPlaybackModeDefault = 0"),
    QRV_CONSTANT("kPlaybackModeLoop = 1"),
    QRV_CONSTANT("kPlaybackModeRepeat = 2"),
};

}  // namespace

REALclassDefinition VLCMediaListPlayerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaListPlayerQRV",
    .dataSize = sizeof(MediaListPlayerData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .constants = kConstants,
    .constantCount = std::size(kConstants),
    .mFlags = kFlagConsoleSafe,
};
