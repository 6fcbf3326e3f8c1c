// The host emulator's public side: loading the plug-in, values, calls by
// declaration through libffi, properties, the main loop and the audit.
#include <dlfcn.h>
#include <ffi.h>
#include <glib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "host/emulator_internal.h"

#ifndef QRV_PLUGIN_PATH
#define QRV_PLUGIN_PATH ""
#endif
#ifndef QRV_SOURCE_DIR
#define QRV_SOURCE_DIR "."
#endif

namespace emu {

namespace {
Host* gCurrent = nullptr;
}

std::string DefaultPluginPath() {
    if (const char* path = getenv("QRV_PLUGIN")) return path;
    return QRV_PLUGIN_PATH;
}

std::string SourceDir() { return QRV_SOURCE_DIR; }

Host* Host::Current() { return gCurrent; }
Host::Impl& State() { return gCurrent->impl(); }
void* Host::Resolve(const char* entryName) { return ResolveEntry(entryName); }

// ---- Value -------------------------------------------------------------------

Value Value::Int(int64_t v) {
    Value value;
    value.kind_ = Kind::Integer;
    value.integer_ = v;
    return value;
}
Value Value::UInt(uint32_t v) {
    Value value;
    value.kind_ = Kind::UInt32;
    value.integer_ = v;
    return value;
}
Value Value::Bool(bool v) {
    Value value;
    value.kind_ = Kind::Boolean;
    value.integer_ = v ? 1 : 0;
    return value;
}
Value Value::Dbl(double v) {
    Value value;
    value.kind_ = Kind::Double;
    value.real_ = v;
    return value;
}
Value Value::Sgl(float v) {
    Value value;
    value.kind_ = Kind::Single;
    value.real_ = v;
    return value;
}
Value Value::Pointer(void* v) {
    Value value;
    value.kind_ = Kind::Ptr;
    value.pointer_ = v;
    return value;
}
Value Value::AdoptString(REALstring s) {
    Value value;
    if (s == nullptr) return value;
    value.kind_ = Kind::String;
    value.string_ = s;
    return value;
}
Value Value::AdoptObject(REALobject o) {
    Value value;
    if (o == nullptr) return value;
    value.kind_ = Kind::Object;
    value.object_ = o;
    return value;
}
Value Value::BorrowString(REALstring s) {
    LockString(s);
    return AdoptString(s);
}
Value Value::BorrowObject(REALobject o) {
    LockObject(o);
    return AdoptObject(o);
}
Value Value::Ref(Value initial) {
    Value value;
    value.kind_ = Kind::Ref;
    value.ref_ = std::make_shared<Value>(std::move(initial));
    return value;
}

void Value::Retain() {
    if (gCurrent == nullptr) return;
    if (kind_ == Kind::String) LockString(string_);
    if (kind_ == Kind::Object) LockObject(object_);
}

void Value::Release() {
    if (gCurrent != nullptr) {
        if (kind_ == Kind::String) UnlockString(string_);
        if (kind_ == Kind::Object) UnlockObject(object_);
    }
    kind_ = Kind::Nil;
    string_ = nullptr;
    object_ = nullptr;
}

Value::Value(const Value& other)
    : kind_(other.kind_),
      integer_(other.integer_),
      real_(other.real_),
      pointer_(other.pointer_),
      string_(other.string_),
      object_(other.object_),
      ref_(other.ref_) {
    Retain();
}

Value::Value(Value&& other) noexcept
    : kind_(other.kind_),
      integer_(other.integer_),
      real_(other.real_),
      pointer_(other.pointer_),
      string_(other.string_),
      object_(other.object_),
      ref_(std::move(other.ref_)) {
    other.kind_ = Kind::Nil;
    other.string_ = nullptr;
    other.object_ = nullptr;
}

Value& Value::operator=(const Value& other) {
    if (this != &other) {
        Value copy(other);
        *this = std::move(copy);
    }
    return *this;
}

Value& Value::operator=(Value&& other) noexcept {
    if (this != &other) {
        Release();
        kind_ = other.kind_;
        integer_ = other.integer_;
        real_ = other.real_;
        pointer_ = other.pointer_;
        string_ = other.string_;
        object_ = other.object_;
        ref_ = std::move(other.ref_);
        other.kind_ = Kind::Nil;
        other.string_ = nullptr;
        other.object_ = nullptr;
    }
    return *this;
}

Value::~Value() { Release(); }

bool Value::IsNil() const { return kind_ == Kind::Nil; }

int64_t Value::AsInt() const {
    switch (kind_) {
        case Kind::Double:
        case Kind::Single:
            return static_cast<int64_t>(real_);
        case Kind::Ptr:
            return reinterpret_cast<int64_t>(pointer_);
        case Kind::Ref:
            return ref_->AsInt();
        default:
            return integer_;
    }
}

bool Value::AsBool() const { return kind_ == Kind::Ref ? ref_->AsBool() : AsInt() != 0; }

double Value::AsDouble() const {
    if (kind_ == Kind::Double || kind_ == Kind::Single) return real_;
    if (kind_ == Kind::Ref) return ref_->AsDouble();
    return static_cast<double>(integer_);
}

// ---- Host --------------------------------------------------------------------

namespace {

ClassInfo* AddBuiltin(Host::Impl& state, const std::string& name, const std::string& super) {
    auto* cls = new ClassInfo;
    cls->name = name;
    cls->superName = super;
    cls->builtin = true;
    if (!super.empty()) cls->super = state.classes[super];
    state.classes[name] = cls;
    return cls;
}

// Each host gets a private copy of the plug-in, so its process-wide state
// (resolver caches, function table, switches) starts fresh.
void* LoadPrivateCopy(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read plug-in " + path);
    char name[] = "/tmp/qrvhost-plugin-XXXXXX.so";
    int fd = mkstemps(name, 3);
    if (fd < 0) throw std::runtime_error("cannot make a temporary copy of the plug-in");
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ssize_t written = write(fd, bytes.data(), bytes.size());
    close(fd);
    if (written != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("cannot copy the plug-in");
    void* library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    // Sanitizer reports need the file to symbolise the plug-in's frames.
    const char* keep = getenv("QRVHOST_KEEP_PLUGIN_COPY");
    if (keep == nullptr || *keep == '\0') unlink(name);
    if (library == nullptr) throw std::runtime_error(std::string("dlopen: ") + dlerror());
    return library;
}

}  // namespace

Host::Host(HostOptions options) : options_(std::move(options)), impl_(std::make_unique<Impl>()) {
    if (gCurrent != nullptr) throw std::logic_error("only one emu::Host may be alive");
    gCurrent = this;
    if (options_.pluginPath.empty()) options_.pluginPath = DefaultPluginPath();
    Impl& state = *impl_;
    AddBuiltin(state, "Object", "");
    AddBuiltin(state, "RuntimeException", "");
    for (const char* name :
         {"NilObjectException", "OutOfBoundsException", "OutOfMemoryException", "UnsupportedOperationException"})
        AddBuiltin(state, name, "RuntimeException");
    AddBuiltin(state, "MemoryBlock", "");
    AddBuiltin(state, "FolderItem", "");
    AddBuiltin(state, "Picture", "");
    try {
        impl_->library = LoadPrivateCopy(options_.pluginPath);
    } catch (...) {
        gCurrent = nullptr;
        throw;
    }
    if (options_.callMain) CallPluginMain();
}

void Host::CallPluginMain() {
    auto main = reinterpret_cast<PluginMainFn>(dlsym(impl_->library, "REALPluginMain"));
    if (main == nullptr) throw std::runtime_error("the plug-in does not export REALPluginMain");
    main(&ResolveEntry);
}

// What tests leave alive is reported by the audit. A real host never frees
// what a program still holds: objects and strings left locked when the host
// goes away (some members keep locks on purpose) stay in memory for the rest
// of the process, still reachable from here.
struct Abandoned {
    std::vector<std::pair<void*, ObjectInfo*>> objects;
    std::vector<HostString*> strings;
};
// Never destroyed, so it outlasts the process's exit-time leak checks.
static Abandoned* const gAbandoned = new Abandoned;

Host::Impl::~Impl() {
    for (auto& [address, info] : objects) gAbandoned->objects.emplace_back(address, info);
    gAbandoned->strings.insert(gAbandoned->strings.end(), strings.begin(), strings.end());
    for (auto& [name, cls] : classes) delete cls;
    for (auto& [token, entry] : tokens) delete[] entry.indirection;
}

Host::~Host() {
    // Objects still alive belong to tests that leaked them; the audit reports those.
    if (impl_->raised) UnlockObject(impl_->raised);
    gCurrent = nullptr;
}

const ClassInfo* Host::FindClass(std::string_view name) const {
    auto it = impl_->classes.find(name);
    return it == impl_->classes.end() ? nullptr : it->second;
}

std::vector<const ClassInfo*> Host::PluginClasses() const {
    return std::vector<const ClassInfo*>(impl_->pluginOrder.begin(), impl_->pluginOrder.end());
}

void Host::DefineSubclass(const std::string& name, const std::string& superName,
                          std::map<std::string, void*> handlers) {
    auto* cls = new ClassInfo;
    cls->name = name;
    cls->superName = superName;
    auto it = impl_->classes.find(superName);
    if (it == impl_->classes.end()) throw std::invalid_argument("unknown class " + superName);
    cls->super = it->second;
    cls->handlers = std::move(handlers);
    impl_->classes[name] = cls;
}

void Host::SetHandler(const std::string& className, const std::string& event, void* handler) {
    auto it = impl_->classes.find(className);
    if (it == impl_->classes.end()) throw std::invalid_argument("unknown class " + className);
    if (handler == nullptr)
        it->second->handlers.erase(event);
    else
        it->second->handlers[event] = handler;
}

// ---- calls -------------------------------------------------------------------

namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

bool IsIntegerType(const std::string& t) { return t == "integer" || t == "int64" || t == "int32"; }
bool IsObjectType(const std::string& t) {
    return !(IsIntegerType(t) || t == "uint32" || t == "boolean" || t == "double" || t == "single" || t == "string" ||
             t == "ptr" || t.empty());
}

ffi_type* FfiType(const std::string& t) {
    if (t.empty()) return &ffi_type_void;
    if (IsIntegerType(t)) return &ffi_type_sint64;
    if (t == "uint32") return &ffi_type_uint32;
    if (t == "boolean") return &ffi_type_sint8;
    if (t == "double") return &ffi_type_double;
    if (t == "single") return &ffi_type_float;
    return &ffi_type_pointer;
}

// Storage for one marshalled argument.
struct Slot {
    union {
        int64_t i64;
        uint32_t u32;
        int8_t i8;
        double d;
        float f;
        void* p;
    } v;
    void* byrefTarget = nullptr;  // for byref: the address passed
};

void Marshal(const std::string& type, const Value& value, Slot& slot) {
    memset(&slot.v, 0, sizeof slot.v);
    if (IsIntegerType(type))
        slot.v.i64 = value.AsInt();
    else if (type == "uint32")
        slot.v.u32 = static_cast<uint32_t>(value.AsInt());
    else if (type == "boolean")
        slot.v.i8 = value.AsBool() ? 1 : 0;
    else if (type == "double")
        slot.v.d = value.AsDouble();
    else if (type == "single")
        slot.v.f = static_cast<float>(value.AsDouble());
    else if (type == "string")
        slot.v.p = value.AsString();
    else if (type == "ptr")
        slot.v.p = value.kind() == Value::Kind::Ptr ? value.AsPtr() : reinterpret_cast<void*>(value.AsInt());
    else
        slot.v.p = value.AsObject();
}

Value Unmarshal(const std::string& type, const void* storage, bool owned) {
    if (IsIntegerType(type)) return Value::Int(*static_cast<const int64_t*>(storage));
    if (type == "uint32") return Value::UInt(*static_cast<const uint32_t*>(storage));
    if (type == "boolean") return Value::Bool(*static_cast<const int8_t*>(storage) != 0);
    if (type == "double") return Value::Dbl(*static_cast<const double*>(storage));
    if (type == "single") return Value::Sgl(*static_cast<const float*>(storage));
    void* p = *static_cast<void* const*>(storage);
    if (type == "ptr") return Value::Pointer(p);
    if (type == "string") {
        if (!owned) LockString(static_cast<REALstring>(p));
        return Value::AdoptString(static_cast<REALstring>(p));
    }
    if (!owned) LockObject(static_cast<REALobject>(p));
    return Value::AdoptObject(static_cast<REALobject>(p));
}

Value DefaultValue(const Parameter& parameter) {
    std::string text = Lower(parameter.defaultText);
    if (text == "nil" || text.empty()) return Value();
    if (text == "true") return Value::Bool(true);
    if (text == "false") return Value::Bool(false);
    if (text.find('.') != std::string::npos) return Value::Dbl(strtod(text.c_str(), nullptr));
    return Value::Int(strtoll(text.c_str(), nullptr, 0));
}

struct CallResult {
    Value value;
};

// Calls fn through libffi: types[i] describe the C parameters.
void FfiCall(REALproc fn, std::vector<ffi_type*>& types, std::vector<void*>& values, ffi_type* result,
             void* resultStorage) {
    ffi_cif cif;
    if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, static_cast<unsigned>(types.size()), result, types.data()) != FFI_OK)
        throw std::runtime_error("ffi_prep_cif failed");
    ffi_call(&cif, fn, resultStorage, values.data());
}

void BeginCall(Host::Impl& state, Host& host) {
    host.exception.reset();
    if (state.raised) {
        UnlockObject(state.raised);
        state.raised = nullptr;
    }
}

void EndCall(Host::Impl& state, Host& host) {
    if (state.raised == nullptr) return;
    ObjectInfo* info = state.Info(state.raised);
    RaisedException raised;
    raised.className = info && info->cls ? info->cls->name : "?";
    if (info && info->message)
        raised.message = Convert(StringOf(info->message)->bytes, StringOf(info->message)->encoding, kEncodingUTF8);
    host.exception = raised;
    UnlockObject(state.raised);
    state.raised = nullptr;
}

// An object argument fits a declared class when the class is in the object's chain.
bool IsInstanceOf(const Value& value, const std::string& type) {
    if (type == "variant" || type == "object" || type.find("()") != std::string::npos) return true;
    ObjectInfo* info = State().Info(value.AsObject());
    if (info == nullptr) return false;
    for (const ClassInfo* c = info->cls; c != nullptr; c = c->super)
        if (Lower(c->name) == type) return true;
    return false;
}

bool Compatible(const Parameter& parameter, const Value& value) {
    const std::string& t = parameter.type;
    Value::Kind k = value.kind();
    if (parameter.byref) return k == Value::Kind::Ref;
    if (k == Value::Kind::Nil) return t == "string" || IsObjectType(t) || t == "ptr";
    if (t == "string") return k == Value::Kind::String;
    if (IsObjectType(t)) return k == Value::Kind::Object && IsInstanceOf(value, t);
    if (t == "ptr") return k == Value::Kind::Ptr || k == Value::Kind::Integer;
    if (t == "boolean") return k == Value::Kind::Boolean;
    return k == Value::Kind::Integer || k == Value::Kind::UInt32 || k == Value::Kind::Double ||
           k == Value::Kind::Single || k == Value::Kind::Boolean;
}

size_t RequiredCount(const Declaration& d) {
    size_t required = 0;
    for (const Parameter& p : d.parameters)
        if (!p.hasDefault) ++required;
    return required;
}

}  // namespace

std::optional<RaisedException> Host::TakeRaised() {
    exception.reset();
    EndCall(*impl_, *this);
    std::optional<RaisedException> raised = exception;
    exception.reset();
    return raised;
}

Value Host::CallMethod(const REALmethodDefinition& method, const Value* self, std::vector<Value> args, bool assigning,
                       const Value* assigned) {
    Declaration d = ParseDeclaration(method.declaration);
    for (size_t i = args.size(); i < d.parameters.size(); ++i) args.push_back(DefaultValue(d.parameters[i]));
    std::vector<ffi_type*> types;
    std::vector<Slot> slots(d.parameters.size() + 2);
    std::vector<void*> values;
    size_t slot = 0;
    if (self != nullptr) {
        slots[slot].v.p = self->AsObject();
        types.push_back(&ffi_type_pointer);
        values.push_back(&slots[slot++].v);
    }
    std::vector<Slot> targets(d.parameters.size());
    for (size_t i = 0; i < d.parameters.size(); ++i) {
        const Parameter& p = d.parameters[i];
        if (p.byref) {
            Marshal(p.type, args[i].kind() == Value::Kind::Ref ? args[i].Deref() : args[i], targets[i]);
            slots[slot].v.p = &targets[i].v;
            types.push_back(&ffi_type_pointer);
        } else {
            Marshal(p.type, args[i], slots[slot]);
            types.push_back(FfiType(p.type));
        }
        values.push_back(&slots[slot++].v);
    }
    if (assigning) {
        Marshal(d.result, *assigned, slots[slot]);
        types.push_back(FfiType(d.result));
        values.push_back(&slots[slot++].v);
    }
    REALproc fn = assigning ? method.setterFunction : method.function;
    Impl& state = *impl_;
    BeginCall(state, *this);
    alignas(16) unsigned char result[32] = {};
    std::string resultType = assigning ? "" : d.result;
    FfiCall(fn, types, values, FfiType(resultType), result);
    // Small integer results come back widened to ffi_arg.
    if (resultType == "boolean") {
        int8_t b = static_cast<int8_t>(*reinterpret_cast<ffi_arg*>(result));
        memcpy(result, &b, 1);
    } else if (resultType == "uint32") {
        uint32_t u = static_cast<uint32_t>(*reinterpret_cast<ffi_arg*>(result));
        memcpy(result, &u, 4);
    }
    for (size_t i = 0; i < d.parameters.size(); ++i)
        if (d.parameters[i].byref && args[i].kind() == Value::Kind::Ref)
            args[i].Deref() = Unmarshal(d.parameters[i].type, &targets[i].v, false);
    EndCall(state, *this);
    if (resultType.empty()) return Value();
    return Unmarshal(resultType, result, true);
}

namespace {

// Candidate methods by name, instance or shared, walking the class chain.
std::vector<const REALmethodDefinition*> FindMethods(const ClassInfo* cls, std::string_view name, bool shared) {
    std::vector<const REALmethodDefinition*> found;
    std::string wanted = Lower(std::string(name));
    for (const ClassInfo* c = cls; c != nullptr; c = c->super) {
        if (c->record == nullptr) continue;
        REALmethodDefinition* list = shared ? c->record->sharedMethods : c->record->methods;
        size_t count = shared ? c->record->sharedMethodCount : c->record->methodCount;
        for (size_t i = 0; i < count; ++i)
            if (list[i].declaration && Lower(ParseDeclaration(list[i].declaration).name) == wanted)
                found.push_back(&list[i]);
    }
    return found;
}

const REALmethodDefinition* ChooseOverload(const std::vector<const REALmethodDefinition*>& candidates,
                                           const std::vector<Value>& args, std::string_view name) {
    for (const REALmethodDefinition* m : candidates) {
        Declaration d = ParseDeclaration(m->declaration);
        if (args.size() < RequiredCount(d) || args.size() > d.parameters.size()) continue;
        bool ok = true;
        for (size_t i = 0; i < args.size() && ok; ++i) ok = Compatible(d.parameters[i], args[i]);
        if (ok) return m;
    }
    throw std::invalid_argument("no overload of " + std::string(name) + " takes these arguments");
}

const ClassInfo* ClassOf(const Host::Impl& state, const Value& self) {
    ObjectInfo* info = state.Info(self.AsObject());
    if (info == nullptr) throw std::invalid_argument("not a live object");
    return info->cls;
}

const REALproperty* FindProperty(const ClassInfo* cls, std::string_view name, bool shared) {
    std::string wanted = Lower(std::string(name));
    for (const ClassInfo* c = cls; c != nullptr; c = c->super) {
        if (c->record == nullptr) continue;
        REALproperty* list = shared ? c->record->sharedProperties : c->record->properties;
        size_t count = shared ? c->record->sharedPropertyCount : c->record->propertyCount;
        for (size_t i = 0; i < count; ++i)
            if (list[i].name && Lower(list[i].name) == wanted) return &list[i];
    }
    return nullptr;
}

}  // namespace

Value Host::NewRaw(std::string_view className) {
    auto it = impl_->classes.find(className);
    if (it == impl_->classes.end()) throw std::invalid_argument("unknown class " + std::string(className));
    return Value::AdoptObject(NewObject(it->second));
}

Value Host::New(std::string_view className, std::vector<Value> args) {
    Value object = NewRaw(className);
    auto constructors = FindMethods(ClassOf(*impl_, object), "Constructor", false);
    if (constructors.empty()) {
        exception.reset();
        return object;
    }
    const REALmethodDefinition* chosen = ChooseOverload(constructors, args, "Constructor");
    CallMethod(*chosen, &object, std::move(args));
    return object;
}

Value Host::Call(const Value& self, std::string_view method, std::vector<Value> args) {
    auto candidates = FindMethods(ClassOf(*impl_, self), method, false);
    const REALmethodDefinition* chosen = ChooseOverload(candidates, args, method);
    return CallMethod(*chosen, &self, std::move(args));
}

Value Host::CallShared(std::string_view className, std::string_view method, std::vector<Value> args) {
    const ClassInfo* cls = FindClass(className);
    if (cls == nullptr) throw std::invalid_argument("unknown class " + std::string(className));
    auto candidates = FindMethods(cls, method, true);
    const REALmethodDefinition* chosen = ChooseOverload(candidates, args, method);
    return CallMethod(*chosen, nullptr, std::move(args));
}

void Host::Assign(const Value& self, std::string_view method, std::vector<Value> args, Value value) {
    auto candidates = FindMethods(ClassOf(*impl_, self), method, false);
    std::erase_if(candidates, [](const REALmethodDefinition* m) { return m->setterFunction == nullptr; });
    const REALmethodDefinition* chosen = ChooseOverload(candidates, args, method);
    CallMethod(*chosen, &self, std::move(args), true, &value);
}

Value Host::CallGetter(const REALproperty& property, const Value* self) {
    std::string type = Lower(property.type);
    Impl& state = *impl_;
    if (property.getter == kStandardAccessor) {
        BeginCall(state, *this);
        char* field = reinterpret_cast<char*>(self->AsObject()) + kDataOffset + property.param;
        if (type == "boolean") return Value::Bool(*reinterpret_cast<int8_t*>(field) != 0);
        return Unmarshal(type, field, false);
    }
    std::vector<ffi_type*> types;
    std::vector<void*> values;
    void* object = self ? self->AsObject() : nullptr;
    int64_t param = property.param;
    if (self != nullptr) {
        types = {&ffi_type_pointer, &ffi_type_sint64};
        values = {&object, &param};
    }
    BeginCall(state, *this);
    alignas(16) unsigned char result[32] = {};
    FfiCall(property.getter, types, values, FfiType(type), result);
    if (type == "boolean") {
        int8_t b = static_cast<int8_t>(*reinterpret_cast<ffi_arg*>(result));
        memcpy(result, &b, 1);
    } else if (type == "uint32") {
        uint32_t u = static_cast<uint32_t>(*reinterpret_cast<ffi_arg*>(result));
        memcpy(result, &u, 4);
    }
    EndCall(state, *this);
    return Unmarshal(type, result, true);
}

void Host::CallSetter(const REALproperty& property, const Value* self, Value value) {
    std::string type = Lower(property.type);
    Impl& state = *impl_;
    if (property.setter == nullptr) throw std::invalid_argument(std::string(property.name) + " is read-only");
    if (property.setter == kStandardAccessor) {
        BeginCall(state, *this);
        char* field = reinterpret_cast<char*>(self->AsObject()) + kDataOffset + property.param;
        if (type == "boolean") {
            *reinterpret_cast<int8_t*>(field) = value.AsBool() ? 1 : 0;
        } else if (type == "string") {
            LockString(value.AsString());
            UnlockString(*reinterpret_cast<REALstring*>(field));
            *reinterpret_cast<REALstring*>(field) = value.AsString();
        } else if (IsObjectType(type)) {
            LockObject(value.AsObject());
            UnlockObject(*reinterpret_cast<REALobject*>(field));
            *reinterpret_cast<REALobject*>(field) = value.AsObject();
        } else {
            Slot slot;
            Marshal(type, value, slot);
            memcpy(field, &slot.v, FfiType(type)->size);
        }
        return;
    }
    Slot slot;
    Marshal(type, value, slot);
    void* object = self ? self->AsObject() : nullptr;
    int64_t param = property.param;
    std::vector<ffi_type*> types;
    std::vector<void*> values;
    if (self != nullptr) {
        types = {&ffi_type_pointer, &ffi_type_sint64};
        values = {&object, &param};
    }
    types.push_back(FfiType(type));
    values.push_back(&slot.v);
    BeginCall(state, *this);
    unsigned char result[16];
    FfiCall(property.setter, types, values, &ffi_type_void, result);
    EndCall(state, *this);
}

Value Host::Get(const Value& self, std::string_view property) {
    const ClassInfo* cls = ClassOf(*impl_, self);
    if (const REALproperty* p = FindProperty(cls, property, false)) return CallGetter(*p, &self);
    ObjectInfo* info = impl_->Info(self.AsObject());
    if (info->kind == ObjectKind::Exception && Lower(std::string(property)) == "message") {
        LockString(info->message);
        return Value::AdoptString(info->message);
    }
    throw std::invalid_argument("no property " + std::string(property));
}

void Host::Set(const Value& self, std::string_view property, Value value) {
    const REALproperty* p = FindProperty(ClassOf(*impl_, self), property, false);
    if (p == nullptr) throw std::invalid_argument("no property " + std::string(property));
    CallSetter(*p, &self, std::move(value));
}

Value Host::GetShared(std::string_view className, std::string_view property) {
    const REALproperty* p = FindProperty(FindClass(className), property, true);
    if (p == nullptr) throw std::invalid_argument("no shared property " + std::string(property));
    return CallGetter(*p, nullptr);
}

void Host::SetShared(std::string_view className, std::string_view property, Value value) {
    const REALproperty* p = FindProperty(FindClass(className), property, true);
    if (p == nullptr) throw std::invalid_argument("no shared property " + std::string(property));
    CallSetter(*p, nullptr, std::move(value));
}

// ---- values made by tests ----------------------------------------------------

Value Host::String(std::string_view bytes, uint32_t encoding) {
    return Value::AdoptString(NewString(std::string(bytes), encoding));
}

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

Value Host::FolderItem(const std::string& path) {
    REALobject item = NewObject(impl_->classes["FolderItem"]);
    impl_->Info(item)->path = path;
    return Value::AdoptObject(item);
}

Value Host::MemoryBlock(size_t size) {
    REALobject block = NewObject(impl_->classes["MemoryBlock"]);
    ObjectInfo* info = impl_->Info(block);
    info->bytes = static_cast<uint8_t*>(calloc(size + 1, 1));
    info->size = static_cast<int64_t>(size);
    return Value::AdoptObject(block);
}

Value Host::Picture(int width, int height) { return Value::AdoptObject(NewPictureObject(width, height)); }

std::string Host::Bytes(const Value& string) const {
    REALstring s = string.AsString();
    return s ? StringOf(s)->bytes : std::string();
}

uint32_t Host::Encoding(const Value& string) const {
    REALstring s = string.AsString();
    return s ? StringOf(s)->encoding : kEncodingUnknown;
}

std::string Host::Text(const Value& string) const {
    REALstring s = string.AsString();
    if (s == nullptr) return std::string();
    return Convert(StringOf(s)->bytes, StringOf(s)->encoding, kEncodingUTF8);
}

std::vector<Value> Host::ArrayObjects(const Value& array) const {
    std::vector<Value> items;
    if (array.AsObject() == nullptr) return items;
    int64_t ubound = -1;
    int64_t* elements = ArrayElements(array.AsObject(), &ubound);
    for (int64_t i = 0; i <= ubound; ++i) {
        auto object = reinterpret_cast<REALobject>(elements[i]);
        LockObject(object);
        items.push_back(Value::AdoptObject(object));
    }
    return items;
}

int64_t Host::ArrayUBound(const Value& array) const {
    int64_t ubound = -1;
    if (array.AsObject()) ArrayElements(array.AsObject(), &ubound);
    return ubound;
}

uint8_t* Host::MemoryBytesPointer(const Value& block) const {
    ObjectInfo* info = impl_->Info(block.AsObject());
    return info ? info->bytes : nullptr;
}

std::vector<uint8_t> Host::MemoryBytes(const Value& block) const {
    ObjectInfo* info = impl_->Info(block.AsObject());
    if (info == nullptr || info->bytes == nullptr) return {};
    return std::vector<uint8_t>(info->bytes, info->bytes + info->size);
}

// ---- main loop ---------------------------------------------------------------

bool Host::PumpUntil(const std::function<bool()>& done, std::chrono::milliseconds deadline) {
    auto end = std::chrono::steady_clock::now() + deadline;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        if (!g_main_context_iteration(nullptr, FALSE)) std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

void Host::PumpFor(std::chrono::milliseconds duration) {
    PumpUntil([] { return false; }, duration);
}

// ---- audit -------------------------------------------------------------------

size_t Host::LiveObjects() const { return impl_->objects.size(); }
size_t Host::LiveStrings() const { return impl_->strings.size(); }

int64_t Host::LockCount(const Value& value) const {
    if (value.AsString()) return StringOf(value.AsString())->refs;
    ObjectInfo* info = impl_->Info(value.AsObject());
    return info ? info->refs : 0;
}

// ---- pictures ----------------------------------------------------------------

PictureKind Host::PictureKindOf(const Value& picture) const {
    ObjectInfo* info = impl_->Info(picture.AsObject());
    return info && info->gd ? PictureKind::Gd : PictureKind::Cairo;
}

uint32_t Host::PixelARGB(const Value& picture, int x, int y) const {
    ObjectInfo* info = impl_->Info(picture.AsObject());
    if (info == nullptr || x < 0 || y < 0 || x >= info->width || y >= info->height) return 0;
    if (info->gd) {
        int c = gdImageGetTrueColorPixel(info->gd, x, y);
        uint32_t alpha = static_cast<uint32_t>(255 - (gdTrueColorGetAlpha(c) * 255 / 127));
        return (alpha << 24) | (static_cast<uint32_t>(gdTrueColorGetRed(c)) << 16) |
               (static_cast<uint32_t>(gdTrueColorGetGreen(c)) << 8) | static_cast<uint32_t>(gdTrueColorGetBlue(c));
    }
    cairo_surface_flush(info->surface);
    const unsigned char* data = cairo_image_surface_get_data(info->surface);
    int stride = cairo_image_surface_get_stride(info->surface);
    return reinterpret_cast<const uint32_t*>(data + y * stride)[x];
}

bool Host::SavePNG(const Value& picture, const std::string& path) const {
    ObjectInfo* info = impl_->Info(picture.AsObject());
    if (info == nullptr) return false;
    if (info->gd) {
        FILE* out = fopen(path.c_str(), "wb");
        if (out == nullptr) return false;
        gdImagePng(info->gd, out);
        return fclose(out) == 0;
    }
    return cairo_surface_write_to_png(info->surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
}

// ---- listing -----------------------------------------------------------------

std::string Host::Describe() const {
    std::ostringstream out;
    for (const ClassInfo* cls : impl_->pluginOrder) {
        const REALclassDefinition& r = *cls->record;
        out << "class " << cls->name << " super " << (cls->superName.empty() ? "-" : cls->superName) << "\n";
        auto property = [&](const REALproperty& p, const char* kind) {
            out << cls->name << " " << kind << " " << p.name << " as " << p.type
                << (p.setter == nullptr ? " [read-only]" : "") << "\n";
        };
        auto method = [&](const REALmethodDefinition& m, const char* kind) {
            out << cls->name << " " << kind << " " << m.declaration << (m.setterFunction ? " [assign]" : "") << "\n";
        };
        for (size_t i = 0; i < r.propertyCount; ++i) property(r.properties[i], "property");
        for (size_t i = 0; i < r.methodCount; ++i) method(r.methods[i], "method");
        for (size_t i = 0; i < r.eventCount; ++i) out << cls->name << " event " << r.events[i].declaration << "\n";
        for (size_t i = 0; i < r.constantCount; ++i)
            out << cls->name << " constant " << r.constants[i].declaration << "\n";
        for (size_t i = 0; i < r.sharedPropertyCount; ++i) property(r.sharedProperties[i], "shared-property");
        for (size_t i = 0; i < r.sharedMethodCount; ++i) method(r.sharedMethods[i], "shared-method");
    }
    return out.str();
}

}  // namespace emu
