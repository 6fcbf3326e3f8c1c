// The bad-input sweep: every registered member is called with libvlc not
// loaded, on an uninitialised object, and with nil object arguments, and what
// it raises is compared with the expectation written here, class by class.
//
// An expectation file (expect_<class>.cpp) describes one class's members:
//
//   SWEEP_CLASS(MediaList) {
//       sweep::ClassSweep c{"VLCMediaListQRV"};
//       c.initialised = [](emu::Host& h) { ... return a working list ...; };
//       c.members = {
//           sweep::HTF("Count as integer", "_libvlc_media_list_count"),
//           sweep::HTF("AddMedia(item as VLCMediaQRV) as boolean", "_libvlc_media_list_add_media")
//               .WithNil("item parameter is nil"),
//           sweep::Field("Handle"),
//       };
//       return c;
//   }
//
// Member keys: a method's declaration as registered; "assign " + declaration
// for an assigning form; "get Name" / "set Name" for properties; the same with
// "shared " in front for shared members. Destructors are not called by the
// sweep (releasing the objects runs them).
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/emulator.h"

namespace sweep {

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
    // The libvlc function the member tests ("_libvlc_…"); empty when none. On
    // an initialised object, under a libvlc that lacks only this function,
    // the member raises the missing-function exception naming it.
    std::string entry;

    Expect WithNil(const std::string& message) const {
        Expect e = *this;
        e.nilArguments = Nil(message);
        return e;
    }
    Expect WithNilRaising(Raised raised) const {
        Expect e = *this;
        e.nilArguments = std::move(raised);
        return e;
    }
};

// Handle test first, then trace and function: an uninitialised object always
// reports the handle.
inline Expect HTF(std::string member, const std::string& entry) {
    return {std::move(member), NotInitialized(), NotInitialized(), std::nullopt, entry};
}
// Trace and function test before the handle: without libvlc the function is reported.
inline Expect TFH(std::string member, const std::string& entry) {
    return {std::move(member), Missing(entry), NotInitialized(), std::nullopt, entry};
}
// Members that need no libvlc and no handle (standard fields, pure readers).
inline Expect Silent(std::string member) { return {std::move(member), Nothing(), Nothing(), Nothing()}; }
inline Expect Field(const std::string& name) { return Silent("get " + name); }
inline Expect FieldWithSetter(const std::string& name, std::vector<Expect>& into) {
    into.push_back(Silent("set " + name));
    return Field(name);
}
inline Expect Custom(std::string member, Raised withoutLibvlc, Raised uninitialised) {
    return {std::move(member), std::move(withoutLibvlc), std::move(uninitialised), std::nullopt};
}

struct ClassSweep {
    std::string className;
    // An object whose libvlc handle is 0. Default: the host's zero-filled instance.
    std::function<emu::Value(emu::Host&)> uninitialised;
    // A working object on the real libvlc (already loaded); needed when a member has object parameters.
    std::function<emu::Value(emu::Host&)> initialised;
    std::vector<Expect> members;
};

using Maker = ClassSweep (*)();
std::vector<Maker>& Makers();
struct Registrar {
    explicit Registrar(Maker make) { Makers().push_back(make); }
};

}  // namespace sweep

#define SWEEP_CLASS(id)                                               \
    static sweep::ClassSweep SweepMake##id();                         \
    static const sweep::Registrar sweepRegistrar##id(&SweepMake##id); \
    static sweep::ClassSweep SweepMake##id()
