// Events and logs of Debian's libvlc 3.0, headless, reaching host handlers on the main thread in libvlc's order.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/events/recorder.h"
#include "tests/events/watchdog.h"

namespace {

using emu::Host;
using emu::Value;
using namespace eventstest;
using qrvtest::NothingRaised;
using namespace std::chrono_literals;

// Reads the player's state inside the old media's state change, sent inside set_media holding the player's lock.
void OnStateReadingPlayerState(REALobject o, RBInteger state) {
    Record<"MediaStateChanged", RBInteger, RBInteger>(o, state, seen->host->Get(seen->player, "State").AsInt());
}

void OnLog(REALobject o, REALstring, RBInteger level, REALstring, REALstring, REALstring module, REALstring,
           RBInteger) {
    Record<"Log", RBInteger, REALstring>(o, level, module);
}

class RealEvents : public ::testing::Test {
protected:
    void SetUp() override {
        seen = &record;
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
        vlc = qrvtest::HeadlessInstance(host);
    }
    Value Media(const std::string& name, const Value& instance = Value()) {
        return host.CallShared("VLCMediaQRV", "MediaWithPath",
                               {instance.IsNil() ? vlc : instance, host.String(qrvtest::SamplePath(name))});
    }
    Value Events(const std::string& cls, const Value& source, std::map<std::string, void*> handlers) {
        host.DefineSubclass(cls, "VLCEventManagerQRV", std::move(handlers));
        return host.New(cls, {source});
    }
    // Where `event` was first raised (the end when never).
    size_t FirstRaised(const std::string& event) {
        auto& raised = seen->raised;
        return std::find_if(raised.begin(), raised.end(), [&](auto& l) { return l.rfind(event, 0) == 0; }) -
               raised.begin();
    }
    Host host;
    Seen record{&host};  // goes before the host
    Value vlc;
};

TEST_F(RealEvents, PlayingTheSampleRaisesPlayerEventsInOrder) {
    Value player = host.New("VLCMediaPlayerQRV", {Media("sample.mp4")});
    Value events = Events("PlayerEvents", player,
                          {On<"MediaPlayerOpening">(), On<"MediaPlayerPlaying">(),
                           On<"MediaPlayerLengthChanged", RBInteger>(), On<"MediaPlayerTimeChanged", RBInteger>(),
                           On<"MediaPlayerPositionChanged", double>(), On<"MediaPlayerEndReached">()});
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    auto ended = [&] { return !seen->raised.empty() && seen->raised.back() == "MediaPlayerEndReached"; };
    ASSERT_TRUE(host.PumpUntil(ended, 30000ms));
    EXPECT_FALSE(seen->offMainThread);
    EXPECT_LT(FirstRaised("MediaPlayerOpening"), FirstRaised("MediaPlayerPlaying"));
    EXPECT_LT(FirstRaised("MediaPlayerPlaying"), FirstRaised("MediaPlayerTimeChanged"));
    std::vector<double> lengths = NumbersOf("MediaPlayerLengthChanged"), times = NumbersOf("MediaPlayerTimeChanged"),
                        positions = NumbersOf("MediaPlayerPositionChanged");
    ASSERT_FALSE(lengths.empty() || times.empty() || positions.empty());
    EXPECT_EQ(lengths.back(), 3003);
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
    EXPECT_GT(times.back(), 2000);
    EXPECT_GT(positions.back(), 0.5);
    EXPECT_LE(positions.back(), 1.0);
    host.Call(player, "Stop");
    events = Value();  // detaches before the player goes
}

// libvlc sends Stopped inside stop and the old media's state change inside set_media, holding the
// player's lock: handlers reading the player there must not hang (the watchdog ends the process instead).
TEST_F(RealEvents, HandlersReadingThePlayerDoNotHangStopOrSetMedia) {
    Watchdog dog(60s);
    Value first = Media("sample.mp4");
    Value player = seen->player = host.New("VLCMediaPlayerQRV", {first});
    Value events = Events("StopEvents", player,
                          {On<"MediaPlayerPlaying">(),
                           On<"MediaPlayerTimeChanged", RBInteger>(),
                           {"MediaPlayerStopped", reinterpret_cast<void*>(OnStoppedReadingTime)}});
    Value mediaEvents =
        Events("StateEvents", first, {{"MediaStateChanged", reinterpret_cast<void*>(OnStateReadingPlayerState)}});
    ASSERT_TRUE(host.Call(player, "Play").AsBool());
    ASSERT_TRUE(host.PumpUntil([&] { return !NumbersOf("MediaPlayerTimeChanged").empty(); }, 30000ms));
    host.Call(player, "Stop");
    ASSERT_TRUE(host.PumpUntil([&] { return seen->raised.back().rfind("MediaPlayerStopped", 0) == 0; }, 30000ms));
    EXPECT_EQ(seen->raised.back(), "MediaPlayerStopped -1") << "the stopped player has no time";
    size_t states = ArgumentsOf("MediaStateChanged").size();
    host.Set(player, "Media", Media("tone.wav"));
    EXPECT_TRUE(host.PumpUntil([&] { return ArgumentsOf("MediaStateChanged").size() > states; }, 30000ms));
    EXPECT_FALSE(seen->offMainThread);
    EXPECT_TRUE(NothingRaised(host));
    events = mediaEvents = player = Value();
}

TEST_F(RealEvents, MediaListAndListPlayerEvents) {
    Value media = Media("tone.wav");
    Value mediaEvents =
        Events("MediaEvents", media, {On<"MediaStateChanged", RBInteger>(), On<"MediaParsedChanged", RBInteger>()});
    host.Call(media, "ParseAsync");
    EXPECT_TRUE(host.PumpUntil([&] { return !ArgumentsOf("MediaParsedChanged").empty(); }, 30000ms));

    Value list = host.New("VLCMediaListQRV", {vlc});
    Value listEvents = Events("ListEvents", list, {On<"MediaListItemAdded", REALobject, RBInteger>()});
    host.Call(list, "AddMedia", {media});
    Value second = Media("tagged.mp3");
    host.Call(list, "AddMedia", {second});
    host.PumpFor(50ms);
    EXPECT_EQ(ArgumentsOf("MediaListItemAdded"), (Lines{std::to_string(host.Get(media, "Handle").AsInt()) + " 0",
                                                        std::to_string(host.Get(second, "Handle").AsInt()) + " 1"}));

    Value listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
    Value listPlayerEvents = Events("ListPlayerEvents", listPlayer, {On<"MediaListPlayerNextItemSet", REALobject>()});
    Value player = host.New("VLCMediaPlayerQRV", {vlc});
    host.Call(listPlayer, "SetMediaPlayer", {player});
    host.Call(listPlayer, "SetMediaList", {list});
    host.Call(listPlayer, "PlayItemAtIndex", {Value::Int(0)});
    auto itemSet = [&] {
        return std::ranges::any_of(ArgumentsOf("MediaListPlayerNextItemSet"), [](auto& i) { return i != "<nil>"; });
    };
    EXPECT_TRUE(host.PumpUntil(itemSet, 30000ms));
    host.Call(listPlayer, "Stop");
    EXPECT_FALSE(seen->offMainThread);
    EXPECT_TRUE(NothingRaised(host));
}

TEST_F(RealEvents, LogLinesReachTheLogEventAndLibvlcWritesTheLogFile) {
    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {{"Log", reinterpret_cast<void*>(OnLog)}});
    Value logging = host.New("LoggingInstance", {host.StringArray({"--intf=dummy", "--vout=dummy", "--aout=dummy"})});
    host.Call(logging, "SetLogEvent");
    Value player = host.New("VLCMediaPlayerQRV", {Media("tone.wav", logging)});
    host.Call(player, "Play");
    EXPECT_TRUE(host.PumpUntil([&] { return ArgumentsOf("Log").size() > 5; }, 30000ms));
    host.Call(player, "Stop");
    host.Call(logging, "ClearLog");
    host.PumpFor(50ms);
    EXPECT_FALSE(seen->offMainThread);
    bool someModule = false;
    for (const std::string& line : ArgumentsOf("Log")) {
        int level = std::stoi(line);
        EXPECT_TRUE(level == 0 || level == 2 || level == 3 || level == 4) << line;
        std::string module = line.substr(line.find(' ') + 1);
        someModule = someModule || (!module.empty() && module != "<nil>");
    }
    EXPECT_TRUE(someModule) << "log lines name their module";

    // Plays a moment logging to `file` (raising nothing, writable or not), then closes and so flushes it.
    auto logTo = [&](const std::string& file) {
        host.Call(logging, "SetLogFile", {host.FolderItem(file)});
        EXPECT_TRUE(NothingRaised(host)) << file;
        host.Call(player, "Play");
        host.PumpFor(300ms);
        host.Call(player, "Stop");
        host.Call(logging, "ClearLog");
    };
    std::string path = std::filesystem::temp_directory_path() / ("qrv-real-" + std::to_string(getpid()) + ".log");
    logTo(path);
    EXPECT_GT(std::filesystem::file_size(path), 0u);
    std::filesystem::remove(path);
    logTo("/nonexistent-dir/x.log");

    // A named pipe: without a reader it fails at once, like an unwritable place; with one it gets the
    // log; and a reader that stops reading (a full pipe) never holds up the main thread.
    Watchdog dog(60s);
    std::string fifo = path + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    logTo(fifo);
    int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    char bytes[65536];
    for (bool full : {false, true}) {
        int filler = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
        while (full && write(filler, bytes, sizeof bytes) > 0) {
        }
        logTo(fifo);
        close(filler);
        EXPECT_TRUE(full || read(reader, bytes, sizeof bytes) > 0) << "the reader gets the log";
        while (read(reader, bytes, sizeof bytes) > 0) {
        }
    }
    close(reader);
    std::filesystem::remove(fifo);
}

// `Destructor` called as a method on a source releases its libvlc object while managers listen to it:
// they are detached first and stop listening, and what was queued before still reaches them.
TEST_F(RealEvents, ManagersOfASourceDestroyedAsAMethodAreDetachedFirst) {
    Value list = host.New("VLCMediaListQRV", {vlc}), media = Media("tone.wav");
    Value player = host.New("VLCMediaPlayerQRV", {vlc}), listPlayer = host.New("VLCMediaListPlayerQRV", {vlc});
    std::vector<Value> managers = {Events("EndedPlayer", player, {On<"MediaPlayerStopped">()}),
                                   Events("EndedMedia", media, {On<"MediaFreed", REALobject>()}),
                                   Events("EndedList", list, {On<"MediaListItemAdded", REALobject, RBInteger>()}),
                                   Events("EndedListPlayer", listPlayer, {On<"MediaListPlayerStopped">()})};
    host.Call(list, "AddMedia", {media});  // queued, not yet raised
    for (Value* source : {&player, &media, &list, &listPlayer}) host.Call(*source, "Destructor");
    for (Value& manager : managers) {
        host.Call(manager, "Listen");
        EXPECT_EQ(host.Get(manager, "Handle").AsInt(), 0) << "nothing left to listen to";
    }
    host.PumpFor(100ms);
    EXPECT_EQ(ArgumentsOf("MediaListItemAdded").size(), 1u);
    EXPECT_TRUE(ArgumentsOf("MediaFreed").empty()) << "detached before libvlc freed the media";
    managers.clear();
    EXPECT_TRUE(NothingRaised(host));
}

}  // namespace
