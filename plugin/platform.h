// The only place where Linux and macOS differ. Each function has one
// implementation per platform (platform_linux.cpp, platform_apple.mm).
#pragma once

#include <cstdint>

#include "plugin/host_abi.h"

// Writes one trace line, adding the line break, in a single write.
void PlatformWriteTraceLine(const char* line);

// True on the process's main thread (the host's event loop thread).
bool PlatformIsMainThread();

// Queues task(data) to run later on the main thread, in posting order, never
// inline on the posting thread.
using MainThreadTask = void (*)(void* data);
void PlatformPostToMainThread(MainThreadTask task, void* data);

// A folder item's POSIX path as decomposed (NFD) UTF-8, newly allocated with
// malloc, or null. nativePath is the item's "NativePath" (hosts from 2013.0 on)
// or its "URLPath" (older hosts) as UTF-8.
char* PlatformDecomposedPath(const char* pathText, bool isURL);
