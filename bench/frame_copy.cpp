// Copying a 1920x1080 frame out of the player, against memcpy of the same
// bytes. The frame is rendered by the fake libvlc through the callbacks the
// plug-in installed, so only the copies are measured.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "bench/bench_support.h"
#include "host/emulator.h"

namespace {

constexpr int64_t kWidth = 1920, kHeight = 1080;
constexpr size_t kBytes = kWidth * kHeight * 4;

emu::Host* gHost = nullptr;
REALobject gPlayer = nullptr;

template <typename Fn>
Fn Method(const char* declaration) {
    const REALclassDefinition* record = gHost->FindClass("VLCMediaPlayerQRV")->record;
    for (size_t i = 0; i < record->methodCount; ++i)
        if (strcmp(record->methods[i].declaration, declaration) == 0)
            return reinterpret_cast<Fn>(record->methods[i].function);
    return nullptr;
}

std::vector<uint8_t>& Source() {
    static std::vector<uint8_t> bytes(kBytes, 0x5A);
    return bytes;
}

void Memcpy(benchmark::State& state) {
    std::vector<uint8_t> dest(kBytes);
    for (auto _ : state) {
        memcpy(dest.data(), Source().data(), kBytes);
        benchmark::DoNotOptimize(dest.data());
    }
}
BENCHMARK(Memcpy)->Unit(benchmark::kMicrosecond);

// A fresh destination each time, as CopyMemory allocates one.
void MemcpyFreshBuffer(benchmark::State& state) {
    for (auto _ : state) {
        auto* dest = static_cast<uint8_t*>(calloc(kBytes, 1));
        memcpy(dest, Source().data(), kBytes);
        benchmark::DoNotOptimize(dest);
        free(dest);
    }
}
BENCHMARK(MemcpyFreshBuffer)->Unit(benchmark::kMicrosecond);

void CopyToMemory(benchmark::State& state) {
    auto copy = Method<RBBoolean (*)(REALobject, void*, RBInteger, RBInteger)>(
        "CopyToMemory(dest as Ptr, offset as integer, RowBytes as integer) as boolean");
    std::vector<uint8_t> dest(kBytes);
    for (auto _ : state) benchmark::DoNotOptimize(copy(gPlayer, dest.data(), 0, kWidth * 4));
}
BENCHMARK(CopyToMemory)->Unit(benchmark::kMicrosecond);

void CopyMemory(benchmark::State& state) {
    auto copy = Method<REALobject (*)(REALobject)>("CopyMemory as memoryblock");
    for (auto _ : state) {
        emu::Value block = emu::Value::AdoptObject(copy(gPlayer));
        benchmark::DoNotOptimize(block.AsObject());
    }
}
BENCHMARK(CopyMemory)->Unit(benchmark::kMicrosecond);

void CopyPicture(benchmark::State& state) {
    auto copy = Method<REALobject (*)(REALobject)>("CopyPicture as Picture");
    for (auto _ : state) {
        emu::Value picture = emu::Value::AdoptObject(copy(gPlayer));
        benchmark::DoNotOptimize(picture.AsObject());
    }
}
BENCHMARK(CopyPicture)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    emu::HostOptions options;
    options.pictures = getenv("QRV_BENCH_CAIRO") ? emu::PictureKind::Cairo : emu::PictureKind::Gd;
    emu::Host host(options);
    gHost = &host;
    const char* fake = FAKEVLC_PATH;
    void* control = dlopen(fake, RTLD_NOW);
    auto render = control ? reinterpret_cast<int (*)(int64_t)>(dlsym(control, "fakevlc_render_frame")) : nullptr;
    if (render == nullptr || !host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(fake)}).AsBool()) {
        fprintf(stderr, "cannot load the fake libvlc %s\n", fake);
        return 1;
    }
    emu::Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
    emu::Value player = host.New("VLCMediaPlayerQRV", {vlc});
    gPlayer = player.AsObject();
    host.Call(player, "VideoSetCallback", {emu::Value::Int(kWidth), emu::Value::Int(kHeight)});
    render(1);

    auto ns = qrvbench::RunAll(argc, argv);
    printf("\n1920x1080 frame (%zu bytes), %s pictures\n", kBytes,
           options.pictures == emu::PictureKind::Gd ? "gd" : "cairo");
    printf("%-14s %10s %12s %8s %8s\n", "copy", "us", "baseline us", "ratio", "target");
    auto row = [&](const char* name, const char* baseline, double target) {
        double t = ns[name] / 1000, b = ns[baseline] / 1000;
        printf("%-14s %10.1f %12.1f %8.2f %8.2f  (baseline: %s)\n", name, t, b, t / b, target, baseline);
    };
    row("CopyToMemory", "Memcpy", 1.15);
    row("CopyMemory", "Memcpy", 1.3);
    row("CopyMemory", "MemcpyFreshBuffer", 1.3);
    row("CopyPicture", "Memcpy", 1.5);
    row("CopyPicture", "MemcpyFreshBuffer", 1.5);
    printf(
        "CopyMemory and CopyPicture include the host's allocation of the new block or picture;\n"
        "the fresh-buffer baseline allocates the same number of bytes for each memcpy.\n");
    return 0;
}
