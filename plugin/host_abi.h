// Binary interface between the host and a plug-in: scalar types, the records a
// plug-in registers, flag values and the entry-point signatures. Shared by the
// plug-in and by the host emulator, so both agree byte for byte (LP64).
#pragma once

#include <cstddef>
#include <cstdint>

using RBInteger = int64_t;
using RBBoolean = int8_t;
using REALproc = void (*)(void);

struct REALstringStruct;
struct REALobjectStruct;
using REALstring = REALstringStruct*;
using REALobject = REALobjectStruct*;
using REALarray = REALobjectStruct*;
using REALpicture = REALobjectStruct*;
using REALmemoryBlock = REALobjectStruct*;
using REALfolderItem = REALobjectStruct*;
using REALclassRef = void*;

// Marker in a property's getter or setter: the host reads or writes the field
// itself, `param` bytes into the data block.
inline REALproc const kStandardAccessor = reinterpret_cast<REALproc>(static_cast<intptr_t>(-1));

struct REALattribute {
    const char* name;
    const char* value;
};

struct REALmethodDefinition {
    REALproc function;
    REALproc setterFunction;
    const char* declaration;
    uint32_t mFlags;
    size_t attributeCount;
    REALattribute* attributes;
};

struct REALproperty {
    const char* group;
    const char* name;
    const char* type;
    uint32_t flags;
    REALproc getter;
    REALproc setter;
    int32_t param;
    REALproc editor;
    size_t enumCount;
    const char** enumEntries;
    size_t attributeCount;
    REALattribute* attributes;
};

struct REALevent {
    const char* declaration;
    RBInteger forSystemUse;  // the host's token for this event
    size_t attributeCount;
    REALattribute* attributes;
};

struct REALeventInstance {
    const char* name;
    REALproc implementation;
};

struct REALconstant {
    const char* declaration;
    void* reserved;
    uint32_t mFlags;
    size_t attributeCount;
    REALattribute* attributes;
};

struct REALclassDefinition {
    uint32_t version;
    const char* name;
    const char* superName;
    size_t dataSize;
    RBInteger forSystemUse;  // written by the host: offset of the data block in an instance
    REALproc constructor;
    REALproc destructor;
    REALproperty* properties;
    size_t propertyCount;
    REALmethodDefinition* methods;
    size_t methodCount;
    REALevent* events;
    size_t eventCount;
    REALeventInstance* eventInstances;
    size_t eventInstanceCount;
    const char* interfaces;
    REALattribute* attributes;
    size_t attributeCount;
    REALconstant* constants;
    size_t constantCount;
    uint32_t mFlags;
    REALproperty* sharedProperties;
    size_t sharedPropertyCount;
    REALmethodDefinition* sharedMethods;
    size_t sharedMethodCount;
    void* delegates;
    size_t delegateCount;
    void* enums;
    size_t enumCount;
};

struct REALpictureDescription {
    uint32_t pictureType;
    void* pictureData;
    int32_t width;
    int32_t height;
    int32_t depth;
    RBBoolean transparent;
};

struct REALstringData {
    const void* data;
    size_t length;
    uint32_t encoding;
    const void* private1;
    uint32_t private2;
};

static_assert(sizeof(REALclassDefinition) == 232);
static_assert(offsetof(REALclassDefinition, forSystemUse) == 32);
static_assert(offsetof(REALclassDefinition, mFlags) == 160);
static_assert(offsetof(REALclassDefinition, enumCount) == 224);
static_assert(sizeof(REALmethodDefinition) == 48);
static_assert(sizeof(REALproperty) == 96);
static_assert(offsetof(REALproperty, param) == 48);
static_assert(sizeof(REALevent) == 32);
static_assert(sizeof(REALconstant) == 40);

// Flag values.
constexpr uint32_t kFlagConsoleSafe = 1u << 2;

// Picture storage types.
constexpr uint32_t kPictureCGBitmapContext = 8;
constexpr uint32_t kPictureGDData = 9;
constexpr uint32_t kPictureGDImagePtr = 10;
constexpr uint32_t kPictureCairoContext = 12;
constexpr uint32_t kPictureNSImage = 13;

// Element types of "RuntimeArrayCreateSingleDimBoundedArray".
constexpr int kArrayOfStrings = 3;
constexpr int kArrayOfObjects = 4;
constexpr int kArrayOfInt64 = 11;

// Text encodings (Core Foundation numbering).
constexpr uint32_t kEncodingMacRoman = 0;
constexpr uint32_t kEncodingUTF16 = 0x0100;
constexpr uint32_t kEncodingISOLatin1 = 0x0201;
constexpr uint32_t kEncodingWindowsLatin1 = 0x0500;
constexpr uint32_t kEncodingASCII = 0x0600;
constexpr uint32_t kEncodingUTF8 = 0x08000100;
constexpr uint32_t kEncodingUTF32 = 0x0c000100;
constexpr uint32_t kEncodingUTF16BE = 0x10000100;
constexpr uint32_t kEncodingUTF16LE = 0x14000100;
constexpr uint32_t kEncodingUTF32BE = 0x18000100;
constexpr uint32_t kEncodingUTF32LE = 0x1c000100;
constexpr uint32_t kEncodingUnknown = 0xFFFF;

// Host arrays as the plug-in's in-place check reads them.
struct HostArrayHeader {
    int64_t refCount;
    int64_t dimensionCount;
    int64_t upperBound;
    void* elements;  // 8-byte elements
};

// Entry-point signatures, by resolver name.
extern "C" {
using ResolverFn = void* (*)(const char* entryName);
using PluginMainFn = void (*)(ResolverFn resolver);
}
