// VLCInstanceQRV: owns one libvlc instance; also carries the library-level
// shared methods. Its members trace and test the libvlc function before the handle.
#include "media/instance.h"

#include <pthread.h>
#include <signal.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "binding/library.h"
#include "events/log_forwarding.h"
#include "media/discovery.h"
#include "media/records.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/memory.h"
#include "plugin/text.h"

namespace {

libvlc_instance_t* InstanceHandle(REALobject self) {
    return reinterpret_cast<libvlc_instance_t*>(InstanceOf(self).handle);
}

// libvlc wants SIGCHLD at its default action and SIGPIPE blocked in the thread
// that creates it.
void PrepareSignals() {
    signal(SIGCHLD, SIG_DFL);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
}

// libvlc 3.0 ends the calling process for these options: it prints help, a
// module list or its version and exits, forks into a daemon and exits, or
// hands its items to another running VLC and exits (one instance, also through
// a configuration file it would read). Its option parser takes any unique
// prefix of a long name, so every prefix is refused.
constexpr const char* kEndingLongOptions[] = {
    "daemon",       "help",   "full-help",    "longhelp",          "version",          "list",
    "list-verbose", "module", "one-instance", "started-from-file", "no-ignore-config", "noignore-config",
};
constexpr const char* kEndingShortOptions = "dhHlp";    // daemon, help, full-help, list, module
constexpr const char* kShortOptionsWithValue = "AVSI";  // the rest of the word is the value

bool EndsTheProcess(const char* argument) {
    if (argument == nullptr || argument[0] != '-' || argument[1] == '\0') return false;
    if (argument[1] != '-') {
        for (const char* c = argument + 1; *c != '\0' && strchr(kShortOptionsWithValue, *c) == nullptr; ++c)
            if (strchr(kEndingShortOptions, *c) != nullptr) return true;
        return false;
    }
    size_t length = strcspn(argument + 2, "=");
    if (length == 0) return false;  // "--" ends the options; "--=x" is no option
    for (const char* name : kEndingLongOptions)
        if (length <= strlen(name) && strncmp(argument + 2, name, length) == 0) return true;
    return false;
}

// Raises and answers true when an argument before "--" would end the process.
bool RefuseEndingArguments(const char* const* argv, int64_t argc) {
    for (int64_t i = 0; i < argc && !(argv[i] != nullptr && strcmp(argv[i], "--") == 0); ++i) {
        if (!EndsTheProcess(argv[i])) continue;
        std::string message = std::string("libvlc would end the program for the argument ") + argv[i];
        RaiseException("OutOfBoundsException", message.c_str());
        return true;
    }
    return false;
}

}  // namespace

libvlc_instance_t* KeepInstanceArgument(REALobject vlc, REALobject& held) {
    if (vlc == nullptr) {
        RaiseNilObjectException("vlc parameter is nil");
        return nullptr;
    }
    int64_t instance = HandleOf(vlc, VLCInstanceQRVClass);
    if (instance == 0) RaiseNilObjectException("vlc parameter is nil");
    // A program may run a constructor again: the instance it kept goes back.
    REALLockObject(vlc);
    ReleaseField(held);
    held = vlc;
    return reinterpret_cast<libvlc_instance_t*>(instance);
}

// The libvlc instance the object holds goes back, after its log and exit routes
// end: libvlc still running for other holders must not write to a closed log.
static void LetGoOfInstance(REALobject self) {
    EndInstanceDeliveries(self);
    InstanceData& d = InstanceOf(self);
    if (d.handle != 0 && vlcfn::_libvlc_release != nullptr) {
        vlcfn::_libvlc_release(reinterpret_cast<libvlc_instance_t*>(d.handle));
        --gLiveInstances;
    }
}

// Everything the destructor ends; a constructor run again ends it first.
static void EndInstance(REALobject self) {
    LetGoOfInstance(self);
    InstanceData& d = InstanceOf(self);
    d.handle = 0;
    ReleaseField(d.logFile);
    if (d.logStream != nullptr) {
        fclose(d.logStream);
        d.logStream = nullptr;
    }
}

static void VLCInstanceConstructor(REALobject self, REALarray args) {
    NoteLibvlcHolder(self);
    TRACE("VLCInstanceConstructor");
    EndInstance(self);
    if (!VLC_NEED(libvlc_new)) return;
    PrepareSignals();

    // The converted texts stay alive until libvlc has read them.
    std::vector<std::unique_ptr<rbText>> texts;
    std::unique_ptr<const char*[]> argv;
    int64_t argc = 0;
    int64_t upper = ArrayUpperBound(args);
    if (upper >= 0) {
        argv.reset(new (std::nothrow) const char*[static_cast<size_t>(upper) + 1]());
        if (argv) {
            argc = upper + 1;
            for (int64_t i = 0; i <= upper; ++i) {
                REALstring element = nullptr;
                if (i <= ArrayUpperBound(args))
                    element = ArrayStringAt(args, i);
                else
                    RaiseOutOfBoundsException(i, ArrayUpperBound(args) + 1, "index", nullptr);
                texts.push_back(std::make_unique<rbText>(element));
                if (element != nullptr) REALUnlockString(element);  // the reader holds its own reference
                argv[i] = texts.back()->GetUTF8();
            }
        }
    }
    if (DebuggingEnabled == 1) {
        LogMessageX("%s%s %lld", kTracePrefix, "nargs", static_cast<long long>(argc));
        LogMessageX("%s%s %p", kTracePrefix, "args", static_cast<void*>(argv.get()));
        for (int64_t i = 0; i < argc; ++i) LogMessageX("%s%s %s", kTracePrefix, "args[]", argv[i]);
    }
    if (RefuseEndingArguments(argv.get(), argc)) return;
    libvlc_instance_t* instance = vlcfn::_libvlc_new(static_cast<int>(argc), argv.get());
    InstanceOf(self).handle = reinterpret_cast<int64_t>(instance);
    if (instance != nullptr) ++gLiveInstances;
    TRACEF("%p", "handle", static_cast<void*>(instance));
}

static void VLCInstanceDestructor(REALobject self) {
    EndInstance(self);
    ForgetLibvlcHolder(self);
}

// The log file stays open for ClearLog or the destructor; nothing writes to it.
static void SetHandle(REALobject self, RBInteger, RBInteger value) {
    if (WriteHandle(InstanceOf(self).handle, value, vlcfn::_libvlc_retain, "_libvlc_retain",
                    [self] { LetGoOfInstance(self); }) &&
        value != 0)
        ++gLiveInstances;
}

static void SetAppID(REALobject self, REALstring id, REALstring version, REALstring icon) {
    GUARD_TFH(InstanceOf(self).handle, "SetAppID", libvlc_set_app_id, );
    rbText idText(id), versionText(version), iconText(icon);
    vlcfn::_libvlc_set_app_id(InstanceHandle(self), idText.GetUTF8(), versionText.GetUTF8(), iconText.GetUTF8());
}

static void SetUserAgent(REALobject self, REALstring appName, REALstring httpUserAgent) {
    GUARD_TFH(InstanceOf(self).handle, "SetUserAgent", libvlc_set_user_agent, );
    rbText name(appName), agent(httpUserAgent);
    vlcfn::_libvlc_set_user_agent(InstanceHandle(self), name.GetUTF8(), agent.GetUTF8());
}

static RBBoolean AddUserInterface(REALobject self, REALstring name) {
    GUARD_TFH(InstanceOf(self).handle, "AddUserInterface", libvlc_add_intf, false);
    rbText text(name);
    return vlcfn::_libvlc_add_intf(InstanceHandle(self), text.GetUTF8()) == 0;
}

static void WaitUserInterface(REALobject self) {
    GUARD_TFH(InstanceOf(self).handle, "WaitUserInterface", libvlc_wait, );
    vlcfn::_libvlc_wait(InstanceHandle(self));
}

// List getters check the list function, trace again, then the release function.
#define GUARD_LIST_TFTFH(handle, traceName, listFn, releaseFn) \
    TRACE(traceName);                                          \
    if (!VLC_NEED(listFn)) return nullptr;                     \
    TRACE(traceName);                                          \
    if (!VLC_NEED(releaseFn)) return nullptr;                  \
    if (!HandleReady(handle)) return nullptr

static REALobject GetAudioOutputList(REALobject self) {
    GUARD_LIST_TFTFH(InstanceOf(self).handle, "GetAudioOutputList", libvlc_audio_output_list_get,
                     libvlc_audio_output_list_release);
    libvlc_audio_output_t* list = vlcfn::_libvlc_audio_output_list_get(InstanceHandle(self));
    if (list == nullptr) return nullptr;
    REALobject head = NewVLCAudioOutputQRV(list);
    vlcfn::_libvlc_audio_output_list_release(list);
    return head;
}

static REALobject AudioOutputDevices(REALobject self, REALstring moduleName) {
    GUARD_LIST_TFTFH(InstanceOf(self).handle, "AudioOutputDevices", libvlc_audio_output_device_list_get,
                     libvlc_audio_output_device_list_release);
    rbText module(moduleName);
    libvlc_audio_output_device_t* list =
        vlcfn::_libvlc_audio_output_device_list_get(InstanceHandle(self), module.GetUTF8());
    if (list == nullptr) return nullptr;
    REALobject head = NewVLCAudioOutputDeviceQRV(list);
    vlcfn::_libvlc_audio_output_device_list_release(list);
    return head;
}

static REALobject GetVideoFilterList(REALobject self) {
    GUARD_LIST_TFTFH(InstanceOf(self).handle, "GetVideoFilterList", libvlc_video_filter_list_get,
                     libvlc_module_description_list_release);
    libvlc_module_description_t* list = vlcfn::_libvlc_video_filter_list_get(InstanceHandle(self));
    if (list == nullptr) return nullptr;
    REALobject head = NewVLCModuleDescriptionQRV(list);
    vlcfn::_libvlc_module_description_list_release(list);
    return head;
}

static REALobject GetAudioFilterList(REALobject self) {
    GUARD_LIST_TFTFH(InstanceOf(self).handle, "GetAudioFilterList", libvlc_audio_filter_list_get,
                     libvlc_module_description_list_release);
    libvlc_module_description_t* list = vlcfn::_libvlc_audio_filter_list_get(InstanceHandle(self));
    if (list == nullptr) return nullptr;
    REALobject head = NewVLCModuleDescriptionQRV(list);
    vlcfn::_libvlc_module_description_list_release(list);
    return head;
}

// libvlc 3.0 answers an array of its own. It knows four categories and answers
// none for others, which are not squeezed through its enumeration.
static REALobject MediaDiscoverers(REALobject self, RBInteger category) {
    GUARD_LIST_TFTFH(InstanceOf(self).handle, "MediaDiscoverers", libvlc_media_discoverer_list_get,
                     libvlc_media_discoverer_list_release);
    if (category < libvlc_media_discoverer_devices || category > libvlc_media_discoverer_localdirs) return nullptr;
    libvlc_media_discoverer_description_t** services = nullptr;
    size_t count = vlcfn::_libvlc_media_discoverer_list_get(
        InstanceHandle(self), static_cast<libvlc_media_discoverer_category_t>(category), &services);
    if (count == 0 || services == nullptr) return nullptr;
    REALobject head = NewVLCMediaDiscovererDescriptionQRV(services, count);
    vlcfn::_libvlc_media_discoverer_list_release(services, count);
    return head;
}

static REALobject RendererDiscoverers(REALobject self) {
    GUARD_LIST_TFTFH(InstanceOf(self).handle, "RendererDiscoverers", libvlc_renderer_discoverer_list_get,
                     libvlc_renderer_discoverer_list_release);
    libvlc_rd_description_t** services = nullptr;
    size_t count = vlcfn::_libvlc_renderer_discoverer_list_get(InstanceHandle(self), &services);
    if (count == 0 || services == nullptr) return nullptr;
    REALobject head = NewVLCRendererDiscovererDescriptionQRV(services, count);
    vlcfn::_libvlc_renderer_discoverer_list_release(services, count);
    return head;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// libvlc's answer is dropped: the method answers 0, as it always has.
static RBInteger GetAudioOutputDeviceCount(REALobject self, REALstring audioOutputName) {
    GUARD_TFH(InstanceOf(self).handle, "GetAudioOutputDeviceCount", libvlc_audio_output_device_count, 0);
    rbText name(audioOutputName);
    vlcfn::_libvlc_audio_output_device_count(InstanceHandle(self), name.GetUTF8());
    return 0;
}

static REALstring GetAudioOutputDeviceLongName(REALobject self, REALstring audioOutputName, RBInteger index) {
    GUARD_TFH(InstanceOf(self).handle, "GetAudioOutputDeviceLongName", libvlc_audio_output_device_longname, nullptr);
    rbText name(audioOutputName);
    return BuildStringUTF8Kept(
        vlcfn::_libvlc_audio_output_device_longname(InstanceHandle(self), name.GetUTF8(), static_cast<int>(index)));
}

static REALstring GetAudioOutputDeviceID(REALobject self, REALstring audioOutputName, RBInteger index) {
    GUARD_TFH(InstanceOf(self).handle, "GetAudioOutputDeviceID", libvlc_audio_output_device_id, nullptr);
    rbText name(audioOutputName);
    return BuildStringUTF8Kept(
        vlcfn::_libvlc_audio_output_device_id(InstanceHandle(self), name.GetUTF8(), static_cast<int>(index)));
}

#pragma GCC diagnostic pop

// ---- class record ------------------------------------------------------------

namespace {

REALproperty kProperties[] = {
    QRV_PROPERTY("Handle", "Integer", ReadHandle<VLCInstanceQRVClass>, SetHandle),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCInstanceConstructor, "Constructor(args() as string)"),
    QRV_METHOD(VLCInstanceDestructor, "Destructor"),
    QRV_METHOD(SetAppID, "SetAppID(ID as string, Version as string, Icon as String)"),
    QRV_METHOD(SetUserAgent, "SetUserAgent(AppName as string, httpUserAgent as string)"),
    QRV_METHOD(AddUserInterface, "AddUserInterface(name as string) as Boolean"),
    QRV_METHOD(WaitUserInterface, "WaitUserInterface"),
    QRV_METHOD(GetAudioOutputList, "GetAudioOutputList as VLCAudioOutputQRV"),
    QRV_METHOD(AudioOutputDevices, "AudioOutputDevices(ModuleName as string) as VLCAudioOutputDeviceQRV"),
    QRV_METHOD(GetVideoFilterList, "GetVideoFilterList as VLCModuleDescriptionQRV"),
    QRV_METHOD(GetAudioFilterList, "GetAudioFilterList as VLCModuleDescriptionQRV"),
    QRV_METHOD(GetAudioOutputDeviceCount, "GetAudioOutputDeviceCount(AudioOutputName as string) as integer"),
    QRV_METHOD(GetAudioOutputDeviceLongName,
               "GetAudioOutputDeviceLongName(AudioOutputName as string, index as integer) as string"),
    QRV_METHOD(GetAudioOutputDeviceID, "GetAudioOutputDeviceID(AudioOutputName as string, index as integer) as string"),
    QRV_METHOD(ClearLog, "ClearLog"),
    QRV_METHOD(SetLogFile, "SetLogFile(File as FolderItem)"),
    QRV_METHOD(SetLogEvent, "SetLogEvent"),
    QRV_ASSIGN_METHOD(GetExitHandler, SetExitHandler, "ExitHandler as VLCExitHandlerQRV"),
    QRV_METHOD(MediaDiscoverers, "MediaDiscoverers(category as integer) as VLCMediaDiscovererDescriptionQRV"),
    QRV_METHOD(RendererDiscoverers, "RendererDiscoverers as VLCRendererDiscovererDescriptionQRV"),
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
    QRV_CONSTANT("kAudioChannelError = -1"),      QRV_CONSTANT("kAudioChannelStereo = 1"),
    QRV_CONSTANT("kAudioChannelRStereo = 2"),     QRV_CONSTANT("kAudioChannelLeft = 3"),
    QRV_CONSTANT("kAudioChannelRight = 4"),       QRV_CONSTANT("kAudioChannelDolbys = 5"),
    QRV_CONSTANT("kAudioOutputDeviceError = -1"), QRV_CONSTANT("kAudioOutputDeviceMono = 1"),
    QRV_CONSTANT("kAudioOutputDeviceStereo = 2"), QRV_CONSTANT("kAudioOutputDevice2F2R = 4"),
    QRV_CONSTANT("kAudioOutputDevice3F2R = 5"),   QRV_CONSTANT("kAudioOutputDevice_5_1 = 6"),
    QRV_CONSTANT("kAudioOutputDevice_6_1 = 7"),   QRV_CONSTANT("kAudioOutputDevice_7_1 = 8"),
    QRV_CONSTANT("kAudioOutputDeviceSPDIF = 10"),
};

}  // namespace

REALclassDefinition VLCInstanceQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCInstanceQRV",
    .dataSize = sizeof(InstanceData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .constants = kConstants,
    .constantCount = std::size(kConstants),
    .mFlags = kFlagConsoleSafe,
    .sharedProperties = kSharedProperties,
    .sharedPropertyCount = std::size(kSharedProperties),
    .sharedMethods = kSharedMethods,
    .sharedMethodCount = std::size(kSharedMethods),
};
