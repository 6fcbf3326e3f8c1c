// Internal state of the host emulator, shared by its source files.
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

// Plug-in data blocks start this many bytes into an object.
inline constexpr int64_t kDataOffset = 32;

struct HostString {
    int64_t refs = 1;
    uint32_t encoding = kEncodingUTF8;
    std::string bytes;
};

enum class ObjectKind { Plain, Exception, MemoryBlock, FolderItem, Picture, Array };

struct ObjectInfo {
    int64_t refs = 1;
    ClassInfo* cls = nullptr;
    ObjectKind kind = ObjectKind::Plain;
    void* address = nullptr;  // what the plug-in sees
    // exceptions
    REALstring message = nullptr;
    int64_t errorNumber = 0;
    // memory blocks
    uint8_t* bytes = nullptr;
    int64_t size = 0;
    // folder items
    std::string path;
    // pictures
    gdImagePtr gd = nullptr;
    cairo_surface_t* surface = nullptr;
    cairo_t* cairo = nullptr;
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
    std::unordered_map<int64_t, EventToken> tokens;
    int64_t nextToken = 1000;
    REALobject raised = nullptr;

    ~Impl();

    ObjectInfo* Info(const void* address) const {
        auto it = objects.find(const_cast<void*>(address));
        return it == objects.end() ? nullptr : it->second;
    }
};

Host::Impl& State();  // of the current host

// Objects and strings, as the entry points implement them.
REALobject NewObject(ClassInfo* cls);
void LockObject(REALobject object);
void UnlockObject(REALobject object);
REALstring NewString(std::string bytes, uint32_t encoding);
void LockString(REALstring string);
void UnlockString(REALstring string);
HostString* StringOf(REALstring string);
std::string Convert(const std::string& bytes, uint32_t from, uint32_t to);
REALobject NewArray(int elementType, int64_t upperBound);
int64_t* ArrayElements(REALobject array, int64_t* upperBound);
void ArrayAppend(REALobject array, int64_t value);
REALobject NewPictureObject(int width, int height);
void* ResolveEntry(const char* name);

}  // namespace emu
