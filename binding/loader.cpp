// Binds the libvlc functions by name from a library the host program names.
// The handle is never closed; every load replaces the whole table, binding
// only the entries whose contract holds for the library's major.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_set>

#include "binding/library.h"
#include "binding/vlc_table.h"
#include "plugin/host_entries.h"
#include "plugin/memory.h"
#include "plugin/text.h"
#include "plugin/trace.h"

REALstring gLoadError = nullptr;

namespace {

// The majors functions.def describes; 1.x and older took other parameters throughout.
constexpr int kFirstMajor = 2, kLastMajor = 4;

void ClearLoadError() {
    if (gLoadError != nullptr) REALUnlockString(gLoadError);
    gLoadError = nullptr;
}

void SetLoadError(const char* message) {
    ClearLoadError();
    if (message != nullptr) gLoadError = BuildStringASCII(message);
    if (DebuggingEnabled == 1) {
        rbText text(gLoadError);
        LogMessageX("%s%s %p: %s", kTracePrefix, "LoadError", static_cast<void*>(gLoadError), text.GetUTF8());
    }
}

// Keeps the loader's pending message (or nothing) as the load error.
void StoreLoaderError() { SetLoadError(dlerror()); }

// What the library says of itself, read before anything else is bound; empty
// when it has no libvlc_get_version or it answers nothing.
std::string VersionOf(void* library) {
    auto getVersion = reinterpret_cast<vlcfn::libvlc_get_version_t>(dlsym(library, "libvlc_get_version"));
    const char* version = getVersion != nullptr ? getVersion() : nullptr;
    return version != nullptr ? std::string(version, strnlen(version, 200)) : std::string();
}

// A major functions.def does not describe binds nothing but the version text,
// which every major reads the same way.
void BindNothingFor(void* library, const std::string& version, int major) {
    for (size_t i = 0; i < vlcfn::kEntryCount; ++i) *vlcfn::kEntries[i].slot = nullptr;
    vlcfn::_libvlc_get_version = reinterpret_cast<vlcfn::libvlc_get_version_t>(dlsym(library, "libvlc_get_version"));
    std::string why = version.empty() ? std::string("the library reports no libvlc version")
                                      : "libvlc \"" + version + "\" is of major " + std::to_string(major);
    why += ", which this plug-in does not serve (it serves 2, 3 and 4): no function bound";
    TRACE("UnknownMajor");
    SetLoadError(why.c_str());
}

void BindAll(void* library, const std::string& version, int major) {
    size_t leftEmpty = 0;
    for (size_t i = 0; i < vlcfn::kEntryCount; ++i) {
        const vlcfn::Entry& entry = vlcfn::kEntries[i];
        *entry.slot = dlsym(library, entry.name);
        if (*entry.slot == nullptr) {
            TRACE(entry.name);
            TRACE("ReportError");
            StoreLoaderError();
        } else if (!vlcfn::HoldsFor(entry.majors, major)) {
            *entry.slot = nullptr;
            ++leftEmpty;
            TRACE(entry.name);
            TRACE("NotForThisMajor");
        }
    }
    if (leftEmpty == 0) return;
    char why[300];
    snprintf(why, sizeof why,
             "libvlc \"%s\" is of major %d: %zu functions whose contract differs there are left unbound",
             version.c_str(), major, leftEmpty);
    SetLoadError(why);
}

// The library the table was last bound from (dlopen answers the same handle
// for the same library, and a second load of it binds the same addresses).
void* gBoundLibrary = nullptr;

// Objects of the bound library still call it through the table: another
// library's table would release them through the wrong functions. (Before
// any library is bound, no object can hold anything of one.)
bool RefusedWhileObjectsLive(void* library) {
    size_t live = LiveLibvlcHolders();
    if (live == 0 || gBoundLibrary == nullptr || library == gBoundLibrary) return false;
    char why[200];
    snprintf(why, sizeof why, "another libvlc is not loaded while %zu objects of the loaded one live", live);
    TRACE("ObjectsLive");
    SetLoadError(why);
    return true;
}

// Answers false, keeping the table, when the load is refused.
bool OpenAndBind(const char* path) {
    void* library = path != nullptr ? dlopen(path, RTLD_NOW) : nullptr;
    if (library == nullptr) {
        TRACE("ReportError");
        StoreLoaderError();
        return true;
    }
    if (RefusedWhileObjectsLive(library)) return false;
    gBoundLibrary = library;
    std::string version = VersionOf(library);
    int major = vlcfn::MajorOfVersion(version.c_str());
    TRACEF("%d", "major", major);
    if (major < kFirstMajor || major > kLastMajor)
        BindNothingFor(library, version, major);
    else
        BindAll(library, version, major);
    return true;
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

std::mutex gHoldersLock;
std::unordered_set<REALobject>& gHolders = *new std::unordered_set<REALobject>;  // outlives exit-time destructors

}  // namespace

void NoteLibvlcHolder(REALobject object) {
    std::lock_guard<std::mutex> hold(gHoldersLock);
    if (object != nullptr) gHolders.insert(object);
}

void ForgetLibvlcHolder(REALobject object) {
    std::lock_guard<std::mutex> hold(gHoldersLock);
    gHolders.erase(object);
}

size_t LiveLibvlcHolders() {
    std::lock_guard<std::mutex> hold(gHoldersLock);
    return gHolders.size();
}

RBBoolean LoadLibraryPath(REALfolderItem path) {
    TRACE("LoadLibraryPath");
    ClearLoadError();
    if (path != nullptr) {
        dlerror();
        char* unixPath = UnixFilePathUTF8(path);
        bool bound = OpenAndBind(unixPath);
        free(unixPath);
        if (!bound) return false;
    }
    return TableUsable();
}

RBBoolean LoadLibraryString(REALstring path) {
    TRACE("LoadLibraryString");
    ClearLoadError();
    if (path != nullptr) {
        dlerror();
        rbText text(path);
        if (!OpenAndBind(text.GetUTF8())) return false;
    }
    return TableUsable();
}
