// Event delivery with the fake libvlc: notifications fired from worker threads
// reach host handlers on the main thread with every payload kind converted,
// and everything taken on in transit is given back.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

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
void OnExit(REALobject) {
    seen->names.push_back("Exit");
    if (!OnMainThread()) seen->offMainThread = true;
}
// Storm handler: counts, and checks each thread's order (time = thread * 1e9 + sequence).
void OnStorm(REALobject, RBInteger time) {
    ++seen->storm;
    size_t thread = static_cast<size_t>(time / 1000000000);
    int64_t sequence = time % 1000000000;
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
    // Fires from a worker thread, then runs the main loop until the handlers ran.
    void FireFromWorker(const libvlc_event_t& e, size_t expectNames) {
        std::thread worker([&] { fake.fire(manager, &e); });
        worker.join();
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

TEST_F(FakeEvents, OnlyHandledEventsAreAttached) {
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
    host.Call(m, "Destructor");
    EXPECT_EQ(fake.attached(manager, libvlc_MediaPlayerPlaying), 1) << "the destructor detaches once";
    EXPECT_EQ(host.Get(m, "Handle").AsInt(), 0);
    EXPECT_TRUE(host.Get(m, "Parent").IsNil());
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

TEST_F(FakeEvents, OnTheMainThreadEventsAreRaisedAtOnce) {
    Value m = Manager("Immediate", {{"MediaPlayerPlaying", reinterpret_cast<void*>(OnPlaying)}});
    libvlc_event_t playing = Event(libvlc_MediaPlayerPlaying);
    fake.fire(manager, &playing);
    EXPECT_EQ(seen->names, std::vector<std::string>{"Playing"}) << "inside the firing call";
}

TEST_F(FakeEvents, LogLinesAreCutDetectedAndAlwaysPosted) {
    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {{"Log", reinterpret_cast<void*>(OnLog)}});
    Value logging = host.New("LoggingInstance", {host.StringArray({})});
    host.Call(logging, "SetLogEvent");
    std::string longText(600, 'x');
    fake.log(3, "demux", "file.c", 42, longText.c_str(), 1);
    fake.log(4, "caf\xC3\xA9", nullptr, 0, "r\xE9sum\xE9", 0);
    EXPECT_TRUE(seen->names.empty()) << "never raised inside the callback";
    ASSERT_TRUE(host.PumpUntil([&] { return seen->names.size() == 2; }, 2000ms));
    ASSERT_EQ(seen->texts.size(), 10u);
    EXPECT_EQ(seen->texts[0], std::string(499, 'x'));
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

TEST_F(FakeEvents, ExitRequestsRunOnLibvlcsThread) {
    host.DefineSubclass("ExitingInstance", "VLCInstanceQRV", {{"ExitEvent", reinterpret_cast<void*>(OnExit)}});
    Value exiting = host.New("ExitingInstance", {host.StringArray({})});
    EXPECT_TRUE(host.Call(exiting, "ExitHandler").IsNil());
    host.DefineSubclass("MyExit", "VLCExitHandlerQRV", {});
    Value handler = host.New("MyExit");
    host.Assign(exiting, "ExitHandler", {}, handler);
    EXPECT_EQ(host.Call(vlc, "ExitHandler").AsObject(), handler.AsObject()) << "one handler for every instance";
    fake.requestExit();
    EXPECT_EQ(seen->names, std::vector<std::string>{"Exit"});
    EXPECT_TRUE(seen->offMainThread) << "not moved to the main thread";
    host.Assign(exiting, "ExitHandler", {}, Value());
    EXPECT_TRUE(host.Call(exiting, "ExitHandler").IsNil());
    EXPECT_EQ(fake.calls("libvlc_set_exit_handler"), 1) << "nil leaves libvlc's registration";
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
    Value m = Manager("Storm", {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnStorm)}});
    size_t objects = host.LiveObjects(), strings = host.LiveStrings();
    libvlc_event_t time = Event(libvlc_MediaPlayerTimeChanged);
    std::thread firing([&] { fake.fireFromThreads(manager, &time, 4, perThread); });
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
