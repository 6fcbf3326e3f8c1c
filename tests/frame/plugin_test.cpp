// The built plug-in as the host loads it: registration, loading libvlc, the
// library-level shared methods and the trace.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "host/emulator.h"
#include "tests/support/test_support.h"

namespace {

using emu::Host;
using emu::HostOptions;
using emu::Value;
using qrvtest::LoadRealLibvlc;
using qrvtest::NothingRaised;
using qrvtest::RaisedMissing;
using qrvtest::StderrCapture;

Value Shared(Host& host, const char* method, std::vector<Value> args = {}) {
    return host.CallShared("VLCInstanceQRV", method, std::move(args));
}

TEST(PluginRegistration, RecordsReachTheHostFixedForItsVersion) {
    for (auto [version, expected] : {std::pair{2012.0, 10}, {2013.03, 12}, {2021.0, 13}}) {
        HostOptions options;
        options.version = version;
        Host host(options);
        EXPECT_EQ(host.registeredVersion, expected);
        auto classes = host.PluginClasses();
        ASSERT_EQ(classes.size(), 19u);
        for (const emu::ClassInfo* cls : classes) {
            EXPECT_EQ(cls->record->version, static_cast<uint32_t>(expected)) << cls->name;
            EXPECT_EQ(cls->record->dataSize % 16, 0u) << cls->name;
        }
    }
}

TEST(PluginRegistration, HiddenRegisterEntryRegistersNothing) {
    HostOptions options;
    options.hidden = {"PluginRegisterClass"};
    Host host(options);
    EXPECT_TRUE(host.PluginClasses().empty());
    EXPECT_EQ(host.registeredVersion, 13);
}

TEST(PluginRegistration, DebuggingIsAHiddenSharedProperty) {
    Host host;
    const REALclassDefinition* record = host.FindClass("VLCInstanceQRV")->record;
    ASSERT_EQ(record->sharedPropertyCount, 1u);
    const REALproperty& debugging = record->sharedProperties[0];
    EXPECT_STREQ(debugging.name, "Debugging");
    EXPECT_EQ(debugging.flags, 38u);
    ASSERT_EQ(debugging.attributeCount, 1u);
    EXPECT_STREQ(debugging.attributes[0].name, "Hidden");
    EXPECT_STREQ(debugging.attributes[0].value, "");
    EXPECT_FALSE(host.GetShared("VLCInstanceQRV", "Debugging").AsBool());
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    EXPECT_TRUE(host.GetShared("VLCInstanceQRV", "Debugging").AsBool());
}

TEST(LoadLibrary, RealLibvlcLoadsWithItsFourMissingFunctionsReported) {
    Host host;
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    StderrCapture capture;
    EXPECT_TRUE(LoadRealLibvlc(host));
    std::string trace = capture.Finish();
    EXPECT_TRUE(NothingRaised(host));
    for (const char* name : {"libvlc_vlm_get_media_instance_title", "libvlc_vlm_get_media_instance_chapter",
                             "libvlc_vlm_get_media_instance_seekable", "libvlc_media_list_add_file_content"})
        EXPECT_NE(trace.find(std::string("QRV Debug: ") + name + "\nQRV Debug: ReportError\n"), std::string::npos)
            << name;
    EXPECT_NE(trace.find("QRV Debug: LoadLibraryString\n"), std::string::npos);
    EXPECT_NE(trace.find("QRV Debug: Library okay.\n"), std::string::npos);
    // The load error is the message of the last missing function.
    Value error = Shared(host, "GetLoadError");
    EXPECT_NE(host.Text(error).find("undefined symbol: libvlc_media_list_add_file_content"), std::string::npos)
        << host.Text(error);

    EXPECT_EQ(host.Text(Shared(host, "GetVersion")).rfind("3.0.", 0), 0u);
    EXPECT_FALSE(Shared(host, "GetCompiler").IsNil());
    EXPECT_FALSE(Shared(host, "GetChangeset").IsNil());
    EXPECT_GT(Shared(host, "Clock").AsInt(), 0);
    Shared(host, "ClearError");
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_TRUE(Shared(host, "ErrorMessage").IsNil());
}

TEST(LoadLibrary, NonLibraryFileFailsWithTheLoadersMessage) {
    char path[] = "/tmp/qrv-not-a-library-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "plain text\n", 11), 11);
    close(fd);
    {
        Host host;
        EXPECT_FALSE(Shared(host, "LoadLibrary", {host.String(path)}).AsBool());
        std::string first = host.Text(Shared(host, "GetLoadError"));
        std::string second = host.Text(Shared(host, "GetLoadError"));
        EXPECT_NE(first.find(path), std::string::npos) << first;
        EXPECT_EQ(first, second);
        size_t strings = host.LiveStrings();
        Shared(host, "GetLoadError");
        EXPECT_EQ(host.LiveStrings(), strings) << "the answer carries its own reference";
    }
    unlink(path);
}

TEST(LoadLibrary, TheResultLooksAtTheTableNotAtThisOpen) {
    Host host;
    EXPECT_FALSE(Shared(host, "LoadLibrary", {Value()}).AsBool());
    EXPECT_TRUE(Shared(host, "GetLoadError").IsNil());
    ASSERT_TRUE(LoadRealLibvlc(host));
    EXPECT_TRUE(Shared(host, "LoadLibrary", {host.String("/nonexistent/libvlc.so")}).AsBool());
    EXPECT_NE(host.Text(Shared(host, "GetLoadError")).find("/nonexistent/libvlc.so"), std::string::npos);
    // A nil argument clears the error and keeps the table.
    EXPECT_TRUE(Shared(host, "LoadLibrary", {Value()}).AsBool());
    EXPECT_TRUE(Shared(host, "GetLoadError").IsNil());
}

TEST(LoadLibrary, FolderItemPath) {
    Host host;
    Value item = host.FolderItem("/usr/lib/x86_64-linux-gnu/libvlc.so.5");
    EXPECT_TRUE(Shared(host, "LoadLibrary", {item}).AsBool());
    EXPECT_FALSE(Shared(host, "GetLoadError").IsNil());  // libvlc 3.0 lacks four functions
    // A folder item that does not open keeps the table of the first load.
    EXPECT_TRUE(Shared(host, "LoadLibrary", {host.FolderItem("/nonexistent/x.so")}).AsBool());
    EXPECT_NE(host.Text(Shared(host, "GetLoadError")).find("/nonexistent/x.so"), std::string::npos);
}

TEST(SharedMethods, MissingFunctionsBeforeAnyLoad) {
    Host host;
    EXPECT_EQ(Shared(host, "Clock").AsInt(), 0);
    EXPECT_TRUE(RaisedMissing(host, "_libvlc_clock"));
    EXPECT_TRUE(Shared(host, "GetVersion").IsNil());
    EXPECT_TRUE(RaisedMissing(host, "_libvlc_get_version"));
    EXPECT_TRUE(Shared(host, "GetCompiler").IsNil());
    EXPECT_TRUE(RaisedMissing(host, "_libvlc_get_compiler"));
    EXPECT_TRUE(Shared(host, "GetChangeset").IsNil());
    EXPECT_TRUE(RaisedMissing(host, "_libvlc_get_changeset"));
    EXPECT_TRUE(Shared(host, "ErrorMessage").IsNil());
    EXPECT_TRUE(RaisedMissing(host, "_libvlc_errmsg"));
    Shared(host, "ClearError");
    EXPECT_TRUE(RaisedMissing(host, "_libvlc_clearerr"));
}

TEST(SharedMethods, WithoutRaiseEntryNothingIsRaised) {
    HostOptions options;
    options.hidden = {"RuntimeRaiseException"};
    Host host(options);
    EXPECT_EQ(Shared(host, "Clock").AsInt(), 0);
    EXPECT_TRUE(NothingRaised(host));
}

TEST(SharedMethods, EnvironmentAndLocale) {
    Host host;
    unsetenv("QRV_TEST_UNSET");
    setenv("QRV_TEST_EMPTY", "", 1);
    setenv("QRV_TEST_VALUE", "value 1", 1);
    setenv("QRV_\xC3\x88", "roman", 1);
    EXPECT_TRUE(Shared(host, "getenv", {host.String("QRV_TEST_UNSET")}).IsNil());
    Value empty = Shared(host, "getenv", {host.String("QRV_TEST_EMPTY")});
    EXPECT_FALSE(empty.IsNil());
    EXPECT_EQ(host.Text(empty), "");
    Value value = Shared(host, "getenv", {host.String("QRV_TEST_VALUE")});
    EXPECT_EQ(host.Text(value), "value 1");
    EXPECT_EQ(host.Encoding(value), kEncodingASCII);
    // A name tagged "unknown" is read as Mac Roman, where 0xE9 stands for U+00C8.
    EXPECT_EQ(host.Text(Shared(host, "getenv", {host.String("QRV_\xE9", kEncodingUnknown)})), "roman");
    EXPECT_EQ(host.Text(Shared(host, "setlocale", {Value::Int(0), host.String("C")})), "C");
    EXPECT_TRUE(NothingRaised(host));
}

TEST(Trace, LinesOnlyWhileDebugging) {
    Host host;
    {
        StderrCapture capture;
        Shared(host, "Clock");
        Shared(host, "GetVersion");
        EXPECT_EQ(capture.Finish(), "");
    }
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    {
        StderrCapture capture;
        Shared(host, "Clock");
        Shared(host, "ErrorMessage");
        Shared(host, "ClearError");
        EXPECT_EQ(capture.Finish(), "QRV Debug: myclock\nQRV Debug: errmsg\nQRV Debug: clearerrRB\n");
    }
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(false));
    StderrCapture capture;
    Shared(host, "Clock");
    EXPECT_EQ(capture.Finish(), "");
}

}  // namespace
