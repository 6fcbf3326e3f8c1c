// Objects and class data: class registration and data offsets, object memory,
// reference counts and destruction, exceptions, and the property entries.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>

#include "host/emulator_internal.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define QRV_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#define QRV_UNPOISON(address, size) ASAN_UNPOISON_MEMORY_REGION(address, size)
#else
#define QRV_POISON(address, size) ((void)(address), (void)(size))
#define QRV_UNPOISON(address, size) ((void)(address), (void)(size))
#endif

namespace emu {

namespace {

// Destroyed objects stay allocated and poisoned, so that a late use is seen
// and their addresses are not handed out again; the oldest are freed once
// this many are kept. Process-wide: an object may outlive its host.
constexpr size_t kKeptDestroyed = 1 << 16;

struct Tombstone {
    std::string className;
    size_t size = 0;
};

struct Graveyard {
    std::unordered_map<const void*, Tombstone> byAddress;
    std::deque<void*> order;
    // Objects still held when their host went away: they stay in memory, as
    // in a real host, reachable from here.
    std::unordered_map<const void*, ObjectInfo*> abandoned;
};
// Never destroyed, so it outlasts the process's exit-time leak checks.
Graveyard* const gGraveyard = new Graveyard;

void Bury(ObjectInfo* info) {
    memset(info->address, kDestroyedByte, info->size);
    QRV_POISON(info->address, info->size);
    gGraveyard->byAddress[info->address] = {ClassNameOf(info), info->size};
    gGraveyard->order.push_back(info->address);
    if (gGraveyard->order.size() > kKeptDestroyed) {
        void* oldest = gGraveyard->order.front();
        gGraveyard->order.pop_front();
        QRV_UNPOISON(oldest, gGraveyard->byAddress[oldest].size);
        gGraveyard->byAddress.erase(oldest);
        free(oldest);
    }
}

bool InDataBlock(const ClassInfo* cls, size_t offset) {
    for (const ClassInfo* c = cls; c != nullptr; c = c->super) {
        if (c->record != nullptr && offset >= static_cast<size_t>(c->dataOffset) &&
            offset < static_cast<size_t>(c->dataOffset) + c->record->dataSize)
            return true;
        if (offset >= c->fieldsBegin && offset < c->fieldsEnd) return true;
    }
    return false;
}

// Exactly the header and the data blocks of the class chain: no spare bytes.
size_t ObjectSize(const ClassInfo* cls) {
    size_t end = kHeaderSize;
    for (const ClassInfo* c = cls; c != nullptr; c = c->super) {
        if (c->record != nullptr) end = std::max(end, static_cast<size_t>(c->dataOffset) + c->record->dataSize);
        end = std::max(end, c->fieldsEnd);
    }
    return end;
}

void FillGuards(const ObjectInfo* info) {
    auto* bytes = static_cast<unsigned char*>(info->address);
    for (size_t i = 0; i < info->size; ++i)
        if (!InDataBlock(info->cls, i)) bytes[i] = kGuardByte;
}

// The first guard byte the plug-in overwrote, or -1.
int64_t DamagedGuard(const ObjectInfo* info) {
    if (info->kind == ObjectKind::Array) return -1;  // the header is the array's
    const auto* bytes = static_cast<const unsigned char*>(info->address);
    for (size_t i = 0; i < info->size; ++i)
        if (bytes[i] != kGuardByte && !InDataBlock(info->cls, i)) return static_cast<int64_t>(i);
    return -1;
}

void CheckGuards(const ObjectInfo* info, const char* entry) {
    int64_t damaged = DamagedGuard(info);
    if (damaged < 0) return;
    Fault(std::string(entry) + ": byte " + std::to_string(damaged) + " of a " + ClassNameOf(info) +
          " object, outside its classes' data, was overwritten");
    FillGuards(info);  // one report per overwrite
}

bool IsA(const ClassInfo* cls, std::string_view name) {
    for (const ClassInfo* c = cls; c != nullptr; c = c->super)
        if (c->name == name) return true;
    return false;
}

void RunDestructors(ObjectInfo* info) {
    for (ClassInfo* c = info->cls; c != nullptr; c = c->super) {
        if (c->record == nullptr) continue;
        for (size_t i = 0; i < c->record->methodCount; ++i) {
            const REALmethodDefinition& m = c->record->methods[i];
            if (m.declaration != nullptr && ParseDeclaration(m.declaration).name == "Destructor" && m.function)
                reinterpret_cast<void (*)(REALobject)>(m.function)(static_cast<REALobject>(info->address));
        }
    }
}

void Destroy(ObjectInfo* info) {
    // Alive while its destructors run.
    info->refs = 1;
    RunDestructors(info);
    if (info->refs != 1)
        Fault("a " + ClassNameOf(info) + " object was locked by its own destructor and is destroyed with " +
              std::to_string(info->refs - 1) + " lock(s) still held");
    if (info->kind == ObjectKind::Picture && info->descriptionLocks > 0)
        Fault("a Picture was destroyed with its description still locked");
    CheckGuards(info, "destruction");
    ReleaseObjectStorage(info);
    State().objects.erase(info->address);
    Bury(info);
    delete info;
}

}  // namespace

std::string ClassNameOf(const ObjectInfo* info) {
    if (info->kind == ObjectKind::Array) return "array";
    return info->cls != nullptr ? info->cls->name : "?";
}

ObjectInfo* CheckedObject(const void* object, const char* entry) {
    if (object == nullptr) return nullptr;
    if (ObjectInfo* info = State().Info(object)) {
        CheckGuards(info, entry);
        return info;
    }
    auto dead = gGraveyard->byAddress.find(object);
    if (dead != gGraveyard->byAddress.end()) {
        Fault(std::string(entry) + " was handed a destroyed " + dead->second.className + " object");
        return nullptr;
    }
    if (gGraveyard->abandoned.count(object)) return nullptr;  // held when an earlier host went away
    char address[32];
    snprintf(address, sizeof address, "%p", object);
    Fault(std::string(entry) + " was handed " + address + ", which is no object of this host");
    return nullptr;
}

ObjectInfo* CheckedObjectOfKind(const void* object, const char* entry, ObjectKind kind, const char* kindName) {
    ObjectInfo* info = CheckedObject(object, entry);
    if (info != nullptr && info->kind != kind) {
        Fault(std::string(entry) + " was handed a " + ClassNameOf(info) + " object, not a " + kindName);
        return nullptr;
    }
    return info;
}

const ClassInfo* OwnerOfProperty(const ClassInfo* cls, const REALproperty* property) {
    for (const ClassInfo* c = cls; c != nullptr; c = c->super) {
        if (c->record == nullptr) continue;
        const REALclassDefinition& r = *c->record;
        if (property >= r.properties && property < r.properties + r.propertyCount) return c;
    }
    return nullptr;
}

REALobject NewObject(ClassInfo* cls) {
    auto* info = new ObjectInfo;
    info->cls = cls;
    if (IsA(cls, "RuntimeException")) info->kind = ObjectKind::Exception;
    if (IsA(cls, "MemoryBlock")) info->kind = ObjectKind::MemoryBlock;
    if (IsA(cls, "FolderItem")) info->kind = ObjectKind::FolderItem;
    if (IsA(cls, "Picture")) info->kind = ObjectKind::Picture;
    if (IsA(cls, "CGImageQRV")) info->kind = ObjectKind::Image;
    info->size = ObjectSize(cls);
    info->address = calloc(1, info->size);
    FillGuards(info);
    State().objects[info->address] = info;
    return static_cast<REALobject>(info->address);
}

void LockObject(REALobject object) {
    if (ObjectInfo* info = CheckedObject(object, "REALLockObject")) {
        ++info->refs;
        if (info->kind == ObjectKind::Array) static_cast<HostArrayHeader*>(info->address)->refCount = info->refs;
    }
}

void UnlockObjectAs(REALobject object, const char* entry) {
    ObjectInfo* info = CheckedObject(object, entry);
    if (info == nullptr) return;
    if (--info->refs > 0) {
        if (info->kind == ObjectKind::Array) static_cast<HostArrayHeader*>(info->address)->refCount = info->refs;
        return;
    }
    Destroy(info);
}

void UnlockObject(REALobject object) { UnlockObjectAs(object, "REALUnlockObject"); }

void AbandonObjects(Host::Impl& state) {
    for (auto& [address, info] : state.objects) gGraveyard->abandoned[address] = info;
    state.objects.clear();
}

// ---- registration --------------------------------------------------------------

void RegisterClass(REALclassDefinition* record) {
    Host::Impl& state = State();
    auto* cls = new ClassInfo;
    cls->name = record->name ? record->name : "";
    cls->superName = record->superName ? record->superName : "";
    cls->record = record;
    if (!cls->superName.empty()) {
        auto it = state.classes.find(cls->superName);
        if (it != state.classes.end()) cls->super = it->second;
    }
    // After the superclasses' data, eight bytes further for every class
    // registered before: no two classes share an offset, so code using the
    // wrong class's offset reads guard bytes or past the object's end.
    size_t base = (ObjectSize(cls->super) + 7) / 8 * 8;
    cls->dataOffset = static_cast<int64_t>(base) + 8 * state.nextOffsetSlot++;
    record->forSystemUse = cls->dataOffset;
    AssignEventTokens(state, record);
    auto old = state.classes.find(cls->name);
    if (old != state.classes.end()) {
        std::erase(state.pluginOrder, old->second);
        delete old->second;
    }
    state.classes[cls->name] = cls;
    state.pluginOrder.push_back(cls);
}

REALobject PluginNewInstance(const char* className) {
    if (className == nullptr) return nullptr;
    if (Host::Current()->options().refusedClasses.count(className)) return nullptr;
    auto it = State().classes.find(className);
    if (it == State().classes.end()) return nullptr;
    return NewObject(it->second);
}

REALclassRef ObjectType(const char* className) {
    auto it = State().classes.find(className ? className : "");
    return it == State().classes.end() ? nullptr : it->second;
}

// ---- exceptions ----------------------------------------------------------------

RaisedException DescribeRaised(REALobject exception) {
    RaisedException raised;
    ObjectInfo* info = State().Info(exception);
    raised.className = info ? ClassNameOf(info) : "?";
    if (info && info->message)
        raised.message = Convert(StringOf(info->message)->bytes, StringOf(info->message)->encoding, kEncodingUTF8);
    return raised;
}

// The host stops the plug-in's function at the first raise; one that goes on
// and raises again has a fault, and the second exception is not kept.
void RaiseException(REALobject exception) {
    Host::Impl& state = State();
    ObjectInfo* info = CheckedObject(exception, "RuntimeRaiseException");
    if (info == nullptr) {
        if (exception == nullptr) Fault("RuntimeRaiseException was handed nil");
        return;
    }
    RaisedException raised = DescribeRaised(exception);
    Host::Current()->raisedLog.push_back(raised);
    if (state.raised != nullptr) {
        RaisedException first = DescribeRaised(state.raised);
        Fault("a second exception was raised in one call: " + first.className + " \"" + first.message + "\", then " +
              raised.className + " \"" + raised.message + "\"");
        return;
    }
    LockObject(exception);
    state.raised = exception;
}

REALobject CallFunctionWithExceptionHandler(void (*fn)(void*), void* data) {
    Host::Impl& state = State();
    REALobject outer = state.raised;
    state.raised = nullptr;
    fn(data);
    REALobject caught = state.raised;  // carries the reference RaiseException took
    state.raised = outer;
    return caught;
}

// ---- property entries ------------------------------------------------------------

RBBoolean SetPropValueString(REALobject object, const char* name, REALstring value) {
    ObjectInfo* info = CheckedObject(object, "REALSetPropValueString");
    if (info == nullptr || name == nullptr) return 0;
    if (info->kind == ObjectKind::Exception && strcmp(name, "Message") == 0) {
        LockString(value);
        UnlockString(info->message);
        info->message = value;
        return 1;
    }
    return 0;
}

RBBoolean SetPropValueInteger(REALobject object, const char* name, RBInteger value) {
    ObjectInfo* info = CheckedObject(object, "REALSetPropValueInteger");
    if (info == nullptr || name == nullptr) return 0;
    if (info->kind == ObjectKind::Exception && strcmp(name, "ErrorNumber") == 0) {
        info->errorNumber = value;
        return 1;
    }
    return 0;
}

RBBoolean GetPropValueInteger(REALobject object, const char* name, RBInteger* out) {
    ObjectInfo* info = CheckedObject(object, "REALGetPropValueInteger");
    if (info == nullptr || name == nullptr || out == nullptr) return 0;
    if (info->kind == ObjectKind::Exception && strcmp(name, "ErrorNumber") == 0) {
        *out = info->errorNumber;
        return 1;
    }
    if (info->kind == ObjectKind::Picture) {
        if (strcmp(name, "VerticalResolution") == 0 || strcmp(name, "HorizontalResolution") == 0)
            *out = 72;
        else if (strcmp(name, "Width") == 0)
            *out = info->width;
        else if (strcmp(name, "Height") == 0)
            *out = info->height;
        else if (strcmp(name, "Depth") == 0)
            *out = 32;
        else
            return 0;
        return 1;
    }
    return 0;
}

RBBoolean GetPropValueBool(REALobject object, const char* name, RBBoolean* out) {
    ObjectInfo* info = CheckedObject(object, "REALGetPropValueBool");
    if (info == nullptr || name == nullptr || out == nullptr) return 0;
    if (info->kind == ObjectKind::Picture && strcmp(name, "Transparent") == 0) {
        *out = 0;
        return 1;
    }
    return 0;
}

namespace {

std::string PercentEncoded(const std::string& path) {
    static const char* hex = "0123456789ABCDEF";
    std::string out = "file://";
    for (unsigned char c : path) {
        if (isalnum(c) || strchr("/-._~", c)) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

}  // namespace

long GetPropValueString(REALobject object, const char* name, REALstring* out) {
    ObjectInfo* info = CheckedObject(object, "REALGetPropValueString");
    if (info == nullptr || name == nullptr || out == nullptr) return 0;
    if (info->kind == ObjectKind::FolderItem) {
        if (strcmp(name, "NativePath") == 0)
            *out = NewString(info->path, kEncodingUTF8);
        else if (strcmp(name, "URLPath") == 0)
            *out = NewString(PercentEncoded(info->path), kEncodingUTF8);
        else
            return 0;
        return 1;
    }
    if (info->kind == ObjectKind::Exception && strcmp(name, "Message") == 0) {
        LockString(info->message);
        *out = info->message;
        return 1;
    }
    return 0;
}

// ---- audit: what the plug-in's own data still refers to ---------------------------

namespace {

struct Reach {
    const Host::Impl& state;
    std::unordered_set<const void*> objects;
    std::unordered_set<const void*> strings;
    std::vector<const ObjectInfo*> pending;

    void Word(uintptr_t word) {
        auto* p = reinterpret_cast<void*>(word);
        if (ObjectInfo* info = state.Info(p)) {
            if (objects.insert(p).second) pending.push_back(info);
        } else if (state.strings.count(static_cast<HostString*>(p))) {
            strings.insert(p);
        }
    }
    // Pointers are stored aligned: the scan steps through the aligned words.
    // The plug-in's segments include the sanitizer's guard zones between
    // globals, which are read here on purpose.
    __attribute__((no_sanitize("address"))) void Scan(const void* begin, size_t size) {
        const auto* bytes = static_cast<const unsigned char*>(begin);
        size_t skip = (sizeof(uintptr_t) - reinterpret_cast<uintptr_t>(bytes) % sizeof(uintptr_t)) % sizeof(uintptr_t);
        for (size_t i = skip; i + sizeof(uintptr_t) <= size; i += sizeof(uintptr_t))
            Word(*reinterpret_cast<const uintptr_t*>(bytes + i));
    }
    void Follow() {
        while (!pending.empty()) {
            const ObjectInfo* info = pending.back();
            pending.pop_back();
            if (info->message) Word(reinterpret_cast<uintptr_t>(info->message));
            if (info->kind == ObjectKind::Array) {
                auto* header = static_cast<const HostArrayHeader*>(info->address);
                Scan(header->elements, static_cast<size_t>(header->upperBound + 1) * 8);
            } else {
                Scan(info->address, info->size);
            }
        }
    }
};

}  // namespace

Audit UnreachableFrom(const Host::Impl& state, const std::vector<std::pair<const void*, size_t>>& roots) {
    Reach reach{state, {}, {}, {}};
    for (auto [begin, size] : roots) reach.Scan(begin, size);
    reach.Follow();
    Audit left;
    for (auto& [address, info] : state.objects)
        if (!reach.objects.count(address)) {
            ++left.objects;
            left.objectClasses.insert(ClassNameOf(info));
        }
    for (HostString* s : state.strings)
        if (!reach.strings.count(s)) ++left.strings;
    return left;
}

}  // namespace emu
