// Record versions, class order, flag rewrites and data-size rounding, checked
// on the plug-in's own registration code with a resolver owned by the test;
// the list of libvlc functions the plug-in binds; and the picture row layouts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "binding/vlc_table.h"
#include "playback/frame_capture.h"
#include "plugin/host_entries.h"
#include "plugin/registration.h"
#include "tests/support/test_support.h"

extern "C" void REALPluginMain(ResolverFn resolver);

// libvlc 3.0's headers no longer declare these; the list keeps their old signatures.
extern "C" {
int libvlc_vlm_get_media_instance_title(libvlc_instance_t*, const char*, int);
int libvlc_vlm_get_media_instance_chapter(libvlc_instance_t*, const char*, int);
int libvlc_vlm_get_media_instance_seekable(libvlc_instance_t*, const char*, int);
}

namespace {

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// Every function the 3.0 headers still declare has exactly the header's type.
#define X(name, majors, ret, params) static_assert(std::is_same_v<decltype(&::name), vlcfn::name##_t>, #name);
#include "binding/functions.def"
#undef X

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
FakeHost Load(double version, bool offerVersion = true, bool offerRegisterClass = true) {
    FakeHost host{version, offerVersion, offerRegisterClass};
    gHost = &host;
    rbversion = 0.0;
    REALPluginMain(Resolve);
    gHost = nullptr;
    return host;
}

// The classes come in the fixed order with rounded sizes, in records of the version the host reads.
TEST(Registration, RecordsFollowTheHostVersionInTheFixedOrder) {
    const std::pair<double, int> cases[] = {{2011.9, 9},   {2012.0, 10},  {2013.0, 11},  {2013.02, 11},
                                            {2013.03, 12}, {2013.04, 13}, {2020.02, 13}, {2024.1, 13}};
    for (auto [version, expected] : cases) {
        FakeHost host = Load(version);
        EXPECT_EQ(host.announcedVersion, expected) << version;
        ASSERT_EQ(host.registered.size(), std::size(qrvtest::kClassNames));
        for (size_t i = 0; i < host.registered.size(); ++i) {
            const REALclassDefinition& record = host.registered[i];
            EXPECT_EQ(record.version, static_cast<uint32_t>(expected));
            EXPECT_STREQ(record.name, qrvtest::kClassNames[i]);
            EXPECT_EQ(record.dataSize % 16, 0u) << record.name;
            EXPECT_EQ(record.mFlags, 4u) << record.name;
            bool exception = strstr(record.name, "ExceptionQRV") != nullptr;
            EXPECT_STREQ(record.superName, exception ? "RuntimeException" : nullptr) << record.name;
        }
    }
    // Without the version entry the host is an old one.
    EXPECT_EQ(Load(2021.0, false).announcedVersion, 9);
    EXPECT_EQ(rbversion, 0.0);
    // Without the register entry, or any resolver, nothing is registered.
    FakeHost unregistered = Load(2021.0, true, false);
    EXPECT_TRUE(unregistered.registered.empty());
    EXPECT_EQ(unregistered.announcedVersion, 13);
    rbversion = 0.0;
    REALPluginMain(nullptr);
    EXPECT_EQ(CurrentREALControlVersion, 9);
}

// Records of the test's own, registered through the same path as the plug-in's.
TEST(Registration, FlagRewritesAndDataSizesDependOnHostVersion) {
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
        REALmethodDefinition methods[3] = {{nullptr, nullptr, "A", c.methodFlags, 0, nullptr},
                                           {nullptr, nullptr, "B", 4, 0, nullptr},
                                           {nullptr, nullptr, "Shared", c.methodFlags, 0, nullptr}};
        REALclassDefinition record{.name = "TestRecord",
                                   .methods = methods,
                                   .methodCount = 2,
                                   .mFlags = c.classFlags,
                                   .sharedMethods = methods + 2,
                                   .sharedMethodCount = 1};
        EXPECT_EQ(MyREALRegisterClass(&record), 1) << "registered";
        EXPECT_EQ(record.mFlags, c.expectClass) << c.version << " class " << c.classFlags;
        EXPECT_EQ(methods[0].mFlags, c.expectMethod) << c.version << " method " << c.methodFlags;
        EXPECT_EQ(methods[1].mFlags, 4u);
        EXPECT_EQ(methods[2].mFlags, c.expectMethod) << c.version << " shared method " << c.methodFlags;
    }

    rbversion = 2010.029;
    REALproperty properties[2] = {{.name = "P", .flags = kFlagPictureMarker | 2},
                                  {.name = "S", .flags = kFlagPictureMarker}};
    const std::pair<size_t, size_t> sizes[] = {{24, 32}, {120, 128}, {168, 176}, {16, 16}, {80, 80}, {0, 0}, {1, 16}};
    for (auto [given, expected] : sizes) {
        REALclassDefinition record{.name = "TestRecord",
                                   .dataSize = given,
                                   .properties = properties,
                                   .propertyCount = 1,
                                   .mFlags = 4,
                                   .sharedProperties = properties + 1,
                                   .sharedPropertyCount = 1};
        MyREALRegisterClass(&record);
        EXPECT_EQ(record.dataSize, expected) << given;
    }
    EXPECT_EQ(properties[0].flags, 6u);
    EXPECT_EQ(properties[1].flags, 4u) << "shared properties too";
    // Absent lists and counts below 1 are left alone.
    FixFlags(static_cast<REALproperty*>(nullptr), 3, "x");
    properties[0].flags = kFlagPictureMarker;
    FixFlags(properties, 0, "x");
    EXPECT_EQ(properties[0].flags, kFlagPictureMarker);
    SetHostResolver(nullptr);
    rbversion = 0.0;
}

TEST(FunctionTable, ListsEachOf290FunctionsOnceInLookupOrder) {
    std::vector<std::string> names;
    for (size_t i = 0; i < vlcfn::kEntryCount; ++i) {
        names.emplace_back(vlcfn::kEntries[i].name);
        EXPECT_NE(vlcfn::kEntries[i].slot, nullptr) << names.back();
    }
    ASSERT_EQ(names.size(), 290u);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 290u);
    EXPECT_EQ((std::vector<std::string>{names[0], names[1], names[24], names[25], names[249], names[253], names[254],
                                        names[289]}),
              (std::vector<std::string>{"libvlc_media_subitems", "libvlc_vlm_release", "libvlc_vlm_get_event_manager",
                                        "libvlc_errmsg", "libvlc_log_get_context", "libvlc_log_set_file",
                                        "libvlc_media_parse_with_options", "libvlc_media_new_callbacks"}));
    // Later additions come after the families they extend.
    auto at = [&](const char* name) { return std::find(names.begin(), names.end(), name) - names.begin(); };
    EXPECT_GT(at("libvlc_set_exit_handler"), at("libvlc_media_discoverer_is_running"));
    EXPECT_LT(at("libvlc_audio_equalizer_get_preset_count"), at("libvlc_media_player_set_equalizer"));
    EXPECT_LT(at("libvlc_media_tracks_release"), at("libvlc_set_app_id"));
}

}  // namespace

// Each picture layout's words for frame pixels b0 b1 b2 x: the Mac layouts take
// b0 as red, cairo and gd keep the frame's own B G R order.
TEST(PictureRows, EachLayoutPlacesTheChannels) {
    const uint8_t frame[] = {0x11, 0x22, 0x33, 0x44, 0xA1, 0xB2, 0xC3, 0xD4};
    struct {
        PixelLayout layout;
        uint32_t first, second;
    } rows[] = {{PixelLayout::AlphaHigh, 0xFF112233u, 0xFFA1B2C3u},
                {PixelLayout::AlphaLow, 0x112233FFu, 0xA1B2C3FFu},
                {PixelLayout::NativeARGB, 0xFF332211u, 0xFFC3B2A1u},
                {PixelLayout::RowTable, 0x00332211u, 0x00C3B2A1u}};
    for (const auto& row : rows) {
        uint32_t out[3] = {0, 0, 0xDEADBEEFu};
        WritePictureRow(row.layout, out, frame, 2);
        EXPECT_EQ(out[0], row.first) << static_cast<int>(row.layout);
        EXPECT_EQ(out[1], row.second) << static_cast<int>(row.layout);
        EXPECT_EQ(out[2], 0xDEADBEEFu) << "nothing written past the row";
    }
}
