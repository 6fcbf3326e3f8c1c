// Instance, records and media paths observed through the fake libvlc, where
// the real one cannot show what the plug-in handed over or freed.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/test_support.h"

namespace {

using namespace emu;
using namespace qrvtest;

char* Text(const char* text) { return const_cast<char*>(text); }

class WithFake : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
        vlc = host.New("VLCInstanceQRV", {host.StringArray({"--quiet"})});
        media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String("/x.mp4")});
    }
    std::string Name(const Value& record, const char* field) { return host.Text(host.Get(record, field)); }
    Host host;
    FakeVLC fake;
    Value vlc, media;
};

TEST_F(WithFake, InstanceArgumentsReachLibvlcAndEachWrapperReleasesOnce) {
    for (auto [args, argc, argv] : std::initializer_list<std::tuple<Value, int64_t, const char*>>{
             {Value(), 0, "(null argv)"},
             {host.StringArray({}), 0, "(null argv)"},
             {host.StringArray({"--first", "caf\xC3\xA9", ""}), 3, "--first\ncaf\xC3\xA9\n"}}) {
        EXPECT_NE(host.Get(host.New("VLCInstanceQRV", {args}), "Handle").AsInt(), 0);
        EXPECT_EQ(fake.integer("libvlc_new.argc"), argc);
        EXPECT_EQ(fake.Text("libvlc_new.argv"), argv);
    }
    // Every wrapper gives back, once, the libvlc object it made when the host drops it.
    for (auto [cls, made, released] : std::initializer_list<std::tuple<std::string, const char*, const char*>>{
             {"VLCInstanceQRV", "libvlc_new", "libvlc_release"},
             {"VLCMediaPlayerQRV", "libvlc_media_player_new", "libvlc_media_player_release"},
             {"VLCMediaListQRV", "libvlc_media_list_new", "libvlc_media_list_release"},
             {"VLCMediaListPlayerQRV", "libvlc_media_list_player_new", "libvlc_media_list_player_release"},
             {"VLCEqualizerQRV", "libvlc_audio_equalizer_new", "libvlc_audio_equalizer_release"}}) {
        int64_t madeBefore = fake.calls(made), releasedBefore = fake.calls(released);
        Value object = host.New(cls, {cls == "VLCInstanceQRV" ? host.StringArray({}) : vlc});
        EXPECT_EQ(fake.calls(made), madeBefore + 1) << cls;
        EXPECT_EQ(fake.calls(released), releasedBefore) << cls << " released while held";
        object = Value();
        EXPECT_EQ(fake.calls(released), releasedBefore + 1) << cls;
    }
}

// Lists become record chains, head first, each released once; an empty one is nil.
TEST_F(WithFake, InstanceListsBecomeRecordChainsAndAnswersAreConverted) {
    for (const char* list : {"GetAudioOutputList", "GetVideoFilterList", "GetAudioFilterList"})
        EXPECT_TRUE(host.Call(vlc, list).IsNil()) << list;
    EXPECT_TRUE(host.Call(vlc, "AudioOutputDevices", {host.String("pulse")}).IsNil());
    EXPECT_EQ(fake.calls("libvlc_audio_output_list_release") + fake.calls("libvlc_audio_output_device_list_release") +
                  fake.calls("libvlc_module_description_list_release"),
              0);

    libvlc_audio_output_t second{Text("pulse"), nullptr, nullptr}, first{Text("alsa"), Text("ALSA output"), &second};
    fake.setPtr("libvlc_audio_output_list_get", &first);
    size_t objects = host.LiveObjects();
    Value head = host.Call(vlc, "GetAudioOutputList");
    EXPECT_EQ(Name(head, "Name") + "|" + Name(head, "Description"), "alsa|ALSA output");
    Value next = host.Get(head, "NextOutput");
    EXPECT_EQ(Name(next, "Name"), "pulse");
    EXPECT_TRUE(host.Get(next, "Description").IsNil());
    EXPECT_TRUE(host.Get(next, "NextOutput").IsNil());
    EXPECT_EQ(fake.calls("libvlc_audio_output_list_release"), 1);
    head = next = Value();
    EXPECT_EQ(host.LiveObjects(), objects) << "the chain goes with its head";

    libvlc_module_description_t module{Text("grain"), Text("Grain"), Text("Grain video filter"), nullptr, nullptr};
    fake.setPtr("libvlc_video_filter_list_get", &module);
    Value filter = host.Call(vlc, "GetVideoFilterList");
    EXPECT_EQ(Name(filter, "LongName"), "Grain video filter");
    EXPECT_TRUE(host.Get(filter, "Help").IsNil());
    EXPECT_TRUE(host.Get(filter, "NextModule").IsNil());
    EXPECT_EQ(fake.calls("libvlc_module_description_list_release"), 1);

    libvlc_audio_output_device_t device{nullptr, Text("hw:0"), Text("Card")};
    fake.setPtr("libvlc_audio_output_device_list_get", &device);
    EXPECT_EQ(Name(host.Call(vlc, "AudioOutputDevices", {host.String("alsa")}), "Device"), "hw:0");
    EXPECT_EQ(fake.calls("libvlc_audio_output_device_list_release"), 1);

    fake.setInt("libvlc_add_intf", -1);
    EXPECT_FALSE(host.Call(vlc, "AddUserInterface", {host.String("dummy")}).AsBool());
    fake.setInt("libvlc_add_intf", 0);
    EXPECT_TRUE(host.Call(vlc, "AddUserInterface", {host.String("dummy")}).AsBool());
    // The device count's answer is dropped.
    fake.setInt("libvlc_audio_output_device_count", 5);
    EXPECT_EQ(host.Call(vlc, "GetAudioOutputDeviceCount", {host.String("alsa")}).AsInt(), 0);
    std::vector<Value> longName = {host.String("alsa"), Value::Int(3)};
    EXPECT_TRUE(host.Call(vlc, "GetAudioOutputDeviceLongName", longName).IsNil());
    fake.setPtr("libvlc_audio_output_device_longname", Text("Device \xC3\xA9"));
    EXPECT_EQ(host.Text(host.Call(vlc, "GetAudioOutputDeviceLongName", longName)), "Device \xC3\xA9");
    EXPECT_TRUE(NothingRaised(host));
    // A destroyed instance is uninitialised.
    host.Call(vlc, "Destructor");
    EXPECT_EQ(host.Get(vlc, "Handle").AsInt(), 0);
    EXPECT_EQ(fake.calls("libvlc_release"), 1);
    EXPECT_FALSE(host.Call(vlc, "AddUserInterface", {host.String("x")}).AsBool());
    EXPECT_TRUE(RaisedNotInitialized(host));
}

TEST_F(WithFake, TracksTrackInfosStatsAndTheirAccessors) {
    libvlc_video_track_t video{360, 640, 4, 0, 30000, 1001, {}, {}, {}};  // height, width, SAR 4:0, 29.97 fps
    libvlc_audio_track_t audio{2, 48000};
    libvlc_subtitle_track_t text{Text("UTF-8")};
    libvlc_media_track_t tracks[3] = {
        {.i_codec = 0x34363268, .i_type = libvlc_track_video, .video = &video},  // "h264"
        {.i_codec = 0x6134706d, .i_type = libvlc_track_audio, .audio = &audio, .psz_language = Text("eng")},
        {.i_type = libvlc_track_text, .subtitle = &text}};
    libvlc_media_track_t* list[4] = {&tracks[0], &tracks[1], &tracks[2], nullptr};
    fake.setPtr("libvlc_media_tracks_get", list);
    fake.setInt("libvlc_media_tracks_get", 4);
    auto items = host.ArrayObjects(host.Call(media, "Tracks"));
    ASSERT_EQ(items.size(), 4u);
    EXPECT_TRUE(items[3].IsNil()) << "a null track pointer is a nil element";
    EXPECT_EQ(Name(items[0], "CodecString") + Name(items[1], "CodecString"), "h264mp4a");
    ExpectAnswers(host, items[0], {{"get FrameRate", 29}, {"get Sar", 0}, {"get Width", 640}, {"get Channels", 0}});
    host.Set(items[0], "Sar", Value::Dbl(1.5));
    ExpectAnswers(host, items[0], {{"get Sar", 1.5}, {"get SarNum", 4}});
    EXPECT_EQ(Name(items[1], "Language"), "eng");
    ExpectAnswers(host, items[1], {{"get Rate", 48000}, {"get Height", 0}, {"get FrameRate", 0}});
    EXPECT_EQ(Name(items[2], "Encoding"), "UTF-8");
    EXPECT_EQ(fake.calls("libvlc_media_tracks_release"), 0) << "the track array is not given back";
    fake.setInt("libvlc_media_tracks_get", 0);
    fake.setPtr("libvlc_media_tracks_get", nullptr);
    EXPECT_EQ(host.ArrayUBound(host.Call(media, "Tracks")), -1) << "an empty array, not nil";

    // Every field distinct, in the record's order.
    libvlc_media_stats_t stats{-5, 1.5f, 3, 4.25f, 5, 6, 7, 8, 77, 10, 11, 12, 13, 14, -0.25f};
    const char* fields[] = {"ReadBytes",         "InputBitrate",       "DemuxRead_bytes", "DemuxBitrate",
                            "DemuxCorrupted",    "DemuxDiscontinuity", "DecodedVideo",    "DecodedAudio",
                            "DisplayedPictures", "LostPictures",       "PlayedAbuffers",  "LostAbuffers",
                            "SentPackets",       "SentBytes",          "SendBitrate"};
    const double values[] = {-5, 1.5, 3, 4.25, 5, 6, 7, 8, 77, 10, 11, 12, 13, 14, -0.25};
    fake.setPtr("libvlc_media_get_stats", &stats);
    Value record = host.Call(media, "Stats");
    for (size_t i = 0; i < std::size(fields); ++i)
        EXPECT_EQ(host.Get(record, fields[i]).AsDouble(), values[i]) << fields[i];
    host.Set(record, "DemuxBitrate", Value::Sgl(2.25f));
    ExpectAnswers(host, record, {{"get DemuxBitrate", 2.25}, {"get InputBitrate", 1.5}});
    fake.setPtr("libvlc_media_get_stats", nullptr);
    EXPECT_TRUE(host.Call(media, "Stats").IsNil());
    // libvlc's answer is read from its low byte.
    fake.setPtr("libvlc_media_get_stats", &stats);
    fake.setInt("libvlc_media_get_stats", 256);
    EXPECT_TRUE(host.Call(media, "Stats").IsNil());
    fake.setInt("libvlc_media_get_stats", 257);
    EXPECT_FALSE(host.Call(media, "Stats").IsNil());
    EXPECT_TRUE(NothingRaised(host));

    // The old track infos: 28-byte records, freed with libvlc_free.
    libvlc_media_track_info_t info[2] = {
        {.i_codec = 0x34363268, .i_type = libvlc_track_video, .u = {.video = {240, 320}}},
        {.i_codec = 0x6134706d, .i_type = libvlc_track_audio, .u = {.audio = {2, 44100}}}};
    fake.setPtr("libvlc_media_get_tracks_info", info);
    fake.setInt("libvlc_media_get_tracks_info", 2);
    items = host.ArrayObjects(host.Call(media, "TrackInfos"));
    ASSERT_EQ(items.size(), 2u);
    ExpectAnswers(host, items[0], {{"get Width", 320}, {"get Height", 240}, {"get Channels", 0}});
    EXPECT_EQ(Name(items[1], "CodecString"), "mp4a");
    ExpectAnswers(host, items[1], {{"get Channels", 2}, {"get Rate", 44100}});
    EXPECT_EQ(fake.calls("libvlc_free"), 1);
}

// A nil folder item reaches libvlc as a null path; refused bytes leave no temporary file.
TEST_F(WithFake, MediaFromANilFileOrRefusedOrUnwritableDataAndUncheckedIndexes) {
    host.CallShared("VLCMediaQRV", "MediaWithFile", {vlc, Value()});
    EXPECT_EQ(fake.Text("libvlc_media_new_path.path"), "(null)");
    fake.setInt("libvlc_media_new_path", -1);
    EXPECT_TRUE(host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, host.String("bytes")}).IsNil());
    std::string path = fake.Text("libvlc_media_new_path.path");
    ASSERT_EQ(path.rfind("/tmp/temp.", 0), 0u) << path;
    EXPECT_NE(access(path.c_str(), F_OK), 0) << path << " should be gone";
#if !defined(__SANITIZE_ADDRESS__)  // its allocator keeps no glibc counts
    Value bytes = host.String("bytes");
    int64_t before = qrvtest::HeapInUse();
    for (int i = 0; i < 1000; ++i) host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, bytes});
    EXPECT_LT(qrvtest::HeapInUse() - before, 16000) << "a refused media's path is freed";
#endif
    EXPECT_TRUE(NothingRaised(host));

    // Values libvlc 3.0 would use unchecked as indexes raise before reaching it.
    host.Call(media, "SetMeta", {Value::Int(-1), host.String("x")});
    EXPECT_TRUE(Raised(host, "OutOfBoundsException",
                       "The parameter meta to method SetMeta is too small. Range is 0 to 25, but value is -1."));
    host.Call(media, "SetMeta", {Value::Int(100), host.String("x")});
    EXPECT_TRUE(Raised(host, "OutOfBoundsException",
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

    // Bytes that cannot all be written (a file size limit here) make no media and
    // leave no open descriptor, also when the temporary file got descriptor 3.
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit limited{2, saved.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    int64_t made = fake.calls("libvlc_media_new_path");
    int moved = fcntl(3, F_GETFD) != -1 ? fcntl(3, F_DUPFD_CLOEXEC, 10) : -1;
    if (moved >= 0) close(3);
    setrlimit(RLIMIT_FSIZE, &limited);
    Value none = host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, host.String("bytes")});
    setrlimit(RLIMIT_FSIZE, &saved);
    bool stillOpen = fcntl(3, F_GETFD) != -1;
    if (moved >= 0) dup2(moved, 3), close(moved);
    EXPECT_TRUE(none.IsNil());
    EXPECT_FALSE(stillOpen) << "the temporary file's descriptor";
    EXPECT_EQ(fake.calls("libvlc_media_new_path"), made);
}

// A media from bytes whose wrapper the host refuses goes back to libvlc, when it has libvlc_media_release.
TEST(RefusedWrapper, MediaFromDataIsReleasedWithOrWithoutLibvlcsRelease) {
    for (bool partial : {false, true}) {
        Host host({.refusedClasses = {"VLCMediaQRV"}});
        FakeVLC fake(partial);
        ASSERT_TRUE(fake.LoadInto(host));
        Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
        EXPECT_TRUE(host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, host.String("bytes")}).IsNil());
        EXPECT_EQ(fake.calls(partial ? "libvlc_media_new_path" : "libvlc_media_release"), 1) << partial;
    }
}

TEST(PartialFake, SecondLoadLeavesMissingEntriesNull) {
    Host host;
    FakeVLC partial(true);
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
