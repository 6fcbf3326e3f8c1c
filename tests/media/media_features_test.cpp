// Parsing with a timeout, slaves, the player's role and media read from a memory block on Debian's
// libvlc 3.0 headless; the block's stream callbacks also through the fake, for what libvlc never asks.
#include <arpa/inet.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>

#include "tests/events/recorder.h"

namespace {

using namespace emu;
using namespace eventstest;
using namespace qrvtest;
using namespace std::chrono_literals;
using Int = int64_t;

class MediaFeatures : public ::testing::Test {
protected:
    void SetUp() override {
        seen = &record;
        ASSERT_TRUE(LoadRealLibvlc(host));
        vlc = HeadlessInstance(host);
    }
    Value Make(const char* factory, Value argument) { return host.CallShared("VLCMediaQRV", factory, {vlc, argument}); }
    Value Ask(const Value& self, const char* member, std::vector<Value> args = {}) {
        return host.Call(self, member, std::move(args));
    }
    bool Until(const std::function<bool()>& condition, std::chrono::milliseconds limit = 30000ms) {
        return host.PumpUntil(condition, limit);
    }
    Host host;
    Seen record{&host};
    Value vlc;
};

TEST_F(MediaFeatures, ParseWithOptionsTimesOutOnASilentServerAndFinishesTheSample) {
    // Connections to a listener nobody accepts complete in the kernel and never get an answer.
    int server = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    ASSERT_TRUE(bind(server, reinterpret_cast<sockaddr*>(&address), size) == 0 && listen(server, 8) == 0 &&
                getsockname(server, reinterpret_cast<sockaddr*>(&address), &size) == 0);
    std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/x.mp4";
    Value silent = Make("MediaWithURL", host.String(url)), waiting = Make("MediaWithURL", host.String(url));
    Value sample = Make("MediaWithPath", host.String(SamplePath("sample.mp4")));
    host.DefineSubclass("ParseEvents", "VLCEventManagerQRV", {On<"MediaParsedChanged", RBInteger>()});
    Value events[] = {host.New("ParseEvents", {silent}), host.New("ParseEvents", {sample})};
    EXPECT_EQ(Ask(silent, "ParsedStatus").AsInt(), 0);
    EXPECT_TRUE(Ask(silent, "ParseWithOptions", {Value::Int(1), Value::Int(1)}).AsBool());  // network, 1 ms
    EXPECT_TRUE(Until([&] { return Ask(silent, "ParsedStatus").AsInt() == 3; }));
    EXPECT_TRUE(Until([&] { return !seen->raised.empty(); }));
    EXPECT_TRUE(Ask(sample, "ParseWithOptions", {Value::Int(0), Value::Int(5000)}).AsBool());
    EXPECT_TRUE(Until([&] { return Ask(sample, "ParsedStatus").AsInt() == 4; }));
    EXPECT_EQ(Ask(sample, "Duration").AsInt(), 3003);
    EXPECT_TRUE(Until([&] { return seen->raised.size() == 2; }));
    EXPECT_EQ(ArgumentsOf("MediaParsedChanged"), (Lines{"3", "4"}));  // timeout, done
    EXPECT_FALSE(seen->offMainThread);
    EXPECT_FALSE(Ask(sample, "ParseWithOptions", {Value::Int(0), Value::Int(5000)}).AsBool()) << "parsed once";
    // Without a timeout (0) only ParseStop ends the wait.
    EXPECT_TRUE(Ask(waiting, "ParseWithOptions", {Value::Int(1), Value::Int(0)}).AsBool());
    host.PumpFor(300ms);
    EXPECT_EQ(Ask(waiting, "ParsedStatus").AsInt(), 0);
    Ask(waiting, "ParseStop");
    EXPECT_TRUE(Until([&] { return Ask(waiting, "ParsedStatus").AsInt() != 0; }, 5000ms));
    EXPECT_TRUE(NothingRaised(host));
    close(server);
}

TEST_F(MediaFeatures, SubtitleSlavesReachThePlayerAndTheSlaveListAndRolesRoundTrip) {
    char folder[] = "/tmp/qrv-slave-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    std::string uri[2];
    for (int i : {0, 1}) {
        std::string path = std::string(folder).append("/").append(std::to_string(i)).append(".srt");
        std::ofstream(path) << "1\n00:00:00,000 --> 00:00:03,000\nText\n\n";
        uri[i] = "file://" + path;
    }
    Value media = Make("MediaWithPath", host.String(SamplePath("sample.mp4")));
    EXPECT_TRUE(Ask(media, "Slaves").IsNil());
    EXPECT_TRUE(Ask(media, "AddSlave", {Value::Int(0), Value::Int(3), host.String(uri[0])}).AsBool());
    Value slave = Ask(media, "Slaves");
    ASSERT_FALSE(slave.IsNil());
    EXPECT_EQ(host.Text(host.Get(slave, "URI")), uri[0]);
    ExpectAnswers(host, slave, {{"get Type", 0}, {"get Priority", 3}});
    EXPECT_TRUE(host.Get(slave, "NextSlave").IsNil());
    // libvlc treats a type other than subtitle (0) and audio (1) as unreachable.
    EXPECT_FALSE(Ask(media, "AddSlave", {Value::Int(2), Value::Int(4), host.String(uri[1])}).AsBool());
    EXPECT_TRUE(host.exception && host.exception->className == "OutOfBoundsException");

    Value player = host.New("VLCMediaPlayerQRV", {media});
    ExpectAnswers(host, player,
                  {{"SetRole", 1, {Value::Int(2)}},
                   {"Role", 2},
                   {"SetRole", 0, {Value::Int(10)}},
                   {"SetRole", 0, {Value::Int(-1)}},
                   {"Role", 2},
                   {"SetRole", 1, {Value::Int(9)}},
                   {"Role", 9}});
    ASSERT_TRUE(Ask(player, "Play").AsBool());
    EXPECT_TRUE(Until([&] { return host.Get(player, "SPUCount").AsInt() == 2; }));  // "Disable" and the slave
    EXPECT_TRUE(Ask(player, "AddSlave", {Value::Int(0), host.String(uri[1]), Value::Bool(true)}).AsBool());
    EXPECT_TRUE(Until([&] { return host.Get(player, "SPUCount").AsInt() == 3; }));
    EXPECT_FALSE(Ask(player, "AddSlave", {Value::Int(-1), host.String(uri[1]), Value::Bool(true)}).AsBool());
    EXPECT_TRUE(host.exception && host.exception->className == "OutOfBoundsException");
    Ask(player, "Stop");
    Ask(media, "ClearSlaves");
    EXPECT_TRUE(Ask(media, "Slaves").IsNil());
    EXPECT_TRUE(NothingRaised(host));
    std::filesystem::remove_all(folder);
}

// Read in place (no temporary file is open while it plays), seekable through the seek callback, and
// locked as long as libvlc can read it: a player holds the media, a duplicate shares its stream.
TEST_F(MediaFeatures, MemoryBlockMediaPlaysSeeksAndKeepsTheBlockWhileLibvlcCanReadIt) {
    std::ifstream in(SamplePath("sample.mp4"), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Value block = host.MemoryBlock(bytes.size());
    memcpy(host.MemoryBytesPointer(block), bytes.data(), bytes.size());
    Int locks = host.LockCount(block);
    Value original = Make("MediaWithMemoryBlock", block);
    EXPECT_EQ(host.Text(Ask(original, "MRL")), "imem://");
    Value clone = Ask(original, "Clone"), copy = host.New("VLCMediaQRV", {original});
    original = Value();
    Value player = host.New("VLCMediaPlayerQRV", {clone});
    clone = Value();
    EXPECT_EQ(host.LockCount(block), locks + 1);
    ASSERT_TRUE(Ask(player, "Play").AsBool());
    ASSERT_TRUE(Until([&] { return host.Get(player, "Time").AsInt() > 200; }));
    int temporary = 0;
    for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        temporary += std::filesystem::read_symlink(fd.path(), error).string().rfind("/tmp/temp.", 0) == 0;
    }
    EXPECT_EQ(temporary, 0);
    Int before = host.Get(player, "Time").AsInt();
    ASSERT_LT(before, 1000);
    host.Set(player, "Time", Value::Int(2300));
    auto sooner = std::chrono::milliseconds(2000 - before);  // than playing on would get there
    EXPECT_TRUE(Until([&] { return host.Get(player, "Time").AsInt() >= 2300; }, sooner)) << "from " << before;
    EXPECT_TRUE(Until([&] { return host.Get(player, "State").AsInt() == 6; }));  // ended
    player = Value();
    EXPECT_EQ(host.LockCount(block), locks + 1) << "the copy still reads it";
    copy = Value();  // the last release: its unlock (host code) never runs inside libvlc's release
    EXPECT_EQ(host.LockCount(block), locks + 1);
    EXPECT_TRUE(Until([&] { return host.LockCount(block) == locks; }, 5000ms)) << "given back from the main loop";
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
    Int locks = host.LockCount(block);
    Value media = host.CallShared("VLCMediaQRV", "MediaWithMemoryBlock", {vlc, block});
    ASSERT_FALSE(media.IsNil());

    libvlc_media_open_cb openBlock;
    libvlc_media_read_cb readBlock;
    libvlc_media_seek_cb seekBlock;
    libvlc_media_close_cb closeBlock;
    void *opaque, *first, *second;
    ASSERT_NE(fake.mediaCallbacks, nullptr);
    fake.mediaCallbacks(&openBlock, &readBlock, &seekBlock, &closeBlock, &opaque);
    uint64_t size = 0;
    ASSERT_EQ(openBlock(opaque, &first, &size) | openBlock(opaque, &second, &size), 0);
    EXPECT_EQ(size, 10u);
    unsigned char buffer[16];
    auto text = [&](ssize_t n) { return std::string(reinterpret_cast<char*>(buffer), n > 0 ? n : 0); };
    EXPECT_EQ(text(readBlock(first, buffer, 4)), "0123");
    EXPECT_EQ(text(readBlock(second, buffer, 16)), "0123456789") << "each open has its own position";
    EXPECT_EQ(text(readBlock(first, buffer, 16)), "456789") << "a read stops at the block's end";
    EXPECT_EQ(readBlock(first, buffer, 16), 0);
    EXPECT_EQ(seekBlock(first, 11), -1);
    EXPECT_EQ(seekBlock(first, 10), 0);
    EXPECT_EQ(readBlock(first, buffer, 16), 0);
    host.MemoryBytesPointer(block)[2] = 'x';
    EXPECT_EQ(seekBlock(second, 1), 0);
    EXPECT_EQ(text(readBlock(second, buffer, 3)), "1x3") << "read in place";
    closeBlock(first);
    closeBlock(second);

    media = Value();  // the fake's media lives on, as one a player holds
    EXPECT_EQ(host.LockCount(block), locks + 1);
    libvlc_event_t freed{};
    freed.type = libvlc_MediaFreed;
    fake.fireFromThreads(fake.eventManager(), &freed, 1, 1);
    EXPECT_EQ(host.LockCount(block), locks + 1) << "unlocked off the main thread";
    EXPECT_TRUE(host.PumpUntil([&] { return host.LockCount(block) == locks; }, 5000ms));
}

}  // namespace
