// The hostile sweep: every registered member of every class, called on a
// working object (real libvlc, headless) with what a careless or hostile
// program may pass: -1, extreme integers, 2^31, NaN, infinities, empty strings,
// 1 MiB of invalid UTF-8, odd-length UTF-16, an unknown encoding tag, format
// directives, live objects of the declared classes. One test (and process) per
// class; each call is named on stderr before it is made.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>

#include "tests/events/watchdog.h"
#include "tests/support/test_support.h"
#include "tests/sweep/sweep.h"

namespace {

using emu::Host;
using emu::Value;

// Not called: it blocks until libvlc is told to quit, by design.
const char kBlocking[] = "VLCInstanceQRV WaitUserInterface";

// Members whose value is a raw pointer the host hands through (a libvlc object,
// a drawing context): no wrapper can check one, so they get 0 instead of hostile
// integers, and the Handle setters are not called.
bool IsRawPointer(const std::string& name) { return name == "Handle" || name == "CGContextHandle"; }

constexpr int kRows = 5;
const char* const kRowNames[kRows] = {"-1 / empty", "INT64_MIN / NaN / 1 MiB invalid UTF-8",
                                      "INT64_MAX / +inf / odd-length UTF-16", "2^31 / -inf / unknown encoding",
                                      "100 / 1e300 / format directives"};

// The process's own copy of the sample: SaveMeta writes into the file.
std::string SampleCopy(pid_t child) { return "/tmp/qrv-hostile-" + std::to_string(child) + ".mp4"; }

Value Make(Host& host, const Value& vlc, const std::string& className) {
    return sweep::WorkingObject(host, vlc, className, SampleCopy(getpid()));
}

// Makes the hostile values of one row; live objects once per class.
struct Hostile {
    Host& host;
    Value vlc;
    std::map<std::string, Value> objects;

    Value String(int row) {
        if (row == 0) return host.String("");
        if (row == 1) return host.String(std::string(1 << 20, '\xC3'));   // lead bytes without their continuation
        if (row == 2) return host.String(std::string("a\0b", 3), 0x100);  // UTF-16 with half a unit
        if (row == 3) return host.String("abc", 0x7A7A7A7A);
        return host.String("%s%n%s%n%99999999d");
    }

    Value Object(const std::string& type) {
        if (objects.count(type)) return objects[type];
        Value& v = objects[type];
        if (type == "folderitem") return v = host.FolderItem("/nonexistent/\xC3\xA9/x");
        if (type == "memoryblock") return v = host.MemoryBlock(3);
        if (type == "picture") return v = host.Picture(3, 2);
        if (type == "variant") return v = vlc;
        for (const char* name : qrvtest::kClassNames)
            if (sweep::Lower(name) == type) v = Make(host, vlc, name);
        return v;
    }

    Value Of(const std::string& type, const std::string& name, int row) {
        // 100 is past the end of every table an index selects (metadata, presets, bands, lists).
        static const int64_t integers[kRows] = {-1, std::numeric_limits<int64_t>::min(),
                                                std::numeric_limits<int64_t>::max(), int64_t{1} << 31, 100};
        static const double doubles[kRows] = {-1, std::nan(""), INFINITY, -INFINITY, 1e300};
        if (type == "integer" || type == "int64" || type == "int32")
            return Value::Int(IsRawPointer(name) ? 0 : integers[row]);
        if (type == "uint32") return Value::UInt(row == 0 ? 0xFFFFFFFFu : row == kRows - 1 ? 100u : 0x80000000u);
        if (type == "double") return Value::Dbl(doubles[row]);
        if (type == "single") return Value::Sgl(static_cast<float>(doubles[row]));
        if (type == "boolean") return Value::Bool(row % 2 == 0);
        if (type == "ptr") return Value::Pointer(nullptr);  // a pointer cannot be checked; nil is the hostile one
        if (type == "string") return String(row);
        if (type == "string()") return host.StringArray({"", std::string(1 << 20, '\xFF'), "--no-such-option"});
        if (type.size() > 2 && type.substr(type.size() - 2) == "()") return Value();
        return Object(type);
    }
};

struct HostileCall {
    std::string name;  // "class member [row]"
    sweep::Member member;
    int row = 0;
};

std::vector<HostileCall> CallsOf(const std::string& className, const REALclassDefinition& r) {
    std::vector<HostileCall> calls;
    for (const sweep::Member& member : sweep::MembersOf(r)) {
        if (member.property != nullptr && member.assigns && IsRawPointer(member.property->name)) continue;
        if (className + " " + member.key == kBlocking) continue;
        for (int row = 0; row < kRows; ++row)
            calls.push_back({className + " " + member.key + " [" + kRowNames[row] + "]", member, row});
    }
    return calls;
}

// A call that crashes, trips a sanitizer or hangs ends the output with its
// name; a fault the emulator sees names it through the scoped trace.
void SweepClass(const std::string& className, bool cairoPictures) {
    emu::HostOptions options;
    if (cairoPictures) options.pictures = emu::PictureKind::Cairo;
    Host host(options);
    std::string sample = SampleCopy(getpid());
    std::filesystem::copy_file(qrvtest::SamplePath("sample.mp4"), sample,
                               std::filesystem::copy_options::overwrite_existing);
    const emu::ClassInfo* cls = host.FindClass(className);
    ASSERT_NE(cls, nullptr);
    ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
    {
        Hostile hostile{host, qrvtest::HeadlessInstance(host), {}};
        for (const HostileCall& call : CallsOf(className, *cls->record)) {
            SCOPED_TRACE(call.name);
            // A fresh object per call, so that a fault is the call's own (and a
            // second Lock of a media list is not a deadlock of the test's making).
            Value self = call.member.shared ? Value() : Make(host, hostile.vlc, className);
            fprintf(stderr, "calling %s\n", call.name.c_str());
            sweep::Call(host, call.member, &self, [&](const std::string& type, const std::string& name) {
                return hostile.Of(type, name, call.row);
            });
            // A shared member may have loaded another library or none, or switched
            // the trace on: back to libvlc, quietly.
            if (call.member.shared) {
                qrvtest::LoadRealLibvlc(host);
                host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
            }
        }
        // Let deferred work run on the main thread before the objects go.
        host.PumpFor(std::chrono::milliseconds(200));
    }
    unlink(sample.c_str());
}

class HostileSweep : public ::testing::TestWithParam<const char*> {};

TEST_P(HostileSweep, NoCallCrashesOrHangs) { SweepClass(GetParam(), false); }

// Desktop programs' pictures are cairo contexts: the player's picture members again with those.
TEST(HostileSweepCairoPictures, MediaPlayer) { SweepClass("VLCMediaPlayerQRV", true); }

INSTANTIATE_TEST_SUITE_P(EveryClass, HostileSweep, ::testing::ValuesIn(qrvtest::kClassNames),
                         [](const auto& param) { return std::string(param.param); });

// ---- the orders pass: one test (and process) per class; each call named on stderr before it is made.

void OrdersOf(const std::string& className) {
    Host host;
    const emu::ClassInfo* cls = host.FindClass(className);
    ASSERT_NE(cls, nullptr);
    ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
    std::string leaked = emu::Describe(host.Unreachable());
    using sweep::State;
    for (State state : {State::Fresh, State::Playing, State::Stopped, State::SourcesDestroyed}) {
        if (sweep::Scene::RolesOf(className).empty() && (state == State::Playing || state == State::Stopped)) continue;
        const char* stateName = sweep::kStateNames[static_cast<int>(state)];
        for (const sweep::Member& member : sweep::MembersOf(*cls->record, true)) {
            if (!sweep::ChangesState(member)) continue;
            std::string name = className + " " + member.key + " [" + stateName + "]";
            SCOPED_TRACE(name);
            {
                eventstest::Watchdog watchdog(std::chrono::seconds(60));
                sweep::Scene scene(host, className, state, qrvtest::SamplePath("sample.mp4"));
                fprintf(stderr, "calling %s\n", name.c_str());
                sweep::Call(host, member, &scene.self,
                            [&](const std::string& type, const std::string& n) { return scene.Argument(type, n); });
                if (member.shared) qrvtest::LoadRealLibvlc(host);
            }
            host.PumpFor(std::chrono::milliseconds(50));
            EXPECT_EQ(emu::Describe(host.Unreachable()), leaked) << "left behind by " << name;
            leaked = emu::Describe(host.Unreachable());
        }
    }
}

class HostileOrders : public ::testing::TestWithParam<const char*> {};

TEST_P(HostileOrders, NoOrderCrashesHangsOrLeaks) { OrdersOf(GetParam()); }

INSTANTIATE_TEST_SUITE_P(EveryClass, HostileOrders, ::testing::ValuesIn(qrvtest::kClassNames),
                         [](const auto& param) { return std::string(param.param); });

}  // namespace
