// The host emulator: plays the host's side of the plug-in interface so the
// built plug-in is loaded and driven exactly as the host would drive it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "plugin/host_abi.h"

namespace emu {

// Gd and cairo pictures are the Linux host's; CGContext pictures (Core Graphics
// bitmap contexts) the Mac host's, made only where the Apple stand-ins are built in.
enum class PictureKind { Gd, Cairo, CGContext };
// The platform pictures of the plug-in flavour under test: Cairo, or CGContext
// for the build on the Apple stand-ins.
PictureKind NativePictureKind();

struct HostOptions {
    double version = 2021.0;               // what "REALGetRBVersion" answers
    std::set<std::string> hidden;          // resolver entries answered with NULL
    std::set<std::string> refusedClasses;  // "PluginNewInstance" answers NULL for these
    bool brokenArrayLayout = false;        // arrays whose in-place header fails the plug-in's check
    bool memoryBlocksShort = false;        // MemoryBlock constructors make blocks smaller than asked
    bool picturesShort = false;            // "newPicture" makes pictures with half the rows asked
    bool stringDataUnterminated = false;   // "PluginGetStringData" answers text without a trailing zero
    PictureKind pictures = PictureKind::Gd;
    bool imageClass = false;  // registers CGImageQRV, the image class another plug-in brings on a Mac
    // CGContext pictures' bitmap info; the Mac host's own: premultiplied alpha first, little-endian words.
    uint32_t pictureBitmapInfo = 0x2002;
    bool callMain = true;    // call REALPluginMain on construction
    std::string pluginPath;  // default: the built QRVVLC.so
};

struct RaisedException {
    std::string className;
    std::string message;
};

class Host;

// A host value. String and object values own one host reference: copying
// locks again, destruction unlocks.
class Value {
public:
    enum class Kind { Nil, Integer, UInt32, Boolean, Double, Single, String, Object, Ptr, Ref };

    Value() = default;
    static Value Int(int64_t v);
    static Value UInt(uint32_t v);
    static Value Bool(bool v);
    // A Boolean as the host reads it from the plug-in: the byte itself (true is 1;
    // other non-zero bytes test true yet compare unequal to True).
    static Value BoolByte(int8_t byte);
    static Value Dbl(double v);
    static Value Sgl(float v);
    static Value Pointer(void* v);
    // Takes over a reference the caller owns.
    static Value AdoptString(REALstring s);
    static Value AdoptObject(REALobject o);
    // Takes a reference of its own on a value the caller only borrows (event handler arguments).
    static Value BorrowString(REALstring s);
    static Value BorrowObject(REALobject o);
    // A byref slot holding an initial value; the callee's write is copied back.
    static Value Ref(Value initial);

    Value(const Value& other);
    Value(Value&& other) noexcept;
    Value& operator=(const Value& other);
    Value& operator=(Value&& other) noexcept;
    ~Value();

    Kind kind() const { return kind_; }
    bool IsNil() const;
    int64_t AsInt() const;
    bool AsBool() const;
    double AsDouble() const;
    REALstring AsString() const { return kind_ == Kind::String ? string_ : nullptr; }
    REALobject AsObject() const { return kind_ == Kind::Object ? object_ : nullptr; }
    void* AsPtr() const { return kind_ == Kind::Ptr ? pointer_ : nullptr; }
    // The value behind a byref slot.
    Value& Deref() const { return *ref_; }

private:
    void Release();
    void Retain();
    Kind kind_ = Kind::Nil;
    int64_t integer_ = 0;
    double real_ = 0;
    void* pointer_ = nullptr;
    REALstring string_ = nullptr;
    REALobject object_ = nullptr;
    std::shared_ptr<Value> ref_;
};

// A parsed declaration: "Name(a as T, byref b as T = default) as R".
struct Parameter {
    std::string name;
    std::string type;  // lower case, "()" appended for arrays
    bool byref = false;
    bool hasDefault = false;
    std::string defaultText;
};
struct Declaration {
    std::string name;
    std::vector<Parameter> parameters;
    std::string result;  // lower case, empty for none
};
Declaration ParseDeclaration(std::string_view text);

struct ClassInfo {
    std::string name;
    std::string superName;
    REALclassDefinition* record = nullptr;  // null for built-in and test classes
    ClassInfo* super = nullptr;
    std::map<std::string, void*> handlers;  // test subclasses: event name -> handler
    bool builtin = false;
    int64_t dataOffset = 0;                 // where this class's data block starts in an object (plug-in classes)
    size_t fieldsBegin = 0, fieldsEnd = 0;  // built-in classes with fields of their own: where they lie
};

// What the plug-in holds through the host at one moment.
struct Audit {
    size_t objects = 0;
    size_t strings = 0;
    int64_t pictureLocks = 0;             // "REALLockPictureDescription" not yet unlocked
    size_t stringData = 0;                // "PluginGetStringData" buffers not yet disposed
    std::set<std::string> objectClasses;  // of the objects counted, where known
    bool operator==(const Audit&) const = default;
};
std::string Describe(const Audit& audit);

// Every fault the emulator sees in the plug-in (a destroyed object handed to
// an entry, a second raise in one call, a damaged object header, what is left
// when a host goes away) goes to this handler. The default prints the
// message and aborts, as a real host would likely crash; tests install one
// that fails the running test.
using FaultHandler = void (*)(const std::string& message);
void SetFaultHandler(FaultHandler handler);

class Host {
public:
    explicit Host(HostOptions options = {});
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    static Host* Current();
    // The resolver this host hands to the plug-in.
    static void* Resolve(const char* entryName);
    void CallPluginMain();

    // ---- registry
    const ClassInfo* FindClass(std::string_view name) const;
    std::vector<const ClassInfo*> PluginClasses() const;  // registration order
    int registeredVersion = -1;                           // what "RegisterPluginVersion" received
    std::set<std::string> hiddenAsked;                    // hidden entries the plug-in asked for

    // ---- objects and calls
    Value NewRaw(std::string_view className);  // zero-filled, no constructor
    Value New(std::string_view className, std::vector<Value> args = {});
    Value Call(const Value& self, std::string_view method, std::vector<Value> args = {});
    Value CallShared(std::string_view className, std::string_view method, std::vector<Value> args = {});
    void Assign(const Value& self, std::string_view method, std::vector<Value> args, Value value);
    Value Get(const Value& self, std::string_view property);
    void Set(const Value& self, std::string_view property, Value value);
    Value GetShared(std::string_view className, std::string_view property);
    void SetShared(std::string_view className, std::string_view property, Value value);
    // Calls one registered method record (any overload) with these arguments.
    Value CallMethod(const REALmethodDefinition& method, const Value* self, std::vector<Value> args,
                     bool assigning = false, const Value* assigned = nullptr);
    Value CallGetter(const REALproperty& property, const Value* self);
    void CallSetter(const REALproperty& property, const Value* self, Value value);

    // What the last call raised (cleared when a call starts).
    std::optional<RaisedException> exception;
    // Every exception raised through "RuntimeRaiseException" while this host lived.
    std::vector<RaisedException> raisedLog;
    // For plug-in code called directly by a test: what it raised since the last
    // call, and clears it.
    std::optional<RaisedException> TakeRaised();

    // ---- values made by tests
    Value String(std::string_view bytes, uint32_t encoding = kEncodingUTF8);
    Value StringArray(const std::vector<std::string>& items);
    Value IntegerArray(const std::vector<int64_t>& items);
    Value FolderItem(const std::string& path);
    Value MemoryBlock(size_t size);
    Value Picture(int width, int height);
    std::string Text(const Value& string) const;  // as UTF-8
    std::string Bytes(const Value& string) const;
    uint32_t Encoding(const Value& string) const;
    std::vector<Value> ArrayObjects(const Value& array) const;
    std::vector<uint8_t> MemoryBytes(const Value& block) const;
    uint8_t* MemoryBytesPointer(const Value& block) const;
    int64_t ArrayUBound(const Value& array) const;

    // ---- subclasses with event handlers
    void DefineSubclass(const std::string& name, const std::string& superName, std::map<std::string, void*> handlers);
    // Adds, replaces or (with null) removes one handler of a test subclass.
    void SetHandler(const std::string& className, const std::string& event, void* handler);

    // ---- main loop (GLib's default context on this thread)
    bool PumpUntil(const std::function<bool()>& done, std::chrono::milliseconds deadline);
    void PumpFor(std::chrono::milliseconds duration);

    // ---- audit
    size_t LiveObjects() const;
    size_t LiveStrings() const;
    int64_t LockCount(const Value& value) const;
    Audit Count() const;
    // Objects and strings still alive that nothing in the plug-in's own data
    // (its globals and, from there, the objects they hold) refers to: leaked.
    // Checked by the destructor, which reports a fault for any.
    Audit Unreachable() const;
    // Some members keep a lock that is never given back, by design (the list
    // player's List and Player): the audit counts such an object, and what it
    // holds, as referenced.
    void KeptByDesign(const Value& object);
    int clearCacheCalls = 0;  // "REALPictureClearCache"

    // ---- pictures
    PictureKind PictureKindOf(const Value& picture) const;
    bool SavePNG(const Value& picture, const std::string& path) const;
    uint32_t PixelARGB(const Value& picture, int x, int y) const;

    // ---- listing of every registered class and member (qrvhost describe)
    std::string Describe() const;

    const HostOptions& options() const { return options_; }
    struct Impl;
    Impl& impl() { return *impl_; }

private:
    HostOptions options_;
    std::unique_ptr<Impl> impl_;
    friend class Value;
};

// The default plug-in path (the built QRVVLC.so) and the repository's root.
std::string DefaultPluginPath();
std::string SourceDir();

}  // namespace emu
