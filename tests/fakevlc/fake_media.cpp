// The fake libvlc's media read through callbacks: it keeps the callbacks so a
// test can drive them as libvlc's input threads would.
#include <mutex>

#include "tests/fakevlc/fakevlc_state.h"

namespace {

struct Callbacks {
    libvlc_media_open_cb open;
    libvlc_media_read_cb read;
    libvlc_media_seek_cb seek;
    libvlc_media_close_cb close;
    void* opaque;
};
std::mutex gCallbacksLock;
Callbacks gCallbacks{};

}  // namespace

extern "C" {

// Answers a media only when the test set the answer 1 (NULL otherwise, as the other defaults).
__attribute__((visibility("default"))) libvlc_media_t* libvlc_media_new_callbacks(
    libvlc_instance_t*, libvlc_media_open_cb open, libvlc_media_read_cb read, libvlc_media_seek_cb seek,
    libvlc_media_close_cb close, void* opaque) {
    fakevlc::Count("libvlc_media_new_callbacks");
    if (fakevlc::AnswerOf("libvlc_media_new_callbacks").integer != 1) return nullptr;
    std::lock_guard<std::mutex> hold(gCallbacksLock);
    gCallbacks = {open, read, seek, close, opaque};
    return fakevlc_new_media();
}

// The callbacks of the last media made by libvlc_media_new_callbacks.
__attribute__((visibility("default"))) void fakevlc_media_callbacks(libvlc_media_open_cb* open,
                                                                    libvlc_media_read_cb* read,
                                                                    libvlc_media_seek_cb* seek,
                                                                    libvlc_media_close_cb* close, void** opaque) {
    std::lock_guard<std::mutex> hold(gCallbacksLock);
    *open = gCallbacks.open, *read = gCallbacks.read, *seek = gCallbacks.seek, *close = gCallbacks.close;
    *opaque = gCallbacks.opaque;
}
}
