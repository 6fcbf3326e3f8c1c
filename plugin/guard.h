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

// A program writing a wrapper's Handle: the object written gains a libvlc
// reference and the one replaced gives its own back through letGo (called
// while the old handle is still in place), so no libvlc object is released
// more often than it was retained. Without a retain function only 0 can be
// written; anything else raises the missing-function exception for it.
// Answers whether the handle changed.
template <typename Object, typename LetGo>
bool WriteHandle(int64_t& handle, int64_t value, void (*retain)(Object*), const char* retainName, LetGo letGo) {
    if (value == handle) return false;
    if (value != 0) {
        if (!FunctionLoaded(reinterpret_cast<const void*>(retain), retainName)) return false;
        retain(reinterpret_cast<Object*>(value));
    }
    if (handle != 0) letGo();
    handle = value;
    return true;
}

// The usual letGo: release the handle's libvlc object when libvlc can.
template <typename Object>
void ReleaseHandle(int64_t handle, void (*release)(Object*)) {
    if (handle != 0 && release != nullptr) release(reinterpret_cast<Object*>(handle));
}
