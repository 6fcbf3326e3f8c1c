// macOS side of the platform layer: NSLog trace sink, the main dispatch queue,
// decomposed paths through Core Foundation. Mirrors platform_linux.cpp.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <sys/types.h>  // off_t, which the Core Graphics declarations take

#include <cstdlib>
#include <cstring>

#include "plugin/platform.h"

// Foundation's NSLog has C linkage and takes a (toll-free bridged) format string.
extern "C" void NSLog(CFStringRef format, ...);

void PlatformWriteTraceLine(const char* line) { NSLog(CFSTR("%s\n"), line); }

void PlatformPostToMainThread(MainThreadTask task, void* data) {
    dispatch_async_f(dispatch_get_main_queue(), data, task);
}

void PlatformRunOnMainThreadAfter(unsigned milliseconds, MainThreadTask task, void* data) {
    dispatch_after_f(dispatch_time(DISPATCH_TIME_NOW, int64_t{milliseconds} * NSEC_PER_MSEC), dispatch_get_main_queue(),
                     data, task);
}

namespace {

// Releases a Core Foundation object at the end of the scope.
class CFRef {
public:
    explicit CFRef(CFTypeRef object) : object_(object) {}
    ~CFRef() {
        if (object_ != nullptr) CFRelease(object_);
    }
    CFRef(const CFRef&) = delete;
    CFRef& operator=(const CFRef&) = delete;
    CFTypeRef get() const { return object_; }

private:
    CFTypeRef object_;
};

}  // namespace

char* PlatformFolderItemPath(const char* pathText, bool isURL) {
    if (pathText == nullptr || *pathText == 0) return nullptr;
    CFRef text(CFStringCreateWithCString(kCFAllocatorDefault, pathText, kCFStringEncodingUTF8));
    if (text.get() == nullptr) return nullptr;
    auto string = static_cast<CFStringRef>(text.get());
    CFRef url(isURL ? CFURLCreateWithString(kCFAllocatorDefault, string, nullptr)
                    : CFURLCreateWithFileSystemPath(kCFAllocatorDefault, string, kCFURLPOSIXPathStyle, false));
    if (url.get() == nullptr) return nullptr;
    CFRef posix(CFURLCopyFileSystemPath(static_cast<CFURLRef>(url.get()), kCFURLPOSIXPathStyle));
    if (posix.get() == nullptr) return nullptr;
    CFRef mutablePath(CFStringCreateMutableCopy(kCFAllocatorDefault, 0, static_cast<CFStringRef>(posix.get())));
    if (mutablePath.get() == nullptr) return nullptr;
    auto decomposed = static_cast<CFMutableStringRef>(const_cast<void*>(mutablePath.get()));
    CFStringNormalize(decomposed, kCFStringNormalizationFormD);
    CFIndex size = 6 * CFStringGetLength(decomposed) + 16;
    char* result = static_cast<char*>(calloc(static_cast<size_t>(size), 1));
    if (result == nullptr) return nullptr;
    if (!CFStringGetCString(decomposed, result, size, kCFStringEncodingUTF8)) {
        free(result);
        return nullptr;
    }
    return result;
}

// ---- frames drawn into a CGContextRef -----------------------------------------

#include <CoreGraphics/CoreGraphics.h>

#include "plugin/trace.h"

void* PlatformRetainContext(void* context) {
    return context != nullptr ? CGContextRetain(static_cast<CGContextRef>(context)) : nullptr;
}

void PlatformReleaseContext(void* context) {
    if (context != nullptr) CGContextRelease(static_cast<CGContextRef>(context));
}

static const void* MyCGDataProviderGetBytePointerCallback(void* info) {
    TRACEF("%p", "MyCGDataProviderGetBytePointerCallback", info);
    return info;
}

// A direct provider over the whole buffer; it never frees the buffer.
void PlatformCreateFrameSource(uint8_t* buffer, size_t size, void** provider, void** colorSpace) {
    static const CGDataProviderDirectCallbacks callbacks = {0, MyCGDataProviderGetBytePointerCallback, nullptr, nullptr,
                                                            nullptr};
    *provider = CGDataProviderCreateDirect(buffer, static_cast<off_t>(size), &callbacks);
    *colorSpace = CGColorSpaceCreateDeviceRGB();
}

void PlatformReleaseFrameSource(void* provider, void* colorSpace) {
    if (colorSpace != nullptr) CGColorSpaceRelease(static_cast<CGColorSpaceRef>(colorSpace));
    if (provider != nullptr) CGDataProviderRelease(static_cast<CGDataProviderRef>(provider));
}

// kCGBitmapByteOrder32Little | kCGImageAlphaNoneSkipFirst: 32-bit little-endian
// words, high byte unused, so blue, green, red, unused in memory.
constexpr CGBitmapInfo kFrameBitmapInfo = 0x2006;

void* PlatformCreateFrameImage(void* provider, void* colorSpace, uint8_t*, int64_t width, int64_t height,
                               int64_t rowBytes) {
    if (provider == nullptr || width < 1 || height < 1) return nullptr;
    return CGImageCreate(static_cast<size_t>(width), static_cast<size_t>(height), 8, 32, static_cast<size_t>(rowBytes),
                         static_cast<CGColorSpaceRef>(colorSpace), kFrameBitmapInfo,
                         static_cast<CGDataProviderRef>(provider), nullptr, false, kCGRenderingIntentDefault);
}

void PlatformReleaseFrameImage(void* image) {
    if (image != nullptr) CGImageRelease(static_cast<CGImageRef>(image));
}

void PlatformDrawFrameImage(void* context, void* image, int64_t width, int64_t height) {
    auto c = static_cast<CGContextRef>(context);
    CGContextDrawImage(c, CGRectMake(0, 0, static_cast<CGFloat>(width), static_cast<CGFloat>(height)),
                       static_cast<CGImageRef>(image));
    CGContextFlush(c);
}

// CGImageCreateCopy may share the pixels of the image, here the frame buffer
// behind the direct provider, which the player overwrites and frees: the copy
// kept by a CGImageQRV object is drawn into memory of its own.
void* PlatformCopyFrameImage(void* image) {
    if (image == nullptr) return nullptr;
    auto source = static_cast<CGImageRef>(image);
    size_t width = CGImageGetWidth(source), height = CGImageGetHeight(source);
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    CGContextRef context = CGBitmapContextCreate(nullptr, width, height, 8, 0, space, kFrameBitmapInfo);
    CGColorSpaceRelease(space);
    if (context == nullptr) return nullptr;
    CGContextDrawImage(context, CGRectMake(0, 0, static_cast<CGFloat>(width), static_cast<CGFloat>(height)), source);
    CGImageRef copy = CGBitmapContextCreateImage(context);
    CGContextRelease(context);
    return copy;
}

void* PlatformRetainCopiedImage(void* image) { return CGImageRetain(static_cast<CGImageRef>(image)); }
void PlatformReleaseCopiedImage(void* image) { PlatformReleaseFrameImage(image); }

// ---- host pictures: Core Graphics bitmap contexts ------------------------------

uint32_t PlatformNativePictureType() { return kPictureCGBitmapContext; }

bool PlatformNativePictureGeometry(const REALpictureDescription& description, PictureGeometry& out) {
    auto context = static_cast<CGContextRef>(description.pictureData);
    TRACEF("%p", "b", description.pictureData);
    if (description.pictureType != kPictureCGBitmapContext) {
        TRACE("picture type is not pictureCGBitmapContext.");
        return false;
    }
    if (context == nullptr) {
        TRACE("context ref is nil");
        return false;
    }
    out.base = static_cast<uint8_t*>(CGBitmapContextGetData(context));
    out.bitsPerPixel = static_cast<int64_t>(CGBitmapContextGetBitsPerPixel(context));
    out.width = static_cast<int64_t>(CGBitmapContextGetWidth(context));
    out.height = static_cast<int64_t>(CGBitmapContextGetHeight(context));
    out.rowBytes = static_cast<int64_t>(CGBitmapContextGetBytesPerRow(context));
    CGImageAlphaInfo alpha = CGBitmapContextGetAlphaInfo(context);
    CGBitmapInfo info = CGBitmapContextGetBitmapInfo(context);
    TRACEF("%lu", "Width", static_cast<unsigned long>(out.width));
    TRACEF("%lu", "Height", static_cast<unsigned long>(out.height));
    TRACEF("%lu", "BitsPerComponent", static_cast<unsigned long>(CGBitmapContextGetBitsPerComponent(context)));
    TRACEF("%lu", "BitsPerPixel", static_cast<unsigned long>(out.bitsPerPixel));
    TRACEF("%lu", "BytesPerRow", static_cast<unsigned long>(out.rowBytes));
    TRACEF("%lld", "lMacAlphaInfo", static_cast<long long>(alpha));
    TRACEF("%u", "BitmapInfo", static_cast<unsigned>(info));
    static const char* const names[] = {"",
                                        "kCGImageAlphaPremultipliedLast",
                                        "kCGImageAlphaPremultipliedFirst",
                                        "kCGImageAlphaLast",
                                        "kCGImageAlphaFirst",
                                        "kCGImageAlphaNoneSkipLast",
                                        "kCGImageAlphaNoneSkipFirst"};
    if (alpha >= 1 && alpha <= 6) TRACE(names[alpha]);
    bool first =
        alpha == kCGImageAlphaPremultipliedFirst || alpha == kCGImageAlphaFirst || alpha == kCGImageAlphaNoneSkipFirst;
    bool last =
        alpha == kCGImageAlphaPremultipliedLast || alpha == kCGImageAlphaLast || alpha == kCGImageAlphaNoneSkipLast;
    bool little = (info & kCGBitmapByteOrderMask) == kCGBitmapByteOrder32Little;
    // Little-endian 32-bit words: alpha first is the high byte, alpha last the low one.
    if (little && first)
        out.layout = PixelLayout::AlphaHigh;
    else if (little && last)
        out.layout = PixelLayout::AlphaLow;
    return out.base != nullptr;
}

void PlatformNativePictureWritten(const REALpictureDescription&) {}

// ---- snapshot files ------------------------------------------------------------

bool PlatformDecodePNGFile(const char* path, uint8_t* pixels, int64_t width, int64_t height) {
    CGDataProviderRef file = CGDataProviderCreateWithFilename(path);
    if (file == nullptr) return false;
    CGImageRef image = CGImageCreateWithPNGDataProvider(file, nullptr, false, kCGRenderingIntentDefault);
    CGDataProviderRelease(file);
    if (image == nullptr) return false;
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    // Big-endian words with the skipped byte last: R, G, B, x in memory.
    CGContextRef context = CGBitmapContextCreate(
        pixels, static_cast<size_t>(width), static_cast<size_t>(height), 8, static_cast<size_t>(width) * 4, space,
        static_cast<uint32_t>(kCGImageAlphaNoneSkipLast) | static_cast<uint32_t>(kCGBitmapByteOrder32Big));
    CGColorSpaceRelease(space);
    if (context != nullptr) {
        CGContextDrawImage(context, CGRectMake(0, 0, static_cast<CGFloat>(width), static_cast<CGFloat>(height)), image);
        CGContextRelease(context);
    }
    CGImageRelease(image);
    return context != nullptr;
}
