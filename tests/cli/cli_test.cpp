// The qrvhost command line as README shows it: info, describe and play, run as
// a separate process against the real libvlc.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "host/emulator.h"

namespace {

struct Output {
    int status = -1;
    std::string out;
};

// Runs qrvhost with the arguments; stdout and stderr together.
Output Qrvhost(const std::string& arguments) {
    Output run;
    std::string command = std::string(QRVHOST_PATH) + " " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, n);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

// Lines for which the test holds. (std::regex trips GCC 12's
// maybe-uninitialized warning in the sanitizer build, so plain text it is.)
template <typename Test>
int CountLines(const std::string& text, Test test) {
    std::istringstream in(text);
    int count = 0;
    for (std::string line; std::getline(in, line);)
        if (test(line)) ++count;
    return count;
}

bool StartsWith(const std::string& line, const std::string& head) { return line.rfind(head, 0) == 0; }
bool EndsWith(const std::string& line, const std::string& tail) {
    return line.size() >= tail.size() && line.compare(line.size() - tail.size(), tail.size(), tail) == 0;
}

// An event line of qrvhost play --events: its name, then arguments, then the thread.
auto EventLine(const std::string& name, bool withArgument) {
    return [name, withArgument](const std::string& line) {
        const std::string head = "  event " + name + " ";
        if (!StartsWith(line, head) || !EndsWith(line, " (main thread)")) return false;
        std::string middle = line.substr(head.size(), line.size() - head.size() - 14);
        bool hasArgument = middle.find_first_not_of(' ') != std::string::npos;
        return hasArgument == withArgument;
    };
}

TEST(Cli, InfoNamesTheVersionAndExactlyTheFunctionsLibvlc30Lacks) {
    Output run = Qrvhost("info");
    ASSERT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("\nversion:    3.0."), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("missing:    4 of 254 functions"), std::string::npos) << run.out;
    for (const char* name : {"libvlc_media_list_add_file_content", "libvlc_vlm_get_media_instance_title",
                             "libvlc_vlm_get_media_instance_chapter", "libvlc_vlm_get_media_instance_seekable"})
        EXPECT_EQ(CountLines(run.out, [&](const std::string& line) { return line == std::string("  ") + name; }), 1)
            << name;

    Output bad = Qrvhost("info --libvlc /nonexistent/libvlc.so");
    EXPECT_NE(bad.status, 0);
    EXPECT_NE(bad.out.find("loaded:     no"), std::string::npos) << bad.out;
}

// The committed reference is this listing; a stale copy misleads users.
TEST(Cli, DescribeListsNineteenClassesAndMatchesTheCommittedReference) {
    Output run = Qrvhost("describe");
    ASSERT_EQ(run.status, 0);
    auto isClass = [](const std::string& line) {
        return StartsWith(line, "class VLC") && line.find("QRV super ") != std::string::npos;
    };
    EXPECT_EQ(CountLines(run.out, isClass), 19);
    EXPECT_EQ(run.out.rfind("class VLCInstanceQRV super -\n", 0), 0u) << "registration order starts with the instance";
    auto isMember = [](const std::string& line) {
        std::istringstream words(line);
        std::string owner, kind;
        words >> owner >> kind;
        for (const char* known : {"method", "shared-method", "property", "shared-property", "event", "constant"})
            if (kind == known && StartsWith(owner, "VLC")) return true;
        return false;
    };
    EXPECT_EQ(CountLines(run.out, [&](const std::string& line) { return isClass(line) || isMember(line); }),
              CountLines(run.out, [](const std::string&) { return true; }))
        << "every line is a class or a member of a known kind";

    std::ifstream reference(emu::SourceDir() + "/docs/reference.md");
    std::stringstream text;
    text << reference.rdbuf();
    EXPECT_NE(text.str().find("```\n" + run.out + "```"), std::string::npos)
        << "docs/reference.md differs from qrvhost describe";
}

TEST(Cli, PlayCapturesFramesOfTheBundledSampleAndWritesPngs) {
    std::filesystem::path dir = std::filesystem::temp_directory_path() / ("qrvhost-png-" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    Output run = Qrvhost("play --png " + dir.string() + " --every 30");
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("length            00:03.003"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("end state         ended"), std::string::npos) << run.out;
    size_t at = run.out.find("frames captured");
    ASSERT_NE(at, std::string::npos) << run.out;
    int frames = atoi(run.out.c_str() + at + strlen("frames captured"));
    EXPECT_GE(frames, 45) << "a 3 s clip at 29.97 fps, polled every 5 ms: most frames are seen";
    int pngs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        EXPECT_EQ(entry.path().extension(), ".png");
        ++pngs;
    }
    EXPECT_EQ(pngs, (frames + 29) / 30);
    std::filesystem::remove_all(dir);
}

TEST(Cli, PlayWithEventsShowsRealEventsOnTheMainThread) {
    Output run = Qrvhost("play --events");
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(CountLines(run.out, EventLine("MediaPlayerPlaying", false)), 1) << run.out;
    EXPECT_GE(CountLines(run.out, EventLine("MediaPlayerTimeChanged", true)), 1) << run.out;
    EXPECT_EQ(run.out.find("NOT the main thread"), std::string::npos) << run.out;
}

}  // namespace
