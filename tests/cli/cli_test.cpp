// The qrvhost command line as README shows it (info, describe, play) run as a
// separate process against the real libvlc, and docs/guide.md checked against
// what describe lists.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/emulator.h"

namespace {

// The nineteen classes and the six of the libvlc 3.0 additions.
constexpr size_t kRegisteredClasses = 25;

struct Output {
    int status = -1;
    std::string out;
};

// Runs qrvhost with the arguments; stdout and stderr together.
Output Qrvhost(const std::string& arguments) {
    Output run;
    FILE* pipe = popen((std::string(QRVHOST_PATH) + " " + arguments + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.out.append(buffer, n);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

std::string SourceFile(const std::string& name) {
    std::stringstream text;
    text << std::ifstream(emu::SourceDir() + "/" + name).rdbuf();
    return text.str();
}

// Lines for which the test holds. (std::regex trips GCC 12's
// maybe-uninitialized warning in the sanitizer build, so plain text it is.)
template <typename Test>
int CountLines(const std::string& text, Test test) {
    std::istringstream in(text);
    int count = 0;
    for (std::string line; std::getline(in, line);) count += test(line);
    return count;
}

bool IsWordChar(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; }
bool IsPluginClass(const std::string& word) {
    return word.size() > 6 && word.starts_with("VLC") && word.ends_with("QRV");
}

// Lines "  event NAME [ARGUMENT] (main thread)" of qrvhost play --events, with or without an argument.
int EventLines(const std::string& out, const std::string& name, bool withArgument) {
    return CountLines(out, [&](const std::string& line) {
        std::istringstream words(line);
        std::string event, shown, argument;
        words >> event >> shown >> argument;
        return event == "event" && shown == name && line.ends_with(" (main thread)") &&
               (argument != "(main") == withArgument;
    });
}

using Members = std::map<std::string, std::set<std::string>>;  // class -> member names

// qrvhost describe's listing by class; a line that is neither "class VLC…QRV
// super …" nor "VLC…QRV <known kind> Name…" is kept under "?".
Members Registered(const std::string& listing) {
    Members members;
    std::istringstream in(listing);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string owner, kind, declaration;
        words >> owner >> kind >> declaration;
        size_t end = 0;
        while (end < declaration.size() && IsWordChar(declaration[end])) ++end;
        bool known = false;
        for (const char* k : {"method", "shared-method", "property", "shared-property", "event", "constant"})
            known = known || kind == k;
        if (owner == "class" && IsPluginClass(kind) && declaration == "super")
            members[kind];
        else if (IsPluginClass(owner) && known && end > 0)
            members[owner].insert(declaration.substr(0, end));
        else
            members["?"].insert(line);
    }
    return members;
}

TEST(Cli, InfoNamesTheVersionAndExactlyTheFunctionsLibvlc30Lacks) {
    Output run = Qrvhost("info");
    ASSERT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("\nversion:    3.0."), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("missing:    4 of 290 functions"), std::string::npos) << run.out;
    for (std::string name : {"libvlc_media_list_add_file_content", "libvlc_vlm_get_media_instance_title",
                             "libvlc_vlm_get_media_instance_chapter", "libvlc_vlm_get_media_instance_seekable"})
        EXPECT_EQ(CountLines(run.out, [&](const std::string& line) { return line == "  " + name; }), 1) << name;

    EXPECT_NE(run.out.find("\nmajor:      3\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("unbound:    0 of 290 functions"), std::string::npos) << run.out;

    // A 4.0 nightly: the entries whose contract differs there are named after the count.
    Output nightly = Qrvhost(std::string("info --libvlc ") + FAKEVLC4_PATH);
    ASSERT_EQ(nightly.status, 0) << nightly.out;
    EXPECT_NE(nightly.out.find("\nmajor:      4\n"), std::string::npos) << nightly.out;
    size_t at = nightly.out.find("unbound:    115 of 290 functions");
    ASSERT_NE(at, std::string::npos) << nightly.out;
    std::string unbound = nightly.out.substr(at);
    for (const char* name : {"libvlc_media_player_new", "libvlc_media_get_stats", "libvlc_event_attach"})
        EXPECT_NE(unbound.find(std::string("\n  ") + name + "\n"), std::string::npos) << name;
    EXPECT_EQ(unbound.find("\n  libvlc_new\n"), std::string::npos);

    Output bad = Qrvhost("info --libvlc /nonexistent/libvlc.so");
    EXPECT_NE(bad.status, 0);
    EXPECT_NE(bad.out.find("loaded:     no"), std::string::npos) << bad.out;
}

// The committed reference is this listing; a stale copy misleads users.
TEST(Cli, DescribeListsEveryClassAndMatchesTheCommittedReference) {
    Output run = Qrvhost("describe");
    ASSERT_EQ(run.status, 0);
    Members registered = Registered(run.out);
    EXPECT_EQ(registered.count("?"), 0u) << "a line neither a class nor a member of a known kind: "
                                         << *registered["?"].begin();
    EXPECT_EQ(registered.size(), kRegisteredClasses);
    EXPECT_EQ(run.out.rfind("class VLCInstanceQRV super -\n", 0), 0u) << "registration order starts with the instance";
    EXPECT_NE(SourceFile("docs/reference.md").find("```\n" + run.out + "```"), std::string::npos)
        << "docs/reference.md differs from qrvhost describe";
}

// The guide names classes and members in its text (`VLCMediaPlayerQRV.Play`)
// and uses them in its snippets (player.Play after Dim player As New
// VLCMediaPlayerQRV(...)): each must be one that qrvhost describe lists.
TEST(Cli, EveryClassAndMemberTheGuideNamesIsRegistered) {
    std::istringstream guide(SourceFile("docs/guide.md"));
    Members registered = Registered(Qrvhost("describe").out);
    ASSERT_EQ(registered.size(), kRegisteredClasses) << "qrvhost describe not understood";
    std::map<std::string, std::string> variables;  // snippet variable -> its plug-in class
    size_t number = 1, checked = 0;
    for (std::string line; std::getline(guide, line); ++number) {
        // Words and dotted names; string literals and quoted messages name no members.
        bool quoted = false;
        for (char& c : line) {
            quoted ^= c == '"';
            if (quoted || !(IsWordChar(c) || c == '.')) c = ' ';
        }
        std::istringstream in(line);
        std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
        for (size_t i = 0; i < words.size(); ++i) {
            // Dim x As [New] VLC...QRV, For Each x As VLC...QRV
            size_t c = i + 1 < words.size() && words[i + 1] == "New" ? i + 2 : i + 1;
            if (words[i] == "As" && i > 0 && c < words.size() && IsPluginClass(words[c]))
                variables[words[i - 1]] = words[c];
            size_t dot = words[i].find('.');
            std::string head = words[i].substr(0, dot);
            std::string member =
                dot == std::string::npos ? "" : words[i].substr(dot + 1, words[i].find('.', dot + 1) - dot - 1);
            EXPECT_TRUE(!IsPluginClass(head) || registered.count(head)) << "line " << number << ": no class " << head;
            std::string cls = IsPluginClass(head) ? head : variables.count(head) ? variables[head] : "";
            if (cls.empty() || member.empty()) continue;
            EXPECT_TRUE(registered[cls].count(member))
                << "line " << number << ": " << cls << " has no member " << member;
            ++checked;
        }
    }
    EXPECT_GE(checked, 40u) << "the guide should show the members it teaches";
}

TEST(Cli, PlayCapturesFramesWritesPngsAndShowsRealEventsOnTheMainThread) {
    std::filesystem::path dir = std::filesystem::temp_directory_path() / ("qrvhost-png-" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    Output run = Qrvhost("play --events --png " + dir.string() + " --every 30");
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("length            00:03.003"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("end state         ended"), std::string::npos) << run.out;
    EXPECT_EQ(EventLines(run.out, "MediaPlayerPlaying", false), 1) << run.out;
    EXPECT_GE(EventLines(run.out, "MediaPlayerTimeChanged", true), 1) << run.out;
    EXPECT_EQ(run.out.find("NOT the main thread"), std::string::npos) << run.out;
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

}  // namespace
