// VLCInstanceQRV: owns one libvlc instance; also carries the library-level
// shared methods.
#include "media/instance.h"

#include "binding/library.h"

// ---- class record ------------------------------------------------------------

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Handle", "Integer", InstanceData, handle),
};

REALattribute kHiddenAttribute[] = {{"Hidden", ""}};

REALproperty kSharedProperties[] = {
    REALproperty{nullptr, "Debugging", "Boolean", kSharedPropertyFlags, Proc(getDebugging), Proc(setDebugging), 0,
                 nullptr, 0, nullptr, 1, kHiddenAttribute},
};

REALmethodDefinition kSharedMethods[] = {
    QRV_METHOD(myclock, "Clock as Int64"),
    QRV_METHOD(LoadLibraryPath, "LoadLibrary(path as folderitem) as boolean"),
    QRV_METHOD(LoadLibraryString, "LoadLibrary(path as string) as boolean"),
    QRV_METHOD(rbgetenv, "getenv(name as string) as string"),
    QRV_METHOD(rbsetlocale, "setlocale(category as integer, locale as string) as string"),
    QRV_METHOD(GetLoadError, "GetLoadError as string"),
    QRV_METHOD(get_version, "GetVersion as string"),
    QRV_METHOD(get_compiler, "GetCompiler as string"),
    QRV_METHOD(get_changeset, "GetChangeset as string"),
    QRV_METHOD(errmsg, "ErrorMessage as string"),
    QRV_METHOD(clearerrRB, "ClearError"),
};

REALconstant kConstants[] = {
    QRV_CONSTANT("kAudioChannelError = -1"),     QRV_CONSTANT("kAudioChannelStereo = 1"),
    QRV_CONSTANT("kAudioChannelRStereo = 2"),    QRV_CONSTANT("kAudioChannelLeft = 3"),
    QRV_CONSTANT("kAudioChannelRight = 4"),      QRV_CONSTANT("kAudioChannelDolbys = 5"),
    QRV_CONSTANT("kAudioOutputDeviceError = -1"), QRV_CONSTANT("kAudioOutputDeviceMono = 1"),
    QRV_CONSTANT("kAudioOutputDeviceStereo = 2"), QRV_CONSTANT("kAudioOutputDevice2F2R = 4"),
    QRV_CONSTANT("kAudioOutputDevice3F2R = 5"),  QRV_CONSTANT("kAudioOutputDevice_5_1 = 6"),
    QRV_CONSTANT("kAudioOutputDevice_6_1 = 7"),  QRV_CONSTANT("kAudioOutputDevice_7_1 = 8"),
    QRV_CONSTANT("kAudioOutputDeviceSPDIF = 10"),
};

}  // namespace

REALclassDefinition VLCInstanceQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCInstanceQRV",
    .dataSize = sizeof(InstanceData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .constants = kConstants,
    .constantCount = std::size(kConstants),
    .mFlags = kFlagConsoleSafe,
    .sharedProperties = kSharedProperties,
    .sharedPropertyCount = std::size(kSharedProperties),
    .sharedMethods = kSharedMethods,
    .sharedMethodCount = std::size(kSharedMethods),
};
