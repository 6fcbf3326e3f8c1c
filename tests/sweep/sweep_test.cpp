// Runs the bad-input sweep over every class the plug-in registers.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "tests/support/test_support.h"
#include "tests/sweep/sweep.h"

namespace sweep {

std::vector<Maker>& Makers() {
    static std::vector<Maker> makers;
    return makers;
}

namespace {

using emu::Host;
using emu::Value;

bool IsObjectType(const std::string& t) {
    static const std::set<std::string> scalars = {"integer", "int64",  "int32",  "uint32", "boolean",
                                                  "double",  "single", "string", "ptr",    ""};
    return scalars.count(t) == 0;
}

Value Zero(const std::string& type) {
    if (type == "integer" || type == "int64" || type == "int32") return Value::Int(0);
    if (type == "uint32") return Value::UInt(0);
    if (type == "boolean") return Value::Bool(false);
    if (type == "double") return Value::Dbl(0);
    if (type == "single") return Value::Sgl(0);
    if (type == "ptr") return Value::Pointer(nullptr);
    return Value();  // strings, objects, arrays: nil
}

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

struct MemberCall {
    std::string key;
    bool hasObjectParameter = false;
    bool shared = false;
    std::function<void(Host&, const Value* self)> call;
};

std::vector<Value> ZeroArguments(const emu::Declaration& d) {
    std::vector<Value> args;
    for (const emu::Parameter& p : d.parameters) args.push_back(p.byref ? Value::Ref(Zero(p.type)) : Zero(p.type));
    return args;
}

bool HasObjectParameter(const emu::Declaration& d) {
    for (const emu::Parameter& p : d.parameters)
        if (!p.byref && IsObjectType(p.type) && p.type.find("()") == std::string::npos) return true;
    return false;
}

void AddMethods(std::vector<MemberCall>& calls, REALmethodDefinition* list, size_t count, bool shared) {
    for (size_t i = 0; i < count; ++i) {
        const REALmethodDefinition* m = &list[i];
        emu::Declaration d = emu::ParseDeclaration(m->declaration);
        if (d.name == "Destructor") continue;
        std::string prefix = shared ? "shared " : "";
        calls.push_back(
            {prefix + m->declaration, HasObjectParameter(d), shared, [m, d, shared](Host& host, const Value* self) {
                 host.CallMethod(*m, shared ? nullptr : self, ZeroArguments(d));
             }});
        if (m->setterFunction != nullptr) {
            bool objectValue = IsObjectType(d.result);
            calls.push_back({prefix + "assign " + m->declaration, HasObjectParameter(d) || objectValue, shared,
                             [m, d, shared](Host& host, const Value* self) {
                                 Value assigned = Zero(d.result);
                                 host.CallMethod(*m, shared ? nullptr : self, ZeroArguments(d), true, &assigned);
                             }});
        }
    }
}

void AddProperties(std::vector<MemberCall>& calls, REALproperty* list, size_t count, bool shared) {
    for (size_t i = 0; i < count; ++i) {
        const REALproperty* p = &list[i];
        std::string prefix = shared ? "shared " : "";
        calls.push_back({prefix + "get " + p->name, false, shared,
                         [p, shared](Host& host, const Value* self) { host.CallGetter(*p, shared ? nullptr : self); }});
        if (p->setter != nullptr)
            calls.push_back({prefix + "set " + p->name, IsObjectType(Lower(p->type)), shared,
                             [p, shared](Host& host, const Value* self) {
                                 host.CallSetter(*p, shared ? nullptr : self, Zero(Lower(p->type)));
                             }});
    }
}

std::vector<MemberCall> MembersOf(const emu::ClassInfo& cls) {
    std::vector<MemberCall> calls;
    const REALclassDefinition& r = *cls.record;
    AddProperties(calls, r.properties, r.propertyCount, false);
    AddMethods(calls, r.methods, r.methodCount, false);
    AddProperties(calls, r.sharedProperties, r.sharedPropertyCount, true);
    AddMethods(calls, r.sharedMethods, r.sharedMethodCount, true);
    return calls;
}

// All expectation files, merged by class.
std::map<std::string, ClassSweep> Expectations() {
    std::map<std::string, ClassSweep> merged;
    for (Maker make : Makers()) {
        ClassSweep part = make();
        ClassSweep& into = merged[part.className];
        into.className = part.className;
        if (part.uninitialised) into.uninitialised = part.uninitialised;
        if (part.initialised) into.initialised = part.initialised;
        for (Expect& e : part.members) into.members.push_back(std::move(e));
    }
    return merged;
}

Raised Observed(const Host& host) {
    if (!host.exception) return Nothing();
    return {host.exception->className, host.exception->message};
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
        auto found = expectations.find(cls->name);
        if (found == expectations.end()) continue;  // reported by the coverage test
        const ClassSweep& sweep = found->second;
        std::map<std::string, const Expect*> byKey;
        for (const Expect& e : sweep.members) byKey[e.member] = &e;
        for (const MemberCall& member : MembersOf(*cls)) {
            auto e = byKey.find(member.key);
            if (e == byKey.end()) continue;
            std::optional<Raised> expected;
            if (pass == Pass::WithoutLibvlc) expected = e->second->withoutLibvlc;
            if (pass == Pass::Uninitialised) expected = e->second->uninitialised;
            if (pass == Pass::NilArguments) {
                if (!member.hasObjectParameter) continue;
                expected = e->second->nilArguments;
                if (!expected) {
                    ADD_FAILURE() << cls->name << " " << member.key << ": no nil-argument expectation";
                    continue;
                }
            }
            Value self;
            if (member.shared) {
                // no object
            } else if (pass == Pass::NilArguments) {
                if (!sweep.initialised) {
                    ADD_FAILURE() << cls->name << ": no initialised object for the nil-argument pass";
                    break;
                }
                self = sweep.initialised(host);
            } else {
                self = sweep.uninitialised ? sweep.uninitialised(host) : host.NewRaw(cls->name);
            }
            member.call(host, &self);
            Raised got = Observed(host);
            EXPECT_EQ(got, *expected) << cls->name << " " << member.key << ": raised " << Describe(got) << ", expected "
                                      << Describe(*expected);
        }
    }
}

// Where the dynamic string table (the names dlsym looks up) lies in an ELF file.
std::pair<size_t, size_t> DynamicStrings(const std::string& elf) {
    Elf64_Ehdr header;
    if (elf.size() < sizeof header) return {0, 0};
    memcpy(&header, elf.data(), sizeof header);
    for (size_t i = 0; i < header.e_shnum; ++i) {
        Elf64_Shdr section;
        size_t at = header.e_shoff + i * header.e_shentsize;
        if (at + sizeof section > elf.size()) break;
        memcpy(&section, elf.data() + at, sizeof section);
        if (section.sh_type == SHT_DYNSYM) {
            Elf64_Shdr strings;
            memcpy(&strings, elf.data() + header.e_shoff + section.sh_link * header.e_shentsize, sizeof strings);
            return {strings.sh_offset, strings.sh_size};
        }
    }
    return {0, 0};
}

// A copy of the full fake libvlc whose export of one function is renamed in
// its dynamic string table, so that the loader finds every function but that
// one. Empty when the name is not there as a whole string.
std::string FakeWithout(const std::string& function) {
    std::ifstream in(FAKEVLC_PATH, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto [offset, size] = DynamicStrings(bytes);
    std::string table = bytes.substr(offset, size);
    size_t at = table.find(std::string(1, '\0') + function + '\0');
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
void MakeEveryConstructorAnswer(const std::string& fake) {
    void* loaded = dlopen(fake.c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(loaded, nullptr) << "the plug-in loaded " << fake;
    auto setPtr = reinterpret_cast<void (*)(const char*, void*)>(dlsym(loaded, "fakevlc_set_ptr"));
    ASSERT_NE(setPtr, nullptr);
    static char service;
    setPtr("libvlc_media_library_new", &service);
    setPtr("libvlc_media_discoverer_new_from_name", &service);
    dlclose(loaded);
}

// Every member that names a libvlc function is called on an initialised
// object under a libvlc lacking only that function: it must name exactly it.
TEST(Sweep, EachMissingFunctionIsNamed) {
    auto expectations = Expectations();
    std::vector<const emu::ClassInfo*> classes;
    std::map<std::string, std::vector<MemberCall>> membersByClass;
    {
        Host host;
        for (const emu::ClassInfo* cls : host.PluginClasses()) membersByClass[cls->name] = MembersOf(*cls);
    }
    size_t checked = 0;
    for (auto& [className, sweep] : expectations) {
        for (const Expect& e : sweep.members) {
            if (e.entry.empty()) continue;
            std::string fake = FakeWithout(e.entry.substr(1));
            if (fake.empty()) {
                ADD_FAILURE() << className << " " << e.member << ": the fake libvlc does not export " << e.entry;
                continue;
            }
            Host host;
            host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(fake)});
            MakeEveryConstructorAnswer(fake);
            unlink(fake.c_str());
            const emu::ClassInfo* cls = host.FindClass(className);
            ASSERT_NE(cls, nullptr) << className;
            for (const MemberCall& member : MembersOf(*cls)) {
                if (member.key != e.member) continue;
                Value self;
                if (!member.shared) {
                    if (!sweep.initialised) {
                        ADD_FAILURE() << className << ": no initialised object to check " << e.entry;
                        break;
                    }
                    self = sweep.initialised(host);
                }
                member.call(host, &self);
                Raised got = Observed(host);
                EXPECT_EQ(got, Missing(e.entry))
                    << className << " " << e.member << " without " << e.entry << ": raised " << Describe(got);
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 100u) << "members naming a function were called";
}

TEST(Sweep, EveryRegisteredMemberHasAnExpectation) {
    Host host;
    auto expectations = Expectations();
    for (const emu::ClassInfo* cls : host.PluginClasses()) {
        std::vector<MemberCall> members = MembersOf(*cls);
        auto found = expectations.find(cls->name);
        std::set<std::string> expected;
        if (found != expectations.end()) {
            for (const Expect& e : found->second.members) expected.insert(e.member);
        }
        std::set<std::string> registered;
        for (const MemberCall& m : members) {
            registered.insert(m.key);
            EXPECT_TRUE(expected.count(m.key)) << cls->name << " " << m.key << ": no sweep expectation";
        }
        for (const std::string& key : expected)
            EXPECT_TRUE(registered.count(key)) << cls->name << " " << key << ": expectation for no registered member";
    }
}

TEST(Sweep, WithoutLibvlc) { RunPass(Pass::WithoutLibvlc); }
TEST(Sweep, UninitialisedObjects) { RunPass(Pass::Uninitialised); }
TEST(Sweep, NilObjectArguments) { RunPass(Pass::NilArguments); }

}  // namespace
}  // namespace sweep
