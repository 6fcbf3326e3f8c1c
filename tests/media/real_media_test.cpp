// Media objects on Debian's libvlc 3.0, headless, with the bundled samples.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iterator>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;
using qrvtest::NothingRaised;
using qrvtest::Raised;
using qrvtest::RaisedNotInitialized;
using qrvtest::SamplePath;

class RealLibvlc : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
        vlc = qrvtest::HeadlessInstance(host);
        ASSERT_NE(host.Get(vlc, "Handle").AsInt(), 0);
    }
    Value MediaAt(const std::string& path) {
        return host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(path)});
    }
    // Parses synchronously (libvlc 3.0 still offers it) and answers the media.
    Value Parsed(Value media) {
        host.Call(media, "Parse");
        return media;
    }
    std::string Bytes(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
    Host host;
    Value vlc;
};

// libvlc's error text exists only while an instance does.
TEST(RealLibvlcErrors, ErrorTextOnlyWhileAnInstanceLives) {
    Host host;
    ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
    {
        Value vlc = qrvtest::HeadlessInstance(host);
        Value listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
        EXPECT_FALSE(host.Call(listPlayer, "MoveNext").AsBool());
        EXPECT_EQ(host.Text(host.CallShared("VLCInstanceQRV", "ErrorMessage")), "No media list");
    }
    EXPECT_EQ(host.LiveObjects(), 0u);
    // Another library's thread key now takes the slot libvlc's key had.
    static char otherLibrarysData[] = "not libvlc's";
    pthread_key_t other;
    ASSERT_EQ(pthread_key_create(&other, nullptr), 0);
    pthread_setspecific(other, otherLibrarysData);
    EXPECT_TRUE(host.CallShared("VLCInstanceQRV", "ErrorMessage").IsNil());
    host.CallShared("VLCInstanceQRV", "ClearError");
    EXPECT_EQ(pthread_getspecific(other), otherLibrarysData);
    pthread_key_delete(other);
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(RealLibvlc, InstanceListsOutputsAndFilters) {
    Value outputs = host.Call(vlc, "GetAudioOutputList");
    ASSERT_FALSE(outputs.IsNil());
    bool sawDummy = false;
    for (Value node = outputs; !node.IsNil(); node = host.Get(node, "NextOutput"))
        sawDummy = sawDummy || host.Text(host.Get(node, "Name")) == "adummy";
    EXPECT_TRUE(sawDummy);
    Value filters = host.Call(vlc, "GetVideoFilterList");
    ASSERT_FALSE(filters.IsNil());
    EXPECT_FALSE(host.Get(filters, "Name").IsNil());
    EXPECT_FALSE(host.Call(vlc, "AddUserInterface", {host.String("no-such-interface")}).AsBool());
    host.Call(vlc, "SetUserAgent", {host.String("QRV"), host.String("QRV/1.0")});
    host.Call(vlc, "SetAppID", {host.String("org.qrv.test"), host.String("1.0"), host.String("icon")});
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(RealLibvlc, MediaFromEverySourceParses) {
    std::string mp4 = SamplePath("sample.mp4");
    std::vector<Value> media;
    media.push_back(MediaAt(mp4));
    media.push_back(host.CallShared("VLCMediaQRV", "MediaWithURL", {vlc, host.String("file://" + mp4)}));
    media.push_back(host.CallShared("VLCMediaQRV", "MediaWithFile", {vlc, host.FolderItem(mp4)}));
    int fd = open(mp4.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    Value byDescriptor = host.CallShared("VLCMediaQRV", "MediaWithFileDescriptor", {vlc, Value::Int(fd)});
    std::string bytes = Bytes(mp4);
    Value block = host.MemoryBlock(bytes.size());
    memcpy(host.MemoryBytesPointer(block), bytes.data(), bytes.size());
    media.push_back(host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, block}));
    media.push_back(host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, host.String(bytes, kEncodingUnknown)}));
    for (size_t i = 0; i < media.size(); ++i) {
        ASSERT_FALSE(media[i].IsNil()) << i;
        Parsed(media[i]);
        EXPECT_EQ(host.Call(media[i], "Duration").AsInt(), 3003) << i;
        EXPECT_TRUE(host.Call(media[i], "IsParsed").AsBool()) << i;
        EXPECT_EQ(host.Get(media[i], "VLC").AsObject(), vlc.AsObject()) << i;
    }
    EXPECT_EQ(host.Text(host.Call(media[0], "MRL")), "file://" + mp4);
    EXPECT_EQ(host.Text(host.Call(media[3], "MRL")).rfind("file:///tmp/temp.", 0), 0u);
    // libvlc 3.0's local parse does not read fd:// media; its MRL names the descriptor.
    EXPECT_EQ(host.Text(host.Call(byDescriptor, "MRL")), "fd://" + std::to_string(fd));
    EXPECT_TRUE(NothingRaised(host));
    for (Value& m : media) {
        std::string mrl = host.Text(host.Call(m, "MRL"));
        if (mrl.rfind("file:///tmp/temp.", 0) == 0) unlink(mrl.substr(7).c_str());
    }
    close(fd);
}

TEST_F(RealLibvlc, MediaFromDataKeepsItsTemporaryFile) {
    Value empty = host.CallShared("VLCMediaQRV", "MediaWithData", {vlc, host.MemoryBlock(0)});
    ASSERT_FALSE(empty.IsNil());
    std::string mrl = host.Text(host.Call(empty, "MRL"));
    ASSERT_EQ(mrl.rfind("file:///tmp/temp.", 0), 0u) << mrl;
    std::string path = mrl.substr(7);
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_size, 0);
    empty = Value();  // destroys the media
    EXPECT_EQ(access(path.c_str(), F_OK), 0) << "the file stays in /tmp";
    unlink(path.c_str());
}

TEST_F(RealLibvlc, MetaDurationStateAndTracks) {
    Value media = Parsed(MediaAt(SamplePath("sample.mp4")));
    EXPECT_EQ(host.Text(host.Call(media, "Meta", {Value::Int(0)})), "QRV Sample");
    EXPECT_EQ(host.Text(host.Call(media, "Meta", {Value::Int(1)})), "QRVVLC Tests");
    EXPECT_EQ(host.Call(media, "State").AsInt(), 0);
    auto tracks = host.ArrayObjects(host.Call(media, "Tracks"));
    ASSERT_EQ(tracks.size(), 2u);
    Value video = host.Get(tracks[0], "Type").AsInt() == 1 ? tracks[0] : tracks[1];
    Value audio = host.Get(tracks[0], "Type").AsInt() == 1 ? tracks[1] : tracks[0];
    EXPECT_EQ(host.Text(host.Get(video, "CodecString")), "h264");
    EXPECT_EQ(host.Get(video, "Width").AsInt(), 320);
    EXPECT_EQ(host.Get(video, "Height").AsInt(), 240);
    EXPECT_EQ(host.Get(video, "FrameRateNum").AsInt(), 30000);
    EXPECT_EQ(host.Get(video, "FrameRateDen").AsInt(), 1001);
    EXPECT_EQ(host.Get(video, "FrameRate").AsDouble(), 29.0);
    EXPECT_EQ(host.Get(video, "Sar").AsDouble(), 1.0);
    EXPECT_EQ(host.Text(host.Get(audio, "CodecString")), "mp4a");
    EXPECT_EQ(host.Get(audio, "Channels").AsInt(), 2);
    EXPECT_EQ(host.Get(audio, "Rate").AsInt(), 44100);
    auto infos = host.ArrayObjects(host.Call(media, "TrackInfos"));
    ASSERT_EQ(infos.size(), 2u);
    EXPECT_EQ(host.Text(host.Get(infos[0], "CodecString")), "h264");
    EXPECT_EQ(host.Get(infos[0], "Width").AsInt(), 320);
    EXPECT_EQ(host.Get(infos[1], "Channels").AsInt(), 2);
    Value stats = host.Call(media, "Stats");
    ASSERT_FALSE(stats.IsNil());
    EXPECT_EQ(host.Get(stats, "DisplayedPictures").AsInt(), 0) << "nothing played yet";
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(RealLibvlc, SetAndSaveMetaOnACopy) {
    char dir[] = "/tmp/qrv-meta-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string copy = std::string(dir) + "/tagged.mp3";
    std::ofstream(copy, std::ios::binary) << Bytes(SamplePath("tagged.mp3"));
    {
        Value media = Parsed(MediaAt(copy));
        EXPECT_EQ(host.Text(host.Call(media, "Meta", {Value::Int(0)})), "Tagged Tone");
        host.Call(media, "SetMeta", {Value::Int(0), host.String("Renamed \xC3\xA9")});
        EXPECT_TRUE(host.Call(media, "SaveMeta").AsBool());
    }
    Value again = Parsed(MediaAt(copy));
    EXPECT_EQ(host.Text(host.Call(again, "Meta", {Value::Int(0)})), "Renamed \xC3\xA9");
    unlink(copy.c_str());
    rmdir(dir);
}

TEST_F(RealLibvlc, WrappersOfOneMediaShareTheTag) {
    Value list = host.New("VLCMediaListQRV", {vlc});
    Value media = MediaAt(SamplePath("tone.wav"));
    ASSERT_TRUE(host.Call(list, "AddMedia", {media}).AsBool());
    Value other = host.Call(list, "ItemAtIndex", {Value::Int(0)});
    ASSERT_FALSE(other.IsNil());
    EXPECT_NE(other.AsObject(), media.AsObject());
    host.Set(media, "Tag", Value::Int(0x5eed));
    EXPECT_EQ(host.Get(other, "Tag").AsInt(), 0x5eed);
    Value clone = host.Call(media, "Clone");
    EXPECT_EQ(host.Get(clone, "VLC").AsObject(), vlc.AsObject());
}

TEST_F(RealLibvlc, ConstructorsAndTheirBackReference) {
    Value byUrl = host.New("VLCMediaQRV", {vlc, host.String("file://" + SamplePath("tone.wav"))});
    EXPECT_NE(host.Get(byUrl, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(byUrl, "VLC").IsNil());
    Value factory = host.CallShared("VLCMediaQRV", "MediaWithURL", {vlc, host.String("file:///x.wav")});
    EXPECT_EQ(host.Get(factory, "VLC").AsObject(), vlc.AsObject());
    Value copy = host.New("VLCMediaQRV", {factory});
    EXPECT_NE(host.Get(copy, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(copy, "VLC").IsNil());
    host.CallShared("VLCMediaQRV", "MediaWithPath", {host.NewRaw("VLCInstanceQRV"), host.String("/x")});
    EXPECT_TRUE(Raised(host, "NilObjectException", "vlc parameter is nil"));
}

TEST_F(RealLibvlc, FailedCloneConstructorClosesDescriptorZero) {
    // Descriptor 0 becomes a stand-in, so the test runner's stdin survives.
    int savedStdin = dup(0);
    ASSERT_GE(savedStdin, 0);
    int standIn = open("/dev/null", O_RDONLY);
    ASSERT_GE(dup2(standIn, 0), 0);
    close(standIn);
    {
        Value media = host.New("VLCMediaQRV", {Value()});
        EXPECT_TRUE(Raised(host, "NilObjectException", "original parameter is nil"));
        EXPECT_EQ(host.Get(media, "Handle").AsInt(), 0);
        EXPECT_NE(fcntl(0, F_GETFD), -1);
    }
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "its destructor closed descriptor 0";
    dup2(savedStdin, 0);
    close(savedStdin);
}

TEST_F(RealLibvlc, MediaListOperationsAndTheLockAudit) {
    Value list = host.New("VLCMediaListQRV", {vlc});
    Value first = MediaAt(SamplePath("tone.wav"));
    Value second = MediaAt(SamplePath("tagged.mp3"));
    Value absent = MediaAt(SamplePath("sample.mp4"));
    int64_t locks = host.LockCount(first);
    size_t objects = host.LiveObjects();
    EXPECT_TRUE(host.Call(list, "AddMedia", {first}).AsBool());
    EXPECT_TRUE(host.Call(list, "InsertMedia", {second, Value::Int(0)}).AsBool());
    EXPECT_EQ(host.Call(list, "Count").AsInt(), 2);
    EXPECT_EQ(host.Call(list, "IndexOfItem", {first}).AsInt(), 1);
    EXPECT_EQ(host.Call(list, "IndexOfItem", {absent}).AsInt(), -1);
    EXPECT_TRUE(host.Call(list, "ItemAtIndex", {Value::Int(2)}).IsNil());
    {
        Value item = host.Call(list, "ItemAtIndex", {Value::Int(1)});
        EXPECT_EQ(host.Get(item, "Handle").AsInt(), host.Get(first, "Handle").AsInt());
    }
    EXPECT_FALSE(host.Call(list, "isReadOnly").AsBool());
    host.Call(list, "Lock");
    host.Call(list, "Unlock");
    EXPECT_FALSE(host.Call(list, "Remove", {Value::Int(7)}).AsBool());
    EXPECT_TRUE(host.Call(list, "Remove", {Value::Int(0)}).AsBool());
    EXPECT_EQ(host.Call(list, "Count").AsInt(), 1);
    host.Call(list, "SetMedia", {absent});
    Value own = host.Call(list, "GetMedia");
    EXPECT_EQ(host.Get(own, "Handle").AsInt(), host.Get(absent, "Handle").AsInt());
    own = Value();
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_EQ(host.LockCount(first), locks) << "the list keeps no host reference of its media";
    EXPECT_EQ(host.LiveObjects(), objects) << "wrappers handed out are released with their values";

    EXPECT_FALSE(host.Call(list, "AddMedia", {Value()}).AsBool());
    EXPECT_TRUE(Raised(host, "NilObjectException", "item parameter is nil"));
    EXPECT_FALSE(host.Call(list, "AddMedia", {host.New("VLCMediaQRV", {Value(), host.String("x")})}).AsBool());
    EXPECT_TRUE(Raised(host, "NilObjectException", "item parameter is nil"));
}

TEST_F(RealLibvlc, UninitialisedListRaisesBeforeTracing) {
    Value list = host.New("VLCMediaListQRV", {host.NewRaw("VLCInstanceQRV")});
    EXPECT_TRUE(Raised(host, "NilObjectException", "vlc parameter is nil"));
    EXPECT_FALSE(host.Get(list, "VLC").IsNil()) << "the instance is kept although it had no handle";
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    qrvtest::StderrCapture capture;
    host.Call(list, "Lock");
    EXPECT_EQ(capture.Finish(), "");
    EXPECT_TRUE(RaisedNotInitialized(host));
    qrvtest::StderrCapture counted;
    Value good = host.New("VLCMediaListQRV", {vlc});
    host.Call(good, "Count");
    EXPECT_NE(counted.Finish().find("QRV Debug: Count\n"), std::string::npos);
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
}

TEST_F(RealLibvlc, EqualizerPresetsBandsAndBounds) {
    int64_t presets = host.GetShared("VLCEqualizerQRV", "PresetCount").AsInt();
    int64_t bands = host.GetShared("VLCEqualizerQRV", "BandCount").AsInt();
    EXPECT_EQ(presets, 18);
    EXPECT_EQ(bands, 10);
    EXPECT_EQ(host.Text(host.CallShared("VLCEqualizerQRV", "PresetName", {Value::Int(0)})), "Flat");
    EXPECT_TRUE(host.CallShared("VLCEqualizerQRV", "PresetName", {Value::Int(presets)}).IsNil());
    EXPECT_TRUE(Raised(host, "OutOfBoundsException",
                       "The parameter index to method PresetName is too big. Range is 0 to 17, but value is 18."));
    EXPECT_TRUE(host.CallShared("VLCEqualizerQRV", "PresetName", {Value::Int(-1)}).IsNil());
    EXPECT_TRUE(Raised(host, "OutOfBoundsException",
                       "The parameter index to method PresetName is too small. Range is 0 to 17, but value is -1."));
    EXPECT_EQ(host.CallShared("VLCEqualizerQRV", "BandFrequency", {Value::Int(0)}).AsDouble(), 31.25);
    EXPECT_EQ(host.CallShared("VLCEqualizerQRV", "BandFrequency", {Value::Int(bands)}).AsDouble(), 0.0);
    EXPECT_TRUE(Raised(host, "OutOfBoundsException",
                       "The parameter index to method BandFrequency is too big. Range is 0 to 9, but value is 10."));

    Value flat = host.New("VLCEqualizerQRV", {Value()});
    EXPECT_TRUE(host.Get(flat, "VLC").IsNil());
    host.Assign(flat, "Map", {Value::Int(2)}, Value::Sgl(4.5f));
    EXPECT_EQ(host.Call(flat, "Map", {Value::Int(2)}).AsDouble(), 4.5);
    host.Call(flat, "Map", {Value::Int(bands)});
    EXPECT_TRUE(NothingRaised(host)) << "libvlc's own answer stands for a band past the end";
    host.Set(flat, "Preamp", Value::Sgl(-3.0f));
    EXPECT_EQ(host.Get(flat, "Preamp").AsDouble(), -3.0);

    Value preset = host.New("VLCEqualizerQRV", {Value::Int(1), vlc});
    EXPECT_NE(host.Get(preset, "Handle").AsInt(), 0);
    EXPECT_EQ(host.Get(preset, "VLC").AsObject(), vlc.AsObject());
    Value invalid = host.New("VLCEqualizerQRV", {Value::Int(999), Value()});
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_EQ(host.Get(invalid, "Handle").AsInt(), 0);
    EXPECT_EQ(host.Call(invalid, "Map", {Value::Int(0)}).AsDouble(), 0.0);
    EXPECT_TRUE(RaisedNotInitialized(host));
}

TEST_F(RealLibvlc, DiscoverersAndTheLibrary) {
    Value unknown = host.New("VLCMediaDiscovererQRV", {vlc, host.String("no-such-service")});
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_EQ(host.Get(unknown, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Call(unknown, "MediaList").IsNil());
    EXPECT_TRUE(RaisedNotInitialized(host));

    Value videos = host.New("VLCMediaDiscovererQRV", {vlc, host.String("video_dir")});
    ASSERT_NE(host.Get(videos, "Handle").AsInt(), 0);
    EXPECT_EQ(host.Text(host.Call(videos, "LocalizedName")), "My Videos");
    EXPECT_TRUE(host.Call(videos, "IsRunning").AsBool());
    Value found = host.Call(videos, "MediaList");
    ASSERT_FALSE(found.IsNil());
    EXPECT_EQ(host.Get(found, "VLC").AsObject(), vlc.AsObject());
    EXPECT_GE(host.Call(found, "Count").AsInt(), 0);

    Value library = host.New("VLCMediaLibraryQRV", {vlc});
    EXPECT_NE(host.Get(library, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Call(library, "Load").AsBool());
    Value libraryList = host.Call(library, "MediaList");
    ASSERT_FALSE(libraryList.IsNil());
    EXPECT_EQ(host.Get(libraryList, "VLC").AsObject(), vlc.AsObject());
    EXPECT_TRUE(NothingRaised(host));

    Value blank = host.NewRaw("VLCInstanceQRV");
    Value kept = host.New("VLCMediaLibraryQRV", {blank});
    EXPECT_TRUE(Raised(host, "NilObjectException", "vlc parameter is nil"));
    EXPECT_EQ(host.Get(kept, "VLC").AsObject(), blank.AsObject());
    Value none = host.New("VLCMediaLibraryQRV", {Value()});
    EXPECT_TRUE(Raised(host, "NilObjectException", "vlc parameter is nil"));
    EXPECT_TRUE(host.Get(none, "VLC").IsNil());
}

}  // namespace
