// Facts read from the built plug-in file: one export, no libvlc dependency.
#include <gtest/gtest.h>

#include <cstdio>
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

TEST(PluginBinary, ExportsOnlyREALPluginMain) {
    std::string plugin = emu::DefaultPluginPath();
    std::vector<std::string> exported;
    for (const std::string& line : Lines("nm -D --defined-only '" + plugin + "' 2>&1")) {
        size_t space = line.rfind(' ');
        std::string name = space == std::string::npos ? line : line.substr(space + 1);
        if (name.empty()) continue;
        exported.push_back(name);
    }
    EXPECT_EQ(exported, std::vector<std::string>{"REALPluginMain"});
}

TEST(PluginBinary, DoesNotNeedLibvlc) {
    std::vector<std::string> needed;
    for (const std::string& line : Lines("readelf -d '" + emu::DefaultPluginPath() + "' 2>&1"))
        if (line.find("(NEEDED)") != std::string::npos) needed.push_back(line);
    ASSERT_FALSE(needed.empty()) << "readelf output not understood";
    for (const std::string& line : needed) EXPECT_EQ(line.find("libvlc"), std::string::npos) << line;
}

}  // namespace
