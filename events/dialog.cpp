// VLCDialogQRV: libvlc's questions to the user (error, login, question,
// progress) as host events. libvlc's threads copy each dialog into a record
// and post it; the main thread raises it. The host sees a dialog as a number:
// libvlc frees its dialog id once it is answered, so only numbers still open
// reach libvlc, and each at most once. A dialog nobody handles is dismissed,
// or the libvlc thread that asked would wait for good. Members test the
// handle, trace, then test the libvlc function (GUARD_HTF).
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "binding/library.h"
#include "binding/vlc_table.h"
#include "events/delivery_queue.h"
#include "events/event_manager.h"
#include "media/instance.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/text.h"

namespace {

struct DialogData {
    int64_t handle;  // libvlc_instance_t* the callbacks were registered on
    REALobject vlc;
    DeliveryTarget* target;  // libvlc's user data for this object's callbacks
    // A libvlc reference on the instance registered on: the instance object may
    // let go of it first (its constructor run again, its Handle written).
    libvlc_instance_t* kept;
};

DialogData& DialogOf(REALobject self) { return DataOf<DialogData>(self, VLCDialogQRVClass); }

// A dialog libvlc handed over that nobody has answered yet.
struct OpenDialog {
    libvlc_dialog_id* id;
    DeliveryTarget* owner;
};

// libvlc's threads open and cancel dialogs, the main thread answers them.
// Recursive: a delivery dropped while posting under the lock dismisses its dialog.
struct DialogRegistry {
    std::recursive_mutex lock;
    int64_t lastNumber = 0;
    std::map<int64_t, OpenDialog> open;             // by the number the host sees
    std::unordered_set<DeliveryTarget*> listening;  // objects that still take dialogs
    // Whose callbacks each instance holds; libvlc keeps one set per instance.
    std::unordered_map<libvlc_instance_t*, DeliveryTarget*> registered;
};

// Never destroyed: libvlc's threads may call until the process ends.
DialogRegistry& Registry() {
    static auto* registry = new DialogRegistry;
    return *registry;
}

using Hold = std::lock_guard<std::recursive_mutex>;

// Under the lock: the open dialog libvlc knows as `id`.
std::map<int64_t, OpenDialog>::iterator FindOpen(DialogRegistry& r, libvlc_dialog_id* id) {
    auto it = r.open.begin();
    while (it != r.open.end() && it->second.id != id) ++it;
    return it;
}

// Any thread: takes dialog `number` out of the open ones (of `owner` when
// given); null when it is not open: answered, dismissed or made up.
libvlc_dialog_id* TakeOpen(int64_t number, DeliveryTarget* owner) {
    DialogRegistry& r = Registry();
    Hold hold(r.lock);
    auto it = r.open.find(number);
    if (it == r.open.end() || (owner != nullptr && it->second.owner != owner)) return nullptr;
    libvlc_dialog_id* id = it->second.id;
    r.open.erase(it);
    return id;
}

void DismissId(libvlc_dialog_id* id) {
    if (id != nullptr && vlcfn::_libvlc_dialog_dismiss != nullptr) vlcfn::_libvlc_dialog_dismiss(id);
}

// One dialog in transit; every text is the record's own (null stays null).
struct DialogRecord {
    int64_t number;  // 0 for an error, which needs no answer
    char* texts[5];  // title, text, then what the kind adds, in its event's order
    int32_t type;
    bool flag;  // askStore, indeterminate
    double position;
    bool answerUnlessRaised;  // no handler raised it: the plug-in dismisses it
    bool raised;
};

DialogRecord* RecordOf(const libvlc_event_t& event) {
    DialogRecord* record;
    memcpy(&record, &event.u, sizeof record);
    return record;
}

DialogRecord* NewRecord(std::initializer_list<const char*> texts) {
    auto* record = static_cast<DialogRecord*>(calloc(1, sizeof(DialogRecord)));
    if (record == nullptr) return nullptr;
    size_t i = 0;
    for (const char* text : texts) record->texts[i++] = text != nullptr ? strdup(text) : nullptr;
    return record;
}

void GiveBackDialog(libvlc_event_t& event) {
    DialogRecord* record = RecordOf(event);
    if (record == nullptr) return;
    if (record->answerUnlessRaised && !record->raised) DismissId(TakeOpen(record->number, nullptr));
    for (char* text : record->texts) free(text);
    free(record);
}

// The host's strings of a record, given back after the raise.
struct RecordStrings {
    explicit RecordStrings(DialogRecord* record) {
        record->raised = true;
        for (size_t i = 0; i < std::size(strings); ++i) strings[i] = BuildStringUTF8(record->texts[i]);
    }
    ~RecordStrings() {
        for (REALstring s : strings)
            if (s != nullptr) REALUnlockString(s);
    }
    REALstring strings[5];
};

void RaiseErrorDialog(REALobject self, void* handler, const libvlc_event_t& event) {
    RecordStrings s(RecordOf(event));
    reinterpret_cast<void (*)(REALobject, REALstring, REALstring)>(handler)(self, s.strings[0], s.strings[1]);
}

void RaiseLoginDialog(REALobject self, void* handler, const libvlc_event_t& event) {
    DialogRecord* r = RecordOf(event);
    RecordStrings s(r);
    using Handler = void (*)(REALobject, RBInteger, REALstring, REALstring, REALstring, RBBoolean);
    reinterpret_cast<Handler>(handler)(self, r->number, s.strings[0], s.strings[1], s.strings[2], r->flag);
}

void RaiseQuestionDialog(REALobject self, void* handler, const libvlc_event_t& event) {
    DialogRecord* r = RecordOf(event);
    RecordStrings s(r);
    using Handler =
        void (*)(REALobject, RBInteger, REALstring, REALstring, RBInteger, REALstring, REALstring, REALstring);
    reinterpret_cast<Handler>(handler)(self, r->number, s.strings[0], s.strings[1], r->type, s.strings[2], s.strings[3],
                                       s.strings[4]);
}

void RaiseProgressDialog(REALobject self, void* handler, const libvlc_event_t& event) {
    DialogRecord* r = RecordOf(event);
    RecordStrings s(r);
    using Handler = void (*)(REALobject, RBInteger, REALstring, REALstring, RBBoolean, double, REALstring);
    reinterpret_cast<Handler>(handler)(self, r->number, s.strings[0], s.strings[1], r->flag, r->position, s.strings[2]);
}

void RaiseProgressUpdated(REALobject self, void* handler, const libvlc_event_t& event) {
    DialogRecord* r = RecordOf(event);
    RecordStrings s(r);
    reinterpret_cast<void (*)(REALobject, RBInteger, double, REALstring)>(handler)(self, r->number, r->position,
                                                                                   s.strings[0]);
}

void RaiseDialogCancelled(REALobject self, void* handler, const libvlc_event_t& event) {
    DialogRecord* r = RecordOf(event);
    r->raised = true;
    reinterpret_cast<void (*)(REALobject, RBInteger)>(handler)(self, r->number);
}

#define DIALOG_ROUTE(index, name)                                                                        \
    DeliveryRoute {                                                                                      \
        kDialogRouteFirst + (index), &VLCDialogQRVClass, (index), "Event " #name, false, 0, Raise##name, \
            GiveBackDialog                                                                               \
    }
const DeliveryRoute kErrorRoute = DIALOG_ROUTE(0, ErrorDialog);
const DeliveryRoute kLoginRoute = DIALOG_ROUTE(1, LoginDialog);
const DeliveryRoute kQuestionRoute = DIALOG_ROUTE(2, QuestionDialog);
const DeliveryRoute kProgressRoute = DIALOG_ROUTE(3, ProgressDialog);
const DeliveryRoute kUpdateRoute = DIALOG_ROUTE(4, ProgressUpdated);
const DeliveryRoute kCancelRoute = DIALOG_ROUTE(5, DialogCancelled);
#undef DIALOG_ROUTE

// Under the lock, so that the owner cannot retire its target meanwhile.
void Post(DeliveryTarget* target, const DeliveryRoute& route, DialogRecord* record) {
    if (record == nullptr) return;
    libvlc_event_t event;
    memset(&event, 0, sizeof event);
    memcpy(&event.u, &record, sizeof record);
    PostDelivery(target, route, event);
}

// libvlc's thread: a new dialog for the object listening at `data`. An object
// that takes no more dialogs has it dismissed here (libvlc allows that inside
// the callback), and no record is made.
void OpenAndPost(void* data, libvlc_dialog_id* id, const DeliveryRoute& route, std::initializer_list<const char*> texts,
                 int32_t type, bool flag, double position) {
    auto* target = static_cast<DeliveryTarget*>(data);
    DialogRegistry& r = Registry();
    {
        Hold hold(r.lock);
        if (r.listening.contains(target)) {
            DialogRecord* record = NewRecord(texts);
            if (record != nullptr) {
                record->number = ++r.lastNumber;
                record->type = type;
                record->flag = flag;
                record->position = position;
                record->answerUnlessRaised = true;
                r.open[record->number] = {id, target};
                Post(target, route, record);
                return;
            }
        }
    }
    DismissId(id);
}

void DisplayError(void* data, const char* title, const char* text) {
    auto* target = static_cast<DeliveryTarget*>(data);
    DialogRegistry& r = Registry();
    Hold hold(r.lock);
    if (r.listening.contains(target)) Post(target, kErrorRoute, NewRecord({title, text}));
}

void DisplayLogin(void* data, libvlc_dialog_id* id, const char* title, const char* text, const char* defaultUsername,
                  bool askStore) {
    OpenAndPost(data, id, kLoginRoute, {title, text, defaultUsername}, 0, askStore, 0);
}

void DisplayQuestion(void* data, libvlc_dialog_id* id, const char* title, const char* text,
                     libvlc_dialog_question_type type, const char* cancel, const char* action1, const char* action2) {
    OpenAndPost(data, id, kQuestionRoute, {title, text, cancel, action1, action2}, type, false, 0);
}

void DisplayProgress(void* data, libvlc_dialog_id* id, const char* title, const char* text, bool indeterminate,
                     float position, const char* cancel) {
    OpenAndPost(data, id, kProgressRoute, {title, text, cancel}, 0, indeterminate, position);
}

// Cancel and update go to the object the dialog was handed to: after a newer
// object took over the instance, libvlc cancels the older one's dialogs with
// the newer one's data. A dialog no longer open is left alone.
void CancelDialog(void*, libvlc_dialog_id* id) {
    DialogRegistry& r = Registry();
    Hold hold(r.lock);
    auto it = FindOpen(r, id);
    if (it == r.open.end()) return;
    DialogRecord* record = NewRecord({});
    if (record == nullptr) {  // nobody could be told: the dialog ends here
        r.open.erase(it);
        DismissId(id);
        return;
    }
    record->number = it->first;
    record->answerUnlessRaised = true;
    Post(it->second.owner, kCancelRoute, record);
}

void UpdateProgress(void*, libvlc_dialog_id* id, float position, const char* text) {
    DialogRegistry& r = Registry();
    Hold hold(r.lock);
    auto it = FindOpen(r, id);
    if (it == r.open.end()) return;
    DialogRecord* record = NewRecord({text});
    if (record == nullptr) return;
    record->number = it->first;
    record->position = position;
    Post(it->second.owner, kUpdateRoute, record);
}

const libvlc_dialog_cbs kCallbacks = {DisplayError,    DisplayLogin, DisplayQuestion,
                                      DisplayProgress, CancelDialog, UpdateProgress};

// Main thread: the object takes no more dialogs. Dismisses those it holds
// open, then unregisters its callbacks if the instance still holds them (a
// newer object's are left in place). Answers whether libvlc may still call
// with its target.
bool EndRegistration(DialogData& d) {
    if (d.target == nullptr) return false;
    std::vector<libvlc_dialog_id*> held;
    libvlc_instance_t* instance = nullptr;
    DialogRegistry& r = Registry();
    {
        Hold hold(r.lock);
        r.listening.erase(d.target);
        for (auto it = r.open.begin(); it != r.open.end();) {
            if (it->second.owner != d.target) {
                ++it;
                continue;
            }
            held.push_back(it->second.id);
            it = r.open.erase(it);
        }
        for (auto& [registeredOn, target] : r.registered)
            if (target == d.target) instance = registeredOn;
        if (instance != nullptr) r.registered.erase(instance);
    }
    for (libvlc_dialog_id* id : held) DismissId(id);
    d.handle = 0;
    if (instance == nullptr) return false;
    // Outside the lock: libvlc takes its own lock, which its threads hold while calling back.
    if (vlcfn::_libvlc_dialog_set_callbacks == nullptr) return true;
    vlcfn::_libvlc_dialog_set_callbacks(instance, nullptr, nullptr);
    return false;
}

// After EndRegistration: libvlc no longer needs the instance for this object.
void GiveBackInstance(DialogData& d) {
    if (d.kept != nullptr && vlcfn::_libvlc_release != nullptr) vlcfn::_libvlc_release(d.kept);
    d.kept = nullptr;
}

}  // namespace

// A constructor run again ends the registration it made before. An instance
// whose handle is 0 is reported, yet kept in VLC.
static void VLCDialogConstructor(REALobject self, REALobject vlc) {
    NoteLibvlcHolder(self);
    TRACE("VLCDialogConstructor");
    DialogData& d = DialogOf(self);
    EndRegistration(d);
    GiveBackInstance(d);
    ReleaseField(d.vlc);
    if (!VLC_NEED(libvlc_dialog_set_callbacks)) return;
    libvlc_instance_t* instance = KeepInstanceArgument(vlc, d.vlc);
    if (instance == nullptr) return;
    if (d.target == nullptr) d.target = NewDeliveryTarget(self);
    DialogRegistry& r = Registry();
    {
        Hold hold(r.lock);
        r.listening.insert(d.target);
        r.registered[instance] = d.target;
    }
    vlcfn::_libvlc_dialog_set_callbacks(instance, &kCallbacks, d.target);
    d.handle = reinterpret_cast<int64_t>(instance);
    if (vlcfn::_libvlc_retain != nullptr) {
        vlcfn::_libvlc_retain(instance);
        d.kept = instance;
    }
}

static void VLCDialogDestructor(REALobject self) {
    DialogData& d = DialogOf(self);
    RetireDeliveryTarget(d.target, EndRegistration(d));
    GiveBackInstance(d);
    d.target = nullptr;
    ReleaseField(d.vlc);
    ForgetLibvlcHolder(self);
}

static RBBoolean PostLogin(REALobject self, RBInteger id, REALstring username, REALstring password, RBBoolean store) {
    GUARD_HTF(DialogOf(self).handle, "PostLogin", libvlc_dialog_post_login, false);
    rbText user(username);
    rbText secret(password);
    libvlc_dialog_id* open = TakeOpen(id, DialogOf(self).target);
    if (open == nullptr) return false;
    return vlcfn::_libvlc_dialog_post_login(open, user.GetUTF8(), secret.GetUTF8(), store != 0) == 0;
}

static RBBoolean PostAction(REALobject self, RBInteger id, RBInteger action) {
    GUARD_HTF(DialogOf(self).handle, "PostAction", libvlc_dialog_post_action, false);
    libvlc_dialog_id* open = TakeOpen(id, DialogOf(self).target);
    if (open == nullptr) return false;
    return vlcfn::_libvlc_dialog_post_action(open, static_cast<int>(action)) == 0;
}

static RBBoolean Dismiss(REALobject self, RBInteger id) {
    GUARD_HTF(DialogOf(self).handle, "Dismiss", libvlc_dialog_dismiss, false);
    libvlc_dialog_id* open = TakeOpen(id, DialogOf(self).target);
    if (open == nullptr) return false;
    return vlcfn::_libvlc_dialog_dismiss(open) == 0;
}

namespace {

REALproperty kProperties[] = {
    QRV_FIELD_PROPERTY("Handle", "Integer", DialogData, handle),
    QRV_READONLY_FIELD_PROPERTY("VLC", "VLCInstanceQRV", DialogData, vlc),
};

REALmethodDefinition kMethods[] = {
    QRV_METHOD(VLCDialogConstructor, "Constructor(vlc as VLCInstanceQRV)"),
    QRV_METHOD(VLCDialogDestructor, "Destructor"),
    QRV_METHOD(PostLogin,
               "PostLogin(id as integer, username as string, password as string, store as boolean) as boolean"),
    QRV_METHOD(PostAction, "PostAction(id as integer, action as integer) as boolean"),
    QRV_METHOD(Dismiss, "Dismiss(id as integer) as boolean"),
};

REALevent kEvents[] = {
    QRV_EVENT("ErrorDialog(title as string, text as string)"),
    QRV_EVENT("LoginDialog(id as integer, title as string, text as string, defaultUsername as string, askStore as "
              "boolean)"),
    QRV_EVENT("QuestionDialog(id as integer, title as string, text as string, type as integer, cancel as string, "
              "action1 as string, action2 as string)"),
    QRV_EVENT("ProgressDialog(id as integer, title as string, text as string, indeterminate as boolean, position as "
              "double, cancel as string)"),
    QRV_EVENT("ProgressUpdated(id as integer, position as double, text as string)"),
    QRV_EVENT("DialogCancelled(id as integer)"),
};

REALconstant kConstants[] = {
    QRV_CONSTANT("kQuestionNormal = 0"),
    QRV_CONSTANT("kQuestionWarning = 1"),
    QRV_CONSTANT("kQuestionCritical = 2"),
};

}  // namespace

REALclassDefinition VLCDialogQRVClass = {
    .version = kStaticRecordVersion,
    .name = "VLCDialogQRV",
    .dataSize = sizeof(DialogData),
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
