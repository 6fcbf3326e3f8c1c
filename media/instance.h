// VLCInstanceQRV: owns one libvlc instance.
#pragma once

#include <cstdint>
#include <cstdio>

#include "plugin/registration.h"

struct InstanceData {
    int64_t handle;          // libvlc_instance_t*
    REALfolderItem logFile;  // kept by SetLogFile, unlocked by ClearLog and the destructor
    FILE* logStream;
};

inline InstanceData& InstanceOf(REALobject object) { return DataOf<InstanceData>(object, VLCInstanceQRVClass); }

struct libvlc_instance_t;

// The instance argument of the constructors that keep it (media list, list
// player, discoverer, library): nil raises "vlc parameter is nil" and keeps
// nothing; an uninitialised instance raises the same yet is kept, locked, in
// `held`. Answers the libvlc instance to create from, or null.
libvlc_instance_t* KeepInstanceArgument(REALobject vlc, REALobject& held);
