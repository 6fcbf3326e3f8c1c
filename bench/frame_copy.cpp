// Copying a 1920x1080 frame out of the player. The fake libvlc renders the
// frame through the callbacks the plug-in installed; the copies then run
// through the plug-in's members as the host calls them, taking the frame mutex.
// Each copy is compared with what it cannot avoid: CopyToMemory with memcpy
// into warm memory, CopyMemory and CopyPicture with the host's own allocation
// of the same block or picture followed by memcpy of the same bytes. The sides
// of a comparison take turns copy by copy; the medians of the rounds are judged.
#include <cairo.h>
#include <dlfcn.h>
#include <gd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_support.h"
#include "host/emulator.h"

namespace {

constexpr int64_t kWidth = 1920, kHeight = 1080;
constexpr size_t kBytes = kWidth * kHeight * 4;
constexpr int kRounds = 15;
constexpr int kCopiesPerRound = 60;
constexpr int64_t kHeldMs = 200;  // how long the fake decoder holds a frame for the lock check

// ---- the plug-in's members, called as the host calls them ----------------------

using CopyToMemoryFn = RBBoolean (*)(REALobject, void*, RBInteger, RBInteger);
using CopyObjectFn = REALobject (*)(REALobject);
using GetMemoryFn = void* (*)(REALobject);

template <typename Fn>
Fn Method(emu::Host& host, const char* declaration) {
    const REALclassDefinition* record = host.FindClass("VLCMediaPlayerQRV")->record;
    for (size_t i = 0; i < record->methodCount; ++i)
        if (strcmp(record->methods[i].declaration, declaration) == 0)
            return reinterpret_cast<Fn>(record->methods[i].function);
    fprintf(stderr, "no method %s\n", declaration);
    exit(1);
}

// ---- the host's allocation, through the entries the plug-in uses ---------------

template <typename Fn>
Fn Entry(const char* name) {
    return reinterpret_cast<Fn>(emu::Host::Resolve(name));
}

// A MemoryBlock made as the plug-in asks the host for one: a new instance, then
// its Constructor(bytes as Integer).
emu::Value NewHostBlock(int64_t size) {
    static auto newInstance = Entry<REALobject (*)(const char*)>("PluginNewInstance");
    static auto loadMethod = Entry<void* (*)(REALobject, const char*)>("REALLoadObjectMethod");
    REALobject block = newInstance("MemoryBlock");
    auto constructor =
        reinterpret_cast<void (*)(REALobject, RBInteger)>(loadMethod(block, "Constructor(bytes as Integer)"));
    constructor(block, size);
    return emu::Value::AdoptObject(block);
}

void* HostBlockBytes(const emu::Value& block) {
    static auto getPtr = Entry<void* (*)(REALobject)>("memoryBlockGetPtr");
    return getPtr(block.AsObject());
}

// A new 32-bit host picture, and its pixel rows through the description the host lends.
emu::Value NewHostPictureWithFrame(const uint8_t* frame) {
    static auto newPicture = Entry<REALobject (*)(RBInteger, RBInteger, RBInteger)>("newPicture");
    static auto pictureType = Entry<RBInteger (*)(REALobject)>("PluginPictureGetType");
    static auto lockDescription =
        Entry<RBBoolean (*)(REALobject, REALpictureDescription*, uint32_t)>("REALLockPictureDescription");
    static auto unlockDescription = Entry<void (*)(REALobject)>("unlockPictureDescription");
    emu::Value picture = emu::Value::AdoptObject(newPicture(kWidth, kHeight, 32));
    REALobject p = picture.AsObject();
    REALpictureDescription description{};
    auto type = static_cast<uint32_t>(pictureType(p));
    if (!lockDescription(p, &description, type)) return picture;
    size_t line = kWidth * 4;
    if (type == kPictureGDImagePtr) {
        auto* image = static_cast<gdImagePtr>(description.pictureData);
        for (int64_t y = 0; y < kHeight; ++y) memcpy(image->tpixels[y], frame + y * line, line);
    } else {
        cairo_surface_t* surface = cairo_get_target(static_cast<cairo_t*>(description.pictureData));
        uint8_t* data = cairo_image_surface_get_data(surface);
        auto stride = static_cast<size_t>(cairo_image_surface_get_stride(surface));
        if (stride == line) {
            memcpy(data, frame, kBytes);
        } else {
            for (int64_t y = 0; y < kHeight; ++y) memcpy(data + y * stride, frame + y * line, line);
        }
    }
    unlockDescription(p);
    return picture;
}

// ---- rounds --------------------------------------------------------------------

struct Side {
    std::string name;
    std::function<void()> copy;
};

// Microseconds per copy, one entry per round.
using Times = std::vector<double>;

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double Microseconds(const std::function<void()>& copy) {
    auto start = std::chrono::steady_clock::now();
    copy();
    std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count();
}

// Each round times every side kCopiesPerRound times, one copy each in turn, in
// listed order and then reversed (A B, B A, ...); a side's figure for the round
// is the median of its copies, so a copy the scheduler interrupted does not
// decide it.
std::vector<Times> Alternate(const std::vector<Side>& sides) {
    for (const Side& side : sides) side.copy();  // warm every path
    std::vector<Times> times(sides.size());
    for (int round = 0; round < kRounds; ++round) {
        std::vector<Times> copies(sides.size());
        for (int turn = 0; turn < kCopiesPerRound; ++turn)
            for (size_t i = 0; i < sides.size(); ++i) {
                size_t s = turn % 2 == 0 ? i : sides.size() - 1 - i;
                copies[s].push_back(Microseconds(sides[s].copy));
            }
        for (size_t s = 0; s < sides.size(); ++s) times[s].push_back(Median(copies[s]));
    }
    return times;
}

// Per round, so that both sides of a ratio saw the same load.
Times Ratios(const Times& measured, const Times& baseline) {
    Times ratios;
    for (size_t r = 0; r < measured.size(); ++r) ratios.push_back(measured[r] / baseline[r]);
    return ratios;
}

std::string Format(const char* format, double value) {
    char text[64];
    snprintf(text, sizeof text, format, value);
    return text;
}

std::string Range(const Times& values) {
    auto [low, high] = std::minmax_element(values.begin(), values.end());
    return Format("%.2f", *low) + " .. " + Format("%.2f", *high);
}

std::vector<std::string> gVerdicts;
bool gAllPassed = true;

void Judge(const std::string& what, double ratio, const char* baseline, double target) {
    bool pass = ratio <= target;
    gAllPassed = gAllPassed && pass;
    gVerdicts.push_back(std::string(pass ? "PASS " : "FAIL ") + "frame_copy " + what + " " + Format("%.3f", ratio) +
                        "x " + baseline + " " + Format("(target <= %.2fx)", target));
}

void PrintSides(const std::vector<Side>& sides, const std::vector<Times>& times) {
    for (size_t s = 0; s < sides.size(); ++s)
        printf("  %-38s %10.1f   %s\n", sides[s].name.c_str(), Median(times[s]), Range(times[s]).c_str());
}

void PrintRatio(const char* what, const Times& ratios) {
    printf("  %-38s %10.3f   %s\n", what, Median(ratios), Range(ratios).c_str());
}

// ---- one player with a rendered frame --------------------------------------------

struct Frame {
    emu::Value vlc, player;
    const uint8_t* bytes = nullptr;  // the player's frame buffer
};

using RenderFn = int (*)(int64_t);
using HoldFn = void (*)(int64_t);

Frame OpenFrame(emu::Host& host, RenderFn render) {
    Frame f;
    f.vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
    f.player = host.New("VLCMediaPlayerQRV", {f.vlc});
    host.Call(f.player, "VideoSetCallback", {emu::Value::Int(kWidth), emu::Value::Int(kHeight)});
    if (render(1) != 1) {
        fprintf(stderr, "the fake libvlc did not render a frame\n");
        exit(1);
    }
    f.bytes = static_cast<const uint8_t*>(Method<GetMemoryFn>(host, "GetMemory as Ptr")(f.player.AsObject()));
    return f;
}

// While the fake decoder holds a frame (between the lock and unlock callbacks),
// a copy has to wait for it; otherwise the copies timed here would skip the lock.
// Copies run back to back until the hold is over, so whenever the decoder
// thread gets to run, one of them meets the held frame.
double LongestWaitForHeldFrame(CopyToMemoryFn copy, REALobject player, HoldFn hold) {
    std::vector<uint8_t> dest(kBytes);
    std::atomic<bool> released{false};
    std::thread decoder([&] {
        hold(kHeldMs);
        released = true;
    });
    double longest = 0;
    while (!released) {
        auto start = std::chrono::steady_clock::now();
        copy(player, dest.data(), 0, kWidth * 4);
        std::chrono::duration<double, std::milli> waited = std::chrono::steady_clock::now() - start;
        longest = std::max(longest, waited.count());
    }
    decoder.join();
    return longest;
}

// A copy that makes a new host object, judged against the host's allocation of
// the same object plus memcpy; its ratio to warm memcpy is shown too. Each pair
// takes turns on its own, so that every side follows the other as often as itself.
void CompareWithHostAllocation(const char* title, const Side& warm, const Side& baseline, const Side& copy,
                               const std::string& what, const std::string& baselineName) {
    std::vector<Side> judged = {baseline, copy};
    std::vector<Times> times = Alternate(judged);
    std::vector<Side> warmPair = {warm, copy};
    std::vector<Times> warmTimes = Alternate(warmPair);
    printf("\n%-39s median us   lowest .. highest\n", title);
    PrintSides(judged, times);
    PrintSides({warm}, {warmTimes[0]});
    Times toBaseline = Ratios(times[1], times[0]);
    PrintRatio(("ratio to " + baselineName).c_str(), toBaseline);
    PrintRatio("ratio to warm memcpy", Ratios(warmTimes[1], warmTimes[0]));
    Judge(what, Median(toBaseline), baselineName.c_str(), 1.15);
}

// CopyToMemory and CopyMemory against warm memcpy and the host's block.
void CompareMemoryCopies(emu::Host& host, const Frame& f) {
    auto copyToMemory =
        Method<CopyToMemoryFn>(host, "CopyToMemory(dest as Ptr, offset as integer, RowBytes as integer) as boolean");
    auto copyMemory = Method<CopyObjectFn>(host, "CopyMemory as memoryblock");
    REALobject player = f.player.AsObject();
    std::vector<uint8_t> warm(kBytes, 1);
    std::vector<uint8_t> dest(kBytes, 1);

    // Both must copy the frame, or nothing below measures a copy.
    copyToMemory(player, dest.data(), 0, kWidth * 4);
    emu::Value block = emu::Value::AdoptObject(copyMemory(player));
    if (memcmp(dest.data(), f.bytes, kBytes) != 0 || memcmp(host.MemoryBytesPointer(block), f.bytes, kBytes) != 0) {
        fprintf(stderr, "CopyToMemory or CopyMemory did not copy the frame\n");
        exit(1);
    }

    Side memcpyWarm{"memcpy into warm memory", [&] {
                        memcpy(warm.data(), f.bytes, kBytes);
                        benchmark::DoNotOptimize(warm.data());
                    }};
    Side toMemory{"CopyToMemory", [&] { benchmark::DoNotOptimize(copyToMemory(player, dest.data(), 0, kWidth * 4)); }};
    std::vector<Side> sides = {memcpyWarm, toMemory};
    std::vector<Times> times = Alternate(sides);
    printf("CopyToMemory into warm memory           median us   lowest .. highest\n");
    PrintSides(sides, times);
    Times ratios = Ratios(times[1], times[0]);
    PrintRatio("ratio to warm memcpy", ratios);
    Judge("CopyToMemory", Median(ratios), "warm memcpy", 1.10);

    Side blockThenMemcpy{"host block, then memcpy", [&] {
                             emu::Value fresh = NewHostBlock(static_cast<int64_t>(kBytes));
                             memcpy(HostBlockBytes(fresh), f.bytes, kBytes);
                             benchmark::DoNotOptimize(fresh.AsObject());
                         }};
    Side memoryBlock{"CopyMemory", [&] {
                         emu::Value copied = emu::Value::AdoptObject(copyMemory(player));
                         benchmark::DoNotOptimize(copied.AsObject());
                     }};
    CompareWithHostAllocation("CopyMemory (a new MemoryBlock)", memcpyWarm, blockThenMemcpy, memoryBlock, "CopyMemory",
                              "host block + memcpy");
}

// CopyPicture against a new host picture of the same kind filled by memcpy.
void ComparePictureCopies(emu::Host& host, const Frame& f, const char* kind) {
    auto copyPicture = Method<CopyObjectFn>(host, "CopyPicture as Picture");
    REALobject player = f.player.AsObject();
    // Every pixel must arrive (the frame's BGRX word, made opaque), or nothing below measures a copy.
    emu::Value sample = emu::Value::AdoptObject(copyPicture(player));
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            uint32_t word;
            memcpy(&word, f.bytes + (y * kWidth + x) * 4, sizeof word);
            if (host.PixelARGB(sample, x, y) != (word | 0xFF000000u)) {
                fprintf(stderr, "CopyPicture (%s) did not copy the frame at %d, %d\n", kind, x, y);
                exit(1);
            }
        }
    std::vector<uint8_t> warm(kBytes, 1);
    Side memcpyWarm{"memcpy into warm memory", [&] {
                        memcpy(warm.data(), f.bytes, kBytes);
                        benchmark::DoNotOptimize(warm.data());
                    }};
    Side pictureThenMemcpy{std::string("host ") + kind + " picture, then memcpy", [&] {
                               emu::Value picture = NewHostPictureWithFrame(f.bytes);
                               benchmark::DoNotOptimize(picture.AsObject());
                           }};
    Side picture{std::string("CopyPicture (") + kind + ")", [&] {
                     emu::Value copied = emu::Value::AdoptObject(copyPicture(player));
                     benchmark::DoNotOptimize(copied.AsObject());
                 }};
    std::string title = std::string("CopyPicture (a new ") + kind + " picture)";
    CompareWithHostAllocation(title.c_str(), memcpyWarm, pictureThenMemcpy, picture, std::string("CopyPicture ") + kind,
                              std::string("host ") + kind + " picture + memcpy");
}

// One emulated host per picture kind; the first one also times the memory copies.
int RunHost(emu::PictureKind pictures, const char* fake, RenderFn render, HoldFn hold) {
    emu::HostOptions options;
    options.pictures = pictures;
    emu::Host host(options);
    if (!host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(fake)}).AsBool()) {
        fprintf(stderr, "cannot load the fake libvlc %s\n", fake);
        return 1;
    }
    Frame f = OpenFrame(host, render);
    if (pictures == emu::PictureKind::Gd) {
        auto copyToMemory = Method<CopyToMemoryFn>(
            host, "CopyToMemory(dest as Ptr, offset as integer, RowBytes as integer) as boolean");
        double waited = LongestWaitForHeldFrame(copyToMemory, f.player.AsObject(), hold);
        printf("frame mutex: a copy waited %.0f ms for a frame the decoder held for %lld ms\n\n", waited,
               static_cast<long long>(kHeldMs));
        if (waited < kHeldMs / 2) {
            fprintf(stderr, "the copies do not take the frame mutex; nothing here would time the locked path\n");
            return 2;
        }
        CompareMemoryCopies(host, f);
        ComparePictureCopies(host, f, "gd");
    } else {
        ComparePictureCopies(host, f, "cairo");
    }
    return 0;
}

}  // namespace

int main() {
    const char* fake = FAKEVLC_PATH;
    void* control = dlopen(fake, RTLD_NOW);
    auto render = control ? reinterpret_cast<RenderFn>(dlsym(control, "fakevlc_render_frame")) : nullptr;
    auto hold = control ? reinterpret_cast<HoldFn>(dlsym(control, "fakevlc_hold_frame")) : nullptr;
    if (render == nullptr || hold == nullptr) {
        fprintf(stderr, "cannot load the fake libvlc %s\n", fake);
        return 1;
    }
    printf(
        "1920x1080 frame (%zu bytes); %d rounds, each of %d copies a side taken in turns (A B, then B A) and\n"
        "summed up by their median; shown: the median of the rounds and the lowest .. highest round. Ratios\n"
        "are taken per round, then their median is judged\n\n",
        kBytes, kRounds, kCopiesPerRound);
    if (int status = RunHost(emu::PictureKind::Gd, fake, render, hold)) return status;
    if (int status = RunHost(emu::PictureKind::Cairo, fake, render, hold)) return status;
    printf("\n");
    for (const std::string& verdict : gVerdicts) printf("%s\n", verdict.c_str());
    return gAllPassed ? 0 : 1;
}
