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
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>

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

// ---- the hostile values, row by row ----------------------------------------

constexpr int kRows = 5;
const char* const kRowNames[kRows] = {"-1 / empty", "INT64_MIN / NaN / 1 MiB invalid UTF-8",
                                      "INT64_MAX / +inf / odd-length UTF-16", "2^31 / -inf / unknown encoding",
                                      "100 / 1e300 / format directives"};

// The child's own copy of the sample: SaveMeta writes into the file.
std::string SampleCopy(pid_t child) { return "/tmp/qrv-hostile-" + std::to_string(child) + ".mp4"; }

Value Make(Host& host, const Value& vlc, const std::string& className) {
    return sweep::WorkingObject(host, vlc, className, SampleCopy(getpid()));
}

// Makes the hostile values of one row; live objects once per child.
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

// ---- the child: runs the calls of one class from a given index -----------------

int gProgress = -1;

void Report(const std::string& line) {
    if (write(gProgress, line.data(), line.size()) < 0) _exit(5);
}

[[noreturn]] void RunChild(const std::string& className, size_t start, bool cairoPictures) {
    // A fault the emulator sees ends the child, naming the call.
    emu::SetFaultHandler([](const std::string& message) {
        Report("fault " + message + "\n");
        _exit(6);
    });
    emu::HostOptions options;
    if (cairoPictures) options.pictures = emu::PictureKind::Cairo;
    Host host(options);
    std::error_code copied;
    std::filesystem::copy_file(qrvtest::SamplePath("sample.mp4"), SampleCopy(getpid()),
                               std::filesystem::copy_options::overwrite_existing, copied);
    const emu::ClassInfo* cls = host.FindClass(className);
    if (copied || !qrvtest::LoadRealLibvlc(host) || cls == nullptr) _exit(3);
    Hostile hostile{host, qrvtest::HeadlessInstance(host), {}};
    std::vector<HostileCall> calls = CallsOf(className, *cls->record);
    for (size_t i = start; i < calls.size(); ++i) {
        const HostileCall& call = calls[i];
        // A fresh object per call, so that a fault is the call's own (and a
        // second Lock of a media list is not a deadlock of the test's making).
        Value self = call.member.shared ? Value() : Make(host, hostile.vlc, className);
        Report(std::to_string(i) + "\t" + call.name + "\n");
        sweep::Call(host, call.member, &self,
                    [&](const std::string& type, const std::string& name) { return hostile.Of(type, name, call.row); });
        // A shared member may have loaded another library or none, or switched
        // the trace on: back to libvlc, quietly.
        if (call.member.shared) {
            qrvtest::LoadRealLibvlc(host);
            host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
        }
    }
    // Let deferred work run on the main thread before the objects go.
    host.PumpFor(std::chrono::milliseconds(200));
    Report("done " + std::to_string(calls.size() - start) + " calls\n");
    _exit(0);
}

// ---- the parent: one test per class -----------------------------------------

struct ChildEnd {
    bool done = false;     // ran to its end
    std::string summary;   // its last line: "done <calls made> calls"
    std::string lastCall;  // "index\tname" of the call in progress
    std::string how;       // how it ended otherwise
};

// Runs one child from call index start; a call that has not returned after
// timeout seconds is a hang.
ChildEnd RunFrom(const std::string& className, size_t start, int timeoutSeconds, bool cairoPictures) {
    int fds[2];
    ChildEnd end;
    if (pipe(fds) != 0) return {false, "", "", "pipe failed"};
    fflush(nullptr);
    pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        gProgress = fds[1];
        RunChild(className, start, cairoPictures);
    }
    close(fds[1]);
    std::string pending;
    char buffer[4096];
    for (pollfd p{fds[0], POLLIN, 0};;) {
        if (poll(&p, 1, timeoutSeconds * 1000) == 0) {
            end.how = "did not return within " + std::to_string(timeoutSeconds) + " s";
            kill(child, SIGKILL);
            break;
        }
        ssize_t n = read(fds[0], buffer, sizeof buffer);
        if (n <= 0) break;
        pending.append(buffer, static_cast<size_t>(n));
        for (size_t eol; (eol = pending.find('\n')) != std::string::npos; pending.erase(0, eol + 1)) {
            std::string line = pending.substr(0, eol);
            end.done = line.rfind("done ", 0) == 0;
            if (line.rfind("fault ", 0) == 0)
                end.how = line;
            else
                (end.done ? end.summary : end.lastCall) = line;
        }
    }
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    unlink(SampleCopy(child).c_str());
    if (end.how.empty() && WIFSIGNALED(status))
        end.how = std::string("killed by signal ") + strsignal(WTERMSIG(status));
    if (end.how.empty() && WEXITSTATUS(status) != 0)
        end.how = "exited with status " + std::to_string(WEXITSTATUS(status));
    if (!end.how.empty()) end.done = false;
    return end;
}

// Sweeps one class, child after child, and reports every call that crashed or hung.
void SweepClass(const std::string& className, bool cairoPictures) {
    size_t start = 0;
    for (int children = 0; children < 100; ++children) {
        ChildEnd end = RunFrom(className, start, 60, cairoPictures);
        if (end.done) {
            printf("%s: from call %zu on, %s\n", className.c_str(), start, end.summary.c_str());
            return;
        }
        if (end.lastCall.empty()) {
            ADD_FAILURE() << "before the first call: " << end.how;
            return;
        }
        ADD_FAILURE() << end.lastCall << ": " << end.how;
        start = std::stoull(end.lastCall) + 1;
    }
}

class HostileSweep : public ::testing::TestWithParam<const char*> {};

TEST_P(HostileSweep, NoCallCrashesOrHangs) { SweepClass(GetParam(), false); }

// Desktop programs' pictures are cairo contexts: the player's picture members again with those.
TEST(HostileSweepCairoPictures, MediaPlayer) { SweepClass("VLCMediaPlayerQRV", true); }

INSTANTIATE_TEST_SUITE_P(EveryClass, HostileSweep, ::testing::ValuesIn(qrvtest::kClassNames),
                         [](const auto& param) { return std::string(param.param); });

TEST(HostileSweepCoverage, EveryRegisteredClassIsSwept) {
    Host host;
    std::vector<std::string> registered;
    for (const emu::ClassInfo* cls : host.PluginClasses()) registered.push_back(cls->name);
    EXPECT_EQ(registered, std::vector<std::string>(std::begin(qrvtest::kClassNames), std::end(qrvtest::kClassNames)));
}

}  // namespace
