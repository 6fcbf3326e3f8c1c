// The opening checks of a wrapper: handle set, trace, libvlc function loaded.
// Classes run them in different orders; each GUARD_ macro spells its order in
// its name, so a wrapper shows the order it uses.
#pragma once

#include "binding/vlc_table.h"
#include "plugin/exceptions.h"
#include "plugin/host_entries.h"
#include "plugin/trace.h"

inline bool FunctionLoaded(const void* entry, const char* entryName) {
    if (entry != nullptr) return true;
    RaiseFunctionNotAvailableException(entryName);
    return false;
}

// libvlc's Booleans are read from the low byte of its int.
inline RBBoolean LowByte(int value) { return static_cast<uint8_t>(value) != 0; }

inline bool HandleReady(int64_t handle) {
    if (handle != 0) return true;
    RaiseNotInitializedException();
    return false;
}

// True when libvlc's `fn` is bound; otherwise raises the missing-function
// exception quoting "_fn".
#define VLC_NEED(fn) FunctionLoaded(reinterpret_cast<const void*>(vlcfn::_##fn), "_" #fn)

// Handle, trace, function (media list, most media getters).
#define GUARD_HTF(handle, traceName, fn, zero) \
    if (!HandleReady(handle)) return zero;     \
    TRACE(traceName);                          \
    if (!VLC_NEED(fn)) return zero

// Trace, function, handle (player, list player, instance, equalizer).
#define GUARD_TFH(handle, traceName, fn, zero) \
    TRACE(traceName);                          \
    if (!VLC_NEED(fn)) return zero;            \
    if (!HandleReady(handle)) return zero

// The destructor of a wrapper owning one libvlc reference and holding its
// instance: release (when libvlc has the function), clear the handle, unlock VLC.
template <typename Object>
void ReleaseHandleAndInstance(int64_t& handle, void (*release)(Object*), REALobject& vlc) {
    if (handle != 0 && release != nullptr) release(reinterpret_cast<Object*>(handle));
    handle = 0;
    ReleaseField(vlc);
}
