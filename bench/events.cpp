// Integer events from a libvlc-like worker thread to a host handler on the
// main thread, through the plug-in's delivery and GLib's main loop, against a
// baseline that posts one g_idle_add per event; and the latency from post to
// handler with an otherwise idle main loop.
#include <dlfcn.h>
#include <glib.h>
#include <vlc/vlc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "host/emulator.h"

namespace {

using Clock = std::chrono::steady_clock;

int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

std::atomic<int64_t> gDelivered{0};
std::vector<int64_t>* gLatencies = nullptr;

void OnTime(REALobject, RBInteger sent) {
    if (gLatencies != nullptr) gLatencies->push_back(NowNs() - sent);
    gDelivered.fetch_add(1, std::memory_order_relaxed);
}

gboolean OnIdle(gpointer sent) {
    if (gLatencies != nullptr) gLatencies->push_back(NowNs() - reinterpret_cast<int64_t>(sent));
    gDelivered.fetch_add(1, std::memory_order_relaxed);
    return G_SOURCE_REMOVE;
}

// Runs the main loop (blocking while idle) until `count` deliveries arrived.
void RunMainLoopUntil(int64_t count) {
    while (gDelivered.load(std::memory_order_relaxed) < count) g_main_context_iteration(nullptr, TRUE);
}

struct Poster {
    libvlc_callback_t callback;
    void* data;
    void Post(int64_t value) const {
        libvlc_event_t e;
        memset(&e, 0, sizeof e);
        e.type = libvlc_MediaPlayerTimeChanged;
        e.u.media_player_time_changed.new_time = value;
        callback(&e, data);
    }
};

double Throughput(int64_t count, const std::function<void(int64_t)>& post) {
    gDelivered = 0;
    auto start = Clock::now();
    std::thread worker([&] {
        for (int64_t i = 0; i < count; ++i) post(i);
    });
    RunMainLoopUntil(count);
    worker.join();
    return count / std::chrono::duration<double>(Clock::now() - start).count();
}

std::pair<double, double> Latency(int samples, const std::function<void(int64_t)>& post) {
    std::vector<int64_t> latencies;
    latencies.reserve(static_cast<size_t>(samples));
    gLatencies = &latencies;
    gDelivered = 0;
    std::thread worker([&] {
        for (int i = 0; i < samples; ++i) {
            while (gDelivered.load() < i) std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::microseconds(200));  // let the loop go idle
            post(NowNs());
        }
    });
    RunMainLoopUntil(samples);
    worker.join();
    gLatencies = nullptr;
    std::sort(latencies.begin(), latencies.end());
    return {latencies[latencies.size() / 2] / 1000.0, latencies[latencies.size() * 99 / 100] / 1000.0};
}

}  // namespace

int main() {
    emu::Host host;
    void* control = dlopen(FAKEVLC_PATH, RTLD_NOW);
    auto listener = control ? reinterpret_cast<int (*)(libvlc_event_manager_t*, int, libvlc_callback_t*, void**)>(
                                  dlsym(control, "fakevlc_listener"))
                            : nullptr;
    auto managerOf =
        control ? reinterpret_cast<libvlc_event_manager_t* (*)()>(dlsym(control, "fakevlc_event_manager")) : nullptr;
    if (listener == nullptr ||
        !host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(FAKEVLC_PATH)}).AsBool()) {
        fprintf(stderr, "cannot load the fake libvlc\n");
        return 1;
    }
    emu::Value vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
    emu::Value player = host.New("VLCMediaPlayerQRV", {vlc});
    host.DefineSubclass("BenchEvents", "VLCEventManagerQRV",
                        {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(OnTime)}});
    emu::Value events = host.New("BenchEvents", {player});
    Poster poster{};
    if (!listener(managerOf(), libvlc_MediaPlayerTimeChanged, &poster.callback, &poster.data)) {
        fprintf(stderr, "no callback attached\n");
        return 1;
    }
    auto plugin = [&](int64_t value) { poster.Post(value); };
    auto idle = [](int64_t value) { g_idle_add(OnIdle, reinterpret_cast<gpointer>(value)); };

    const int64_t count = 1000000;
    Throughput(count / 10, plugin);  // warm up
    double pluginRate = Throughput(count, plugin);
    double idleRate = Throughput(count, idle);
    auto [p50, p99] = Latency(5000, plugin);
    auto [i50, i99] = Latency(5000, idle);

    printf("integer events, one worker thread to the main thread (GLib default context)\n");
    printf("%-28s %14s %10s %10s\n", "path", "events/s", "p50 us", "p99 us");
    printf("%-28s %14.0f %10.1f %10.1f\n", "plug-in delivery", pluginRate, p50, p99);
    printf("%-28s %14.0f %10.1f %10.1f\n", "g_idle_add per event", idleRate, i50, i99);
    printf("throughput ratio %.2f (target >= 3), plug-in rate target >= 1000000, p99 target < 500 us\n",
           pluginRate / idleRate);
    return 0;
}
