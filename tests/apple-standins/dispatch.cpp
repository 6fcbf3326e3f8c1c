// The main dispatch queue stand-in: a FIFO drained on GLib's default main
// context, which the host emulator's main loop pumps. Tasks run in posting
// order, on the main thread only, and never inside the call that posts them.
#include <dispatch/dispatch.h>
#include <glib.h>

#include <deque>
#include <mutex>

#include "tests/apple-standins/standin.h"

struct dispatch_queue_s {
    int unused;
};

extern "C" {
struct dispatch_queue_s _dispatch_main_q = {0};
}

namespace {

struct Task {
    void* context;
    dispatch_function_t work;
};

struct MainQueue {
    std::mutex lock;
    std::deque<Task> pending;
};

MainQueue& TheQueue();

gboolean Ready(GSource*, gint* timeout) {
    *timeout = -1;
    std::lock_guard<std::mutex> hold(TheQueue().lock);
    return !TheQueue().pending.empty();
}

gboolean HasTasks(GSource*) {
    std::lock_guard<std::mutex> hold(TheQueue().lock);
    return !TheQueue().pending.empty();
}

// Runs the tasks queued when the drain began; later ones wait for the next iteration.
gboolean Drain(GSource*, GSourceFunc, gpointer) {
    if (!pthread_main_np()) standin::Fail("the main queue was drained on another thread than the main one");
    std::deque<Task> batch;
    {
        std::lock_guard<std::mutex> hold(TheQueue().lock);
        batch.swap(TheQueue().pending);
    }
    for (const Task& task : batch) task.work(task.context);
    return G_SOURCE_CONTINUE;
}

GSourceFuncs gDrainFuncs = {Ready, HasTasks, Drain, nullptr, nullptr, nullptr};

MainQueue& TheQueue() {
    static MainQueue* queue = new MainQueue;
    static const bool attached = [] {
        g_source_attach(g_source_new(&gDrainFuncs, sizeof(GSource)), g_main_context_default());
        return true;
    }();
    (void)attached;
    return *queue;
}

void CheckMainQueue(dispatch_queue_t queue, const char* function) {
    if (queue != &_dispatch_main_q) standin::Fail("%s: only the main queue is stood in for", function);
}

void Enqueue(void* context, dispatch_function_t work) {
    MainQueue& queue = TheQueue();
    {
        std::lock_guard<std::mutex> hold(queue.lock);
        queue.pending.push_back({context, work});
    }
    g_main_context_wakeup(g_main_context_default());
}

uint64_t Now() { return static_cast<uint64_t>(g_get_monotonic_time()) * 1000; }

}  // namespace

extern "C" {

void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
    CheckMainQueue(queue, "dispatch_async_f");
    if (work == nullptr) standin::Fail("dispatch_async_f: NULL work");
    Enqueue(context, work);
}

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
    if (when != DISPATCH_TIME_NOW) standin::Fail("dispatch_time: only DISPATCH_TIME_NOW is stood in for");
    return Now() + static_cast<uint64_t>(delta);
}

// When the time comes, the task joins the main queue behind what is already there.
void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context, dispatch_function_t work) {
    CheckMainQueue(queue, "dispatch_after_f");
    if (work == nullptr) standin::Fail("dispatch_after_f: NULL work");
    uint64_t now = Now();
    auto milliseconds = static_cast<guint>(when > now ? (when - now + 999999) / 1000000 : 0);
    g_timeout_add_full(
        G_PRIORITY_DEFAULT, milliseconds,
        [](gpointer data) -> gboolean {
            auto* task = static_cast<Task*>(data);
            Enqueue(task->context, task->work);
            return G_SOURCE_REMOVE;
        },
        new Task{context, work}, [](gpointer data) { delete static_cast<Task*>(data); });
}
}
