// Record versions, flag rewrites and data-size rounding, checked on the
// plug-in's own registration code with a resolver owned by the test.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "plugin/host_entries.h"
#include "plugin/registration.h"

extern "C" void REALPluginMain(ResolverFn resolver);

namespace {

struct FakeHost {
    double version = 0;
    bool offerVersion = true;
    bool offerRegisterClass = true;
    int announcedVersion = -1;
    std::vector<REALclassDefinition> registered;  // copies, as handed over
};
FakeHost* gHost = nullptr;

double HostVersion() { return gHost->version; }
void RegisterPluginVersion(int version) { gHost->announcedVersion = version; }
void RegisterClass(REALclassDefinition* record) { gHost->registered.push_back(*record); }

void* Resolve(const char* name) {
    if (strcmp(name, "REALGetRBVersion") == 0 && gHost->offerVersion) return reinterpret_cast<void*>(HostVersion);
    if (strcmp(name, "RegisterPluginVersion") == 0) return reinterpret_cast<void*>(RegisterPluginVersion);
    if (strcmp(name, "PluginRegisterClass") == 0 && gHost->offerRegisterClass)
        return reinterpret_cast<void*>(RegisterClass);
    return nullptr;
}

// Class records are process-wide statics: every run starts from the same host-neutral flags.
class Registration : public ::testing::Test {
protected:
    void Load(FakeHost& host) {
        gHost = &host;
        REALPluginMain(Resolve);
    }
    void SetUp() override { rbversion = 0.0; }
};

TEST_F(Registration, RecordVersionFollowsHostVersion) {
    const std::pair<double, int> cases[] = {{2011.9, 9},   {2012.0, 10},  {2013.0, 11},  {2013.02, 11},
                                            {2013.03, 12}, {2013.04, 13}, {2020.02, 13}, {2024.1, 13}};
    for (auto [version, expected] : cases) {
        FakeHost host;
        host.version = version;
        Load(host);
        EXPECT_EQ(host.announcedVersion, expected) << version;
        ASSERT_EQ(host.registered.size(), 19u);
        for (const auto& record : host.registered) EXPECT_EQ(record.version, static_cast<uint32_t>(expected));
    }
}

TEST_F(Registration, ClassesComeInTheFixedOrderWithRoundedSizes) {
    FakeHost host;
    host.version = 2021.1;
    Load(host);
    const char* expected[] = {"VLCInstanceQRV",
                              "VLCMediaQRV",
                              "VLCMediaListQRV",
                              "VLCMediaLibraryQRV",
                              "VLCMediaPlayerQRV",
                              "VLCEventManagerQRV",
                              "VLCMediaListPlayerQRV",
                              "VLCMediaDiscovererQRV",
                              "VLCTrackDescriptionQRV",
                              "VLCAudioOutputQRV",
                              "VLCAudioOutputDeviceQRV",
                              "VLCMissingFunctionExceptionQRV",
                              "VLCNotInitializedExceptionQRV",
                              "VLCMediaStatsQRV",
                              "VLCMediaTrackInfoQRV",
                              "VLCMediaTrackQRV",
                              "VLCEqualizerQRV",
                              "VLCExitHandlerQRV",
                              "VLCModuleDescriptionQRV"};
    ASSERT_EQ(host.registered.size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_STREQ(host.registered[i].name, expected[i]);
        EXPECT_EQ(host.registered[i].dataSize % 16, 0u) << expected[i];
        EXPECT_EQ(host.registered[i].mFlags, 4u) << expected[i];
    }
    EXPECT_STREQ(host.registered[11].superName, "RuntimeException");
    EXPECT_STREQ(host.registered[12].superName, "RuntimeException");
    EXPECT_EQ(host.registered[0].superName, nullptr);
}

TEST_F(Registration, MissingVersionEntryMeansAnOldHost) {
    FakeHost host;
    host.offerVersion = false;
    Load(host);
    EXPECT_EQ(rbversion, 0.0);
    EXPECT_EQ(host.announcedVersion, 9);
}

TEST_F(Registration, NothingIsRegisteredWithoutResolverOrRegisterEntry) {
    REALPluginMain(nullptr);
    EXPECT_EQ(CurrentREALControlVersion, 9);

    FakeHost host;
    host.version = 2021.0;
    host.offerRegisterClass = false;
    Load(host);
    EXPECT_TRUE(host.registered.empty());
    EXPECT_EQ(host.announcedVersion, 13);
}

// A record of the test's own, registered through the same path as the plug-in's.
REALclassDefinition MakeRecord(uint32_t classFlags, size_t dataSize, REALmethodDefinition* methods, size_t count) {
    REALclassDefinition record{};
    record.name = "TestRecord";
    record.mFlags = classFlags;
    record.dataSize = dataSize;
    record.methods = methods;
    record.methodCount = count;
    return record;
}

TEST_F(Registration, FlagRewritesDependOnHostVersion) {
    FakeHost host;
    gHost = &host;
    SetHostResolver(Resolve);
    struct Case {
        double version;
        uint32_t classFlags, methodFlags;
        uint32_t expectClass, expectMethod;
    };
    const Case cases[] = {
        {2010.028, 4, kFlagPictureMarker, 4, 0},      // the picture marker is dropped on old hosts
        {2010.029, 4, kFlagPictureMarker, 4, 4},      // and becomes 4 from 2010.029 on
        {2010.029, 4, kFlagPictureMarker | 4, 4, 4},  // never more than 4
        {2020.01, 0x30C, 0x30C, 4, 4},                // the 0x308 group is unknown before 2020.02
        {2020.02, 0x30C, 0x30C, 0x30C, 0x30C},        // and kept from then on
        {2020.01, 0x70C, 0x70C, 0x70C, 0x70C},        // 0x400 set: not the 0x308 combination
        {2010.028, kFlagPictureMarker | 4, 4, 4, 4},  // a class marker is rewritten too
    };
    for (const Case& c : cases) {
        rbversion = c.version;
        REALmethodDefinition methods[2] = {{nullptr, nullptr, "A", c.methodFlags, 0, nullptr},
                                           {nullptr, nullptr, "B", 4, 0, nullptr}};
        REALclassDefinition record = MakeRecord(c.classFlags, 0, methods, 2);
        MyREALRegisterClass(&record);
        EXPECT_EQ(record.mFlags, c.expectClass) << c.version << " class " << c.classFlags;
        EXPECT_EQ(methods[0].mFlags, c.expectMethod) << c.version << " method " << c.methodFlags;
        EXPECT_EQ(methods[1].mFlags, 4u);
    }
}

TEST_F(Registration, PropertyFlagsAndDataSizes) {
    FakeHost host;
    gHost = &host;
    SetHostResolver(Resolve);
    rbversion = 2010.029;
    REALproperty properties[1] = {};
    properties[0].name = "P";
    properties[0].flags = kFlagPictureMarker | 2;
    const std::pair<size_t, size_t> sizes[] = {{24, 32}, {120, 128}, {168, 176}, {16, 16}, {80, 80}, {0, 0}, {1, 16}};
    for (auto [given, expected] : sizes) {
        REALclassDefinition record = MakeRecord(4, given, nullptr, 0);
        record.properties = properties;
        record.propertyCount = 1;
        MyREALRegisterClass(&record);
        EXPECT_EQ(record.dataSize, expected) << given;
    }
    EXPECT_EQ(properties[0].flags, 6u);
    // Absent lists and counts below 1 are left alone.
    FixFlags(static_cast<REALproperty*>(nullptr), 3, "x");
    properties[0].flags = kFlagPictureMarker;
    FixFlags(properties, 0, "x");
    EXPECT_EQ(properties[0].flags, kFlagPictureMarker);
}

}  // namespace
