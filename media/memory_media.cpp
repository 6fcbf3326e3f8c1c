// VLCMediaQRV.MediaWithMemoryBlock: a media whose bytes libvlc reads straight
// from a host memory block through its stream callbacks, without a copy. The
// block stays locked for as long as a libvlc media can read it, which can be
// longer than the wrapper (a player holds the media), and a duplicate shares
// the original's stream: libvlc announces the end of each with MediaFreed,
// sent inside its last libvlc_media_release on whichever thread releases it.
#include <sys/types.h>
#include <vlc/vlc.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>

#include "media/instance.h"
#include "media/media.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/platform.h"

namespace {

// What every open of the media reads; lives until libvlc frees the last media reading it.
struct BlockSource {
    REALmemoryBlock block;  // locked
    const uint8_t* bytes;
    uint64_t size;            // read once, when the media is made
    std::atomic<int> medias;  // libvlc medias reading it: the first and its duplicates
};

// The freed notice of one media reading a source.
struct BlockUse {
    BlockSource* source;
    libvlc_media_t* media;
};

// Which source each live media reads, for its duplicates. Written on the main
// thread, erased on whichever thread frees a media.
std::mutex gSourcesLock;
std::unordered_map<libvlc_media_t*, BlockSource*>& Sources() {
    static auto* sources = new std::unordered_map<libvlc_media_t*, BlockSource*>;
    return *sources;
}

// One open of the media, with its own position: libvlc may open a media more
// than once (a parse, then playback), also at the same time.
struct BlockReader {
    const BlockSource* source;
    uint64_t position;
};

int OpenBlock(void* opaque, void** reader, uint64_t* size) {
    const auto* source = static_cast<const BlockSource*>(opaque);
    *reader = new (std::nothrow) BlockReader{source, 0};
    *size = source->size;
    return *reader != nullptr ? 0 : -1;
}

ssize_t ReadBlock(void* opaque, unsigned char* buffer, size_t length) {
    auto* reader = static_cast<BlockReader*>(opaque);
    const BlockSource& source = *reader->source;
    size_t count = static_cast<size_t>(std::min<uint64_t>(length, source.size - reader->position));
    if (count > 0) memcpy(buffer, source.bytes + reader->position, count);
    reader->position += count;
    return static_cast<ssize_t>(count);
}

// The end itself is a valid position (the next read answers 0); past it is not.
int SeekBlock(void* opaque, uint64_t offset) {
    auto* reader = static_cast<BlockReader*>(opaque);
    if (offset > reader->source->size) return -1;
    reader->position = offset;
    return 0;
}

void CloseBlock(void* opaque) { delete static_cast<BlockReader*>(opaque); }

// Main thread only: host objects are unlocked nowhere else.
void GiveBackBlock(void* data) {
    auto* source = static_cast<BlockSource*>(data);
    REALUnlockObject(source->block);
    delete source;
}

// Inside libvlc's last release of one media, on whichever thread releases it,
// holding the media's event lock and whatever its caller holds (set_media: the
// player's lock). The last unlock can destroy the block and so run host code (a
// subclass's destructor) that calls the player: never here, also on the main
// thread, but posted to its main loop.
void OnMediaFreed(const libvlc_event_t*, void* data) {
    auto* use = static_cast<BlockUse*>(data);
    BlockSource* source = use->source;
    {
        std::lock_guard<std::mutex> hold(gSourcesLock);
        Sources().erase(use->media);
    }
    delete use;
    if (source->medias.fetch_sub(1) == 1) PlatformPostToMainThread(GiveBackBlock, source);
}

// One more media reads the source until libvlc frees it; false when libvlc
// would not tell us that. The caller holds the media, so it cannot be freed
// before it is counted.
bool TrackMedia(libvlc_media_t* media, BlockSource* source) {
    auto* use = new (std::nothrow) BlockUse{source, media};
    libvlc_event_manager_t* events = use != nullptr ? vlcfn::_libvlc_media_event_manager(media) : nullptr;
    if (events == nullptr || vlcfn::_libvlc_event_attach(events, libvlc_MediaFreed, OnMediaFreed, use) != 0) {
        delete use;
        return false;
    }
    source->medias.fetch_add(1);
    std::lock_guard<std::mutex> hold(gSourcesLock);
    Sources()[media] = source;
    return true;
}

}  // namespace

// Checks in the order of the other MediaWith factories: trace, the functions,
// the instance, then the data. Without the freed notice nothing would tell
// when the block can go back, so its functions are needed as well.
REALobject MediaWithMemoryBlock(REALobject vlc, REALmemoryBlock data) {
    TRACE("MediaWithMemoryBlock");
    if (!VLC_NEED(libvlc_media_new_callbacks) || !VLC_NEED(libvlc_media_event_manager) ||
        !VLC_NEED(libvlc_event_attach) || !VLC_NEED(libvlc_media_release))
        return nullptr;
    auto* instance = reinterpret_cast<libvlc_instance_t*>(HandleOf(vlc, VLCInstanceQRVClass));
    if (instance == nullptr) {
        RaiseNilObjectException("vlc parameter is nil");
        return nullptr;
    }
    if (data == nullptr) {
        RaiseNilObjectException("data parameter is nil");
        return nullptr;
    }
    const auto* bytes = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(data));
    RBInteger size = REALMemoryBlockGetSize(data);
    auto* source =
        new (std::nothrow) BlockSource{data, bytes, bytes != nullptr && size > 0 ? static_cast<uint64_t>(size) : 0, 0};
    if (source == nullptr) {
        RaiseException("OutOfMemoryException", "Failed to allocate memory.");
        return nullptr;
    }
    REALLockObject(data);
    libvlc_media_t* media =
        vlcfn::_libvlc_media_new_callbacks(instance, OpenBlock, ReadBlock, SeekBlock, CloseBlock, source);
    if (media == nullptr || !TrackMedia(media, source)) {
        // Not tracked: this release frees the media without telling us.
        if (media != nullptr) vlcfn::_libvlc_media_release(media);
        GiveBackBlock(source);
        return nullptr;
    }
    REALobject object = NewVLCMediaQRV(media, vlc, false);
    if (object == nullptr) vlcfn::_libvlc_media_release(media);  // gives the block back through MediaFreed
    return object;
}

libvlc_media_t* KeepBlockForDuplicate(libvlc_media_t* original, libvlc_media_t* duplicate) {
    if (duplicate == nullptr) return nullptr;
    BlockSource* source;
    {
        std::lock_guard<std::mutex> hold(gSourcesLock);
        auto it = Sources().find(original);
        if (it == Sources().end()) return duplicate;
        source = it->second;
    }
    // The original is alive (the caller holds it), so is its source.
    if (TrackMedia(duplicate, source)) return duplicate;
    if (vlcfn::_libvlc_media_release != nullptr) vlcfn::_libvlc_media_release(duplicate);
    return nullptr;
}
