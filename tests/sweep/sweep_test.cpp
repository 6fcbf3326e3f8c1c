// Runs the bad-input sweep over every class the plug-in registers.
#include <elf.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "tests/support/test_support.h"
#include "tests/sweep/sweep.h"

namespace sweep {

namespace {

using emu::Host;
using emu::Value;

bool IsObject(const std::string& t) {
    static const std::set<std::string> scalars = {"integer", "int64",  "int32",  "uint32", "boolean",
                                                  "double",  "single", "string", "ptr",    ""};
    return scalars.count(t) == 0 && t.find("()") == std::string::npos;
}

bool TakesObject(const Member& m) {
    if (m.property != nullptr) return m.assigns && IsObject(Lower(m.property->type));
    for (const emu::Parameter& p : m.declaration.parameters)
        if (!p.byref && IsObject(p.type)) return true;
    return m.assigns && IsObject(m.declaration.result);
}

std::map<std::string, ClassSweep> Expectations() {
    std::map<std::string, ClassSweep> byClass;
    for (std::vector<ClassSweep> part :
         {MediaObjectSweeps(), PlaybackSweeps(), MediaFeatureSweeps(), DialogSweeps(), DiscoverySweeps()})
        for (ClassSweep& sweep : part) {
            auto [it, added] = byClass.try_emplace(sweep.className, sweep);
            if (added) continue;
            it->second.members.insert(it->second.members.end(), sweep.members.begin(), sweep.members.end());
            if (!it->second.uninitialised) it->second.uninitialised = sweep.uninitialised;
        }
    return byClass;
}

std::optional<Expect> ExpectationOf(const ClassSweep& sweep, const Member& member) {
    if (member.standardField) return Silent(member.key);
    for (const Expect& e : sweep.members)
        if (e.member == member.key) return e;
    return std::nullopt;  // reported by the coverage test
}

Value Initialised(Host& host, const std::string& className) {
    return WorkingObject(host, qrvtest::HeadlessInstance(host), className, "/tmp/qrv-sweep.mp4");
}

Raised Observed(const Host& host) {
    if (!host.exception) return Nothing();
    return {host.exception->className, host.exception->message};
}

// A raising member answers zero, false or nil.
bool IsZero(const Value& v) {
    return v.AsString() == nullptr && v.AsObject() == nullptr && v.AsPtr() == nullptr && v.AsDouble() == 0;
}

std::string Describe(const Raised& r) {
    return r.className.empty() ? std::string("nothing") : r.className + " \"" + r.message + "\"";
}

enum class Pass { WithoutLibvlc, Uninitialised, NilArguments };

// Calls every member of every class in one situation and compares.
void RunPass(Pass pass) {
    Host host;
    if (pass != Pass::WithoutLibvlc) {
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
    }
    auto expectations = Expectations();
    for (const emu::ClassInfo* cls : host.PluginClasses()) {
        const ClassSweep& sweep = expectations[cls->name];
        for (const Member& member : MembersOf(*cls->record)) {
            std::optional<Expect> e = ExpectationOf(sweep, member);
            if (!e || (pass == Pass::NilArguments && !TakesObject(member))) continue;
            std::optional<Raised> expected = pass == Pass::WithoutLibvlc   ? e->withoutLibvlc
                                             : pass == Pass::Uninitialised ? e->uninitialised
                                                                           : e->nilArguments;
            if (!expected) {
                ADD_FAILURE() << cls->name << " " << member.key << ": no nil-argument expectation";
                continue;
            }
            Value self;
            if (!member.shared && pass == Pass::NilArguments)
                self = Initialised(host, cls->name);
            else if (!member.shared)
                self = sweep.uninitialised ? sweep.uninitialised(host) : host.NewRaw(cls->name);
            Value answer = Call(host, member, &self, Zero);
            Raised got = Observed(host);
            EXPECT_EQ(got, *expected) << cls->name << " " << member.key << ": raised " << Describe(got) << ", expected "
                                      << Describe(*expected);
            EXPECT_TRUE(got == Nothing() || IsZero(answer)) << cls->name << " " << member.key << " raised and answered";
        }
    }
}

// Where the dynamic string table (the names the loader looks up) lies in an ELF file.
std::pair<size_t, size_t> DynamicStrings(const std::string& elf) {
    const auto* header = reinterpret_cast<const Elf64_Ehdr*>(elf.data());
    const auto* sections = reinterpret_cast<const Elf64_Shdr*>(elf.data() + header->e_shoff);
    for (size_t i = 0; i < header->e_shnum; ++i)
        if (sections[i].sh_type == SHT_DYNSYM)
            return {sections[sections[i].sh_link].sh_offset, sections[sections[i].sh_link].sh_size};
    return {0, 0};
}

// A copy of the full fake libvlc whose export of one function is renamed in
// its dynamic string table, so that the loader finds every function but that
// one. Empty when the name is not there as a whole string.
std::string FakeWithout(const std::string& function) {
    std::ifstream in(FAKEVLC_PATH, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto [offset, size] = DynamicStrings(bytes);
    size_t at = bytes.substr(offset, size).find(std::string(1, '\0') + function + '\0');
    if (size == 0 || at == std::string::npos) return "";
    bytes[offset + at + 1] = 'X';
    char path[] = "/tmp/qrv-sweep-fakevlc-XXXXXX.so";
    int fd = mkstemps(path, 3);
    if (fd < 0) return "";
    bool written = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    close(fd);
    return written ? path : "";
}

// The fake answers null for the services it does not model; here they get
// a handle, so that their members get past the handle check.
void MakeEveryConstructorAnswer(const qrvtest::FakeVLC& fake) {
    ASSERT_TRUE(fake.Loaded()) << fake.path;
    static char service;
    fake.setPtr("libvlc_media_library_new", &service);
    fake.setPtr("libvlc_media_discoverer_new_from_name", &service);
}

// Every member that names a libvlc function is called on an initialised
// object under a libvlc lacking only that function: it must name exactly it.
TEST(Sweep, EachMissingFunctionIsNamed) {
    size_t checked = 0;
    for (auto& [className, sweep] : Expectations()) {
        for (const Expect& e : sweep.members) {
            if (e.entry.empty()) continue;
            std::string fake = FakeWithout(e.entry.substr(1));
            if (fake.empty()) {
                ADD_FAILURE() << className << " " << e.member << ": the fake libvlc does not export " << e.entry;
                continue;
            }
            Host host;
            qrvtest::FakeVLC copy(fake);
            copy.LoadInto(host);
            MakeEveryConstructorAnswer(copy);
            unlink(fake.c_str());
            for (const Member& member : MembersOf(*host.FindClass(className)->record)) {
                if (member.key != e.member) continue;
                Value self = member.shared ? Value() : Initialised(host, className);
                Call(host, member, &self, Zero);
                Raised got = Observed(host);
                EXPECT_EQ(got, Missing(e.entry))
                    << className << " " << e.member << " without " << e.entry << ": raised " << Describe(got);
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 100u) << "members naming a function were called";
}

// Every member that names a libvlc function calls it, on an initialised object
// with plausible arguments, all made before the count is taken.
TEST(Sweep, EachMemberCallsItsFunction) {
    Host host;
    qrvtest::FakeVLC fake;
    ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
    MakeEveryConstructorAnswer(fake);
    fake.setInt("libvlc_audio_equalizer_get_preset_count", 18);
    fake.setInt("libvlc_audio_equalizer_get_band_count", 10);
    Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
    // Members guarded by one function that call another, or none on a working object.
    const std::map<std::string, std::string> calls = {
        {"SetLogFile(File as FolderItem)", "libvlc_log_set_file"},
        {"shared MediaWithData(vlc as VLCInstanceQRV, data as memoryblock) as VLCMediaQRV", "libvlc_media_new_path"},
        {"shared MediaWithData(vlc as VLCInstanceQRV, data as string) as VLCMediaQRV", "libvlc_media_new_path"},
        {"get Media", ""},  // a player made from a media answers that media
        // No dialog is open: libvlc is not handed a number it never gave.
        {"PostLogin(id as integer, username as string, password as string, store as boolean) as boolean", ""},
        {"PostAction(id as integer, action as integer) as boolean", ""},
        {"Dismiss(id as integer) as boolean", ""}};
    auto plausible = [&](const std::string& type, const std::string& name) -> Value {
        if (name == "width" || name == "height") return Value::Int(16);
        if (name == "pitch") return Value::UInt(64);  // a format that fits the player's capture buffer
        if (type == "string") return host.String(name == "chroma" ? "RV32" : "x");
        if (type == "string()") return host.StringArray({"x"});
        if (type == "folderitem") return host.FolderItem("/tmp/qrv-sweep-calls.log");
        if (type == "memoryblock") return host.MemoryBlock(3);
        for (const char* cls : qrvtest::kClassNames)
            if (Lower(cls) == type) return WorkingObject(host, vlc, cls, "/tmp/qrv-sweep.mp4");
        return Zero(type, name);
    };
    size_t checked = 0;
    for (auto& [className, sweep] : Expectations()) {
        for (const Member& member : MembersOf(*host.FindClass(className)->record)) {
            std::optional<Expect> e = ExpectationOf(sweep, member);
            if (!e || e->entry.empty()) continue;
            std::vector<Value> args;
            for (const Slot& slot : SlotsOf(member)) args.push_back(plausible(slot.type, slot.name));
            Value self = member.shared ? Value() : WorkingObject(host, vlc, className, "/tmp/qrv-sweep.mp4");
            if (className == "VLCMediaListPlayerQRV") {
                Value list = WorkingObject(host, vlc, "VLCMediaListQRV", "/tmp/qrv-sweep.mp4");
                host.Call(self, "SetMediaList", {list});
            }
            auto called = calls.find(member.key);
            std::string function = called != calls.end() ? called->second : e->entry.substr(1);
            if (function.empty()) continue;
            int64_t before = fake.calls(function.c_str());
            size_t next = 0;
            Call(host, member, &self, [&](const std::string&, const std::string&) { return args.at(next++); });
            EXPECT_GT(fake.calls(function.c_str()), before)
                << className << " " << member.key << " calls no " << function;
            ++checked;
        }
    }
    EXPECT_GT(checked, 150u) << "members naming a function were called";
}

// A libvlc lacking any of the three functions everything needs does not load.
TEST(Sweep, LoadingNeedsErrmsgNewAndRelease) {
    for (const char* function : {"libvlc_errmsg", "libvlc_new", "libvlc_release"}) {
        std::string fake = FakeWithout(function);
        ASSERT_FALSE(fake.empty()) << function;
        Host host;
        EXPECT_FALSE(host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(fake)}).AsBool()) << function;
        unlink(fake.c_str());
    }
}

int gLogLines = 0;
void CountLogLine(REALobject, REALstring, RBInteger, REALstring, REALstring, REALstring, REALstring, RBInteger) {
    ++gLogLines;
}

// A libvlc without libvlc_log_unset goes on calling the log callback after the
// instance is gone, so what the callback names must outlive the instance.
// Freed memory is poisoned meanwhile, so that a use of it shows here too.
TEST(Sweep, LogCallbackOutlivesAnInstanceLibvlcCannotStop) {
    std::string path = FakeWithout("libvlc_log_unset");
    ASSERT_FALSE(path.empty());
    Host host;
    qrvtest::FakeVLC fake(path);
    ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
    unlink(path.c_str());
    host.DefineSubclass("LoggingInstance", "VLCInstanceQRV", {{"Log", reinterpret_cast<void*>(CountLogLine)}});
    Value logging = host.New("LoggingInstance", {host.StringArray({})});
    host.Call(logging, "SetLogEvent");
    gLogLines = 0;
    mallopt(M_PERTURB, 0xA5);
    logging = Value();
    fake.log(3, "demux", "file.c", 1, "after the instance", 1);
    host.PumpFor(std::chrono::milliseconds(50));
    mallopt(M_PERTURB, 0);
    EXPECT_EQ(gLogLines, 0);
}

TEST(Sweep, EveryRegisteredMemberHasAnExpectation) {
    Host host;
    auto expectations = Expectations();
    for (const emu::ClassInfo* cls : host.PluginClasses()) {
        std::set<std::string> rows, registered;
        for (const Expect& e : expectations[cls->name].members) rows.insert(e.member);
        for (const Member& m : MembersOf(*cls->record)) {
            if (m.standardField) continue;
            registered.insert(m.key);
            EXPECT_TRUE(rows.count(m.key)) << cls->name << " " << m.key << ": no sweep expectation";
        }
        for (const std::string& key : rows)
            EXPECT_TRUE(registered.count(key)) << cls->name << " " << key << ": expectation for no registered member";
    }
}

TEST(Sweep, WithoutLibvlc) { RunPass(Pass::WithoutLibvlc); }
TEST(Sweep, UninitialisedObjects) { RunPass(Pass::Uninitialised); }
TEST(Sweep, NilObjectArguments) { RunPass(Pass::NilArguments); }

}  // namespace
}  // namespace sweep
