// Class registration: the host's version, the record version chosen for it,
// the flag rewrites, and small helpers for writing class-record tables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "plugin/host_abi.h"

extern double rbversion;
extern int32_t CurrentREALControlVersion;

// The plug-in's own flag marker; rewritten to 4 or 0 before a record reaches the host.
inline constexpr uint32_t kFlagPictureMarker = 0x40000;
// Flags of the record-class constructors that host code should not call.
inline constexpr uint32_t kFlagPrivateConstructor = 132;
// Instance properties carry 6; the hidden shared Debugging property 38.
inline constexpr uint32_t kPropertyFlags = 6;
inline constexpr uint32_t kSharedPropertyFlags = 38;
// Version held by the static records until registration overwrites it.
inline constexpr uint32_t kStaticRecordVersion = 15;

void FixFlags(REALmethodDefinition* list, size_t count, const char* name);
void FixFlags(REALproperty* list, size_t count, const char* name);
RBInteger MyREALRegisterClass(REALclassDefinition* record);

// The class records, in registration order: the nineteen, then the libvlc 3.0 additions.
extern REALclassDefinition VLCInstanceQRVClass;
extern REALclassDefinition VLCMediaQRVClass;
extern REALclassDefinition VLCMediaListQRVClass;
extern REALclassDefinition VLCMediaLibraryQRVClass;
extern REALclassDefinition VLCMediaPlayerQRVClass;
extern REALclassDefinition VLCEventManagerQRVClass;
extern REALclassDefinition VLCMediaListPlayerQRVClass;
extern REALclassDefinition VLCMediaDiscovererQRVClass;
extern REALclassDefinition VLCTrackDescriptionQRVClass;
extern REALclassDefinition VLCAudioOutputQRVClass;
extern REALclassDefinition VLCAudioOutputDeviceQRVClass;
extern REALclassDefinition VLCMissingFunctionExceptionQRVClass;
extern REALclassDefinition VLCNotInitializedExceptionQRVClass;
extern REALclassDefinition VLCMediaStatsQRVClass;
extern REALclassDefinition VLCMediaTrackInfoQRVClass;
extern REALclassDefinition VLCMediaTrackQRVClass;
extern REALclassDefinition VLCEqualizerQRVClass;
extern REALclassDefinition VLCExitHandlerQRVClass;
extern REALclassDefinition VLCModuleDescriptionQRVClass;
extern REALclassDefinition VLCMediaSlaveQRVClass;
extern REALclassDefinition VLCMediaDiscovererDescriptionQRVClass;
extern REALclassDefinition VLCRendererDiscovererQRVClass;
extern REALclassDefinition VLCRendererItemQRVClass;
extern REALclassDefinition VLCRendererDiscovererDescriptionQRVClass;
extern REALclassDefinition VLCDialogQRVClass;

// An object's data block: the host wrote its position into the class record.
template <typename T>
T& DataOf(REALobject object, const REALclassDefinition& cls) {
    return *reinterpret_cast<T*>(reinterpret_cast<char*>(object) + cls.forSystemUse);
}

// The first field of every wrapper's data block: the libvlc object, 0 while none.
inline int64_t HandleOf(REALobject object, const REALclassDefinition& cls) {
    return object != nullptr ? DataOf<int64_t>(object, cls) : 0;
}

// The getter of a Handle property whose writes go through the class's setter.
template <const REALclassDefinition& cls>
RBInteger ReadHandle(REALobject self, RBInteger) {
    return HandleOf(self, cls);
}

// ---- table helpers -----------------------------------------------------------

template <typename F>
REALproc Proc(F* function) {
    return reinterpret_cast<REALproc>(function);
}

// A method, with an optional assigning form.
#define QRV_METHOD(function, declaration) \
    REALmethodDefinition { Proc(function), nullptr, declaration, kFlagConsoleSafe, 0, nullptr }
#define QRV_METHOD_FLAGS(function, declaration, flags) \
    REALmethodDefinition { Proc(function), nullptr, declaration, flags, 0, nullptr }
#define QRV_ASSIGN_METHOD(getter, setter, declaration) \
    REALmethodDefinition { Proc(getter), Proc(setter), declaration, kFlagConsoleSafe, 0, nullptr }

// A property read and written by the host itself at the field's offset.
#define QRV_FIELD_PROPERTY(name, type, Data, field)                                      \
    REALproperty {                                                                       \
        nullptr, name, type, kPropertyFlags, kStandardAccessor, kStandardAccessor,       \
            static_cast<int32_t>(offsetof(Data, field)), nullptr, 0, nullptr, 0, nullptr \
    }
#define QRV_READONLY_FIELD_PROPERTY(name, type, Data, field)                                                          \
    REALproperty {                                                                                                    \
        nullptr, name, type, kPropertyFlags, kStandardAccessor, nullptr, static_cast<int32_t>(offsetof(Data, field)), \
            nullptr, 0, nullptr, 0, nullptr                                                                           \
    }
// A property served by plug-in functions.
#define QRV_PROPERTY(name, type, getter, setter) \
    REALproperty { nullptr, name, type, kPropertyFlags, Proc(getter), Proc(setter), 0, nullptr, 0, nullptr, 0, nullptr }
#define QRV_READONLY_PROPERTY(name, type, getter) \
    REALproperty { nullptr, name, type, kPropertyFlags, Proc(getter), nullptr, 0, nullptr, 0, nullptr, 0, nullptr }

#define QRV_EVENT(declaration) \
    REALevent { declaration, 0, 0, nullptr }
#define QRV_CONSTANT(declaration) \
    REALconstant { declaration, nullptr, 0, 0, nullptr }
