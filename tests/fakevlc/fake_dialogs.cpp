// The fake libvlc's dialogs: the callbacks an instance registers, called from new threads at the test's word.
// Strict as libvlc 3.0: an id answered twice or never handed out would be freed memory there, so the fake stops.
#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/fakevlc/fakevlc_state.h"

#define EXPORT __attribute__((visibility("default")))

namespace {

struct Registration {
    libvlc_dialog_cbs cbs;
    void* data;
};

// Never freed: a late answer is caught, not a crash.
struct FakeDialog {
    libvlc_instance_t* instance;
    bool open;
    bool cancelled;
    std::string outcome;
};

std::mutex gProvider;  // held while callbacks run, as libvlc's dialog provider lock is
std::mutex gLock;      // the dialogs' state
auto& gRegistrations = *new std::map<libvlc_instance_t*, Registration>;
auto& gDialogs = *new std::vector<FakeDialog*>;  // dialog number n at n - 1
thread_local bool gInsideCallback = false;

[[noreturn]] void Abort(const std::string& why) {
    fprintf(stderr, "fake libvlc: %s\n", why.c_str());
    abort();
}

FakeDialog* Find(int64_t number) {
    std::lock_guard<std::mutex> hold(gLock);
    return number >= 1 && number <= static_cast<int64_t>(gDialogs.size()) ? gDialogs[number - 1] : nullptr;
}

// Closes the dialog behind an id the plug-in hands back; stops on one that is not open.
int Answer(const char* function, libvlc_dialog_id* id, const std::string& outcome) {
    fakevlc::Count(function);
    auto* dialog = reinterpret_cast<FakeDialog*>(id);
    std::lock_guard<std::mutex> hold(gLock);
    if (std::find(gDialogs.begin(), gDialogs.end(), dialog) == gDialogs.end() || !dialog->open)
        Abort(std::string(function) + " of a dialog id that is not open: libvlc would use freed memory");
    dialog->open = false;
    dialog->outcome = outcome;
    return 0;
}

// Copies valid during the callback only: overwritten and freed after it.
struct Texts {
    explicit Texts(std::initializer_list<const char*> texts) {
        for (const char* t : texts) copies.push_back(strdup(t));
    }
    ~Texts() {
        for (char* c : copies) free(memset(c, '#', strlen(c)));
    }
    std::vector<char*> copies;
};

// On a new thread, joined, under the provider lock: `callback` with the registration `instance` holds, if any.
bool CallBack(libvlc_instance_t* instance, const std::function<bool(const Registration&)>& callback) {
    bool called = false;
    std::thread([&] {
        std::lock_guard<std::mutex> provider(gProvider);
        auto it = gRegistrations.find(instance);
        gInsideCallback = true;
        called = it != gRegistrations.end() && callback(it->second);
        gInsideCallback = false;
    }).join();
    return called;
}

// libvlc calls back only for a dialog still open and not cancelled.
int CallOpen(int64_t number, bool cancel, const std::function<void(const Registration&, libvlc_dialog_id*)>& call) {
    FakeDialog* dialog = Find(number);
    return dialog != nullptr && CallBack(dialog->instance, [&](const Registration& r) {
               {
                   std::lock_guard<std::mutex> hold(gLock);
                   if (!dialog->open || dialog->cancelled) return false;
                   dialog->cancelled = cancel;
               }
               call(r, reinterpret_cast<libvlc_dialog_id*>(dialog));
               return true;
           });
}

}  // namespace

extern "C" {

// As libvlc 3.0: the new data is in place before the open dialogs are cancelled; NULL cancels through the old.
EXPORT void libvlc_dialog_set_callbacks(libvlc_instance_t* instance, const libvlc_dialog_cbs* cbs, void* data) {
    fakevlc::Count("libvlc_dialog_set_callbacks");
    if (gInsideCallback) Abort("libvlc_dialog_set_callbacks inside a dialog callback: libvlc would deadlock");
    std::lock_guard<std::mutex> provider(gProvider);
    auto it = gRegistrations.find(instance);
    if (it != gRegistrations.end()) {
        Registration through = cbs != nullptr ? Registration{*cbs, data} : it->second;
        std::vector<FakeDialog*> cancelled;
        {
            std::lock_guard<std::mutex> hold(gLock);
            for (FakeDialog* d : gDialogs)
                if (d->instance == instance && d->open && !d->cancelled) cancelled.push_back(d);
            for (FakeDialog* d : cancelled) d->cancelled = true;
        }
        gInsideCallback = true;
        for (FakeDialog* d : cancelled) through.cbs.pf_cancel(through.data, reinterpret_cast<libvlc_dialog_id*>(d));
        gInsideCallback = false;
    }
    if (cbs != nullptr)
        gRegistrations[instance] = {*cbs, data};
    else
        gRegistrations.erase(instance);
}

EXPORT int libvlc_dialog_post_login(libvlc_dialog_id* id, const char* username, const char* password, bool store) {
    if (username == nullptr || password == nullptr) Abort("libvlc_dialog_post_login with a null text");
    return Answer("libvlc_dialog_post_login", id,
                  std::string("login ") + username + " " + password + (store ? " store" : " once"));
}

EXPORT int libvlc_dialog_post_action(libvlc_dialog_id* id, int action) {
    return Answer("libvlc_dialog_post_action", id, "action " + std::to_string(action));
}

EXPORT int libvlc_dialog_dismiss(libvlc_dialog_id* id) { return Answer("libvlc_dialog_dismiss", id, "dismissed"); }

EXPORT int64_t fakevlc_dialog_raise(libvlc_instance_t* instance, int kind, const char* title) {
    int64_t number = 0;
    CallBack(instance, [&](const Registration& r) {
        const libvlc_dialog_cbs& c = r.cbs;
        // libvlc shows a dialog only with its callback there; one taking an answer also needs cancel.
        const bool shown[] = {c.pf_display_error != nullptr, c.pf_display_login != nullptr,
                              c.pf_display_question != nullptr,
                              c.pf_display_progress != nullptr && c.pf_update_progress != nullptr};
        if (!shown[kind] || (kind != 0 && c.pf_cancel == nullptr)) return false;
        auto* dialog = new FakeDialog{instance, kind != 0, false, kind != 0 ? "open" : "shown"};
        {
            std::lock_guard<std::mutex> hold(gLock);
            gDialogs.push_back(dialog);
            number = static_cast<int64_t>(gDialogs.size());
        }
        auto* id = reinterpret_cast<libvlc_dialog_id*>(dialog);
        Texts t({title, "Fake text", "guest", "Cancel", "Yes"});
        char** s = t.copies.data();
        if (kind == 0) c.pf_display_error(r.data, s[0], s[1]);
        if (kind == 1) c.pf_display_login(r.data, id, s[0], s[1], s[2], true);
        if (kind == 2)
            c.pf_display_question(r.data, id, s[0], s[1], LIBVLC_DIALOG_QUESTION_WARNING, s[3], s[4], nullptr);
        if (kind == 3) c.pf_display_progress(r.data, id, s[0], s[1], false, 0.25f, s[3]);
        return true;
    });
    return number;
}

EXPORT int fakevlc_dialog_cancel(int64_t number) {
    return CallOpen(number, true, [](const Registration& r, libvlc_dialog_id* id) { r.cbs.pf_cancel(r.data, id); });
}

EXPORT int fakevlc_dialog_update(int64_t number, double position, const char* text) {
    return CallOpen(number, false, [&](const Registration& r, libvlc_dialog_id* id) {
        Texts t({text});
        r.cbs.pf_update_progress(r.data, id, static_cast<float>(position), t.copies[0]);
    });
}

EXPORT const char* fakevlc_dialog_outcome(int64_t number) {
    thread_local std::string outcome;
    FakeDialog* dialog = Find(number);
    std::lock_guard<std::mutex> hold(gLock);
    outcome = dialog != nullptr ? dialog->outcome : "none";
    return outcome.c_str();
}

}  // extern "C"
