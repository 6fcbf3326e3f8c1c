// Event delivery from a libvlc-like worker thread to a host handler on the
// main thread (GLib's default context), through the plug-in, against a plain
// batched queue: a mutex-protected vector of the events it is handed, one
// g_idle_add when it turns non-empty, the idle callback drains everything.
// Same handler, same producer, same callback shape.
// Each round runs both sides, alternating which goes first; throughput and
// latency are measured with an idle machine and with two busy threads.
// The events are discrete (meta changes), so every one is delivered.
#include <dlfcn.h>
#include <glib.h>
#include <vlc/vlc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "host/emulator.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 11;
constexpr uint32_t kThroughputEvents = 1000000;
constexpr uint32_t kLatencySamples = 2000;

int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

// ---- the one handler both sides deliver to --------------------------------------

std::atomic<uint32_t> gDelivered{0};
std::vector<int64_t> gSentAt;  // latency runs: when event i was posted
std::vector<int64_t>* gLatencies = nullptr;

void OnMeta(REALobject, RBInteger sequence) {
    if (gLatencies != nullptr) gLatencies->push_back(NowNs() - gSentAt[static_cast<size_t>(sequence)]);
    gDelivered.store(gDelivered.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

// ---- the one producer: builds the event as libvlc's thread does and hands it
// to a callback of libvlc's shape, the plug-in's or the batched queue's ----------

struct Producer {
    libvlc_callback_t callback = nullptr;
    void* data = nullptr;
    void Post(uint32_t sequence) const {
        libvlc_event_t e;
        memset(&e, 0, sizeof e);
        e.type = libvlc_MediaMetaChanged;
        e.u.media_meta_changed.meta_type = static_cast<libvlc_meta_t>(sequence);
        callback(&e, data);
    }
};

// ---- side B: the batched queue: it copies the event it is handed, as any
// queue between threads must (libvlc's event is valid only during the call) ----

struct BatchedQueue {
    std::mutex lock;
    std::vector<libvlc_event_t> pending, running;
};
BatchedQueue gBatched;

gboolean DrainBatched(gpointer) {
    {
        std::lock_guard<std::mutex> hold(gBatched.lock);
        gBatched.running.swap(gBatched.pending);
    }
    for (const libvlc_event_t& e : gBatched.running) OnMeta(nullptr, e.u.media_meta_changed.meta_type);
    gBatched.running.clear();
    return G_SOURCE_REMOVE;
}

void BatchedCallback(const libvlc_event_t* event, void*) {
    bool wasEmpty;
    {
        std::lock_guard<std::mutex> hold(gBatched.lock);
        wasEmpty = gBatched.pending.empty();
        gBatched.pending.push_back(*event);
    }
    if (wasEmpty) g_idle_add(DrainBatched, nullptr);
}

// ---- measuring ---------------------------------------------------------------------

void RunMainLoopUntil(uint32_t count) {
    while (gDelivered.load(std::memory_order_acquire) < count) g_main_context_iteration(nullptr, TRUE);
}

template <typename Post>
double Throughput(Post post) {
    gDelivered = 0;
    auto start = Clock::now();
    std::thread producer([&] {
        for (uint32_t i = 0; i < kThroughputEvents; ++i) post(i);
    });
    RunMainLoopUntil(kThroughputEvents);
    producer.join();
    return kThroughputEvents / std::chrono::duration<double>(Clock::now() - start).count();
}

// p99 in microseconds; each event is posted after the loop has gone idle.
template <typename Post>
double P99Latency(Post post) {
    std::vector<int64_t> latencies;
    latencies.reserve(kLatencySamples);
    gLatencies = &latencies;
    gDelivered = 0;
    std::thread producer([&] {
        for (uint32_t i = 0; i < kLatencySamples; ++i) {
            while (gDelivered.load(std::memory_order_acquire) < i) std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            gSentAt[i] = NowNs();
            post(i);
        }
    });
    RunMainLoopUntil(kLatencySamples);
    producer.join();
    gLatencies = nullptr;
    std::sort(latencies.begin(), latencies.end());
    return latencies[latencies.size() * 99 / 100] / 1000.0;
}

struct Summary {
    double median, low, high;
};

Summary Summarise(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return {values[values.size() / 2], values.front(), values.back()};
}

// Two threads spinning on the two cores while they exist.
class BusyThreads {
public:
    BusyThreads() {
        for (int i = 0; i < 2; ++i)
            threads_.emplace_back([this] {
                while (!stop_.load(std::memory_order_relaxed)) {
                }
            });
    }
    ~BusyThreads() {
        stop_ = true;
        for (auto& t : threads_) t.join();
    }

private:
    std::atomic<bool> stop_{false};
    std::vector<std::thread> threads_;
};

struct Figures {
    std::vector<double> pluginRate, batchedRate, ratio, pluginP99, batchedP99;
};

// One condition: kRounds rounds, A B then B A.
template <typename A, typename B>
Figures Measure(A plugin, B batched) {
    Figures f;
    for (int round = 0; round < kRounds; ++round) {
        double a, b;
        if (round % 2 == 0) {
            a = Throughput(plugin);
            b = Throughput(batched);
        } else {
            b = Throughput(batched);
            a = Throughput(plugin);
        }
        f.pluginRate.push_back(a);
        f.batchedRate.push_back(b);
        f.ratio.push_back(a / b);
        if (round % 2 == 0) {
            f.pluginP99.push_back(P99Latency(plugin));
            f.batchedP99.push_back(P99Latency(batched));
        } else {
            f.batchedP99.push_back(P99Latency(batched));
            f.pluginP99.push_back(P99Latency(plugin));
        }
    }
    return f;
}

void PrintRow(const char* condition, const char* measure, const std::vector<double>& plugin,
              const std::vector<double>& batched, double scale) {
    Summary a = Summarise(plugin), b = Summarise(batched);
    printf("%-6s %-12s %10.2f [%8.2f ..%8.2f] %10.2f [%8.2f ..%8.2f]\n", condition, measure, a.median * scale,
           a.low * scale, a.high * scale, b.median * scale, b.low * scale, b.high * scale);
}

bool Verdict(bool pass, const char* what, double figure, const char* unit, const char* target) {
    printf("%s %s %.2f %s (target %s)\n", pass ? "PASS" : "FAIL", what, figure, unit, target);
    return pass;
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
    host.DefineSubclass("BenchEvents", "VLCEventManagerQRV", {{"MediaMetaChanged", reinterpret_cast<void*>(OnMeta)}});
    emu::Value events = host.New("BenchEvents", {player});
    Producer pluginSide, batchedSide{BatchedCallback, nullptr};
    if (!listener(managerOf(), libvlc_MediaMetaChanged, &pluginSide.callback, &pluginSide.data)) {
        fprintf(stderr, "no callback attached\n");
        return 1;
    }
    gSentAt.resize(kLatencySamples);
    auto plugin = [&](uint32_t i) { pluginSide.Post(i); };
    auto batched = [&](uint32_t i) { batchedSide.Post(i); };

    Throughput(plugin);  // warm both up
    Throughput(batched);
    Figures idle = Measure(plugin, batched);
    Figures busy;
    {
        BusyThreads load;
        busy = Measure(plugin, batched);
    }

    printf("discrete events, one producer thread to the main thread (GLib default context)\n");
    printf("%d rounds, sides alternating first; median [min .. max]\n", kRounds);
    printf("%-6s %-12s %32s %32s\n", "load", "measure", "plug-in", "batched queue");
    PrintRow("idle", "M events/s", idle.pluginRate, idle.batchedRate, 1e-6);
    PrintRow("idle", "p99 us", idle.pluginP99, idle.batchedP99, 1);
    PrintRow("busy", "M events/s", busy.pluginRate, busy.batchedRate, 1e-6);
    PrintRow("busy", "p99 us", busy.pluginP99, busy.batchedP99, 1);
    Summary ratio = Summarise(idle.ratio), busyRatio = Summarise(busy.ratio);
    printf("throughput ratio plug-in / batched, per round: idle %.2f [%.2f .. %.2f], busy %.2f [%.2f .. %.2f]\n",
           ratio.median, ratio.low, ratio.high, busyRatio.median, busyRatio.low, busyRatio.high);
    // The throughput targets hold in both conditions; the latency targets name their own.
    double rate = Summarise(idle.pluginRate).median / 1e6, busyRate = Summarise(busy.pluginRate).median / 1e6;
    double idleP99 = Summarise(idle.pluginP99).median, busyP99 = Summarise(busy.pluginP99).median;
    bool all = Verdict(ratio.median >= 0.8, "events throughput ratio to the batched queue, idle loop", ratio.median,
                       "x", ">= 0.80");
    all &= Verdict(busyRatio.median >= 0.8, "events throughput ratio to the batched queue, two busy threads",
                   busyRatio.median, "x", ">= 0.80");
    all &= Verdict(rate >= 5, "events throughput, idle loop", rate, "M events/s", ">= 5");
    all &= Verdict(busyRate >= 5, "events throughput, two busy threads", busyRate, "M events/s", ">= 5");
    all &= Verdict(idleP99 < 500, "events p99 latency, idle loop", idleP99, "us", "< 500");
    all &= Verdict(busyP99 < 2000, "events p99 latency, two busy threads", busyP99, "us", "< 2000");
    return all ? 0 : 2;
}
