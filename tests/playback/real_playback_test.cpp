// The media player and the list player on Debian's libvlc 3.0, headless.
#include <cairo.h>
#include <gtest/gtest.h>

#include <array>

#include <chrono>
#include <cstdlib>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;
using qrvtest::NothingRaised;
using qrvtest::Raised;
using qrvtest::SamplePath;
using namespace std::chrono_literals;

class RealPlayback : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
        vlc = qrvtest::HeadlessInstance(host);
    }
    Value Media(const std::string& name) {
        return host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(SamplePath(name))});
    }
    Value PlayerFor(const std::string& name) { return host.New("VLCMediaPlayerQRV", {Media(name)}); }
    bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds deadline = 5000ms) {
        return host.PumpUntil(condition, deadline);
    }
    bool Playing(const Value& player) {
        return WaitFor([&] { return host.Get(player, "IsPlaying").AsBool(); });
    }
    Host host;
    Value vlc;
};

TEST_F(RealPlayback, TransportTimeAndProperties) {
    Value player = PlayerFor("sample.mp4");
    EXPECT_TRUE(host.Get(player, "VLC").IsNil()) << "made from a media";
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(Playing(player));
    EXPECT_TRUE(WaitFor([&] { return host.Get(player, "Time").AsInt() > 200; }));
    EXPECT_EQ(host.Get(player, "Length").AsInt(), 3003);
    EXPECT_TRUE(host.Get(player, "IsSeekable").AsBool());
    EXPECT_TRUE(host.Get(player, "CanPause").AsBool());
    EXPECT_EQ(host.Get(player, "State").AsInt(), 3);
    EXPECT_NEAR(host.Get(player, "FPS").AsDouble(), 29.97, 0.01);

    host.Call(player, "Pause", {Value::Bool(true)});
    EXPECT_TRUE(WaitFor([&] { return host.Get(player, "State").AsInt() == 4; }));
    int64_t paused = host.Get(player, "Time").AsInt();
    host.PumpFor(300ms);
    EXPECT_EQ(host.Get(player, "Time").AsInt(), paused) << "time stands while paused";
    host.Call(player, "Pause", {Value::Bool(false)});
    EXPECT_TRUE(Playing(player));

    host.Set(player, "Rate", Value::Dbl(1.5));
    EXPECT_DOUBLE_EQ(host.Get(player, "Rate").AsDouble(), 1.5);
    // The dummy audio output has no volume of its own: libvlc 3.0 answers 0 and not muted.
    host.Set(player, "Volume", Value::Int(40));
    EXPECT_EQ(host.Get(player, "Volume").AsInt(), 0);
    EXPECT_FALSE(host.Get(player, "Mute").AsBool());

    Value px = Value::Ref(Value::UInt(7)), py = Value::Ref(Value::UInt(9));
    EXPECT_TRUE(host.Call(player, "VideoGetSize", {Value::Int(0), px, py}).AsBool());
    EXPECT_EQ(px.Deref().AsInt(), 320);
    EXPECT_EQ(py.Deref().AsInt(), 240);

    host.Call(player, "Stop");
    EXPECT_FALSE(host.Get(player, "IsPlaying").AsBool());
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(RealPlayback, TracksChaptersAndSubtitlesOfTheMatroskaSample) {
    Value player = PlayerFor("chapters.mkv");
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(WaitFor([&] { return host.Get(player, "AudioTrackCount").AsInt() == 3; }));
    std::vector<std::pair<int64_t, std::string>> audio;
    for (Value d = host.Get(player, "GetAudioTrackDescription"); !d.IsNil(); d = host.Get(d, "NextTrack"))
        audio.emplace_back(host.Get(d, "ID").AsInt(), host.Text(host.Get(d, "Name")));
    EXPECT_EQ(audio, (std::vector<std::pair<int64_t, std::string>>{{-1, "Disable"},
                                                                   {1, "English - [English]"},
                                                                   {2,
                                                                    "Fran\xC3\xA7"
                                                                    "ais - [French]"}}));
    EXPECT_TRUE(WaitFor([&] { return host.Get(player, "ChapterCount").AsInt() == 2; }));
    Value chapter = host.Call(player, "GetChapterDescription", {Value::Int(0)});
    ASSERT_FALSE(chapter.IsNil());
    EXPECT_EQ(host.Text(host.Get(chapter, "Name")), " Intro");
    EXPECT_EQ(host.Text(host.Get(host.Get(chapter, "NextTrack"), "Name")), " Main");
    EXPECT_EQ(host.Get(player, "SPUCount").AsInt(), 2);

    EXPECT_TRUE(host.Get(player, "AspectRatio").IsNil());
    host.Set(player, "AspectRatio", host.String("16:9"));
    EXPECT_EQ(host.Text(host.Get(player, "AspectRatio")), "16:9");
    host.Set(player, "AspectRatio", Value());
    EXPECT_TRUE(host.Get(player, "AspectRatio").IsNil()) << "nil resets the setting";
    host.Call(player, "Stop");
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(RealPlayback, TheMediaPropertyKeepsOrWrapsItsMedia) {
    Value media = Media("tone.wav");
    Value fromMedia = host.New("VLCMediaPlayerQRV", {media});
    EXPECT_EQ(host.Get(fromMedia, "Media").AsObject(), media.AsObject());
    host.Set(fromMedia, "Media", Value());
    EXPECT_TRUE(Raised(host, "NilObjectException", "media parameter is nil"));
    EXPECT_EQ(host.Get(fromMedia, "Media").AsObject(), media.AsObject()) << "the current media stays";

    Value fromInstance = host.New("VLCMediaPlayerQRV", {vlc});
    EXPECT_EQ(host.Get(fromInstance, "VLC").AsObject(), vlc.AsObject());
    EXPECT_TRUE(host.Get(fromInstance, "Media").IsNil());
    // A list player sets libvlc's media behind the wrapper's back.
    Value list = host.New("VLCMediaListQRV", {vlc});
    host.Call(list, "AddMedia", {Media("tone.wav")});
    Value listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
    host.Call(listPlayer, "SetMediaPlayer", {fromInstance});
    host.Call(listPlayer, "SetMediaList", {list});
    host.KeptByDesign(fromInstance), host.KeptByDesign(list);
    host.Call(listPlayer, "PlayItemAtIndex", {Value::Int(0)});
    ASSERT_TRUE(WaitFor([&] { return host.Call(listPlayer, "IsPlaying").AsBool(); }));
    Value first = host.Get(fromInstance, "Media");
    Value second = host.Get(fromInstance, "Media");
    ASSERT_FALSE(first.IsNil());
    EXPECT_NE(first.AsObject(), second.AsObject()) << "a new wrapper each time";
    EXPECT_EQ(host.Get(first, "Handle").AsInt(), host.Get(second, "Handle").AsInt());
    host.Call(listPlayer, "Stop");
}

TEST_F(RealPlayback, ListPlayerWalksTwoSamples) {
    Value list = host.New("VLCMediaListQRV", {vlc});
    host.Call(list, "AddMedia", {Media("tone.wav")});
    host.Call(list, "AddMedia", {Media("tagged.mp3")});
    Value listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
    Value player = host.New("VLCMediaPlayerQRV", {vlc});
    host.Call(listPlayer, "SetMediaPlayer", {player});
    host.Call(listPlayer, "SetMediaList", {list});
    host.KeptByDesign(player), host.KeptByDesign(list);
    EXPECT_EQ(host.Get(listPlayer, "List").AsObject(), list.AsObject());
    // libvlc 3.0.24 answers -1 here although the item starts playing.
    EXPECT_FALSE(host.Call(listPlayer, "PlayItemAtIndex", {Value::Int(0)}).AsBool());
    EXPECT_TRUE(WaitFor([&] { return host.Call(listPlayer, "IsPlaying").AsBool(); }));
    EXPECT_TRUE(host.Call(listPlayer, "MoveNext").AsBool());
    EXPECT_FALSE(host.Call(listPlayer, "MoveNext").AsBool()) << "past the end";
    EXPECT_FALSE(host.Call(listPlayer, "PlayItemAtIndex", {Value::Int(5)}).AsBool());
    host.Call(listPlayer, "SetPlaybackMode", {Value::Int(1)});
    host.Call(listPlayer, "Stop");
    EXPECT_TRUE(NothingRaised(host));
}

// quadrants.mp4: red, green, blue and white quadrants inside a one-pixel black
// border, 64 x 48. The colour (red, green, blue) pixel (x, y) should have.
std::array<int, 3> QuadrantColour(int x, int y) {
    if (x == 0 || y == 0 || x == 63 || y == 47) return {0, 0, 0};
    if (y < 24) return x < 32 ? std::array<int, 3>{255, 0, 0} : std::array<int, 3>{0, 255, 0};
    return x < 32 ? std::array<int, 3>{0, 0, 255} : std::array<int, 3>{255, 255, 255};
}

// The first of the 64 x 48 pixels whose colour is off by more than the codec's
// rounding, or "". read(x, y) answers 0xAARRGGBB.
std::string QuadrantMismatch(const std::function<uint32_t(int, int)>& read) {
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x) {
            uint32_t argb = read(x, y);
            std::array<int, 3> want = QuadrantColour(x, y);
            int got[3] = {int(argb >> 16 & 0xFF), int(argb >> 8 & 0xFF), int(argb & 0xFF)};
            for (int c = 0; c < 3; ++c)
                if (std::abs(got[c] - want[c]) > 8)
                    return "(" + std::to_string(x) + ", " + std::to_string(y) + ") reads " + std::to_string(got[0]) +
                           "," + std::to_string(got[1]) + "," + std::to_string(got[2]);
        }
    return "";
}

// RV32 bytes B, G, R, X read as 0xAARRGGBB.
uint32_t FromBGRX(const uint8_t* pixel) { return 0xFF000000u | pixel[2] << 16 | pixel[1] << 8 | pixel[0]; }

// Plays the clip into a 64 x 48 buffer (and the context, if any) until frames arrive.
void PlayQuadrants(Host& host, const Value& player, cairo_t* context) {
    host.Call(player, "VideoSetCallback",
              {Value::Int(64), Value::Int(48), Value::Int(reinterpret_cast<int64_t>(context))});
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(host.PumpUntil([&] { return host.Get(player, "HasNewFrame").AsBool(); }, 5000ms));
    host.PumpFor(200ms);
}

TEST_F(RealPlayback, DecodedQuadrantsPixelByPixelInEveryCopy) {
    Value player = PlayerFor("quadrants.mp4");
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 64, 48);
    cairo_t* context = cairo_create(surface);
    PlayQuadrants(host, player, context);
    cairo_destroy(context);

    std::vector<uint8_t> rows(8 + 300 * 48);
    ASSERT_TRUE(
        host.Call(player, "CopyToMemory", {Value::Pointer(rows.data()), Value::Int(8), Value::Int(300)}).AsBool());
    EXPECT_EQ(QuadrantMismatch([&](int x, int y) { return FromBGRX(&rows[8 + y * 300 + x * 4]); }), "");
    std::vector<uint8_t> block = host.MemoryBytes(host.Call(player, "CopyMemory"));
    ASSERT_EQ(block.size(), 64u * 48 * 4);
    EXPECT_EQ(QuadrantMismatch([&](int x, int y) { return FromBGRX(&block[(y * 64 + x) * 4]); }), "");
    Value picture = host.Call(player, "CopyPicture");
    ASSERT_EQ(host.PictureKindOf(picture), emu::PictureKind::Gd);
    EXPECT_EQ(QuadrantMismatch([&](int x, int y) { return host.PixelARGB(picture, x, y); }), "") << "gd picture";
    host.Call(player, "Stop");

    cairo_surface_flush(surface);
    auto* drawn = cairo_image_surface_get_data(surface);
    int stride = cairo_image_surface_get_stride(surface);
    EXPECT_EQ(QuadrantMismatch([&](int x, int y) { return FromBGRX(drawn + y * stride + x * 4); }), "")
        << "drawn context";
    player = Value();
    cairo_surface_destroy(surface);
}

TEST(RealPlaybackCairo, DecodedQuadrantsInACairoPicture) {
    emu::HostOptions options;
    options.pictures = emu::PictureKind::Cairo;
    Host host(options);
    ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
    Value vlc = qrvtest::HeadlessInstance(host);
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(SamplePath("quadrants.mp4"))});
    Value player = host.New("VLCMediaPlayerQRV", {media});
    PlayQuadrants(host, player, nullptr);
    Value picture = host.Call(player, "CopyPicture");
    ASSERT_EQ(host.PictureKindOf(picture), emu::PictureKind::Cairo);
    EXPECT_EQ(QuadrantMismatch([&](int x, int y) { return host.PixelARGB(picture, x, y); }), "");
    host.Call(player, "Stop");
}

}  // namespace
