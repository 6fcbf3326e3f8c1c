// What a wrapper adds to the libvlc call it makes: shared wrappers called
// through the function pointer the host would call, against the same libvlc
// function called directly; and LoadLibrary on the real libvlc against opening
// it and looking its functions up by hand. Each round runs both sides, in
// alternating order, and the medians of the rounds are compared with the targets.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <vlc/vlc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "host/emulator.h"

namespace {

constexpr int kRounds = 9;

emu::Host* gHost = nullptr;
void* gLibvlc = nullptr;

template <typename Fn>
Fn SharedMethod(const char* declaration) {
    const REALclassDefinition* record = gHost->FindClass("VLCInstanceQRV")->record;
    for (size_t i = 0; i < record->sharedMethodCount; ++i)
        if (std::string(record->sharedMethods[i].declaration) == declaration)
            return reinterpret_cast<Fn>(record->sharedMethods[i].function);
    return nullptr;
}

// Nanoseconds per call of body, over calls calls.
double TimePerCall(const std::function<void(long)>& body, long calls) {
    auto start = std::chrono::steady_clock::now();
    body(calls);
    std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count() / static_cast<double>(calls);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

struct Comparison {
    std::vector<double> baseline, measured, added;  // one entry per round
};

// Runs both sides once per round, baseline first in even rounds, second in odd ones.
Comparison Alternate(const std::function<void(long)>& baseline, const std::function<void(long)>& measured, long calls) {
    Comparison c;
    baseline(calls / 10);  // warm both paths
    measured(calls / 10);
    for (int round = 0; round < kRounds; ++round) {
        double a, b;
        if (round % 2 == 0) {
            a = TimePerCall(baseline, calls);
            b = TimePerCall(measured, calls);
        } else {
            b = TimePerCall(measured, calls);
            a = TimePerCall(baseline, calls);
        }
        c.baseline.push_back(a);
        c.measured.push_back(b);
        c.added.push_back(b - a);
    }
    return c;
}

struct Verdict {
    bool pass;
    std::string line;
};
std::vector<Verdict> gVerdicts;

void Report(const char* name, double scale, const Comparison& c) {
    auto [low, high] = std::minmax_element(c.added.begin(), c.added.end());
    printf("%-26s %12.2f %12.2f %10.2f   %.2f .. %.2f\n", name, Median(c.baseline) / scale, Median(c.measured) / scale,
           Median(c.added) / scale, *low / scale, *high / scale);
}

void Judge(bool pass, const std::string& figure, const std::string& target) {
    gVerdicts.push_back({pass, std::string(pass ? "PASS " : "FAIL ") + figure + " " + target});
}

std::string Format(const char* format, double value) {
    char text[64];
    snprintf(text, sizeof text, format, value);
    return text;
}

// A call's added time: the wrapper against the direct call.
void CompareCall(const char* name, const std::function<void(long)>& direct, const std::function<void(long)>& wrapper,
                 long calls, double targetNs) {
    Comparison c = Alternate(direct, wrapper, calls);
    Report(name, 1, c);
    double added = Median(c.added);
    Judge(added <= targetNs, std::string("call_overhead ") + name + " wrapper adds " + Format("%.2f", added) + " ns",
          Format("(target <= %.1f ns)", targetNs));
}

}  // namespace

int main() {
    emu::Host host;
    gHost = &host;
    gLibvlc = dlopen("libvlc.so.5", RTLD_NOW);
    if (gLibvlc == nullptr ||
        !host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String("libvlc.so.5")}).AsBool()) {
        fprintf(stderr, "cannot load libvlc.so.5\n");
        return 1;
    }
    // libvlc's error state exists once an instance has been made.
    emu::Value instance =
        host.New("VLCInstanceQRV", {host.StringArray({"--intf=dummy", "--vout=dummy", "--aout=dummy", "--quiet"})});

    printf(
        "%d rounds, each running both sides in alternating order; medians of the rounds, and the\n"
        "lowest .. highest added time of a round\n\n",
        kRounds);
    printf("%-26s %12s %12s %10s   %s\n", "call", "direct ns", "wrapper ns", "added ns", "added range");

    auto directClock = reinterpret_cast<int64_t (*)()>(dlsym(gLibvlc, "libvlc_clock"));
    auto wrapperClock = SharedMethod<int64_t (*)()>("Clock as Int64");
    CompareCall(
        "Clock",
        [&](long n) {
            for (long i = 0; i < n; ++i) benchmark::DoNotOptimize(directClock());
        },
        [&](long n) {
            for (long i = 0; i < n; ++i) benchmark::DoNotOptimize(wrapperClock());
        },
        1000000, 2.0);

    auto directError = reinterpret_cast<const char* (*)()>(dlsym(gLibvlc, "libvlc_errmsg"));
    auto wrapperError = SharedMethod<REALstring (*)()>("ErrorMessage as string");
    CompareCall(
        "ErrorMessage",
        [&](long n) {
            for (long i = 0; i < n; ++i) benchmark::DoNotOptimize(directError());
        },
        [&](long n) {
            for (long i = 0; i < n; ++i) benchmark::DoNotOptimize(wrapperError());
        },
        4000000, 2.0);

    // LoadLibrary against the loader work it cannot avoid: dlopen and one dlsym per function.
    std::vector<std::string> names;
#define X(name, ...) names.push_back(#name);
#include "binding/functions.def"
#undef X
    auto load = SharedMethod<RBBoolean (*)(REALstring)>("LoadLibrary(path as string) as boolean");
    emu::Value path = host.String("libvlc.so.5");
    Comparison loads = Alternate(
        [&](long n) {
            for (long i = 0; i < n; ++i) {
                void* handle = dlopen("libvlc.so.5", RTLD_NOW);
                for (const std::string& name : names) benchmark::DoNotOptimize(dlsym(handle, name.c_str()));
            }
        },
        [&](long n) {
            for (long i = 0; i < n; ++i) benchmark::DoNotOptimize(load(path.AsString()));
        },
        500);
    printf("\n%-26s %12s %12s %10s   %s\n", "load", "by hand us", "plug-in us", "added us", "added range");
    Report("LoadLibrary(libvlc.so.5)", 1000, loads);
    Judge(Median(loads.measured) < 2e6,
          "call_overhead LoadLibrary " + Format("%.1f", Median(loads.measured) / 1000) + " us per load",
          "(target < 2000 us)");

    printf("\n");
    bool all = true;
    for (const Verdict& v : gVerdicts) {
        printf("%s\n", v.line.c_str());
        all = all && v.pass;
    }
    return all ? 0 : 1;
}
