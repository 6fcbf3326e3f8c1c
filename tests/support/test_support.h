// Shared helpers of the test suites: paths, the emulator with libvlc loaded,
// and expectations on raised host exceptions.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <vlc/vlc.h>

#include <string>

#include "host/emulator.h"

namespace qrvtest {

// Every test runs under the emulator's checks: a fault it sees in the plug-in
// fails the running test, and each test ends with the audit (what the
// plug-in holds through a host still alive then must balance what it held
// when the test started; a host that goes away audits itself).
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
                                          "VLCModuleDescriptionQRV"};

inline std::string SamplePath(const std::string& name) { return emu::SourceDir() + "/samples/" + name; }

// Arguments that run libvlc without a display, a sound card or an interface.
inline std::vector<std::string> HeadlessArgs() {
    return {"--intf=dummy", "--vout=dummy", "--aout=dummy", "--no-video-title-show", "--quiet", "--no-stats"};
}

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

// Loads the system's libvlc 3.0 into the plug-in of this host.
inline bool LoadRealLibvlc(emu::Host& host) {
    return host.CallShared("VLCInstanceQRV", "LoadLibrary", {host.String("libvlc.so.5")}).AsBool();
}

// A VLCInstanceQRV on the real libvlc, headless.
inline emu::Value HeadlessInstance(emu::Host& host) {
    return host.New("VLCInstanceQRV", {host.StringArray(HeadlessArgs())});
}

// Captures what the plug-in writes to standard error (its trace sink).
class StderrCapture {
public:
    StderrCapture() { ::testing::internal::CaptureStderr(); }
    std::string Finish() { return ::testing::internal::GetCapturedStderr(); }
};

}  // namespace qrvtest

namespace qrvtest {

// The fake libvlc's control functions, reached through the same file the
// plug-in loads (same handle, same state).
class FakeVLC {
public:
    explicit FakeVLC(bool partial = false) : path(partial ? FAKEVLC_PARTIAL_PATH : FAKEVLC_PATH) {
        handle_ = dlopen(path.c_str(), RTLD_NOW);
        Bind(reset, "fakevlc_reset");
        Bind(setInt, "fakevlc_set_int");
        Bind(setDouble, "fakevlc_set_double");
        Bind(setPtr, "fakevlc_set_ptr");
        Bind(calls, "fakevlc_calls");
        Bind(text, "fakevlc_text");
        Bind(integer, "fakevlc_int");
        Bind(newMedia, "fakevlc_new_media");
        Bind(mediaRefs, "fakevlc_media_refs");
        Bind(attached, "fakevlc_attached");
        Bind(fire, "fakevlc_fire");
        Bind(fireFromThreads, "fakevlc_fire_from_threads");
        Bind(eventManager, "fakevlc_event_manager");
        Bind(log, "fakevlc_log");
        Bind(requestExit, "fakevlc_request_exit");
        Bind(renderFrame, "fakevlc_render_frame");
        Bind(vout, "fakevlc_vout");
        Bind(holdFrame, "fakevlc_hold_frame");
        if (reset) reset();
    }
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
    void (*reset)() = nullptr;
    void (*setInt)(const char*, int64_t) = nullptr;
    void (*setDouble)(const char*, double) = nullptr;
    void (*setPtr)(const char*, void*) = nullptr;
    int64_t (*calls)(const char*) = nullptr;
    const char* (*text)(const char*) = nullptr;
    int64_t (*integer)(const char*) = nullptr;
    libvlc_media_t* (*newMedia)() = nullptr;
    int64_t (*mediaRefs)(libvlc_media_t*) = nullptr;
    int64_t (*attached)(libvlc_event_manager_t*, int) = nullptr;
    void (*fire)(libvlc_event_manager_t*, const libvlc_event_t*) = nullptr;
    void (*fireFromThreads)(libvlc_event_manager_t*, const libvlc_event_t*, int, int64_t) = nullptr;
    libvlc_event_manager_t* (*eventManager)() = nullptr;
    void (*log)(int, const char*, const char*, unsigned, const char*, int) = nullptr;
    void (*requestExit)() = nullptr;
    int (*renderFrame)(int64_t frame) = nullptr;
    void (*vout)(int open) = nullptr;
    void (*holdFrame)(int64_t milliseconds) = nullptr;

private:
    template <typename Fn>
    void Bind(Fn& fn, const char* name) {
        fn = handle_ ? reinterpret_cast<Fn>(dlsym(handle_, name)) : nullptr;
    }
    void* handle_ = nullptr;
};

}  // namespace qrvtest
