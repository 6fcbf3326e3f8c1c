// Instance, records and media paths observed through the fake libvlc, where
// the real one cannot show what the plug-in handed over or freed.
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;
using qrvtest::FakeVLC;
using qrvtest::NothingRaised;
using qrvtest::RaisedNotInitialized;

class WithFake : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(fake.Loaded());
        ASSERT_TRUE(fake.LoadInto(host));
    }
    Value Instance(std::vector<std::string> args = {"--quiet"}) {
        return host.New("VLCInstanceQRV", {host.StringArray(args)});
    }
    Host host;
    FakeVLC fake;
};

TEST_F(WithFake, InstanceArgumentsReachLibvlcInOrder) {
    Value nilArgs = host.New("VLCInstanceQRV", {Value()});
    EXPECT_EQ(fake.integer("libvlc_new.argc"), 0);
    EXPECT_EQ(fake.Text("libvlc_new.argv"), "(null argv)");
    Value emptyArgs = Instance({});
    EXPECT_EQ(fake.integer("libvlc_new.argc"), 0);
    EXPECT_EQ(fake.Text("libvlc_new.argv"), "(null argv)");
    Value three = Instance({"--one", "caf\xC3\xA9", ""});
    EXPECT_EQ(fake.integer("libvlc_new.argc"), 3);
    EXPECT_EQ(fake.Text("libvlc_new.argv"), "--one\ncaf\xC3\xA9\n");
    EXPECT_NE(host.Get(three, "Handle").AsInt(), 0);
    EXPECT_EQ(fake.calls("libvlc_new"), 3);
}

TEST_F(WithFake, InstanceMethodsConvertLibvlcAnswers) {
    Value vlc = Instance();
    fake.setInt("libvlc_add_intf", -1);
    EXPECT_FALSE(host.Call(vlc, "AddUserInterface", {host.String("dummy")}).AsBool());
    fake.setInt("libvlc_add_intf", 0);
    EXPECT_TRUE(host.Call(vlc, "AddUserInterface", {host.String("dummy")}).AsBool());
    // The device count is called and its answer dropped.
    fake.setInt("libvlc_audio_output_device_count", 5);
    EXPECT_EQ(host.Call(vlc, "GetAudioOutputDeviceCount", {host.String("alsa")}).AsInt(), 0);
    EXPECT_EQ(fake.calls("libvlc_audio_output_device_count"), 1);
    EXPECT_TRUE(host.Call(vlc, "GetAudioOutputDeviceLongName", {host.String("alsa"), Value::Int(0)}).IsNil());
    static char name[] = "Device \xC3\xA9";
    fake.setPtr("libvlc_audio_output_device_longname", name);
    EXPECT_EQ(host.Text(host.Call(vlc, "GetAudioOutputDeviceLongName", {host.String("alsa"), Value::Int(3)})),
              "Device \xC3\xA9");
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(WithFake, EmptyListsAnswerNilWithoutARelease) {
    Value vlc = Instance();
    EXPECT_TRUE(host.Call(vlc, "GetAudioOutputList").IsNil());
    EXPECT_TRUE(host.Call(vlc, "AudioOutputDevices", {host.String("pulse")}).IsNil());
    EXPECT_TRUE(host.Call(vlc, "GetVideoFilterList").IsNil());
    EXPECT_TRUE(host.Call(vlc, "GetAudioFilterList").IsNil());
    EXPECT_EQ(fake.calls("libvlc_audio_output_list_release"), 0);
    EXPECT_EQ(fake.calls("libvlc_audio_output_device_list_release"), 0);
    EXPECT_EQ(fake.calls("libvlc_module_description_list_release"), 0);
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(WithFake, ListsBecomeRecordChainsHeadFirst) {
    Value vlc = Instance();
    libvlc_audio_output_t second{const_cast<char*>("pulse"), nullptr, nullptr};
    libvlc_audio_output_t first{const_cast<char*>("alsa"), const_cast<char*>("ALSA output"), &second};
    fake.setPtr("libvlc_audio_output_list_get", &first);
    size_t objects = host.LiveObjects();
    {
        Value head = host.Call(vlc, "GetAudioOutputList");
        EXPECT_EQ(host.Text(host.Get(head, "Name")), "alsa");
        EXPECT_EQ(host.Text(host.Get(head, "Description")), "ALSA output");
        Value next = host.Get(head, "NextOutput");
        EXPECT_EQ(host.Text(host.Get(next, "Name")), "pulse");
        EXPECT_TRUE(host.Get(next, "Description").IsNil());
        EXPECT_TRUE(host.Get(next, "NextOutput").IsNil());
        EXPECT_EQ(fake.calls("libvlc_audio_output_list_release"), 1);
    }
    EXPECT_EQ(host.LiveObjects(), objects) << "the chain goes with its head";

    libvlc_module_description_t module{const_cast<char*>("grain"), const_cast<char*>("Grain"),
                                       const_cast<char*>("Grain video filter"), nullptr, nullptr};
    fake.setPtr("libvlc_video_filter_list_get", &module);
    Value filter = host.Call(vlc, "GetVideoFilterList");
    EXPECT_EQ(host.Text(host.Get(filter, "LongName")), "Grain video filter");
    EXPECT_TRUE(host.Get(filter, "Help").IsNil());
    EXPECT_TRUE(host.Get(filter, "NextModule").IsNil());

    libvlc_audio_output_device_t device{nullptr, const_cast<char*>("hw:0"), const_cast<char*>("Card")};
    fake.setPtr("libvlc_audio_output_device_list_get", &device);
    Value devices = host.Call(vlc, "AudioOutputDevices", {host.String("alsa")});
    EXPECT_EQ(host.Text(host.Get(devices, "Device")), "hw:0");
    EXPECT_EQ(fake.calls("libvlc_audio_output_device_list_release"), 1);
}

TEST_F(WithFake, TracksStatsAndTheirAccessors) {
    Value vlc = Instance();
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String("/x.mp4")});
    libvlc_video_track_t video{};
    video.i_width = 640;
    video.i_height = 360;
    video.i_sar_num = 4;
    video.i_sar_den = 0;
    video.i_frame_rate_num = 30000;
    video.i_frame_rate_den = 1001;
    libvlc_audio_track_t audio{2, 48000};
    libvlc_subtitle_track_t text{const_cast<char*>("UTF-8")};
    libvlc_media_track_t tracks[3] = {};
    tracks[0].i_codec = 0x34363268;  // "h264"
    tracks[0].i_type = libvlc_track_video;
    tracks[0].video = &video;
    tracks[1].i_codec = 0x6134706d;  // "mp4a"
    tracks[1].i_type = libvlc_track_audio;
    tracks[1].audio = &audio;
    tracks[1].psz_language = const_cast<char*>("eng");
    tracks[2].i_type = libvlc_track_text;
    tracks[2].subtitle = &text;
    libvlc_media_track_t* list[4] = {&tracks[0], &tracks[1], &tracks[2], nullptr};
    fake.setPtr("libvlc_media_tracks_get", list);
    fake.setInt("libvlc_media_tracks_get", 4);
    Value array = host.Call(media, "Tracks");
    auto items = host.ArrayObjects(array);
    ASSERT_EQ(items.size(), 4u);
    EXPECT_TRUE(items[3].IsNil()) << "a null track pointer is a nil element";
    EXPECT_EQ(host.Text(host.Get(items[0], "CodecString")), "h264");
    EXPECT_EQ(host.Get(items[0], "FrameRate").AsDouble(), 29.0);
    EXPECT_EQ(host.Get(items[0], "Sar").AsDouble(), 0.0);
    EXPECT_EQ(host.Get(items[0], "Width").AsInt(), 640);
    EXPECT_EQ(host.Get(items[0], "Channels").AsInt(), 0);
    host.Set(items[0], "Sar", Value::Dbl(1.5));
    EXPECT_EQ(host.Get(items[0], "Sar").AsDouble(), 1.5);
    EXPECT_EQ(host.Get(items[0], "SarNum").AsInt(), 4);
    EXPECT_EQ(host.Text(host.Get(items[1], "Language")), "eng");
    EXPECT_EQ(host.Get(items[1], "Rate").AsInt(), 48000);
    EXPECT_EQ(host.Get(items[1], "Height").AsInt(), 0);
    EXPECT_EQ(host.Get(items[1], "FrameRate").AsDouble(), 0.0);
    EXPECT_EQ(host.Text(host.Get(items[2], "Encoding")), "UTF-8");
    EXPECT_EQ(fake.calls("libvlc_media_tracks_release"), 0) << "the track array is not given back";

    fake.setInt("libvlc_media_tracks_get", 0);
    fake.setPtr("libvlc_media_tracks_get", nullptr);
    Value none = host.Call(media, "Tracks");
    EXPECT_FALSE(none.IsNil());
    EXPECT_EQ(host.ArrayUBound(none), -1);

    libvlc_media_stats_t stats{};
    stats.i_read_bytes = -5;
    stats.f_input_bitrate = 1.5f;
    stats.i_displayed_pictures = 77;
    stats.f_send_bitrate = -0.25f;
    fake.setPtr("libvlc_media_get_stats", &stats);
    Value record = host.Call(media, "Stats");
    EXPECT_EQ(host.Get(record, "ReadBytes").AsInt(), -5);
    EXPECT_EQ(host.Get(record, "InputBitrate").AsDouble(), 1.5);
    EXPECT_EQ(host.Get(record, "SendBitrate").AsDouble(), -0.25);
    EXPECT_EQ(host.Get(record, "DisplayedPictures").AsInt(), 77);
    host.Set(record, "DemuxBitrate", Value::Sgl(2.25f));
    EXPECT_EQ(host.Get(record, "DemuxBitrate").AsDouble(), 2.25);
    EXPECT_EQ(host.Get(record, "InputBitrate").AsDouble(), 1.5);
    fake.setPtr("libvlc_media_get_stats", nullptr);
    EXPECT_TRUE(host.Call(media, "Stats").IsNil());
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(WithFake, TrackInfosAre28ByteRecordsFreedWithLibvlcFree) {
    Value vlc = Instance();
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String("/x.mp4")});
    libvlc_media_track_info_t info[2] = {};
    info[0].i_codec = 0x34363268;
    info[0].i_type = libvlc_track_video;
    info[0].u.video.i_height = 240;
    info[0].u.video.i_width = 320;
    info[1].i_codec = 0x6134706d;
    info[1].i_type = libvlc_track_audio;
    info[1].u.audio.i_channels = 2;
    info[1].u.audio.i_rate = 44100;
    fake.setPtr("libvlc_media_get_tracks_info", info);
    fake.setInt("libvlc_media_get_tracks_info", 2);
    auto items = host.ArrayObjects(host.Call(media, "TrackInfos"));
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(host.Get(items[0], "Width").AsInt(), 320);
    EXPECT_EQ(host.Get(items[0], "Channels").AsInt(), 0);
    EXPECT_EQ(host.Text(host.Get(items[1], "CodecString")), "mp4a");
    EXPECT_EQ(host.Get(items[1], "Rate").AsInt(), 44100);
    EXPECT_EQ(fake.calls("libvlc_free"), 1);
}

TEST_F(WithFake, NilFolderItemReachesLibvlcAsNullPath) {
    Value vlc = Instance();
    host.CallShared("VLCMediaQRV", "MediaWithFile", {vlc, Value()});
    EXPECT_EQ(fake.Text("libvlc_media_new_path.path"), "(null)");
}

TEST_F(WithFake, FailedMediaFromDataDeletesItsFile) {
    Value vlc = Instance();
    fake.setInt("libvlc_media_new_path", -1);
    EXPECT_TRUE(host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, host.String("bytes")}).IsNil());
    std::string path = fake.Text("libvlc_media_new_path.path");
    ASSERT_EQ(path.rfind("/tmp/temp.", 0), 0u) << path;
    EXPECT_NE(access(path.c_str(), F_OK), 0) << path << " should be gone";
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(WithFake, DestroyedInstanceIsUninitialised) {
    Value vlc = Instance();
    host.Call(vlc, "Destructor");
    EXPECT_EQ(host.Get(vlc, "Handle").AsInt(), 0);
    EXPECT_EQ(fake.calls("libvlc_release"), 1);
    EXPECT_FALSE(host.Call(vlc, "AddUserInterface", {host.String("x")}).AsBool());
    EXPECT_TRUE(RaisedNotInitialized(host));
    EXPECT_TRUE(host.Call(vlc, "GetAudioOutputList").IsNil());
    EXPECT_TRUE(RaisedNotInitialized(host));
}

// Values libvlc 3.0 would use unchecked as indexes raise before reaching it;
// Stats reads libvlc's answer from its low byte.
TEST_F(WithFake, IndexesLibvlcDoesNotCheckAndStatsAnswer) {
    Value vlc = Instance();
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String("/x.mp4")});
    host.Call(media, "SetMeta", {Value::Int(-1), host.String("x")});
    EXPECT_TRUE(
        qrvtest::Raised(host, "OutOfBoundsException",
                        "The parameter meta to method SetMeta is too small. Range is 0 to 25, but value is -1."));
    host.Call(media, "SetMeta", {Value::Int(100), host.String("x")});
    EXPECT_TRUE(
        qrvtest::Raised(host, "OutOfBoundsException",
                        "The parameter meta to method SetMeta is too big. Range is 0 to 25, but value is 100."));
    EXPECT_TRUE(host.Call(media, "Meta", {Value::Int(-1)}).IsNil());
    EXPECT_EQ(host.exception->className, "OutOfBoundsException");
    EXPECT_EQ(fake.calls("libvlc_media_set_meta") + fake.calls("libvlc_media_get_meta"), 0);
    host.Call(media, "SetMeta", {Value::Int(25), host.String("x")});
    EXPECT_EQ(fake.calls("libvlc_media_set_meta"), 1);

    Value list = host.New("VLCMediaListQRV", {vlc});
    fake.setInt("libvlc_media_list_count", 2);
    for (int64_t index : {int64_t{-1}, int64_t{3}, int64_t{1} << 32}) {
        EXPECT_FALSE(host.Call(list, "InsertMedia", {media, Value::Int(index)}).AsBool());
        EXPECT_EQ(host.exception->className, "OutOfBoundsException") << index;
    }
    EXPECT_EQ(fake.calls("libvlc_media_list_insert_media"), 0);
    EXPECT_TRUE(host.Call(list, "InsertMedia", {media, Value::Int(2)}).AsBool()) << "appending is in range";
    EXPECT_EQ(fake.calls("libvlc_media_list_insert_media"), 1);

    libvlc_media_stats_t stats{};
    fake.setPtr("libvlc_media_get_stats", &stats);
    fake.setInt("libvlc_media_get_stats", 256);
    EXPECT_TRUE(host.Call(media, "Stats").IsNil());
    fake.setInt("libvlc_media_get_stats", 257);
    EXPECT_FALSE(host.Call(media, "Stats").IsNil());
}

// A media from bytes whose wrapper cannot be made is not released through a
// missing libvlc_media_release.
TEST(PartialFake, MediaFromDataWithoutReleaseOrWrapper) {
    emu::HostOptions options;
    options.refusedClasses = {"VLCMediaQRV"};
    Host host(options);
    FakeVLC partial(true);
    ASSERT_TRUE(partial.LoadInto(host));
    Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
    EXPECT_TRUE(host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, host.String("bytes")}).IsNil());
    EXPECT_EQ(partial.calls("libvlc_media_new_path"), 1);
}

TEST(PartialFake, SecondLoadLeavesMissingEntriesNull) {
    Host host;
    FakeVLC full(false), partial(true);
    ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
    ASSERT_TRUE(partial.LoadInto(host)) << "the three key functions exist";
    EXPECT_NE(host.Text(host.CallShared("VLCInstanceQRV", "GetLoadError")).find("undefined symbol"), std::string::npos);
    Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
    Value library = host.New("VLCMediaLibraryQRV", {vlc});
    EXPECT_TRUE(qrvtest::RaisedMissing(host, "_libvlc_media_library_new"));
    EXPECT_EQ(host.Get(library, "Handle").AsInt(), 0);
    host.New("VLCEqualizerQRV", {Value::Int(1), Value()});
    EXPECT_TRUE(qrvtest::RaisedMissing(host, "_libvlc_audio_equalizer_new_from_preset"));
}

}  // namespace
