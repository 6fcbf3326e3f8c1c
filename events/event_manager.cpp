// VLCEventManagerQRV: attaches libvlc callbacks for exactly the events its host
// subclass handles, on the event manager of one source object, and keeps the
// source alive through Parent.
#include "events/event_manager.h"

#include <unordered_map>
#include <utility>
#include <vector>

#include "binding/library.h"
#include "binding/vlc_table.h"
#include "events/delivery_queue.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"

void* LookupEventHandler(REALobject object, const REALclassDefinition& cls, size_t index) {
    if (object == nullptr || cls.events == nullptr || index >= cls.eventCount) return nullptr;
    RBInteger token = cls.events[index].forSystemUse;
    if (CurrentREALControlVersion == 9 && token != 0) token = reinterpret_cast<const RBInteger*>(token)[1];
    return REALGetEventInstance(object, token);
}

namespace {

void TraceEventName(const char* action, size_t index) {
    if (DebuggingEnabled == 1) LogMessageX("%s%s%s", kTracePrefix, action, kEventNames[index]);
}

// One callback attached to a source's libvlc event manager.
struct Attachment {
    libvlc_event_manager_t* manager;
    size_t index;       // event record index
    REALobject source;  // whose end detaches it
};

// What a manager has attached: libvlc aborts on detaching anything else, and
// the user data of its callbacks is the manager's delivery target, so that
// deliveries still queued when the manager goes are dropped.
struct Listening {
    DeliveryTarget* target = nullptr;
    REALobject source = nullptr;  // the constructor's source, while it lasts
    std::vector<Attachment> attached;
};

// Main thread only, keyed by the manager object while it exists.
std::unordered_map<REALobject, Listening>& ListeningManagers() {
    static auto* managers = new std::unordered_map<REALobject, Listening>;
    return *managers;
}

}  // namespace

// Attaches every handled event; a second call attaches them again.
static void Listen(REALobject self) {
    TRACE("Listen");
    Listening& listening = ListeningManagers()[self];
    for (size_t i = 0; i < kLibvlcEventCount; ++i) {
        if (LookupEventHandler(self, VLCEventManagerQRVClass, i) == nullptr) continue;
        TraceEventName("Install", i);
        auto manager = reinterpret_cast<libvlc_event_manager_t*>(EventManagerOf(self).handle);
        // libvlc has no event manager 0 to attach to; skip rather than crash.
        if (manager == nullptr || vlcfn::_libvlc_event_attach == nullptr) continue;
        if (listening.target == nullptr) listening.target = NewDeliveryTarget(self);
        if (vlcfn::_libvlc_event_attach(manager, kEventTypes[i], kEventCallbacks[i], listening.target) == 0)
            listening.attached.push_back({manager, i, listening.source});
    }
}

namespace {

// Detaches what Listen attached; deliveries still queued for this manager are
// dropped. The destructor ends this, and a constructor run again ends it first.
void EndEvents(REALobject self) {
    auto found = ListeningManagers().find(self);
    if (found != ListeningManagers().end()) {
        Listening listening = std::move(found->second);
        ListeningManagers().erase(found);
        if (vlcfn::_libvlc_event_detach != nullptr) {
            for (const Attachment& a : listening.attached) {
                TraceEventName("Uninstall", a.index);
                vlcfn::_libvlc_event_detach(a.manager, kEventTypes[a.index], kEventCallbacks[a.index],
                                            listening.target);
            }
            listening.attached.clear();
        }
        // What stays attached may still call back with the target.
        RetireDeliveryTarget(listening.target, !listening.attached.empty());
    }
    EventManagerData& d = EventManagerOf(self);
    d.handle = 0;
    ReleaseField(d.parent);
    ReleaseField(d.vlc);
}

}  // namespace

// The five constructors differ in the source class, the libvlc function and the message.
template <typename Source, typename Manager>
void StartEvents(REALobject self, REALobject source, const REALclassDefinition& sourceClass, const char* traceName,
                 Manager (*eventManagerOf)(Source*), const void* entry, const char* entryName, const char* nilMessage) {
    TRACE(traceName);
    TRACE("StartEvents");
    TRACE(traceName);
    EndEvents(self);
    if (!FunctionLoaded(entry, entryName)) return;
    int64_t handle = HandleOf(source, sourceClass);
    if (handle == 0) {
        RaiseNilObjectException(nilMessage);
        return;
    }
    EventManagerData& d = EventManagerOf(self);
    d.handle = reinterpret_cast<int64_t>(eventManagerOf(reinterpret_cast<Source*>(handle)));
    TRACE("SetupEvents");
    if (d.handle != 0) {
        REALLockObject(source);
        d.parent = source;
        ListeningManagers()[self].source = source;
    }
    Listen(self);
}

#define START_EVENTS(sourceClass, traceName, fn, message)                                                        \
    StartEvents(self, source, sourceClass, traceName, vlcfn::_##fn, reinterpret_cast<const void*>(vlcfn::_##fn), \
                "_" #fn, message)

static void VLCEventManagerConstructorMediaPlayer(REALobject self, REALobject source) {
    NoteLibvlcHolder(self);
    START_EVENTS(VLCMediaPlayerQRVClass, "VLCEventManagerConstructorMediaPlayer", libvlc_media_player_event_manager,
                 "media parameter is nil");
}

static void VLCEventManagerConstructorMedia(REALobject self, REALobject source) {
    NoteLibvlcHolder(self);
    START_EVENTS(VLCMediaQRVClass, "VLCEventManagerConstructorMedia", libvlc_media_event_manager,
                 "media parameter is nil");
}

static void VLCEventManagerConstructorMediaDiscoverer(REALobject self, REALobject source) {
    NoteLibvlcHolder(self);
    START_EVENTS(VLCMediaDiscovererQRVClass, "VLCEventManagerConstructorMediaDiscoverer",
                 libvlc_media_discoverer_event_manager, "Discoverer parameter is nil");
}

static void VLCEventManagerConstructorMediaList(REALobject self, REALobject source) {
    NoteLibvlcHolder(self);
    START_EVENTS(VLCMediaListQRVClass, "VLCEventManagerConstructorMediaList", libvlc_media_list_event_manager,
                 "list parameter is nil");
}

static void VLCEventManagerConstructorMediaListPlayer(REALobject self, REALobject source) {
    NoteLibvlcHolder(self);
    START_EVENTS(VLCMediaListPlayerQRVClass, "VLCEventManagerConstructorMediaListPlayer",
                 libvlc_media_list_player_event_manager, "list parameter is nil");
}

static void VLCEventManagerDestructor(REALobject self) {
    TRACE("VLCEventManagerDestructor");
    TRACE("StopEvents");
    EndEvents(self);
    ForgetLibvlcHolder(self);
}

// The manager keeps its source object locked, yet `Destructor` called as a
// method releases the source's libvlc object, and its event manager with it:
// what is attached there is detached first, and the manager stops listening.
// Deliveries already queued still reach the manager, which lives on.
void EndEventsFrom(REALobject source) {
    for (auto& entry : ListeningManagers()) {
        Listening& listening = entry.second;  // a plain reference: lambdas capture it
        if (listening.source == source) {
            listening.source = nullptr;
            EventManagerOf(entry.first).handle = 0;  // a later Listen attaches nothing
        }
        if (vlcfn::_libvlc_event_detach == nullptr) continue;  // what stays keeps the target alive
        std::erase_if(listening.attached, [&](const Attachment& a) {
            if (a.source != source) return false;
            TraceEventName("Uninstall", a.index);
            vlcfn::_libvlc_event_detach(a.manager, kEventTypes[a.index], kEventCallbacks[a.index], listening.target);
            return true;
        });
    }
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Handle", "Integer", EventManagerData, handle),
    QRV_FIELD_PROPERTY("Parent", "Variant", EventManagerData, parent),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", EventManagerData, vlc),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCEventManagerConstructorMediaPlayer, "Constructor(MediaPlayer as VLCMediaPlayerQRV)"),
    QRV_METHOD(VLCEventManagerConstructorMedia, "Constructor(Media as VLCMediaQRV)"),
    QRV_METHOD(VLCEventManagerConstructorMediaDiscoverer, "Constructor(MediaDiscoverer as VLCMediaDiscovererQRV)"),
    QRV_METHOD(VLCEventManagerConstructorMediaList, "Constructor(MediaList as VLCMediaListQRV)"),
    QRV_METHOD(VLCEventManagerConstructorMediaListPlayer, "Constructor(MediaListPlayer as VLCMediaListPlayerQRV)"),
    QRV_METHOD(Listen, "Listen"),
    QRV_METHOD(VLCEventManagerDestructor, "Destructor"),
};

REALevent kEvents[] = {
    QRV_EVENT("MediaMetaChanged(metatype as integer)"),
    QRV_EVENT("MediaSubItemAdded(media as VLCMediaQRV)"),
    QRV_EVENT("MediaDurationChanged(newDuration as Int64)"),
    QRV_EVENT("MediaParsedChanged(newStatus as integer)"),
    QRV_EVENT("MediaFreed(media as VLCMediaQRV)"),
    QRV_EVENT("MediaStateChanged(newState as integer)"),
    QRV_EVENT("MediaSubItemTreeAdded(media as VLCMediaQRV)"),
    QRV_EVENT("MediaPlayerMediaChanged(item as VLCMediaQRV)"),
    QRV_EVENT("MediaPlayerNothingSpecial"),
    QRV_EVENT("MediaPlayerOpening"),
    QRV_EVENT("MediaPlayerBuffering"),
    QRV_EVENT("MediaPlayerPlaying"),
    QRV_EVENT("MediaPlayerPaused"),
    QRV_EVENT("MediaPlayerStopped"),
    QRV_EVENT("MediaPlayerForward"),
    QRV_EVENT("MediaPlayerBackward"),
    QRV_EVENT("MediaPlayerEndReached"),
    QRV_EVENT("MediaPlayerEncounteredError"),
    QRV_EVENT("MediaPlayerTimeChanged(newTime as Int64)"),
    QRV_EVENT("MediaPlayerPositionChanged(newPosition as double)"),
    QRV_EVENT("MediaPlayerSeekableChanged(seekable as boolean)"),
    QRV_EVENT("MediaPlayerPausableChanged(pausable as boolean)"),
    QRV_EVENT("MediaPlayerTitleChanged(newTitle as integer)"),
    QRV_EVENT("MediaPlayerSnapshotTaken(filename as string)"),
    QRV_EVENT("MediaPlayerLengthChanged(NewLength as Int64)"),
    QRV_EVENT("MediaListItemAdded(item as VLCMediaQRV, index as integer)"),
    QRV_EVENT("MediaListWillAddItem(item as VLCMediaQRV, index as integer)"),
    QRV_EVENT("MediaListItemDeleted(item as VLCMediaQRV, index as integer)"),
    QRV_EVENT("MediaListWillDeleteItem(item as VLCMediaQRV, index as integer)"),
    QRV_EVENT("MediaListPlayerPlayed"),
    QRV_EVENT("MediaListPlayerNextItemSet(item as VLCMediaQRV)"),
    QRV_EVENT("MediaListPlayerStopped"),
    QRV_EVENT("MediaDiscovererStarted"),
    QRV_EVENT("MediaDiscovererEnded"),
    QRV_EVENT("VlmMediaAdded(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaRemoved(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaChanged(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaInstanceStarted(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaInstanceStopped(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaInstanceStatusInit(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaInstanceStatusOpening(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaInstanceStatusPlaying(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaInstanceStatusPause(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaInstanceStatusEnd(MediaName as string, InstanceName as string)"),
    QRV_EVENT("VlmMediaInstanceStatusError(MediaName as string, InstanceName as string)"),
    QRV_EVENT("MediaPlayerVout(newCount as Integer)"),
    QRV_EVENT("MediaPlayerScrambledChanged(newScrambled as Integer)"),
    QRV_EVENT("Log(Message as String, level as Integer, Name as String, Header as String, ModuleName as String, "
              "FileName as String, Line as Integer)"),
};
static_assert(std::size(kEvents) == kLog + 1, "one record per event and the Log event last");

REALconstant kConstants[] = {
    QRV_CONSTANT("kLogLevelDebug = 0"),
    QRV_CONSTANT("kLogLevelNotice = 2"),
    QRV_CONSTANT("kLogLevelWarning = 3"),
    QRV_CONSTANT("kLogLevelError = 4"),
};

}  // namespace

REALclassDefinition VLCEventManagerQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCEventManagerQRV",
    .dataSize = sizeof(EventManagerData),
    .properties = kProperties,
    .propertyCount = std::size(kProperties),
    .methods = kMethods,
    .methodCount = std::size(kMethods),
    .events = kEvents,
    .eventCount = std::size(kEvents),
    .constants = kConstants,
    .constantCount = std::size(kConstants),
    .mFlags = kFlagConsoleSafe,
};
