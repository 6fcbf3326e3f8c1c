#include "plugin/host_entries.h"

#include <atomic>

ResolverFn gResolver = nullptr;

namespace {

// Bumped whenever a resolver is handed over: answers kept from an earlier
// resolver are asked again.
std::atomic<unsigned> gResolverGeneration{1};

// One entry's answer and the resolver generation it came from.
struct EntryCache {
    std::atomic<void*> function{nullptr};
    std::atomic<unsigned> generation{0};
};

// Looks the entry up on first use and keeps the answer. A null answer is not
// kept, so the next use asks the resolver again.
template <typename Fn, typename Lookup>
Fn BindWith(EntryCache& cache, Lookup lookup) {
    unsigned now = gResolverGeneration.load(std::memory_order_acquire);
    void* function = cache.function.load(std::memory_order_acquire);
    if (cache.generation.load(std::memory_order_acquire) != now || function == nullptr) {
        function = lookup();
        cache.function.store(function, std::memory_order_release);
        cache.generation.store(now, std::memory_order_release);
    }
    return reinterpret_cast<Fn>(function);
}

template <typename Fn>
Fn Bind(EntryCache& cache, const char* entryName) {
    return BindWith<Fn>(cache, [entryName] { return gResolver != nullptr ? gResolver(entryName) : nullptr; });
}

}  // namespace

void SetHostResolver(ResolverFn resolver) {
    gResolver = resolver;
    gResolverGeneration.fetch_add(1, std::memory_order_acq_rel);
}

// One wrapper per host entry: bind, then call through, or return the zero value.
#define HOST_ENTRY(Ret, wrapper, cache, entryName, Params, Args) \
    static EntryCache cache;                                     \
    Ret wrapper Params {                                         \
        using Result = Ret;                                      \
        using Fn = Result(*) Params;                             \
        Fn fn = Bind<Fn>(cache, entryName);                      \
        if (fn == nullptr) return Result();                      \
        return fn Args;                                          \
    }

void REALinRuntime() {
    static EntryCache pInRuntime;
    using Fn = RBBoolean (*)();
    if (Fn fn = Bind<Fn>(pInRuntime, "REALinRuntime")) fn();
}

RBInteger REALRegisterClass(REALclassDefinition* record) {
    static EntryCache pRegisterClass;
    using Fn = void (*)(REALclassDefinition*);
    Fn fn = Bind<Fn>(pRegisterClass, "PluginRegisterClass");
    if (fn == nullptr) return 0;
    fn(record);
    return 1;
}

HOST_ENTRY(REALobject, REALnewInstance, pNewInstance, "PluginNewInstance", (const char* className), (className))
HOST_ENTRY(void, REALLockObject, pLockObject, "REALLockObject", (REALobject object), (object))
HOST_ENTRY(void, REALUnlockObject, pUnlockObject, "REALUnlockObject", (REALobject object), (object))
HOST_ENTRY(void, REALLockString, pLockString, "REALLockString", (REALstring string), (string))
HOST_ENTRY(void, REALUnlockString, pUnlockString, "REALUnlockString", (REALstring string), (string))
HOST_ENTRY(REALstring, originalREALBuildString, pBuildString, "REALBuildString", (const char* bytes, int length),
           (bytes, length))
HOST_ENTRY(REALstring, REALBuildStringWithEncoding, pBuildStringWithEncoding, "REALBuildStringWithEncoding",
           (const char* bytes, int length, uint32_t encoding), (bytes, length, encoding))

uint32_t REALGetStringEncoding(REALstring string, bool* available) {
    static EntryCache pGetStringEncoding;
    using Fn = uint32_t (*)(REALstring);
    Fn fn = Bind<Fn>(pGetStringEncoding, "REALGetStringEncoding");
    if (available != nullptr) *available = fn != nullptr;
    return fn != nullptr ? fn(string) : kEncodingUnknown;
}
HOST_ENTRY(void, REALSetStringEncoding, pSetStringEncoding, "REALSetStringEncoding",
           (REALstring string, uint32_t encoding), (string, encoding))
HOST_ENTRY(REALstring, REALConvertString, pConvertString, "REALConvertString", (REALstring string, uint32_t encoding),
           (string, encoding))
HOST_ENTRY(void*, REALLoadFrameworkMethod, pLoadGlobalMethod, "REALLoadGlobalMethod",
           (const char* module, const char* prototype), (module, prototype))
HOST_ENTRY(RBBoolean, REALGetStringData, pGetStringData, "PluginGetStringData",
           (REALstring string, uint32_t encoding, REALstringData* out), (string, encoding, out))
HOST_ENTRY(void, REALDisposeStringData, pDisposeStringData, "PluginDisposeStringData", (REALstringData * data), (data))
HOST_ENTRY(void*, REALGetStringCFString, pGetStringCFString, "REALGetStringCFString",
           (REALstring string, RBBoolean stripAmpersands), (string, stripAmpersands))
HOST_ENTRY(REALstring, REALAddStrings, pAddStrings, "RuntimeAddString", (REALstring a, REALstring b), (a, b))
HOST_ENTRY(void, REALRaiseException, pRaiseException, "RuntimeRaiseException", (REALobject exception), (exception))
HOST_ENTRY(RBBoolean, REALSetPropValueString, pSetPropValueString, "REALSetPropValueString",
           (REALobject object, const char* name, REALstring value), (object, name, value))
HOST_ENTRY(RBBoolean, REALSetPropValueInteger, pSetPropValueInteger, "REALSetPropValueInteger",
           (REALobject object, const char* name, RBInteger value), (object, name, value))
HOST_ENTRY(RBBoolean, REALGetPropValueInteger, pGetPropValueInteger, "REALGetPropValueInteger",
           (REALobject object, const char* name, RBInteger* out), (object, name, out))
HOST_ENTRY(RBBoolean, REALGetPropValueBoolean, pGetPropValueBool, "REALGetPropValueBool",
           (REALobject object, const char* name, RBBoolean* out), (object, name, out))
HOST_ENTRY(long, REALGetPropValueString, pGetPropValueString, "REALGetPropValueString",
           (REALobject object, const char* name, REALstring* out), (object, name, out))
HOST_ENTRY(void*, REALLoadObjectMethod, pLoadObjectMethod, "REALLoadObjectMethod",
           (REALobject object, const char* prototype), (object, prototype))

// Hosts without the entry get a direct call (and nothing is caught).
REALobject REALCallFunctionWithExceptionHandler(void (*function)(void*), void* data) {
    static EntryCache pCallFunctionWithExceptionHandler;
    using Fn = REALobject (*)(void (*)(void*), void*);
    Fn fn = Bind<Fn>(pCallFunctionWithExceptionHandler, "PluginCallFunctionWithExceptionHandler");
    if (fn != nullptr) return fn(function, data);
    function(data);
    return nullptr;
}
HOST_ENTRY(void*, REALMemoryBlockGetPtr, pMemoryBlockGetPtr, "memoryBlockGetPtr", (REALmemoryBlock block), (block))
HOST_ENTRY(RBInteger, REALMemoryBlockGetSize, pMemoryBlockGetSize, "memoryBlockGetSize", (REALmemoryBlock block),
           (block))
HOST_ENTRY(REALarray, REALCreateArray, pCreateArray, "RuntimeArrayCreateSingleDimBoundedArray",
           (int elementType, RBInteger upperBound), (elementType, upperBound))
HOST_ENTRY(RBInteger, REALGetArrayUBound, pGetArrayUBound, "RuntimeUBound", (void* array), (array))
HOST_ENTRY(REALstring, REALGetArrayString, pGetArrayString, "RuntimeDirectReadStringArray",
           (REALarray array, RBInteger index), (array, index))
HOST_ENTRY(RBBoolean, REALLockPictureDescription, pLockPictureDescription, "REALLockPictureDescription",
           (REALpicture picture, REALpictureDescription* out, uint32_t pictureType), (picture, out, pictureType))
HOST_ENTRY(void, REALUnlockPictureDescription, pUnlockPictureDescription, "unlockPictureDescription",
           (REALpicture picture), (picture))
HOST_ENTRY(void, REALPictureClearCache, pPictureClearCache, "REALPictureClearCache", (REALpicture picture), (picture))
HOST_ENTRY(REALpicture, REALNewPicture, pNewPicture, "newPicture", (RBInteger width, RBInteger height, RBInteger depth),
           (width, height, depth))
HOST_ENTRY(RBInteger, REALGetPictureType, pGetPictureType, "PluginPictureGetType", (REALpicture picture), (picture))
HOST_ENTRY(REALpicture, REALBuildPictureFromBuffer, pBuildPictureFromBuffer, "REALBuildPictureFromBuffer",
           (uint32_t width, uint32_t height, uint32_t pixelType, void* buffer, uint32_t rowBytes),
           (width, height, pixelType, buffer, rowBytes))
HOST_ENTRY(REALclassRef, REALGetClassRef, pGetClassRef, "pluginObjectType", (const char* className), (className))
HOST_ENTRY(void*, REALGetEventInstance, pGetEventInstance, "GetEventInstance",
           (REALobject object, RBInteger eventToken), (object, eventToken))

// The byte pointer comes from "StringGetCString", the length from the host's
// global function "LenB".
void* REALGetStringContents(REALstring string, RBInteger* length) {
    static EntryCache pCString;
    static EntryCache pLenB;
    using CStringFn = void* (*)(REALstring);
    if (length != nullptr) {
        *length = 0;
        auto lenB =
            BindWith<LenBFn>(pLenB, [] { return REALLoadFrameworkMethod(nullptr, "LenB( s as string ) as integer"); });
        if (lenB != nullptr) *length = lenB(string);
    }
    CStringFn fn = Bind<CStringFn>(pCString, "StringGetCString");
    return fn != nullptr ? fn(string) : nullptr;
}

// The array accessors are answered per array by the host.
void REALInsertArrayValueObject(REALarray array, RBInteger index, REALobject value) {
    static EntryCache pInsertProc;
    using ProcFn = void* (*)(REALarray);
    ProcFn proc = Bind<ProcFn>(pInsertProc, "PluginObjectArrayInsertProc");
    if (proc == nullptr) return;
    if (auto insert = reinterpret_cast<ObjectArrayInsertFn>(proc(array))) insert(array, index, value);
}

RBInteger REALGetArrayValueInteger(REALarray array, RBInteger index) {
    static EntryCache pGetProc;
    using ProcFn = void* (*)(REALarray);
    ProcFn proc = Bind<ProcFn>(pGetProc, "PluginIntegerArrayGetProc");
    if (proc == nullptr) return 0;
    auto get = reinterpret_cast<IntegerArrayGetFn>(proc(array));
    return get != nullptr ? get(array, index) : 0;
}

void REALSetArrayValueInteger(REALarray array, RBInteger index, RBInteger value) {
    static EntryCache pSetProc;
    using ProcFn = void* (*)(REALarray);
    ProcFn proc = Bind<ProcFn>(pSetProc, "PluginIntegerArraySetProc");
    if (proc == nullptr) return;
    if (auto set = reinterpret_cast<IntegerArraySetFn>(proc(array))) set(array, value, index);
}
