// Service and renderer discovery on Debian's libvlc 3.0, headless.
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;
using qrvtest::NothingRaised;
using Row = std::tuple<std::string, std::string, int64_t>;

class RealDiscovery : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
        vlc = qrvtest::HeadlessInstance(host);
    }
    // (Name, LongName, Category) of each record of a chain, following NextDescription.
    std::vector<Row> Chain(Value record, bool media) {
        std::vector<Row> rows;
        for (; !record.IsNil(); record = host.Get(record, "NextDescription"))
            rows.emplace_back(host.Text(host.Get(record, "Name")), host.Text(host.Get(record, "LongName")),
                              media ? host.Get(record, "Category").AsInt() : -1);
        return rows;
    }
    Host host;
    Value vlc;
};

TEST_F(RealDiscovery, ServicesOfEachCategoryAndTheRendererServices) {
    for (int64_t category = 0; category < 3; ++category) {
        auto rows = Chain(host.Call(vlc, "MediaDiscoverers", {Value::Int(category)}), true);
        EXPECT_FALSE(rows.empty()) << category;
        for (auto& [name, longName, cat] : rows) {
            EXPECT_FALSE(name.empty() || longName.empty()) << category;
            EXPECT_EQ(cat, category) << name;
        }
    }
    EXPECT_EQ(Chain(host.Call(vlc, "MediaDiscoverers", {Value::Int(3)}), true),
              (std::vector<Row>{
                  {"video_dir", "My Videos", 3}, {"audio_dir", "My Music", 3}, {"picture_dir", "My Pictures", 3}}));
    // Beyond libvlc's four categories, also where 32 bits would wrap to one of them.
    for (int64_t category : {int64_t{-1}, int64_t{4}, (int64_t{1} << 32) + 1})
        EXPECT_TRUE(host.Call(vlc, "MediaDiscoverers", {Value::Int(category)}).IsNil()) << category;
    EXPECT_TRUE(host.raisedLog.empty()) << "raised " << host.raisedLog.front().message;
    EXPECT_EQ(Chain(host.Call(vlc, "RendererDiscoverers"), false),
              (std::vector<Row>{{"avahi_renderer", "Avahi Zeroconf renderer Discovery", -1}}));
}

// libvlc 3.0 crashes stopping a media discoverer that does not run, and a
// second start would orphan the first service.
TEST_F(RealDiscovery, CreateStartListStopAndStopAgain) {
    std::string home = std::filesystem::temp_directory_path() / ("qrv-discovery-" + std::to_string(getpid()));
    std::filesystem::create_directories(home + "/videos");
    std::ofstream(home + "/videos/one.wav"), std::ofstream(home + "/videos/two.mp3");
    std::ofstream(home + "/user-dirs.dirs") << "XDG_VIDEOS_DIR=\"" << home << "/videos\"\n";
    setenv("XDG_CONFIG_HOME", home.c_str(), 1);

    Value discoverer = host.CallShared("VLCMediaDiscovererQRV", "Create", {vlc, host.String("video_dir")});
    ASSERT_FALSE(discoverer.IsNil());
    EXPECT_EQ(host.Get(discoverer, "VLC").AsObject(), vlc.AsObject());
    host.Call(discoverer, "Stop");  // not started yet
    EXPECT_TRUE(host.Call(discoverer, "Start").AsBool());
    EXPECT_TRUE(host.Call(discoverer, "Start").AsBool());  // restarts
    Value list = host.Call(discoverer, "MediaList");
    ASSERT_FALSE(list.IsNil());
    EXPECT_TRUE(host.PumpUntil([&] { return host.Call(list, "Count").AsInt() == 2; }, std::chrono::seconds(5)));
    host.Call(discoverer, "Stop");
    host.Call(discoverer, "Stop");
    EXPECT_TRUE(NothingRaised(host));
    unsetenv("XDG_CONFIG_HOME");
    std::filesystem::remove_all(home);

    // libvlc refuses its podcast service outside a playlist; a name no category lists is no service.
    EXPECT_TRUE(host.CallShared("VLCMediaDiscovererQRV", "Create", {vlc, host.String("podcast")}).IsNil());
    for (const char* unknown : {"no-such-service", "video_di", ""})
        EXPECT_TRUE(host.CallShared("VLCMediaDiscovererQRV", "Create", {vlc, host.String(unknown)}).IsNil()) << unknown;
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_TRUE(
        host.CallShared("VLCMediaDiscovererQRV", "Create", {host.NewRaw("VLCInstanceQRV"), host.String("x")}).IsNil());
    EXPECT_TRUE(qrvtest::Raised(host, "NilObjectException", "vlc parameter is nil"));
}

void IgnoreItem(REALobject, REALobject) {}

// Headless there is no Avahi daemon to ask: Start may fail, and everything ends cleanly.
TEST_F(RealDiscovery, AvahiRendererDiscovererStartsStopsAndGoes) {
    host.DefineSubclass(
        "Caster", "VLCRendererDiscovererQRV",
        {{"ItemAdded", reinterpret_cast<void*>(IgnoreItem)}, {"ItemDeleted", reinterpret_cast<void*>(IgnoreItem)}});
    for (int round = 0; round < 2; ++round) {
        Value caster = host.New("Caster", {vlc, host.String("avahi_renderer")});
        EXPECT_NE(host.Get(caster, "Handle").AsInt(), 0);
        host.Call(caster, "Start");
        if (round == 0) host.Call(caster, "Stop");
        EXPECT_TRUE(NothingRaised(host));
        host.PumpFor(std::chrono::milliseconds(20));
    }
    Value player = host.New("VLCMediaPlayerQRV", {vlc});
    EXPECT_TRUE(host.Call(player, "SetRenderer", {Value()}).AsBool());  // nil: play here
    EXPECT_TRUE(NothingRaised(host));
}

}  // namespace
