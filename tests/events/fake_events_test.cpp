// Event delivery with the fake libvlc: from worker threads to host handlers on the
// main thread, converted, in order, never for what is gone, nothing kept in transit.
#include <cstring>
#include <deque>
#include <filesystem>
#include <thread>

#include "tests/events/recorder.h"

namespace {

using namespace emu;
using namespace eventstest;
using namespace qrvtest;
using namespace std::chrono_literals;

// Storm handler: counts, and checks each thread's order (value = thread * 1e9 + sequence).
int64_t gStorm = 0, gStormOutOfOrder = 0;
std::map<int64_t, int64_t> gNextPerThread;
void OnStorm(REALobject, RBInteger value) {
    ++gStorm;
    gStormOutOfOrder += value % 1000000000 != gNextPerThread[value / 1000000000]++;
}

void OnItemKept(REALobject, REALobject item, RBInteger) { seen->kept = Value::BorrowObject(item); }

// An event whose payload starts with `first`, written with its own type's width.
template <typename T = int>
libvlc_event_t Event(int type, T first = 0) {
    libvlc_event_t e{.type = type};
    memcpy(&e.u, &first, sizeof first);
    return e;
}

class FakeEvents : public ::testing::Test {
protected:
    explicit FakeEvents(emu::HostOptions options = {}, bool partial = false) : host(options), fake(partial) {}
    void SetUp() override {
        seen = &record;
        gStorm = gStormOutOfOrder = 0;
        gNextPerThread.clear();
        ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
        vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
        player = host.New("VLCMediaPlayerQRV", {vlc});
    }
    // Fires from a worker thread, as libvlc's threads do; nothing runs until the main loop does.
    void Queue(const std::vector<libvlc_event_t>& events) {
        std::thread([&] {
            for (const libvlc_event_t& e : events) fake.fire(fake.eventManager(), &e);
        }).join();
    }
    // Runs the main loop until as many events as expected were raised, and a little longer for any extra.
    void ExpectRaised(const Lines& expected, std::chrono::milliseconds wait = 2000ms) {
        EXPECT_TRUE(host.PumpUntil([&] { return seen->raised.size() >= expected.size(); }, wait));
        host.PumpFor(20ms);
        EXPECT_EQ(seen->raised, expected);
    }
    // An instance with a Log handler, its lines sent to it unless `toEvents` is false.
    Value Logging(bool toEvents = true) {
        host.DefineSubclass(
            "LoggingInstance", "VLCInstanceQRV",
            {On<"Log", REALstring, RBInteger, REALstring, REALstring, REALstring, REALstring, RBInteger>()});
        Value logging = host.New("LoggingInstance", {host.StringArray({})});
        if (toEvents) host.Call(logging, "SetLogEvent");
        return logging;
    }
    Value Manager(const std::string& cls, std::map<std::string, void*> handlers) {
        host.DefineSubclass(cls, "VLCEventManagerQRV", std::move(handlers));
        return host.New(cls, {player});
    }

    Host host;
    Seen record{&host};  // goes before the host
    FakeVLC fake;
    Value vlc, player;
};

TEST_F(FakeEvents, OnlyHandledEventsAreAttachedExactlyThoseDetachedAndNoneWithoutAManager) {
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    qrvtest::StderrCapture capture;
    Value m = Manager("PlayingOnly", {On<"MediaPlayerPlaying">()});
    EXPECT_EQ(fake.calls("libvlc_event_attach"), 1);
    EXPECT_EQ(fake.attached(fake.eventManager(), libvlc_MediaPlayerPlaying), 1);
    EXPECT_EQ(host.Get(m, "Parent").AsObject(), player.AsObject());
    EXPECT_TRUE(host.Get(m, "VLC").IsNil());
    host.Call(m, "Listen");
    EXPECT_EQ(fake.attached(fake.eventManager(), libvlc_MediaPlayerPlaying), 2) << "a second Listen attaches again";
    // A handler gained after Listen was never attached (libvlc aborts on detaching
    // it); one lost after Listen still is.
    host.SetHandler("PlayingOnly", "MediaPlayerPaused", On<"MediaPlayerPaused">().second);
    host.SetHandler("PlayingOnly", "MediaPlayerPlaying", nullptr);
    host.Call(m, "Destructor");
    std::string trace = capture.Finish();
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
    size_t install = trace.find("QRV Debug: InstallMediaPlayerPlaying\n");  // npos, were it missing
    EXPECT_NE(trace.find("QRV Debug: UninstallMediaPlayerPlaying\n", install), std::string::npos) << trace;
    EXPECT_EQ(fake.attached(fake.eventManager(), libvlc_MediaPlayerPlaying), 0) << "everything attached is detached";
    EXPECT_EQ(fake.calls("libvlc_event_detach"), 2);
    EXPECT_EQ(host.Get(m, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(m, "Parent").IsNil());

    fake.setInt("libvlc_media_player_event_manager", -1);
    Value none = Manager("NoManager", {On<"MediaPlayerPlaying">()});
    EXPECT_EQ(host.Get(none, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(none, "Parent").IsNil());
    none = Value();
    EXPECT_EQ(fake.calls("libvlc_event_attach") + fake.calls("libvlc_event_detach"), 4) << "none without a manager";
}

TEST_F(FakeEvents, PayloadsArriveConvertedOnTheMainThreadAndWhatTheyHoldIsGivenBack) {
    std::map<std::string, void*> handlers = {
        On<"MediaPlayerTimeChanged", RBInteger>(),        On<"MediaPlayerPositionChanged", double>(),
        On<"MediaPlayerSeekableChanged", RBBoolean>(),    On<"MediaMetaChanged", RBInteger>(),
        On<"MediaPlayerTitleChanged", RBInteger>(),       On<"MediaPlayerSnapshotTaken", REALstring>(),
        On<"MediaListItemAdded", REALobject, RBInteger>()};
    handlers["MediaListItemDeleted"] = reinterpret_cast<void*>(OnItemKept);
    for (const char* name :
         {"MediaAdded", "MediaRemoved", "MediaChanged", "MediaInstanceStarted", "MediaInstanceStopped",
          "MediaInstanceStatusInit", "MediaInstanceStatusOpening", "MediaInstanceStatusPlaying",
          "MediaInstanceStatusPause", "MediaInstanceStatusEnd", "MediaInstanceStatusError"})
        handlers[std::string("Vlm") + name] = On<"Vlm", REALstring, REALstring>().second;
    Value m = Manager("Payloads", handlers);
    size_t objects = host.LiveObjects(), strings = host.LiveStrings();
    // One at a time: queued together, a value event would replace the one before.
    // A boolean is its low byte; an enumerated field widens without sign.
    for (const libvlc_event_t& e :
         {Event(libvlc_MediaPlayerTimeChanged, 0x123456789AB), Event(libvlc_MediaPlayerPositionChanged, 0.5f),
          Event(libvlc_MediaPlayerSeekableChanged, 256), Event(libvlc_MediaPlayerSeekableChanged, 257),
          Event(libvlc_MediaMetaChanged, 0xFFFFFFFF), Event(libvlc_MediaPlayerTitleChanged, -2)}) {
        Queue({e});
        EXPECT_TRUE(host.PumpUntil([&, n = seen->raised.size()] { return seen->raised.size() > n; }, 2000ms));
    }
    Lines expected = {"MediaPlayerTimeChanged 1250999896491", "MediaPlayerPositionChanged 0.5",
                      "MediaPlayerSeekableChanged 0",         "MediaPlayerSeekableChanged 1",
                      "MediaMetaChanged 4294967295",          "MediaPlayerTitleChanged -2",
                      "MediaPlayerSnapshotTaken <nil>"};
    // Strings and media: discrete, so queued together.
    libvlc_media_t* media = fake.newMedia();
    std::string file = "/tmp/snap \xC3\xA9.png";
    std::vector<libvlc_event_t> events = {Event(libvlc_MediaPlayerSnapshotTaken),
                                          Event(libvlc_MediaPlayerSnapshotTaken, file.c_str()),
                                          Event(libvlc_MediaListItemAdded, media)};
    // The union's bytes past the file name are not the snapshot's: nothing may read them.
    for (libvlc_event_t& e : {std::ref(events[0]), std::ref(events[1])})
        memset(reinterpret_cast<char*>(&e.u) + sizeof(char*), 0x5A, sizeof e.u - sizeof(char*));
    events[2].u.media_list_item_added.index = 3;
    expected.push_back("MediaPlayerSnapshotTaken " + file);
    expected.push_back("MediaListItemAdded " + std::to_string(reinterpret_cast<int64_t>(media)) + " 3");
    std::deque<std::string> names;  // its strings stay in place while it grows
    for (int type = libvlc_VlmMediaAdded; type <= libvlc_VlmMediaInstanceStatusError; ++type) {
        names.push_back("media " + std::to_string(type));
        events.push_back(Event(type, names.back().c_str()));
        events.back().u.vlm_media_event.psz_instance_name = type == libvlc_VlmMediaAdded ? nullptr : "instance";
        expected.push_back("Vlm " + names.back() + (type == libvlc_VlmMediaAdded ? " <nil>" : " instance"));
    }
    Queue(events);
    EXPECT_EQ(fake.mediaRefs(media), 2) << "held while its delivery waits";
    // libvlc's strings live only during the callback.
    std::fill(file.begin(), file.end(), '#');
    for (std::string& name : names) std::fill(name.begin(), name.end(), '#');
    ExpectRaised(expected);
    EXPECT_FALSE(seen->offMainThread);
    EXPECT_EQ(host.LiveStrings(), strings) << "every host string built for a handler was given back";
    EXPECT_EQ(fake.mediaRefs(media), 1) << "the handler kept nothing";
    EXPECT_EQ(host.LiveObjects(), objects);

    Queue({Event(libvlc_MediaListItemDeleted, media)});
    ASSERT_TRUE(host.PumpUntil([&] { return !seen->kept.IsNil(); }, 2000ms));
    EXPECT_EQ(fake.mediaRefs(media), 2) << "one higher while the host keeps the object";
    seen->kept = Value();
    EXPECT_EQ(fake.mediaRefs(media), 1);
    // No handler any more when the posted event arrives: the media is still given back.
    host.SetHandler("Payloads", "MediaListItemAdded", nullptr);
    Queue({events[2]});
    ExpectRaised(expected);
    EXPECT_EQ(fake.mediaRefs(media), 1);
    EXPECT_EQ(host.LiveObjects(), objects);
}

// libvlc sends Stopped inside libvlc_media_player_stop, holding the lock its
// getters take: a handler reading Time there would hang the main thread.
TEST_F(FakeEvents, EventsAreNeverRaisedInsideALibvlcCallAndKeepTheirOrder) {
    seen->player = player;
    Value m = Manager("Stopping", {On<"MediaPlayerTimeChanged", RBInteger>(),
                                   {"MediaPlayerStopped", reinterpret_cast<void*>(OnStoppedReadingTime)}});
    fake.setInt("libvlc_media_player_get_time", 1234);
    Queue({Event(libvlc_MediaPlayerTimeChanged, 500)});
    host.Call(player, "Stop");
    EXPECT_TRUE(seen->raised.empty()) << "nothing raised inside Stop";
    ExpectRaised({"MediaPlayerTimeChanged 500", "MediaPlayerStopped 1234"});  // queued first, raised first
}

TEST_F(FakeEvents, QueuedValueEventsKeepOnlyTheLatestInOrderAndInBoundedMemory) {
    Value m =
        Manager("Values", {On<"MediaPlayerTimeChanged", RBInteger>(), On<"MediaPlayerPositionChanged", double>(),
                           On<"MediaPlayerPlaying">(), On<"MediaPlayerPaused">(), On<"MediaMetaChanged", RBInteger>()});
    auto time = [](int64_t t) { return Event(libvlc_MediaPlayerTimeChanged, t); };
    auto position = [](float p) { return Event(libvlc_MediaPlayerPositionChanged, p); };
    Queue({time(1), Event(libvlc_MediaPlayerPlaying), time(2), position(0.25f), time(3),
           Event(libvlc_MediaPlayerPaused), position(0.5f), time(4)});
    // What arrives is the posted sequence less the replaced values.
    ExpectRaised(
        {"MediaPlayerPlaying", "MediaPlayerPaused", "MediaPlayerPositionChanged 0.5", "MediaPlayerTimeChanged 4"});

    // A blocked main loop does not make the queue grow with value events.
    int64_t events = getenv("QRV_STORM_EVENTS") ? atoll(getenv("QRV_STORM_EVENTS")) : 1000000;
    libvlc_event_t first = time(0);
    int64_t before = HeapInUse();
    fake.fireFromThreads(fake.eventManager(), &first, 2, events / 2);
    EXPECT_LT(HeapInUse() - before, 1 << 20) << "bytes held for " << events << " queued time events";
    host.PumpFor(50ms);
    ASSERT_EQ(seen->raised.size(), 5u) << "one time event delivered";
    EXPECT_TRUE(seen->raised[4] == "MediaPlayerTimeChanged " + std::to_string(events / 2 - 1) ||
                seen->raised[4] == "MediaPlayerTimeChanged " + std::to_string(1000000000 + events / 2 - 1))
        << "the last one a thread posted: " << seen->raised[4];

    // Thousands of queued value events replaced between discrete ones: the queue
    // compacts its records while it fills, and each kept event stays in its place.
    seen->raised.clear();
    constexpr int kRounds = 3000;
    std::vector<libvlc_event_t> mixed;
    for (int i = 0; i < kRounds; ++i)
        mixed.insert(mixed.end(),
                     {time(i), position(static_cast<float>(i) / kRounds), Event(libvlc_MediaMetaChanged, i)});
    Queue(mixed);
    Lines expected;
    for (int i = 0; i < kRounds - 1; ++i) expected.push_back("MediaMetaChanged " + std::to_string(i));
    expected.push_back("MediaPlayerTimeChanged " + std::to_string(kRounds - 1));
    expected.push_back("MediaPlayerPositionChanged " + Show(double{static_cast<float>(kRounds - 1) / kRounds}));
    expected.push_back("MediaMetaChanged " + std::to_string(kRounds - 1));
    ExpectRaised(expected, 10000ms);
}

TEST_F(FakeEvents, DeliveriesForAGoneManagerOrInstanceAreDropped) {
    Value m =
        Manager("Gone", {On<"MediaListItemAdded", REALobject, RBInteger>(), On<"MediaPlayerTimeChanged", RBInteger>()});
    libvlc_media_t* media = fake.newMedia();
    Queue({Event(libvlc_MediaListItemAdded, media), Event(libvlc_MediaPlayerTimeChanged, 7)});
    host.Call(m, "Destructor");
    host.PumpFor(50ms);
    EXPECT_TRUE(seen->raised.empty()) << "raised for a destroyed manager";
    EXPECT_EQ(fake.mediaRefs(media), 1) << "the dropped delivery's media was given back";
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their allocators keep no glibc counts
    // Managers destroyed with deliveries queued are freed once the drain has dropped those.
    constexpr int kManagers = 500;
    for (int i = 0; i < kManagers; ++i) {
        Value gone = host.New("Gone", {player});
        Queue({Event(libvlc_MediaPlayerTimeChanged, i)});
        host.Call(gone, "Destructor");
    }
    int64_t queued = HeapInUse();
    host.PumpFor(50ms);
    EXPECT_LT(HeapInUse(), queued - kManagers * 1024) << "each holds a slot per route: over 1 KiB";
#endif

    Value logging = Logging();
    fake.log(3, "demux", "file.c", 1, "late line", 1);
    host.Call(logging, "Destructor");
    EXPECT_EQ(fake.logRoute(), 0) << "the destructor stops libvlc's forwarding";
    host.PumpFor(50ms);
    EXPECT_TRUE(seen->raised.empty()) << "raised for a destroyed instance";
}

TEST_F(FakeEvents, LogLinesAreCutDetectedAndAlwaysPosted) {
    Value logging = Logging();
    // 600 bytes whose 499-byte cut falls inside the second "é".
    std::string longText = "\xC3\xA9" + std::string(496, 'x') + "\xC3\xA9" + std::string(100, 'x');
    fake.log(3, "demux", "file.c", 42, longText.c_str(), 1);
    fake.log(4, "caf\xC3\xA9", nullptr, 0, "r\xE9sum\xE9", 0);
    // A four-byte character that ends right at the cut stays whole.
    std::string note = std::string(495, 'y') + "\xF0\x9F\x8E\xB5";
    fake.log(3, "demux", "file.c", 43, (note + std::string(20, 'y')).c_str(), 1);
    // Three- and four-byte characters whose first lead byte value (E0, F0) the cut splits.
    fake.log(3, "demux", "file.c", 44, (std::string(497, 'z') + "\xE0\xA4\xB9 tail").c_str(), 1);
    fake.log(3, "demux", "file.c", 45, (std::string(496, 'z') + "\xF0\x90\x80\x80 tail").c_str(), 1);
    EXPECT_TRUE(seen->raised.empty()) << "never raised inside the callback";
    // Cut before the split character, so read as UTF-8; the second is not UTF-8, so read as
    // Mac Roman, where 0xE9 is U+00C8.
    ExpectRaised((Lines{"Log \xC3\xA9" + std::string(496, 'x') + " 3 fake object <nil> demux file.c 42",
                        "Log r\xC3\x88sum\xC3\x88 4 fake object <nil> caf\xC3\xA9 <nil> 0",
                        "Log " + note + " 3 fake object <nil> demux file.c 43",
                        "Log " + std::string(497, 'z') + " 3 fake object <nil> demux file.c 44",
                        "Log " + std::string(496, 'z') + " 3 fake object <nil> demux file.c 45"}));
    host.Call(logging, "ClearLog");
    EXPECT_EQ(fake.calls("libvlc_log_unset"), 1);
}

struct PartialFakeEvents : FakeEvents {
    PartialFakeEvents() : FakeEvents({}, true) {}
};

TEST_F(PartialFakeEvents, LogWithoutContextFunction) {
    Value logging = Logging();
    fake.log(2, "module", "file.c", 7, "hello", 1);
    ExpectRaised({"Log hello 2 fake object <nil> <nil> <nil> 0"});
}

// Old hosts (records of version 9) keep each event's token behind a pointer.
struct OldHostEvents : FakeEvents {
    OldHostEvents() : FakeEvents({.version = 2011.9}) {}
};

TEST_F(OldHostEvents, HandlersAreFoundThroughTheTokenRecord) {
    Value m = Manager("OldHostEvents", {On<"MediaPlayerPlaying">()});
    Queue({Event(libvlc_MediaPlayerPlaying)});
    ExpectRaised({"MediaPlayerPlaying"});
}

TEST_F(FakeEvents, LogRoutesEndCleanly) {
    std::string path = std::filesystem::temp_directory_path() / ("qrv-fake-" + std::to_string(getpid()) + ".log");
    Value logging = Logging(false);
    Value file = host.FolderItem(path);
    int64_t locks = host.LockCount(file);
    host.Call(logging, "SetLogFile", {file});
    EXPECT_EQ(fake.logRoute(), 2);
    host.Call(logging, "SetLogEvent");
    host.Call(logging, "SetLogFile", {host.FolderItem("/nonexistent-dir/x.log")});
    EXPECT_EQ(fake.logRoute(), 0) << "a failed SetLogFile ends the previous route";
    fake.log(3, "demux", "file.c", 1, "after the route ended", 1);
    host.PumpFor(20ms);
    EXPECT_TRUE(seen->raised.empty());
    EXPECT_EQ(host.LockCount(file), locks) << "the replaced file's folder item is given back, once";
    auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    auto filesBefore = openFiles();
    host.Call(logging, "SetLogFile", {file});
    host.Call(logging, "ClearLog");
    EXPECT_EQ(host.LockCount(file), locks) << "ClearLog gives back what SetLogFile took";
    EXPECT_EQ(openFiles(), filesBefore) << "and closes the file";
    host.Call(logging, "SetLogFile", {file});
    host.Call(logging, "Destructor");
    EXPECT_EQ(fake.logRoute(), 0) << "the destructor stops libvlc writing before the file closes";
    EXPECT_EQ(host.LockCount(file), locks);
    std::filesystem::remove(path);
}

TEST_F(FakeEvents, ExitRequestsArePostedToTheMainThread) {
    host.DefineSubclass("ExitingInstance", "VLCInstanceQRV", {On<"ExitEvent">()});
    Value exiting = host.New("ExitingInstance", {host.StringArray({})});
    EXPECT_TRUE(host.Call(exiting, "ExitHandler").IsNil());
    host.DefineSubclass("MyExit", "VLCExitHandlerQRV", {});
    Value handler = host.New("MyExit");
    host.Assign(exiting, "ExitHandler", {}, handler);
    EXPECT_EQ(host.Call(vlc, "ExitHandler").AsObject(), handler.AsObject()) << "one handler for every instance";
    fake.requestExit();
    EXPECT_TRUE(seen->raised.empty()) << "not raised on libvlc's thread";
    ExpectRaised({"ExitEvent"});
    EXPECT_FALSE(seen->offMainThread);
    host.Assign(exiting, "ExitHandler", {}, Value());
    EXPECT_TRUE(host.Call(exiting, "ExitHandler").IsNil());
    EXPECT_EQ(fake.calls("libvlc_set_exit_handler"), 1) << "nil leaves libvlc's registration";
    fake.requestExit();
    host.Call(exiting, "Destructor");
    EXPECT_EQ(fake.calls("libvlc_set_exit_handler"), 2) << "the destructor turns libvlc's exit handler off";
    host.PumpFor(50ms);
    EXPECT_EQ(seen->raised.size(), 1u) << "a request queued for a destroyed instance is dropped";
}

// Meta events are discrete, so every one arrives; the fake's 64-bit value fits their 32 bits.
TEST_F(FakeEvents, StormFromFourThreadsKeepsEachThreadsOrderAndABacklogIsGivenBack) {
    int64_t perThread = getenv("QRV_STORM_EVENTS") ? atoll(getenv("QRV_STORM_EVENTS")) / 4 : 250000;
    Value m = Manager("Storm", {{"MediaMetaChanged", reinterpret_cast<void*>(OnStorm)}});
    size_t objects = host.LiveObjects(), strings = host.LiveStrings();
    libvlc_event_t meta = Event(libvlc_MediaMetaChanged);
    std::thread firing([&] { fake.fireFromThreads(fake.eventManager(), &meta, 4, perThread); });
    EXPECT_TRUE(host.PumpUntil([&] { return gStorm == 4 * perThread; }, 120000ms)) << gStorm << " arrived";
    firing.join();
    host.PumpFor(20ms);
    EXPECT_EQ(gStorm, 4 * perThread);
    EXPECT_EQ(gStormOutOfOrder, 0);
    EXPECT_EQ(host.LiveObjects(), objects);
    EXPECT_EQ(host.LiveStrings(), strings);

    // What a backlog, posted while the main loop is blocked, took is given back once it drained.
    gStorm = 0;
    gNextPerThread.clear();
    int64_t before = HeapInUse();
    fake.fireFromThreads(fake.eventManager(), &meta, 1, 200000);
    int64_t backlog = HeapInUse() - before;
    ASSERT_TRUE(host.PumpUntil([&] { return gStorm == 200000; }, 60000ms));
    // The spares go a few milliseconds after the queue drains (later on a loaded machine).
    EXPECT_TRUE(host.PumpUntil([&] { return HeapInUse() - before < (1 << 20); }, 2000ms))
        << "kept after draining a backlog of " << backlog << " bytes: " << HeapInUse() - before;
    EXPECT_EQ(gStormOutOfOrder, 0);
}

}  // namespace
