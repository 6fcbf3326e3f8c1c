// Loading libvlc at run time and the library-level shared methods of
// VLCInstanceQRV.
#pragma once

#include <cstddef>

#include "plugin/host_abi.h"

// libvlc keeps its per-thread error text under a thread key that exists only
// while at least one instance does; reading or clearing it otherwise touches
// another library's key. Counts the instances created and not yet released.
extern int64_t gLiveInstances;

// Plug-in objects holding a libvlc object or having callbacks registered with
// libvlc (noted where they take the first, forgotten in their destructors):
// LoadLibrary refuses another library while any lives. Noting twice is noting once.
void NoteLibvlcHolder(REALobject object);
void ForgetLibvlcHolder(REALobject object);
size_t LiveLibvlcHolders();

// The loader's last error text (one reference owned here), or null.
extern REALstring gLoadError;

RBBoolean LoadLibraryPath(REALfolderItem path);
RBBoolean LoadLibraryString(REALstring path);

int64_t myclock();
REALstring rbgetenv(REALstring name);
REALstring rbsetlocale(RBInteger category, REALstring locale);
REALstring GetLoadError();
REALstring get_version();
REALstring get_compiler();
REALstring get_changeset();
REALstring errmsg();
void clearerrRB();
RBBoolean getDebugging();
void setDebugging(RBBoolean value);
