// Host values held by tests: scalars, and strings and objects that own one
// host reference each.
#include "host/emulator_internal.h"

namespace emu {

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
Value Value::BoolByte(int8_t byte) {
    Value value;
    value.kind_ = Kind::Boolean;
    value.integer_ = static_cast<uint8_t>(byte);
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
    if (Host::Current() == nullptr) return;
    if (kind_ == Kind::String) LockString(string_);
    if (kind_ == Kind::Object) LockObject(object_);
}

void Value::Release() {
    if (Host::Current() != nullptr) {
        if (kind_ == Kind::String) UnlockString(string_);
        if (kind_ == Kind::Object) UnlockObjectAs(object_, "the host program's release");
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

}  // namespace emu
