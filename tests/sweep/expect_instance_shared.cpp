// VLCInstanceQRV's library-level shared members, its Handle field, and the
// classes without members of their own.
#include "tests/sweep/sweep.h"

using namespace sweep;

SWEEP_CLASS(InstanceShared) {
    ClassSweep c{"VLCInstanceQRV"};
    std::vector<Expect>& m = c.members;
    m.push_back(FieldWithSetter("Handle", m));
    // Shared members need no instance: only a missing libvlc function is reported.
    for (auto [declaration, entry] :
         std::initializer_list<std::pair<const char*, const char*>>{{"Clock as Int64", "_libvlc_clock"},
                                                                    {"GetVersion as string", "_libvlc_get_version"},
                                                                    {"GetCompiler as string", "_libvlc_get_compiler"},
                                                                    {"GetChangeset as string", "_libvlc_get_changeset"},
                                                                    {"ErrorMessage as string", "_libvlc_errmsg"},
                                                                    {"ClearError", "_libvlc_clearerr"}})
        m.push_back(Custom(std::string("shared ") + declaration, Missing(entry), Nothing()));
    for (const char* declaration :
         {"LoadLibrary(path as folderitem) as boolean", "LoadLibrary(path as string) as boolean",
          "getenv(name as string) as string", "setlocale(category as integer, locale as string) as string",
          "GetLoadError as string"})
        m.push_back(Silent(std::string("shared ") + declaration));
    m.push_back(Silent("shared get Debugging"));
    m.push_back(Silent("shared set Debugging"));
    return c;
}

SWEEP_CLASS(ExceptionClasses) { return ClassSweep{"VLCMissingFunctionExceptionQRV"}; }
SWEEP_CLASS(NotInitializedClass) { return ClassSweep{"VLCNotInitializedExceptionQRV"}; }
