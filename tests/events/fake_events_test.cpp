// Event delivery with the fake libvlc: notifications fired from worker threads
// reach host handlers on the main thread with every payload kind converted,
// never inside a libvlc call, in posting order with value events reduced to
// the latest, never for a manager or instance that is gone, and everything
// taken on in transit is given back.
#include <dlfcn.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;
using qrvtest::FakeVLC;
using qrvtest::StderrCapture;
using namespace std::chrono_literals;

bool OnMainThread() { return syscall(SYS_gettid) == getpid(); }

// What the handlers saw, in order.
struct Seen {
    Host* host = nullptr;
    std::vector<std::string> names;
    std::vector<int64_t> integers;
    std::vector<double> reals;
    std::vector<std::string> texts;
    bool offMainThread = false;
    Value kept;
    Value player;  // read back into by OnStoppedReadingTime
    int64_t storm = 0;
    int64_t stormOutOfOrder = 0;
    std::vector<int64_t> lastPerThread;
};
Seen* seen = nullptr;

void Note(const char* name) {
    seen->names.push_back(name);
    if (!OnMainThread()) seen->offMainThread = true;
}
std::string Text(REALstring s) { return s == nullptr ? "<nil>" : seen->host->Text(Value::BorrowString(s)); }

void OnPlaying(REALobject) { Note("Playing"); }
void OnPaused(REALobject) { Note("Paused"); }
void OnStoppedReadingTime(REALobject) {
    Note("Stopped");
    seen->integers.push_back(seen->host->Get(seen->player, "Time").AsInt());
}
void OnTime(REALobject, RBInteger time) {
    Note("Time");
    seen->integers.push_back(time);
}
void OnPosition(REALobject, double position) {
    Note("Position");
    seen->reals.push_back(position);
}
void OnSeekable(REALobject, RBBoolean seekable) {
    Note("Seekable");
    seen->integers.push_back(seekable);
}
void OnMeta(REALobject, RBInteger type) {
    Note("Meta");
    seen->integers.push_back(type);
}
void OnTitle(REALobject, RBInteger title) {
    Note("Title");
    seen->integers.push_back(title);
}
void OnSnapshot(REALobject, REALstring file) {
    Note("Snapshot");
    seen->texts.push_back(Text(file));
}
void OnVlm(REALobject, REALstring media, REALstring instance) {
    Note("Vlm");
    seen->texts.push_back(Text(media));
    seen->texts.push_back(Text(instance));
}
void OnItemAdded(REALobject, REALobject item, RBInteger index) {
    Note("ItemAdded");
    seen->integers.push_back(index);
    seen->integers.push_back(item ? seen->host->Get(Value::BorrowObject(item), "Handle").AsInt() : 0);
}
void OnItemKept(REALobject, REALobject item, RBInteger) {
    Note("ItemKept");
    seen->kept = Value::BorrowObject(item);
}
void OnLog(REALobject, REALstring message, RBInteger level, REALstring name, REALstring header, REALstring module,
           REALstring file, RBInteger line) {
    Note("Log");
    for (REALstring s : {message, name, header, module, file}) seen->texts.push_back(Text(s));
    seen->integers.push_back(level);
    seen->integers.push_back(line);
}
void OnExit(REALobject) { Note("Exit"); }
// Storm handler: counts, and checks each thread's order (value = thread * 1e9 + sequence).
void OnStorm(REALobject, RBInteger value) {
    ++seen->storm;
    size_t thread = static_cast<size_t>(value / 1000000000);
    int64_t sequence = value % 1000000000;
    if (thread >= seen->lastPerThread.size()) seen->lastPerThread.resize(thread + 1, -1);
    if (sequence != seen->lastPerThread[thread] + 1) ++seen->stormOutOfOrder;
    seen->lastPerThread[thread] = sequence;
}

libvlc_event_t Event(int type) {
    libvlc_event_t e;
    memset(&e, 0, sizeof e);
    e.type = type;
    return e;
}

libvlc_event_t TimeEvent(int64_t time) {
    libvlc_event_t e = Event(libvlc_MediaPlayerTimeChanged);
    e.u.media_player_time_changed.new_time = time;
    return e;
}

libvlc_event_t PositionEvent(float position) {
    libvlc_event_t e = Event(libvlc_MediaPlayerPositionChanged);
    e.u.media_player_position_changed.new_position = position;
    return e;
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
        state = std::make_unique<Seen>();
        seen = state.get();
        seen->host = &host;
        ASSERT_TRUE(fake.Loaded());
        fake.reset();
        ASSERT_TRUE(fake.LoadInto(host));
        vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
        player = host.New("VLCMediaPlayerQRV", {vlc});
        manager = fake.eventManager();
    }
    void TearDown() override {
        seen->kept = Value();
        seen = nullptr;
    }
    // Fires from a worker thread, as libvlc's threads do; nothing runs until the main loop does.
    void Queue(std::vector<libvlc_event_t> events) {
        std::thread worker([&] {
            for (const libvlc_event_t& e : events) fake.fire(manager, &e);
        });
        worker.join();
    }
    // Fires from a worker thread, then runs the main loop until the handlers ran.
    void FireFromWorker(const libvlc_event_t& e, size_t expectNames) {
        Queue({e});
        EXPECT_TRUE(host.PumpUntil([&] { return seen->names.size() >= expectNames; }, 2000ms));
    }
    Value Manager(const std::string& cls, std::map<std::string, void*> handlers) {
        host.DefineSubclass(cls, "VLCEventManagerQRV", std::move(handlers));
        return host.New(cls, {player});
    }

    std::unique_ptr<Seen> state;
    Host host;
    FakeVLC fake;
    Value vlc, player;
    libvlc_event_manager_t* manager = nullptr;
};

TEST_F(FakeEvents, OnlyHandledEventsAreAttachedAndExactlyThoseDetached) {
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    StderrCapture capture;
    Value m = Manager("PlayingOnly", {{"MediaPlayerPlaying", reinterpret_cast<void*>(OnPlaying)}});
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
    host.SetHandler("PlayingOnly", "MediaPlayerPaused", reinterpret_cast<void*>(OnPaused));
    host.SetHandler("PlayingOnly", "MediaPlayerPlaying", nullptr);
    host.Call(m, "Destructor");
    EXPECT_EQ(fake.attached(manager, libvlc_MediaPlayerPlaying), 0) << "everything attached is detached";
    EXPECT_EQ(fake.calls("libvlc_event_detach"), 2);
    EXPECT_EQ(host.Get(m, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(m, "Parent").IsNil());
}

TEST_F(FakeEvents, NoEventManagerMeansNothingAttachedOrDetached) {
    fake.setInt("libvlc_media_player_event_manager", -1);
    Value m = Manager("NoManager", {{"MediaPlayerPlaying", reinterpret_cast<void*>(OnPlaying)}});
    EXPECT_EQ(host.Get(m, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(m, "Parent").IsNil());
    m = Value();
    EXPECT_EQ(fake.calls("libvlc_event_attach") + fake.calls("libvlc_event_detach"), 0);
}

TEST_F(FakeEvents, ScalarPayloadsArriveOnTheMainThread) {
    Value m = Manager("Scalars", {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)},
                                  {"MediaPlayerPositionChanged", reinterpret_cast<void*>(OnPosition)},
                                  {"MediaPlayerSeekableChanged", reinterpret_cast<void*>(OnSeekable)},
                                  {"MediaMetaChanged", reinterpret_cast<void*>(OnMeta)},
                                  {"MediaPlayerTitleChanged", reinterpret_cast<void*>(OnTitle)}});
    libvlc_event_t time = Event(libvlc_MediaPlayerTimeChanged);
    time.u.media_player_time_changed.new_time = 0x123456789ABLL;
    FireFromWorker(time, 1);
    libvlc_event_t position = Event(libvlc_MediaPlayerPositionChanged);
    position.u.media_player_position_changed.new_position = 0.5f;
    FireFromWorker(position, 2);
    libvlc_event_t seekable = Event(libvlc_MediaPlayerSeekableChanged);
    seekable.u.media_player_seekable_changed.new_seekable = 256;
    FireFromWorker(seekable, 3);
    seekable.u.media_player_seekable_changed.new_seekable = 257;
    FireFromWorker(seekable, 4);
    libvlc_event_t meta = Event(libvlc_MediaMetaChanged);
    memset(&meta.u, 0xFF, sizeof(int));  // an enumerated field widens without sign
    FireFromWorker(meta, 5);
    libvlc_event_t title = Event(libvlc_MediaPlayerTitleChanged);
    title.u.media_player_title_changed.new_title = -2;
    FireFromWorker(title, 6);
    EXPECT_EQ(seen->names, (std::vector<std::string>{"Time", "Position", "Seekable", "Seekable", "Meta", "Title"}));
    EXPECT_EQ(seen->integers, (std::vector<int64_t>{0x123456789ABLL, 0, 1, 0xFFFFFFFFLL, -2}));
    EXPECT_EQ(seen->reals, std::vector<double>{0.5});
    EXPECT_FALSE(seen->offMainThread);
}

TEST_F(FakeEvents, StringPayloadsAreCopiedAndGivenBack) {
    std::map<std::string, void*> handlers = {{"MediaPlayerSnapshotTaken", reinterpret_cast<void*>(OnSnapshot)}};
    const char* vlm[] = {"VlmMediaAdded",
                         "VlmMediaRemoved",
                         "VlmMediaChanged",
                         "VlmMediaInstanceStarted",
                         "VlmMediaInstanceStopped",
                         "VlmMediaInstanceStatusInit",
                         "VlmMediaInstanceStatusOpening",
                         "VlmMediaInstanceStatusPlaying",
                         "VlmMediaInstanceStatusPause",
                         "VlmMediaInstanceStatusEnd",
                         "VlmMediaInstanceStatusError"};
    for (const char* name : vlm) handlers[name] = reinterpret_cast<void*>(OnVlm);
    Value m = Manager("Strings", handlers);
    size_t strings = host.LiveStrings();
    libvlc_event_t snapshot = Event(libvlc_MediaPlayerSnapshotTaken);
    FireFromWorker(snapshot, 1);
    std::string file = "/tmp/snap \xC3\xA9.png";
    snapshot.u.media_player_snapshot_taken.psz_filename = file.data();
    FireFromWorker(snapshot, 2);
    for (int type = libvlc_VlmMediaAdded; type <= libvlc_VlmMediaInstanceStatusError; ++type) {
        libvlc_event_t e = Event(type);
        std::string name = "media " + std::to_string(type);
        e.u.vlm_media_event.psz_media_name = name.c_str();
        e.u.vlm_media_event.psz_instance_name = type == libvlc_VlmMediaAdded ? nullptr : "instance";
        FireFromWorker(e, seen->names.size() + 1);
    }
    ASSERT_EQ(seen->texts.size(), 2u + 22u);
    EXPECT_EQ(seen->texts[0], "<nil>");
    EXPECT_EQ(seen->texts[1], file);
    EXPECT_EQ(seen->texts[2], "media 1536");
    EXPECT_EQ(seen->texts[3], "<nil>");
    EXPECT_EQ(seen->texts[23], "instance");
    EXPECT_EQ(seen->texts[22], "media 1546");
    EXPECT_EQ(host.LiveStrings(), strings) << "every host string built for a handler was given back";
}

TEST_F(FakeEvents, MediaInTransitIsRetainedAndReleased) {
    Value m = Manager("Media", {{"MediaListItemAdded", reinterpret_cast<void*>(OnItemAdded)},
                                {"MediaListItemDeleted", reinterpret_cast<void*>(OnItemKept)}});
    libvlc_media_t* media = fake.newMedia();
    size_t objects = host.LiveObjects();
    libvlc_event_t added = Event(libvlc_MediaListItemAdded);
    added.u.media_list_item_added.item = media;
    added.u.media_list_item_added.index = 3;
    FireFromWorker(added, 1);
    EXPECT_EQ(seen->integers, (std::vector<int64_t>{3, reinterpret_cast<int64_t>(media)}));
    EXPECT_EQ(fake.mediaRefs(media), 1) << "the handler kept nothing";
    EXPECT_EQ(host.LiveObjects(), objects);

    libvlc_event_t deleted = Event(libvlc_MediaListItemDeleted);
    deleted.u.media_list_item_deleted.item = media;
    FireFromWorker(deleted, 2);
    EXPECT_EQ(fake.mediaRefs(media), 2) << "one higher while the host keeps the object";
    seen->kept = Value();
    EXPECT_EQ(fake.mediaRefs(media), 1);

    // No handler any more when the posted event arrives: the media is still given back.
    host.SetHandler("Media", "MediaListItemAdded", nullptr);
    std::thread worker([&] { fake.fire(manager, &added); });
    worker.join();
    host.PumpFor(50ms);
    EXPECT_EQ(seen->names.size(), 2u);
    EXPECT_EQ(fake.mediaRefs(media), 1);
    EXPECT_EQ(host.LiveObjects(), objects);
}

// libvlc sends Stopped inside libvlc_media_player_stop, holding the lock its
// getters take: a handler reading Time there would hang the main thread.
TEST_F(FakeEvents, EventsAreNeverRaisedInsideALibvlcCallAndKeepTheirOrder) {
    seen->player = player;
    Value m = Manager("Stopping", {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)},
                                   {"MediaPlayerStopped", reinterpret_cast<void*>(OnStoppedReadingTime)}});
    fake.setInt("libvlc_media_player_get_time", 1234);
    Queue({TimeEvent(500)});
    host.Call(player, "Stop");
    EXPECT_TRUE(seen->names.empty()) << "nothing raised inside Stop";
    ASSERT_TRUE(host.PumpUntil([&] { return seen->names.size() == 2; }, 2000ms));
    EXPECT_EQ(seen->names, (std::vector<std::string>{"Time", "Stopped"})) << "queued first, raised first";
    EXPECT_EQ(seen->integers, (std::vector<int64_t>{500, 1234}));
    seen->player = Value();
}

TEST_F(FakeEvents, QueuedValueEventsKeepOnlyTheLatestAndDiscreteOnesAll) {
    Value m = Manager("Values", {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)},
                                 {"MediaPlayerPositionChanged", reinterpret_cast<void*>(OnPosition)},
                                 {"MediaPlayerPlaying", reinterpret_cast<void*>(OnPlaying)},
                                 {"MediaPlayerPaused", reinterpret_cast<void*>(OnPaused)}});
    Queue({TimeEvent(1), Event(libvlc_MediaPlayerPlaying), TimeEvent(2), PositionEvent(0.25f), TimeEvent(3),
           Event(libvlc_MediaPlayerPaused), PositionEvent(0.5f), TimeEvent(4)});
    host.PumpFor(50ms);
    // What arrives is the posted sequence less the replaced values.
    EXPECT_EQ(seen->names, (std::vector<std::string>{"Playing", "Paused", "Position", "Time"}));
    EXPECT_EQ(seen->integers, std::vector<int64_t>{4});
    EXPECT_EQ(seen->reals, std::vector<double>{0.5});

    // A blocked main loop does not make the queue grow with value events...
    int64_t events = 1000000;
    if (const char* n = getenv("QRV_STORM_EVENTS")) events = atoll(n);
    libvlc_event_t time = TimeEvent(0);
    int64_t before = HeapInUse();
    fake.fireFromThreads(manager, &time, 2, events / 2);
    EXPECT_LT(HeapInUse() - before, 1 << 20) << "bytes held for " << events << " queued time events";
    host.PumpFor(50ms);
    EXPECT_EQ(seen->integers.size(), 2u) << "one time event delivered";

    // ...and what a backlog of discrete events took is given back once it drained.
    host.SetHandler("Values", "MediaMetaChanged", reinterpret_cast<void*>(OnStorm));
    host.Call(m, "Listen");
    libvlc_event_t meta = Event(libvlc_MediaMetaChanged);
    before = HeapInUse();
    fake.fireFromThreads(manager, &meta, 1, 200000);
    int64_t backlog = HeapInUse() - before;
    ASSERT_TRUE(host.PumpUntil([&] { return seen->storm == 200000; }, 60000ms));
    host.PumpFor(20ms);
    EXPECT_LT(HeapInUse() - before, 1 << 20) << "kept after draining a backlog of " << backlog << " bytes";
}

// Thousands of queued value events replaced between discrete ones: the queue
// compacts its records while it fills, and each kept event stays in its place.
TEST_F(FakeEvents, ReplacedValuesAmongManyDiscreteEventsKeepTheOrder) {
    Value m = Manager("Compacting", {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)},
                                     {"MediaPlayerPositionChanged", reinterpret_cast<void*>(OnPosition)},
                                     {"MediaMetaChanged", reinterpret_cast<void*>(OnMeta)}});
    constexpr int kRounds = 3000;
    std::vector<libvlc_event_t> events;
    for (int i = 0; i < kRounds; ++i) {
        libvlc_event_t meta = Event(libvlc_MediaMetaChanged);
        meta.u.media_meta_changed.meta_type = static_cast<libvlc_meta_t>(i);
        events.insert(events.end(), {TimeEvent(i), PositionEvent(static_cast<float>(i) / kRounds), meta});
    }
    Queue(events);
    ASSERT_TRUE(host.PumpUntil([&] { return seen->names.size() >= kRounds + 2; }, 10000ms));
    host.PumpFor(20ms);
    std::vector<std::string> names(kRounds - 1, "Meta");
    names.insert(names.end(), {"Time", "Position", "Meta"});
    EXPECT_EQ(seen->names, names);
    std::vector<int64_t> integers;
    for (int i = 0; i < kRounds - 1; ++i) integers.push_back(i);
    integers.insert(integers.end(), {kRounds - 1, kRounds - 1});
    EXPECT_EQ(seen->integers, integers);
    EXPECT_EQ(seen->reals, std::vector<double>{static_cast<float>(kRounds - 1) / kRounds});
}

TEST_F(FakeEvents, DeliveriesForAGoneManagerOrInstanceAreDropped) {
    Value m = Manager("Gone", {{"MediaListItemAdded", reinterpret_cast<void*>(OnItemAdded)},
                               {"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)}});
    libvlc_media_t* media = fake.newMedia();
    libvlc_event_t added = Event(libvlc_MediaListItemAdded);
    added.u.media_list_item_added.item = media;
    Queue({added, TimeEvent(7)});
    host.Call(m, "Destructor");
    host.PumpFor(50ms);
    EXPECT_TRUE(seen->names.empty()) << "raised for a destroyed manager";
    EXPECT_EQ(fake.mediaRefs(media), 1) << "the dropped delivery's media was given back";

    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {{"Log", reinterpret_cast<void*>(OnLog)}});
    Value logging = host.New("LoggingInstance", {host.StringArray({})});
    host.Call(logging, "SetLogEvent");
    fake.log(3, "demux", "file.c", 1, "late line", 1);
    host.Call(logging, "Destructor");
    EXPECT_EQ(LogRoute(fake), 0) << "the destructor stops libvlc's forwarding";
    host.PumpFor(50ms);
    EXPECT_TRUE(seen->names.empty()) << "raised for a destroyed instance";
}

// A dispatch used to spin on sched_yield after the queue emptied; with two busy
// threads on two cores each delivery then held the main thread for ~100 ms.
TEST_F(FakeEvents, ADeliveryReturnsTheMainThreadAtOnceUnderLoad) {
    Value m = Manager("Busy", {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)}});
    std::atomic<bool> stop{false};
    std::vector<std::thread> busy;
    for (int i = 0; i < 2; ++i)
        busy.emplace_back([&] {
            while (!stop.load(std::memory_order_relaxed)) {
            }
        });
    double fastest = 1e9;
    for (int trial = 1; trial <= 5; ++trial) {
        Queue({TimeEvent(trial)});
        auto deadline = std::chrono::steady_clock::now() + 5s;
        while (seen->names.size() < static_cast<size_t>(trial) && std::chrono::steady_clock::now() < deadline) {
            auto start = std::chrono::steady_clock::now();
            g_main_context_iteration(nullptr, FALSE);
            if (seen->names.size() == static_cast<size_t>(trial))
                fastest = std::min(
                    fastest,
                    std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        }
    }
    stop = true;
    for (auto& t : busy) t.join();
    EXPECT_EQ(seen->names.size(), 5u);
    EXPECT_LT(fastest, 20.0) << "milliseconds of the fastest delivering loop iteration";
}

TEST_F(FakeEvents, LogLinesAreCutDetectedAndAlwaysPosted) {
    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {{"Log", reinterpret_cast<void*>(OnLog)}});
    Value logging = host.New("LoggingInstance", {host.StringArray({})});
    host.Call(logging, "SetLogEvent");
    // 600 bytes whose 499-byte cut falls inside the second "é".
    std::string longText = "\xC3\xA9" + std::string(496, 'x') + "\xC3\xA9" + std::string(100, 'x');
    fake.log(3, "demux", "file.c", 42, longText.c_str(), 1);
    fake.log(4, "caf\xC3\xA9", nullptr, 0, "r\xE9sum\xE9", 0);
    EXPECT_TRUE(seen->names.empty()) << "never raised inside the callback";
    ASSERT_TRUE(host.PumpUntil([&] { return seen->names.size() == 2; }, 2000ms));
    ASSERT_EQ(seen->texts.size(), 10u);
    EXPECT_EQ(seen->texts[0], "\xC3\xA9" + std::string(496, 'x')) << "cut before the split character, read as UTF-8";
    EXPECT_EQ(seen->texts[1], "fake object");
    EXPECT_EQ(seen->texts[2], "<nil>");
    EXPECT_EQ(seen->texts[3], "demux");
    EXPECT_EQ(seen->texts[4], "file.c");
    // Not UTF-8, so read as Mac Roman, where 0xE9 is U+00C8.
    EXPECT_EQ(seen->texts[5], "r\xC3\x88sum\xC3\x88");
    EXPECT_EQ(seen->texts[8], "caf\xC3\xA9");
    EXPECT_EQ(seen->integers, (std::vector<int64_t>{3, 42, 4, 0}));
    host.Call(logging, "ClearLog");
    EXPECT_EQ(fake.calls("libvlc_log_unset"), 1);
}

TEST_F(FakeEvents, LogRoutesEndCleanly) {
    char dir[] = "/tmp/qrv-log-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string path = std::string(dir) + "/fake.log";
    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {{"Log", reinterpret_cast<void*>(OnLog)}});
    Value logging = host.New("LoggingInstance", {host.StringArray({})});
    Value file = host.FolderItem(path);
    int64_t locks = host.LockCount(file);
    host.Call(logging, "SetLogFile", {file});
    EXPECT_EQ(LogRoute(fake), 2);
    host.Call(logging, "SetLogEvent");
    host.Call(logging, "SetLogFile", {host.FolderItem("/nonexistent-dir/x.log")});
    EXPECT_EQ(LogRoute(fake), 0) << "a failed SetLogFile ends the previous route";
    fake.log(3, "demux", "file.c", 1, "after the route ended", 1);
    host.PumpFor(20ms);
    EXPECT_TRUE(seen->names.empty());
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
    host.DefineSubclass("ExitingInstance", "VLCInstanceQRV", {{"ExitEvent", reinterpret_cast<void*>(OnExit)}});
    Value exiting = host.New("ExitingInstance", {host.StringArray({})});
    EXPECT_TRUE(host.Call(exiting, "ExitHandler").IsNil());
    host.DefineSubclass("MyExit", "VLCExitHandlerQRV", {});
    Value handler = host.New("MyExit");
    host.Assign(exiting, "ExitHandler", {}, handler);
    EXPECT_EQ(host.Call(vlc, "ExitHandler").AsObject(), handler.AsObject()) << "one handler for every instance";
    fake.requestExit();
    EXPECT_TRUE(seen->names.empty()) << "not raised on libvlc's thread";
    ASSERT_TRUE(host.PumpUntil([&] { return seen->names.size() == 1; }, 2000ms));
    EXPECT_EQ(seen->names, std::vector<std::string>{"Exit"});
    EXPECT_FALSE(seen->offMainThread);
    host.Assign(exiting, "ExitHandler", {}, Value());
    EXPECT_TRUE(host.Call(exiting, "ExitHandler").IsNil());
    EXPECT_EQ(fake.calls("libvlc_set_exit_handler"), 1) << "nil leaves libvlc's registration";
    fake.requestExit();
    host.Call(exiting, "Destructor");
    host.PumpFor(50ms);
    EXPECT_EQ(seen->names.size(), 1u) << "a request queued for a destroyed instance is dropped";
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
    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {{"Log", reinterpret_cast<void*>(OnLog)}});
    Value logging = host.New("LoggingInstance", {host.StringArray({})});
    host.Call(logging, "SetLogEvent");
    partial.log(2, "module", "file.c", 7, "hello", 1);
    ASSERT_TRUE(host.PumpUntil([&] { return local.names.size() == 1; }, 2000ms));
    EXPECT_EQ(local.texts[0], "hello");
    EXPECT_EQ(local.texts[3], "<nil>");
    EXPECT_EQ(local.texts[4], "<nil>");
    EXPECT_EQ(local.integers, (std::vector<int64_t>{2, 0}));
    seen = nullptr;
}

TEST_F(FakeEvents, StormFromFourThreadsKeepsEachThreadsOrder) {
    int64_t perThread = 250000;
    if (const char* n = getenv("QRV_STORM_EVENTS")) perThread = atoll(n) / 4;
    // Meta events are discrete, so every one arrives; the fake's 64-bit value fits their 32 bits.
    Value m = Manager("Storm", {{"MediaMetaChanged", reinterpret_cast<void*>(OnStorm)}});
    size_t objects = host.LiveObjects(), strings = host.LiveStrings();
    libvlc_event_t meta = Event(libvlc_MediaMetaChanged);
    std::thread firing([&] { fake.fireFromThreads(manager, &meta, 4, perThread); });
    bool all = host.PumpUntil([&] { return seen->storm == 4 * perThread; }, 120000ms);
    firing.join();
    host.PumpFor(20ms);
    EXPECT_TRUE(all) << seen->storm << " of " << 4 * perThread;
    EXPECT_EQ(seen->storm, 4 * perThread);
    EXPECT_EQ(seen->stormOutOfOrder, 0);
    EXPECT_EQ(host.LiveObjects(), objects);
    EXPECT_EQ(host.LiveStrings(), strings);
}

}  // namespace
