// Folder items naming real files whose names are not plain ASCII: the plug-in
// must open the very file the item names, on the real libvlc.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/emulator.h"
#include "tests/support/test_support.h"

namespace {

namespace fs = std::filesystem;
using emu::Host;
using emu::Value;

// A scratch folder named with a precomposed "é" (U+00E9), removed afterwards.
class PrecomposedNames : public ::testing::Test {
protected:
    void SetUp() override {
        char scratch[] = "/tmp/qrv-paths-XXXXXX";
        ASSERT_NE(mkdtemp(scratch), nullptr);
        root = scratch;
        folder = root / "caf\xC3\xA9";
        fs::create_directory(folder);
    }
    void TearDown() override { fs::remove_all(root); }

    fs::path root, folder;
};

std::string SystemLibvlcFile() {
    void* handle = dlopen("libvlc.so.5", RTLD_NOW);
    Dl_info info{};
    if (handle == nullptr || dladdr(dlsym(handle, "libvlc_new"), &info) == 0) return "";
    return fs::canonical(info.dli_fname);
}

TEST_F(PrecomposedNames, LoadLibraryOpensALibvlcInsideTheFolder) {
    std::string target = SystemLibvlcFile();
    ASSERT_FALSE(target.empty());
    fs::create_symlink(target, folder / "libvlc.so.5");
    Host host;
    Value item = host.FolderItem(folder / "libvlc.so.5");
    EXPECT_TRUE(host.CallShared("VLCInstanceQRV", "LoadLibrary", {item}).AsBool())
        << host.Text(host.CallShared("VLCInstanceQRV", "GetLoadError"));
}

TEST_F(PrecomposedNames, MediaWithFileAndSetLogFileUseTheNamedFiles) {
    fs::path media = folder / "caf\xC3\xA9.mp4";
    fs::copy_file(qrvtest::SamplePath("sample.mp4"), media);
    fs::path log = folder / "journal \xC3\xA9t\xC3\xA9.log";
    Host host;
    ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
    Value vlc = qrvtest::HeadlessInstance(host);
    host.Call(vlc, "SetLogFile", {host.FolderItem(log)});
    EXPECT_TRUE(qrvtest::NothingRaised(host));
    EXPECT_TRUE(fs::exists(log)) << "the log went elsewhere";

    Value item = host.CallShared("VLCMediaQRV", "MediaWithFile", {vlc, host.FolderItem(media)});
    ASSERT_FALSE(item.IsNil());
    host.Call(item, "Parse");
    EXPECT_EQ(host.Call(item, "Duration").AsInt(), 3003);
    host.Call(vlc, "ClearLog");
}

}  // namespace
