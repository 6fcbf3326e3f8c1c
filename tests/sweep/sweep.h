// The sweeps' view of the registered members, and what each member raises with
// libvlc not loaded, on an uninitialised object and with nil object arguments
// (one ClassSweep per class, in expect_*.cpp). Member keys: the declaration as
// registered; "assign " + declaration for an assigning form; "get Name" /
// "set Name" for properties; "shared " in front for shared members. Standard
// fields need no row (they must raise nothing); destructors are not called.
#pragma once

#include <unistd.h>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/emulator.h"
#include "tests/support/test_support.h"

namespace sweep {

using emu::Host;
using emu::Value;

struct Raised {
    std::string className;  // empty: nothing raised
    std::string message;
    bool operator==(const Raised&) const = default;
};

inline Raised Nothing() { return {}; }
inline Raised NotInitialized() { return {"VLCNotInitializedExceptionQRV", "VLC object not initialized."}; }
inline Raised Missing(const std::string& entry) {
    return {"VLCMissingFunctionExceptionQRV", "Missing function " + entry + " in VLC."};
}
inline Raised Nil(const std::string& message) { return {"NilObjectException", message}; }

struct Expect {
    std::string member;
    Raised withoutLibvlc;                // libvlc not loaded, object uninitialised, zero and nil arguments
    Raised uninitialised;                // libvlc loaded, object uninitialised
    std::optional<Raised> nilArguments;  // libvlc loaded, object initialised, nil object arguments
    std::string entry;  // "_libvlc_…" whose absence it reports on an initialised object; empty when none

    Expect WithNil(Raised raised) const { return {member, withoutLibvlc, uninitialised, std::move(raised), entry}; }
};

// Handle test first, then trace and function: an uninitialised object always reports the handle.
inline Expect HTF(std::string member, const std::string& entry) {
    return {std::move(member), NotInitialized(), NotInitialized(), std::nullopt, entry};
}
// Trace and function test before the handle: without libvlc the function is reported.
inline Expect TFH(std::string member, const std::string& entry) {
    return {std::move(member), Missing(entry), NotInitialized(), std::nullopt, entry};
}
inline Expect Silent(std::string member) { return {std::move(member), Nothing(), Nothing(), Nothing()}; }
// Shared members need no object: only a missing function is reported.
inline Expect SharedCall(std::string member, const std::string& entry) {
    return {"shared " + member, Missing(entry), Nothing(), std::nullopt, entry};
}
// Constructors and factories taking an object: the function is tested first, then the argument.
inline Expect TakesObject(std::string member, const std::string& entry, const std::string& nilMessage) {
    return {std::move(member), Missing(entry), Nil(nilMessage), Nil(nilMessage), entry};
}

struct ClassSweep {
    std::string className;
    std::vector<Expect> members;
    // An object whose libvlc handle is 0. Default: the host's zero-filled instance.
    std::function<Value(Host&)> uninitialised;
};

// Adds rows "member: function" (the function without its "libvlc_" prefix) of one kind.
inline void AddRows(std::vector<Expect>& into, Expect (*kind)(std::string, const std::string&),
                    std::initializer_list<const char*> rows) {
    for (std::string row : rows) {
        size_t colon = row.find(": ");
        into.push_back(kind(row.substr(0, colon), "_libvlc_" + row.substr(colon + 2)));
    }
}

// A working object of the class on a loaded libvlc; media name the file at mediaPath.
inline Value WorkingObject(Host& host, const Value& vlc, const std::string& className, const std::string& mediaPath) {
    Value media = host.CallShared("VLCMediaQRV", "MediaWithPath", {vlc, host.String(mediaPath)});
    if (className == "VLCInstanceQRV") return qrvtest::HeadlessInstance(host);
    if (className == "VLCMediaQRV") return media;
    if (className == "VLCMediaListQRV") {
        Value list = host.New(className, {vlc});
        host.Call(list, "AddMedia", {media});
        return list;
    }
    if (className == "VLCMediaPlayerQRV") {
        // With a frame buffer, so that the copy members have something to copy.
        Value player = host.New(className, {media});
        host.Call(player, "VideoSetCallback", {Value::Int(64), Value::Int(48)});
        return player;
    }
    if (className == "VLCEventManagerQRV") return host.New(className, {host.New("VLCMediaPlayerQRV", {media})});
    if (className == "VLCEqualizerQRV") return host.New(className, {Value()});
    if (className == "VLCMediaDiscovererQRV") return host.New(className, {vlc, host.String("video_dir")});
    if (className == "VLCRendererDiscovererQRV") return host.New(className, {vlc, host.String("avahi_renderer")});
    // The list player with no media list yet: what a program has right after New.
    for (const char* c : {"VLCMediaLibraryQRV", "VLCMediaListPlayerQRV", "VLCDialogQRV"})
        if (className == c) return host.New(className, {vlc});
    return host.NewRaw(className);  // records, the exit handler, exceptions: no libvlc object behind them
}

std::vector<ClassSweep> MediaObjectSweeps();  // expect_media_objects.cpp
std::vector<ClassSweep> PlaybackSweeps();     // expect_playback.cpp
// The libvlc 3.0 additions; rows for a class named in more than one list add up.
std::vector<ClassSweep> MediaFeatureSweeps();  // expect_media_features.cpp
std::vector<ClassSweep> DialogSweeps();        // expect_dialogs.cpp
std::vector<ClassSweep> DiscoverySweeps();     // expect_discovery.cpp

// One way to call a registered member.
struct Member {
    std::string key;
    bool shared = false;
    bool standardField = false;
    const REALproperty* property = nullptr;  // getter, or setter when assigns
    const REALmethodDefinition* method = nullptr;
    emu::Declaration declaration;  // of the method
    bool assigns = false;          // a setter or an assigning form
};

inline std::vector<Member> MembersOf(const REALclassDefinition& r, bool withDestructor = false) {
    std::vector<Member> members;
    for (bool shared : {false, true}) {
        std::string prefix = shared ? "shared " : "";
        REALproperty* properties = shared ? r.sharedProperties : r.properties;
        for (size_t i = 0; i < (shared ? r.sharedPropertyCount : r.propertyCount); ++i) {
            const REALproperty* p = &properties[i];
            bool field = p->getter == kStandardAccessor;
            members.push_back({prefix + "get " + p->name, shared, field, p});
            if (p->setter != nullptr) members.push_back({prefix + "set " + p->name, shared, field, p, {}, {}, true});
        }
        REALmethodDefinition* methods = shared ? r.sharedMethods : r.methods;
        for (size_t i = 0; i < (shared ? r.sharedMethodCount : r.methodCount); ++i) {
            const REALmethodDefinition* m = &methods[i];
            emu::Declaration d = emu::ParseDeclaration(m->declaration);
            if (d.name == "Destructor" && !withDestructor) continue;
            members.push_back({prefix + m->declaration, shared, false, nullptr, m, d});
            if (m->setterFunction != nullptr)
                members.push_back({prefix + "assign " + m->declaration, shared, false, nullptr, m, d, true});
        }
    }
    return members;
}

// Gives the value of a parameter or assigned value, by declared type (lower
// case, "()" for arrays) and name (empty for an assigned value).
using Arguments = std::function<Value(const std::string& type, const std::string& name)>;

inline std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

// What a call of the member asks for, in order: a setter's value; a method's
// parameters, then the assigned value of an assigning form (name empty).
struct Slot {
    std::string type;  // lower case, "()" for arrays
    std::string name;
};

inline std::vector<Slot> SlotsOf(const Member& member) {
    std::vector<Slot> slots;
    if (member.property != nullptr) {
        if (member.assigns) slots.push_back({Lower(member.property->type), member.property->name});
        return slots;
    }
    for (const emu::Parameter& p : member.declaration.parameters) slots.push_back({p.type, p.name});
    if (member.assigns) slots.push_back({member.declaration.result, ""});
    return slots;
}

// Calls the member; answers what it returned (nil for setters and assigning forms).
inline Value Call(Host& host, const Member& member, const Value* self, const Arguments& argument) {
    if (member.shared) self = nullptr;
    std::vector<Value> values;
    for (const Slot& slot : SlotsOf(member)) values.push_back(argument(slot.type, slot.name));
    if (member.property != nullptr && member.assigns) {
        host.CallSetter(*member.property, self, values[0]);
        return {};
    }
    if (member.property != nullptr) return host.CallGetter(*member.property, self);
    std::vector<Value> args;
    for (size_t i = 0; i < member.declaration.parameters.size(); ++i)
        args.push_back(member.declaration.parameters[i].byref ? Value::Ref(values[i]) : values[i]);
    Value assigned = member.assigns ? values.back() : Value();
    Value answer =
        host.CallMethod(*member.method, self, std::move(args), member.assigns, member.assigns ? &assigned : nullptr);
    return member.assigns ? Value() : answer;
}

// Arguments that are zero, false or nil.
inline Value Zero(const std::string& type, const std::string&) {
    if (type == "integer" || type == "int64" || type == "int32") return Value::Int(0);
    if (type == "uint32") return Value::UInt(0);
    if (type == "boolean") return Value::Bool(false);
    if (type == "double") return Value::Dbl(0);
    if (type == "single") return Value::Sgl(0);
    if (type == "ptr") return Value::Pointer(nullptr);
    return Value();  // strings, objects, arrays: nil
}

// ---- the orders pass. Members that change what an object holds: constructors, Destructor,
// LoadLibrary, Listen, Lock, log settings, callbacks, formats, Handle and object writes, plug-in object arguments.
inline bool ChangesState(const Member& m) {
    std::string name = m.property != nullptr ? m.property->name : m.declaration.name;
    if (m.shared || m.property != nullptr)
        return name == "LoadLibrary" || (m.assigns && (name == "Handle" || Lower(m.property->type).find("vlc") == 0));
    for (const char* n :
         {"Constructor", "Destructor", "Listen", "Lock", "SetLogFile", "SetLogEvent", "Callback", "Format"})
        if (name.find(n) != std::string::npos) return true;
    for (const emu::Parameter& p : m.declaration.parameters)
        if (p.type.find("vlc") == 0) return true;
    return m.assigns && m.declaration.result.find("vlc") == 0;
}

enum class State { Fresh, Playing, Stopped, SourcesDestroyed };
inline const char* const kStateNames[] = {"fresh", "playing and capturing", "after Stop",
                                          "after Destructor on its sources"};

// A working object with what it takes to play, by role: Instance, Media, List
// holding it, capturing Player of it, Events listening to it, a list player (R)
// of the list. Other classes get only an instance.
struct Scene {
    static std::string RolesOf(const std::string& c) {
        static const std::map<std::string, std::string> roles = {
            {"VLCInstanceQRV", "MP"},    {"VLCMediaQRV", "MP"},         {"VLCMediaListQRV", "MLR"},
            {"VLCMediaPlayerQRV", "MP"}, {"VLCEventManagerQRV", "MPE"}, {"VLCMediaListPlayerQRV", "MLR"}};
        return roles.count(c) ? roles.at(c) : "";
    }

    Host& host;
    std::string className, mediaPath;
    std::vector<std::pair<std::string, Value>> objects;  // by class, in order of making
    Value self;

    Value& Add(const std::string& c, Value v) { return objects.emplace_back(c, std::move(v)).second; }
    Value Find(const std::string& lowerClass) {
        for (auto& [c, v] : objects)
            if (Lower(c) == lowerClass && v.AsObject() != self.AsObject()) return v;
        return {};
    }
    Value Make(const std::string& c) { return Add(c, WorkingObject(host, objects[0].second, c, mediaPath)); }

    Scene(Host& h, const std::string& c, State state, const std::string& media)
        : host(h), className(c), mediaPath(media) {
        auto has = [roles = RolesOf(c)](char role) { return roles.find(role) != std::string::npos; };
        Add("VLCInstanceQRV", qrvtest::HeadlessInstance(host));
        Value player, listPlayer;
        if (has('M')) Make("VLCMediaQRV");
        if (has('L')) Make("VLCMediaListQRV");
        if (has('P')) {
            player = Add("VLCMediaPlayerQRV", host.New("VLCMediaPlayerQRV", {Find("vlcmediaqrv")}));
            host.Call(player, "VideoSetCallback", {Value::Int(64), Value::Int(48)});
        }
        if (has('E')) {
            if (host.FindClass("OrdersEvents") == nullptr)
                host.DefineSubclass("OrdersEvents", "VLCEventManagerQRV",
                                    {{"MediaPlayerTimeChanged", reinterpret_cast<void*>(+[](REALobject, int64_t) {})}});
            host.Call(Add("VLCEventManagerQRV", host.New("OrdersEvents", {player})), "Listen");
        }
        if (has('R')) {
            listPlayer = Make("VLCMediaListPlayerQRV");
            host.Call(listPlayer, "SetMediaList", {Find("vlcmedialistqrv")});
        }
        self = Find(Lower(c));
        if (self.IsNil()) self = Make(c);
        if (state == State::Fresh) return;
        if (!player.IsNil() && host.Call(player, "Play").AsBool())
            host.PumpUntil([&] { return host.Get(player, "HasNewFrame").AsBool(); }, std::chrono::seconds(10));
        if (!listPlayer.IsNil()) host.Call(listPlayer, "Play");
        for (const Value& v : {player, listPlayer})
            if (state == State::Stopped && !v.IsNil()) host.Call(v, "Stop");
        for (size_t i = objects.size(); state == State::SourcesDestroyed && i-- > 0;)
            if (objects[i].second.AsObject() != self.AsObject()) host.Call(objects[i].second, "Destructor");
    }

    // Values that work: the scene's objects (another than self), the sample, a format that fits the buffer.
    Value Argument(const std::string& type, const std::string& name) {
        std::map<std::string, std::string> text = {
            {"chroma", "RV32"},
            {"path", "libvlc.so.5"},
            {"URL", mediaPath},
            {"name", className == "VLCRendererDiscovererQRV" ? "avahi_renderer" : "video_dir"}};
        if (type == "string") return host.String(text[name]);
        if (type == "string()") return host.StringArray({"--intf=dummy", "--vout=dummy", "--aout=dummy", "--quiet"});
        if (type == "folderitem")
            return host.FolderItem(name == "path" ? "/usr/lib/x86_64-linux-gnu/libvlc.so.5"
                                                  : "/tmp/qrv-orders-" + std::to_string(getpid()));
        if (type == "uint32") return Value::UInt(name == "width" ? 64 : name == "height" ? 48 : 256);
        if (name == "Handle") {  // another working object's, on an instance of its own (the scene's may be gone)
            Value vlc = Add("VLCInstanceQRV", qrvtest::HeadlessInstance(host));
            return host.Get(Add(className, WorkingObject(host, vlc, className, mediaPath)), "Handle");
        }
        if (type == "integer") return Value::Int(name == "width" ? 64 : name == "height" ? 48 : 0);
        Value found = Find(type);
        for (const char* c : qrvtest::kClassNames)
            if (found.IsNil() && Lower(c) == type) found = Make(c);
        return found;  // nil for anything else
    }
};

}  // namespace sweep
