// Linux side of the platform layer: stderr trace sink, GLib main-loop queue,
// folder-item paths as their native bytes.
#include <cairo.h>
#include <glib.h>
#include <pthread.h>
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

namespace {

struct Task {
    MainThreadTask run;
    void* data;
};

// The main-thread queue: a FIFO drained by one GSource on GLib's default
// context. A post wakes the context only when the FIFO was empty and the main
// thread is not running it; one dispatch runs what was queued when it began,
// and tasks posted meanwhile wait for the next loop iteration, so other
// sources get their turn.
struct MainQueue {
    GSource source;  // must be first: GLib allocates the whole struct
    std::mutex* lock;
    std::vector<Task>* pending;
    std::vector<Task>* running;  // the batch being run; main thread only
    std::atomic<bool>* nonEmpty;
    bool draining;  // guarded by lock
};

// Tasks a queue keeps room for; after a longer backlog its memory is given back.
constexpr size_t kQueueRoom = 1024;

// The source's callbacks reach the queue through TheMainQueue(), not through
// their argument: the queue is made by whichever thread posts first, and the
// static's guard is what orders its making before the main thread's reads
// (GLib's own locking is invisible to ThreadSanitizer).
MainQueue* TheMainQueue();

gboolean QueuePrepare(GSource*, gint* timeout) {
    *timeout = -1;
    return TheMainQueue()->nonEmpty->load(std::memory_order_acquire);
}

gboolean QueueCheck(GSource*) { return TheMainQueue()->nonEmpty->load(std::memory_order_acquire); }

gboolean QueueDispatch(GSource*, GSourceFunc, gpointer) {
    MainQueue* queue = TheMainQueue();
    {
        std::lock_guard<std::mutex> hold(*queue->lock);
        queue->draining = true;
        queue->running->swap(*queue->pending);
        queue->nonEmpty->store(false, std::memory_order_release);
    }
    for (const Task& task : *queue->running) task.run(task.data);
    queue->running->clear();
    if (queue->running->capacity() > kQueueRoom) {
        queue->running->shrink_to_fit();
        queue->running->reserve(kQueueRoom);
    }
    std::lock_guard<std::mutex> hold(*queue->lock);
    queue->draining = false;
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
        q->running = new std::vector<Task>;
        q->pending->reserve(kQueueRoom);
        q->running->reserve(kQueueRoom);
        q->nonEmpty = new std::atomic<bool>(false);
        q->draining = false;
        g_source_set_priority(&q->source, G_PRIORITY_DEFAULT);
        g_source_attach(&q->source, g_main_context_default());
        return q;
    }();
    return queue;
}

}  // namespace

void PlatformPostToMainThread(MainThreadTask task, void* data) {
    MainQueue* queue = TheMainQueue();
    bool wake;
    {
        std::lock_guard<std::mutex> hold(*queue->lock);
        wake = queue->pending->empty() && !queue->draining;
        queue->pending->push_back(Task{task, data});
        queue->nonEmpty->store(true, std::memory_order_release);
    }
    if (wake) g_main_context_wakeup(g_main_context_default());
}

void PlatformRunOnMainThreadAfter(unsigned milliseconds, MainThreadTask task, void* data) {
    auto runOnce = [](gpointer pending) -> gboolean {
        const Task* t = static_cast<const Task*>(pending);
        t->run(t->data);
        return G_SOURCE_REMOVE;
    };
    auto forget = [](gpointer pending) { delete static_cast<Task*>(pending); };
    g_timeout_add_full(G_PRIORITY_DEFAULT, milliseconds, runOnce, new Task{task, data}, forget);
}

// Linux file names are bytes, and a decomposed copy of a precomposed name
// names another file: the native path goes through as it is.
char* PlatformFolderItemPath(const char* pathText, bool isURL) {
    if (pathText == nullptr || *pathText == 0) return nullptr;
    char* path = isURL ? g_filename_from_uri(pathText, nullptr, nullptr) : g_strdup(pathText);
    if (path == nullptr) return nullptr;
    // Callers free with free(); hand out a malloc'd copy.
    char* result = strdup(path);
    g_free(path);
    return result;
}

// ---- frames drawn into a cairo context ----------------------------------------

void* PlatformRetainContext(void* context) {
    return context != nullptr ? cairo_reference(static_cast<cairo_t*>(context)) : nullptr;
}

void PlatformReleaseContext(void* context) {
    if (context != nullptr) cairo_destroy(static_cast<cairo_t*>(context));
}

// cairo reads the buffer directly; nothing to prepare.
void PlatformCreateFrameSource(uint8_t*, size_t, void** provider, void** colorSpace) {
    *provider = nullptr;
    *colorSpace = nullptr;
}

void PlatformReleaseFrameSource(void*, void*) {}

// CAIRO_FORMAT_RGB24 is exactly the buffer's little-endian BGRX layout.
void* PlatformCreateFrameImage(void*, void*, uint8_t* buffer, int64_t width, int64_t height, int64_t rowBytes) {
    if (buffer == nullptr || width < 1 || height < 1) return nullptr;
    if (rowBytes != cairo_format_stride_for_width(CAIRO_FORMAT_RGB24, static_cast<int>(width))) return nullptr;
    cairo_surface_t* surface = cairo_image_surface_create_for_data(
        buffer, CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height), static_cast<int>(rowBytes));
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    return surface;
}

void PlatformReleaseFrameImage(void* image) {
    if (image != nullptr) cairo_surface_destroy(static_cast<cairo_surface_t*>(image));
}

void PlatformDrawFrameImage(void* context, void* image, int64_t width, int64_t height) {
    auto* cr = static_cast<cairo_t*>(context);
    cairo_save(cr);
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_set_source_surface(cr, static_cast<cairo_surface_t*>(image), 0, 0);
    cairo_rectangle(cr, 0, 0, static_cast<double>(width), static_cast<double>(height));
    cairo_fill(cr);
    cairo_restore(cr);
    cairo_surface_flush(cairo_get_target(cr));
}

// There is no image class on Linux.
void* PlatformCopyFrameImage(void*) { return nullptr; }
void* PlatformRetainCopiedImage(void* image) { return image; }
void PlatformReleaseCopiedImage(void*) {}

// ---- host pictures: the image surface behind a desktop picture's cairo_t ------

uint32_t PlatformNativePictureType() { return kPictureCairoContext; }

bool PlatformNativePictureGeometry(const REALpictureDescription& description, PictureGeometry& out) {
    if (description.pictureType != kPictureCairoContext) return false;  // not a cairo_t*
    auto* cr = static_cast<cairo_t*>(description.pictureData);
    if (cr == nullptr) return false;
    cairo_surface_t* surface = cairo_get_target(cr);
    if (cairo_surface_get_type(surface) != CAIRO_SURFACE_TYPE_IMAGE) return false;
    cairo_format_t format = cairo_image_surface_get_format(surface);
    cairo_surface_flush(surface);
    out.base = cairo_image_surface_get_data(surface);
    out.width = cairo_image_surface_get_width(surface);
    out.height = cairo_image_surface_get_height(surface);
    out.rowBytes = cairo_image_surface_get_stride(surface);
    out.bitsPerPixel = (format == CAIRO_FORMAT_ARGB32 || format == CAIRO_FORMAT_RGB24) ? 32 : 0;
    out.layout = out.bitsPerPixel == 32 ? PixelLayout::NativeARGB : PixelLayout::Other;
    return out.base != nullptr;
}

void PlatformNativePictureWritten(const REALpictureDescription& description) {
    if (auto* cr = static_cast<cairo_t*>(description.pictureData)) cairo_surface_mark_dirty(cairo_get_target(cr));
}

// ---- snapshot files ------------------------------------------------------------

bool PlatformDecodePNGFile(const char* path, uint8_t* pixels, int64_t width, int64_t height) {
    cairo_surface_t* png = cairo_image_surface_create_from_png(path);
    int fileWidth = cairo_image_surface_get_width(png), fileHeight = cairo_image_surface_get_height(png);
    bool decoded = cairo_surface_status(png) == CAIRO_STATUS_SUCCESS && fileWidth > 0 && fileHeight > 0;
    if (decoded) {
        int w = static_cast<int>(width), h = static_cast<int>(height);
        cairo_surface_t* target = cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_RGB24, w, h, w * 4);
        cairo_t* cr = cairo_create(target);
        cairo_scale(cr, static_cast<double>(w) / fileWidth, static_cast<double>(h) / fileHeight);
        cairo_set_source_surface(cr, png, 0, 0);
        cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);  // no dark edges when scaling
        cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
        cairo_paint(cr);
        decoded = cairo_status(cr) == CAIRO_STATUS_SUCCESS;
        cairo_destroy(cr);
        cairo_surface_flush(target);
        cairo_surface_destroy(target);
    }
    cairo_surface_destroy(png);
    return decoded;
}
