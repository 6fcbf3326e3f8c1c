// Loading libvlc at run time and the library-level shared methods of
// VLCInstanceQRV.
#pragma once

#include "plugin/host_abi.h"

// libvlc keeps its per-thread error text under a thread key that only its first
// libvlc_new creates; reading or clearing it before then touches another
// library's key. Set once an instance has been created.
extern bool gLibvlcErrorStateReady;

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
