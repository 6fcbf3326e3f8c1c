// Internal state of the host emulator, shared by its source files: one file a
// host service (objects and class data, strings, arrays and memory blocks,
// pictures, events and the main loop), plus calls and the resolver table.
#pragma once

#include <cairo.h>
#include <gd.h>

#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/emulator.h"

namespace emu {

// Bytes before the first class's data block in every object. The rest of the
// header, and the gaps between the data blocks of a class chain, hold a guard
// pattern that is checked whenever the object is handed to the host.
inline constexpr int64_t kHeaderSize = 16;
inline constexpr unsigned char kGuardByte = 0xA5;
inline constexpr unsigned char kDestroyedByte = 0xDD;

struct HostString {
    int64_t refs = 1;
    uint32_t encoding = kEncodingUTF8;
    std::string bytes;
};

enum class ObjectKind { Plain, Exception, MemoryBlock, FolderItem, Picture, Array, Image };

struct ObjectInfo {
    int64_t refs = 1;
    ClassInfo* cls = nullptr;
    ObjectKind kind = ObjectKind::Plain;
    void* address = nullptr;  // what the plug-in sees
    size_t size = 0;          // bytes allocated at the address
    // exceptions
    REALstring message = nullptr;
    int64_t errorNumber = 0;
    // memory blocks
    uint8_t* bytes = nullptr;
    int64_t byteCount = 0;
    // folder items
    std::string path;
    // pictures
    gdImagePtr gd = nullptr;
    cairo_surface_t* surface = nullptr;
    cairo_t* cairo = nullptr;
    void* cgContext = nullptr;  // CGContextRef of a Mac host picture
    int width = 0, height = 0;
    int descriptionLocks = 0;
    // arrays (the address is a HostArrayHeader)
    int elementType = 0;
};

struct EventToken {
    std::string name;                // the declaration's name
    int64_t* indirection = nullptr;  // record-version-9 hosts: {0, token}
};

struct Host::Impl {
    void* library = nullptr;
    std::vector<ClassInfo*> pluginOrder;
    std::map<std::string, ClassInfo*, std::less<>> classes;
    std::unordered_map<void*, ObjectInfo*> objects;
    std::unordered_set<HostString*> strings;
    std::unordered_set<const void*> stringData;  // "PluginGetStringData" buffers not yet disposed
    std::unordered_map<int64_t, EventToken> tokens;
    int64_t nextToken = 1000;
    std::unordered_set<const void*> keptByDesign;
    int64_t nextOffsetSlot = 0;  // makes every registered class's data offset distinct
    REALobject raised = nullptr;

    ~Impl();

    ObjectInfo* Info(const void* address) const {
        auto it = objects.find(const_cast<void*>(address));
        return it == objects.end() ? nullptr : it->second;
    }
};

Host::Impl& State();  // of the current host

// Fails the running test (or stops qrvhost) through the fault handler.
void Fault(const std::string& message);

// ---- objects and class data (objects.cpp)
REALobject NewObject(ClassInfo* cls);
void LockObject(REALobject object);
void UnlockObject(REALobject object);
void UnlockObjectAs(REALobject object, const char* entry);  // `entry` names who gives the reference back
void AbandonObjects(Host::Impl& state);                     // the host goes away: held objects stay allocated
// Live objects and strings that no word in `roots`, nor in the objects found
// from there, refers to.
Audit UnreachableFrom(const Host::Impl& state, const std::vector<std::pair<const void*, size_t>>& roots);
// The live object behind a pointer handed to `entry`, or null. Null pointers
// answer null quietly; destroyed objects, unknown pointers and damaged
// headers are faults.
ObjectInfo* CheckedObject(const void* object, const char* entry);
// The same, and an object of another kind than `kind` (named `kindName`) is a fault.
ObjectInfo* CheckedObjectOfKind(const void* object, const char* entry, ObjectKind kind, const char* kindName);
std::string ClassNameOf(const ObjectInfo* info);
// Where a class's data block starts, and the class that owns a property record.
const ClassInfo* OwnerOfProperty(const ClassInfo* cls, const REALproperty* property);
void RegisterClass(REALclassDefinition* record);
REALobject PluginNewInstance(const char* className);
REALclassRef ObjectType(const char* className);
void RaiseException(REALobject exception);
RaisedException DescribeRaised(REALobject exception);  // class name and message as UTF-8
REALobject CallFunctionWithExceptionHandler(void (*fn)(void*), void* data);
RBBoolean SetPropValueString(REALobject object, const char* name, REALstring value);
RBBoolean SetPropValueInteger(REALobject object, const char* name, RBInteger value);
RBBoolean GetPropValueInteger(REALobject object, const char* name, RBInteger* out);
RBBoolean GetPropValueBool(REALobject object, const char* name, RBBoolean* out);
long GetPropValueString(REALobject object, const char* name, REALstring* out);
void ReleaseObjectStorage(ObjectInfo* info);  // kind-specific parts (arrays, blocks, pictures)

// ---- strings and text (strings.cpp)
REALstring NewString(std::string bytes, uint32_t encoding);
void LockString(REALstring string);
void UnlockString(REALstring string);
// The live string behind a pointer handed to `entry`, or null (null quietly, freed strings as a fault).
HostString* CheckedString(REALstring string, const char* entry);
HostString* StringOf(REALstring string);
std::string Convert(const std::string& bytes, uint32_t from, uint32_t to);
REALstring BuildString(const char* bytes, int length);
REALstring BuildStringWithEncoding(const char* bytes, int length, uint32_t encoding);
uint32_t GetStringEncoding(REALstring string);
void SetStringEncoding(REALstring string, uint32_t encoding);
REALstring ConvertString(REALstring string, uint32_t encoding);
void* StringGetCString(REALstring string);
void* LoadGlobalMethod(const char* module, const char* prototype);
RBBoolean GetStringData(REALstring string, uint32_t encoding, REALstringData* out);
void DisposeStringData(REALstringData* data);
REALstring AddStrings(REALstring a, REALstring b);
void ForgetStrings();  // the host goes away: strings still held stay allocated

// ---- arrays and memory blocks (arrays_memory.cpp)
REALobject NewArray(int elementType, int64_t upperBound);
int64_t* ArrayElements(REALobject array, int64_t* upperBound);
void ArrayAppend(REALobject array, int64_t value);
void* LoadObjectMethod(REALobject object, const char* prototype);
void* MemoryBlockGetPtr(REALobject block);
RBInteger MemoryBlockGetSize(REALobject block);
REALobject CreateArray(int elementType, RBInteger upperBound);
RBInteger UBound(void* array);
REALstring DirectReadStringArray(REALobject array, RBInteger index);
void* ObjectArrayInsertProc(REALobject array);
void* IntegerArrayGetProc(REALobject array);
void* IntegerArraySetProc(REALobject array);
uint8_t* NewBlockBytes(int64_t size);

// ---- the Mac host's side (mac_host.cpp on the Apple stand-ins, else mac_host_absent.cpp)
// The CGImageQRV class: its image at byte 48, its type tag at 64.
inline constexpr size_t kImageField = 48, kImageTagField = 64, kImageObjectSize = 72;
inline constexpr uint64_t kImageTag = 0x52424346;
void NewMacPicture(ObjectInfo* info);  // a Core Graphics bitmap context of the Mac host's pixel format
// One pixel as 0xAARRGGBB, read and written in the picture's own bitmap format.
uint32_t MacPixelARGB(const ObjectInfo* info, int x, int y);
void SetMacPixelARGB(const ObjectInfo* info, int x, int y, uint32_t argb);
void ReleaseMacPicture(ObjectInfo* info);
void ReleaseImageField(ObjectInfo* info);  // what a CGImageQRV object holds

// ---- pictures (pictures.cpp)
REALobject NewPictureObject(int width, int height);
RBBoolean LockPictureDescription(REALobject picture, REALpictureDescription* out, uint32_t type);
void UnlockPictureDescription(REALobject picture);
void PictureClearCache(REALobject picture);
REALobject NewPictureEntry(RBInteger width, RBInteger height, RBInteger depth);
RBInteger PictureGetType(REALobject picture);
REALobject BuildPictureFromBuffer(uint32_t width, uint32_t height, uint32_t pixelType, void* buffer, uint32_t rowBytes);

// ---- events and the main loop (events_loop.cpp)
void* GetEventInstance(REALobject object, RBInteger token);
void AssignEventTokens(Host::Impl& state, REALclassDefinition* record);

// ---- the resolver (entries.cpp)
void* ResolveEntry(const char* name);

}  // namespace emu
