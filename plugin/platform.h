// The only place where Linux and macOS differ. Each function has one
// implementation per platform (platform_linux.cpp, platform_apple.mm).
#pragma once

#include <cstdint>

#include "plugin/host_abi.h"

// Writes one trace line, adding the line break, in a single write.
void PlatformWriteTraceLine(const char* line);

// Queues task(data) to run later on the main thread, in posting order, never
// inline on the posting thread.
using MainThreadTask = void (*)(void* data);
void PlatformPostToMainThread(MainThreadTask task, void* data);
// Main thread only: runs task(data) on the main thread once `milliseconds` have passed.
void PlatformRunOnMainThreadAfter(unsigned milliseconds, MainThreadTask task, void* data);

// A folder item's POSIX path in the form the platform's file system names it
// (macOS: decomposed (NFD) UTF-8; Linux: the native bytes unchanged), newly
// allocated with malloc, or null. pathText is the item's "NativePath" (hosts
// from 2013.0 on) or, with isURL, its "URLPath" (older hosts) as UTF-8.
char* PlatformFolderItemPath(const char* pathText, bool isURL);

// ---- frames drawn into a host context (macOS: CGContextRef, Linux: cairo_t*) --

// Takes and gives back a reference on a host drawing context.
void* PlatformRetainContext(void* context);
void PlatformReleaseContext(void* context);
// What images over a frame buffer need (macOS: a direct data provider and a
// device RGB colour space; Linux: nothing).
void PlatformCreateFrameSource(uint8_t* buffer, size_t size, void** provider, void** colorSpace);
void PlatformReleaseFrameSource(void* provider, void* colorSpace);
// An image over the buffer's little-endian BGRX pixels, without a copy.
void* PlatformCreateFrameImage(void* provider, void* colorSpace, uint8_t* buffer, int64_t width, int64_t height,
                               int64_t rowBytes);
void PlatformReleaseFrameImage(void* image);
// Draws the image into the context at (0, 0, width, height) and flushes.
void PlatformDrawFrameImage(void* context, void* image, int64_t width, int64_t height);
// A copy of the image as the CGImageQRV class keeps it; null where there is no such class.
void* PlatformCopyFrameImage(void* image);
void* PlatformRetainCopiedImage(void* image);
void PlatformReleaseCopiedImage(void* image);

// ---- host picture pixels -----------------------------------------------------

// Pixel layouts of a locked picture's rows, as 32-bit words.
enum class PixelLayout {
    AlphaHigh,   // CG alpha-first little-endian words: 0xAARRGGBB, red taken from the frame's first byte
    AlphaLow,    // CG alpha-last words: 0xRRGGBBAA, red taken from the frame's first byte
    NativeARGB,  // cairo ARGB32/RGB24: native-endian 0xAARRGGBB, the frame's own red, green and blue
    RowTable,    // gd true-colour rows: 0x00RRGGBB, alpha 0 is opaque
    Other,
};

struct PictureGeometry {
    uint8_t* base = nullptr;   // first row (row tables: null)
    uint8_t** rows = nullptr;  // row tables
    int64_t width = 0, height = 0, rowBytes = 0, bitsPerPixel = 0;
    PixelLayout layout = PixelLayout::Other;
};

// Reads the geometry of a locked picture description of this platform's
// native storage (Core Graphics bitmap context on macOS, cairo context on Linux).
bool PlatformNativePictureGeometry(const REALpictureDescription& description, PictureGeometry& out);
// Storage type of the platform's native pictures (8 on macOS, 12 on Linux).
uint32_t PlatformNativePictureType();
// Tells the native storage that its pixels were written.
void PlatformNativePictureWritten(const REALpictureDescription& description);

// ---- snapshot files ------------------------------------------------------------

// Decodes the PNG file at `path` into width x height pixels (rows of width * 4
// bytes, scaled when the file has another size), in the byte order
// WritePictureRow reads frames in on this platform: B, G, R, x on Linux (cairo),
// R, G, B, x on macOS (Core Graphics). False when the file is no readable PNG.
bool PlatformDecodePNGFile(const char* path, uint8_t* pixels, int64_t width, int64_t height);
