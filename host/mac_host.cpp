// The Mac host's side, on the Apple stand-ins: pictures are Core Graphics
// bitmap contexts (by default in the host's pixel format: premultiplied alpha
// in the high byte of little-endian words), and CGImageQRV objects own the
// image the plug-in stores in them.
#include <CoreGraphics/CoreGraphics.h>

#include <cstring>

#include "host/emulator_internal.h"

namespace emu {

PictureKind NativePictureKind() { return PictureKind::CGContext; }

void NewMacPicture(ObjectInfo* info) {
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    info->cgContext =
        CGBitmapContextCreate(nullptr, static_cast<size_t>(info->width), static_cast<size_t>(info->height), 8, 0, space,
                              Host::Current()->options().pictureBitmapInfo);
    CGColorSpaceRelease(space);
    if (info->cgContext == nullptr) Fault("HostOptions::pictureBitmapInfo is no format of a bitmap context");
}

namespace {

// The pixel's bytes as one word in the context's byte order, alpha rotated into the high byte.
uint8_t* PixelAt(const ObjectInfo* info, int x, int y, bool* little, bool* alphaLast) {
    auto context = static_cast<CGContextRef>(info->cgContext);
    CGImageAlphaInfo alpha = CGBitmapContextGetAlphaInfo(context);
    *little = (CGBitmapContextGetBitmapInfo(context) & kCGBitmapByteOrderMask) == kCGBitmapByteOrder32Little;
    *alphaLast = alpha == kCGImageAlphaPremultipliedLast || alpha == kCGImageAlphaNoneSkipLast;
    return static_cast<uint8_t*>(CGBitmapContextGetData(context)) + y * CGBitmapContextGetBytesPerRow(context) + 4 * x;
}

}  // namespace

uint32_t MacPixelARGB(const ObjectInfo* info, int x, int y) {
    bool little, alphaLast;
    const uint8_t* p = PixelAt(info, x, y, &little, &alphaLast);
    uint32_t word = little ? uint32_t{p[3]} << 24 | p[2] << 16 | p[1] << 8 | p[0]
                           : uint32_t{p[0]} << 24 | p[1] << 16 | p[2] << 8 | p[3];
    return alphaLast ? word >> 8 | word << 24 : word;
}

void SetMacPixelARGB(const ObjectInfo* info, int x, int y, uint32_t argb) {
    bool little, alphaLast;
    uint8_t* p = PixelAt(info, x, y, &little, &alphaLast);
    uint32_t word = alphaLast ? argb << 8 | argb >> 24 : argb;
    for (int i = 0; i < 4; ++i) p[little ? i : 3 - i] = static_cast<uint8_t>(word >> 8 * i);
}

void ReleaseMacPicture(ObjectInfo* info) { CGContextRelease(static_cast<CGContextRef>(info->cgContext)); }

// The object owns one reference on its image once the tag says it holds one.
void ReleaseImageField(ObjectInfo* info) {
    auto* bytes = static_cast<uint8_t*>(info->address);
    uint64_t tag;
    memcpy(&tag, bytes + kImageTagField, sizeof tag);
    if (tag != kImageTag) return;
    CGImageRef image;
    memcpy(&image, bytes + kImageField, sizeof image);
    CGImageRelease(image);
}

}  // namespace emu
