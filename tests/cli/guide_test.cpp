// docs/guide.md names classes and members in its text (`VLCMediaPlayerQRV.Play`)
// and uses them in its snippets (player.Play after Dim player As New
// VLCMediaPlayerQRV(...)): each must be one that qrvhost describe lists.
#include <gtest/gtest.h>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/emulator.h"

namespace {

using Members = std::map<std::string, std::set<std::string>>;  // class -> member names

std::string Describe() {
    std::string out;
    FILE* pipe = popen((std::string(QRVHOST_PATH) + " describe").c_str(), "r");
    if (pipe == nullptr) return out;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
    return out;
}

bool IsWordChar(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// "VLCMediaQRV shared-method MediaWithPath(vlc as ...)" -> VLCMediaQRV: MediaWithPath.
Members Registered() {
    Members members;
    std::istringstream in(Describe());
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string cls, kind, declaration;
        words >> cls >> kind >> declaration;
        if (cls == "class") {
            members[kind];
            continue;
        }
        size_t end = 0;
        while (end < declaration.size() && IsWordChar(declaration[end])) ++end;
        if (end > 0) members[cls].insert(declaration.substr(0, end));
    }
    return members;
}

struct Token {
    std::string word;
    char after;  // the character right after the word
    size_t line;
};

std::vector<Token> Words(const std::string& text) {
    std::vector<Token> tokens;
    size_t line = 1;
    bool quoted = false;  // string literals and quoted messages name no members
    for (size_t i = 0; i < text.size();) {
        if (text[i] == '\n') {
            ++line;
            quoted = false;
        }
        if (text[i] == '"') quoted = !quoted;
        if (quoted || !IsWordChar(text[i])) {
            ++i;
            continue;
        }
        size_t start = i;
        while (i < text.size() && IsWordChar(text[i])) ++i;
        tokens.push_back({text.substr(start, i - start), i < text.size() ? text[i] : '\0', line});
    }
    return tokens;
}

bool IsPluginClass(const std::string& word) {
    return word.size() > 6 && word.rfind("VLC", 0) == 0 && word.compare(word.size() - 3, 3, "QRV") == 0;
}

TEST(Guide, EveryClassAndMemberItNamesIsRegistered) {
    std::ifstream file(emu::SourceDir() + "/docs/guide.md");
    ASSERT_TRUE(file) << "docs/guide.md missing";
    std::stringstream text;
    text << file.rdbuf();
    Members registered = Registered();
    ASSERT_EQ(registered.size(), 19u) << "qrvhost describe not understood";

    std::vector<Token> tokens = Words(text.str());
    std::map<std::string, std::string> variables;  // snippet variable -> its plug-in class
    size_t checked = 0;
    for (size_t i = 0; i < tokens.size(); ++i) {
        const Token& t = tokens[i];
        // Dim x As [New] VLC...QRV, For Each x As VLC...QRV
        if (t.word == "As" && i >= 1 && i + 1 < tokens.size()) {
            size_t c = tokens[i + 1].word == "New" ? i + 2 : i + 1;
            if (c < tokens.size() && IsPluginClass(tokens[c].word)) variables[tokens[i - 1].word] = tokens[c].word;
        }
        std::string cls;
        if (IsPluginClass(t.word)) {
            EXPECT_TRUE(registered.count(t.word)) << "line " << t.line << ": no class " << t.word;
            cls = t.word;
        } else if (variables.count(t.word)) {
            cls = variables[t.word];
        }
        if (cls.empty() || t.after != '.' || i + 1 >= tokens.size() || tokens[i + 1].line != t.line) continue;
        const std::string& member = tokens[i + 1].word;
        EXPECT_TRUE(registered[cls].count(member)) << "line " << t.line << ": " << cls << " has no member " << member;
        ++checked;
    }
    EXPECT_GE(checked, 40u) << "the guide should show the members it teaches";
}

}  // namespace
