// VLCMediaQRV: one libvlc media (a file, a URL, a descriptor, bytes in memory
// written to a temporary file, or a node). Each member's order of checks is
// spelled by its guard: GUARD_HTF or GUARD_TFH.
#include "media/media.h"

#include <fcntl.h>
#include <unistd.h>
#include <vlc/vlc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "binding/library.h"
#include "events/event_manager.h"
#include "media/instance.h"
#include "media/records.h"
#include "playback/media_list.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/kept.h"
#include "plugin/memory.h"
#include "plugin/text.h"

namespace {

libvlc_media_t* MediaHandle(REALobject self) { return reinterpret_cast<libvlc_media_t*>(MediaOf(self).handle); }

// A usable instance argument: present and initialised.
libvlc_instance_t* InstanceArgument(REALobject vlc) {
    return reinterpret_cast<libvlc_instance_t*>(HandleOf(vlc, VLCInstanceQRVClass));
}

constexpr size_t kTempPathSize = 300;

}  // namespace

REALobject NewVLCMediaQRV(libvlc_media_t* media, REALobject vlc, bool retain) {
    TRACEF("%p", "NewVLCMediaQRV", static_cast<void*>(media));
    if (media == nullptr) return nullptr;
    if (retain && !VLC_NEED(libvlc_media_retain)) return nullptr;
    REALobject object = REALnewInstance("VLCMediaQRV");
    if (object == nullptr) return nullptr;
    NoteLibvlcHolder(object);
    if (retain) vlcfn::_libvlc_media_retain(media);
    MediaData& d = MediaOf(object);
    d.handle = reinterpret_cast<int64_t>(media);
    d.vlc = vlc;
    d.tempFD = -1;
    d.tempPath = nullptr;
    if (vlc != nullptr) REALLockObject(vlc);
    return object;
}

// ---- factories ---------------------------------------------------------------

// The factories' shape: trace, function, instance, then wrap libvlc's new media.
#define MEDIA_FACTORY(traceName, fn, vlc)                \
    TRACE(traceName);                                    \
    if (!VLC_NEED(fn)) return nullptr;                   \
    libvlc_instance_t* instance = InstanceArgument(vlc); \
    if (instance == nullptr) {                           \
        RaiseNilObjectException("vlc parameter is nil"); \
        return nullptr;                                  \
    }

static REALobject NewAsNode(REALobject vlc, REALstring name) {
    MEDIA_FACTORY("NewAsNode", libvlc_media_new_as_node, vlc);
    rbText text(name);
    return NewVLCMediaQRV(vlcfn::_libvlc_media_new_as_node(instance, text.GetUTF8()), vlc, false);
}

static REALobject MediaWithURL(REALobject vlc, REALstring url) {
    MEDIA_FACTORY("MediaWithURL", libvlc_media_new_location, vlc);
    rbText text(url);
    return NewVLCMediaQRV(vlcfn::_libvlc_media_new_location(instance, text.GetUTF8()), vlc, false);
}

static REALobject MediaWithPath(REALobject vlc, REALstring path) {
    MEDIA_FACTORY("MediaWithPath", libvlc_media_new_path, vlc);
    rbText text(path);
    return NewVLCMediaQRV(vlcfn::_libvlc_media_new_path(instance, text.GetUTF8()), vlc, false);
}

static REALobject MediaWithFile(REALobject vlc, REALfolderItem file) {
    MEDIA_FACTORY("MediaWithFile", libvlc_media_new_path, vlc);
    if (file != nullptr) REALLockObject(file);
    char* path = UnixFilePathUTF8(file);
    if (file != nullptr) REALUnlockObject(file);
    libvlc_media_t* media = vlcfn::_libvlc_media_new_path(instance, path);
    free(path);
    return NewVLCMediaQRV(media, vlc, false);
}

static REALobject MediaWithFileDescriptor(REALobject vlc, RBInteger fd) {
    MEDIA_FACTORY("MediaWithFD", libvlc_media_new_fd, vlc);
    return NewVLCMediaQRV(vlcfn::_libvlc_media_new_fd(instance, static_cast<int>(fd)), vlc, false);
}

// Bytes in memory go to a temporary file that libvlc opens by its path. The
// file stays in /tmp after the media is gone; a failed media deletes it.
static REALobject MediaWithData(REALobject vlc, const void* bytes, int64_t size) {
    TRACEF("%p", "vlc", static_cast<void*>(vlc));
    TRACE("MediaWithData");
    if (!VLC_NEED(libvlc_media_new_fd)) return nullptr;
    libvlc_instance_t* instance = InstanceArgument(vlc);
    if (instance == nullptr) {
        RaiseNilObjectException("vlc parameter is nil");
        return nullptr;
    }
    char* path = static_cast<char*>(calloc(kTempPathSize, 1));
    if (path == nullptr) {
        RaiseException("OutOfMemoryException", "Failed to allocate memory.");
        return nullptr;
    }
    strcpy(path, "/tmp/temp.XXXXXXXXXX");
    TRACEF("%s", "path before", path);
    int fd = mkstemps(path, 0);
    TRACEF("%s", "path after", path);
    TRACEF("%d", "fd", fd);

    REALobject result = nullptr;
    if (fd >= 0) {
        ssize_t written = write(fd, bytes, static_cast<size_t>(size));
        TRACEF("%d", "errno", errno);
        TRACEF("%lld", "len", static_cast<long long>(written));
        TRACEF("%lu", "data.size", static_cast<unsigned long>(size));
        if (written == size) {
            close(fd);
            fd = -1;
            // Guarded by the descriptor function, opened by path: kept as it is.
            if (vlcfn::_libvlc_media_new_fd != nullptr) {
                libvlc_media_t* media = vlcfn::_libvlc_media_new_path(instance, path);
                TRACEF("%p", "fileno", static_cast<void*>(media));
                if (media != nullptr) {
                    TRACE("NewVLCMediaQRV");
                    result = REALnewInstance("VLCMediaQRV");
                    if (result != nullptr) {
                        NoteLibvlcHolder(result);
                        MediaData& d = MediaOf(result);
                        d.handle = reinterpret_cast<int64_t>(media);
                        d.vlc = vlc;
                        REALLockObject(vlc);
                        // The descriptor stays -1, so the destructor never frees
                        // this path: the file and its name outlive the object.
                        d.tempFD = -1;
                        d.tempPath = path;
                        DeliberatelyKept(path);
                    } else if (vlcfn::_libvlc_media_release != nullptr) {
                        vlcfn::_libvlc_media_release(media);
                    }
                }
            }
        }
    }
    TRACEF("%p", "result", static_cast<void*>(result));
    if (fd >= 3) close(fd);
    if (result == nullptr) {
        unlink(path);
        free(path);
    }
    return result;
}

static REALobject MediaWithDataMemoryBlock(REALobject vlc, REALmemoryBlock data) {
    TRACE("MediaWithDataM");
    TRACEF("%p", "data", static_cast<void*>(data));
    const void* bytes = data != nullptr ? REALMemoryBlockGetPtr(data) : nullptr;
    int64_t size = data != nullptr ? REALMemoryBlockGetSize(data) : 0;
    if (bytes == nullptr || size < 0) size = 0;
    return MediaWithData(vlc, bytes != nullptr ? bytes : "", size);
}

static REALobject MediaWithDataString(REALobject vlc, REALstring data) {
    TRACE("MediaWithDataS");
    TRACEF("%p", "data", static_cast<void*>(data));
    rbData raw(data);
    int64_t size = raw.pointer != nullptr && raw.length > 0 ? raw.length : 0;
    return MediaWithData(vlc, raw.pointer != nullptr ? raw.pointer : "", size);
}

// ---- constructors and destructor ---------------------------------------------

// The libvlc media and the instance go back. A constructor run again ends them
// first, as the destructor would; only the destructor closes the descriptor.
// libvlc frees the media's event manager with its last reference: the managers
// listening there are detached first.
static void LetGoOfMedia(REALobject self) {
    EndEventsFrom(self);
    ReleaseHandle(MediaOf(self).handle, vlcfn::_libvlc_media_release);
}

static void EndMedia(REALobject self) {
    LetGoOfMedia(self);
    MediaData& d = MediaOf(self);
    d.handle = 0;
    ReleaseField(d.vlc);
}

static void VLCMediaConstructorClone(REALobject self, REALobject original) {
    NoteLibvlcHolder(self);
    TRACE("VLCMediaConstructorClone");
    EndMedia(self);
    if (!VLC_NEED(libvlc_media_duplicate)) return;
    int64_t source = HandleOf(original, VLCMediaQRVClass);
    if (source == 0) {
        RaiseNilObjectException("original parameter is nil");
        return;
    }
    MediaOf(self).tempFD = -1;
    auto* originalMedia = reinterpret_cast<libvlc_media_t*>(source);
    MediaOf(self).handle =
        reinterpret_cast<int64_t>(KeepBlockForDuplicate(originalMedia, vlcfn::_libvlc_media_duplicate(originalMedia)));
}

static void VLCMediaConstructorLocation(REALobject self, REALobject vlc, REALstring url) {
    NoteLibvlcHolder(self);
    MediaOf(self).tempFD = -1;
    TRACE("VLCMediaConstructorLocation");
    EndMedia(self);
    if (!VLC_NEED(libvlc_media_new_location)) return;
    libvlc_instance_t* instance = InstanceArgument(vlc);
    if (instance == nullptr) {
        RaiseNilObjectException("vlc parameter is nil");
        return;
    }
    rbText text(url);
    MediaOf(self).handle = reinterpret_cast<int64_t>(vlcfn::_libvlc_media_new_location(instance, text.GetUTF8()));
}

// The descriptor test is on the value alone, so an object whose Clone
// constructor raised (descriptor 0 in the host's zero-filled data) closes 0.
static void VLCMediaDestructor(REALobject self) {
    EndMedia(self);
    MediaData& d = MediaOf(self);
    if (d.tempFD >= 0) {
        TRACEF("%d", "close fd", d.tempFD);
        close(d.tempFD);
        d.tempFD = -1;
        // A failed Clone constructor leaves descriptor 0 with no path; unlink
        // of a null path only fails with EFAULT, so it is skipped.
        if (d.tempPath != nullptr) unlink(d.tempPath);
        free(d.tempPath);
        d.tempPath = nullptr;
    }
    ForgetLibvlcHolder(self);
}

static void SetHandle(REALobject self, RBInteger, RBInteger value) {
    WriteHandle(MediaOf(self).handle, value, vlcfn::_libvlc_media_retain, "_libvlc_media_retain",
                [self] { LetGoOfMedia(self); });
}

// ---- members -----------------------------------------------------------------

static REALobject Clone(REALobject self) {
    GUARD_TFH(MediaOf(self).handle, "Clone", libvlc_media_duplicate, nullptr);
    libvlc_media_t* duplicate =
        KeepBlockForDuplicate(MediaHandle(self), vlcfn::_libvlc_media_duplicate(MediaHandle(self)));
    return NewVLCMediaQRV(duplicate, MediaOf(self).vlc, false);
}

// libvlc indexes its meta table with the number unchecked.
static bool MetaInRange(RBInteger meta, const char* methodName) {
    if (meta >= libvlc_meta_Title && meta <= libvlc_meta_DiscTotal) return true;
    RaiseOutOfBoundsException(meta, libvlc_meta_DiscTotal + 1, "meta", methodName);
    return false;
}

static void SetMeta(REALobject self, RBInteger meta, REALstring value) {
    GUARD_HTF(MediaOf(self).handle, "SetMeta", libvlc_media_set_meta, );
    if (!MetaInRange(meta, "SetMeta")) return;
    rbText text(value);
    vlcfn::_libvlc_media_set_meta(MediaHandle(self), static_cast<libvlc_meta_t>(meta), text.GetUTF8());
}

static REALstring GetMeta(REALobject self, RBInteger type) {
    GUARD_HTF(MediaOf(self).handle, "GetMeta", libvlc_media_get_meta, nullptr);
    if (!MetaInRange(type, "Meta")) return nullptr;
    return BuildStringUTF8Kept(vlcfn::_libvlc_media_get_meta(MediaHandle(self), static_cast<libvlc_meta_t>(type)));
}

static RBBoolean SaveMeta(REALobject self) {
    GUARD_TFH(MediaOf(self).handle, "SaveMeta", libvlc_media_save_meta, false);
    return LowByte(vlcfn::_libvlc_media_save_meta(MediaHandle(self)));
}

static void AddOption(REALobject self, REALstring options) {
    GUARD_HTF(MediaOf(self).handle, "AddOption", libvlc_media_add_option, );
    rbText text(options);
    vlcfn::_libvlc_media_add_option(MediaHandle(self), text.GetUTF8());
}

static void AddOptionFlag(REALobject self, REALstring options, uint32_t flags) {
    GUARD_HTF(MediaOf(self).handle, "AddOptionFlag", libvlc_media_add_option_flag, );
    rbText text(options);
    vlcfn::_libvlc_media_add_option_flag(MediaHandle(self), text.GetUTF8(), flags);
}

static int64_t GetDuration(REALobject self) {
    GUARD_HTF(MediaOf(self).handle, "GetDuration", libvlc_media_get_duration, 0);
    return vlcfn::_libvlc_media_get_duration(MediaHandle(self));
}

static REALstring GetMRL(REALobject self) {
    GUARD_HTF(MediaOf(self).handle, "GetMRL", libvlc_media_get_mrl, nullptr);
    return BuildStringUTF8Kept(vlcfn::_libvlc_media_get_mrl(MediaHandle(self)));
}

static RBInteger GetState(REALobject self) {
    GUARD_HTF(MediaOf(self).handle, "GetState", libvlc_media_get_state, 0);
    return static_cast<RBInteger>(vlcfn::_libvlc_media_get_state(MediaHandle(self)));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

static void Parse(REALobject self) {
    GUARD_TFH(MediaOf(self).handle, "Parse", libvlc_media_parse, );
    vlcfn::_libvlc_media_parse(MediaHandle(self));
}

static void ParseAsync(REALobject self) {
    GUARD_TFH(MediaOf(self).handle, "ParseAsync", libvlc_media_parse_async, );
    vlcfn::_libvlc_media_parse_async(MediaHandle(self));
}

static RBBoolean IsParsed(REALobject self) {
    GUARD_TFH(MediaOf(self).handle, "IsParsed", libvlc_media_is_parsed, false);
    return LowByte(vlcfn::_libvlc_media_is_parsed(MediaHandle(self)));
}

static REALobject SubItems(REALobject self) {
    GUARD_HTF(MediaOf(self).handle, "SubItems", libvlc_media_subitems, nullptr);
    return NewVLCMediaListQRV(vlcfn::_libvlc_media_subitems(MediaHandle(self)), MediaOf(self).vlc);
}

// The trace line is written again between the function and handle checks.
#define GUARD_TFTH(handle, traceName, fn, zero) \
    TRACE(traceName);                           \
    if (!VLC_NEED(fn)) return zero;             \
    TRACE(traceName);                           \
    if (!HandleReady(handle)) return zero

// The track array libvlc hands out is not released here.
static REALarray GetTracks(REALobject self) {
    GUARD_TFTH(MediaOf(self).handle, "GetTracks", libvlc_media_tracks_get, nullptr);
    libvlc_media_track_t** tracks = nullptr;
    uint32_t count = vlcfn::_libvlc_media_tracks_get(MediaHandle(self), &tracks);
    TRACEF("%lld", "count", static_cast<long long>(count));
    TRACEF("%p", "tracks", static_cast<void*>(tracks));
    REALarray array = REALCreateArray(kArrayOfObjects, -1);
    if (array == nullptr || tracks == nullptr || count == 0) return array;
    for (uint32_t i = 0; i < count; ++i) {
        TRACEF("%lld", "i", static_cast<long long>(i));
        REALobject track = tracks[i] != nullptr ? NewVLCMediaTrackQRV(tracks[i]) : nullptr;
        REALInsertArrayValueObject(array, ArrayUpperBound(array) + 1, track);
        if (track != nullptr) REALUnlockObject(track);
    }
    return array;
}

static REALarray GetTrackInfo(REALobject self) {
    GUARD_TFTH(MediaOf(self).handle, "GetTrackInfo", libvlc_media_get_tracks_info, nullptr);
    REALarray array = REALCreateArray(kArrayOfObjects, -1);
    TRACEF("%lu", "sizeof(libvlc_media_track_info_t)", 28UL);
    libvlc_media_track_info_t* info = nullptr;
    int count = vlcfn::_libvlc_media_get_tracks_info(MediaHandle(self), &info);
    TRACEF("%d", "n", count);
    TRACEF("%p", "v", static_cast<void*>(info));
    if (info == nullptr) return array;
    const auto* bytes = reinterpret_cast<const uint8_t*>(info);
    for (int i = 0; i < count; ++i) {
        TRACEF("%lld", "i", static_cast<long long>(i));
        REALobject record = NewVLCMediaTrackInfoQRV(bytes + 28 * static_cast<size_t>(i));
        TRACEF("%p", "o", static_cast<void*>(record));
        if (array != nullptr) REALInsertArrayValueObject(array, i, record);
        if (record != nullptr) REALUnlockObject(record);
    }
    TRACE("free...");
    if (vlcfn::_libvlc_free != nullptr) vlcfn::_libvlc_free(info);
    TRACEF("%p", "result", static_cast<void*>(array));
    return array;
}

#pragma GCC diagnostic pop

static REALobject GetStats(REALobject self) {
    GUARD_TFH(MediaOf(self).handle, "GetStats", libvlc_media_get_stats, nullptr);
    libvlc_media_stats_t stats;
    memset(&stats, 0, sizeof stats);
    if (!LowByte(vlcfn::_libvlc_media_get_stats(MediaHandle(self), &stats))) return nullptr;
    return NewVLCMediaStatsQRV(&stats);
}

// The tag lives in libvlc, so every wrapper of one media shares it.
static RBInteger GetTag(REALobject self, RBInteger) {
    GUARD_HTF(MediaOf(self).handle, "GetTag", libvlc_media_get_user_data, 0);
    return reinterpret_cast<RBInteger>(vlcfn::_libvlc_media_get_user_data(MediaHandle(self)));
}

static void SetTag(REALobject self, RBInteger, RBInteger value) {
    GUARD_HTF(MediaOf(self).handle, "SetTag", libvlc_media_set_user_data, );
    vlcfn::_libvlc_media_set_user_data(MediaHandle(self), reinterpret_cast<void*>(value));
}

// ---- parsing with options, slaves ---------------------------------------------

static RBBoolean ParseWithOptions(REALobject self, RBInteger flags, RBInteger timeout) {
    GUARD_HTF(MediaOf(self).handle, "ParseWithOptions", libvlc_media_parse_with_options, false);
    return vlcfn::_libvlc_media_parse_with_options(MediaHandle(self), static_cast<libvlc_media_parse_flag_t>(flags),
                                                   static_cast<int>(timeout)) == 0;
}

static void ParseStop(REALobject self) {
    GUARD_HTF(MediaOf(self).handle, "ParseStop", libvlc_media_parse_stop, );
    vlcfn::_libvlc_media_parse_stop(MediaHandle(self));
}

static RBInteger GetParsedStatus(REALobject self) {
    GUARD_HTF(MediaOf(self).handle, "ParsedStatus", libvlc_media_get_parsed_status, 0);
    return static_cast<RBInteger>(vlcfn::_libvlc_media_get_parsed_status(MediaHandle(self)));
}

// libvlc 3.0 marks any other slave type unreachable (undefined in a release build).
bool SlaveTypeInRange(RBInteger type, const char* methodName) {
    if (type == libvlc_media_slave_type_subtitle || type == libvlc_media_slave_type_audio) return true;
    RaiseOutOfBoundsException(type, libvlc_media_slave_type_audio + 1, "type", methodName);
    return false;
}

static RBBoolean AddSlave(REALobject self, RBInteger type, RBInteger priority, REALstring uri) {
    GUARD_HTF(MediaOf(self).handle, "AddSlave", libvlc_media_slaves_add, false);
    if (!SlaveTypeInRange(type, "AddSlave")) return false;
    rbText text(uri);
    return vlcfn::_libvlc_media_slaves_add(MediaHandle(self), static_cast<libvlc_media_slave_type_t>(type),
                                           static_cast<unsigned>(priority), text.GetUTF8()) == 0;
}

static void ClearSlaves(REALobject self) {
    GUARD_HTF(MediaOf(self).handle, "ClearSlaves", libvlc_media_slaves_clear, );
    vlcfn::_libvlc_media_slaves_clear(MediaHandle(self));
}

// The array is copied into records, then handed back to libvlc, which needs
// its release function for that: both are tested before the call.
static REALobject GetSlaves(REALobject self) {
    GUARD_HTF(MediaOf(self).handle, "Slaves", libvlc_media_slaves_get, nullptr);
    if (!VLC_NEED(libvlc_media_slaves_release)) return nullptr;
    libvlc_media_slave_t** slaves = nullptr;
    unsigned count = vlcfn::_libvlc_media_slaves_get(MediaHandle(self), &slaves);
    REALobject head = NewVLCMediaSlaveQRV(slaves, count);
    vlcfn::_libvlc_media_slaves_release(slaves, count);
    return head;
}

// ---- class record ------------------------------------------------------------

namespace {

REALproperty kProperties[] = {
    QRV_PROPERTY("Handle", "Integer", ReadHandle<VLCMediaQRVClass>, SetHandle),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", MediaData, vlc),
    QRV_PROPERTY("Tag", "Integer", GetTag, SetTag),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCMediaConstructorClone, "Constructor(original as VLCMediaQRV)"),
    QRV_METHOD(VLCMediaConstructorLocation, "Constructor(vlc as VLCInstanceQRV, URL as string)"),
    QRV_METHOD(VLCMediaDestructor, "Destructor"),
    QRV_METHOD(Clone, "Clone as VLCMediaQRV"),
    QRV_METHOD(SetMeta, "SetMeta(meta as integer, value as string)"),
    QRV_METHOD(GetMeta, "Meta(type as integer) as string"),
    QRV_METHOD(SaveMeta, "SaveMeta as Boolean"),
    QRV_METHOD(AddOption, "AddOption(options as string)"),
    QRV_METHOD(AddOptionFlag, "AddOptionFlag(options as string, flags as UInt32)"),
    QRV_METHOD(GetDuration, "Duration as Int64"),
    QRV_METHOD(GetMRL, "MRL as string"),
    QRV_METHOD(GetState, "State as integer"),
    QRV_METHOD(Parse, "Parse"),
    QRV_METHOD(ParseAsync, "ParseAsync"),
    QRV_METHOD(IsParsed, "IsParsed as Boolean"),
    QRV_METHOD(SubItems, "SubItems as VLCMediaListQRV"),
    QRV_METHOD(GetTracks, "Tracks as VLCMediaTrackQRV()"),
    QRV_METHOD(GetTrackInfo, "TrackInfos as VLCMediaTrackInfoQRV()"),
    QRV_METHOD(GetStats, "Stats as VLCMediaStatsQRV"),
    QRV_METHOD(ParseWithOptions, "ParseWithOptions(flags as integer, timeout as integer) as boolean"),
    QRV_METHOD(ParseStop, "ParseStop"),
    QRV_METHOD(GetParsedStatus, "ParsedStatus as integer"),
    QRV_METHOD(AddSlave, "AddSlave(type as integer, priority as integer, uri as string) as boolean"),
    QRV_METHOD(ClearSlaves, "ClearSlaves"),
    QRV_METHOD(GetSlaves, "Slaves as VLCMediaSlaveQRV"),
};

REALmethodDefinition kSharedMethods[] = {
    QRV_METHOD(NewAsNode, "NewAsNode(vlc as VLCInstanceQRV, name as string) as VLCMediaQRV"),
    QRV_METHOD(MediaWithURL, "MediaWithURL(vlc as VLCInstanceQRV, URL as string) as VLCMediaQRV"),
    QRV_METHOD(MediaWithPath, "MediaWithPath(vlc as VLCInstanceQRV, Path as string) as VLCMediaQRV"),
    QRV_METHOD(MediaWithFile, "MediaWithFile(vlc as VLCInstanceQRV, file as folderitem) as VLCMediaQRV"),
    QRV_METHOD(MediaWithFileDescriptor, "MediaWithFileDescriptor(vlc as VLCInstanceQRV, fd as integer) as VLCMediaQRV"),
    QRV_METHOD(MediaWithDataMemoryBlock, "MediaWithData(vlc as VLCInstanceQRV, data as memoryblock) as VLCMediaQRV"),
    QRV_METHOD(MediaWithDataString, "MediaWithData(vlc as VLCInstanceQRV, data as string) as VLCMediaQRV"),
    QRV_METHOD(MediaWithMemoryBlock, "MediaWithMemoryBlock(vlc as VLCInstanceQRV, data as MemoryBlock) as VLCMediaQRV"),
};

REALconstant kConstants[] = {
    QRV_CONSTANT("kStateNothingSpecial = 0"),
    QRV_CONSTANT("kStateOpening = 1"),
    QRV_CONSTANT("kStateBuffering = 2"),
    QRV_CONSTANT("kStatePlaying = 3"),
    QRV_CONSTANT("kStatePaused = 4"),
    QRV_CONSTANT("kStateStopped = 5"),
    QRV_CONSTANT("kStateEnded = 6"),
    QRV_CONSTANT("kStateError = 7"),
    QRV_CONSTANT("kOptionTrusted = 2"),
    QRV_CONSTANT("kOptionUnique = 16"),
    QRV_CONSTANT("kTrackTypeUnknown = -1"),
    QRV_CONSTANT("kTrackTypeAudio = 0"),
    QRV_CONSTANT("kTrackTypeVideo = 1"),
    QRV_CONSTANT("kTrackTypeText = 2"),
    QRV_CONSTANT("kMetaTitle = 0"),
    QRV_CONSTANT("kMetaArtist = 1"),
    QRV_CONSTANT("kMetaGenre = 2"),
    QRV_CONSTANT("kMetaCopyright = 3"),
    QRV_CONSTANT("kMetaAlbum = 4"),
    QRV_CONSTANT("kMetaTrackNumber = 5"),
    QRV_CONSTANT("kMetaDescription = 6"),
    QRV_CONSTANT("kMetaRating = 7"),
    QRV_CONSTANT("kMetaDate = 8"),
    QRV_CONSTANT("kMetaSetting = 9"),
    QRV_CONSTANT("kMetaURL = 10"),
    QRV_CONSTANT("kMetaLanguage = 11"),
    QRV_CONSTANT("kMetaNowPlaying = 12"),
    QRV_CONSTANT("kMetaPublisher = 13"),
    QRV_CONSTANT("kMetaEncodedBy = 14"),
    QRV_CONSTANT("kMetaArtworkURL = 15"),
    QRV_CONSTANT("kMetaTrackID = 16"),
    QRV_CONSTANT("kMetaTrackTotal = 17"),
    QRV_CONSTANT("kMetaDirector = 18"),
    QRV_CONSTANT("kMetaSeason = 19"),
    QRV_CONSTANT("kMetaEpisode = 20"),
    QRV_CONSTANT("kMetaShowName = 21"),
    QRV_CONSTANT("kMetaActors = 22"),
    QRV_CONSTANT("kMetaAlbumArtist = 23"),
    QRV_CONSTANT("kMetaDiscNumber = 24"),
    QRV_CONSTANT("kMetaDiscTotal = 25"),
    QRV_CONSTANT("kParseLocal = 0"),
    QRV_CONSTANT("kParseNetwork = 1"),
    QRV_CONSTANT("kFetchLocal = 2"),
    QRV_CONSTANT("kFetchNetwork = 4"),
    QRV_CONSTANT("kDoInteract = 8"),
    QRV_CONSTANT("kParsedStatusSkipped = 1"),
    QRV_CONSTANT("kParsedStatusFailed = 2"),
    QRV_CONSTANT("kParsedStatusTimeout = 3"),
    QRV_CONSTANT("kParsedStatusDone = 4"),
    QRV_CONSTANT("kSlaveTypeSubtitle = 0"),
    QRV_CONSTANT("kSlaveTypeAudio = 1"),
};

}  // namespace

REALclassDefinition VLCMediaQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCMediaQRV",
    .dataSize = sizeof(MediaData),
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
