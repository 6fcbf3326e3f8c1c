// The host entries the resolver answers: objects, strings, exceptions, arrays,
// memory blocks, folder items, pictures and event lookup.
#include <iconv.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "host/emulator_internal.h"

namespace emu {

// ---- strings -----------------------------------------------------------------

HostString* StringOf(REALstring string) { return reinterpret_cast<HostString*>(string); }

REALstring NewString(std::string bytes, uint32_t encoding) {
    auto* string = new HostString;
    string->bytes = std::move(bytes);
    string->encoding = encoding;
    State().strings.insert(string);
    return reinterpret_cast<REALstring>(string);
}

void LockString(REALstring string) {
    if (string != nullptr) ++StringOf(string)->refs;
}

void UnlockString(REALstring string) {
    if (string == nullptr) return;
    HostString* s = StringOf(string);
    if (--s->refs > 0) return;
    State().strings.erase(s);
    delete s;
}

namespace {

const char* IconvName(uint32_t encoding) {
    switch (encoding) {
        case kEncodingUTF8:
            return "UTF-8";
        case kEncodingASCII:
            return "ASCII";
        case kEncodingUTF16:
            return "UTF-16LE";
        case kEncodingUTF16LE:
            return "UTF-16LE";
        case kEncodingUTF16BE:
            return "UTF-16BE";
        case kEncodingUTF32:
            return "UTF-32LE";
        case kEncodingUTF32LE:
            return "UTF-32LE";
        case kEncodingUTF32BE:
            return "UTF-32BE";
        case kEncodingISOLatin1:
            return "ISO-8859-1";
        case kEncodingWindowsLatin1:
            return "WINDOWS-1252";
        default:
            return "MACINTOSH";  // Mac Roman, and the host's "unknown"
    }
}

}  // namespace

std::string Convert(const std::string& bytes, uint32_t from, uint32_t to) {
    if (from == to || bytes.empty()) return bytes;
    // ASCII text reads the same in every 8-bit encoding the host uses.
    iconv_t cd = iconv_open(IconvName(to), IconvName(from));
    if (cd == reinterpret_cast<iconv_t>(-1)) return bytes;
    std::string out(bytes.size() * 4 + 16, '\0');
    char* in = const_cast<char*>(bytes.data());
    size_t inLeft = bytes.size();
    char* outPtr = out.data();
    size_t outLeft = out.size();
    iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    iconv_close(cd);
    out.resize(out.size() - outLeft);
    return out;
}

// ---- objects -----------------------------------------------------------------

namespace {

size_t DataSizeOf(ClassInfo* cls) {
    for (ClassInfo* c = cls; c != nullptr; c = c->super)
        if (c->record != nullptr) return c->record->dataSize;
    return 0;
}

bool IsA(ClassInfo* cls, std::string_view name) {
    for (ClassInfo* c = cls; c != nullptr; c = c->super)
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

void FreeObject(ObjectInfo* info) {
    Host::Impl& state = State();
    switch (info->kind) {
        case ObjectKind::Exception:
            UnlockString(info->message);
            break;
        case ObjectKind::MemoryBlock:
            free(info->bytes);
            break;
        case ObjectKind::Picture:
            if (info->gd) gdImageDestroy(info->gd);
            if (info->cairo) cairo_destroy(info->cairo);
            if (info->surface) cairo_surface_destroy(info->surface);
            break;
        case ObjectKind::Array: {
            auto* header = static_cast<HostArrayHeader*>(info->address);
            auto* elements = static_cast<int64_t*>(header->elements);
            for (int64_t i = 0; i <= header->upperBound; ++i) {
                if (info->elementType == kArrayOfStrings) UnlockString(reinterpret_cast<REALstring>(elements[i]));
                if (info->elementType == kArrayOfObjects) UnlockObject(reinterpret_cast<REALobject>(elements[i]));
            }
            free(elements);
            break;
        }
        default:
            break;
    }
    state.objects.erase(info->address);
    free(info->address);
    delete info;
}

}  // namespace

REALobject NewObject(ClassInfo* cls) {
    auto* info = new ObjectInfo;
    info->cls = cls;
    if (IsA(cls, "RuntimeException")) info->kind = ObjectKind::Exception;
    if (IsA(cls, "MemoryBlock")) info->kind = ObjectKind::MemoryBlock;
    if (IsA(cls, "FolderItem")) info->kind = ObjectKind::FolderItem;
    if (IsA(cls, "Picture")) info->kind = ObjectKind::Picture;
    info->address = calloc(1, static_cast<size_t>(kDataOffset) + DataSizeOf(cls) + 16);
    State().objects[info->address] = info;
    return static_cast<REALobject>(info->address);
}

void LockObject(REALobject object) {
    if (ObjectInfo* info = State().Info(object)) {
        ++info->refs;
        if (info->kind == ObjectKind::Array) static_cast<HostArrayHeader*>(info->address)->refCount = info->refs;
    }
}

void UnlockObject(REALobject object) {
    ObjectInfo* info = State().Info(object);
    if (info == nullptr) return;
    if (--info->refs > 0) {
        if (info->kind == ObjectKind::Array) static_cast<HostArrayHeader*>(info->address)->refCount = info->refs;
        return;
    }
    // Keep the object alive while its destructors run, then free it.
    info->refs = 1;
    RunDestructors(info);
    FreeObject(info);
}

// ---- arrays ------------------------------------------------------------------

REALobject NewArray(int elementType, int64_t upperBound) {
    auto* info = new ObjectInfo;
    info->kind = ObjectKind::Array;
    info->elementType = elementType;
    auto* header = static_cast<HostArrayHeader*>(calloc(1, sizeof(HostArrayHeader)));
    header->refCount = 1;
    // A broken layout keeps working through the accessors but fails the in-place check.
    header->dimensionCount = Host::Current()->options().brokenArrayLayout ? 2 : 1;
    header->upperBound = upperBound;
    size_t count = upperBound >= 0 ? static_cast<size_t>(upperBound) + 1 : 0;
    header->elements = calloc(count + 1, sizeof(int64_t));
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

void ArrayInsert(REALobject array, int64_t index, int64_t value) {
    auto* header = reinterpret_cast<HostArrayHeader*>(array);
    int64_t count = header->upperBound + 1;
    if (index < 0 || index > count) throw std::out_of_range("array insert");
    auto* elements = static_cast<int64_t*>(realloc(header->elements, static_cast<size_t>(count + 2) * 8));
    memmove(elements + index + 1, elements + index, static_cast<size_t>(count - index) * 8);
    elements[index] = value;
    header->elements = elements;
    header->upperBound = count;
}

void InsertObject(REALarray array, RBInteger index, REALobject value) {
    LockObject(value);
    ArrayInsert(array, index, reinterpret_cast<int64_t>(value));
}

RBInteger GetInteger(REALarray array, RBInteger index) {
    int64_t ubound = 0;
    int64_t* elements = ArrayElements(array, &ubound);
    return index >= 0 && index <= ubound ? elements[index] : 0;
}

void SetInteger(REALarray array, RBInteger value, RBInteger index) {
    int64_t ubound = 0;
    int64_t* elements = ArrayElements(array, &ubound);
    if (index >= 0 && index <= ubound) elements[index] = value;
}

}  // namespace

void ArrayAppend(REALobject array, int64_t value) {
    ArrayInsert(array, reinterpret_cast<HostArrayHeader*>(array)->upperBound + 1, value);
}

// ---- pictures ----------------------------------------------------------------

REALobject NewPictureObject(int width, int height) {
    if (width < 1 || height < 1) return nullptr;
    auto it = State().classes.find("Picture");
    REALobject picture = NewObject(it->second);
    ObjectInfo* info = State().Info(picture);
    info->width = width;
    info->height = height;
    if (Host::Current()->options().pictures == PictureKind::Gd) {
        info->gd = gdImageCreateTrueColor(width, height);
        if (info->gd) gdImageSaveAlpha(info->gd, 1);
    } else {
        info->surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
        info->cairo = cairo_create(info->surface);
    }
    return picture;
}

// ---- the entry points --------------------------------------------------------

namespace {

double GetRBVersion() { return Host::Current()->options().version; }
void RegisterPluginVersion(int version) { Host::Current()->registeredVersion = version; }
RBBoolean InRuntime() { return 1; }

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
    record->forSystemUse = kDataOffset;
    for (size_t i = 0; i < record->eventCount; ++i) {
        int64_t token = state.nextToken++;
        EventToken entry{ParseDeclaration(record->events[i].declaration).name, nullptr};
        if (record->version == 9) {
            // Old hosts: the event word is the address of a record whose second word is the token.
            entry.indirection = new int64_t[2]{0, token};
            record->events[i].forSystemUse = reinterpret_cast<RBInteger>(entry.indirection);
        } else {
            record->events[i].forSystemUse = token;
        }
        state.tokens[token] = entry;
    }
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

REALstring BuildString(const char* bytes, int length) {
    return NewString(std::string(bytes ? bytes : "", bytes && length > 0 ? static_cast<size_t>(length) : 0),
                     kEncodingUnknown);
}

REALstring BuildStringWithEncoding(const char* bytes, int length, uint32_t encoding) {
    return NewString(std::string(bytes ? bytes : "", bytes && length > 0 ? static_cast<size_t>(length) : 0), encoding);
}

uint32_t GetStringEncoding(REALstring string) { return string ? StringOf(string)->encoding : kEncodingUnknown; }

void SetStringEncoding(REALstring string, uint32_t encoding) {
    if (string) StringOf(string)->encoding = encoding;
}

REALstring ConvertString(REALstring string, uint32_t encoding) {
    if (string == nullptr) return nullptr;
    HostString* s = StringOf(string);
    return NewString(Convert(s->bytes, s->encoding, encoding), encoding);
}

void* StringGetCString(REALstring string) {
    return string ? const_cast<char*>(StringOf(string)->bytes.c_str()) : nullptr;
}

RBInteger LenB(REALstring string) { return string ? static_cast<RBInteger>(StringOf(string)->bytes.size()) : 0; }

void* LoadGlobalMethod(const char* module, const char* prototype) {
    if (module == nullptr && prototype && strcmp(prototype, "LenB( s as string ) as integer") == 0)
        return reinterpret_cast<void*>(LenB);
    return nullptr;
}

RBBoolean GetStringData(REALstring string, uint32_t encoding, REALstringData* out) {
    if (string == nullptr || out == nullptr) return 0;
    HostString* s = StringOf(string);
    std::string converted = Convert(s->bytes, s->encoding, encoding);
    char* buffer = static_cast<char*>(malloc(converted.size() + 1));
    memcpy(buffer, converted.data(), converted.size());
    buffer[converted.size()] = Host::Current()->options().stringDataUnterminated ? 'X' : 0;
    out->data = buffer;
    out->length = converted.size();
    out->encoding = encoding;
    out->private1 = buffer;
    out->private2 = 0;
    return 1;
}

void DisposeStringData(REALstringData* data) {
    if (data == nullptr) return;
    free(const_cast<void*>(data->private1));
    data->private1 = nullptr;
    data->data = nullptr;
}

REALstring AddStrings(REALstring a, REALstring b) {
    HostString* first = a ? StringOf(a) : nullptr;
    HostString* second = b ? StringOf(b) : nullptr;
    uint32_t encoding = first ? first->encoding : (second ? second->encoding : kEncodingUTF8);
    std::string bytes = first ? first->bytes : "";
    if (second) bytes += Convert(second->bytes, second->encoding, encoding);
    return NewString(bytes, encoding);
}

void RaiseException(REALobject exception) {
    Host::Impl& state = State();
    LockObject(exception);
    if (state.raised) UnlockObject(state.raised);
    state.raised = exception;
}

RBBoolean SetPropValueString(REALobject object, const char* name, REALstring value) {
    ObjectInfo* info = State().Info(object);
    if (info == nullptr) return 0;
    if (info->kind == ObjectKind::Exception && strcmp(name, "Message") == 0) {
        LockString(value);
        UnlockString(info->message);
        info->message = value;
        return 1;
    }
    return 0;
}

RBBoolean SetPropValueInteger(REALobject object, const char* name, RBInteger value) {
    ObjectInfo* info = State().Info(object);
    if (info == nullptr) return 0;
    if (info->kind == ObjectKind::Exception && strcmp(name, "ErrorNumber") == 0) {
        info->errorNumber = value;
        return 1;
    }
    return 0;
}

RBBoolean GetPropValueInteger(REALobject object, const char* name, RBInteger* out) {
    ObjectInfo* info = State().Info(object);
    if (info == nullptr || out == nullptr) return 0;
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
    ObjectInfo* info = State().Info(object);
    if (info == nullptr || out == nullptr) return 0;
    if (info->kind == ObjectKind::Picture && strcmp(name, "Transparent") == 0) {
        *out = 0;
        return 1;
    }
    return 0;
}

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

long GetPropValueString(REALobject object, const char* name, REALstring* out) {
    ObjectInfo* info = State().Info(object);
    if (info == nullptr || out == nullptr) return 0;
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

void MemoryBlockConstructor(REALobject block, RBInteger size) {
    ObjectInfo* info = State().Info(block);
    if (info == nullptr || size < 0) return;
    int64_t made = Host::Current()->options().memoryBlocksShort ? size / 2 : size;
    free(info->bytes);
    info->bytes = static_cast<uint8_t*>(calloc(static_cast<size_t>(made) + 1, 1));
    info->size = info->bytes ? made : 0;
}

void* LoadObjectMethod(REALobject object, const char* prototype) {
    ObjectInfo* info = State().Info(object);
    if (info && info->kind == ObjectKind::MemoryBlock && prototype &&
        strcmp(prototype, "Constructor(bytes as Integer)") == 0)
        return reinterpret_cast<void*>(MemoryBlockConstructor);
    return nullptr;
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

void* MemoryBlockGetPtr(REALobject block) {
    ObjectInfo* info = State().Info(block);
    return info ? info->bytes : nullptr;
}

RBInteger MemoryBlockGetSize(REALobject block) {
    ObjectInfo* info = State().Info(block);
    return info ? info->size : 0;
}

REALobject CreateArray(int elementType, RBInteger upperBound) { return NewArray(elementType, upperBound); }

RBInteger UBound(void* array) {
    if (array == nullptr) return -1;
    return reinterpret_cast<HostArrayHeader*>(array)->upperBound;
}

REALstring DirectReadStringArray(REALobject array, RBInteger index) {
    int64_t ubound = 0;
    int64_t* elements = ArrayElements(array, &ubound);
    if (index < 0 || index > ubound) return nullptr;
    auto string = reinterpret_cast<REALstring>(elements[index]);
    LockString(string);
    return string;
}

void* ObjectArrayInsertProc(REALobject) { return reinterpret_cast<void*>(InsertObject); }
void* IntegerArrayGetProc(REALobject) { return reinterpret_cast<void*>(GetInteger); }
void* IntegerArraySetProc(REALobject) { return reinterpret_cast<void*>(SetInteger); }

RBBoolean LockPictureDescription(REALobject picture, REALpictureDescription* out, uint32_t type) {
    ObjectInfo* info = State().Info(picture);
    if (info == nullptr || info->kind != ObjectKind::Picture || out == nullptr) return 0;
    if (type == kPictureGDImagePtr && info->gd) {
        out->pictureData = info->gd;
    } else if (type == kPictureCairoContext && info->cairo) {
        cairo_surface_flush(info->surface);
        out->pictureData = info->cairo;
    } else {
        return 0;
    }
    out->pictureType = type;
    out->width = info->width;
    out->height = info->height;
    out->depth = 32;
    out->transparent = 0;
    ++info->descriptionLocks;
    return 1;
}

void UnlockPictureDescription(REALobject picture) {
    if (ObjectInfo* info = State().Info(picture)) --info->descriptionLocks;
}

void PictureClearCache(REALobject picture) {
    ObjectInfo* info = State().Info(picture);
    if (info && info->surface) cairo_surface_mark_dirty(info->surface);
    ++Host::Current()->clearCacheCalls;
}

REALobject NewPictureEntry(RBInteger width, RBInteger height, RBInteger) {
    if (width > 100000 || height > 100000) return nullptr;
    return NewPictureObject(static_cast<int>(width), static_cast<int>(height));
}

RBInteger PictureGetType(REALobject picture) {
    ObjectInfo* info = State().Info(picture);
    if (info == nullptr) return 0;
    return info->gd ? kPictureGDImagePtr : kPictureCairoContext;
}

REALobject BuildPictureFromBuffer(uint32_t width, uint32_t height, uint32_t pixelType, void* buffer,
                                  uint32_t rowBytes) {
    REALobject picture = NewPictureObject(static_cast<int>(width), static_cast<int>(height));
    if (picture == nullptr) return nullptr;
    ObjectInfo* info = State().Info(picture);
    for (uint32_t y = 0; y < height; ++y) {
        const auto* row = static_cast<const uint8_t*>(buffer) + static_cast<size_t>(y) * rowBytes;
        for (uint32_t x = 0; x < width; ++x) {
            uint8_t r = 0, g = 0, b = 0;
            switch (pixelType) {
                case kPixelRGB24:
                    r = row[x * 3], g = row[x * 3 + 1], b = row[x * 3 + 2];
                    break;
                case kPixelBGR24:
                    b = row[x * 3], g = row[x * 3 + 1], r = row[x * 3 + 2];
                    break;
                case kPixelXRGB32:
                    r = row[x * 4 + 1], g = row[x * 4 + 2], b = row[x * 4 + 3];
                    break;
                default:
                    b = row[x * 4], g = row[x * 4 + 1], r = row[x * 4 + 2];
                    break;
            }
            if (info->gd) {
                gdImageSetPixel(info->gd, static_cast<int>(x), static_cast<int>(y), gdTrueColor(r, g, b));
            } else {
                auto* data = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(info->surface) +
                                                         y * cairo_image_surface_get_stride(info->surface));
                data[x] = 0xFF000000u | (uint32_t{r} << 16) | (uint32_t{g} << 8) | b;
            }
        }
    }
    if (info->surface) cairo_surface_mark_dirty(info->surface);
    return picture;
}

REALclassRef ObjectType(const char* className) {
    auto it = State().classes.find(className ? className : "");
    return it == State().classes.end() ? nullptr : it->second;
}

void* GetEventInstance(REALobject object, RBInteger token) {
    Host::Impl& state = State();
    ObjectInfo* info = state.Info(object);
    auto event = state.tokens.find(token);
    if (info == nullptr || event == state.tokens.end()) return nullptr;
    for (ClassInfo* c = info->cls; c != nullptr; c = c->super) {
        auto handler = c->handlers.find(event->second.name);
        if (handler != c->handlers.end()) return handler->second;
    }
    return nullptr;
}

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
    if (host->options().hidden.count(name)) return nullptr;
    for (const NamedEntry& entry : kEntries)
        if (strcmp(entry.name, name) == 0) return entry.function;
    return nullptr;
}

}  // namespace emu
