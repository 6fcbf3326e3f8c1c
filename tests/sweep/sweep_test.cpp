// Runs the bad-input sweep over every class the plug-in registers.
#include <gtest/gtest.h>

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
    size_t baseObjects = host.LiveObjects(), baseStrings = host.LiveStrings();
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
    if (pass == Pass::WithoutLibvlc) {
        EXPECT_EQ(host.LiveObjects(), baseObjects) << "objects left behind";
        EXPECT_EQ(host.LiveStrings(), baseStrings) << "strings left behind";
    }
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
