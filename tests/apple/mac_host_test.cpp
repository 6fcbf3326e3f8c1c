// The Mac host's side on the Apple stand-ins: folder-item paths, frames drawn into a Core Graphics
// context, CopyCGImage, bitmap-context pictures, and the stand-ins' own strictness.
#include <CoreGraphics/CoreGraphics.h>

#include <cstring>
#include <tuple>
#include <utility>

#include "tests/apple-standins/standin.h"
#include "tests/fakevlc/fakevlc_control.h"
#include "tests/support/test_support.h"

namespace {

using namespace emu;
using namespace qrvtest;
using namespace std::chrono_literals;

constexpr CGBitmapInfo kHostPixels = uint32_t{kCGImageAlphaPremultipliedFirst} | kCGBitmapByteOrder32Little;

// A bitmap context of the host's pixel format, or a window's context (what it
// shows); its pixels read as 0xAARRGGBB words.
struct Context {
    Context(size_t w, size_t height, bool isWindow = false) : width(w), window(isWindow) {
        CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
        ref = window ? static_cast<CGContextRef>(standin::CreateWindowContext(w, height))
                     : CGBitmapContextCreate(nullptr, w, height, 8, 0, space, kHostPixels);
        CGColorSpaceRelease(space);
    }
    ~Context() { CGContextRelease(ref); }
    uint32_t Pixel(int x, int y) const {
        uint32_t word;
        memcpy(&word,
               window ? standin::WindowShown(ref) + (y * width + x) * 4
                      : static_cast<uint8_t*>(CGBitmapContextGetData(ref)) + y * CGBitmapContextGetBytesPerRow(ref) +
                            4 * x,
               4);
        return word;
    }
    CGContextRef ref;
    size_t width;
    bool window;
};

// An image's pixels, drawn into a context of its size.
uint32_t ImagePixel(CGImageRef image, int x, int y) {
    Context drawn(CGImageGetWidth(image), CGImageGetHeight(image));
    CGContextDrawImage(drawn.ref, CGRectMake(0, 0, CGFloat(CGImageGetWidth(image)), CGFloat(CGImageGetHeight(image))),
                       image);
    return drawn.Pixel(x, y);
}

// The CGImageQRV fields: the image at byte 48, the tag at 64.
std::pair<CGImageRef, uint64_t> ImageIn(const Value& object) {
    std::pair<CGImageRef, uint64_t> fields;
    auto* bytes = reinterpret_cast<const uint8_t*>(object.AsObject());
    memcpy(&fields.first, bytes + 48, sizeof fields.first);
    memcpy(&fields.second, bytes + 64, sizeof fields.second);
    return fields;
}

// quadrants.mp4 at 64 x 48: red, green, blue and white, each byte within 4, read inside each quadrant.
std::string FirstWrongQuadrant(const std::function<uint32_t(int, int)>& pixel, bool redAsBlue = false) {
    const uint32_t red = redAsBlue ? 0xFF0000FFu : 0xFFFF0000u, blue = red ^ 0xFF00FFu;
    for (auto [x, y, want] : {std::tuple{12, 10, red}, {50, 10, 0xFF00FF00u}, {12, 38, blue}, {50, 38, 0xFFFFFFFFu}})
        for (int shift = 0; shift < 32; shift += 8)
            if (std::abs(int(pixel(x, y) >> shift & 0xFF) - int(want >> shift & 0xFF)) > 4)
                return "(" + std::to_string(x) + ", " + std::to_string(y) + ") is " + std::to_string(pixel(x, y));
    return "";
}

// Pixel (x, y) of the fake's frame as 0xAARRGGBB, opaque, its first byte taken as blue or as red.
uint32_t PatternPixel(int x, int y, int64_t frame, bool firstByteRed = false) {
    auto byte = [&](int c) { return uint32_t{fakevlc_pattern(x, y, frame, firstByteRed ? 2 - c : c)}; };
    return 0xFF000000u | byte(2) << 16 | byte(1) << 8 | byte(0);
}

// Precomposed names reach libvlc decomposed, from the native path and from the URL path of older hosts.
TEST(MacHost, FolderItemPathsReachLibvlcDecomposed) {
    for (double version : {2021.0, 2012.0}) {
        Host host({.version = version});
        ASSERT_TRUE(LoadRealLibvlc(host));
        Value media =
            host.CallShared("VLCMediaQRV", "MediaWithFile",
                            {HeadlessInstance(host), host.FolderItem("/tmp/qrv dir/Caf\u00e9 \u00fc#1%.mp4")});
        ASSERT_FALSE(media.IsNil()) << version;
        EXPECT_EQ(host.Text(host.Call(media, "MRL")), "file:///tmp/qrv%20dir/Cafe%CC%81%20u%CC%88%231%25.mp4")
            << version;
    }
}

// Debian's libvlc decodes the quadrants into the drawn context, the CGImageQRV copy (which outlives the player)
// and the picture, with the plug-in's trace.
TEST(MacHost, RealFramesReachTheContextTheImageAndThePicture) {
    Host host({.pictures = PictureKind::CGContext, .imageClass = true});
    ASSERT_TRUE(LoadRealLibvlc(host));
    Value player = host.New("VLCMediaPlayerQRV",
                            {host.CallShared("VLCMediaQRV", "MediaWithPath",
                                             {HeadlessInstance(host), host.String(SamplePath("quadrants.mp4"))})});
    Context target(64, 48, true);  // a window's: frames show once flushed
    host.Call(player, "VideoSetCallback",
              {Value::Int(64), Value::Int(48), Value::Int(reinterpret_cast<int64_t>(target.ref))});
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(host.PumpUntil([&] { return host.Get(player, "HasNewFrame").AsBool(); }, 10s));
    host.Call(player, "Stop");
    EXPECT_EQ(FirstWrongQuadrant([&](int x, int y) { return target.Pixel(x, y); }), "") << "drawn context";

    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    StderrCapture capture;
    Value image = host.Call(player, "CopyCGImage");
    Value picture = host.Call(player, "CopyPicture");
    std::string trace = capture.Finish();
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
    player = Value();

    ASSERT_FALSE(image.IsNil());
    auto [copy, tag] = ImageIn(image);
    EXPECT_EQ(tag, 0x52424346u);
    ASSERT_EQ(CGImageGetWidth(copy), 64u);
    ASSERT_EQ(CGImageGetHeight(copy), 48u);
    EXPECT_EQ(FirstWrongQuadrant([&](int x, int y) { return ImagePixel(copy, x, y); }), "") << "after the player";
    ASSERT_EQ(host.PictureKindOf(picture), PictureKind::CGContext);
    EXPECT_EQ(FirstWrongQuadrant([&](int x, int y) { return host.PixelARGB(picture, x, y); }, true), "")
        << "the picture takes the frame's first byte as red";
    size_t at = 0;
    for (const char* line : {"CopyCGImage\n", "NewCGImageQRV 0x", "result CGImage 0x", "Width 64\n", "Height 48\n",
                             "BitsPerComponent 8\n", "BitsPerPixel 32\n", "BytesPerRow 256\n", "lMacAlphaInfo 2\n",
                             "BitmapInfo 8194\n", "kCGImageAlphaPremultipliedFirst\n"}) {
        at = trace.find(std::string("] QRV Debug: ") + line, at);
        ASSERT_NE(at, std::string::npos) << line << " after the lines before it, as NSLog lines, in\n" << trace;
    }
}

// The fake's pattern byte for byte: drawn, copied without a context, and nil where no plug-in registers CGImageQRV;
// pictures of each little-endian bitmap format (alpha first, last or skipped) in the layout its info gives, named
// in the trace. A snapshot file that holds no PNG gives nil.
TEST(MacHost, PatternFramesExactlyInEveryPictureFormatAndNoImageWithoutTheClass) {
    FakeVLC fake;
    for (auto [imageClass, info, name] : {std::tuple{true, 0x2002u, "kCGImageAlphaPremultipliedFirst"},
                                          {false, 0x2002u, "kCGImageAlphaPremultipliedFirst"},
                                          {false, 0x2001u, "kCGImageAlphaPremultipliedLast"},
                                          {false, 0x2005u, "kCGImageAlphaNoneSkipLast"},
                                          {true, 0x2006u, "kCGImageAlphaNoneSkipFirst"}}) {
        Host host({.pictures = PictureKind::CGContext, .imageClass = imageClass, .pictureBitmapInfo = info});
        fake.reset();
        ASSERT_TRUE(fake.LoadInto(host));
        Value player = host.New("VLCMediaPlayerQRV", {host.New("VLCInstanceQRV", {host.StringArray({})})});
        Context target(24, 10);
        host.Call(player, "VideoSetCallback",
                  {Value::Int(24), Value::Int(10), Value::Int(reinterpret_cast<int64_t>(target.ref))});
        fake.renderFrame(5);
        host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
        StderrCapture capture;
        Value picture = host.Call(player, "CopyPicture");
        EXPECT_NE(capture.Finish().find(std::string("] QRV Debug: ") + name + "\n"), std::string::npos) << name;
        host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
        host.Call(player, "VideoSetCallback", {Value::Int(24), Value::Int(10)});
        fake.renderFrame(6);
        Value image = host.Call(player, "CopyCGImage");
        ASSERT_EQ(image.IsNil(), !imageClass);
        for (auto [width, height] : {std::pair{1, 2}, {2, 1}}) {
            host.Call(player, "VideoSetCallback", {Value::Int(width), Value::Int(height)});
            fake.renderFrame(7);
            EXPECT_EQ(host.Call(player, "CopyCGImage").IsNil(), !imageClass) << width << " x " << height;
        }
        fake.setInt("libvlc_video_take_snapshot", 0);
        EXPECT_TRUE(host.Call(player, "SnapshotPicture", {Value::Int(8), Value::Int(8)}).IsNil()) << "no PNG written";
        for (int y = 0; y < 10; ++y)
            for (int x = 0; x < 24; ++x) {
                ASSERT_EQ(target.Pixel(x, y), PatternPixel(x, y, 5)) << x << ", " << y;
                ASSERT_EQ(host.PixelARGB(picture, x, y), PatternPixel(x, y, 5, true)) << name;
                if (imageClass) {
                    ASSERT_EQ(ImagePixel(ImageIn(image).first, x, y), PatternPixel(x, y, 6));
                }
            }
    }
}

// The stand-ins refuse what Core Graphics refuses and abort on what would crash a Mac.
TEST(AppleStandins, RefuseInconsistentImagesAndAbortOnMisuse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    uint8_t pixels[4 * 4 * 2] = {};
    static const CGDataProviderDirectCallbacks callbacks = {0, [](void* info) -> const void* { return info; }, nullptr,
                                                            nullptr, nullptr};
    CGDataProviderRef provider = CGDataProviderCreateDirect(pixels, sizeof pixels, &callbacks);
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    auto image = [&](size_t width, size_t height, size_t bits, size_t rowBytes) {
        return CGImageCreate(width, height, 8, bits, rowBytes, space, 0x2006, provider, nullptr, false,
                             kCGRenderingIntentDefault);
    };
    EXPECT_EQ(image(4, 2, 32, 15), nullptr) << "rows shorter than width * 4";
    EXPECT_EQ(image(4, 3, 32, 16), nullptr) << "a provider too small";
    EXPECT_EQ(image(4, 2, 24, 16), nullptr) << "24 bits a pixel with 0x2006";
    CGImageRef fits = image(4, 2, 32, 16);
    ASSERT_NE(fits, nullptr);
    CGImageRelease(fits);
    EXPECT_DEATH(CGImageRelease(fits), "CGImage used after its last release");
    EXPECT_DEATH(CGContextRelease(reinterpret_cast<CGContextRef>(space)), "is a CGColorSpace, not a CGContext");
    CGColorSpaceRelease(space);
    CGDataProviderRelease(provider);
}

}  // namespace
