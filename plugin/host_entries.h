// The host's services, reached by name through the resolver given to
// REALPluginMain. Each wrapper asks the resolver on first use and caches the
// answer; a missing entry makes the wrapper do nothing and return zero.
#pragma once

#include "plugin/host_abi.h"

extern ResolverFn gResolver;
// Hands over the resolver; every entry is asked again from then on.
void SetHostResolver(ResolverFn resolver);

// Function types the host answers for some entries.
using LenBFn = RBInteger (*)(REALstring);
using ObjectArrayInsertFn = void (*)(REALarray, RBInteger index, REALobject value);
using IntegerArrayGetFn = RBInteger (*)(REALarray, RBInteger index);
using IntegerArraySetFn = void (*)(REALarray, RBInteger value, RBInteger index);  // value first

void REALinRuntime();
RBInteger REALRegisterClass(REALclassDefinition* record);
REALobject REALnewInstance(const char* className);
void REALLockObject(REALobject object);
void REALUnlockObject(REALobject object);
void REALLockString(REALstring string);
void REALUnlockString(REALstring string);
// Give back the reference a field holds, if any, and clear the field.
inline void ReleaseField(REALobject& field) {
    if (field != nullptr) REALUnlockObject(field);
    field = nullptr;
}
inline void ReleaseField(REALstring& field) {
    if (field != nullptr) REALUnlockString(field);
    field = nullptr;
}
REALstring originalREALBuildString(const char* bytes, int length);
REALstring REALBuildStringWithEncoding(const char* bytes, int length, uint32_t encoding);
// Answers kEncodingUnknown when the host lacks the entry (and says so in *available).
uint32_t REALGetStringEncoding(REALstring string, bool* available = nullptr);
void REALSetStringEncoding(REALstring string, uint32_t encoding);
REALstring REALConvertString(REALstring string, uint32_t encoding);
void* REALGetStringContents(REALstring string, RBInteger* length);  // bytes and LenB length
void* REALLoadFrameworkMethod(const char* module, const char* prototype);
RBBoolean REALGetStringData(REALstring string, uint32_t encoding, REALstringData* out);
void REALDisposeStringData(REALstringData* data);
void* REALGetStringCFString(REALstring string, RBBoolean stripAmpersands);
REALstring REALAddStrings(REALstring a, REALstring b);
void REALRaiseException(REALobject exception);
RBBoolean REALSetPropValueString(REALobject object, const char* name, REALstring value);
RBBoolean REALSetPropValueInteger(REALobject object, const char* name, RBInteger value);
RBBoolean REALGetPropValueInteger(REALobject object, const char* name, RBInteger* out);
RBBoolean REALGetPropValueBoolean(REALobject object, const char* name, RBBoolean* out);
long REALGetPropValueString(REALobject object, const char* name, REALstring* out);
void* REALLoadObjectMethod(REALobject object, const char* prototype);
REALobject REALCallFunctionWithExceptionHandler(void (*fn)(void*), void* data);
void* REALMemoryBlockGetPtr(REALmemoryBlock block);
RBInteger REALMemoryBlockGetSize(REALmemoryBlock block);
REALarray REALCreateArray(int elementType, RBInteger upperBound);
RBInteger REALGetArrayUBound(void* array);
REALstring REALGetArrayString(REALarray array, RBInteger index);
void REALInsertArrayValueObject(REALarray array, RBInteger index, REALobject value);
RBInteger REALGetArrayValueInteger(REALarray array, RBInteger index);
void REALSetArrayValueInteger(REALarray array, RBInteger index, RBInteger value);
RBBoolean REALLockPictureDescription(REALpicture picture, REALpictureDescription* out, uint32_t pictureType);
void REALUnlockPictureDescription(REALpicture picture);
void REALPictureClearCache(REALpicture picture);
REALpicture REALNewPicture(RBInteger width, RBInteger height, RBInteger depth);
RBInteger REALGetPictureType(REALpicture picture);
REALpicture REALBuildPictureFromBuffer(uint32_t width, uint32_t height, uint32_t pixelType, void* buffer,
                                       uint32_t rowBytes);
REALclassRef REALGetClassRef(const char* className);
void* REALGetEventInstance(REALobject object, RBInteger eventToken);
