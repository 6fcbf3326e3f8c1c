// Linux side of the platform layer: stderr trace sink, GLib main-loop queue,
// NFD paths through GLib.
#include <glib.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "plugin/platform.h"

void PlatformWriteTraceLine(const char* line) {
    // One write() per line so lines from several threads never interleave.
    size_t length = strlen(line);
    char* buffer = static_cast<char*>(malloc(length + 1));
    if (buffer == nullptr) return;
    memcpy(buffer, line, length);
    buffer[length] = '\n';
    ssize_t written = write(STDERR_FILENO, buffer, length + 1);
    (void)written;
    free(buffer);
}

bool PlatformIsMainThread() { return syscall(SYS_gettid) == getpid(); }

namespace {

struct Task {
    MainThreadTask run;
    void* data;
};

// The main-thread queue: a FIFO drained by one GSource on GLib's default
// context. Posting wakes the context only when the FIFO was empty; one dispatch
// runs everything queued at that moment.
struct MainQueue {
    GSource source;  // must be first: GLib allocates the whole struct
    std::mutex* lock;
    std::vector<Task>* pending;
    std::atomic<bool>* nonEmpty;
};

gboolean QueuePrepare(GSource* source, gint* timeout) {
    *timeout = -1;
    return reinterpret_cast<MainQueue*>(source)->nonEmpty->load(std::memory_order_acquire);
}

gboolean QueueCheck(GSource* source) {
    return reinterpret_cast<MainQueue*>(source)->nonEmpty->load(std::memory_order_acquire);
}

gboolean QueueDispatch(GSource* source, GSourceFunc, gpointer) {
    auto* queue = reinterpret_cast<MainQueue*>(source);
    std::vector<Task> batch;
    {
        std::lock_guard<std::mutex> hold(*queue->lock);
        batch.swap(*queue->pending);
        queue->nonEmpty->store(false, std::memory_order_release);
    }
    for (const Task& task : batch) task.run(task.data);
    return G_SOURCE_CONTINUE;
}

GSourceFuncs gQueueFuncs = {QueuePrepare, QueueCheck, QueueDispatch, nullptr, nullptr, nullptr};

MainQueue* TheMainQueue() {
    // Created once, attached to the default context, never destroyed: tasks may
    // be posted until the process ends.
    static MainQueue* queue = [] {
        auto* q = reinterpret_cast<MainQueue*>(g_source_new(&gQueueFuncs, sizeof(MainQueue)));
        q->lock = new std::mutex;
        q->pending = new std::vector<Task>;
        q->pending->reserve(1024);
        q->nonEmpty = new std::atomic<bool>(false);
        g_source_set_priority(&q->source, G_PRIORITY_DEFAULT);
        g_source_attach(&q->source, g_main_context_default());
        return q;
    }();
    return queue;
}

}  // namespace

void PlatformPostToMainThread(MainThreadTask task, void* data) {
    MainQueue* queue = TheMainQueue();
    bool wasEmpty;
    {
        std::lock_guard<std::mutex> hold(*queue->lock);
        wasEmpty = queue->pending->empty();
        queue->pending->push_back(Task{task, data});
        queue->nonEmpty->store(true, std::memory_order_release);
    }
    if (wasEmpty) g_main_context_wakeup(g_main_context_default());
}

char* PlatformDecomposedPath(const char* pathText, bool isURL) {
    if (pathText == nullptr || *pathText == 0) return nullptr;
    char* path = isURL ? g_filename_from_uri(pathText, nullptr, nullptr) : g_strdup(pathText);
    if (path == nullptr) return nullptr;
    char* decomposed = g_utf8_normalize(path, -1, G_NORMALIZE_NFD);
    g_free(path);
    if (decomposed == nullptr) return nullptr;
    // Callers free with free(); hand out a malloc'd copy.
    size_t length = strlen(decomposed);
    char* result = static_cast<char*>(calloc(length + 16, 1));
    if (result != nullptr) memcpy(result, decomposed, length);
    g_free(decomposed);
    return result;
}
