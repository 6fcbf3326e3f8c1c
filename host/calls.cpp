// Calls by declaration through libffi: arguments marshalled by declared
// type, overloads chosen by the arguments given, properties read and written
// either through their functions or at their field in the class's data block.
#include <ffi.h>

#include <cstring>
#include <stdexcept>

#include "host/emulator_internal.h"

namespace emu {

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
    if (type == "boolean") return Value::BoolByte(*static_cast<const int8_t*>(storage));
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
    host.exception = DescribeRaised(state.raised);
    UnlockObject(state.raised);
    state.raised = nullptr;
}

// An object argument fits a declared class when the class is in the object's chain.
bool IsInstanceOf(const Value& value, const std::string& type) {
    if (type == "variant" || type == "object" || type.find("()") != std::string::npos) return true;
    ObjectInfo* info = CheckedObject(value.AsObject(), "a call's object argument");
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
    if (self.AsObject() == nullptr) throw std::invalid_argument("a member called on nil");
    ObjectInfo* info = state.Info(self.AsObject());
    if (info == nullptr) throw std::invalid_argument("not a live object");
    return info->cls;
}

// The field a standard accessor reads or writes: inside the data block of the
// class whose record holds the property, and wholly inside that block.
char* StandardField(const REALproperty& property, const Value* self, const std::string& type, const char* what) {
    ObjectInfo* info = self ? CheckedObject(self->AsObject(), what) : nullptr;
    if (info == nullptr)
        throw std::invalid_argument(std::string(what) + " of " + property.name + " needs a live object");
    const ClassInfo* owner = OwnerOfProperty(info->cls, &property);
    if (owner == nullptr) throw std::invalid_argument(std::string(property.name) + " is no property of this object");
    size_t width = type == "boolean" ? 1 : FfiType(type)->size;
    if (property.param < 0 || static_cast<size_t>(property.param) + width > owner->record->dataSize)
        Fault(std::string("property ") + property.name + " of " + owner->name + " lies outside its class's data");
    return static_cast<char*>(info->address) + owner->dataOffset + property.param;
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
        char* field = StandardField(property, self, type, "the standard getter");
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
        char* field = StandardField(property, self, type, "the standard setter");
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

}  // namespace emu
