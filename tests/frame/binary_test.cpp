// Facts read from the built plug-in file: one export, no libvlc dependency;
// and the plug-in folder as the zip and the install hand it to the host.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "host/emulator.h"

namespace {

std::vector<std::string> Lines(const std::string& command) {
    std::vector<std::string> lines;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return lines;
    char buffer[4096];
    while (fgets(buffer, sizeof buffer, pipe)) {
        std::string line(buffer);
        if (!line.empty() && line.back() == '\n') line.pop_back();
        lines.push_back(line);
    }
    pclose(pipe);
    return lines;
}

std::vector<std::string> Exports(const std::string& plugin) {
    std::vector<std::string> exported;
    for (const std::string& line : Lines("nm -D --defined-only '" + plugin + "' 2>&1")) {
        std::string name = line.substr(line.rfind(' ') + 1);  // the whole line when it has no space
        if (!name.empty()) exported.push_back(name);
    }
    return exported;
}

TEST(PluginBinary, ExportsOnlyREALPluginMainAndDoesNotNeedLibvlc) {
    EXPECT_EQ(Exports(emu::DefaultPluginPath()), std::vector<std::string>{"REALPluginMain"});
    std::vector<std::string> needed;
    for (const std::string& line : Lines("readelf -d '" + emu::DefaultPluginPath() + "' 2>&1"))
        if (line.find("(NEEDED)") != std::string::npos) needed.push_back(line);
    ASSERT_FALSE(needed.empty()) << "readelf output not understood";
    for (const std::string& line : needed) EXPECT_EQ(line.find("libvlc"), std::string::npos) << line;
}

// A scratch folder, removed afterwards.
struct Scratch {
    Scratch() {
        char name[] = "/tmp/qrv-folder-XXXXXX";
        if (mkdtemp(name) != nullptr) path = name;
    }
    ~Scratch() {
        if (!path.empty()) std::filesystem::remove_all(path);
    }
    std::string path;
};

const char kBinaryInFolder[] = "QRVVLC/Build Resources/Linux x86-64/QRVVLC.so";

TEST(PluginFolder, ZipHoldsTheFolderLayoutAndTheOneExport) {
    std::vector<std::string> entries = Lines(std::string("'") + QRV_CMAKE + "' -E tar tf '" + QRV_PLUGIN_ZIP + "'");
    for (std::string& entry : entries)
        if (!entry.empty() && entry.back() == '/') entry.pop_back();
    EXPECT_EQ(entries, (std::vector<std::string>{"QRVVLC", "QRVVLC/Build Resources",
                                                 "QRVVLC/Build Resources/Linux x86-64", kBinaryInFolder}));
    Scratch scratch;
    ASSERT_FALSE(scratch.path.empty());
    Lines("cd '" + scratch.path + "' && '" + QRV_CMAKE + "' -E tar xf '" + QRV_PLUGIN_ZIP + "'");
    EXPECT_EQ(Exports(scratch.path + "/" + kBinaryInFolder), std::vector<std::string>{"REALPluginMain"});
}

TEST(PluginFolder, InstallPutsTheFolderUnderThePrefix) {
    Scratch prefix;
    ASSERT_FALSE(prefix.path.empty());
    Lines(std::string("'") + QRV_CMAKE + "' --install '" + QRV_BUILD_DIR + "' --prefix '" + prefix.path + "' 2>&1");
    std::string installed = prefix.path + "/" + QRV_PLUGIN_FOLDER_NAME + "/" + kBinaryInFolder;
    EXPECT_TRUE(std::filesystem::exists(installed)) << installed;
    EXPECT_EQ(Exports(installed), std::vector<std::string>{"REALPluginMain"});
}

}  // namespace
