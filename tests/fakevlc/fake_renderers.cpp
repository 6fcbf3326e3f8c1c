// The fake libvlc's renderer discoverers and items. Items are reference counted
// as libvlc's are, and strictly: a hold or release of an item nobody holds, or
// reading one after its last release, stops the process as libvlc would crash.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

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

// Runs `f` on a held item under the lock; stops for an unknown or released one.
template <typename F>
auto OnHeldItem(const char* function, const libvlc_renderer_item_t* item, F f) {
    std::lock_guard<std::mutex> hold(gItemsLock);
    auto it = gItems.find(item);
    if (it == gItems.end() || it->second.refs <= 0) {
        fprintf(stderr, "fake libvlc: %s of a renderer item nobody holds\n", function);
        abort();
    }
    return f(it->second);
}

}  // namespace

extern "C" {

libvlc_renderer_discoverer_t* libvlc_renderer_discoverer_new(libvlc_instance_t*, const char*) {
    static char storage[16];
    bool refused = fakevlc::Respond<int64_t>("libvlc_renderer_discoverer_new") == -1;
    return refused ? nullptr : reinterpret_cast<libvlc_renderer_discoverer_t*>(storage);
}

// The fake's one event manager (fakevlc_event_manager).
libvlc_event_manager_t* libvlc_renderer_discoverer_event_manager(libvlc_renderer_discoverer_t*) {
    bool none = fakevlc::Respond<int64_t>("libvlc_renderer_discoverer_event_manager") == -1;
    return none ? nullptr : fakevlc_event_manager();
}

// Plain reference counts, which libvlc allows inside its event callbacks: not counted as calls.
libvlc_renderer_item_t* libvlc_renderer_item_hold(libvlc_renderer_item_t* item) {
    OnHeldItem("libvlc_renderer_item_hold", item, [](Item& i) { return ++i.refs; });
    return item;
}
void libvlc_renderer_item_release(libvlc_renderer_item_t* item) {
    OnHeldItem("libvlc_renderer_item_release", item, [](Item& i) { return --i.refs; });
}

#define FAKE_ITEM_GETTER(Type, function, field)                                                    \
    Type libvlc_renderer_item_##function(const libvlc_renderer_item_t* item) {                     \
        fakevlc::Count("libvlc_renderer_item_" #function);                                         \
        return OnHeldItem("libvlc_renderer_item_" #function, item, [](Item& i) { return field; }); \
    }
FAKE_ITEM_GETTER(const char*, name, i.name.c_str())
FAKE_ITEM_GETTER(const char*, type, i.type.c_str())
FAKE_ITEM_GETTER(const char*, icon_uri, i.iconURI.c_str())
FAKE_ITEM_GETTER(int, flags, i.flags)
#undef FAKE_ITEM_GETTER

// Keeps the item (NULL: local playback) for fakevlc_player_renderer.
int libvlc_media_player_set_renderer(libvlc_media_player_t*, libvlc_renderer_item_t* item) {
    if (item != nullptr) OnHeldItem("libvlc_media_player_set_renderer", item, [](Item&) { return 0; });
    {
        std::lock_guard<std::mutex> hold(gItemsLock);
        gPlayerRenderer = item;
    }
    return fakevlc::Respond<int>("libvlc_media_player_set_renderer");
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

}  // extern "C"
