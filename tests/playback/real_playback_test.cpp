// The media player and the list player on Debian's libvlc 3.0, headless.
#include <gtest/gtest.h>

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

TEST_F(RealPlayback, DecodedSolidColoursReachTheBuffer) {
    Value player = PlayerFor("solid.mp4");
    host.Call(player, "VideoSetCallback", {Value::Int(64), Value::Int(48)});
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(WaitFor([&] { return host.Get(player, "HasNewFrame").AsBool(); }));
    host.PumpFor(200ms);
    std::vector<uint8_t> frame(64 * 48 * 4);
    ASSERT_TRUE(
        host.Call(player, "CopyToMemory", {Value::Pointer(frame.data()), Value::Int(0), Value::Int(256)}).AsBool());
    auto at = [&](int x, int y, int channel) { return frame[(y * 64 + x) * 4 + channel]; };
    // B, G, R, X: left half red, right half blue.
    EXPECT_LE(at(8, 24, 0), 8);
    EXPECT_LE(at(8, 24, 1), 8);
    EXPECT_GE(at(8, 24, 2), 247);
    EXPECT_GE(at(56, 24, 0), 247);
    EXPECT_LE(at(56, 24, 2), 8);
    Value picture = host.Call(player, "CopyPicture");
    ASSERT_FALSE(picture.IsNil());
    // gd rows read the third byte (red here) as red.
    EXPECT_GE((host.PixelARGB(picture, 8, 24) >> 16) & 0xFF, 247u);
    host.Call(player, "Stop");
}

}  // namespace
