// The Mac host's side, on the Apple stand-ins: pictures are Core Graphics
// bitmap contexts in the host's pixel format (premultiplied alpha in the high
// byte of native little-endian words), and CGImageQRV objects own the image
// the plug-in stores in them.
#include <CoreGraphics/CoreGraphics.h>

#include <cstring>

#include "host/emulator_internal.h"

namespace emu {

PictureKind NativePictureKind() { return PictureKind::CGContext; }

void NewMacPicture(ObjectInfo* info) {
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    info->cgContext =
        CGBitmapContextCreate(nullptr, static_cast<size_t>(info->width), static_cast<size_t>(info->height), 8, 0, space,
                              uint32_t{kCGImageAlphaPremultipliedFirst} | kCGBitmapByteOrder32Little);
    CGColorSpaceRelease(space);
}

uint8_t* MacPictureRows(const ObjectInfo* info, int64_t* rowBytes) {
    auto context = static_cast<CGContextRef>(info->cgContext);
    *rowBytes = static_cast<int64_t>(CGBitmapContextGetBytesPerRow(context));
    return static_cast<uint8_t*>(CGBitmapContextGetData(context));
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
