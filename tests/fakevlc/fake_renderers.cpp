// The fake libvlc's renderer discoverers and items. Items are reference counted
// as libvlc's are, and strictly: a hold or release of an item nobody holds, or
// reading one after its last release, stops the process as libvlc would crash.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "tests/fakevlc/fakevlc_state.h"

#define EXPORT __attribute__((visibility("default")))

namespace {

struct Item {
    std::string name, type, iconURI;
    int flags;
    int64_t refs;
};

std::mutex gItemsLock;
// Never freed: a released item stays known, so that a late use is caught.
auto& gItems = *new std::map<const libvlc_renderer_item_t*, Item>;

libvlc_renderer_item_t* gPlayerRenderer = nullptr;  // the last one set, under gItemsLock

libvlc_event_manager_t* const kRendererManager = reinterpret_cast<libvlc_event_manager_t*>(0xE7E48);

[[noreturn]] void Abort(const char* function) {
    fprintf(stderr, "fake libvlc: %s of a renderer item nobody holds\n", function);
    abort();
}

// Runs `f` on a held item under the lock; aborts for an unknown or released one.
template <typename F>
auto OnHeldItem(const char* function, const libvlc_renderer_item_t* item, F f) {
    std::lock_guard<std::mutex> hold(gItemsLock);
    auto it = gItems.find(item);
    if (it == gItems.end() || it->second.refs <= 0) Abort(function);
    return f(it->second);
}

}  // namespace

extern "C" {

libvlc_renderer_discoverer_t* libvlc_renderer_discoverer_new(libvlc_instance_t*, const char*) {
    fakevlc::Count("libvlc_renderer_discoverer_new");
    static char storage[16];
    bool refused = fakevlc::AnswerOf("libvlc_renderer_discoverer_new").integer == -1;
    return refused ? nullptr : reinterpret_cast<libvlc_renderer_discoverer_t*>(storage);
}

libvlc_event_manager_t* libvlc_renderer_discoverer_event_manager(libvlc_renderer_discoverer_t*) {
    fakevlc::Count("libvlc_renderer_discoverer_event_manager");
    return fakevlc::AnswerOf("libvlc_renderer_discoverer_event_manager").integer == -1 ? nullptr : kRendererManager;
}

// Plain reference counts, which libvlc allows inside its event callbacks: not counted as calls.
libvlc_renderer_item_t* libvlc_renderer_item_hold(libvlc_renderer_item_t* item) {
    OnHeldItem("libvlc_renderer_item_hold", item, [](Item& i) { return ++i.refs; });
    return item;
}
void libvlc_renderer_item_release(libvlc_renderer_item_t* item) {
    OnHeldItem("libvlc_renderer_item_release", item, [](Item& i) { return --i.refs; });
}

const char* libvlc_renderer_item_name(const libvlc_renderer_item_t* item) {
    fakevlc::Count("libvlc_renderer_item_name");
    return OnHeldItem("libvlc_renderer_item_name", item, [](Item& i) { return i.name.c_str(); });
}
const char* libvlc_renderer_item_type(const libvlc_renderer_item_t* item) {
    fakevlc::Count("libvlc_renderer_item_type");
    return OnHeldItem("libvlc_renderer_item_type", item, [](Item& i) { return i.type.c_str(); });
}
const char* libvlc_renderer_item_icon_uri(const libvlc_renderer_item_t* item) {
    fakevlc::Count("libvlc_renderer_item_icon_uri");
    return OnHeldItem("libvlc_renderer_item_icon_uri", item, [](Item& i) { return i.iconURI.c_str(); });
}
int libvlc_renderer_item_flags(const libvlc_renderer_item_t* item) {
    fakevlc::Count("libvlc_renderer_item_flags");
    return OnHeldItem("libvlc_renderer_item_flags", item, [](Item& i) { return i.flags; });
}

// Keeps the item (NULL: local playback) for fakevlc_player_renderer.
int libvlc_media_player_set_renderer(libvlc_media_player_t*, libvlc_renderer_item_t* item) {
    fakevlc::Count("libvlc_media_player_set_renderer");
    if (item != nullptr) OnHeldItem("libvlc_media_player_set_renderer", item, [](Item&) { return 0; });
    {
        std::lock_guard<std::mutex> hold(gItemsLock);
        gPlayerRenderer = item;
    }
    return static_cast<int>(fakevlc::AnswerOf("libvlc_media_player_set_renderer").integer);
}

// Control functions (fakevlc_control.h).
EXPORT libvlc_renderer_item_t* fakevlc_new_renderer_item(const char* name, const char* type, const char* iconURI,
                                                         int flags) {
    auto* item = reinterpret_cast<libvlc_renderer_item_t*>(new char[16]);
    std::lock_guard<std::mutex> hold(gItemsLock);
    gItems[item] = Item{name, type, iconURI, flags, 1};
    return item;
}

EXPORT int64_t fakevlc_renderer_item_refs(const libvlc_renderer_item_t* item) {
    std::lock_guard<std::mutex> hold(gItemsLock);
    auto it = gItems.find(item);
    return it == gItems.end() ? -1 : it->second.refs;
}

EXPORT libvlc_renderer_item_t* fakevlc_player_renderer(void) {
    std::lock_guard<std::mutex> hold(gItemsLock);
    return gPlayerRenderer;
}

EXPORT libvlc_event_manager_t* fakevlc_renderer_event_manager(void) { return kRendererManager; }

// Fires ItemAdded or ItemDeleted from a new thread, as libvlc's discovery threads do.
EXPORT void fakevlc_fire_renderer_item(int type, libvlc_renderer_item_t* item) {
    libvlc_event_t event{};
    event.type = type;
    if (type == libvlc_RendererDiscovererItemAdded)
        event.u.renderer_discoverer_item_added.item = item;
    else
        event.u.renderer_discoverer_item_deleted.item = item;
    std::thread([&] { fakevlc_fire(kRendererManager, &event); }).join();
}

}  // extern "C"
