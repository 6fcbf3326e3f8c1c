// Event delivery with the fake libvlc: notifications fired from worker threads
// reach host handlers on the main thread with every payload kind converted,
// never inside a libvlc call, in posting order with value events reduced to
// the latest, never for a manager or instance that is gone, and everything
// taken on in transit is given back.
#include <dlfcn.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <thread>

#include "tests/events/recorder.h"

namespace {

using emu::Host;
using emu::Value;
using namespace eventstest;
using qrvtest::FakeVLC;
using namespace std::chrono_literals;

// Storm handler: counts, and checks each thread's order (value = thread * 1e9 + sequence).
int64_t gStorm = 0, gStormOutOfOrder = 0;
std::vector<int64_t> gLastPerThread;
void OnStorm(REALobject, RBInteger value) {
    ++gStorm;
    size_t thread = static_cast<size_t>(value / 1000000000);
    if (thread >= gLastPerThread.size()) gLastPerThread.resize(thread + 1, -1);
    gStormOutOfOrder += value % 1000000000 != gLastPerThread[thread] + 1;
    gLastPerThread[thread] = value % 1000000000;
}

Value gKept;
void OnItemKept(REALobject, REALobject item, RBInteger) { gKept = Value::BorrowObject(item); }

// An event whose payload starts with `raw` (little-endian, so an int field gets its low bytes).
libvlc_event_t Event(int type, int64_t raw = 0) {
    libvlc_event_t e;
    memset(&e, 0, sizeof e);
    e.type = type;
    memcpy(&e.u, &raw, sizeof raw);
    return e;
}

libvlc_event_t PositionEvent(float position) {
    libvlc_event_t e = Event(libvlc_MediaPlayerPositionChanged);
    e.u.media_player_position_changed.new_position = position;
    return e;
}

const auto kLog = On<"Log", REALstring, RBInteger, REALstring, REALstring, REALstring, REALstring, RBInteger>;

Value LoggingInstance(Host& host) {
    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {kLog()});
    return host.New("LoggingInstance", {host.StringArray({})});
}

// Bytes the heap has handed out (the plain allocator; sanitizers keep their own).
int64_t HeapInUse() { return static_cast<int64_t>(mallinfo2().uordblks); }

// Where the fake's log goes: 0 nowhere, 1 the callback, 2 a file.
int LogRoute(const FakeVLC& fake) {
    static void* handle = dlopen(fake.path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    return reinterpret_cast<int (*)()>(dlsym(handle, "fakevlc_log_route"))();
}

class FakeEvents : public ::testing::Test {
protected:
    void SetUp() override {
        seen = &record;
        record.host = &host;
        gStorm = gStormOutOfOrder = 0;
        gLastPerThread.clear();
        ASSERT_TRUE(fake.Loaded());
        ASSERT_TRUE(fake.LoadInto(host));
        vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
        player = host.New("VLCMediaPlayerQRV", {vlc});
        manager = fake.eventManager();
    }
    void TearDown() override {
        record = Seen();
        gKept = Value();
        seen = nullptr;
    }
    // Fires from a worker thread, as libvlc's threads do; nothing runs until the main loop does.
    void Queue(const std::vector<libvlc_event_t>& events) {
        std::thread([&] {
            for (const libvlc_event_t& e : events) fake.fire(manager, &e);
        }).join();
    }
    // Queues, then runs the main loop until `raised` events were raised in all.
    void Deliver(const std::vector<libvlc_event_t>& events, size_t raised) {
        Queue(events);
        EXPECT_TRUE(host.PumpUntil([&] { return seen->raised.size() >= raised; }, 2000ms));
    }
    Value Manager(const std::string& cls, std::map<std::string, void*> handlers) {
        host.DefineSubclass(cls, "VLCEventManagerQRV", std::move(handlers));
        return host.New(cls, {player});
    }

    Seen record;
    Host host;
    FakeVLC fake;
    Value vlc, player;
    libvlc_event_manager_t* manager = nullptr;
};

TEST_F(FakeEvents, OnlyHandledEventsAreAttachedAndExactlyThoseDetached) {
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    qrvtest::StderrCapture capture;
    Value m = Manager("PlayingOnly", {On<"MediaPlayerPlaying">()});
    std::string trace = capture.Finish();
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
    EXPECT_EQ(fake.calls("libvlc_event_attach"), 1);
    EXPECT_EQ(fake.attached(manager, libvlc_MediaPlayerPlaying), 1);
    EXPECT_NE(trace.find("QRV Debug: InstallMediaPlayerPlaying\n"), std::string::npos);
    EXPECT_EQ(trace.find("Install", trace.find("InstallMediaPlayerPlaying") + 1), std::string::npos)
        << "no other event installed:\n"
        << trace;
    EXPECT_EQ(host.Get(m, "Parent").AsObject(), player.AsObject());
    EXPECT_TRUE(host.Get(m, "VLC").IsNil());
    host.Call(m, "Listen");
    EXPECT_EQ(fake.attached(manager, libvlc_MediaPlayerPlaying), 2) << "a second Listen attaches again";
    // A handler gained after Listen was never attached (libvlc aborts on detaching
    // it); one lost after Listen still is.
    host.SetHandler("PlayingOnly", "MediaPlayerPaused", Handler<"MediaPlayerPaused">());
    host.SetHandler("PlayingOnly", "MediaPlayerPlaying", nullptr);
    host.Call(m, "Destructor");
    EXPECT_EQ(fake.attached(manager, libvlc_MediaPlayerPlaying), 0) << "everything attached is detached";
    EXPECT_EQ(fake.calls("libvlc_event_detach"), 2);
    EXPECT_EQ(host.Get(m, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(m, "Parent").IsNil());
}

TEST_F(FakeEvents, NoEventManagerMeansNothingAttachedOrDetached) {
    fake.setInt("libvlc_media_player_event_manager", -1);
    Value m = Manager("NoManager", {On<"MediaPlayerPlaying">()});
    EXPECT_EQ(host.Get(m, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(m, "Parent").IsNil());
    m = Value();
    EXPECT_EQ(fake.calls("libvlc_event_attach") + fake.calls("libvlc_event_detach"), 0);
}

TEST_F(FakeEvents, ScalarPayloadsArriveOnTheMainThread) {
    Value m = Manager("Scalars", {On<"MediaPlayerTimeChanged", RBInteger>(), On<"MediaPlayerPositionChanged", double>(),
                                  On<"MediaPlayerSeekableChanged", RBBoolean>(), On<"MediaMetaChanged", RBInteger>(),
                                  On<"MediaPlayerTitleChanged", RBInteger>()});
    // One at a time: queued together, a value event would replace the one before.
    // A boolean is its low byte; an enumerated field widens without sign.
    std::vector<libvlc_event_t> events = {
        Event(libvlc_MediaPlayerTimeChanged, 0x123456789AB), PositionEvent(0.5f),
        Event(libvlc_MediaPlayerSeekableChanged, 256),       Event(libvlc_MediaPlayerSeekableChanged, 257),
        Event(libvlc_MediaMetaChanged, 0xFFFFFFFF),          Event(libvlc_MediaPlayerTitleChanged, -2)};
    for (size_t i = 0; i < events.size(); ++i) Deliver({events[i]}, i + 1);
    EXPECT_EQ(seen->raised,
              (Lines{"MediaPlayerTimeChanged " + std::to_string(0x123456789AB), "MediaPlayerPositionChanged 0.5",
                     "MediaPlayerSeekableChanged 0", "MediaPlayerSeekableChanged 1", "MediaMetaChanged 4294967295",
                     "MediaPlayerTitleChanged -2"}));
    EXPECT_FALSE(seen->offMainThread);
}

TEST_F(FakeEvents, StringPayloadsAreCopiedAndGivenBack) {
    std::map<std::string, void*> handlers = {On<"MediaPlayerSnapshotTaken", REALstring>()};
    for (const char* name :
         {"MediaAdded", "MediaRemoved", "MediaChanged", "MediaInstanceStarted", "MediaInstanceStopped",
          "MediaInstanceStatusInit", "MediaInstanceStatusOpening", "MediaInstanceStatusPlaying",
          "MediaInstanceStatusPause", "MediaInstanceStatusEnd", "MediaInstanceStatusError"})
        handlers[std::string("Vlm") + name] = Handler<"Vlm", REALstring, REALstring>();
    Value m = Manager("Strings", handlers);
    size_t strings = host.LiveStrings();
    std::string file = "/tmp/snap \xC3\xA9.png";
    std::vector<libvlc_event_t> events = {Event(libvlc_MediaPlayerSnapshotTaken),
                                          Event(libvlc_MediaPlayerSnapshotTaken)};
    events[1].u.media_player_snapshot_taken.psz_filename = file.data();
    Lines expected = {"MediaPlayerSnapshotTaken <nil>", "MediaPlayerSnapshotTaken " + file};
    std::deque<std::string> names;  // its strings stay in place while it grows
    for (int type = libvlc_VlmMediaAdded; type <= libvlc_VlmMediaInstanceStatusError; ++type) {
        events.push_back(Event(type));
        names.push_back("media " + std::to_string(type));
        events.back().u.vlm_media_event.psz_media_name = names.back().c_str();
        events.back().u.vlm_media_event.psz_instance_name = type == libvlc_VlmMediaAdded ? nullptr : "instance";
        expected.push_back("Vlm " + names.back() + (type == libvlc_VlmMediaAdded ? " <nil>" : " instance"));
    }
    Deliver(events, expected.size());
    EXPECT_EQ(seen->raised, expected);
    EXPECT_EQ(host.LiveStrings(), strings) << "every host string built for a handler was given back";
}

TEST_F(FakeEvents, MediaInTransitIsRetainedAndReleased) {
    Value m = Manager("Media", {On<"MediaListItemAdded", REALobject, RBInteger>(),
                                {"MediaListItemDeleted", reinterpret_cast<void*>(OnItemKept)}});
    libvlc_media_t* media = fake.newMedia();
    size_t objects = host.LiveObjects();
    libvlc_event_t added = Event(libvlc_MediaListItemAdded), deleted = Event(libvlc_MediaListItemDeleted);
    added.u.media_list_item_added.item = deleted.u.media_list_item_deleted.item = media;
    added.u.media_list_item_added.index = 3;
    Deliver({added}, 1);
    EXPECT_EQ(seen->raised, Lines{"MediaListItemAdded " + std::to_string(reinterpret_cast<int64_t>(media)) + " 3"});
    EXPECT_EQ(fake.mediaRefs(media), 1) << "the handler kept nothing";
    EXPECT_EQ(host.LiveObjects(), objects);

    Queue({deleted});
    ASSERT_TRUE(host.PumpUntil([&] { return !gKept.IsNil(); }, 2000ms));
    EXPECT_EQ(fake.mediaRefs(media), 2) << "one higher while the host keeps the object";
    gKept = Value();
    EXPECT_EQ(fake.mediaRefs(media), 1);

    // No handler any more when the posted event arrives: the media is still given back.
    host.SetHandler("Media", "MediaListItemAdded", nullptr);
    Queue({added});
    host.PumpFor(50ms);
    EXPECT_EQ(seen->raised.size(), 1u);
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
    ASSERT_TRUE(host.PumpUntil([&] { return seen->raised.size() == 2; }, 2000ms));
    EXPECT_EQ(seen->raised, (Lines{"MediaPlayerTimeChanged 500", "MediaPlayerStopped 1234"}))
        << "queued first, raised first";
}

TEST_F(FakeEvents, QueuedValueEventsKeepOnlyTheLatestAndDiscreteOnesAll) {
    Value m = Manager("Values", {On<"MediaPlayerTimeChanged", RBInteger>(), On<"MediaPlayerPositionChanged", double>(),
                                 On<"MediaPlayerPlaying">(), On<"MediaPlayerPaused">()});
    auto time = [](int64_t t) { return Event(libvlc_MediaPlayerTimeChanged, t); };
    Queue({time(1), Event(libvlc_MediaPlayerPlaying), time(2), PositionEvent(0.25f), time(3),
           Event(libvlc_MediaPlayerPaused), PositionEvent(0.5f), time(4)});
    host.PumpFor(50ms);
    // What arrives is the posted sequence less the replaced values.
    EXPECT_EQ(seen->raised, (Lines{"MediaPlayerPlaying", "MediaPlayerPaused", "MediaPlayerPositionChanged 0.5",
                                   "MediaPlayerTimeChanged 4"}));

    // A blocked main loop does not make the queue grow with value events...
    int64_t events = getenv("QRV_STORM_EVENTS") ? atoll(getenv("QRV_STORM_EVENTS")) : 1000000;
    libvlc_event_t first = time(0);
    int64_t before = HeapInUse();
    fake.fireFromThreads(manager, &first, 2, events / 2);
    EXPECT_LT(HeapInUse() - before, 1 << 20) << "bytes held for " << events << " queued time events";
    host.PumpFor(50ms);
    ASSERT_EQ(seen->raised.size(), 5u) << "one time event delivered";
    EXPECT_TRUE(seen->raised[4] == "MediaPlayerTimeChanged " + std::to_string(events / 2 - 1) ||
                seen->raised[4] == "MediaPlayerTimeChanged " + std::to_string(1000000000 + events / 2 - 1))
        << "the last one a thread posted: " << seen->raised[4];

    // ...and what a backlog of discrete events took is given back once it drained.
    host.SetHandler("Values", "MediaMetaChanged", reinterpret_cast<void*>(OnStorm));
    host.Call(m, "Listen");
    libvlc_event_t meta = Event(libvlc_MediaMetaChanged);
    before = HeapInUse();
    fake.fireFromThreads(manager, &meta, 1, 200000);
    int64_t backlog = HeapInUse() - before;
    ASSERT_TRUE(host.PumpUntil([&] { return gStorm == 200000; }, 60000ms));
    host.PumpFor(20ms);
    EXPECT_LT(HeapInUse() - before, 1 << 20) << "kept after draining a backlog of " << backlog << " bytes";
}

TEST_F(FakeEvents, DeliveriesForAGoneManagerOrInstanceAreDropped) {
    Value m =
        Manager("Gone", {On<"MediaListItemAdded", REALobject, RBInteger>(), On<"MediaPlayerTimeChanged", RBInteger>()});
    libvlc_media_t* media = fake.newMedia();
    libvlc_event_t added = Event(libvlc_MediaListItemAdded);
    added.u.media_list_item_added.item = media;
    Queue({added, Event(libvlc_MediaPlayerTimeChanged, 7)});
    host.Call(m, "Destructor");
    host.PumpFor(50ms);
    EXPECT_TRUE(seen->raised.empty()) << "raised for a destroyed manager";
    EXPECT_EQ(fake.mediaRefs(media), 1) << "the dropped delivery's media was given back";

    Value logging = LoggingInstance(host);
    host.Call(logging, "SetLogEvent");
    fake.log(3, "demux", "file.c", 1, "late line", 1);
    host.Call(logging, "Destructor");
    EXPECT_EQ(LogRoute(fake), 0) << "the destructor stops libvlc's forwarding";
    host.PumpFor(50ms);
    EXPECT_TRUE(seen->raised.empty()) << "raised for a destroyed instance";
}

// A dispatch used to spin on sched_yield after the queue emptied; with two busy
// threads on two cores each delivery then held the main thread for ~100 ms.
TEST_F(FakeEvents, ADeliveryReturnsTheMainThreadAtOnceUnderLoad) {
    Value m = Manager("Busy", {On<"MediaPlayerTimeChanged", RBInteger>()});
    std::atomic<bool> stop{false};
    auto spin = [&] {
        while (!stop.load(std::memory_order_relaxed)) {
        }
    };
    std::thread busy1(spin), busy2(spin);
    double fastest = 1e9;
    for (size_t trial = 1; trial <= 5; ++trial) {
        Queue({Event(libvlc_MediaPlayerTimeChanged, trial)});
        for (auto deadline = std::chrono::steady_clock::now() + 5s;
             seen->raised.size() < trial && std::chrono::steady_clock::now() < deadline;) {
            auto start = std::chrono::steady_clock::now();
            g_main_context_iteration(nullptr, FALSE);
            std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
            if (seen->raised.size() == trial) fastest = std::min(fastest, took.count());
        }
    }
    stop = true;
    busy1.join();
    busy2.join();
    EXPECT_EQ(seen->raised.size(), 5u);
    EXPECT_LT(fastest, 20.0) << "milliseconds of the fastest delivering loop iteration";
}

TEST_F(FakeEvents, LogLinesAreCutDetectedAndAlwaysPosted) {
    Value logging = LoggingInstance(host);
    host.Call(logging, "SetLogEvent");
    // 600 bytes whose 499-byte cut falls inside the second "é".
    std::string longText = "\xC3\xA9" + std::string(496, 'x') + "\xC3\xA9" + std::string(100, 'x');
    fake.log(3, "demux", "file.c", 42, longText.c_str(), 1);
    fake.log(4, "caf\xC3\xA9", nullptr, 0, "r\xE9sum\xE9", 0);
    EXPECT_TRUE(seen->raised.empty()) << "never raised inside the callback";
    ASSERT_TRUE(host.PumpUntil([&] { return seen->raised.size() == 2; }, 2000ms));
    // Cut before the split character, so read as UTF-8; the second is not UTF-8, so read as
    // Mac Roman, where 0xE9 is U+00C8.
    EXPECT_EQ(seen->raised, (Lines{"Log \xC3\xA9" + std::string(496, 'x') + " 3 fake object <nil> demux file.c 42",
                                   "Log r\xC3\x88sum\xC3\x88 4 fake object <nil> caf\xC3\xA9 <nil> 0"}));
    host.Call(logging, "ClearLog");
    EXPECT_EQ(fake.calls("libvlc_log_unset"), 1);
}

TEST_F(FakeEvents, LogRoutesEndCleanly) {
    char dir[] = "/tmp/qrv-log-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string path = std::string(dir) + "/fake.log";
    Value logging = LoggingInstance(host);
    Value file = host.FolderItem(path);
    int64_t locks = host.LockCount(file);
    host.Call(logging, "SetLogFile", {file});
    EXPECT_EQ(LogRoute(fake), 2);
    host.Call(logging, "SetLogEvent");
    host.Call(logging, "SetLogFile", {host.FolderItem("/nonexistent-dir/x.log")});
    EXPECT_EQ(LogRoute(fake), 0) << "a failed SetLogFile ends the previous route";
    fake.log(3, "demux", "file.c", 1, "after the route ended", 1);
    host.PumpFor(20ms);
    EXPECT_TRUE(seen->raised.empty());
    EXPECT_EQ(host.LockCount(file), locks) << "the replaced file's folder item is given back, once";
    host.Call(logging, "SetLogFile", {file});
    host.Call(logging, "ClearLog");
    EXPECT_EQ(host.LockCount(file), locks) << "ClearLog gives back what SetLogFile took";
    host.Call(logging, "SetLogFile", {file});
    host.Call(logging, "Destructor");
    EXPECT_EQ(LogRoute(fake), 0) << "the destructor stops libvlc writing before the file closes";
    EXPECT_EQ(host.LockCount(file), locks);
    unlink(path.c_str());
    rmdir(dir);
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
    ASSERT_TRUE(host.PumpUntil([&] { return seen->raised.size() == 1; }, 2000ms));
    EXPECT_EQ(seen->raised, Lines{"ExitEvent"});
    EXPECT_FALSE(seen->offMainThread);
    host.Assign(exiting, "ExitHandler", {}, Value());
    EXPECT_TRUE(host.Call(exiting, "ExitHandler").IsNil());
    EXPECT_EQ(fake.calls("libvlc_set_exit_handler"), 1) << "nil leaves libvlc's registration";
    fake.requestExit();
    host.Call(exiting, "Destructor");
    host.PumpFor(50ms);
    EXPECT_EQ(seen->raised.size(), 1u) << "a request queued for a destroyed instance is dropped";
    Value blank = host.NewRaw("VLCInstanceQRV");
    host.Assign(blank, "ExitHandler", {}, handler);
    EXPECT_TRUE(qrvtest::RaisedNotInitialized(host));
}

TEST(PartialFakeEvents, LogWithoutContextFunction) {
    Seen local;
    seen = &local;
    Host host;
    local.host = &host;
    FakeVLC partial(true);
    ASSERT_TRUE(partial.LoadInto(host));
    Value logging = LoggingInstance(host);
    host.Call(logging, "SetLogEvent");
    partial.log(2, "module", "file.c", 7, "hello", 1);
    ASSERT_TRUE(host.PumpUntil([&] { return local.raised.size() == 1; }, 2000ms));
    EXPECT_EQ(local.raised, Lines{"Log hello 2 fake object <nil> <nil> <nil> 0"});
    seen = nullptr;
}

TEST_F(FakeEvents, StormFromFourThreadsKeepsEachThreadsOrder) {
    int64_t perThread = getenv("QRV_STORM_EVENTS") ? atoll(getenv("QRV_STORM_EVENTS")) / 4 : 250000;
    // Meta events are discrete, so every one arrives; the fake's 64-bit value fits their 32 bits.
    Value m = Manager("Storm", {{"MediaMetaChanged", reinterpret_cast<void*>(OnStorm)}});
    size_t objects = host.LiveObjects(), strings = host.LiveStrings();
    libvlc_event_t meta = Event(libvlc_MediaMetaChanged);
    std::thread firing([&] { fake.fireFromThreads(manager, &meta, 4, perThread); });
    bool all = host.PumpUntil([&] { return gStorm == 4 * perThread; }, 120000ms);
    firing.join();
    host.PumpFor(20ms);
    EXPECT_TRUE(all) << gStorm << " of " << 4 * perThread;
    EXPECT_EQ(gStorm, 4 * perThread);
    EXPECT_EQ(gStormOutOfOrder, 0);
    EXPECT_EQ(host.LiveObjects(), objects);
    EXPECT_EQ(host.LiveStrings(), strings);
}

}  // namespace
