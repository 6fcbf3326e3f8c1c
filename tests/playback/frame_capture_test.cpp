// Frame capture driven by the fake libvlc's video thread stand-in, which
// renders a per-pixel pattern through the callbacks the plug-in installed, so
// every copy is checked for stride, orientation and channel order.
#include <cairo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/fakevlc/fakevlc_control.h"
#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::HostOptions;
using emu::Value;
using qrvtest::FakeVLC;
using qrvtest::NothingRaised;
using qrvtest::Raised;

// The first pixel of rows laid out rowBytes apart whose bytes differ from
// frame `frame` of the fake's pattern, or "" when all match.
std::string PatternMismatch(const uint8_t* rows, int64_t width, int64_t height, int64_t rowBytes, int64_t frame) {
    for (int64_t y = 0; y < height; ++y)
        for (int64_t x = 0; x < width; ++x)
            for (int c = 0; c < 4; ++c)
                if (rows[y * rowBytes + 4 * x + c] != fakevlc_pattern(x, y, frame, c))
                    return "byte " + std::to_string(c) + " of (" + std::to_string(x) + ", " + std::to_string(y) + ")";
    return "";
}

// The pattern pixel as opaque 0xAARRGGBB: the frame's third byte is red.
uint32_t PatternARGB(int64_t x, int64_t y, int64_t frame) {
    return 0xFF000000u | uint32_t{fakevlc_pattern(x, y, frame, 2)} << 16 |
           uint32_t{fakevlc_pattern(x, y, frame, 1)} << 8 | fakevlc_pattern(x, y, frame, 0);
}

class Capture : public ::testing::Test {
protected:
    void Start(HostOptions options = {}) {
        host = std::make_unique<Host>(options);
        ASSERT_TRUE(fake.Loaded());
        fake.reset();
        ASSERT_TRUE(fake.LoadInto(*host));
        vlc = host->New("VLCInstanceQRV", {host->StringArray({})});
        player = host->New("VLCMediaPlayerQRV", {vlc});
        ASSERT_NE(host->Get(player, "Handle").AsInt(), 0);
    }
    void SetUp() override { Start(); }
    void TearDown() override {
        player = Value();
        vlc = Value();
        host.reset();
    }
    bool HasNewFrame() { return host->Get(player, "HasNewFrame").AsBool(); }
    void SetCallback(int64_t width, int64_t height, int64_t context = 0) {
        host->Call(player, "VideoSetCallback", {Value::Int(width), Value::Int(height), Value::Int(context)});
    }
    // Every pixel of a picture against frame `frame` of the pattern.
    std::string PictureMismatch(const Value& picture, int width, int height, int64_t frame) {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                if (host->PixelARGB(picture, x, y) != PatternARGB(x, y, frame))
                    return "(" + std::to_string(x) + ", " + std::to_string(y) + ")";
        return "";
    }

    FakeVLC fake;
    std::unique_ptr<Host> host;
    Value vlc, player;
};

TEST_F(Capture, FramesLandInTheBufferAndEveryReadClearsTheFlag) {
    EXPECT_TRUE(host->Call(player, "GetMemory").AsPtr() == nullptr);
    EXPECT_TRUE(host->Call(player, "CopyMemory").IsNil());
    SetCallback(40, 30);
    ASSERT_TRUE(NothingRaised(*host));
    EXPECT_EQ(fake.Text("libvlc_video_set_format.chroma"), "RV32");
    EXPECT_EQ(fake.integer("libvlc_video_set_format.width"), 40);
    EXPECT_EQ(fake.integer("libvlc_video_set_format.height"), 30);
    EXPECT_EQ(fake.integer("libvlc_video_set_format.pitch"), 160);
    EXPECT_FALSE(HasNewFrame());
    ASSERT_EQ(fake.renderFrame(1), 1);
    EXPECT_TRUE(HasNewFrame());

    auto* live = static_cast<uint8_t*>(host->Call(player, "GetMemory").AsPtr());
    ASSERT_NE(live, nullptr);
    EXPECT_EQ(PatternMismatch(live, 40, 30, 160, 1), "");
    EXPECT_FALSE(HasNewFrame());

    fake.renderFrame(2);
    EXPECT_TRUE(HasNewFrame());
    std::vector<uint8_t> bytes = host->MemoryBytes(host->Call(player, "CopyMemory"));
    ASSERT_EQ(bytes.size(), 40u * 30 * 4);
    EXPECT_EQ(PatternMismatch(bytes.data(), 40, 30, 160, 2), "");
    EXPECT_FALSE(HasNewFrame());
}

TEST_F(Capture, CopyToMemoryChecksRowBytesOffsetAndDestination) {
    SetCallback(640, 3);
    fake.renderFrame(3);
    std::vector<uint8_t> dest(16 + 4096 * 3, 0);
    Value pointer = Value::Pointer(dest.data());
    EXPECT_FALSE(host->Call(player, "CopyToMemory", {pointer, Value::Int(0), Value::Int(2559)}).AsBool());
    EXPECT_TRUE(HasNewFrame()) << "a refused copy leaves the flag";
    EXPECT_FALSE(host->Call(player, "CopyToMemory", {pointer, Value::Int(-1), Value::Int(4096)}).AsBool());
    EXPECT_TRUE(HasNewFrame());
    EXPECT_FALSE(
        host->Call(player, "CopyToMemory", {Value::Pointer(nullptr), Value::Int(0), Value::Int(4096)}).AsBool());
    EXPECT_TRUE(Raised(*host, "NilObjectException", "dest parameter is nil"));
    EXPECT_TRUE(HasNewFrame());
    EXPECT_TRUE(host->Call(player, "CopyToMemory", {pointer, Value::Int(16), Value::Int(4096)}).AsBool());
    EXPECT_FALSE(HasNewFrame());
    EXPECT_EQ(PatternMismatch(dest.data() + 16, 640, 3, 4096, 3), "");
    for (size_t i : {size_t{0}, size_t{15}, size_t{16 + 2560}, size_t{16 + 4095}, size_t{16 + 4096 + 2560}})
        EXPECT_EQ(dest[i], 0) << "byte " << i << " lies outside the rows";
}

TEST_F(Capture, AFailedOrResizingCallSetupKeepsTheDecoderInsideItsBuffer) {
    SetCallback(0, 480);
    EXPECT_TRUE(Raised(*host, "OutOfMemoryException", "Failed to allocate 0 bytes of memory for picture buffer."));
    EXPECT_TRUE(host->Call(player, "GetMemory").AsPtr() == nullptr);
    EXPECT_EQ(fake.calls("libvlc_video_set_callbacks"), 0);

    SetCallback(64, 48);
    fake.vout(1);  // playback: the output keeps 64 x 48
    SetCallback(0, 48);
    EXPECT_TRUE(Raised(*host, "OutOfMemoryException", "Failed to allocate 0 bytes of memory for picture buffer."));
    EXPECT_EQ(fake.renderFrame(4), 1) << "the failed call left the buffer libvlc writes into";
    SetCallback(32, 16);
    EXPECT_EQ(fake.renderFrame(5), 1) << "a smaller size while the output runs";
    fake.vout(0);
    EXPECT_EQ(fake.renderFrame(6), 1);
    auto* fresh = static_cast<uint8_t*>(host->Call(player, "GetMemory").AsPtr());
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(PatternMismatch(fresh, 32, 16, 128, 6), "") << "the next output uses the new size";
    SetCallback(8, 2);
    fresh = static_cast<uint8_t*>(host->Call(player, "GetMemory").AsPtr());
    EXPECT_EQ(std::vector<uint8_t>(fresh, fresh + 8 * 2 * 4), std::vector<uint8_t>(8 * 2 * 4, 0)) << "zero-filled";

    SetCallback(40000, 1);
    EXPECT_TRUE(NothingRaised(*host));
    EXPECT_TRUE(host->Call(player, "CopyPicture").IsNil());
    SetCallback(32767, 1);
    EXPECT_FALSE(host->Call(player, "CopyPicture").IsNil());
    EXPECT_TRUE(host->Call(player, "CopyCGImage").IsNil()) << "no image class here";
}

// While the decoder holds a frame (lock to unlock), every reader waits.
TEST_F(Capture, ReadersWaitForTheFrameTheDecoderHolds) {
    SetCallback(16, 16);
    SetCallback(16, 16);  // the mutex outlives reconfiguration
    fake.renderFrame(1);
    using Clock = std::chrono::steady_clock;
    auto waited = [&](const std::function<void()>& read) {
        std::thread decoder(fake.holdFrame, 400);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        Clock::time_point start = Clock::now();
        read();
        auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        decoder.join();
        return elapsed.count();
    };
    EXPECT_GE(waited([&] { host->Call(player, "CopyMemory"); }), 200);
    EXPECT_GE(waited([&] { HasNewFrame(); }), 200);
    EXPECT_GE(waited([&] { host->Call(player, "CopyPicture"); }), 200);
}

TEST_F(Capture, CopyPictureOnGdPixelByPixel) {
    SetCallback(24, 10);
    fake.renderFrame(7);
    int clears = host->clearCacheCalls;
    Value picture = host->Call(player, "CopyPicture");
    ASSERT_FALSE(picture.IsNil());
    EXPECT_EQ(host->PictureKindOf(picture), emu::PictureKind::Gd);
    EXPECT_EQ(PictureMismatch(picture, 24, 10, 7), "");
    EXPECT_EQ(host->clearCacheCalls, clears + 1);
    EXPECT_FALSE(HasNewFrame());
}

// cairo's ARGB32 is native-endian: the same colours as gd and the drawn context.
TEST_F(Capture, CopyPictureOnCairoPixelByPixel) {
    TearDown();
    HostOptions options;
    options.pictures = emu::PictureKind::Cairo;
    Start(options);
    SetCallback(24, 10);
    fake.renderFrame(8);
    Value picture = host->Call(player, "CopyPicture");
    ASSERT_FALSE(picture.IsNil());
    EXPECT_EQ(host->PictureKindOf(picture), emu::PictureKind::Cairo);
    EXPECT_EQ(PictureMismatch(picture, 24, 10, 8), "");
}

TEST_F(Capture, FramesArePaintedIntoACairoContext) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 16, 8);
    cairo_t* cr = cairo_create(surface);
    SetCallback(16, 8, reinterpret_cast<int64_t>(cr));
    cairo_destroy(cr);  // the player keeps its own reference
    fake.renderFrame(9);
    cairo_surface_flush(surface);
    auto* pixels = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(surface));
    int stride = cairo_image_surface_get_stride(surface) / 4;
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x) ASSERT_EQ(pixels[y * stride + x], PatternARGB(x, y, 9)) << x << ", " << y;
    player = Value();  // the destructor gives the context back
    cairo_surface_destroy(surface);
}

TEST_F(Capture, LowByteAndSignedByteAnswers) {
    fake.setInt("libvlc_media_player_is_seekable", 256);
    EXPECT_FALSE(host->Get(player, "IsSeekable").AsBool());
    fake.setInt("libvlc_media_player_is_seekable", 257);
    EXPECT_TRUE(host->Get(player, "IsSeekable").AsBool());
    fake.setInt("libvlc_media_player_has_vout", 300);
    EXPECT_EQ(host->Get(player, "HasVOut").AsInt(), 44);
    fake.setInt("libvlc_media_player_has_vout", 200);
    EXPECT_EQ(host->Get(player, "HasVOut").AsInt(), -56);
    fake.setInt("libvlc_media_player_play", -1);
    EXPECT_FALSE(host->Call(player, "Play").AsBool());
    fake.setInt("libvlc_media_player_play", 0);
    EXPECT_TRUE(host->Call(player, "Play").AsBool());
    // 64-bit host integers are narrowed to libvlc's int; Booleans go as 0 or 1.
    host->Set(player, "Volume", Value::Int((int64_t{1} << 32) + 40));
    EXPECT_EQ(fake.integer("libvlc_audio_set_volume.volume"), 40);
    EXPECT_EQ(host->Get(player, "Volume").AsInt(), 40);
    host->Set(player, "Volume", Value::Int(-1));
    EXPECT_EQ(host->Get(player, "Volume").AsInt(), -1) << "sign-extended back";
    host->Set(player, "Mute", Value::Bool(true));
    EXPECT_EQ(fake.integer("libvlc_audio_set_mute.status"), 1);
    EXPECT_TRUE(host->Get(player, "Mute").AsBool());
    host->Call(player, "SetEqualizer");
    EXPECT_EQ(fake.calls("libvlc_media_player_set_equalizer"), 1);
    EXPECT_TRUE(NothingRaised(*host));
}

TEST_F(Capture, TitlePositionsOutsideLibvlcsTableRaise) {
    for (int64_t position : {int64_t{1} << 31, int64_t{9}, int64_t{-2}}) {
        host->Call(player, "SetVideoTitleDisplay", {Value::Int(position), Value::Int(0)});
        EXPECT_EQ(host->exception->className, "OutOfBoundsException") << position;
    }
    EXPECT_EQ(fake.calls("libvlc_media_player_set_video_title_display"), 0);
    host->Call(player, "SetVideoTitleDisplay", {Value::Int(-1), Value::Int(0)});
    host->Call(player, "SetVideoTitleDisplay", {Value::Int(8), Value::Int(0)});
    EXPECT_TRUE(NothingRaised(*host));
    EXPECT_EQ(fake.calls("libvlc_media_player_set_video_title_display"), 2);
}

TEST(PlayerPartialFake, MissingFunctionsAreReportedBeforeTheHandle) {
    Host host;
    FakeVLC partial(true);
    ASSERT_TRUE(partial.LoadInto(host));
    Value player = host.NewRaw("VLCMediaPlayerQRV");
    host.Get(player, "ProgramScrambled");
    EXPECT_TRUE(qrvtest::RaisedMissing(host, "_libvlc_media_player_program_scrambled"));
    host.Call(player, "SetEqualizer");
    EXPECT_TRUE(qrvtest::RaisedMissing(host, "_libvlc_media_player_set_equalizer"));
    host.Get(player, "Volume");
    EXPECT_TRUE(qrvtest::RaisedNotInitialized(host));
    // MovePrevious tests the function it calls.
    Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
    Value listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
    EXPECT_FALSE(host.Call(listPlayer, "MovePrevious").AsBool());
    EXPECT_TRUE(qrvtest::RaisedMissing(host, "_libvlc_media_list_player_previous"));
}

TEST(ListPlayerWithFake, ModeAndPlayerReferences) {
    Host host;
    FakeVLC fake;
    ASSERT_TRUE(fake.LoadInto(host));
    Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
    Value listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
    host.Call(listPlayer, "SetPlaybackMode", {Value::Int(7)});
    EXPECT_EQ(fake.integer("libvlc_media_list_player_set_playback_mode.mode"), 7);
    Value p = host.New("VLCMediaPlayerQRV", {vlc});
    Value q = host.New("VLCMediaPlayerQRV", {vlc});
    int64_t pLocks = host.LockCount(p);
    // libvlc would read the missing list.
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String("/x.mp4")});
    EXPECT_FALSE(host.Call(listPlayer, "PlayItemAtIndex", {Value::Int(0)}).AsBool());
    EXPECT_TRUE(Raised(host, "NilObjectException", "List is nil"));
    EXPECT_FALSE(host.Call(listPlayer, "PlayItem", {media}).AsBool());
    EXPECT_TRUE(Raised(host, "NilObjectException", "List is nil"));
    EXPECT_EQ(
        fake.calls("libvlc_media_list_player_play_item_at_index") + fake.calls("libvlc_media_list_player_play_item"),
        0);
    host.Call(listPlayer, "SetMediaPlayer", {p});
    EXPECT_EQ(host.Get(listPlayer, "Player").AsObject(), p.AsObject());
    host.Call(listPlayer, "SetMediaPlayer", {q});
    EXPECT_EQ(host.Get(listPlayer, "Player").AsObject(), q.AsObject());
    EXPECT_EQ(host.LockCount(p), pLocks + 1) << "the first player keeps the lock it was given";
    host.KeptByDesign(p), host.KeptByDesign(q);
    host.Call(listPlayer, "SetMediaList", {host.NewRaw("VLCMediaListQRV")});
    EXPECT_TRUE(Raised(host, "NilObjectException", "List is nil"));
    EXPECT_TRUE(host.Get(listPlayer, "List").IsNil());
    EXPECT_FALSE(host.Call(listPlayer, "PlayItem", {Value()}).AsBool());
    EXPECT_TRUE(Raised(host, "NilObjectException", "Item is nil"));
    fake.setInt("libvlc_media_list_player_next", -1);
    EXPECT_FALSE(host.Call(listPlayer, "MoveNext").AsBool());
}

}  // namespace
