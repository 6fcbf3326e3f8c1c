// Renderer item events through the fake libvlc: fired on libvlc's threads,
// raised on the main thread with a record holding the item, holds balanced.
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/fakevlc/fakevlc_control.h"
#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;
using namespace std::chrono_literals;

struct Raise {
    std::string event, name, type, icon;
    int64_t flags, handle, refsDuringHandler;
    bool onMainThread;
};

Host* gHost = nullptr;
std::vector<Raise> gRaised;
Value gKept;  // the last item a handler was given, kept on purpose

template <typename F>
F* Fake(const char* name) {
    static void* handle = dlopen(FAKEVLC_PATH, RTLD_NOW);
    return reinterpret_cast<F*>(dlsym(handle, name));
}

void Note(const char* event, REALobject item) {
    Value record = Value::BorrowObject(item);
    auto text = [&](const char* field) { return gHost->Text(gHost->Get(record, field)); };
    int64_t handle = gHost->Get(record, "Handle").AsInt();
    gRaised.push_back({event, text("Name"), text("Type"), text("IconURI"), gHost->Get(record, "Flags").AsInt(), handle,
                       Fake<int64_t(const libvlc_renderer_item_t*)>("fakevlc_renderer_item_refs")(
                           reinterpret_cast<libvlc_renderer_item_t*>(handle)),
                       syscall(SYS_gettid) == getpid()});
    gKept = record;
}
void OnAdded(REALobject, REALobject item) { Note("ItemAdded", item); }
void OnDeleted(REALobject, REALobject item) { Note("ItemDeleted", item); }

class FakeRenderers : public ::testing::Test {
protected:
    void SetUp() override {
        gHost = &host;
        gRaised.clear();
        ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
        vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
        host.DefineSubclass(
            "Caster", "VLCRendererDiscovererQRV",
            {{"ItemAdded", reinterpret_cast<void*>(OnAdded)}, {"ItemDeleted", reinterpret_cast<void*>(OnDeleted)}});
        host.DefineSubclass("AddedOnly", "VLCRendererDiscovererQRV", {{"ItemAdded", reinterpret_cast<void*>(OnAdded)}});
        item = Fake<libvlc_renderer_item_t*(const char*, const char*, const char*, int)>("fakevlc_new_renderer_item")(
            "Living room", "chromecast", "http://10.0.0.7/icon.png", 3);
    }
    void TearDown() override { gKept = Value(); }
    int64_t Refs() { return Fake<int64_t(const libvlc_renderer_item_t*)>("fakevlc_renderer_item_refs")(item); }
    void Fire(int type) { Fake<void(int, libvlc_renderer_item_t*)>("fakevlc_fire_renderer_item")(type, item); }
    int64_t Attached(int type) {
        return fake.attached(Fake<libvlc_event_manager_t*()>("fakevlc_renderer_event_manager")(), type);
    }

    Host host;
    qrvtest::FakeVLC fake;
    Value vlc;
    libvlc_renderer_item_t* item = nullptr;
};

TEST_F(FakeRenderers, ItemsArriveOnTheMainThreadAsRecordsHoldingTheirItem) {
    Value caster = host.New("Caster", {vlc, host.String("fake")});
    EXPECT_EQ(Attached(libvlc_RendererDiscovererItemAdded), 1);
    EXPECT_EQ(Attached(libvlc_RendererDiscovererItemDeleted), 1);
    Fire(libvlc_RendererDiscovererItemAdded);
    EXPECT_EQ(Refs(), 2);  // the fake's own and the delivery's, nothing raised yet
    EXPECT_TRUE(gRaised.empty());
    Fire(libvlc_RendererDiscovererItemDeleted);
    EXPECT_TRUE(host.PumpUntil([] { return gRaised.size() == 2; }, 2s));
    ASSERT_EQ(gRaised.size(), 2u);
    for (const Raise& r : gRaised) {
        EXPECT_EQ(r.name, "Living room");
        EXPECT_EQ(r.type, "chromecast");
        EXPECT_EQ(r.icon, "http://10.0.0.7/icon.png");
        EXPECT_EQ(r.flags, 3);
        EXPECT_EQ(r.handle, reinterpret_cast<int64_t>(item));
        EXPECT_TRUE(r.onMainThread);
    }
    EXPECT_EQ(gRaised[0].event, "ItemAdded");
    EXPECT_EQ(gRaised[1].event, "ItemDeleted");
    EXPECT_EQ(gRaised[0].refsDuringHandler, 4);  // the fake, both deliveries and the record
    EXPECT_EQ(Refs(), 2);                        // the kept record's hold only

    Value player = host.New("VLCMediaPlayerQRV", {vlc});
    EXPECT_TRUE(host.Call(player, "SetRenderer", {gKept}).AsBool());
    EXPECT_EQ(Fake<libvlc_renderer_item_t*()>("fakevlc_player_renderer")(), item);
    EXPECT_TRUE(host.Call(player, "SetRenderer", {Value()}).AsBool());
    EXPECT_EQ(Fake<libvlc_renderer_item_t*()>("fakevlc_player_renderer")(), nullptr);
    fake.setInt("libvlc_media_player_set_renderer", -1);
    EXPECT_FALSE(host.Call(player, "SetRenderer", {gKept}).AsBool());
    gKept = Value();
    EXPECT_EQ(Refs(), 1);
}

TEST_F(FakeRenderers, OnlyHandledEventsAttachAndADestroyedDiscovererDropsWhatIsQueued) {
    Value caster = host.New("AddedOnly", {vlc, host.String("fake")});
    EXPECT_EQ(Attached(libvlc_RendererDiscovererItemAdded), 1);
    EXPECT_EQ(Attached(libvlc_RendererDiscovererItemDeleted), 0);
    EXPECT_TRUE(host.Call(caster, "Start").AsBool());
    Fire(libvlc_RendererDiscovererItemAdded);
    Fire(libvlc_RendererDiscovererItemAdded);
    EXPECT_EQ(Refs(), 3);
    int64_t stops = fake.calls("libvlc_renderer_discoverer_stop");
    caster = Value();  // the fake aborts on detaching what is not attached
    EXPECT_EQ(fake.calls("libvlc_renderer_discoverer_stop"), stops + 1);
    EXPECT_EQ(fake.calls("libvlc_renderer_discoverer_release"), 1);
    EXPECT_EQ(Attached(libvlc_RendererDiscovererItemAdded), 0);
    host.PumpFor(50ms);
    EXPECT_TRUE(gRaised.empty());
    EXPECT_EQ(Refs(), 1);

    // No event manager: nothing to attach to, and nothing to detach.
    fake.setInt("libvlc_renderer_discoverer_event_manager", -1);
    caster = host.New("Caster", {vlc, host.String("fake")});
    EXPECT_EQ(Attached(libvlc_RendererDiscovererItemAdded), 0);
    caster = Value();
    EXPECT_EQ(fake.calls("libvlc_event_detach"), 1);
}

}  // namespace
