// Core Graphics stand-in: device RGB colour spaces, direct and file data
// providers, images of 8-bit components in 32-bit pixels read in the order
// their bitmap info gives, PNG files decoded through cairo, bitmap contexts
// whose memory CGContextDrawImage really writes.
#include <CoreGraphics/CoreGraphics.h>
#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "tests/apple-standins/standin.h"

using standin::Fail;
using standin::Kind;

struct CGColorSpace : standin::Object {
    CGColorSpace() : Object(Kind::ColorSpace) {}
};

struct CGDataProvider : standin::Object {
    CGDataProvider() : Object(Kind::DataProvider) {}
    void Dispose() override {
        if (callbacks.releaseInfo != nullptr) callbacks.releaseInfo(info);
        bytes.clear();
        bytes.shrink_to_fit();
    }
    void* info = nullptr;  // direct providers
    off_t size = 0;
    CGDataProviderDirectCallbacks callbacks = {};
    std::vector<uint8_t> bytes;  // file providers
};

// Pixels of 8-bit components in 32-bit words: where red, green, blue and alpha
// lie in memory, and whether alpha is used and premultiplied.
struct PixelFormat {
    int red, green, blue, alpha;
    bool hasAlpha, premultiplied;
};

struct CGImage : standin::Object {
    CGImage() : Object(Kind::Image) {}
    void Dispose() override {
        if (provider != nullptr) CGDataProviderRelease(provider);
        CGColorSpaceRelease(space);
        pixels.reset();
    }
    size_t width = 0, height = 0, rowBytes = 0;
    CGBitmapInfo info = 0;
    CGColorSpaceRef space = nullptr;
    CGDataProviderRef provider = nullptr;                // read when drawn
    std::shared_ptr<const std::vector<uint8_t>> pixels;  // or pixels of its own
};

struct CGContext : standin::Object {
    CGContext() : Object(Kind::Context) {}
    void Dispose() override {
        CGColorSpaceRelease(space);
        own.clear();
        own.shrink_to_fit();
    }
    size_t width = 0, height = 0, rowBytes = 0;
    CGBitmapInfo info = 0;
    CGColorSpaceRef space = nullptr;
    uint8_t* data = nullptr;
    std::vector<uint8_t> own;  // when the caller gave no memory
    // A window's context: drawing reaches `data`, the back buffer; the screen
    // (`shown`) shows it from the next CGContextFlush on.
    bool window = false;
    std::vector<uint8_t> shown;
};

namespace {

CGImage* ImageOf(CGImageRef image, const char* function) { return standin::As<CGImage>(image, Kind::Image, function); }
CGContext* ContextOf(CGContextRef context, const char* function) {
    return standin::As<CGContext>(context, Kind::Context, function);
}

// Little-endian words reverse the bytes of the big-endian (default) order;
// "first" puts alpha in the word's high byte, "last" in its low byte.
bool FormatOf(CGBitmapInfo info, PixelFormat& out) {
    uint32_t alpha = info & 0x1F, order = info & kCGBitmapByteOrderMask;
    if ((info & ~(0x1Fu | kCGBitmapByteOrderMask)) != 0 || alpha < 1 || alpha > 6) return false;
    if (order != 0 && order != kCGBitmapByteOrder32Little && order != kCGBitmapByteOrder32Big) return false;
    bool first =
        alpha == kCGImageAlphaPremultipliedFirst || alpha == kCGImageAlphaFirst || alpha == kCGImageAlphaNoneSkipFirst;
    int word[4] = {first ? 1 : 0, first ? 2 : 1, first ? 3 : 2, first ? 0 : 3};  // R, G, B, A from the high byte
    for (int& at : word) at = order == kCGBitmapByteOrder32Little ? 3 - at : at;
    out = {word[0], word[1],    word[2],
           word[3], alpha <= 4, alpha == kCGImageAlphaPremultipliedFirst || alpha == kCGImageAlphaPremultipliedLast};
    return true;
}

struct Colour {
    double r, g, b, a;  // 0..255, not premultiplied
};

Colour Read(const PixelFormat& f, const uint8_t* p) {
    double a = f.hasAlpha ? p[f.alpha] : 255;
    double scale = f.premultiplied && a > 0 ? 255 / a : 1;
    return {p[f.red] * scale, p[f.green] * scale, p[f.blue] * scale, a};
}

void Write(const PixelFormat& f, uint8_t* p, Colour c) {
    double scale = f.premultiplied ? c.a / 255 : 1;
    auto byte = [](double v) { return static_cast<uint8_t>(std::clamp(std::lround(v), 0L, 255L)); };
    p[f.red] = byte(c.r * scale), p[f.green] = byte(c.g * scale), p[f.blue] = byte(c.b * scale);
    p[f.alpha] = f.hasAlpha ? byte(c.a) : 0xFF;
}

}  // namespace

extern "C" {

CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void) { return standin::Adopt(new CGColorSpace); }

void CGColorSpaceRelease(CGColorSpaceRef space) {
    if (space != nullptr) standin::Release(space, Kind::ColorSpace, "CGColorSpaceRelease");
}

CGDataProviderRef CGDataProviderCreateDirect(void* info, off_t size, const CGDataProviderDirectCallbacks* callbacks) {
    if (callbacks == nullptr || callbacks->version != 0 || size < 0) return nullptr;
    if (callbacks->getBytePointer == nullptr)
        Fail("CGDataProviderCreateDirect: only byte-pointer providers are stood in for");
    auto* provider = new CGDataProvider;
    provider->info = info;
    provider->size = size;
    provider->callbacks = *callbacks;
    return standin::Adopt(provider);
}

CGDataProviderRef CGDataProviderCreateWithFilename(const char* filename) {
    std::ifstream file(filename, std::ios::binary);
    if (!file) return nullptr;
    auto* provider = new CGDataProvider;
    provider->bytes.assign(std::istreambuf_iterator<char>(file), {});
    provider->size = static_cast<off_t>(provider->bytes.size());
    return standin::Adopt(provider);
}

void CGDataProviderRelease(CGDataProviderRef provider) {
    if (provider != nullptr) standin::Release(provider, Kind::DataProvider, "CGDataProviderRelease");
}

// Refuses what Core Graphics refuses: no provider or colour space, another
// component or pixel size than 8/32, rows shorter than a pixel row, an
// unknown bitmap info, a provider too small for the rows.
CGImageRef CGImageCreate(size_t width, size_t height, size_t bitsPerComponent, size_t bitsPerPixel, size_t bytesPerRow,
                         CGColorSpaceRef space, CGBitmapInfo bitmapInfo, CGDataProviderRef provider,
                         const CGFloat* decode, bool, CGColorRenderingIntent) {
    if (provider == nullptr || space == nullptr) return nullptr;
    auto* source = standin::As<CGDataProvider>(provider, Kind::DataProvider, "CGImageCreate");
    standin::Checked(space, Kind::ColorSpace, "CGImageCreate");
    if (decode != nullptr) Fail("CGImageCreate: decode arrays are not stood in for");
    PixelFormat format;
    if (width < 1 || height < 1 || bitsPerComponent != 8 || bitsPerPixel != 32 || bytesPerRow < width * 4 ||
        !FormatOf(bitmapInfo, format))
        return nullptr;
    if (static_cast<size_t>(source->size) < bytesPerRow * (height - 1) + width * 4) return nullptr;
    auto* image = new CGImage;
    image->width = width, image->height = height, image->rowBytes = bytesPerRow, image->info = bitmapInfo;
    standin::Retain(space, Kind::ColorSpace, "CGImageCreate");
    image->space = space;
    standin::Retain(provider, Kind::DataProvider, "CGImageCreate");
    image->provider = provider;
    return standin::Adopt(image);
}

// Images are immutable: a copy shares the original's pixels (and provider).
CGImageRef CGImageCreateCopy(CGImageRef image) {
    if (image == nullptr) return nullptr;
    CGImage* original = ImageOf(image, "CGImageCreateCopy");
    auto* copy = new CGImage(*original);
    copy->refs = 1;
    if (copy->provider != nullptr) standin::Retain(copy->provider, Kind::DataProvider, "CGImageCreateCopy");
    standin::Retain(copy->space, Kind::ColorSpace, "CGImageCreateCopy");
    return standin::Adopt(copy);
}

CGImageRef CGImageRetain(CGImageRef image) {
    if (image != nullptr) standin::Retain(image, Kind::Image, "CGImageRetain");
    return image;
}

void CGImageRelease(CGImageRef image) {
    if (image != nullptr) standin::Release(image, Kind::Image, "CGImageRelease");
}

size_t CGImageGetWidth(CGImageRef image) { return image ? ImageOf(image, "CGImageGetWidth")->width : 0; }
size_t CGImageGetHeight(CGImageRef image) { return image ? ImageOf(image, "CGImageGetHeight")->height : 0; }

CGImageRef CGImageCreateWithPNGDataProvider(CGDataProviderRef source, const CGFloat* decode, bool,
                                            CGColorRenderingIntent) {
    if (source == nullptr) return nullptr;
    auto* provider = standin::As<CGDataProvider>(source, Kind::DataProvider, "CGImageCreateWithPNGDataProvider");
    if (decode != nullptr) Fail("CGImageCreateWithPNGDataProvider: decode arrays are not stood in for");
    if (provider->info != nullptr) Fail("CGImageCreateWithPNGDataProvider: only file providers are stood in for");
    struct Reader {
        const std::vector<uint8_t>* bytes;
        size_t at;
    } reader{&provider->bytes, 0};
    cairo_surface_t* png = cairo_image_surface_create_from_png_stream(
        [](void* closure, unsigned char* data, unsigned int length) {
            auto* r = static_cast<Reader*>(closure);
            if (r->bytes->size() - r->at < length) return CAIRO_STATUS_READ_ERROR;
            memcpy(data, r->bytes->data() + r->at, length);
            r->at += length;
            return CAIRO_STATUS_SUCCESS;
        },
        &reader);
    CGImage* image = nullptr;
    if (cairo_surface_status(png) == CAIRO_STATUS_SUCCESS) {
        cairo_surface_flush(png);
        image = new CGImage;
        image->width = static_cast<size_t>(cairo_image_surface_get_width(png));
        image->height = static_cast<size_t>(cairo_image_surface_get_height(png));
        image->rowBytes = static_cast<size_t>(cairo_image_surface_get_stride(png));
        // cairo's ARGB32: native (little-endian) words, premultiplied alpha in the high byte.
        image->info = uint32_t{kCGImageAlphaPremultipliedFirst} | kCGBitmapByteOrder32Little;
        const uint8_t* data = cairo_image_surface_get_data(png);
        image->pixels = std::make_shared<std::vector<uint8_t>>(data, data + image->rowBytes * image->height);
        image->space = CGColorSpaceCreateDeviceRGB();
        standin::Register(image);
    }
    cairo_surface_destroy(png);
    return image;
}

// Bitmap contexts take the RGB formats Core Graphics draws into: 8-bit
// components in 32-bit pixels, alpha premultiplied or skipped.
CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent, size_t bytesPerRow,
                                   CGColorSpaceRef space, uint32_t bitmapInfo) {
    if (space == nullptr) return nullptr;
    standin::Checked(space, Kind::ColorSpace, "CGBitmapContextCreate");
    uint32_t alpha = bitmapInfo & 0x1F;
    PixelFormat format;
    if (width < 1 || height < 1 || bitsPerComponent != 8 || !FormatOf(bitmapInfo, format) ||
        alpha == kCGImageAlphaFirst || alpha == kCGImageAlphaLast)
        return nullptr;
    // Rows Core Graphics chooses are padded; given rows must hold a pixel row.
    if (bytesPerRow == 0 && data == nullptr) bytesPerRow = (width * 4 + 31) / 32 * 32;
    if (bytesPerRow < width * 4) return nullptr;
    auto* context = new CGContext;
    context->width = width, context->height = height, context->rowBytes = bytesPerRow, context->info = bitmapInfo;
    standin::Retain(space, Kind::ColorSpace, "CGBitmapContextCreate");
    context->space = space;
    if (data == nullptr) {
        context->own.assign(bytesPerRow * height, 0);
        data = context->own.data();
    }
    context->data = static_cast<uint8_t*>(data);
    return standin::Adopt(context);
}

CGImageRef CGBitmapContextCreateImage(CGContextRef context) {
    if (context == nullptr) return nullptr;
    CGContext* c = ContextOf(context, "CGBitmapContextCreateImage");
    auto* image = new CGImage;
    image->width = c->width, image->height = c->height, image->rowBytes = c->rowBytes, image->info = c->info;
    image->pixels = std::make_shared<std::vector<uint8_t>>(c->data, c->data + c->rowBytes * c->height);
    standin::Retain(c->space, Kind::ColorSpace, "CGBitmapContextCreateImage");
    image->space = c->space;
    return standin::Adopt(image);
}

CGContextRef CGContextRetain(CGContextRef c) {
    if (c != nullptr) standin::Retain(c, Kind::Context, "CGContextRetain");
    return c;
}

void CGContextRelease(CGContextRef c) {
    if (c != nullptr) standin::Release(c, Kind::Context, "CGContextRelease");
}

void CGContextFlush(CGContextRef c) {
    CGContext* context = ContextOf(c, "CGContextFlush");
    if (context->window) context->shown.assign(context->data, context->data + context->rowBytes * context->height);
}

// Scales the image into `rect` (origin at the bottom left, as in Core
// Graphics), sampling the nearest pixel, and blends it over the context.
void CGContextDrawImage(CGContextRef c, CGRect rect, CGImageRef image) {
    CGContext* target = ContextOf(c, "CGContextDrawImage");
    if (image == nullptr) return;
    CGImage* source = ImageOf(image, "CGContextDrawImage");
    PixelFormat from, to;
    FormatOf(source->info, from);
    FormatOf(target->info, to);
    const uint8_t* pixels = source->pixels ? source->pixels->data() : nullptr;
    CGDataProvider* provider = nullptr;
    if (pixels == nullptr) {
        provider = standin::As<CGDataProvider>(source->provider, Kind::DataProvider, "CGContextDrawImage");
        pixels = static_cast<const uint8_t*>(provider->callbacks.getBytePointer(provider->info));
        if (pixels == nullptr) return;
    }
    double top = static_cast<double>(target->height) - (rect.origin.y + rect.size.height);
    for (size_t y = 0; y < target->height; ++y) {
        double v = (static_cast<double>(y) + 0.5 - top) / rect.size.height;
        if (!(v >= 0 && v < 1)) continue;
        const uint8_t* row = pixels + static_cast<size_t>(v * static_cast<double>(source->height)) * source->rowBytes;
        for (size_t x = 0; x < target->width; ++x) {
            double u = (static_cast<double>(x) + 0.5 - rect.origin.x) / rect.size.width;
            if (!(u >= 0 && u < 1)) continue;
            Colour in = Read(from, row + static_cast<size_t>(u * static_cast<double>(source->width)) * 4);
            uint8_t* out = target->data + y * target->rowBytes + x * 4;
            if (in.a < 255) {
                Colour under = Read(to, out);
                double k = in.a / 255, a = in.a + under.a * (1 - k);
                double w = a > 0 ? in.a / a : 0;
                in = {in.r * w + under.r * (1 - w), in.g * w + under.g * (1 - w), in.b * w + under.b * (1 - w), a};
            }
            Write(to, out, in);
        }
    }
    if (provider != nullptr && provider->callbacks.releaseBytePointer != nullptr)
        provider->callbacks.releaseBytePointer(provider->info, pixels);
}

void* CGBitmapContextGetData(CGContextRef context) {
    CGContext* c = ContextOf(context, "CGBitmapContextGetData");
    return c->window ? nullptr : c->data;  // a window's context is no bitmap context
}
size_t CGBitmapContextGetWidth(CGContextRef context) { return ContextOf(context, "CGBitmapContextGetWidth")->width; }
size_t CGBitmapContextGetHeight(CGContextRef context) { return ContextOf(context, "CGBitmapContextGetHeight")->height; }
size_t CGBitmapContextGetBitsPerComponent(CGContextRef context) {
    ContextOf(context, "CGBitmapContextGetBitsPerComponent");
    return 8;
}
size_t CGBitmapContextGetBitsPerPixel(CGContextRef context) {
    ContextOf(context, "CGBitmapContextGetBitsPerPixel");
    return 32;
}
size_t CGBitmapContextGetBytesPerRow(CGContextRef context) {
    return ContextOf(context, "CGBitmapContextGetBytesPerRow")->rowBytes;
}
CGImageAlphaInfo CGBitmapContextGetAlphaInfo(CGContextRef context) {
    return ContextOf(context, "CGBitmapContextGetAlphaInfo")->info & 0x1F;
}
CGBitmapInfo CGBitmapContextGetBitmapInfo(CGContextRef context) {
    return ContextOf(context, "CGBitmapContextGetBitmapInfo")->info;
}
}

void* standin::CreateWindowContext(size_t width, size_t height) {
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    CGContextRef context =
        CGBitmapContextCreate(nullptr, width, height, 8, width * 4, space,
                              uint32_t{kCGImageAlphaPremultipliedFirst} | kCGBitmapByteOrder32Little);
    CGColorSpaceRelease(space);
    CGContext* c = ContextOf(context, "CreateWindowContext");
    c->window = true;
    c->shown.assign(c->own.size(), 0);
    return context;
}

const uint8_t* standin::WindowShown(void* context) {
    return ContextOf(static_cast<CGContextRef>(context), "WindowShown")->shown.data();
}
