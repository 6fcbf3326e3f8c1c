// The hostile sweep: every registered member of every class, called on a
// working object (real libvlc, a headless instance, the samples) with values a
// careless or hostile program may pass: -1, the extreme integers, 2^31, NaN and
// infinities, empty strings, 1 MiB of invalid UTF-8, odd-length UTF-16, an
// unknown encoding tag, and live objects of the declared classes.
//
// Each class runs in a child process of its own (this program, started again),
// which names every call before making it. A crash, a sanitizer report or a
// call that does not return names its call; the parent then starts a new child
// after that call, so one run lists every faulty call of the class.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::Value;

const char* const kClasses[] = {"VLCInstanceQRV",
                                "VLCMediaQRV",
                                "VLCMediaListQRV",
                                "VLCMediaLibraryQRV",
                                "VLCMediaDiscovererQRV",
                                "VLCMediaPlayerQRV",
                                "VLCEventManagerQRV",
                                "VLCMediaListPlayerQRV",
                                "VLCTrackDescriptionQRV",
                                "VLCAudioOutputQRV",
                                "VLCAudioOutputDeviceQRV",
                                "VLCModuleDescriptionQRV",
                                "VLCMediaTrackQRV",
                                "VLCMediaTrackInfoQRV",
                                "VLCMediaStatsQRV",
                                "VLCEqualizerQRV",
                                "VLCExitHandlerQRV",
                                "VLCMissingFunctionExceptionQRV",
                                "VLCNotInitializedExceptionQRV"};

// Calls not made: they block until libvlc is told to quit, by design.
const char* const kBlocking[] = {"VLCInstanceQRV WaitUserInterface"};

// Members whose value is a raw pointer the host hands through (a libvlc object,
// a drawing context): no wrapper can check one, so they get 0 instead of hostile
// integers, and the Handle setters are not called.
bool IsRawPointer(const std::string& name) { return name == "Handle" || name == "CGContextHandle"; }

// ---- the hostile values, row by row ----------------------------------------

constexpr int kRows = 5;
const char* const kRowNames[kRows] = {"-1 / empty", "INT64_MIN / NaN / 1 MiB invalid UTF-8",
                                      "INT64_MAX / +inf / odd-length UTF-16", "2^31 / -inf / unknown encoding",
                                      "100 / 1e300 / format directives"};

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

Value HostileString(Host& host, int row) {
    if (row == 0) return host.String("");
    if (row == 1) return host.String(std::string(1 << 20, '\xC3'));   // lead bytes without their continuation
    if (row == 2) return host.String(std::string("a\0b", 3), 0x100);  // UTF-16 with half a unit
    if (row == 3) return host.String("abc", 0x7A7A7A7A);
    return host.String("%s%n%s%n%99999999d");
}

// Live objects of every class a parameter may declare, made once per child.
struct Objects {
    Host& host;
    Value vlc;
    std::map<std::string, Value> made;

    Value Of(const std::string& type);
};

Value Make(Host& host, const Value& vlc, const std::string& className);

Value Objects::Of(const std::string& type) {
    auto found = made.find(type);
    if (found != made.end()) return found->second;
    Value v;
    if (type == "folderitem")
        v = host.FolderItem("/nonexistent/\xC3\xA9/x");
    else if (type == "memoryblock")
        v = host.MemoryBlock(3);
    else if (type == "picture")
        v = host.Picture(3, 2);
    else if (type == "variant")
        v = vlc;
    else {
        for (const char* name : kClasses)
            if (Lower(name) == type) v = Make(host, vlc, name);
    }
    made[type] = v;
    return v;
}

Value Hostile(Objects& objects, const std::string& type, int row, bool rawPointer) {
    // 100 is past the end of every table an index selects (metadata, presets, bands, lists).
    static const int64_t integers[kRows] = {-1, std::numeric_limits<int64_t>::min(),
                                            std::numeric_limits<int64_t>::max(), int64_t{1} << 31, 100};
    static const double doubles[kRows] = {-1, std::nan(""), INFINITY, -INFINITY, 1e300};
    if (type == "integer" || type == "int64" || type == "int32") return Value::Int(rawPointer ? 0 : integers[row]);
    if (type == "uint32") return Value::UInt(row == 0 ? 0xFFFFFFFFu : row == kRows - 1 ? 100u : 0x80000000u);
    if (type == "double") return Value::Dbl(doubles[row]);
    if (type == "single") return Value::Sgl(static_cast<float>(doubles[row]));
    if (type == "boolean") return Value::Bool(row % 2 == 0);
    if (type == "ptr") return Value::Pointer(nullptr);  // a pointer cannot be checked; nil is the hostile one
    if (type == "string") return HostileString(objects.host, row);
    if (type == "string()") return objects.host.StringArray({"", std::string(1 << 20, '\xFF'), "--no-such-option"});
    if (type.size() > 2 && type.substr(type.size() - 2) == "()") return Value();
    return objects.Of(type);
}

// ---- working objects ----------------------------------------------------------

// The child's own copy of the sample: SaveMeta writes into the file.
std::string SampleCopy(pid_t child) { return "/tmp/qrv-hostile-" + std::to_string(child) + ".mp4"; }

Value Make(Host& host, const Value& vlc, const std::string& className) {
    Value sample = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(SampleCopy(getpid()))});
    if (className == "VLCInstanceQRV") return qrvtest::HeadlessInstance(host);
    if (className == "VLCMediaQRV") return sample;
    if (className == "VLCMediaListQRV") {
        Value list = host.New("VLCMediaListQRV", {vlc});
        host.Call(list, "AddMedia", {sample});
        return list;
    }
    if (className == "VLCMediaLibraryQRV") return host.New("VLCMediaLibraryQRV", {vlc});
    if (className == "VLCMediaDiscovererQRV") return host.New("VLCMediaDiscovererQRV", {vlc, host.String("podcast")});
    if (className == "VLCMediaPlayerQRV") {
        // With a frame buffer, so that the copy members have something to copy.
        Value player = host.New("VLCMediaPlayerQRV", {sample});
        host.Call(player, "VideoSetCallback", {Value::Int(64), Value::Int(48)});
        return player;
    }
    if (className == "VLCEventManagerQRV")
        return host.New("VLCEventManagerQRV", {host.New("VLCMediaPlayerQRV", {sample})});
    // No media list yet: what a program has right after New.
    if (className == "VLCMediaListPlayerQRV") return host.New("VLCMediaListPlayerQRV", {vlc});
    if (className == "VLCEqualizerQRV") return host.New("VLCEqualizerQRV", {Value()});
    return host.NewRaw(className);  // records, the exit handler, exceptions: no libvlc object behind them
}

// ---- the calls ---------------------------------------------------------------

struct HostileCall {
    std::string name;  // "class member(row)"
    std::string member;
    bool shared = false;
    int row = 0;
    std::function<void(Host&, Objects&, const Value* self)> call;
};

std::vector<Value> Arguments(Objects& objects, const emu::Declaration& d, int row) {
    std::vector<Value> args;
    for (const emu::Parameter& p : d.parameters) {
        Value v = Hostile(objects, p.type, row, IsRawPointer(p.name));
        args.push_back(p.byref ? Value::Ref(v) : v);
    }
    return args;
}

void AddCalls(std::vector<HostileCall>& calls, const std::string& cls, const REALclassDefinition& r, bool shared) {
    std::string prefix = cls + (shared ? " shared " : " ");
    auto add = [&](std::string member, std::function<void(Host&, Objects&, const Value*, int)> call) {
        for (int row = 0; row < kRows; ++row)
            calls.push_back({prefix + member + " [" + kRowNames[row] + "]", prefix + member, shared, row,
                             [call, row](Host& h, Objects& o, const Value* self) { call(h, o, self, row); }});
    };
    REALproperty* properties = shared ? r.sharedProperties : r.properties;
    size_t propertyCount = shared ? r.sharedPropertyCount : r.propertyCount;
    for (size_t i = 0; i < propertyCount; ++i) {
        const REALproperty* p = &properties[i];
        add(std::string("get ") + p->name, [p](Host& h, Objects&, const Value* self, int) { h.CallGetter(*p, self); });
        if (p->setter != nullptr && !IsRawPointer(p->name))
            add(std::string("set ") + p->name, [p](Host& h, Objects& o, const Value* self, int row) {
                h.CallSetter(*p, self, Hostile(o, Lower(p->type), row, false));
            });
    }
    REALmethodDefinition* methods = shared ? r.sharedMethods : r.methods;
    size_t methodCount = shared ? r.sharedMethodCount : r.methodCount;
    for (size_t i = 0; i < methodCount; ++i) {
        const REALmethodDefinition* m = &methods[i];
        emu::Declaration d = emu::ParseDeclaration(m->declaration);
        if (d.name == "Destructor") continue;
        add(m->declaration,
            [m, d](Host& h, Objects& o, const Value* self, int row) { h.CallMethod(*m, self, Arguments(o, d, row)); });
        if (m->setterFunction != nullptr)
            add(std::string("assign ") + m->declaration, [m, d](Host& h, Objects& o, const Value* self, int row) {
                Value assigned = Hostile(o, d.result, row, false);
                h.CallMethod(*m, self, Arguments(o, d, row), true, &assigned);
            });
    }
}

bool Skipped(const HostileCall& call) {
    for (const char* blocking : kBlocking)
        if (call.member.rfind(blocking, 0) == 0) return true;
    return false;
}

// ---- the child: runs the calls of one class from a given index -----------------

void RunChild(const std::string& className, size_t start, int progress, bool cairoPictures) {
    emu::HostOptions options;
    if (cairoPictures) options.pictures = emu::PictureKind::Cairo;
    Host host(options);
    std::error_code copied;
    std::filesystem::copy_file(qrvtest::SamplePath("sample.mp4"), SampleCopy(getpid()),
                               std::filesystem::copy_options::overwrite_existing, copied);
    if (copied || !qrvtest::LoadRealLibvlc(host)) _exit(3);
    Objects objects{host, qrvtest::HeadlessInstance(host), {}};
    const emu::ClassInfo* cls = host.FindClass(className);
    if (cls == nullptr || cls->record == nullptr) _exit(4);
    std::vector<HostileCall> calls;
    AddCalls(calls, className, *cls->record, false);
    AddCalls(calls, className, *cls->record, true);
    size_t made = 0;
    for (size_t i = start; i < calls.size(); ++i) {
        const HostileCall& call = calls[i];
        if (Skipped(call)) continue;
        // A fresh object per call, so that a fault is the call's own (and a
        // second Lock of a media list is not a deadlock of the test's making).
        Value self = call.shared ? Value() : Make(host, objects.vlc, className);
        std::string line = std::to_string(i) + "\t" + call.name + "\n";
        if (write(progress, line.data(), line.size()) < 0) _exit(5);
        call.call(host, objects, call.shared ? nullptr : &self);
        ++made;
        // A shared member may have loaded another library or none, or switched
        // the trace on: back to libvlc, quietly.
        if (call.shared) {
            qrvtest::LoadRealLibvlc(host);
            host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
        }
    }
    // Let deferred work run on the main thread before the objects go.
    host.PumpFor(std::chrono::milliseconds(200));
    std::string done = "done " + std::to_string(made) + " of " + std::to_string(calls.size()) + "\n";
    if (write(progress, done.data(), done.size()) < 0) _exit(5);
    _exit(0);
}

class ChildEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        const char* className = getenv("QRV_HOSTILE_CLASS");
        if (className == nullptr) return;
        RunChild(className, strtoull(getenv("QRV_HOSTILE_START"), nullptr, 10), atoi(getenv("QRV_HOSTILE_FD")),
                 getenv("QRV_HOSTILE_CAIRO") != nullptr);
    }
};
[[maybe_unused]] ::testing::Environment* const gChild = ::testing::AddGlobalTestEnvironment(new ChildEnvironment);

// ---- the parent: one test per class -----------------------------------------

struct ChildEnd {
    bool done = false;     // ran to its end
    std::string summary;   // its last line: "done <calls made> of <calls>"
    std::string lastCall;  // "index\tname" of the call in progress
    std::string how;       // how it ended otherwise
};

// Runs one child from call index start; a call that has not returned after
// timeout seconds is a hang.
ChildEnd RunFrom(const std::string& className, size_t start, int timeoutSeconds, bool cairoPictures) {
    int fds[2];
    ChildEnd end;
    if (pipe(fds) != 0) return {false, "", "pipe failed"};
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e) env.push_back(*e);
    env.push_back("QRV_HOSTILE_CLASS=" + className);
    env.push_back("QRV_HOSTILE_START=" + std::to_string(start));
    env.push_back("QRV_HOSTILE_FD=" + std::to_string(fds[1]));
    if (cairoPictures) env.push_back("QRV_HOSTILE_CAIRO=1");
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    char self[] = "/proc/self/exe";
    char* argv[] = {self, nullptr};
    pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        execve(self, argv, envp.data());
        _exit(127);
    }
    close(fds[1]);
    std::string pending;
    char buffer[4096];
    for (;;) {
        pollfd p{fds[0], POLLIN, 0};
        int ready = poll(&p, 1, timeoutSeconds * 1000);
        if (ready == 0) {
            end.how = "did not return within " + std::to_string(timeoutSeconds) + " s";
            kill(child, SIGKILL);
            break;
        }
        ssize_t n = read(fds[0], buffer, sizeof buffer);
        if (n <= 0) break;
        pending.append(buffer, static_cast<size_t>(n));
        size_t eol;
        while ((eol = pending.find('\n')) != std::string::npos) {
            std::string line = pending.substr(0, eol);
            pending.erase(0, eol + 1);
            if (line.rfind("done ", 0) == 0) {
                end.done = true;
                end.summary = line;
            } else
                end.lastCall = line;
        }
    }
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    unlink(SampleCopy(child).c_str());
    if (end.how.empty()) {
        if (WIFSIGNALED(status))
            end.how = std::string("killed by signal ") + strsignal(WTERMSIG(status));
        else if (WEXITSTATUS(status) != 0)
            end.how = "exited with status " + std::to_string(WEXITSTATUS(status));
        if (!end.how.empty()) end.done = false;
    }
    return end;
}

// Sweeps one class, child after child, and reports every call that crashed or hung.
void SweepClass(const std::string& className, bool cairoPictures) {
    size_t start = 0;
    std::vector<std::string> faults;
    for (int children = 0; children < 100; ++children) {
        ChildEnd end = RunFrom(className, start, 60, cairoPictures);
        if (end.done) {
            printf("%s: from call %zu on, %s\n", className.c_str(), start, end.summary.c_str());
            break;
        }
        faults.push_back(end.lastCall.empty() ? "before the first call: " + end.how : end.lastCall + ": " + end.how);
        if (end.lastCall.empty()) break;
        start = std::stoull(end.lastCall) + 1;
    }
    for (const std::string& fault : faults) ADD_FAILURE() << fault;
}

class HostileSweep : public ::testing::TestWithParam<const char*> {};

TEST_P(HostileSweep, NoCallCrashesOrHangs) { SweepClass(GetParam(), false); }

// Desktop programs' pictures are cairo contexts: the player's picture members again with those.
TEST(HostileSweepCairoPictures, MediaPlayer) { SweepClass("VLCMediaPlayerQRV", true); }

INSTANTIATE_TEST_SUITE_P(EveryClass, HostileSweep, ::testing::ValuesIn(kClasses),
                         [](const auto& param) { return std::string(param.param); });

TEST(HostileSweepCoverage, EveryRegisteredClassIsSwept) {
    Host host;
    std::vector<std::string> registered, swept(std::begin(kClasses), std::end(kClasses));
    for (const emu::ClassInfo* cls : host.PluginClasses()) registered.push_back(cls->name);
    std::sort(registered.begin(), registered.end());
    std::sort(swept.begin(), swept.end());
    EXPECT_EQ(registered, swept);
}

}  // namespace
