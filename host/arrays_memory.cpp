// Arrays, memory blocks and folder items: arrays keep the header layout the
// plug-in's in-place check reads; memory blocks own exactly the bytes asked.
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "host/emulator_internal.h"

namespace emu {

uint8_t* NewBlockBytes(int64_t size) {
    return static_cast<uint8_t*>(calloc(size > 0 ? static_cast<size_t>(size) : 1, 1));
}

void ReleaseObjectStorage(ObjectInfo* info) {
    switch (info->kind) {
        case ObjectKind::Exception:
            UnlockString(info->message);
            info->message = nullptr;
            break;
        case ObjectKind::MemoryBlock:
            free(info->bytes);
            info->bytes = nullptr;
            break;
        case ObjectKind::Picture:
            if (info->gd) gdImageDestroy(info->gd);
            if (info->cairo) cairo_destroy(info->cairo);
            if (info->surface) cairo_surface_destroy(info->surface);
            if (info->cgContext) ReleaseMacPicture(info);
            info->gd = nullptr, info->cairo = nullptr, info->surface = nullptr, info->cgContext = nullptr;
            break;
        case ObjectKind::Image:
            ReleaseImageField(info);
            break;
        case ObjectKind::Array: {
            auto* header = static_cast<HostArrayHeader*>(info->address);
            auto* elements = static_cast<int64_t*>(header->elements);
            for (int64_t i = 0; i <= header->upperBound; ++i) {
                if (info->elementType == kArrayOfStrings) UnlockString(reinterpret_cast<REALstring>(elements[i]));
                if (info->elementType == kArrayOfObjects) UnlockObject(reinterpret_cast<REALobject>(elements[i]));
            }
            free(elements);
            header->elements = nullptr;
            break;
        }
        default:
            break;
    }
}

// ---- arrays ----------------------------------------------------------------------

REALobject NewArray(int elementType, int64_t upperBound) {
    auto* info = new ObjectInfo;
    info->kind = ObjectKind::Array;
    info->elementType = elementType;
    info->size = sizeof(HostArrayHeader);
    auto* header = static_cast<HostArrayHeader*>(calloc(1, sizeof(HostArrayHeader)));
    header->refCount = 1;
    // A broken layout keeps working through the accessors but fails the in-place check.
    header->dimensionCount = Host::Current()->options().brokenArrayLayout ? 2 : 1;
    header->upperBound = upperBound;
    size_t count = upperBound >= 0 ? static_cast<size_t>(upperBound) + 1 : 0;
    header->elements = calloc(count > 0 ? count : 1, sizeof(int64_t));
    info->address = header;
    State().objects[header] = info;
    return reinterpret_cast<REALobject>(header);
}

int64_t* ArrayElements(REALobject array, int64_t* upperBound) {
    auto* header = reinterpret_cast<HostArrayHeader*>(array);
    if (upperBound) *upperBound = header->upperBound;
    return static_cast<int64_t*>(header->elements);
}

namespace {

// The array behind a pointer handed to `entry`, or null.
HostArrayHeader* CheckedArray(REALobject array, const char* entry) {
    ObjectInfo* info = CheckedObject(array, entry);
    if (info == nullptr) return nullptr;
    if (info->kind != ObjectKind::Array) {
        Fault(std::string(entry) + " was handed a " + ClassNameOf(info) + " object, not an array");
        return nullptr;
    }
    return static_cast<HostArrayHeader*>(info->address);
}

void ArrayInsert(REALobject array, int64_t index, int64_t value) {
    auto* header = reinterpret_cast<HostArrayHeader*>(array);
    int64_t count = header->upperBound + 1;
    if (index < 0 || index > count) throw std::out_of_range("array insert");
    auto* elements = static_cast<int64_t*>(realloc(header->elements, static_cast<size_t>(count + 1) * 8));
    memmove(elements + index + 1, elements + index, static_cast<size_t>(count - index) * 8);
    elements[index] = value;
    header->elements = elements;
    header->upperBound = count;
}

void InsertObject(REALarray array, RBInteger index, REALobject value) {
    HostArrayHeader* header = CheckedArray(array, "the object array insert procedure");
    if (header == nullptr) return;
    if (index < 0 || index > header->upperBound + 1) {
        Fault("the object array insert procedure was handed index " + std::to_string(index) + " for an array of " +
              std::to_string(header->upperBound + 1));
        return;
    }
    LockObject(value);
    ArrayInsert(array, index, reinterpret_cast<int64_t>(value));
}

RBInteger GetInteger(REALarray array, RBInteger index) {
    HostArrayHeader* header = CheckedArray(array, "the integer array get procedure");
    if (header == nullptr) return 0;
    return index >= 0 && index <= header->upperBound ? static_cast<int64_t*>(header->elements)[index] : 0;
}

void SetInteger(REALarray array, RBInteger value, RBInteger index) {
    HostArrayHeader* header = CheckedArray(array, "the integer array set procedure");
    if (header != nullptr && index >= 0 && index <= header->upperBound)
        static_cast<int64_t*>(header->elements)[index] = value;
}

}  // namespace

void ArrayAppend(REALobject array, int64_t value) {
    ArrayInsert(array, reinterpret_cast<HostArrayHeader*>(array)->upperBound + 1, value);
}

REALobject CreateArray(int elementType, RBInteger upperBound) { return NewArray(elementType, upperBound); }

RBInteger UBound(void* array) {
    if (array == nullptr) return -1;
    HostArrayHeader* header = CheckedArray(static_cast<REALobject>(array), "RuntimeUBound");
    return header ? header->upperBound : -1;
}

REALstring DirectReadStringArray(REALobject array, RBInteger index) {
    HostArrayHeader* header = CheckedArray(array, "RuntimeDirectReadStringArray");
    if (header == nullptr || index < 0 || index > header->upperBound) return nullptr;
    auto string = reinterpret_cast<REALstring>(static_cast<int64_t*>(header->elements)[index]);
    LockString(string);
    return string;
}

void* ObjectArrayInsertProc(REALobject array) {
    return CheckedArray(array, "PluginObjectArrayInsertProc") ? reinterpret_cast<void*>(InsertObject) : nullptr;
}
void* IntegerArrayGetProc(REALobject array) {
    return CheckedArray(array, "PluginIntegerArrayGetProc") ? reinterpret_cast<void*>(GetInteger) : nullptr;
}
void* IntegerArraySetProc(REALobject array) {
    return CheckedArray(array, "PluginIntegerArraySetProc") ? reinterpret_cast<void*>(SetInteger) : nullptr;
}

// ---- memory blocks -----------------------------------------------------------------

namespace {

void MemoryBlockConstructor(REALobject block, RBInteger size) {
    ObjectInfo* info = CheckedObject(block, "the MemoryBlock constructor");
    if (info == nullptr || size < 0) return;
    int64_t made = Host::Current()->options().memoryBlocksShort ? size / 2 : size;
    free(info->bytes);
    info->bytes = NewBlockBytes(made);
    info->byteCount = info->bytes ? made : 0;
}

ObjectInfo* CheckedBlock(REALobject block, const char* entry) {
    return CheckedObjectOfKind(block, entry, ObjectKind::MemoryBlock, "MemoryBlock");
}

}  // namespace

void* LoadObjectMethod(REALobject object, const char* prototype) {
    ObjectInfo* info = CheckedObject(object, "REALLoadObjectMethod");
    if (info && info->kind == ObjectKind::MemoryBlock && prototype &&
        strcmp(prototype, "Constructor(bytes as Integer)") == 0)
        return reinterpret_cast<void*>(MemoryBlockConstructor);
    return nullptr;
}

void* MemoryBlockGetPtr(REALobject block) {
    ObjectInfo* info = CheckedBlock(block, "memoryBlockGetPtr");
    return info ? info->bytes : nullptr;
}

RBInteger MemoryBlockGetSize(REALobject block) {
    ObjectInfo* info = CheckedBlock(block, "memoryBlockGetSize");
    return info ? info->byteCount : 0;
}

// ---- made and read by tests ------------------------------------------------------------

Value Host::StringArray(const std::vector<std::string>& items) {
    REALobject array = NewArray(kArrayOfStrings, static_cast<int64_t>(items.size()) - 1);
    int64_t* elements = ArrayElements(array, nullptr);
    for (size_t i = 0; i < items.size(); ++i)
        elements[i] = reinterpret_cast<int64_t>(NewString(items[i], kEncodingUTF8));
    return Value::AdoptObject(array);
}

Value Host::IntegerArray(const std::vector<int64_t>& items) {
    REALobject array = NewArray(kArrayOfInt64, static_cast<int64_t>(items.size()) - 1);
    int64_t* elements = ArrayElements(array, nullptr);
    for (size_t i = 0; i < items.size(); ++i) elements[i] = items[i];
    return Value::AdoptObject(array);
}

std::vector<Value> Host::ArrayObjects(const Value& array) const {
    std::vector<Value> items;
    HostArrayHeader* header = CheckedArray(array.AsObject(), "Host::ArrayObjects");
    if (header == nullptr) return items;
    auto* elements = static_cast<int64_t*>(header->elements);
    for (int64_t i = 0; i <= header->upperBound; ++i)
        items.push_back(Value::BorrowObject(reinterpret_cast<REALobject>(elements[i])));
    return items;
}

int64_t Host::ArrayUBound(const Value& array) const {
    HostArrayHeader* header = CheckedArray(array.AsObject(), "Host::ArrayUBound");
    return header ? header->upperBound : -1;
}

Value Host::FolderItem(const std::string& path) {
    REALobject item = NewObject(impl_->classes["FolderItem"]);
    impl_->Info(item)->path = path;
    return Value::AdoptObject(item);
}

Value Host::MemoryBlock(size_t size) {
    REALobject block = NewObject(impl_->classes["MemoryBlock"]);
    ObjectInfo* info = impl_->Info(block);
    info->bytes = NewBlockBytes(static_cast<int64_t>(size));
    info->byteCount = static_cast<int64_t>(size);
    return Value::AdoptObject(block);
}

uint8_t* Host::MemoryBytesPointer(const Value& block) const {
    ObjectInfo* info = CheckedBlock(block.AsObject(), "Host::MemoryBytesPointer");
    return info ? info->bytes : nullptr;
}

std::vector<uint8_t> Host::MemoryBytes(const Value& block) const {
    ObjectInfo* info = CheckedBlock(block.AsObject(), "Host::MemoryBytes");
    if (info == nullptr || info->bytes == nullptr) return {};
    return std::vector<uint8_t>(info->bytes, info->bytes + info->byteCount);
}

}  // namespace emu
