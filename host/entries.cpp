// The resolver: every host entry the plug-in may ask for, by name. The
// services behind them live in one file each.
#include <cstring>

#include "host/emulator_internal.h"

namespace emu {

namespace {

double GetRBVersion() { return Host::Current()->options().version; }
void RegisterPluginVersion(int version) { Host::Current()->registeredVersion = version; }
RBBoolean InRuntime() { return 1; }

struct NamedEntry {
    const char* name;
    void* function;
};

#define ENTRY(name, fn) \
    { name, reinterpret_cast<void*>(fn) }
const NamedEntry kEntries[] = {
    ENTRY("REALGetRBVersion", GetRBVersion),
    ENTRY("RegisterPluginVersion", RegisterPluginVersion),
    ENTRY("REALinRuntime", InRuntime),
    ENTRY("PluginRegisterClass", RegisterClass),
    ENTRY("PluginNewInstance", PluginNewInstance),
    ENTRY("REALLockObject", LockObject),
    ENTRY("REALUnlockObject", UnlockObject),
    ENTRY("REALLockString", LockString),
    ENTRY("REALUnlockString", UnlockString),
    ENTRY("REALBuildString", BuildString),
    ENTRY("REALBuildStringWithEncoding", BuildStringWithEncoding),
    ENTRY("REALGetStringEncoding", GetStringEncoding),
    ENTRY("REALSetStringEncoding", SetStringEncoding),
    ENTRY("REALConvertString", ConvertString),
    ENTRY("StringGetCString", StringGetCString),
    ENTRY("REALLoadGlobalMethod", LoadGlobalMethod),
    ENTRY("PluginGetStringData", GetStringData),
    ENTRY("PluginDisposeStringData", DisposeStringData),
    ENTRY("RuntimeAddString", AddStrings),
    ENTRY("RuntimeRaiseException", RaiseException),
    ENTRY("REALSetPropValueString", SetPropValueString),
    ENTRY("REALSetPropValueInteger", SetPropValueInteger),
    ENTRY("REALGetPropValueInteger", GetPropValueInteger),
    ENTRY("REALGetPropValueBool", GetPropValueBool),
    ENTRY("REALGetPropValueString", GetPropValueString),
    ENTRY("REALLoadObjectMethod", LoadObjectMethod),
    ENTRY("PluginCallFunctionWithExceptionHandler", CallFunctionWithExceptionHandler),
    ENTRY("memoryBlockGetPtr", MemoryBlockGetPtr),
    ENTRY("memoryBlockGetSize", MemoryBlockGetSize),
    ENTRY("RuntimeArrayCreateSingleDimBoundedArray", CreateArray),
    ENTRY("RuntimeUBound", UBound),
    ENTRY("RuntimeDirectReadStringArray", DirectReadStringArray),
    ENTRY("PluginObjectArrayInsertProc", ObjectArrayInsertProc),
    ENTRY("PluginIntegerArrayGetProc", IntegerArrayGetProc),
    ENTRY("PluginIntegerArraySetProc", IntegerArraySetProc),
    ENTRY("REALLockPictureDescription", LockPictureDescription),
    ENTRY("unlockPictureDescription", UnlockPictureDescription),
    ENTRY("REALPictureClearCache", PictureClearCache),
    ENTRY("newPicture", NewPictureEntry),
    ENTRY("PluginPictureGetType", PictureGetType),
    ENTRY("REALBuildPictureFromBuffer", BuildPictureFromBuffer),
    ENTRY("pluginObjectType", ObjectType),
    ENTRY("GetEventInstance", GetEventInstance),
};
#undef ENTRY

}  // namespace

void* ResolveEntry(const char* name) {
    Host* host = Host::Current();
    if (host == nullptr || name == nullptr) return nullptr;
    if (host->options().hidden.count(name)) {
        host->hiddenAsked.insert(name);
        return nullptr;
    }
    for (const NamedEntry& entry : kEntries)
        if (strcmp(entry.name, name) == 0) return entry.function;
    return nullptr;
}

}  // namespace emu
