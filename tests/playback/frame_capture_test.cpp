// Frame capture driven by the fake libvlc's video thread stand-in, which
// renders known pixels through the callbacks the plug-in installed.
#include <cairo.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::HostOptions;
using emu::Value;
using qrvtest::FakeVLC;
using qrvtest::NothingRaised;
using qrvtest::Raised;

// Bytes b0, b1, b2, b3 in memory order.
uint32_t Pixel(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3) {
    uint32_t word;
    uint8_t bytes[4] = {b0, b1, b2, b3};
    memcpy(&word, bytes, 4);
    return word;
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

    FakeVLC fake;
    std::unique_ptr<Host> host;
    Value vlc, player;
};

TEST_F(Capture, FramesLandInTheBufferAndEveryReadClearsTheFlag) {
    EXPECT_TRUE(host->Call(player, "GetMemory").AsPtr() == nullptr);
    EXPECT_TRUE(host->Call(player, "CopyMemory").IsNil());
    host->Call(player, "VideoSetCallback", {Value::Int(640), Value::Int(480)});
    ASSERT_TRUE(NothingRaised(*host));
    EXPECT_EQ(fake.Text("libvlc_video_set_format.chroma"), "RV32");
    EXPECT_EQ(fake.integer("libvlc_video_set_format.width"), 640);
    EXPECT_EQ(fake.integer("libvlc_video_set_format.pitch"), 2560);
    EXPECT_FALSE(HasNewFrame());
    ASSERT_TRUE(fake.renderFrame(Pixel(0x10, 0x20, 0x30, 0x00)));
    EXPECT_TRUE(HasNewFrame());

    auto* live = static_cast<uint8_t*>(host->Call(player, "GetMemory").AsPtr());
    ASSERT_NE(live, nullptr);
    EXPECT_EQ(live[4 * 1000 + 2], 0x30);
    EXPECT_FALSE(HasNewFrame());

    fake.renderFrame(Pixel(1, 2, 3, 4));
    Value block = host->Call(player, "CopyMemory");
    std::vector<uint8_t> bytes = host->MemoryBytes(block);
    ASSERT_EQ(bytes.size(), 640u * 480 * 4);
    EXPECT_EQ(bytes[bytes.size() - 4], 1);
    EXPECT_EQ(bytes[bytes.size() - 1], 4);
    EXPECT_FALSE(HasNewFrame());
}

TEST_F(Capture, CopyToMemoryChecksRowBytesAndOffset) {
    host->Call(player, "VideoSetCallback", {Value::Int(640), Value::Int(3)});
    fake.renderFrame(Pixel(9, 8, 7, 6));
    std::vector<uint8_t> dest(4096 * 3 + 16, 0);
    Value pointer = Value::Pointer(dest.data());
    EXPECT_FALSE(host->Call(player, "CopyToMemory", {pointer, Value::Int(0), Value::Int(2559)}).AsBool());
    EXPECT_TRUE(HasNewFrame()) << "a refused copy leaves the flag";
    EXPECT_FALSE(host->Call(player, "CopyToMemory", {pointer, Value::Int(-1), Value::Int(4096)}).AsBool());
    EXPECT_TRUE(HasNewFrame());
    EXPECT_TRUE(host->Call(player, "CopyToMemory", {pointer, Value::Int(16), Value::Int(4096)}).AsBool());
    EXPECT_FALSE(HasNewFrame());
    EXPECT_EQ(dest[15], 0);
    EXPECT_EQ(dest[16], 9);
    EXPECT_EQ(dest[16 + 2559], 6) << "a row is 2560 bytes";
    EXPECT_EQ(dest[16 + 2560], 0) << "and the next starts 4096 bytes on";
    EXPECT_EQ(dest[16 + 4096], 9);
    EXPECT_EQ(dest[16 + 2 * 4096 + 2559], 6);
}

TEST_F(Capture, BufferSizesAndReconfiguration) {
    host->Call(player, "VideoSetCallback", {Value::Int(0), Value::Int(480)});
    EXPECT_TRUE(Raised(*host, "OutOfMemoryException", "Failed to allocate 0 bytes of memory for picture buffer."));
    EXPECT_TRUE(host->Call(player, "GetMemory").AsPtr() == nullptr);
    EXPECT_EQ(fake.calls("libvlc_video_set_callbacks"), 0);

    host->Call(player, "VideoSetCallback", {Value::Int(64), Value::Int(48)});
    fake.renderFrame(Pixel(0xFF, 0xFF, 0xFF, 0xFF));
    host->Call(player, "VideoSetCallback", {Value::Int(32), Value::Int(16)});
    auto* fresh = static_cast<uint8_t*>(host->Call(player, "GetMemory").AsPtr());
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(std::vector<uint8_t>(fresh, fresh + 32 * 16 * 4), std::vector<uint8_t>(32 * 16 * 4, 0));

    host->Call(player, "VideoSetCallback", {Value::Int(40000), Value::Int(1)});
    EXPECT_TRUE(NothingRaised(*host));
    EXPECT_TRUE(host->Call(player, "CopyPicture").IsNil());
    host->Call(player, "VideoSetCallback", {Value::Int(32767), Value::Int(1)});
    EXPECT_FALSE(host->Call(player, "CopyPicture").IsNil());
    EXPECT_TRUE(host->Call(player, "CopyCGImage").IsNil()) << "no image class here";
}

TEST_F(Capture, CopyPictureChannelOrderOnGd) {
    host->Call(player, "VideoSetCallback", {Value::Int(8), Value::Int(4)});
    fake.renderFrame(Pixel(0x10, 0x20, 0x30, 0x99));
    int clears = host->clearCacheCalls;
    Value picture = host->Call(player, "CopyPicture");
    ASSERT_FALSE(picture.IsNil());
    EXPECT_EQ(host->PictureKindOf(picture), emu::PictureKind::Gd);
    // gd rows take b0 + b1 * 256 + b2 * 65536: the third byte lands in red.
    EXPECT_EQ(host->PixelARGB(picture, 7, 3), 0xFF302010u);
    EXPECT_EQ(host->clearCacheCalls, clears + 1);
    EXPECT_FALSE(HasNewFrame());
}

TEST_F(Capture, CopyPictureChannelOrderOnCairo) {
    TearDown();
    HostOptions options;
    options.pictures = emu::PictureKind::Cairo;
    Start(options);
    host->Call(player, "VideoSetCallback", {Value::Int(8), Value::Int(4)});
    fake.renderFrame(Pixel(0x10, 0x20, 0x30, 0x99));
    Value picture = host->Call(player, "CopyPicture");
    ASSERT_FALSE(picture.IsNil());
    EXPECT_EQ(host->PictureKindOf(picture), emu::PictureKind::Cairo);
    // Alpha in the high byte, the first byte as red.
    EXPECT_EQ(host->PixelARGB(picture, 0, 0), 0xFF102030u);
}

TEST_F(Capture, FramesArePaintedIntoACairoContext) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 16, 8);
    cairo_t* cr = cairo_create(surface);
    host->Call(player, "VideoSetCallback", {Value::Int(16), Value::Int(8), Value::Int(reinterpret_cast<int64_t>(cr))});
    cairo_destroy(cr);  // the player keeps its own reference
    fake.renderFrame(Pixel(0x11, 0x22, 0x33, 0x00));
    cairo_surface_flush(surface);
    auto* pixels = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(surface));
    // BGRX bytes read as a little-endian word: red 0x33, green 0x22, blue 0x11, opaque.
    EXPECT_EQ(pixels[5], 0xFF332211u);
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
