// Media objects on Debian's libvlc 3.0, headless, with the bundled samples.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "tests/events/watchdog.h"
#include "tests/support/test_support.h"

namespace {

using namespace emu;
using namespace qrvtest;

std::string FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A fresh folder under /tmp, removed with all it holds.
struct ScratchFolder {
    char name[24] = "/tmp/qrv-media-XXXXXX";
    const std::string path = mkdtemp(name) ? name : throw std::runtime_error("no temporary folder");
    ~ScratchFolder() { std::filesystem::remove_all(path); }
};

class RealLibvlc : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(LoadRealLibvlc(host));
        vlc = HeadlessInstance(host);
        ASSERT_NE(host.Get(vlc, "Handle").AsInt(), 0);
    }
    Value Shared(const char* method, Value argument) { return host.CallShared("VLCMediaQRV", method, {vlc, argument}); }
    // Parsed synchronously, as libvlc 3.0 still offers.
    Value Parsed(const std::string& path) {
        Value media = Shared("MediaWithPath", host.String(path));
        host.Call(media, "Parse");
        return media;
    }
    std::string Meta(const Value& media, int type) { return host.Text(host.Call(media, "Meta", {Value::Int(type)})); }
    Host host;
    Value vlc;
};

// libvlc's error text exists only while an instance does, read from libvlc's thread key, not another library's.
TEST_F(RealLibvlc, ErrorTextOnlyWhileAnInstanceLives) {
    Value listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
    vlc = Value();
    EXPECT_FALSE(host.Call(listPlayer, "MoveNext").AsBool());
    EXPECT_EQ(host.Text(host.CallShared("VLCInstanceQRV", "ErrorMessage")), "No media list");
    listPlayer = Value();
    EXPECT_EQ(host.LiveObjects(), 0u);
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

// libvlc 3.0 ends the calling process for these instance arguments (it prints, daemonises or hands over
// to a running instance, then exits); tried in a child, so that one let through ends the child only.
// Each follows a plain item, as libvlc reads options after items too.
TEST_F(RealLibvlc, InstanceArgumentsThatEndTheProcessAreRefused) {
    std::istringstream refused(
        "--daemon -d -qd -vd --dae --help -h -H --full-help --longhelp --version --vers --list -l "
        "--list-v --module=dummy --modul=x -pdummy --one-instance --started-from-file --no-ignore-config");
    auto tryEach = [&] {
        int refusedAll = 42;
        for (std::string argument; refused >> argument;) {
            Value instance = host.New("VLCInstanceQRV", {host.StringArray({"--intf=dummy", "item", argument})});
            if (!Raised(host, "OutOfBoundsException", "libvlc would end the program for the argument " + argument) ||
                host.Get(instance, "Handle").AsInt() != 0) {
                fprintf(stderr, "not refused: %s\n", argument.c_str());
                refusedAll = 1;
            }
        }
        _exit(refusedAll);
    };
    EXPECT_EXIT(tryEach(), ::testing::ExitedWithCode(42), "") << "42 when every one raised and made no instance";
    // Their neighbours, values of options that take one, and anything after "--" still reach libvlc.
    for (const char* allowed : {"--no-daemon", "--help-verbose", "-Vdummy", "--verbose=0"}) {
        Value instance = host.New("VLCInstanceQRV", {host.StringArray({"--intf=dummy", "--quiet", allowed})});
        EXPECT_NE(host.Get(instance, "Handle").AsInt(), 0) << allowed;
    }
    Value afterEnd = host.New("VLCInstanceQRV", {host.StringArray({"--intf=dummy", "--", "--help"})});
    EXPECT_NE(host.Get(afterEnd, "Handle").AsInt(), 0);
    EXPECT_TRUE(NothingRaised(host));
}

// Every source of one file parses alike; data goes through a /tmp file of exactly its bytes, left there.
TEST_F(RealLibvlc, MediaFromEverySourceParsesWithMetaStateAndTracks) {
    std::string mp4 = SamplePath("sample.mp4"), bytes = FileBytes(mp4);
    int fd = open(mp4.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    Value block = host.MemoryBlock(bytes.size());
    memcpy(host.MemoryBytesPointer(block), bytes.data(), bytes.size());
    std::vector<Value> media = {Shared("MediaWithPath", host.String(mp4)),
                                Shared("MediaWithURL", host.String("file://" + mp4)),
                                Shared("MediaWithFile", host.FolderItem(mp4)), Shared("MediaWithData", block),
                                Shared("MediaWithData", host.String(bytes, kEncodingUnknown))};
    std::vector<std::string> temporary;
    for (size_t i = 0; i < media.size(); ++i) {
        ASSERT_FALSE(media[i].IsNil()) << i;
        host.Call(media[i], "Parse");
        EXPECT_EQ(host.Call(media[i], "Duration").AsInt(), 3003) << i;
        EXPECT_TRUE(host.Call(media[i], "IsParsed").AsBool()) << i;
        EXPECT_EQ(host.Get(media[i], "VLC").AsObject(), vlc.AsObject()) << i;
        std::string mrl = host.Text(host.Call(media[i], "MRL"));
        EXPECT_EQ(mrl.rfind(i < 3 ? "file://" + mp4 : "file:///tmp/temp.", 0), 0u) << mrl;
        if (i >= 3) temporary.push_back(mrl.substr(7));
    }
    EXPECT_EQ(Meta(media[0], 0), "QRV Sample");
    EXPECT_EQ(Meta(media[0], 1), "QRVVLC Tests");
    EXPECT_EQ(host.Call(media[0], "State").AsInt(), 0);
    auto tracks = host.ArrayObjects(host.Call(media[0], "Tracks"));
    ASSERT_EQ(tracks.size(), 2u);
    if (host.Get(tracks[0], "Type").AsInt() != 1) std::swap(tracks[0], tracks[1]);
    EXPECT_EQ(host.Text(host.Get(tracks[0], "CodecString")), "h264");
    ExpectAnswers(host, tracks[0], {{"get Width", 320}, {"get Height", 240}, {"get Sar", 1}});
    ExpectAnswers(host, tracks[0], {{"get FrameRateNum", 30000}, {"get FrameRateDen", 1001}, {"get FrameRate", 29}});
    EXPECT_EQ(host.Text(host.Get(tracks[1], "CodecString")), "mp4a");
    ExpectAnswers(host, tracks[1], {{"get Channels", 2}, {"get Rate", 44100}});
    // libvlc 3.0's local parse does not read fd:// media; its MRL names the descriptor.
    Value byDescriptor = Shared("MediaWithFileDescriptor", Value::Int(fd));
    EXPECT_EQ(host.Text(host.Call(byDescriptor, "MRL")), "fd://" + std::to_string(fd));
    Value empty = Shared("MediaWithData", host.MemoryBlock(0));
    temporary.push_back(host.Text(host.Call(empty, "MRL")).substr(7));
    EXPECT_TRUE(NothingRaised(host));
    media.clear(), tracks.clear(), empty = byDescriptor = Value();
    for (size_t i = 0; i < temporary.size(); ++i) {
        EXPECT_EQ(FileBytes(temporary[i]), i < 2 ? bytes : "") << temporary[i];
        EXPECT_EQ(unlink(temporary[i].c_str()), 0) << temporary[i];
    }
    close(fd);
}

TEST_F(RealLibvlc, SetAndSaveMetaOnACopy) {
    ScratchFolder folder;
    std::string copy = folder.path + "/tagged.mp3";
    std::filesystem::copy_file(SamplePath("tagged.mp3"), copy);
    Value media = Parsed(copy);
    EXPECT_EQ(Meta(media, 0), "Tagged Tone");
    host.Call(media, "SetMeta", {Value::Int(0), host.String("Renamed \xC3\xA9")});
    EXPECT_TRUE(host.Call(media, "SaveMeta").AsBool());
    media = Value();
    EXPECT_EQ(Meta(Parsed(copy), 0), "Renamed \xC3\xA9");
}

// Only the factories and Clone set the back reference; a failed clone closes descriptor 0.
TEST_F(RealLibvlc, ConstructorsTheirBackReferenceAndAFailedClone) {
    Value byUrl = host.New("VLCMediaQRV", {vlc, host.String("file://" + SamplePath("tone.wav"))});
    EXPECT_NE(host.Get(byUrl, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(byUrl, "VLC").IsNil());
    Value factory = Shared("MediaWithURL", host.String("file:///x.wav"));
    EXPECT_EQ(host.Get(host.Call(factory, "Clone"), "VLC").AsObject(), vlc.AsObject());
    Value copy = host.New("VLCMediaQRV", {factory});
    EXPECT_NE(host.Get(copy, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(copy, "VLC").IsNil());
    host.CallShared("VLCMediaQRV", "MediaWithPath", {host.NewRaw("VLCInstanceQRV"), host.String("/x")});
    EXPECT_TRUE(Raised(host, "NilObjectException", "vlc parameter is nil"));

    // Descriptor 0 becomes a stand-in, so the test runner's stdin survives.
    int savedStdin = dup(0), standIn = open("/dev/null", O_RDONLY);
    ASSERT_GE(dup2(standIn, 0), 0);
    close(standIn);
    Value failed = host.New("VLCMediaQRV", {Value()});
    EXPECT_EQ(host.Get(failed, "Handle").AsInt(), 0);
    EXPECT_NE(fcntl(0, F_GETFD), -1);
    failed = Value();
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "its destructor closed descriptor 0";
    dup2(savedStdin, 0);
    close(savedStdin);
}

// The list keeps no host reference of its media, every wrapper it hands out goes with its
// value, wrappers of one media share its tag; an uninitialised list raises before it traces.
TEST_F(RealLibvlc, MediaListOperationsLockAuditAndTrace) {
    Value list = host.New("VLCMediaListQRV", {vlc});
    Value first = Shared("MediaWithPath", host.String(SamplePath("tone.wav")));
    Value second = Shared("MediaWithPath", host.String(SamplePath("tagged.mp3")));
    Value absent = Shared("MediaWithPath", host.String(SamplePath("sample.mp4")));
    int64_t locks = host.LockCount(first);
    size_t objects = host.LiveObjects();
    host.Set(first, "Tag", Value::Int(0x5eed));
    ExpectAnswers(host, list, {{"AddMedia", 1, {first}}, {"InsertMedia", 1, {second, Value::Int(0)}}, {"Count", 2}});
    ExpectAnswers(host, list, {{"IndexOfItem", 1, {first}}, {"IndexOfItem", -1, {absent}}, {"isReadOnly", 0}});
    EXPECT_TRUE(host.Call(list, "ItemAtIndex", {Value::Int(2)}).IsNil());
    Value item = host.Call(list, "ItemAtIndex", {Value::Int(1)});
    EXPECT_NE(item.AsObject(), first.AsObject());
    EXPECT_EQ(host.Get(item, "Handle").AsInt(), host.Get(first, "Handle").AsInt());
    EXPECT_EQ(host.Get(item, "Tag").AsInt(), 0x5eed);
    item = Value();
    eventstest::Watchdog dog(std::chrono::seconds(60));  // libvlc's list lock is not recursive
    host.Call(list, "Lock");
    host.Call(list, "Lock");
    EXPECT_TRUE(Raised(host, "RuntimeException", "The list is already locked."));
    host.Call(list, "Unlock");
    host.Call(list, "Lock");  // unlocked again, so Lock works again
    host.Call(list, "Unlock");
    ExpectAnswers(host, list, {{"Remove", 0, {Value::Int(7)}}, {"Remove", 1, {Value::Int(0)}}, {"Count", 1}});
    host.Call(list, "SetMedia", {absent});
    EXPECT_EQ(host.Get(host.Call(list, "GetMedia"), "Handle").AsInt(), host.Get(absent, "Handle").AsInt());
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_EQ(host.LockCount(first), locks);
    EXPECT_EQ(host.LiveObjects(), objects);
    EXPECT_FALSE(host.Call(list, "AddMedia", {host.New("VLCMediaQRV", {Value(), host.String("x")})}).AsBool());
    EXPECT_TRUE(Raised(host, "NilObjectException", "item parameter is nil"));

    Value blank = host.NewRaw("VLCInstanceQRV"), unready = host.New("VLCMediaListQRV", {blank});
    EXPECT_TRUE(Raised(host, "NilObjectException", "vlc parameter is nil"));
    EXPECT_EQ(host.Get(unready, "VLC").AsObject(), blank.AsObject());
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    StderrCapture capture;
    host.Call(unready, "Lock");
    EXPECT_EQ(capture.Finish(), "");
    EXPECT_TRUE(RaisedNotInitialized(host));
    StderrCapture counted;
    host.Call(list, "Count");
    EXPECT_NE(counted.Finish().find("QRV Debug: Count\n"), std::string::npos);
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
}

TEST_F(RealLibvlc, AudioOutputsAndEqualizerPresetsBandsAndBounds) {
    std::set<std::string> outputs;
    for (Value node = host.Call(vlc, "GetAudioOutputList"); !node.IsNil(); node = host.Get(node, "NextOutput"))
        outputs.insert(host.Text(host.Get(node, "Name")));
    EXPECT_EQ(outputs.count("adummy"), 1u);
    EXPECT_EQ(host.GetShared("VLCEqualizerQRV", "PresetCount").AsInt(), 18);
    EXPECT_EQ(host.GetShared("VLCEqualizerQRV", "BandCount").AsInt(), 10);
    EXPECT_EQ(host.Text(host.CallShared("VLCEqualizerQRV", "PresetName", {Value::Int(0)})), "Flat");
    EXPECT_EQ(host.CallShared("VLCEqualizerQRV", "BandFrequency", {Value::Int(0)}).AsDouble(), 31.25);
    for (auto [method, index, problem] : std::initializer_list<std::tuple<const char*, int, const char*>>{
             {"PresetName", 18, "big. Range is 0 to 17, but value is 18."},
             {"PresetName", -1, "small. Range is 0 to 17, but value is -1."},
             {"BandFrequency", 10, "big. Range is 0 to 9, but value is 10."}}) {
        EXPECT_EQ(host.CallShared("VLCEqualizerQRV", method, {Value::Int(index)}).AsDouble(), 0.0);
        EXPECT_TRUE(Raised(host, "OutOfBoundsException",
                           std::string("The parameter index to method ") + method + " is too " + problem));
    }
    Value flat = host.New("VLCEqualizerQRV", {Value()});
    host.Assign(flat, "Map", {Value::Int(2)}, Value::Sgl(4.5f));
    host.Set(flat, "Preamp", Value::Sgl(-3.0f));
    ExpectAnswers(host, flat, {{"Map", 4.5, {Value::Int(2)}}, {"get Preamp", -3}});
    host.Call(flat, "Map", {Value::Int(10)});
    EXPECT_TRUE(NothingRaised(host)) << "libvlc's own answer stands for a band past the end";
    Value preset = host.New("VLCEqualizerQRV", {Value::Int(1), vlc});
    EXPECT_NE(host.Get(preset, "Handle").AsInt(), 0);
    EXPECT_EQ(host.Get(preset, "VLC").AsObject(), vlc.AsObject());
    Value invalid = host.New("VLCEqualizerQRV", {Value::Int(999), Value()});
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_EQ(host.Call(invalid, "Map", {Value::Int(0)}).AsDouble(), 0.0);
    EXPECT_TRUE(RaisedNotInitialized(host));
}

// Both read the user's folders: the test names its own through XDG.
TEST_F(RealLibvlc, DiscoverersAndTheLibrary) {
    Value unknown = host.New("VLCMediaDiscovererQRV", {vlc, host.String("no-such-service")});
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_TRUE(host.Call(unknown, "MediaList").IsNil());
    EXPECT_TRUE(RaisedNotInitialized(host));

    ScratchFolder home;
    std::string videos = home.path + "/videos";
    std::filesystem::create_directory(videos);
    std::ofstream(videos + "/one.wav"), std::ofstream(videos + "/two.mp3");
    std::ofstream(home.path + "/user-dirs.dirs") << "XDG_VIDEOS_DIR=\"" << videos << "\"\n";
    setenv("XDG_CONFIG_HOME", home.path.c_str(), 1), setenv("XDG_DATA_HOME", home.path.c_str(), 1);
    Value discoverer = host.New("VLCMediaDiscovererQRV", {vlc, host.String("video_dir")});
    EXPECT_EQ(host.Text(host.Call(discoverer, "LocalizedName")), "My Videos");
    EXPECT_TRUE(host.Call(discoverer, "IsRunning").AsBool());
    Value found = host.Call(discoverer, "MediaList");
    ASSERT_FALSE(found.IsNil());
    EXPECT_EQ(host.Get(found, "VLC").AsObject(), vlc.AsObject());
    auto count = [&](const Value& list) { return host.Call(list, "Count").AsInt(); };
    EXPECT_TRUE(host.PumpUntil([&] { return count(found) >= 2; }, std::chrono::seconds(5)));
    std::set<std::string> mrls;
    for (int64_t i = 0; i < count(found); ++i)
        mrls.insert(host.Text(host.Call(host.Call(found, "ItemAtIndex", {Value::Int(i)}), "MRL")));
    EXPECT_EQ(mrls, (std::set<std::string>{"file://" + videos + "/one.wav", "file://" + videos + "/two.mp3"}));

    Value library = host.New("VLCMediaLibraryQRV", {vlc});
    EXPECT_TRUE(host.Call(library, "Load").AsBool());
    Value loaded = host.Call(library, "MediaList");
    EXPECT_EQ(host.Get(loaded, "VLC").AsObject(), vlc.AsObject());
    ASSERT_EQ(count(loaded), 1);
    EXPECT_EQ(host.Text(host.Call(host.Call(loaded, "ItemAtIndex", {Value::Int(0)}), "MRL")),
              "file/directory://" + home.path + "/vlc/ml.xsp");
    unsetenv("XDG_CONFIG_HOME"), unsetenv("XDG_DATA_HOME");
    discoverer = found = Value();
    EXPECT_TRUE(NothingRaised(host));
}

}  // namespace
