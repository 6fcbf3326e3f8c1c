// Dialogs with the fake libvlc: every kind raised on the main thread, answered at
// most once, and never left waiting when nobody handles it or its object goes.
#include <dlfcn.h>

#include <sstream>
#include <thread>

#include "tests/events/recorder.h"
#include "tests/events/watchdog.h"
#include "tests/fakevlc/fakevlc_control.h"

namespace {

using emu::Host;
using emu::Value;
using namespace eventstest;
using namespace std::chrono_literals;

// The fake's dialog controls (fakevlc_control.h), from the file the plug-in loaded.
struct FakeDialogs {
    void* handle = dlopen(FAKEVLC_PATH, RTLD_NOW);
#define FAKE_CONTROL(name, function) \
    decltype(&function) name = reinterpret_cast<decltype(&function)>(dlsym(handle, #function))
    FAKE_CONTROL(raise, fakevlc_dialog_raise);
    FAKE_CONTROL(cancel, fakevlc_dialog_cancel);
    FAKE_CONTROL(update, fakevlc_dialog_update);
    FAKE_CONTROL(outcome, fakevlc_dialog_outcome);
    FAKE_CONTROL(data, fakevlc_dialog_data);
#undef FAKE_CONTROL
    ~FakeDialogs() { dlclose(handle); }
};

enum Kind { kError, kLogin, kQuestion, kProgress };

// Handlers recording each dialog event under `prefix`.
template <Name prefix>
std::map<std::string, void*> Handlers() {
    return {{"ErrorDialog", reinterpret_cast<void*>(&Record<prefix, REALstring, REALstring>)},
            {"LoginDialog",
             reinterpret_cast<void*>(&Record<prefix, RBInteger, REALstring, REALstring, REALstring, RBBoolean>)},
            {"QuestionDialog",
             reinterpret_cast<void*>(
                 &Record<prefix, RBInteger, REALstring, REALstring, RBInteger, REALstring, REALstring, REALstring>)},
            {"ProgressDialog", reinterpret_cast<void*>(
                                   &Record<prefix, RBInteger, REALstring, REALstring, RBBoolean, double, REALstring>)},
            {"ProgressUpdated", reinterpret_cast<void*>(&Record<prefix, RBInteger, double, REALstring>)},
            {"DialogCancelled", reinterpret_cast<void*>(&Record<prefix, RBInteger>)}};
}

class FakeDialogsTest : public ::testing::Test {
protected:
    void SetUp() override {
        seen = &record;
        ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host));
        ASSERT_NE(dialogs.raise, nullptr);
        vlc = host.New("VLCInstanceQRV", {host.StringArray({})});
        instance = reinterpret_cast<libvlc_instance_t*>(host.Get(vlc, "Handle").AsInt());
    }
    Value Dialog(const std::string& cls, std::map<std::string, void*> handlers) {
        host.DefineSubclass(cls, "VLCDialogQRV", std::move(handlers));
        return host.New(cls, {vlc});
    }
    void ExpectRaised(const Lines& expected) {
        EXPECT_TRUE(host.PumpUntil([&] { return seen->raised.size() >= expected.size(); }, 2000ms));
        host.PumpFor(20ms);
        EXPECT_EQ(seen->raised, expected);
        EXPECT_FALSE(seen->offMainThread);
    }
    // The host's number of the dialog in raised line `line` (numbers count on through the process).
    int64_t IdIn(size_t line) {
        std::istringstream words(seen->raised.at(line));
        std::string prefix;
        int64_t id = 0;
        words >> prefix >> id;
        return id;
    }
    bool Answer(const Value& dialog, const std::string& method, std::vector<Value> args) {
        return host.Call(dialog, method, std::move(args)).AsInt() == 1;
    }

    Watchdog watchdog{20s};
    Host host;
    Seen record{&host};  // goes before the host
    qrvtest::FakeVLC fake;
    FakeDialogs dialogs;
    Value vlc;
    libvlc_instance_t* instance = nullptr;
};

TEST_F(FakeDialogsTest, EveryKindArrivesCopiedOnTheMainThreadAndEachIdIsAnsweredOnce) {
    Value dialog = Dialog("Asking", Handlers<"d">());
    EXPECT_NE(dialogs.data(instance), nullptr);
    EXPECT_EQ(host.Get(dialog, "Handle").AsInt(), reinterpret_cast<int64_t>(instance));
    int64_t error = dialogs.raise(instance, kError, "E", 0);
    int64_t login = dialogs.raise(instance, kLogin, "L", 5000);
    int64_t question = dialogs.raise(instance, kQuestion, "Q", 5000);
    int64_t progress = dialogs.raise(instance, kProgress, "P", 0);
    ASSERT_TRUE(error && login && question && progress);
    EXPECT_EQ(dialogs.update(progress, 0.5, "half"), 1);
    EXPECT_EQ(dialogs.cancel(progress), 1);
    EXPECT_TRUE(seen->raised.empty()) << "raised inside libvlc's callback";
    ASSERT_TRUE(host.PumpUntil([&] { return seen->raised.size() >= 2; }, 2000ms));
    auto n = [first = IdIn(1)](int64_t k) { return std::to_string(first + k); };
    ExpectRaised({"d E Fake text", "d " + n(0) + " L Fake text guest 1",
                  "d " + n(1) + " Q Fake text 1 Cancel Yes <nil>", "d " + n(2) + " P Fake text 0 0.25 Cancel",
                  "d " + n(2) + " 0.5 half", "d " + n(2)});
    const int64_t loginId = IdIn(1), questionId = loginId + 1, progressId = loginId + 2;

    EXPECT_TRUE(
        Answer(dialog, "PostLogin", {Value::Int(loginId), host.String("user"), host.String("pw"), Value::Bool(true)}));
    EXPECT_STREQ(dialogs.outcome(login, 0), "login user pw store");
    EXPECT_TRUE(Answer(dialog, "PostAction", {Value::Int(questionId), Value::Int(2)}));
    EXPECT_STREQ(dialogs.outcome(question, 0), "action 2");
    // A cancelled dialog stays open until dismissed.
    EXPECT_STREQ(dialogs.outcome(progress, 0), "open");
    EXPECT_TRUE(Answer(dialog, "Dismiss", {Value::Int(progressId)}));
    EXPECT_STREQ(dialogs.outcome(progress, 0), "dismissed");
    // Late, repeated and made-up answers reach no libvlc (the fake would stop the process).
    for (int64_t id : {loginId, questionId, progressId, int64_t{0}, int64_t{-1}, loginId + 99})
        EXPECT_FALSE(
            Answer(dialog, "PostLogin", {Value::Int(id), host.String("u"), host.String(""), Value::Bool(false)}) ||
            Answer(dialog, "PostAction", {Value::Int(id), Value::Int(1)}) ||
            Answer(dialog, "Dismiss", {Value::Int(id)}))
            << id;
    EXPECT_TRUE(qrvtest::NothingRaised(host));
    EXPECT_EQ(dialogs.update(progress, 0.75, "late"), 0) << "libvlc updates no dismissed dialog";
}

TEST_F(FakeDialogsTest, DialogsNobodyHandlesAreDismissed) {
    Value dialog = Dialog("OnlyLogins", {{"LoginDialog", Handlers<"d">().at("LoginDialog")}});
    int64_t question = dialogs.raise(instance, kQuestion, "Q", 5000);
    int64_t progress = dialogs.raise(instance, kProgress, "P", 0);
    int64_t login = dialogs.raise(instance, kLogin, "L", 5000);
    ASSERT_TRUE(host.PumpUntil([&] { return !seen->raised.empty(); }, 2000ms));
    ExpectRaised({"d " + std::to_string(IdIn(0)) + " L Fake text guest 1"});
    EXPECT_STREQ(dialogs.outcome(question, 0), "dismissed");
    EXPECT_STREQ(dialogs.outcome(progress, 0), "dismissed");
    EXPECT_STREQ(dialogs.outcome(login, 0), "open");
    // libvlc gives up on the login: nobody handles the cancel, so the plug-in dismisses it.
    EXPECT_EQ(dialogs.cancel(login), 1);
    host.PumpFor(50ms);
    EXPECT_STREQ(dialogs.outcome(login, 0), "dismissed");
    EXPECT_FALSE(
        Answer(dialog, "PostLogin", {Value::Int(IdIn(0)), host.String("u"), host.String("p"), Value::Bool(false)}));
}

TEST_F(FakeDialogsTest, ADestroyedObjectReleasesLibvlcsWaitingThreadsAndGetsNothingMore) {
    Value dialog = Dialog("Going", Handlers<"d">());
    int64_t login = dialogs.raise(instance, kLogin, "L", 5000);
    int64_t question = dialogs.raise(instance, kQuestion, "Q", 5000);
    int64_t progress = dialogs.raise(instance, kProgress, "P", 0);
    dialogs.raise(instance, kError, "E", 0);
    host.Call(dialog, "Destructor");
    for (int64_t n : {login, question, progress}) EXPECT_STREQ(dialogs.outcome(n, 0), "dismissed") << n;
    EXPECT_EQ(dialogs.data(instance), nullptr) << "its callbacks were unregistered";
    host.PumpFor(50ms);
    EXPECT_TRUE(seen->raised.empty()) << "raised for a destroyed object";
    EXPECT_EQ(dialogs.raise(instance, kLogin, "after", 5000), 0);
}

TEST_F(FakeDialogsTest, ANewerObjectTakesOverTheInstanceAndTheOlderLeavesItsCallbacksAlone) {
    Value older = Dialog("Older", Handlers<"older">());
    int64_t first = dialogs.raise(instance, kLogin, "first", 5000);
    ASSERT_TRUE(host.PumpUntil([&] { return !seen->raised.empty(); }, 2000ms));
    const int64_t firstId = IdIn(0);
    const std::string one = std::to_string(firstId), two = std::to_string(firstId + 1);
    ExpectRaised({"older " + one + " first Fake text guest 1"});
    void* olderData = dialogs.data(instance);
    Value newer = Dialog("Newer", Handlers<"newer">());
    EXPECT_NE(dialogs.data(instance), olderData);
    int64_t second = dialogs.raise(instance, kLogin, "second", 5000);
    // libvlc cancels the older object's dialog through the newer callbacks; it goes to its owner.
    ExpectRaised(
        {"older " + one + " first Fake text guest 1", "older " + one, "newer " + two + " second Fake text guest 1"});
    EXPECT_FALSE(Answer(newer, "Dismiss", {Value::Int(firstId)})) << "not the newer object's dialog";
    EXPECT_TRUE(Answer(older, "Dismiss", {Value::Int(firstId)}));
    EXPECT_STREQ(dialogs.outcome(first, 0), "dismissed");
    host.Call(older, "Destructor");
    EXPECT_NE(dialogs.data(instance), nullptr) << "the newer object's callbacks stay";
    EXPECT_STREQ(dialogs.outcome(second, 0), "open");
    host.Call(newer, "Destructor");
    EXPECT_STREQ(dialogs.outcome(second, 0), "dismissed");
    EXPECT_EQ(dialogs.data(instance), nullptr);
}

}  // namespace
