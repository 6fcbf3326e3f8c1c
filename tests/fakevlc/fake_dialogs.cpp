// The fake libvlc's dialogs: callbacks an instance registers, raised from threads at the test's word.
// Strict as libvlc 3.0: an id answered twice or never handed out would be freed memory there, so the fake stops.
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <future>
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

// Never freed: its number and outcome stay readable, and a late answer is caught, not a crash.
struct FakeDialog {
    libvlc_instance_t* instance;
    bool open = true;
    bool cancelled = false;
    std::string outcome = "open";
};

struct Dialogs {
    std::mutex provider;  // held while callbacks run, as libvlc's dialog provider lock is
    std::mutex lock;      // the dialogs' state
    std::condition_variable answered;
    std::map<libvlc_instance_t*, Registration> registrations;
    std::map<int64_t, FakeDialog*> byNumber;
    int64_t last = 0;
};
Dialogs& gDialogs = *new Dialogs;  // raising threads may outlive a test's objects
thread_local bool gInsideDialogCallback = false;

[[noreturn]] void Abort(const std::string& why) {
    fprintf(stderr, "fake libvlc: %s\n", why.c_str());
    abort();
}

// The dialog behind an id the plug-in hands back; stops on one that is not open.
FakeDialog* Answering(const char* function, libvlc_dialog_id* id, const std::string& outcome) {
    fakevlc::Count(function);
    auto* dialog = reinterpret_cast<FakeDialog*>(id);
    std::lock_guard<std::mutex> hold(gDialogs.lock);
    bool known = false;
    for (auto& [number, d] : gDialogs.byNumber) known = known || d == dialog;
    if (!known || !dialog->open)
        Abort(std::string(function) + " of a dialog id that is not open: libvlc would use freed memory");
    dialog->open = false;
    dialog->outcome = outcome;
    gDialogs.answered.notify_all();
    return dialog;
}

// Strings live only during the callback: freed and overwritten after it.
struct Texts {
    explicit Texts(std::initializer_list<const char*> texts) {
        for (const char* t : texts) copies.push_back(t ? strdup(t) : nullptr);
    }
    ~Texts() {
        for (char* c : copies)
            if (c != nullptr) {
                memset(c, '#', strlen(c));
                free(c);
            }
    }
    std::vector<char*> copies;
};

// Under the provider lock: calls back with the dialog's id.
void Call(const std::function<void()>& callback) {
    gInsideDialogCallback = true;
    callback();
    gInsideDialogCallback = false;
}

FakeDialog* FindDialog(int64_t number) {
    std::lock_guard<std::mutex> hold(gDialogs.lock);
    auto it = gDialogs.byNumber.find(number);
    return it == gDialogs.byNumber.end() ? nullptr : it->second;
}

// Under the provider lock: libvlc cancels the instance's open dialogs when its callbacks change.
void CancelOpen(libvlc_instance_t* instance, const Registration& through) {
    std::vector<FakeDialog*> cancelled;
    {
        std::lock_guard<std::mutex> hold(gDialogs.lock);
        for (auto& [number, d] : gDialogs.byNumber)
            if (d->instance == instance && d->open && !d->cancelled) {
                d->cancelled = true;
                cancelled.push_back(d);
            }
    }
    for (FakeDialog* d : cancelled)
        Call([&] { through.cbs.pf_cancel(through.data, reinterpret_cast<libvlc_dialog_id*>(d)); });
}

// libvlc shows a dialog only when its callback is there, and for those that
// take an answer the cancel callback too (for progress also the update).
bool Asks(const libvlc_dialog_cbs* cbs, int kind) {
    if (cbs == nullptr) return false;
    switch (kind) {
        case 0:
            return cbs->pf_display_error != nullptr;
        case 1:
            return cbs->pf_display_login != nullptr && cbs->pf_cancel != nullptr;
        case 2:
            return cbs->pf_display_question != nullptr && cbs->pf_cancel != nullptr;
        case 3:
            return cbs->pf_display_progress != nullptr && cbs->pf_cancel != nullptr &&
                   cbs->pf_update_progress != nullptr;
    }
    return false;
}

}  // namespace

extern "C" {

// As libvlc 3.0: the new data is in place before the open dialogs are cancelled; NULL cancels through the old.
EXPORT void libvlc_dialog_set_callbacks(libvlc_instance_t* instance, const libvlc_dialog_cbs* cbs, void* data) {
    fakevlc::Count("libvlc_dialog_set_callbacks");
    if (gInsideDialogCallback) Abort("libvlc_dialog_set_callbacks inside a dialog callback: libvlc would deadlock");
    std::lock_guard<std::mutex> provider(gDialogs.provider);
    auto it = gDialogs.registrations.find(instance);
    if (cbs != nullptr) {
        Registration now{*cbs, data};
        if (it != gDialogs.registrations.end()) CancelOpen(instance, now);
        gDialogs.registrations[instance] = now;
    } else if (it != gDialogs.registrations.end()) {
        CancelOpen(instance, it->second);
        gDialogs.registrations.erase(it);
    }
}

EXPORT int libvlc_dialog_post_login(libvlc_dialog_id* id, const char* username, const char* password, bool store) {
    if (username == nullptr || password == nullptr) Abort("libvlc_dialog_post_login with a null text");
    Answering("libvlc_dialog_post_login", id,
              std::string("login ") + username + " " + password + (store ? " store" : " once"));
    return 0;
}

EXPORT int libvlc_dialog_post_action(libvlc_dialog_id* id, int action) {
    Answering("libvlc_dialog_post_action", id, "action " + std::to_string(action));
    return 0;
}

EXPORT int libvlc_dialog_dismiss(libvlc_dialog_id* id) {
    Answering("libvlc_dialog_dismiss", id, "dismissed");
    return 0;
}

EXPORT int64_t fakevlc_dialog_raise(libvlc_instance_t* instance, int kind, const char* title, int64_t waitMs) {
    std::promise<int64_t> shown;
    std::future<int64_t> number = shown.get_future();
    std::string name = title;
    std::thread([=, shown = std::move(shown)]() mutable {
        FakeDialog* dialog = nullptr;
        {
            std::lock_guard<std::mutex> provider(gDialogs.provider);
            auto it = gDialogs.registrations.find(instance);
            const libvlc_dialog_cbs* cbs = it != gDialogs.registrations.end() ? &it->second.cbs : nullptr;
            void* data = cbs != nullptr ? it->second.data : nullptr;
            if (!Asks(cbs, kind)) {
                shown.set_value(0);
                return;
            }
            int64_t n;
            {
                std::lock_guard<std::mutex> hold(gDialogs.lock);
                n = ++gDialogs.last;
                dialog = new FakeDialog{instance};
                if (kind == 0) {  // an error needs no answer
                    dialog->open = false;
                    dialog->outcome = "shown";
                }
                gDialogs.byNumber[n] = dialog;
            }
            auto* id = reinterpret_cast<libvlc_dialog_id*>(dialog);
            Texts t({name.c_str(), "Fake text", "guest", "Cancel", "Yes"});
            char** s = t.copies.data();
            Call([&] {
                if (kind == 0) cbs->pf_display_error(data, s[0], s[1]);
                if (kind == 1) cbs->pf_display_login(data, id, s[0], s[1], s[2], true);
                if (kind == 2)
                    cbs->pf_display_question(data, id, s[0], s[1], LIBVLC_DIALOG_QUESTION_WARNING, s[3], s[4], nullptr);
                if (kind == 3) cbs->pf_display_progress(data, id, s[0], s[1], false, 0.25f, s[3]);
            });
            shown.set_value(n);
        }
        // A module asking for a login or an answer waits for it, here for a bounded time.
        if (kind != 1 && kind != 2) return;
        std::unique_lock<std::mutex> hold(gDialogs.lock);
        gDialogs.answered.wait_for(hold, std::chrono::milliseconds(waitMs), [&] { return !dialog->open; });
    }).detach();
    return number.get();
}

// On a new thread, joined: calls back for a dialog still open and not cancelled, as libvlc does.
static int CallOpen(int64_t number, const std::function<void(const Registration&, libvlc_dialog_id*)>& callback) {
    int called = 0;
    std::thread([&] {
        std::lock_guard<std::mutex> provider(gDialogs.provider);
        FakeDialog* dialog = FindDialog(number);
        if (dialog == nullptr) return;
        auto it = gDialogs.registrations.find(dialog->instance);
        {
            std::lock_guard<std::mutex> hold(gDialogs.lock);
            if (!dialog->open || dialog->cancelled || it == gDialogs.registrations.end()) return;
        }
        Call([&] { callback(it->second, reinterpret_cast<libvlc_dialog_id*>(dialog)); });
        called = 1;
    }).join();
    return called;
}

EXPORT int fakevlc_dialog_cancel(int64_t number) {
    return CallOpen(number, [&](const Registration& r, libvlc_dialog_id* id) {
        {
            std::lock_guard<std::mutex> hold(gDialogs.lock);
            reinterpret_cast<FakeDialog*>(id)->cancelled = true;
        }
        r.cbs.pf_cancel(r.data, id);
    });
}

EXPORT int fakevlc_dialog_update(int64_t number, double position, const char* text) {
    return CallOpen(number, [&](const Registration& r, libvlc_dialog_id* id) {
        Texts t({text});
        r.cbs.pf_update_progress(r.data, id, static_cast<float>(position), t.copies[0]);
    });
}

EXPORT const char* fakevlc_dialog_outcome(int64_t number, int64_t waitMs) {
    thread_local std::string outcome;
    FakeDialog* dialog = FindDialog(number);
    if (dialog == nullptr) return "none";
    std::unique_lock<std::mutex> hold(gDialogs.lock);
    gDialogs.answered.wait_for(hold, std::chrono::milliseconds(waitMs), [&] { return !dialog->open; });
    outcome = dialog->outcome;
    return outcome.c_str();
}

EXPORT void* fakevlc_dialog_data(libvlc_instance_t* instance) {
    std::lock_guard<std::mutex> provider(gDialogs.provider);
    auto it = gDialogs.registrations.find(instance);
    return it != gDialogs.registrations.end() ? it->second.data : nullptr;
}

}  // extern "C"
