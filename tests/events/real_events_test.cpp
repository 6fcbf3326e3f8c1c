// Events and logs of Debian's libvlc 3.0, headless, reaching host handlers on
// the main thread in libvlc's order.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;
using qrvtest::NothingRaised;
using qrvtest::SamplePath;
using namespace std::chrono_literals;

struct Record {
    Host* host = nullptr;
    std::vector<std::string> order;
    std::vector<int64_t> times;
    std::vector<double> positions;
    int64_t length = 0;
    bool offMainThread = false;
    std::vector<int64_t> states;
    std::vector<int64_t> listIndexes;
    std::vector<int64_t> listHandles;
    int nextItemSet = 0;
    std::vector<std::string> logModules;
    std::vector<int64_t> logLevels;
};
Record* rec = nullptr;

void Mark(const char* name) {
    if (rec->order.empty() || rec->order.back() != name) rec->order.push_back(name);
    if (syscall(SYS_gettid) != getpid()) rec->offMainThread = true;
}
void OnOpening(REALobject) { Mark("Opening"); }
void OnPlaying(REALobject) { Mark("Playing"); }
void OnLength(REALobject, RBInteger length) {
    Mark("LengthChanged");
    rec->length = length;
}
void OnTime(REALobject, RBInteger time) {
    Mark("TimeChanged");
    rec->times.push_back(time);
}
void OnPosition(REALobject, double position) {
    Mark("PositionChanged");
    rec->positions.push_back(position);
}
void OnEnd(REALobject) { Mark("EndReached"); }
void OnState(REALobject, RBInteger state) {
    Mark("MediaStateChanged");
    rec->states.push_back(state);
}
void OnParsed(REALobject, RBInteger) { Mark("MediaParsedChanged"); }
void OnItemAdded(REALobject, REALobject item, RBInteger index) {
    Mark("MediaListItemAdded");
    rec->listIndexes.push_back(index);
    rec->listHandles.push_back(rec->host->Get(Value::BorrowObject(item), "Handle").AsInt());
}
void OnNextItemSet(REALobject, REALobject item) {
    Mark("MediaListPlayerNextItemSet");
    if (item != nullptr) ++rec->nextItemSet;
}
// Handlers that call back into the player, as host code freely does.
Value* gPlayer = nullptr;
void OnStoppedReadingTime(REALobject) {
    Mark("Stopped");
    rec->times.push_back(rec->host->Get(*gPlayer, "Time").AsInt());
}
void OnStateReadingPlayerState(REALobject, RBInteger state) {
    Mark("MediaStateChanged");
    rec->states.push_back(state);
    rec->states.push_back(rec->host->Get(*gPlayer, "State").AsInt());
}

// Ends the process if the scope is not left in time: a hang fails the test.
class Watchdog {
public:
    Watchdog(std::chrono::seconds limit, const char* what)
        : thread_([this, limit, what] {
              std::unique_lock<std::mutex> hold(lock_);
              if (!done_.wait_for(hold, limit, [this] { return finished_; })) {
                  fprintf(stderr, "watchdog: %s did not return within %llds\n", what,
                          static_cast<long long>(limit.count()));
                  std::_Exit(3);
              }
          }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> hold(lock_);
            finished_ = true;
        }
        done_.notify_one();
        thread_.join();
    }

private:
    std::mutex lock_;
    std::condition_variable done_;
    bool finished_ = false;
    std::thread thread_;
};

void OnLog(REALobject, REALstring, RBInteger level, REALstring, REALstring, REALstring module, REALstring, RBInteger) {
    rec->logLevels.push_back(level);
    rec->logModules.push_back(module ? rec->host->Text(Value::BorrowString(module)) : "");
    if (syscall(SYS_gettid) != getpid()) rec->offMainThread = true;
}

class RealEvents : public ::testing::Test {
protected:
    void SetUp() override {
        record = std::make_unique<Record>();
        rec = record.get();
        rec->host = &host;
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
        vlc = qrvtest::HeadlessInstance(host);
    }
    void TearDown() override { rec = nullptr; }
    Value Media(const std::string& name) {
        return host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(SamplePath(name))});
    }
    std::unique_ptr<Record> record;
    Host host;
    Value vlc;
};

TEST_F(RealEvents, PlayingTheSampleRaisesPlayerEventsInOrder) {
    Value player = host.New("VLCMediaPlayerQRV", {Media("sample.mp4")});
    host.DefineSubclass("PlayerEvents", "VLCEventManagerQRV",
                        {{"MediaPlayerOpening", reinterpret_cast<void*>(OnOpening)},
                         {"MediaPlayerPlaying", reinterpret_cast<void*>(OnPlaying)},
                         {"MediaPlayerLengthChanged", reinterpret_cast<void*>(OnLength)},
                         {"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)},
                         {"MediaPlayerPositionChanged", reinterpret_cast<void*>(OnPosition)},
                         {"MediaPlayerEndReached", reinterpret_cast<void*>(OnEnd)}});
    Value events = host.New("PlayerEvents", {player});
    ASSERT_NE(host.Get(events, "Handle").AsInt(), 0);
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(host.PumpUntil([&] { return !rec->order.empty() && rec->order.back() == "EndReached"; }, 10000ms));
    EXPECT_FALSE(rec->offMainThread);
    auto position = [&](const char* name) {
        return std::find(rec->order.begin(), rec->order.end(), name) - rec->order.begin();
    };
    EXPECT_LT(position("Opening"), position("Playing"));
    EXPECT_LT(position("Playing"), position("TimeChanged"));
    EXPECT_LT(position("LengthChanged"), static_cast<long>(rec->order.size()));
    EXPECT_EQ(rec->order.back(), "EndReached");
    EXPECT_EQ(rec->length, 3003);
    ASSERT_FALSE(rec->times.empty());
    EXPECT_TRUE(std::is_sorted(rec->times.begin(), rec->times.end()));
    EXPECT_GT(rec->times.back(), 2000);
    ASSERT_FALSE(rec->positions.empty());
    EXPECT_GT(rec->positions.back(), 0.5);
    EXPECT_LE(rec->positions.back(), 1.0);
    host.Call(player, "Stop");
    events = Value();  // detaches before the player goes
}

// libvlc sends Stopped inside libvlc_media_player_stop and the old media's
// state change inside set_media, holding the player's lock; handlers that read
// the player there would hang the main thread for good.
TEST_F(RealEvents, HandlersReadingThePlayerDoNotHangStopOrSetMedia) {
    Watchdog watchdog(std::chrono::seconds(60), "Stop or Media = with handlers reading the player");
    Value first = Media("sample.mp4");
    Value player = host.New("VLCMediaPlayerQRV", {first});
    gPlayer = &player;
    host.DefineSubclass("StopEvents", "VLCEventManagerQRV",
                        {{"MediaPlayerPlaying", reinterpret_cast<void*>(OnPlaying)},
                         {"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)},
                         {"MediaPlayerStopped", reinterpret_cast<void*>(OnStoppedReadingTime)}});
    Value events = host.New("StopEvents", {player});
    host.DefineSubclass("StateEvents", "VLCEventManagerQRV",
                        {{"MediaStateChanged", reinterpret_cast<void*>(OnStateReadingPlayerState)}});
    Value mediaEvents = host.New("StateEvents", {first});
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(host.PumpUntil([&] { return !rec->times.empty(); }, 10000ms));
    host.Call(player, "Stop");
    ASSERT_TRUE(host.PumpUntil([&] { return rec->order.back() == "Stopped"; }, 5000ms));
    EXPECT_EQ(rec->times.back(), -1) << "Time read by the Stopped handler: the stopped player has none";
    size_t states = rec->states.size();
    host.Set(player, "Media", Media("tone.wav"));
    EXPECT_TRUE(host.PumpUntil([&] { return rec->states.size() > states; }, 5000ms));
    EXPECT_FALSE(rec->offMainThread);
    EXPECT_TRUE(NothingRaised(host));
    events = mediaEvents = Value();
    gPlayer = nullptr;
}

TEST_F(RealEvents, MediaListAndListPlayerEvents) {
    Value media = Media("tone.wav");
    host.DefineSubclass("MediaEvents", "VLCEventManagerQRV",
                        {{"MediaStateChanged", reinterpret_cast<void*>(OnState)},
                         {"MediaParsedChanged", reinterpret_cast<void*>(OnParsed)}});
    Value mediaEvents = host.New("MediaEvents", {media});
    host.Call(media, "ParseAsync");
    EXPECT_TRUE(host.PumpUntil(
        [&] { return std::count(rec->order.begin(), rec->order.end(), "MediaParsedChanged") > 0; }, 5000ms));

    Value list = host.New("VLCMediaListQRV", {vlc});
    host.DefineSubclass("ListEvents", "VLCEventManagerQRV",
                        {{"MediaListItemAdded", reinterpret_cast<void*>(OnItemAdded)}});
    Value listEvents = host.New("ListEvents", {list});
    host.Call(list, "AddMedia", {media});
    host.Call(list, "AddMedia", {Media("tagged.mp3")});
    host.PumpFor(50ms);
    EXPECT_EQ(rec->listIndexes, (std::vector<int64_t>{0, 1}));
    ASSERT_EQ(rec->listHandles.size(), 2u);
    EXPECT_EQ(rec->listHandles[0], host.Get(media, "Handle").AsInt());

    Value listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
    host.DefineSubclass("ListPlayerEvents", "VLCEventManagerQRV",
                        {{"MediaListPlayerNextItemSet", reinterpret_cast<void*>(OnNextItemSet)}});
    Value listPlayerEvents = host.New("ListPlayerEvents", {listPlayer});
    Value player = host.New("VLCMediaPlayerQRV", {vlc});
    host.Call(listPlayer, "SetMediaPlayer", {player});
    host.Call(listPlayer, "SetMediaList", {list});
    host.KeptByDesign(player), host.KeptByDesign(list);
    host.Call(listPlayer, "PlayItemAtIndex", {Value::Int(0)});
    EXPECT_TRUE(host.PumpUntil([&] { return rec->nextItemSet > 0; }, 5000ms));
    host.Call(listPlayer, "Stop");
    EXPECT_FALSE(rec->offMainThread);
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(RealEvents, LogLinesReachTheLogEvent) {
    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {{"Log", reinterpret_cast<void*>(OnLog)}});
    Value logging = host.New("LoggingInstance", {host.StringArray({"--intf=dummy", "--vout=dummy", "--aout=dummy"})});
    host.Call(logging, "SetLogEvent");
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {logging, host.String(SamplePath("tone.wav"))});
    Value player = host.New("VLCMediaPlayerQRV", {media});
    host.Call(player, "Play");
    EXPECT_TRUE(host.PumpUntil([&] { return rec->logLevels.size() > 5; }, 5000ms));
    host.Call(player, "Stop");
    host.Call(logging, "ClearLog");
    host.PumpFor(50ms);
    EXPECT_FALSE(rec->offMainThread);
    EXPECT_FALSE(rec->logModules.empty());
    EXPECT_NE(std::find_if(rec->logModules.begin(), rec->logModules.end(), [](auto& m) { return !m.empty(); }),
              rec->logModules.end());
    for (int64_t level : rec->logLevels) EXPECT_TRUE(level == 0 || level == 2 || level == 3 || level == 4) << level;
}

TEST_F(RealEvents, LogFileIsWrittenByLibvlcAndClosed) {
    Value withLog =
        host.New("VLCInstanceQRV", {host.StringArray({"--intf=dummy", "--vout=dummy", "--aout=dummy", "--verbose=2"})});
    char dir[] = "/tmp/qrv-log-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string path = std::string(dir) + "/libvlc.log";
    host.Call(withLog, "SetLogFile", {host.FolderItem(path)});
    EXPECT_TRUE(NothingRaised(host));
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {withLog, host.String(SamplePath("tone.wav"))});
    Value player = host.New("VLCMediaPlayerQRV", {media});
    host.Call(player, "Play");
    host.PumpFor(300ms);
    host.Call(player, "Stop");
    host.Call(withLog, "ClearLog");  // closes (and so flushes) the file
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_GT(info.st_size, 0);
    host.Call(withLog, "SetLogFile", {host.FolderItem("/nonexistent-dir/x.log")});
    EXPECT_TRUE(NothingRaised(host)) << "an unwritable place raises nothing";
    host.Call(withLog, "SetLogFile", {Value()});
    EXPECT_TRUE(qrvtest::Raised(host, "NilObjectException", "File is nil!?"));
    host.Call(withLog, "ClearLog");
    unlink(path.c_str());
    rmdir(dir);
}

}  // namespace
