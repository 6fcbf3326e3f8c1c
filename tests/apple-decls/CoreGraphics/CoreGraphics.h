// Declarations of the Core Graphics functions the Apple platform file calls,
// with their public signatures: for the syntax check on Linux and for the
// stand-ins under tests/apple-standins.
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

extern "C" {
typedef double CGFloat;
struct CGPoint {
    CGFloat x, y;
};
struct CGSize {
    CGFloat width, height;
};
struct CGRect {
    CGPoint origin;
    CGSize size;
};
typedef struct CGContext* CGContextRef;
typedef struct CGImage* CGImageRef;
typedef struct CGColorSpace* CGColorSpaceRef;
typedef struct CGDataProvider* CGDataProviderRef;
typedef uint32_t CGBitmapInfo;
typedef int32_t CGColorRenderingIntent;
typedef uint32_t CGImageAlphaInfo;
enum {
    kCGImageAlphaPremultipliedLast = 1,
    kCGImageAlphaPremultipliedFirst = 2,
    kCGImageAlphaLast = 3,
    kCGImageAlphaFirst = 4,
    kCGImageAlphaNoneSkipLast = 5,
    kCGImageAlphaNoneSkipFirst = 6,
};
enum { kCGBitmapByteOrderMask = 0x7000, kCGBitmapByteOrder32Little = (2 << 12), kCGBitmapByteOrder32Big = (4 << 12) };
enum { kCGRenderingIntentDefault = 0 };

struct CGDataProviderDirectCallbacks {
    unsigned int version;
    const void* (*getBytePointer)(void* info);
    void (*releaseBytePointer)(void* info, const void* pointer);
    size_t (*getBytesAtPosition)(void* info, void* buffer, off_t pos, size_t cnt);
    void (*releaseInfo)(void* info);
};

CGContextRef CGContextRetain(CGContextRef c);
void CGContextRelease(CGContextRef c);
void CGContextDrawImage(CGContextRef c, CGRect rect, CGImageRef image);
void CGContextFlush(CGContextRef c);
CGDataProviderRef CGDataProviderCreateDirect(void* info, off_t size, const CGDataProviderDirectCallbacks* callbacks);
void CGDataProviderRelease(CGDataProviderRef provider);
CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void);
void CGColorSpaceRelease(CGColorSpaceRef space);
CGImageRef CGImageCreate(size_t width, size_t height, size_t bitsPerComponent, size_t bitsPerPixel, size_t bytesPerRow,
                         CGColorSpaceRef space, CGBitmapInfo bitmapInfo, CGDataProviderRef provider,
                         const CGFloat* decode, bool shouldInterpolate, CGColorRenderingIntent intent);
CGImageRef CGImageCreateCopy(CGImageRef image);
size_t CGImageGetWidth(CGImageRef image);
size_t CGImageGetHeight(CGImageRef image);
CGImageRef CGImageRetain(CGImageRef image);
void CGImageRelease(CGImageRef image);
void* CGBitmapContextGetData(CGContextRef context);
size_t CGBitmapContextGetWidth(CGContextRef context);
size_t CGBitmapContextGetHeight(CGContextRef context);
size_t CGBitmapContextGetBitsPerComponent(CGContextRef context);
size_t CGBitmapContextGetBitsPerPixel(CGContextRef context);
size_t CGBitmapContextGetBytesPerRow(CGContextRef context);
CGImageAlphaInfo CGBitmapContextGetAlphaInfo(CGContextRef context);
CGBitmapInfo CGBitmapContextGetBitmapInfo(CGContextRef context);
CGDataProviderRef CGDataProviderCreateWithFilename(const char* filename);
CGImageRef CGImageCreateWithPNGDataProvider(CGDataProviderRef source, const CGFloat* decode, bool shouldInterpolate,
                                            CGColorRenderingIntent intent);
CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent, size_t bytesPerRow,
                                   CGColorSpaceRef space, uint32_t bitmapInfo);
CGImageRef CGBitmapContextCreateImage(CGContextRef context);
}

inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
    return CGRect{{x, y}, {width, height}};
}
