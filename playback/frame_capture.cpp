// Frame capture of VLCMediaPlayerQRV: libvlc decodes RV32 frames (little-endian
// BGRX, no padding) straight into the player's buffer through three callbacks;
// the readers copy the latest frame out. One frame mutex lives as long as the
// player and guards the buffer, HasNewFrame and the current image.
#include "playback/frame_capture.h"

#include <vlc/vlc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "plugin/exceptions.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/memory.h"
#include "plugin/picture.h"
#include "plugin/platform.h"

namespace {

// Holds a player's frame mutex for a scope (there is none only when the
// constructor could not allocate it).
class FrameLock {
public:
    explicit FrameLock(const MediaPlayerData& d) : mutex_(d.frameMutex) {
        if (mutex_ != nullptr) pthread_mutex_lock(mutex_);
    }
    ~FrameLock() {
        if (mutex_ != nullptr) pthread_mutex_unlock(mutex_);
    }
    FrameLock(const FrameLock&) = delete;
    FrameLock& operator=(const FrameLock&) = delete;

private:
    pthread_mutex_t* mutex_;
};

MediaPlayerData& Frame(void* opaque) { return PlayerOf(static_cast<REALobject>(opaque)); }

// The image over the buffer, the target context and the buffer itself; the
// mutex stays.
void ReleaseFrameState(MediaPlayerData& d) {
    PlatformReleaseFrameSource(d.dataProvider, d.colorSpace);
    d.colorSpace = nullptr;
    d.dataProvider = nullptr;
    PlatformReleaseFrameImage(d.currentImage);
    d.currentImage = nullptr;
    PlatformReleaseContext(d.targetContext);
    d.targetContext = nullptr;
    free(d.frameBuffer);
    d.frameBuffer = nullptr;
    d.frameBufferBytes = 0;
}

// ---- the callbacks libvlc's video thread calls ---------------------------------

// The mutex is held from here to MyUnlock, while libvlc writes the frame.
void* MyLock(void* opaque, void** planes) {
    TRACEF("%p, %p", "MyLock", opaque, static_cast<void*>(planes));
    MediaPlayerData& d = Frame(opaque);
    if (d.frameMutex != nullptr) pthread_mutex_lock(d.frameMutex);
    // libvlc passes room for three planes. Only one-plane formats are let
    // through, but no plane is left a stray pointer.
    planes[0] = planes[1] = planes[2] = d.frameBuffer;
    return nullptr;
}

void MyUnlock(void* opaque, void* picture, void* const* planes) {
    TRACEF("%p, %p, %p", "MyUnlock", opaque, picture, static_cast<const void*>(planes));
    MediaPlayerData& d = Frame(opaque);
    if (d.frameMutex != nullptr) pthread_mutex_unlock(d.frameMutex);
}

// Marks the frame and draws it into the target context, under the mutex so that
// VideoSetCallback cannot swap the buffer or the context meanwhile.
void MyDisplay(void* opaque, void* picture) {
    TRACEF("%p, %p", "MyDisplay", opaque, picture);
    MediaPlayerData& d = Frame(opaque);
    FrameLock hold(d);
    d.hasNewFrame = 1;
    PlatformReleaseFrameImage(d.currentImage);
    d.currentImage = nullptr;
    if (d.targetContext == nullptr) return;
    d.currentImage = PlatformCreateFrameImage(d.dataProvider, d.colorSpace, d.frameBuffer, d.frameWidth, d.frameHeight,
                                              d.frameRowBytes);
    TRACEF("%p", "image", d.currentImage);
    TRACE("Draw CGImage...");
    if (d.currentImage != nullptr) PlatformDrawFrameImage(d.targetContext, d.currentImage, d.drawWidth, d.drawHeight);
}

void RaiseBufferFailure(int64_t size) {
    char message[99];
    snprintf(message, sizeof message, "Failed to allocate %lld bytes of memory for picture buffer.",
             static_cast<long long>(size));
    RaiseException("OutOfMemoryException", message);
}

}  // namespace

void FreeImages(MediaPlayerData& d) {
    if (d.frameMutex != nullptr) {
        pthread_mutex_destroy(d.frameMutex);
        free(d.frameMutex);
        d.frameMutex = nullptr;
    }
    ReleaseFrameState(d);
}

RBBoolean GetHasNewFrame(REALobject self, RBInteger) {
    MediaPlayerData& d = PlayerOf(self);
    FrameLock hold(d);
    return d.hasNewFrame;
}

void SetHasNewFrame(REALobject self, RBInteger, RBBoolean value) {
    MediaPlayerData& d = PlayerOf(self);
    FrameLock hold(d);
    d.hasNewFrame = value;
}

// A size below 1 or a failed allocation raises and leaves the frame state and
// libvlc's callbacks as they were. A running video output keeps the format it
// was opened with until it restarts, so the buffer never shrinks: a larger
// earlier frame still fits.
void VideoSetCallback(REALobject self, RBInteger width, RBInteger height, RBInteger contextHandle) {
    TRACE("VideoSetCallback");
    TRACE("VideoSetCallback");
    if (!VLC_NEED(libvlc_video_set_callbacks)) return;
    TRACE("VideoSetCallback");
    if (!VLC_NEED(libvlc_video_set_format)) return;
    MediaPlayerData& d = PlayerOf(self);
    if (!HandleReady(d.handle)) return;

    TRACEF("%lld", "twidth", static_cast<long long>(width));
    TRACEF("%lld", "theight", static_cast<long long>(height));
    // Wrapping products are computed unsigned; their sign then says they failed.
    int64_t size = static_cast<int64_t>(static_cast<uint64_t>(width) * 4 * static_cast<uint64_t>(height));
    TRACEF("%lld", "size", static_cast<long long>(size));
    bool fits = size >= 1 && width >= 1 && height >= 1 && width <= INT32_MAX / 4 && height <= INT32_MAX;
    if (!fits) {
        RaiseBufferFailure(size);
        return;
    }
    int64_t bytes = std::max(size, d.frameBufferBytes);
    auto* fresh = static_cast<uint8_t*>(calloc(static_cast<size_t>(bytes), 1));
    if (fresh == nullptr) {
        RaiseBufferFailure(size);
        return;
    }
    {
        FrameLock hold(d);
        ReleaseFrameState(d);
        d.drawX = 0;
        d.drawY = 0;
        d.drawWidth = width;
        d.drawHeight = height;
        d.frameWidth = width;
        d.frameHeight = height;
        d.frameRowBytes = width * 4;
        d.frameBuffer = fresh;
        d.frameBufferBytes = bytes;
        PlatformCreateFrameSource(d.frameBuffer, static_cast<size_t>(size), &d.dataProvider, &d.colorSpace);
        d.targetContext = PlatformRetainContext(reinterpret_cast<void*>(contextHandle));
        TRACEF("%p", "cgcontext", d.targetContext);
    }
    // The format first: an output opening in between finds the callbacks only
    // with a format that fits the buffer.
    auto player = reinterpret_cast<libvlc_media_player_t*>(d.handle);
    vlcfn::_libvlc_video_set_format(player, "RV32", static_cast<unsigned>(width), static_cast<unsigned>(height),
                                    static_cast<unsigned>(width * 4));
    vlcfn::_libvlc_video_set_callbacks(player, MyLock, MyUnlock, MyDisplay, self);
}

bool CaptureTakesFormat(MediaPlayerData& d, const char* chroma, uint32_t width, uint32_t height, uint32_t pitch) {
    int64_t bufferBytes;
    {
        FrameLock hold(d);
        bufferBytes = d.frameBuffer != nullptr ? d.frameBufferBytes : -1;
    }
    if (bufferBytes < 0) return true;
    // libvlc copies each row of width x 4 bytes at `pitch` into plane 0; these
    // chromas have one plane of 4 bytes a pixel.
    bool packed = false;
    for (const char* known : {"RV32", "RGBA", "BGRA"})
        packed = packed || (chroma != nullptr && strcmp(chroma, known) == 0);
    char message[200];
    if (!packed) {
        snprintf(message, sizeof message,
                 "VideoSetFormat: frames are captured as one plane of 4 bytes a pixel (RV32, RGBA or BGRA), not %.20s.",
                 chroma != nullptr ? chroma : "nil");
    } else if (uint64_t{pitch} < uint64_t{width} * 4 || uint64_t{pitch} * height > static_cast<uint64_t>(bufferBytes)) {
        snprintf(message, sizeof message,
                 "VideoSetFormat: %u x %u with pitch %u does not fit the frame buffer of %lld bytes.", width, height,
                 pitch, static_cast<long long>(bufferBytes));
    } else {
        return true;
    }
    RaiseException("OutOfBoundsException", message);
    return false;
}

void* GetMemory(REALobject self) {
    MediaPlayerData& d = PlayerOf(self);
    FrameLock hold(d);
    if (d.frameBuffer == nullptr) return nullptr;
    d.hasNewFrame = 0;
    return d.frameBuffer;
}

REALmemoryBlock CopyMemory(REALobject self) {
    MediaPlayerData& d = PlayerOf(self);
    FrameLock hold(d);
    if (d.frameBuffer == nullptr) return nullptr;
    d.hasNewFrame = 0;
    int64_t n = d.frameHeight * d.frameRowBytes;
    if (n < 1) return nullptr;
    REALmemoryBlock block = nullptr;
    void* bytes = nullptr;
    try {
        block = NewMemoryBlock(n);
        bytes = block != nullptr ? REALMemoryBlockGetPtr(block) : nullptr;
    } catch (const std::exception& e) {
        TRACEF("%s", "Got C++ exception in REALBuildMemoryblock: ", e.what());
    }
    if (bytes == nullptr) {
        if (block != nullptr) REALUnlockObject(block);
        TRACEF("%lld", "Error: Failed to allocate memoryblock", static_cast<long long>(n));
        char message[100];
        snprintf(message, sizeof message, "Failed to allocate a memoryblock with %lld bytes in size.",
                 static_cast<long long>(n));
        RaiseException("OutOfMemoryException", message);
        return nullptr;
    }
    memcpy(bytes, d.frameBuffer, static_cast<size_t>(n));
    return block;
}

// A nil destination with a frame to copy raises instead of writing to address 0.
RBBoolean CopyToMemory(REALobject self, void* dest, RBInteger offset, RBInteger rowBytes) {
    MediaPlayerData& d = PlayerOf(self);
    FrameLock hold(d);
    int64_t lineBytes = d.frameWidth * 4;
    if (offset < 0 || lineBytes > rowBytes || d.frameBuffer == nullptr) return false;
    if (dest == nullptr) {
        RaiseNilObjectException("dest parameter is nil");
        return false;
    }
    d.hasNewFrame = 0;
    uint8_t* out = static_cast<uint8_t*>(dest) + offset;
    const uint8_t* in = d.frameBuffer;
    if (rowBytes == d.frameRowBytes) {  // rows back to back on both sides: one copy
        memcpy(out, in, static_cast<size_t>(lineBytes * d.frameHeight));
        return true;
    }
    for (int64_t r = 0; r < d.frameHeight; ++r)
        memcpy(out + r * rowBytes, in + r * d.frameRowBytes, static_cast<size_t>(lineBytes));
    return true;
}

namespace {

// The row writers are the picture copies' whole cost: where the toolchain and
// the loader support it, each also comes in an AVX2 build picked at load time.
#if defined(__x86_64__) && defined(__linux__)
#define QRV_ROW_WRITER __attribute__((target_clones("avx2", "default")))
#else
#define QRV_ROW_WRITER
#endif

// One row of RV32 frame pixels as host picture words; the first byte of each
// source pixel is taken as red. Each source pixel is read as the little-endian
// word b0 | b1 << 8 | b2 << 16 | b3 << 24, which keeps the loops vectorisable.
uint32_t SourceWord(const uint8_t* in, int64_t x) {
    uint32_t word;
    memcpy(&word, in + 4 * x, sizeof word);
    return word;
}

// 0xFF000000 + b0 * 65536 + b1 * 256 + b2.
QRV_ROW_WRITER void WriteRowAlphaHigh(uint32_t* __restrict out, const uint8_t* __restrict in, int64_t width) {
    for (int64_t x = 0; x < width; ++x) {
        uint32_t w = SourceWord(in, x);
        out[x] = 0xFF000000u | (w & 0xFFu) << 16 | (w & 0xFF00u) | (w >> 16 & 0xFFu);
    }
}

// b0 * 16777216 + b1 * 65536 + b2 * 256 + 0xFF.
QRV_ROW_WRITER void WriteRowAlphaLow(uint32_t* __restrict out, const uint8_t* __restrict in, int64_t width) {
    for (int64_t x = 0; x < width; ++x) out[x] = __builtin_bswap32(SourceWord(in, x)) | 0xFFu;
}

// cairo's native-endian 0xAARRGGBB is the frame's little-endian BGRX word, made opaque.
QRV_ROW_WRITER void WriteRowNativeARGB(uint32_t* __restrict out, const uint8_t* __restrict in, int64_t width) {
    for (int64_t x = 0; x < width; ++x) out[x] = SourceWord(in, x) | 0xFF000000u;
}

// gd rows: b0 + b1 * 256 + b2 * 65536, alpha 0 (opaque), so b2 lands in red.
QRV_ROW_WRITER void WriteRowTable(uint32_t* __restrict out, const uint8_t* __restrict in, int64_t width) {
    for (int64_t x = 0; x < width; ++x) out[x] = SourceWord(in, x) & 0x00FFFFFFu;
}

}  // namespace

void WritePictureRow(PixelLayout layout, uint32_t* out, const uint8_t* in, int64_t width) {
    switch (layout) {
        case PixelLayout::AlphaHigh:
            WriteRowAlphaHigh(out, in, width);
            break;
        case PixelLayout::AlphaLow:
            WriteRowAlphaLow(out, in, width);
            break;
        case PixelLayout::NativeARGB:
            WriteRowNativeARGB(out, in, width);
            break;
        case PixelLayout::RowTable:
            WriteRowTable(out, in, width);
            break;
        case PixelLayout::Other:
            break;
    }
}

REALpicture CopyPicture(REALobject self) {
    TRACE("CopyPicture");
    TRACE("PictureEditor");
    MediaPlayerData& d = PlayerOf(self);
    int64_t w = d.frameWidth, h = d.frameHeight;
    PictureWriter writer(w, h);
    if (writer.picture == nullptr) return nullptr;
    {
        FrameLock hold(d);
        d.hasNewFrame = 0;
        const uint8_t* buffer = d.frameBuffer;
        for (int64_t y = 0; y < h && buffer != nullptr; ++y) {
            auto* row = reinterpret_cast<uint32_t*>(writer.GetRow(y));
            if (row == nullptr) continue;
            const uint8_t* source = buffer + y * w * 4;
            WritePictureRow(writer.geometry.layout, row, source, w);
        }
    }
    REALpicture picture = writer.RenderPictureWriter();
    TRACEF("%p", "result picture", static_cast<void*>(picture));
    return picture;
}

REALobject CopyCGImage(REALobject self) {
    TRACE("CopyCGImage");
    MediaPlayerData& d = PlayerOf(self);
    void* copy;
    {
        FrameLock hold(d);
        if (d.currentImage == nullptr) {
            d.currentImage = PlatformCreateFrameImage(d.dataProvider, d.colorSpace, d.frameBuffer, d.frameWidth,
                                                      d.frameHeight, d.frameRowBytes);
            TRACEF("%p", "image", d.currentImage);
            if (d.currentImage == nullptr) return nullptr;
        }
        copy = PlatformCopyFrameImage(d.currentImage);
        d.hasNewFrame = 0;
    }
    if (copy == nullptr) return nullptr;
    TRACEF("%p", "NewCGImageQRV", copy);
    REALobject image = REALnewInstance("CGImageQRV");
    if (image != nullptr) {
        // The CGImageQRV class keeps its image at byte 48 and a type tag at byte 64.
        auto* bytes = reinterpret_cast<uint8_t*>(image);
        void* retained = PlatformRetainCopiedImage(copy);
        memcpy(bytes + 48, &retained, sizeof retained);
        uint64_t tag = 0x52424346;
        memcpy(bytes + 64, &tag, sizeof tag);
    }
    PlatformReleaseCopiedImage(copy);
    TRACEF("%p", "result CGImage", static_cast<void*>(image));
    return image;
}
