// Parsing with a timeout, slaves, the player's role and media read from a
// memory block, on Debian's libvlc 3.0 headless; the block's callbacks also
// through the fake, for what libvlc never asks.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/events/recorder.h"

namespace {

using namespace emu;
using namespace eventstest;
using namespace qrvtest;
using namespace std::chrono_literals;

constexpr int kParseLocal = 0, kParseNetwork = 1, kStatusTimeout = 3, kStatusDone = 4;
constexpr int kSubtitle = 0, kRoleVideo = 2;

// A TCP listener on 127.0.0.1: the kernel completes connections, nobody ever answers.
struct SilentServer {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    int port = 0;
    SilentServer() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0 && listen(fd, 16) == 0 &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
            port = ntohs(address.sin_port);
    }
    ~SilentServer() { close(fd); }
};

struct ScratchFolder {
    char name[24] = "/tmp/qrv-slave-XXXXXX";
    const std::string path = mkdtemp(name) ? name : throw std::runtime_error("no temporary folder");
    ~ScratchFolder() { std::filesystem::remove_all(path); }
    std::string Subtitles(const std::string& file, const std::string& text) {
        std::ofstream(path + "/" + file) << "1\n00:00:00,000 --> 00:00:03,000\n" << text << "\n\n";
        return "file://" + path + "/" + file;
    }
};

// Descriptors of this process open on a temporary file of MediaWithData.
int OpenTemporaryFiles() {
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        found += target.rfind("/tmp/temp.", 0) == 0;
    }
    return found;
}

class MediaFeatures : public ::testing::Test {
protected:
    void SetUp() override {
        seen = &record;
        ASSERT_TRUE(LoadRealLibvlc(host));
        vlc = HeadlessInstance(host);
    }
    Value Shared(const char* factory, Value argument) {
        return host.CallShared("VLCMediaQRV", factory, {vlc, argument});
    }
    Value Sample() { return Shared("MediaWithPath", host.String(SamplePath("sample.mp4"))); }
    bool Until(const std::function<bool()>& condition, std::chrono::milliseconds limit = 30000ms) {
        return host.PumpUntil(condition, limit);
    }
    Host host;
    Seen record{&host};
    Value vlc;
};

TEST_F(MediaFeatures, ParseWithOptionsTimesOutOnASilentServerAndFinishesTheSample) {
    SilentServer server;
    ASSERT_NE(server.port, 0);
    Value silent = Shared("MediaWithURL", host.String("http://127.0.0.1:" + std::to_string(server.port) + "/x.mp4"));
    host.DefineSubclass("ParseEvents", "VLCEventManagerQRV", {On<"MediaParsedChanged", RBInteger>()});
    Value silentEvents = host.New("ParseEvents", {silent});
    EXPECT_EQ(host.Call(silent, "ParsedStatus").AsInt(), 0);
    EXPECT_TRUE(host.Call(silent, "ParseWithOptions", {Value::Int(kParseNetwork), Value::Int(1)}).AsBool());
    EXPECT_TRUE(Until([&] { return host.Call(silent, "ParsedStatus").AsInt() == kStatusTimeout; }));
    EXPECT_TRUE(Until([&] { return ArgumentsOf("MediaParsedChanged").size() == 1; }));
    EXPECT_EQ(ArgumentsOf("MediaParsedChanged"), Lines{std::to_string(kStatusTimeout)});

    Value sample = Sample();
    Value sampleEvents = host.New("ParseEvents", {sample});
    EXPECT_TRUE(host.Call(sample, "ParseWithOptions", {Value::Int(kParseLocal), Value::Int(5000)}).AsBool());
    EXPECT_TRUE(Until([&] { return host.Call(sample, "ParsedStatus").AsInt() == kStatusDone; }));
    EXPECT_EQ(host.Call(sample, "Duration").AsInt(), 3003);
    EXPECT_TRUE(Until([&] { return ArgumentsOf("MediaParsedChanged").size() == 2; }));
    EXPECT_EQ(ArgumentsOf("MediaParsedChanged"), (Lines{"3", "4"}));
    EXPECT_FALSE(seen->offMainThread);
    // libvlc parses a media once: a second request is refused (-1).
    EXPECT_FALSE(host.Call(sample, "ParseWithOptions", {Value::Int(kParseLocal), Value::Int(5000)}).AsBool());

    // Without a timeout only ParseStop ends the wait for the silent server.
    Value waiting = Shared("MediaWithURL", host.String("http://127.0.0.1:" + std::to_string(server.port) + "/y.mp4"));
    EXPECT_TRUE(host.Call(waiting, "ParseWithOptions", {Value::Int(kParseNetwork), Value::Int(0)}).AsBool());
    host.PumpFor(300ms);
    EXPECT_EQ(host.Call(waiting, "ParsedStatus").AsInt(), 0);
    host.Call(waiting, "ParseStop");
    EXPECT_TRUE(Until([&] { return host.Call(waiting, "ParsedStatus").AsInt() != 0; }, 5000ms));
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(MediaFeatures, SubtitleSlavesReachThePlayerAndTheSlaveList) {
    ScratchFolder folder;
    std::string first = folder.Subtitles("first.srt", "First"), second = folder.Subtitles("second.srt", "Second");
    Value media = Sample();
    EXPECT_TRUE(host.Call(media, "Slaves").IsNil());
    EXPECT_TRUE(host.Call(media, "AddSlave", {Value::Int(kSubtitle), Value::Int(3), host.String(first)}).AsBool());
    Value slave = host.Call(media, "Slaves");
    ASSERT_FALSE(slave.IsNil());
    EXPECT_EQ(host.Text(host.Get(slave, "URI")), first);
    ExpectAnswers(host, slave, {{"get Type", kSubtitle}, {"get Priority", 3}});
    EXPECT_TRUE(host.Get(slave, "NextSlave").IsNil());
    // libvlc treats any other type as unreachable.
    EXPECT_FALSE(host.Call(media, "AddSlave", {Value::Int(2), Value::Int(4), host.String(second)}).AsBool());
    EXPECT_TRUE(host.exception && host.exception->className == "OutOfBoundsException");

    Value player = host.New("VLCMediaPlayerQRV", {media});
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    EXPECT_TRUE(Until([&] { return host.Get(player, "SPUCount").AsInt() == 2; }));  // Disable and first.srt
    EXPECT_TRUE(
        host.Call(player, "AddSlave", {Value::Int(kSubtitle), host.String(second), Value::Bool(true)}).AsBool());
    EXPECT_TRUE(Until([&] { return host.Get(player, "SPUCount").AsInt() == 3; }));
    EXPECT_FALSE(host.Call(player, "AddSlave", {Value::Int(-1), host.String(second), Value::Bool(true)}).AsBool());
    EXPECT_TRUE(host.exception && host.exception->className == "OutOfBoundsException");
    host.Call(player, "Stop");
    host.Call(media, "ClearSlaves");
    EXPECT_TRUE(host.Call(media, "Slaves").IsNil());
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(MediaFeatures, RoleRoundTripAndRolesLibvlcDoesNotKnow) {
    Value player = host.New("VLCMediaPlayerQRV", {vlc});
    ExpectAnswers(host, player,
                  {{"SetRole", 1, {Value::Int(kRoleVideo)}},
                   {"Role", kRoleVideo},
                   {"SetRole", 0, {Value::Int(10)}},
                   {"SetRole", 0, {Value::Int(-1)}},
                   {"Role", kRoleVideo},
                   {"SetRole", 1, {Value::Int(9)}},
                   {"Role", 9}});
    EXPECT_TRUE(NothingRaised(host));
}

// The block is read in place: no temporary file is opened while it plays, a
// seek lands through the seek callback, and the lock outlives the media
// wrapper for as long as the player holds libvlc's media.
TEST_F(MediaFeatures, MemoryBlockMediaPlaysSeeksAndGivesTheBlockBack) {
    std::ifstream in(SamplePath("sample.mp4"), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Value block = host.MemoryBlock(bytes.size());
    memcpy(host.MemoryBytesPointer(block), bytes.data(), bytes.size());
    int64_t locks = host.LockCount(block);
    Value media = Shared("MediaWithMemoryBlock", block);
    ASSERT_FALSE(media.IsNil());
    EXPECT_EQ(host.Text(host.Call(media, "MRL")), "imem://");
    Value player = host.New("VLCMediaPlayerQRV", {media});
    media = Value();
    EXPECT_EQ(host.LockCount(block), locks + 1);
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(Until([&] { return host.Get(player, "Time").AsInt() > 200; }));
    EXPECT_EQ(OpenTemporaryFiles(), 0);
    EXPECT_TRUE(host.Get(player, "IsSeekable").AsBool());
    int64_t before = host.Get(player, "Time").AsInt();
    ASSERT_LT(before, 1000);
    host.Set(player, "Time", Value::Int(2300));
    // Sooner than playing on would get there.
    auto sooner = std::chrono::milliseconds(2000 - before);
    EXPECT_TRUE(Until([&] { return host.Get(player, "Time").AsInt() >= 2300; }, sooner)) << "from " << before;
    EXPECT_TRUE(Until([&] { return host.Get(player, "State").AsInt() == 6; }));
    EXPECT_EQ(host.LockCount(block), locks + 1);
    player = Value();
    EXPECT_EQ(host.LockCount(block), locks) << "libvlc freed the media on the main thread";
    EXPECT_TRUE(NothingRaised(host));
}

// A clone shares the original's stream: the block stays locked until both are gone.
TEST_F(MediaFeatures, ACloneOfAMemoryBlockMediaKeepsTheBlock) {
    std::ifstream in(SamplePath("tone.wav"), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Value block = host.MemoryBlock(bytes.size());
    memcpy(host.MemoryBytesPointer(block), bytes.data(), bytes.size());
    int64_t locks = host.LockCount(block);
    Value original = Shared("MediaWithMemoryBlock", block);
    Value clone = host.Call(original, "Clone"), copy = host.New("VLCMediaQRV", {original});
    original = Value();
    for (Value* media : {&clone, &copy}) {
        EXPECT_EQ(host.LockCount(block), locks + 1) << "kept while a clone can read it";
        Value player = host.New("VLCMediaPlayerQRV", {*media});
        *media = Value();
        ASSERT_TRUE(host.Call(player, "Play").AsBool());
        EXPECT_TRUE(Until([&] { return host.Get(player, "Time").AsInt() > 100; }));
    }
    EXPECT_EQ(host.LockCount(block), locks);
    EXPECT_TRUE(NothingRaised(host));
}

TEST(MemoryBlockCallbacks, EachOpenReadsInPlaceWithinTheBlockAndTheBlockGoesBackOnTheMainThread) {
    Host host;
    FakeVLC fake;
    ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
    fake.setInt("libvlc_media_new_callbacks", 1);
    Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})}), block = host.MemoryBlock(10);
    memcpy(host.MemoryBytesPointer(block), "0123456789", 10);
    host.CallShared("VLCMediaQRV", "MediaWithMemoryBlock", {vlc, Value()});
    EXPECT_TRUE(Raised(host, "NilObjectException", "data parameter is nil"));
    host.CallShared("VLCMediaQRV", "MediaWithMemoryBlock", {Value(), Value()});
    EXPECT_TRUE(Raised(host, "NilObjectException", "vlc parameter is nil"));
    int64_t locks = host.LockCount(block);
    Value media = host.CallShared("VLCMediaQRV", "MediaWithMemoryBlock", {vlc, block});
    ASSERT_FALSE(media.IsNil());

    void* library = dlopen(fake.path.c_str(), RTLD_NOW);
    auto callbacks =
        reinterpret_cast<void (*)(libvlc_media_open_cb*, libvlc_media_read_cb*, libvlc_media_seek_cb*,
                                  libvlc_media_close_cb*, void**)>(dlsym(library, "fakevlc_media_callbacks"));
    ASSERT_NE(callbacks, nullptr);
    libvlc_media_open_cb openBlock;
    libvlc_media_read_cb readBlock;
    libvlc_media_seek_cb seekBlock;
    libvlc_media_close_cb closeBlock;
    void* opaque;
    callbacks(&openBlock, &readBlock, &seekBlock, &closeBlock, &opaque);
    void *first = nullptr, *second = nullptr;
    uint64_t size = 0;
    ASSERT_EQ(openBlock(opaque, &first, &size), 0);
    EXPECT_EQ(size, 10u);
    ASSERT_EQ(openBlock(opaque, &second, &size), 0);
    unsigned char buffer[16];
    auto text = [&](ssize_t n) { return std::string(reinterpret_cast<char*>(buffer), n > 0 ? n : 0); };
    EXPECT_EQ(text(readBlock(first, buffer, 4)), "0123");
    EXPECT_EQ(text(readBlock(second, buffer, 16)), "0123456789") << "each openBlock has its own position";
    EXPECT_EQ(text(readBlock(first, buffer, 16)), "456789") << "a readBlock stops at the block's end";
    EXPECT_EQ(readBlock(first, buffer, 16), 0);
    EXPECT_EQ(seekBlock(first, 11), -1);
    EXPECT_EQ(seekBlock(first, 10), 0);
    EXPECT_EQ(readBlock(first, buffer, 16), 0);
    host.MemoryBytesPointer(block)[2] = 'x';
    EXPECT_EQ(seekBlock(second, 1), 0);
    EXPECT_EQ(text(readBlock(second, buffer, 3)), "1x3") << "readBlock in place";
    closeBlock(first);
    closeBlock(second);
    dlclose(library);

    media = Value();  // libvlc's media may live on (a player holds it)
    EXPECT_EQ(host.LockCount(block), locks + 1);
    libvlc_event_t freed{};
    freed.type = libvlc_MediaFreed;
    fake.fireFromThreads(fake.eventManager(), &freed, 1, 1);
    EXPECT_EQ(host.LockCount(block), locks + 1) << "unlocked off the main thread";
    EXPECT_TRUE(host.PumpUntil([&] { return host.LockCount(block) == locks; }, 5000ms));
}

}  // namespace
