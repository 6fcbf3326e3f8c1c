// Renderer item events through the fake libvlc: fired on libvlc's threads,
// raised on the main thread with a record holding the item, holds balanced.
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;
using namespace std::chrono_literals;

constexpr int kAdded = libvlc_RendererDiscovererItemAdded, kDeleted = libvlc_RendererDiscovererItemDeleted;

Host* gHost = nullptr;
qrvtest::FakeVLC* gFake = nullptr;
libvlc_renderer_item_t* gItem = nullptr;
std::vector<std::string> gRaised;  // the event, the record's fields and the item's holds during the handler
Value gKept;                       // the last item a handler was given, kept on purpose

void Note(const char* event, REALobject item) {
    Value record = Value::BorrowObject(item);
    auto field = [&](const char* name) { return gHost->Text(gHost->Get(record, name)); };
    auto* handle = reinterpret_cast<libvlc_renderer_item_t*>(gHost->Get(record, "Handle").AsInt());
    gRaised.push_back(std::string(event) + " " + field("Name") + ", " + field("Type") + ", " + field("IconURI") + ", " +
                      std::to_string(gHost->Get(record, "Flags").AsInt()) +
                      (handle == gItem ? ", the item held " : ", another item held ") +
                      std::to_string(gFake->rendererItemRefs(handle)) +
                      (syscall(SYS_gettid) == getpid() ? "" : ", off the main thread"));
    gKept = record;
}
void OnAdded(REALobject, REALobject item) { Note("ItemAdded", item); }
void OnDeleted(REALobject, REALobject item) { Note("ItemDeleted", item); }

class FakeRenderers : public ::testing::Test {
protected:
    void SetUp() override {
        gHost = &host;
        gFake = &fake;
        gRaised.clear();
        ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
        vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
        host.DefineSubclass(
            "Caster", "VLCRendererDiscovererQRV",
            {{"ItemAdded", reinterpret_cast<void*>(OnAdded)}, {"ItemDeleted", reinterpret_cast<void*>(OnDeleted)}});
        host.DefineSubclass("AddedOnly", "VLCRendererDiscovererQRV", {{"ItemAdded", reinterpret_cast<void*>(OnAdded)}});
        gItem = fake.newRendererItem("Living room", "chromecast", "http://10.0.0.7/icon.png", 3);
    }
    void TearDown() override { gKept = Value(); }
    // As libvlc's discovery thread does.
    void Fire(int type) {
        libvlc_event_t event{};
        event.type = type;
        (type == kAdded ? event.u.renderer_discoverer_item_added.item : event.u.renderer_discoverer_item_deleted.item) =
            gItem;
        std::thread([&] { fake.fire(fake.eventManager(), &event); }).join();
    }
    int64_t Attached(int type) { return fake.attached(fake.eventManager(), type); }

    Host host;
    qrvtest::FakeVLC fake;
    Value vlc;
};

TEST_F(FakeRenderers, ItemsArriveOnTheMainThreadAsRecordsHoldingTheirItem) {
    Value caster = host.New("Caster", {vlc, host.String("fake")});
    EXPECT_EQ(Attached(kAdded), 1);
    EXPECT_EQ(Attached(kDeleted), 1);
    Fire(kAdded);
    EXPECT_EQ(fake.rendererItemRefs(gItem), 2);  // the fake's own and the delivery's, nothing raised yet
    EXPECT_TRUE(gRaised.empty());
    Fire(kDeleted);
    EXPECT_TRUE(host.PumpUntil([] { return gRaised.size() == 2; }, 2s));
    // Held by the fake, a delivery and the record, and the other delivery or the kept record.
    const std::string fields = " Living room, chromecast, http://10.0.0.7/icon.png, 3, the item held 4";
    EXPECT_EQ(gRaised, (std::vector<std::string>{"ItemAdded" + fields, "ItemDeleted" + fields}));
    EXPECT_EQ(fake.rendererItemRefs(gItem), 2);  // the kept record's hold only

    Value player = host.New("VLCMediaPlayerQRV", {vlc});
    EXPECT_TRUE(host.Call(player, "SetRenderer", {gKept}).AsBool());
    EXPECT_EQ(fake.playerRenderer(), gItem);
    EXPECT_TRUE(host.Call(player, "SetRenderer", {Value()}).AsBool());
    EXPECT_EQ(fake.playerRenderer(), nullptr);
    fake.setInt("libvlc_media_player_set_renderer", -1);
    EXPECT_FALSE(host.Call(player, "SetRenderer", {gKept}).AsBool());
    gKept = Value();
    EXPECT_EQ(fake.rendererItemRefs(gItem), 1);
}

TEST_F(FakeRenderers, OnlyHandledEventsAttachAndADestroyedDiscovererDropsWhatIsQueued) {
    Value caster = host.New("AddedOnly", {vlc, host.String("fake")});
    EXPECT_EQ(Attached(kAdded), 1);
    EXPECT_EQ(Attached(kDeleted), 0);
    EXPECT_TRUE(host.Call(caster, "Start").AsBool());
    Fire(kAdded);
    Fire(kAdded);
    EXPECT_EQ(fake.rendererItemRefs(gItem), 3);
    caster = Value();  // the fake stops the process on detaching what is not attached
    EXPECT_EQ(fake.calls("libvlc_renderer_discoverer_stop"), 1);
    EXPECT_EQ(fake.calls("libvlc_renderer_discoverer_release"), 1);
    EXPECT_EQ(Attached(kAdded), 0);
    host.PumpFor(50ms);
    EXPECT_TRUE(gRaised.empty());
    EXPECT_EQ(fake.rendererItemRefs(gItem), 1);

    // No event manager: nothing to attach to, and nothing to detach.
    fake.setInt("libvlc_renderer_discoverer_event_manager", -1);
    caster = host.New("Caster", {vlc, host.String("fake")});
    EXPECT_EQ(Attached(kAdded), 0);
    caster = Value();
    EXPECT_EQ(fake.calls("libvlc_event_detach"), 1);
}

}  // namespace
