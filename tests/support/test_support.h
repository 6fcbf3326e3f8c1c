// Shared helpers of the test suites: paths, the emulator with libvlc loaded,
// and expectations on raised host exceptions.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "host/emulator.h"

namespace qrvtest {

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
