// The built plug-in as the host loads it: one export, no libvlc dependency, the
// folder as the zip and the install hand it over; loading libvlc (also from paths
// that are not plain ASCII), the library-level shared methods and the trace.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "tests/support/test_support.h"

namespace {

namespace fs = std::filesystem;
using namespace emu;
using namespace qrvtest;

Value Shared(Host& host, const char* method, std::vector<Value> args = {}) {
    return host.CallShared("VLCInstanceQRV", method, std::move(args));
}
std::string LoadError(Host& host) { return host.Text(Shared(host, "GetLoadError")); }

std::vector<std::string> Lines(const std::string& command) {
    std::vector<std::string> lines;
    char buffer[4096];
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    while (pipe && fgets(buffer, sizeof buffer, pipe.get())) lines.emplace_back(buffer, strcspn(buffer, "\n"));
    return lines;
}

std::vector<std::string> Exports(const std::string& plugin) {
    std::vector<std::string> exported = Lines("nm -D --defined-only '" + plugin + "' 2>&1");
    for (std::string& line : exported) line = line.substr(line.rfind(' ') + 1);  // the whole line when it has no space
    return exported;
}

TEST(PluginBinary, ExportsOnlyREALPluginMainAndDoesNotNeedLibvlc) {
    EXPECT_EQ(Exports(emu::DefaultPluginPath()), std::vector<std::string>{"REALPluginMain"});
    std::vector<std::string> needed = Lines("readelf -d '" + emu::DefaultPluginPath() + "' | grep '(NEEDED)'");
    ASSERT_FALSE(needed.empty()) << "readelf output not understood";
    for (const std::string& line : needed) EXPECT_EQ(line.find("libvlc"), std::string::npos) << line;
}

struct Scratch {
    Scratch() { EXPECT_NE(mkdtemp(name), nullptr) << name; }
    ~Scratch() { fs::remove_all(name); }
    fs::path operator/(const fs::path& child) const { return fs::path(name) / child; }
    char name[23] = "/tmp/qrv-folder-XXXXXX";
};

const char kBinaryInFolder[] = "QRVVLC/Build Resources/Linux x86-64/QRVVLC.so";
const char kMacBinaryInFolder[] = "QRVVLC/Build Resources/Mac Universal/QRVVLC.dylib";

// Each slice's exports of the universal macOS plug-in, as "arch: symbol".
std::vector<std::string> MacExports(const fs::path& dylib) {
    std::vector<std::string> exported;
    for (std::string arch : {"x86_64", "arm64"})
        for (const std::string& symbol :
             Lines("llvm-nm-14 -g --defined-only -j --arch=" + arch + " '" + dylib.string() + "' 2>&1"))
            exported.push_back(arch + ": " + symbol);
    return exported;
}
const std::vector<std::string> kMacExports{"x86_64: _REALPluginMain", "arm64: _REALPluginMain"};

TEST(PluginFolder, ZipHoldsTheFolderLayoutAndTheOneExport) {
    std::vector<std::string> entries = Lines(std::string("'") + QRV_CMAKE + "' -E tar tf '" + QRV_PLUGIN_ZIP + "'");
    for (std::string& entry : entries)
        if (!entry.empty() && entry.back() == '/') entry.pop_back();
    std::sort(entries.begin(), entries.end());
    std::vector<std::string> expected{"QRVVLC", "QRVVLC/Build Resources", "QRVVLC/Build Resources/Linux x86-64",
                                      kBinaryInFolder};
    if (QRV_WITH_MACOS) expected.insert(expected.end(), {"QRVVLC/Build Resources/Mac Universal", kMacBinaryInFolder});
    EXPECT_EQ(entries, expected);
    Scratch scratch;
    Lines(std::string("cd '") + scratch.name + "' && '" + QRV_CMAKE + "' -E tar xf '" + QRV_PLUGIN_ZIP + "'");
    EXPECT_EQ(Exports(scratch / kBinaryInFolder), std::vector<std::string>{"REALPluginMain"});
    if (QRV_WITH_MACOS) {
        EXPECT_EQ(MacExports(scratch / kMacBinaryInFolder), kMacExports);
    }
}

TEST(PluginFolder, InstallPutsTheFolderUnderThePrefix) {
    Scratch prefix;
    Lines(std::string("'") + QRV_CMAKE + "' --install '" + QRV_BUILD_DIR + "' --prefix '" + prefix.name + "' 2>&1");
    EXPECT_EQ(Exports(prefix / QRV_PLUGIN_FOLDER_NAME / kBinaryInFolder), std::vector<std::string>{"REALPluginMain"});
    if (QRV_WITH_MACOS) {
        EXPECT_EQ(MacExports(prefix / QRV_PLUGIN_FOLDER_NAME / kMacBinaryInFolder), kMacExports);
    }
}

TEST(LoadLibrary, RealLibvlcLoadsWithItsFourMissingFunctionsReported) {
    Host host;
    host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(true));
    StderrCapture capture;
    EXPECT_TRUE(LoadRealLibvlc(host));
    std::string trace = capture.Finish();
    EXPECT_TRUE(NothingRaised(host));
    size_t reported = 0;
    for (size_t at = 0; (at = trace.find("\nQRV Debug: ReportError\n", at)) != std::string::npos; ++at) ++reported;
    EXPECT_EQ(reported, 4u) << trace;
    for (const char* name : {"libvlc_vlm_get_media_instance_title", "libvlc_vlm_get_media_instance_chapter",
                             "libvlc_vlm_get_media_instance_seekable", "libvlc_media_list_add_file_content"})
        EXPECT_NE(trace.find(std::string("QRV Debug: ") + name + "\nQRV Debug: ReportError\n"), std::string::npos)
            << name;
    EXPECT_NE(trace.find("QRV Debug: LoadLibraryString\n"), std::string::npos);
    EXPECT_NE(trace.find("QRV Debug: Library okay.\n"), std::string::npos);
    // The load error is the message of the last missing function.
    std::string error = LoadError(host);
    EXPECT_NE(error.find("undefined symbol: libvlc_media_list_add_file_content"), std::string::npos) << error;

    EXPECT_EQ(host.Text(Shared(host, "GetVersion")).rfind("3.0.", 0), 0u);
    for (const char* method : {"GetCompiler", "GetChangeset"}) EXPECT_FALSE(Shared(host, method).IsNil()) << method;
    EXPECT_GT(Shared(host, "Clock").AsInt(), 0);
    Shared(host, "ClearError");
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_TRUE(Shared(host, "ErrorMessage").IsNil());
}

TEST(LoadLibrary, NonLibraryFileFailsWithTheLoadersMessageAndTheResultLooksAtTheTableNotAtThisOpen) {
    Host host;
    EXPECT_FALSE(Shared(host, "LoadLibrary", {Value()}).AsBool());
    EXPECT_TRUE(Shared(host, "GetLoadError").IsNil());
    Scratch scratch;
    std::string path = scratch / "not-a-library.so";
    ASSERT_TRUE(std::ofstream(path) << "plain text\n");
    EXPECT_FALSE(Shared(host, "LoadLibrary", {host.String(path)}).AsBool());
    std::string first = LoadError(host);
    EXPECT_NE(first.find(path), std::string::npos) << first;
    EXPECT_EQ(LoadError(host), first);
    size_t strings = host.LiveStrings();
    Shared(host, "GetLoadError");
    EXPECT_EQ(host.LiveStrings(), strings) << "the answer carries its own reference";

    ASSERT_TRUE(LoadRealLibvlc(host));
    EXPECT_TRUE(Shared(host, "LoadLibrary", {host.String("/nonexistent/libvlc.so")}).AsBool());
    EXPECT_NE(LoadError(host).find("/nonexistent/libvlc.so"), std::string::npos);
    // A folder item that does not open keeps the table too.
    EXPECT_TRUE(Shared(host, "LoadLibrary", {host.FolderItem("/nonexistent/x.so")}).AsBool());
    EXPECT_NE(LoadError(host).find("/nonexistent/x.so"), std::string::npos);
    // A nil argument clears the error and keeps the table.
    EXPECT_TRUE(Shared(host, "LoadLibrary", {Value()}).AsBool());
    EXPECT_TRUE(Shared(host, "GetLoadError").IsNil());
}

// A folder named with a precomposed "é" (U+00E9).
TEST(PrecomposedNames, LoadLibraryMediaWithFileAndSetLogFileUseTheNamedFiles) {
    Scratch scratch;
    fs::path folder = scratch / "caf\xC3\xA9";
    fs::create_directory(folder);
    Dl_info info{};
    ASSERT_NE(dladdr(dlsym(dlopen("libvlc.so.5", RTLD_NOW), "libvlc_new"), &info), 0);
    fs::create_symlink(fs::canonical(info.dli_fname), folder / "libvlc.so.5");
    Host host;
    EXPECT_TRUE(Shared(host, "LoadLibrary", {host.FolderItem(folder / "libvlc.so.5")}).AsBool());
    EXPECT_NE(LoadError(host).find("libvlc_media_list_add_file_content"), std::string::npos) << "libvlc 3.0 lacks four";
    fs::path media = folder / "caf\xC3\xA9.mp4";
    fs::copy_file(qrvtest::SamplePath("sample.mp4"), media);
    fs::path log = folder / "journal \xC3\xA9t\xC3\xA9.log";
    Value vlc = qrvtest::HeadlessInstance(host);
    host.Call(vlc, "SetLogFile", {host.FolderItem(log)});
    EXPECT_TRUE(NothingRaised(host));
    EXPECT_TRUE(fs::exists(log)) << "the log went elsewhere";
    Value item = host.CallShared("VLCMediaQRV", "MediaWithFile", {vlc, host.FolderItem(media)});
    ASSERT_FALSE(item.IsNil());
    host.Call(item, "Parse");
    EXPECT_EQ(host.Call(item, "Duration").AsInt(), 3003);
    host.Call(vlc, "ClearLog");
}

TEST(SharedMethods, EnvironmentAndLocale) {
    Host host;
    auto getenv = [&](Value name) { return Shared(host, "getenv", {name}); };
    unsetenv("QRV_TEST_UNSET");
    setenv("QRV_TEST_EMPTY", "", 1);
    setenv("QRV_TEST_VALUE", "value 1", 1);
    setenv("QRV_\xC3\x88", "roman", 1);
    EXPECT_TRUE(getenv(host.String("QRV_TEST_UNSET")).IsNil());
    Value empty = getenv(host.String("QRV_TEST_EMPTY"));
    EXPECT_TRUE(!empty.IsNil() && host.Text(empty).empty());
    Value value = getenv(host.String("QRV_TEST_VALUE"));
    EXPECT_EQ(host.Text(value), "value 1");
    EXPECT_EQ(host.Encoding(value), kEncodingASCII);
    // A name tagged "unknown" is read as Mac Roman, where 0xE9 stands for U+00C8.
    EXPECT_EQ(host.Text(getenv(host.String("QRV_\xE9", kEncodingUnknown))), "roman");
    EXPECT_EQ(host.Text(Shared(host, "setlocale", {Value::Int(0), host.String("C")})), "C");
    EXPECT_TRUE(NothingRaised(host));
}

// The hidden shared property Debugging switches the trace on and off. Before any load each method answers zero or
// nil (the sweep checks the function each names); a host without the raise entry gets them and no exception.
TEST(SharedMethods, AnswersBeforeAnyLoadWithoutTheRaiseEntryAndTraceOnlyWhileDebugging) {
    Host host({.hidden = {"RuntimeRaiseException"}});
    const REALproperty& debugging = host.FindClass("VLCInstanceQRV")->record->sharedProperties[0];
    EXPECT_EQ(debugging.flags, 38u);
    ASSERT_EQ(debugging.attributeCount, 1u);
    EXPECT_STREQ(debugging.attributes[0].name, "Hidden");
    EXPECT_STREQ(debugging.attributes[0].value, "");
    EXPECT_FALSE(host.GetShared("VLCInstanceQRV", "Debugging").AsBool());
    for (bool on : {false, true, false}) {
        host.SetShared("VLCInstanceQRV", "Debugging", Value::Bool(on));
        EXPECT_EQ(host.GetShared("VLCInstanceQRV", "Debugging").AsBool(), on);
        StderrCapture capture;
        EXPECT_EQ(Shared(host, "Clock").AsInt(), 0);
        EXPECT_TRUE(Shared(host, "ErrorMessage").IsNil());
        Shared(host, "ClearError");
        EXPECT_EQ(capture.Finish(), on ? "QRV Debug: myclock\nQRV Debug: errmsg\nQRV Debug: clearerrRB\n" : "");
    }
    for (const char* method : {"GetVersion", "GetCompiler", "GetChangeset"})
        EXPECT_TRUE(Shared(host, method).IsNil()) << method;
    EXPECT_TRUE(NothingRaised(host));
}

}  // namespace
