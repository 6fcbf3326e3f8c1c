// Binds the libvlc functions by name from a library the host program names.
// The handle is never kept or closed; every load replaces the whole table.
#include <dlfcn.h>

#include <cstdlib>

#include "binding/library.h"
#include "binding/vlc_table.h"
#include "plugin/host_entries.h"
#include "plugin/memory.h"
#include "plugin/text.h"
#include "plugin/trace.h"

REALstring gLoadError = nullptr;

namespace {

void ClearLoadError() {
    if (gLoadError != nullptr) REALUnlockString(gLoadError);
    gLoadError = nullptr;
}

// Keeps the loader's pending message (or nothing) as the load error.
void StoreLoaderError() {
    ClearLoadError();
    const char* message = dlerror();
    if (message != nullptr) gLoadError = BuildStringASCII(message);
    if (DebuggingEnabled == 1) {
        rbText text(gLoadError);
        LogMessageX("%s%s %p: %s", kTracePrefix, "LoadError", static_cast<void*>(gLoadError), text.GetUTF8());
    }
}

void BindAll(void* library) {
    for (size_t i = 0; i < vlcfn::kEntryCount; ++i) {
        const vlcfn::Entry& entry = vlcfn::kEntries[i];
        *entry.slot = dlsym(library, entry.name);
        if (*entry.slot == nullptr) {
            TRACE(entry.name);
            TRACE("ReportError");
            StoreLoaderError();
        }
    }
}

void OpenAndBind(const char* path) {
    void* library = path != nullptr ? dlopen(path, RTLD_NOW) : nullptr;
    if (library == nullptr) {
        TRACE("ReportError");
        StoreLoaderError();
        return;
    }
    BindAll(library);
}

// The result looks at the table as it stands, not at this call's open.
RBBoolean TableUsable() {
    if (vlcfn::_libvlc_errmsg == nullptr) {
        TRACE("libvlc_errmsg missing");
        return false;
    }
    if (vlcfn::_libvlc_new == nullptr) {
        TRACE("libvlc_new missing");
        return false;
    }
    bool ok = vlcfn::_libvlc_release != nullptr;
    TRACE(ok ? "Library okay." : "libvlc_release missing");
    return ok;
}

}  // namespace

RBBoolean LoadLibraryPath(REALfolderItem path) {
    TRACE("LoadLibraryPath");
    ClearLoadError();
    if (path != nullptr) {
        dlerror();
        char* unixPath = UnixFilePathUTF8(path);
        OpenAndBind(unixPath);
        free(unixPath);
    }
    return TableUsable();
}

RBBoolean LoadLibraryString(REALstring path) {
    TRACE("LoadLibraryString");
    ClearLoadError();
    if (path != nullptr) {
        dlerror();
        rbText text(path);
        OpenAndBind(text.GetUTF8());
    }
    return TableUsable();
}
