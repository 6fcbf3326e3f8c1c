// Which functions LoadLibrary binds for a library's major, and LoadLibrary of
// another library while objects of the loaded one live.
#include <gtest/gtest.h>

#include <map>

#include "binding/vlc_table.h"
#include "tests/sweep/sweep.h"

namespace sweep {
namespace {

const std::map<std::string, unsigned>& MajorsByEntry() {
    static const std::map<std::string, unsigned> majors = {
#define X(name, majors, ret, params) {"_" #name, vlcfn::majors},
#include "binding/functions.def"
#undef X
    };
    return majors;
}

// The classes whose first field is a libvlc handle; on 4.x most cannot be made
// (their constructors are left unbound), so a held object of the fake goes there.
const char* const kHandleClasses[] = {
    "VLCMediaQRV",           "VLCMediaListQRV",       "VLCMediaLibraryQRV",       "VLCMediaPlayerQRV",
    "VLCMediaListPlayerQRV", "VLCMediaDiscovererQRV", "VLCRendererDiscovererQRV", "VLCRendererItemQRV",
    "VLCEventManagerQRV"};

Value ObjectOn4(Host& host, const qrvtest::FakeVLC& fake, const std::string& className) {
    if (className == "VLCInstanceQRV") return host.New(className, {host.StringArray({})});
    if (className == "VLCEqualizerQRV") return host.New(className, {Value()});
    Value object = host.NewRaw(className);
    for (const char* cls : kHandleClasses)
        if (className == cls)
            *reinterpret_cast<void**>(reinterpret_cast<char*>(object.AsObject()) +
                                      host.FindClass(className)->record->forSystemUse) = fake.newObject();
    return object;
}

// Every member of every class on the 4.0 fake: none reaches a function whose
// 4.x contract differs (the fake aborts if one does), and each member that
// names one raises the missing-function exception for it.
TEST(Libvlc4, MembersNeverReachAFunctionWhoseContractDiffers) {
    Host host;
    qrvtest::FakeVLC fake(std::string(FAKEVLC4_PATH));
    ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
    EXPECT_NE(host.Text(host.CallShared("VLCInstanceQRV", "GetLoadError")).find("major 4"), std::string::npos);
    std::map<std::string, std::string> entries;  // by class and member key
    for (const std::vector<ClassSweep>& part :
         {MediaObjectSweeps(), PlaybackSweeps(), MediaFeatureSweeps(), DialogSweeps(), DiscoverySweeps()})
        for (const ClassSweep& s : part)
            for (const Expect& e : s.members) entries[s.className + " " + e.member] = e.entry;
    size_t unbound = 0, called = 0;
    for (const emu::ClassInfo* cls : host.PluginClasses()) {
        for (const Member& member : MembersOf(*cls->record)) {
            const std::string& entry = entries[cls->name + " " + member.key];
            Value self = member.shared ? Value() : ObjectOn4(host, fake, cls->name);
            host.exception.reset();
            Call(host, member, &self, Zero);
            ++called;
            if (entry.empty() || vlcfn::HoldsFor(MajorsByEntry().at(entry), 4)) continue;
            ++unbound;
            Raised got = host.exception ? Raised{host.exception->className, host.exception->message} : Nothing();
            EXPECT_EQ(got, Missing(entry)) << cls->name << " " << member.key;
        }
    }
    EXPECT_GT(unbound, 80u);
    EXPECT_GT(called, 400u);
    for (const auto& [entry, majors] : MajorsByEntry())
        EXPECT_EQ(vlcfn::HoldsFor(majors, 4) ? 0 : fake.calls(entry.c_str() + 1), 0) << entry;
    EXPECT_GT(fake.calls("libvlc_new"), 0);
}

// A major the list does not describe binds nothing LoadLibrary could call wrongly, and says why.
TEST(Libvlc4, UnknownMajorsBindNothing) {
    for (const char* version : {"5.0.0-dev", "1.1.9 The Luggage", "12", "vlc 4.0", ""}) {
        Host host;
        qrvtest::FakeVLC fake(std::string(FAKEVLC4_PATH));
        if (*version != 0)
            fake.setPtr("libvlc_get_version", const_cast<char*>(version));
        else
            fake.setInt("libvlc_get_version", -1);  // answers null
        EXPECT_FALSE(fake.LoadInto(host)) << version;
        std::string error = host.Text(host.CallShared("VLCInstanceQRV", "GetLoadError"));
        EXPECT_NE(error.find(*version != 0 ? "does not serve" : "reports no libvlc version"), std::string::npos)
            << version << ": " << error;
        host.New("VLCInstanceQRV", {host.StringArray({})});
        EXPECT_EQ(host.exception ? host.exception->message : "", "Missing function _libvlc_new in VLC.");
        for (const auto& [entry, majors] : MajorsByEntry())
            EXPECT_EQ(entry == "_libvlc_get_version" ? 0 : fake.calls(entry.c_str() + 1), 0) << version << entry;
    }
}

int gTimeEvents = 0;
void CountTimeEvent(REALobject, int64_t) { ++gTimeEvents; }

// Objects of the loaded library, of each kind that holds a libvlc object or a
// registration with libvlc; a capturing player plays, an event manager listens.
std::vector<Value> LiveObjects(Host& host, const std::string& mediaPath) {
    Value vlc = qrvtest::HeadlessInstance(host);
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(mediaPath)});
    Value player = host.New("VLCMediaPlayerQRV", {media});
    host.Call(player, "VideoSetCallback", {Value::Int(64), Value::Int(48)});
    host.Call(player, "Play");
    if (host.FindClass("TimeEvents") == nullptr)
        host.DefineSubclass("TimeEvents", "VLCEventManagerQRV",
                            {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(CountTimeEvent)}});
    Value listening = host.New("TimeEvents", {player});
    host.Call(vlc, "SetLogEvent");
    Value list = host.New("VLCMediaListQRV", {vlc}), dialog = host.New("VLCDialogQRV", {vlc});
    return {vlc, media, player, listening, list, dialog, host.New("VLCEqualizerQRV", {Value()})};
}

// On the real libvlc the player plays until the listening manager has had a time event.
void ReloadRefusedWhileObjectsLive(Host& host, const std::string& other, const std::string& mediaPath, bool real) {
    gTimeEvents = 0;
    std::vector<Value> objects = LiveObjects(host, mediaPath);
    EXPECT_TRUE(!real || host.PumpUntil([] { return gTimeEvents > 0; }, std::chrono::seconds(20)));
    // The real libvlc names its compiler, the fake none.
    std::string compiler = host.Text(host.CallShared("VLCInstanceQRV", "GetCompiler"));
    EXPECT_FALSE(host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(other)}).AsBool());
    EXPECT_NE(host.Text(host.CallShared("VLCInstanceQRV", "GetLoadError")).find("objects of the loaded one live"),
              std::string::npos);
    EXPECT_EQ(host.Text(host.CallShared("VLCInstanceQRV", "GetCompiler")), compiler) << "the table stays";
    // Dropped through the table they were made with; an equalizer needs no instance and still counts.
    Value equalizer = objects.back();
    objects.clear();
    host.PumpFor(std::chrono::milliseconds(100));
    EXPECT_FALSE(host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(other)}).AsBool());
    equalizer = Value();
    EXPECT_TRUE(host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(other)}).AsBool());
    EXPECT_NE(host.Text(host.CallShared("VLCInstanceQRV", "GetCompiler")), compiler) << "the table is the other's";
}

TEST(LoadLibrary, AnotherLibraryIsRefusedWhileObjectsOfTheLoadedOneLive) {
    std::string sample = qrvtest::SamplePath("sample.mp4");
    {
        Host host;
        qrvtest::FakeVLC fake;
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
        ReloadRefusedWhileObjectsLive(host, fake.path, sample, true);
        host.New("VLCInstanceQRV", {host.StringArray({})});
        EXPECT_EQ(fake.calls("libvlc_new"), 1) << "the fake is bound now";
    }
    {
        Host host;
        qrvtest::FakeVLC fake;
        ASSERT_TRUE(fake.LoadInto(host));
        // The 3.0 fake exports all 290 functions and reports 3.0.24: none is left unbound.
        EXPECT_TRUE(host.CallShared("VLCInstanceQRV", "GetLoadError").IsNil());
        // The same library again binds the same functions: not refused.
        std::vector<Value> objects = LiveObjects(host, sample);
        EXPECT_TRUE(fake.LoadInto(host));
        objects.clear();
        ReloadRefusedWhileObjectsLive(host, "libvlc.so.5", sample, false);
    }
}

}  // namespace
}  // namespace sweep
