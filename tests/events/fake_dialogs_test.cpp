// Dialogs with the fake libvlc: every kind raised on the main thread, answered at
// most once, and never left waiting when nobody handles it or its object goes.
#include <sstream>

#include "tests/events/recorder.h"
#include "tests/events/watchdog.h"

namespace {

using emu::Host;
using emu::Value;
using namespace eventstest;
using namespace std::chrono_literals;

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
        ASSERT_TRUE(fake.Loaded() && fake.LoadInto(host) && fake.dialogRaise != nullptr);
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
    // The host's number of the first dialog raised (numbers count on through the process), once it is.
    int64_t FirstId() {
        EXPECT_TRUE(host.PumpUntil([&] { return !seen->raised.empty(); }, 2000ms));
        std::istringstream words(seen->raised.empty() ? "" : seen->raised[0]);
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
    Value vlc;
    libvlc_instance_t* instance = nullptr;
};

TEST_F(FakeDialogsTest, EveryKindArrivesCopiedOnTheMainThreadAndEachIdIsAnsweredOnce) {
    Value dialog = Dialog("Asking", Handlers<"d">());
    EXPECT_EQ(host.Get(dialog, "Handle").AsInt(), reinterpret_cast<int64_t>(instance));
    int64_t login = fake.dialogRaise(instance, kLogin, "L"), question = fake.dialogRaise(instance, kQuestion, "Q");
    int64_t progress = fake.dialogRaise(instance, kProgress, "P");
    ASSERT_TRUE(login && question && progress && fake.dialogRaise(instance, kError, "E"));
    EXPECT_EQ(fake.dialogUpdate(progress, 0.5, "half"), 1);
    EXPECT_EQ(fake.dialogCancel(progress), 1);
    EXPECT_TRUE(seen->raised.empty()) << "raised inside libvlc's callback";
    const int64_t loginId = FirstId(), questionId = loginId + 1, progressId = loginId + 2;
    auto n = [&](int64_t id) { return "d " + std::to_string(id); };
    ExpectRaised({n(loginId) + " L Fake text guest 1", n(questionId) + " Q Fake text 1 Cancel Yes <nil>",
                  n(progressId) + " P Fake text 0 0.25 Cancel", "d E Fake text", n(progressId) + " 0.5 half",
                  n(progressId)});

    EXPECT_TRUE(
        Answer(dialog, "PostLogin", {Value::Int(loginId), host.String("user"), host.String("pw"), Value::Bool(true)}));
    EXPECT_STREQ(fake.dialogOutcome(login), "login user pw store");
    EXPECT_TRUE(Answer(dialog, "PostAction", {Value::Int(questionId), Value::Int(2)}));
    EXPECT_STREQ(fake.dialogOutcome(question), "action 2");
    EXPECT_STREQ(fake.dialogOutcome(progress), "open") << "a cancelled dialog stays open until dismissed";
    EXPECT_TRUE(Answer(dialog, "Dismiss", {Value::Int(progressId)}));
    EXPECT_STREQ(fake.dialogOutcome(progress), "dismissed");
    // Late, repeated and made-up answers reach no libvlc (the fake would stop the process).
    for (int64_t id : {loginId, questionId, progressId, int64_t{0}, int64_t{-1}, loginId + 99})
        EXPECT_FALSE(
            Answer(dialog, "PostLogin", {Value::Int(id), host.String("u"), host.String(""), Value::Bool(false)}) ||
            Answer(dialog, "PostAction", {Value::Int(id), Value::Int(1)}) ||
            Answer(dialog, "Dismiss", {Value::Int(id)}))
            << id;
    EXPECT_TRUE(qrvtest::NothingRaised(host));
    EXPECT_EQ(fake.dialogUpdate(progress, 0.75, "late"), 0) << "libvlc updates no dismissed dialog";
}

TEST_F(FakeDialogsTest, DialogsNobodyHandlesAreDismissed) {
    Value dialog = Dialog("OnlyLogins", {{"LoginDialog", Handlers<"d">().at("LoginDialog")}});
    int64_t question = fake.dialogRaise(instance, kQuestion, "Q"),
            progress = fake.dialogRaise(instance, kProgress, "P");
    int64_t login = fake.dialogRaise(instance, kLogin, "L");
    const int64_t loginId = FirstId();
    ExpectRaised({"d " + std::to_string(loginId) + " L Fake text guest 1"});
    EXPECT_STREQ(fake.dialogOutcome(question), "dismissed");
    EXPECT_STREQ(fake.dialogOutcome(progress), "dismissed");
    EXPECT_STREQ(fake.dialogOutcome(login), "open");
    // libvlc gives up on the login: nobody handles the cancel, so the plug-in dismisses it.
    EXPECT_EQ(fake.dialogCancel(login), 1);
    host.PumpFor(50ms);
    EXPECT_STREQ(fake.dialogOutcome(login), "dismissed");
    EXPECT_FALSE(
        Answer(dialog, "PostLogin", {Value::Int(loginId), host.String("u"), host.String("p"), Value::Bool(false)}));
}

// libvlc cancels the older object's dialog through the newer one's callbacks; the cancel goes to its owner.
TEST_F(FakeDialogsTest, ANewerObjectTakesOverAndEachObjectEndsOnlyItsOwnDialogs) {
    Value older = Dialog("Older", Handlers<"older">());
    int64_t first = fake.dialogRaise(instance, kLogin, "first");
    const int64_t firstId = FirstId();
    const std::string one = std::to_string(firstId), two = std::to_string(firstId + 1);
    Value newer = Dialog("Newer", Handlers<"newer">());
    int64_t second = fake.dialogRaise(instance, kLogin, "second");
    ExpectRaised(
        {"older " + one + " first Fake text guest 1", "older " + one, "newer " + two + " second Fake text guest 1"});
    EXPECT_FALSE(Answer(newer, "Dismiss", {Value::Int(firstId)})) << "not the newer object's dialog";
    EXPECT_TRUE(Answer(older, "Dismiss", {Value::Int(firstId)}));
    EXPECT_STREQ(fake.dialogOutcome(first), "dismissed");
    host.Call(older, "Destructor");
    EXPECT_STREQ(fake.dialogOutcome(second), "open");
    // The newer object's callbacks stay; its end dismisses what it holds open, queued or raised.
    int64_t question = fake.dialogRaise(instance, kQuestion, "Q"),
            progress = fake.dialogRaise(instance, kProgress, "P");
    ASSERT_TRUE(question && progress && fake.dialogRaise(instance, kError, "E"));
    host.Call(newer, "Destructor");
    for (int64_t n : {second, question, progress}) EXPECT_STREQ(fake.dialogOutcome(n), "dismissed") << n;
    host.PumpFor(50ms);
    EXPECT_EQ(seen->raised.size(), 3u) << "raised for a destroyed object";
    EXPECT_EQ(fake.dialogRaise(instance, kLogin, "after"), 0) << "its callbacks are unregistered";
}

}  // namespace
