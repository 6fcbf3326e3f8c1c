// Shared helpers of the test suites: paths, the emulator with libvlc loaded,
// and expectations on raised host exceptions.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <vlc/vlc.h>

#include <malloc.h>

#include <string>

#include "host/emulator.h"

namespace qrvtest {

// A fault the emulator sees in the plug-in fails the running test, and what the
// plug-in holds through a host alive at both ends of a test must balance.
class HostAuditListener : public ::testing::EmptyTestEventListener {
public:
    void OnTestStart(const ::testing::TestInfo&) override {
        host_ = emu::Host::Current();
        if (host_ != nullptr) start_ = host_->Count();
    }
    void OnTestEnd(const ::testing::TestInfo&) override {
        if (host_ != nullptr && emu::Host::Current() == host_ && !(host_->Count() == start_))
            ADD_FAILURE() << "the test started with " << emu::Describe(start_) << " held and ended with "
                          << emu::Describe(host_->Count());
        host_ = nullptr;
    }

private:
    emu::Host* host_ = nullptr;
    emu::Audit start_;
};

inline void FailTestOnFault(const std::string& message) { ADD_FAILURE() << "plug-in fault: " << message; }

inline const bool kHostChecksInstalled = [] {
    emu::SetFaultHandler(FailTestOnFault);
    ::testing::UnitTest::GetInstance()->listeners().Append(new HostAuditListener);
    return true;
}();

// The plug-in's classes in the order it registers them.
inline const char* const kClassNames[] = {"VLCInstanceQRV",
                                          "VLCMediaQRV",
                                          "VLCMediaListQRV",
                                          "VLCMediaLibraryQRV",
                                          "VLCMediaPlayerQRV",
                                          "VLCEventManagerQRV",
                                          "VLCMediaListPlayerQRV",
                                          "VLCMediaDiscovererQRV",
                                          "VLCTrackDescriptionQRV",
                                          "VLCAudioOutputQRV",
                                          "VLCAudioOutputDeviceQRV",
                                          "VLCMissingFunctionExceptionQRV",
                                          "VLCNotInitializedExceptionQRV",
                                          "VLCMediaStatsQRV",
                                          "VLCMediaTrackInfoQRV",
                                          "VLCMediaTrackQRV",
                                          "VLCEqualizerQRV",
                                          "VLCExitHandlerQRV",
                                          "VLCModuleDescriptionQRV",
                                          "VLCMediaSlaveQRV",
                                          "VLCMediaDiscovererDescriptionQRV",
                                          "VLCRendererDiscovererQRV",
                                          "VLCRendererItemQRV",
                                          "VLCRendererDiscovererDescriptionQRV",
                                          "VLCDialogQRV"};

// Bytes the heap has handed out (the plain allocator; sanitizers keep their own).
inline int64_t HeapInUse() { return static_cast<int64_t>(mallinfo2().uordblks); }

inline std::string SamplePath(const std::string& name) { return emu::SourceDir() + "/samples/" + name; }

inline ::testing::AssertionResult Raised(const emu::Host& host, const std::string& className,
                                         const std::string& message) {
    if (!host.exception) return ::testing::AssertionFailure() << "nothing raised, expected " << className;
    if (host.exception->className != className || host.exception->message != message)
        return ::testing::AssertionFailure()
               << "raised " << host.exception->className << " \"" << host.exception->message << "\", expected "
               << className << " \"" << message << "\"";
    return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult NothingRaised(const emu::Host& host) {
    if (!host.exception) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "raised " << host.exception->className << " \"" << host.exception->message
                                         << "\"";
}

inline ::testing::AssertionResult RaisedMissing(const emu::Host& host, const std::string& entry) {
    return Raised(host, "VLCMissingFunctionExceptionQRV", "Missing function " + entry + " in VLC.");
}

inline ::testing::AssertionResult RaisedNotInitialized(const emu::Host& host) {
    return Raised(host, "VLCNotInitializedExceptionQRV", "VLC object not initialized.");
}

// A row of ExpectAnswers: a method and its arguments, or a property as "get Name".
struct Answer {
    std::string member;
    double expected;  // Booleans as 0 or 1
    std::vector<emu::Value> args = {};
};

// Runs the rows in order on one object and compares each answer.
inline void ExpectAnswers(emu::Host& host, const emu::Value& self, const std::vector<Answer>& rows) {
    for (const Answer& row : rows) {
        bool property = row.member.rfind("get ", 0) == 0;
        emu::Value got = property ? host.Get(self, row.member.substr(4)) : host.Call(self, row.member, row.args);
        EXPECT_EQ(got.AsDouble(), row.expected) << row.member;
    }
}

// Loads the system's libvlc 3.0 into the plug-in of this host.
inline bool LoadRealLibvlc(emu::Host& host) {
    return host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String("libvlc.so.5")}).AsBool();
}

// A VLCInstanceQRV on the real libvlc without a display, a sound card or an interface.
inline emu::Value HeadlessInstance(emu::Host& host) {
    return host.New("VLCInstanceQRV", {host.StringArray({"--intf=dummy", "--vout=dummy", "--aout=dummy",
                                                         "--no-video-title-show", "--quiet", "--no-stats"})});
}

// Captures what the plug-in writes to standard error (its trace sink).
class StderrCapture {
public:
    StderrCapture() { ::testing::internal::CaptureStderr(); }
    std::string Finish() { return ::testing::internal::GetCapturedStderr(); }
};

// The fake libvlc's control functions, reached through the same file the
// plug-in loads (same handle, same state).
class FakeVLC {
    void* handle_;
    // Converts to whichever function pointer type it initialises.
    struct Symbol {
        void* address;
        template <typename Fn>
        operator Fn*() const {
            return reinterpret_cast<Fn*>(address);
        }
    };
    Symbol Sym(const char* name) const { return {handle_ ? dlsym(handle_, name) : nullptr}; }

public:
    explicit FakeVLC(bool partial = false) : FakeVLC(std::string(partial ? FAKEVLC_PARTIAL_PATH : FAKEVLC_PATH)) {}
    // A copy of the fake at `file` (one the plug-in may have loaded already).
    explicit FakeVLC(const std::string& file) : handle_(dlopen(file.c_str(), RTLD_NOW)), path(file) {
        if (reset) reset();
    }
    ~FakeVLC() {
        if (handle_ != nullptr) dlclose(handle_);
    }
    FakeVLC(const FakeVLC&) = delete;
    FakeVLC& operator=(const FakeVLC&) = delete;
    bool Loaded() const { return handle_ != nullptr && reset != nullptr; }
    // Makes the plug-in of this host bind the fake.
    bool LoadInto(emu::Host& host) const {
        return host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String(path)}).AsBool();
    }
    std::string Text(const char* key) const {
        const char* t = text(key);
        return t ? t : "";
    }

    std::string path;
    void (*reset)() = Sym("fakevlc_reset");
    void (*setInt)(const char*, int64_t) = Sym("fakevlc_set_int");
    void (*setPtr)(const char*, void*) = Sym("fakevlc_set_ptr");
    int64_t (*calls)(const char*) = Sym("fakevlc_calls");
    const char* (*text)(const char*) = Sym("fakevlc_text");
    int64_t (*integer)(const char*) = Sym("fakevlc_int");
    libvlc_media_t* (*newMedia)() = Sym("fakevlc_new_media");
    void* (*newObject)() = Sym("fakevlc_new_object");  // the 4.0 fake's
    int64_t (*mediaRefs)(libvlc_media_t*) = Sym("fakevlc_media_refs");
    int64_t (*attached)(libvlc_event_manager_t*, int) = Sym("fakevlc_attached");
    void (*fire)(libvlc_event_manager_t*, const libvlc_event_t*) = Sym("fakevlc_fire");
    void (*fireFromThreads)(libvlc_event_manager_t*, const libvlc_event_t*, int,
                            int64_t) = Sym("fakevlc_fire_from_threads");
    libvlc_event_manager_t* (*eventManager)() = Sym("fakevlc_event_manager");
    void (*log)(int, const char*, const char*, unsigned, const char*, int) = Sym("fakevlc_log");
    int (*logRoute)() = Sym("fakevlc_log_route");
    void (*requestExit)() = Sym("fakevlc_request_exit");
    int (*renderFrame)(int64_t frame) = Sym("fakevlc_render_frame");
    void (*vout)(int open) = Sym("fakevlc_vout");
    void (*holdFrame)(int64_t milliseconds) = Sym("fakevlc_hold_frame");
    libvlc_renderer_item_t* (*newRendererItem)(const char*, const char*, const char*,
                                               int) = Sym("fakevlc_new_renderer_item");
    int64_t (*rendererItemRefs)(const libvlc_renderer_item_t*) = Sym("fakevlc_renderer_item_refs");
    libvlc_renderer_item_t* (*playerRenderer)() = Sym("fakevlc_player_renderer");
    int64_t (*dialogRaise)(libvlc_instance_t*, int, const char*) = Sym("fakevlc_dialog_raise");
    int (*dialogCancel)(int64_t) = Sym("fakevlc_dialog_cancel");
    int (*dialogUpdate)(int64_t, double, const char*) = Sym("fakevlc_dialog_update");
    const char* (*dialogOutcome)(int64_t) = Sym("fakevlc_dialog_outcome");
    // The stream callbacks and opaque of the last media made by libvlc_media_new_callbacks.
    void (*mediaCallbacks)(libvlc_media_open_cb*, libvlc_media_read_cb*, libvlc_media_seek_cb*, libvlc_media_close_cb*,
                           void**) = Sym("fakevlc_media_callbacks");
};

}  // namespace qrvtest
