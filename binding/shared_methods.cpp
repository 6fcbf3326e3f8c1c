// Shared methods of VLCInstanceQRV that concern libvlc as a whole.
#include <clocale>
#include <cstdlib>

#include "binding/library.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/text.h"

namespace {

// Version, compiler, changeset and error texts: ASCII, not freed.
template <typename Getter>
REALstring TextFromLibvlc(Getter getter) {
    const char* text = getter();
    return text != nullptr ? BuildStringASCII(text) : nullptr;
}

}  // namespace

int64_t gLiveInstances = 0;

int64_t myclock() {
    TRACE("myclock");
    if (!VLC_NEED(libvlc_clock)) return 0;
    return vlcfn::_libvlc_clock();
}

REALstring get_version() {
    TRACE("get_version");
    if (!VLC_NEED(libvlc_get_version)) return nullptr;
    return TextFromLibvlc(vlcfn::_libvlc_get_version);
}

REALstring get_compiler() {
    TRACE("get_compiler");
    if (!VLC_NEED(libvlc_get_compiler)) return nullptr;
    return TextFromLibvlc(vlcfn::_libvlc_get_compiler);
}

REALstring get_changeset() {
    TRACE("get_changeset");
    if (!VLC_NEED(libvlc_get_changeset)) return nullptr;
    return TextFromLibvlc(vlcfn::_libvlc_get_changeset);
}

REALstring errmsg() {
    TRACE("errmsg");
    if (!VLC_NEED(libvlc_errmsg)) return nullptr;
    if (gLiveInstances < 1) return nullptr;  // libvlc has no error text now
    return TextFromLibvlc(vlcfn::_libvlc_errmsg);
}

void clearerrRB() {
    TRACE("clearerrRB");
    if (!VLC_NEED(libvlc_clearerr)) return;
    if (gLiveInstances < 1) return;
    vlcfn::_libvlc_clearerr();
}

REALstring rbgetenv(REALstring name) {
    rbText text(name);
    const char* value = getenv(text.GetUTF8());
    if (value == nullptr) return nullptr;
    // An empty value is still a value: answer a real (empty) string, not nil.
    if (*value == 0) return BuildWithEncoding("", 0, kEncodingASCII);
    return BuildStringASCII(value);
}

REALstring rbsetlocale(RBInteger category, REALstring locale) {
    rbText text(locale);
    const char* result = setlocale(static_cast<int>(category), text.GetUTF8());
    return result != nullptr ? BuildStringASCII(result) : nullptr;
}

REALstring GetLoadError() {
    if (gLoadError == nullptr) return nullptr;
    REALLockString(gLoadError);
    return gLoadError;
}

RBBoolean getDebugging() { return DebuggingEnabled; }

void setDebugging(RBBoolean value) { DebuggingEnabled = value != 0 ? 1 : 0; }
