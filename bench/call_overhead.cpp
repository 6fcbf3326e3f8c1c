// What a wrapper adds to the libvlc call it makes: shared wrappers called
// through the function pointer the host would call, against the same libvlc
// function called directly; and the time of LoadLibrary on the real libvlc.
#include <dlfcn.h>
#include <vlc/vlc.h>

#include <cstdio>

#include "bench/bench_support.h"
#include "host/emulator.h"

namespace {

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

void DirectClock(benchmark::State& state) {
    auto clock = reinterpret_cast<int64_t (*)()>(dlsym(gLibvlc, "libvlc_clock"));
    for (auto _ : state) benchmark::DoNotOptimize(clock());
}
BENCHMARK(DirectClock);

void WrapperClock(benchmark::State& state) {
    auto clock = SharedMethod<int64_t (*)()>("Clock as Int64");
    for (auto _ : state) benchmark::DoNotOptimize(clock());
}
BENCHMARK(WrapperClock);

void DirectErrorMessage(benchmark::State& state) {
    auto errmsg = reinterpret_cast<const char* (*)()>(dlsym(gLibvlc, "libvlc_errmsg"));
    for (auto _ : state) benchmark::DoNotOptimize(errmsg());
}
BENCHMARK(DirectErrorMessage);

void WrapperErrorMessage(benchmark::State& state) {
    auto errmsg = SharedMethod<REALstring (*)()>("ErrorMessage as string");
    for (auto _ : state) benchmark::DoNotOptimize(errmsg());
}
BENCHMARK(WrapperErrorMessage);

void LoadLibrary(benchmark::State& state) {
    auto load = SharedMethod<RBBoolean (*)(REALstring)>("LoadLibrary(path as string) as boolean");
    emu::Value path = gHost->String("libvlc.so.5");
    for (auto _ : state) benchmark::DoNotOptimize(load(path.AsString()));
}
BENCHMARK(LoadLibrary)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    emu::Host host;
    gHost = &host;
    gLibvlc = dlopen("libvlc.so.5", RTLD_NOW);
    if (gLibvlc == nullptr ||
        !host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String("libvlc.so.5")}).AsBool()) {
        fprintf(stderr, "cannot load libvlc.so.5\n");
        return 1;
    }
    // libvlc's error state exists once an instance has been made.
    const char* args[] = {"--intf=dummy", "--vout=dummy", "--aout=dummy", "--quiet"};
    emu::Value instance = host.New("VLCInstanceQRV", {host.StringArray({args[0], args[1], args[2], args[3]})});

    auto ns = qrvbench::RunAll(argc, argv);
    printf("\n%-28s %10s %10s %10s\n", "wrapper", "direct ns", "wrapper ns", "added ns");
    for (const char* name : {"Clock", "ErrorMessage"}) {
        double direct = ns[std::string("Direct") + name], wrapped = ns[std::string("Wrapper") + name];
        printf("%-28s %10.2f %10.2f %10.2f  (ratio %.3f)\n", name, direct, wrapped, wrapped - direct,
               direct > 0 ? wrapped / direct : 0.0);
    }
    printf("%-28s %10.1f us per load (254 lookups)\n", "LoadLibrary(libvlc.so.5)", ns["LoadLibrary"] / 1000.0);
    return 0;
}
