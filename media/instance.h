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
