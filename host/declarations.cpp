// Parsing of the host's declaration texts, such as
// "VideoGetSize(num as integer, byref px as UInt32, byref py as UInt32) as Boolean".
#include <cctype>
#include <string>

#include "host/emulator.h"

namespace emu {

namespace {

std::string Trim(std::string_view text) {
    size_t begin = 0, end = text.size();
    while (begin < end && isspace(static_cast<unsigned char>(text[begin]))) ++begin;
    while (end > begin && isspace(static_cast<unsigned char>(text[end - 1]))) --end;
    return std::string(text.substr(begin, end - begin));
}

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

// Finds " as " (any case) at or after position `from`, outside parentheses.
size_t FindAs(const std::string& lower, size_t from) {
    int depth = 0;
    for (size_t i = from; i + 4 <= lower.size(); ++i) {
        if (lower[i] == '(') ++depth;
        if (lower[i] == ')') --depth;
        if (depth == 0 && lower.compare(i, 4, " as ") == 0) return i;
    }
    return std::string::npos;
}

Parameter ParseParameter(const std::string& text) {
    Parameter parameter;
    std::string item = Trim(text);
    std::string lower = Lower(item);
    size_t equals = item.find('=');
    if (equals != std::string::npos) {
        parameter.hasDefault = true;
        parameter.defaultText = Trim(item.substr(equals + 1));
        item = Trim(item.substr(0, equals));
        lower = Lower(item);
    }
    if (lower.rfind("byref ", 0) == 0) {
        parameter.byref = true;
        item = Trim(item.substr(6));
        lower = Lower(item);
    } else if (lower.rfind("byval ", 0) == 0) {
        item = Trim(item.substr(6));
        lower = Lower(item);
    }
    size_t as = FindAs(lower, 0);
    std::string name = Trim(as == std::string::npos ? item : item.substr(0, as));
    parameter.type = as == std::string::npos ? "" : Lower(Trim(item.substr(as + 4)));
    if (name.size() > 2 && name.compare(name.size() - 2, 2, "()") == 0) {
        name.resize(name.size() - 2);
        parameter.type += "()";
    }
    parameter.name = name;
    return parameter;
}

}  // namespace

Declaration ParseDeclaration(std::string_view text) {
    Declaration declaration;
    std::string full = Trim(text);
    std::string lower = Lower(full);
    size_t open = full.find('(');
    // "Tracks as VLCMediaTrackQRV()": parentheses after " as " belong to the result type.
    size_t firstAs = lower.find(" as ");
    if (open != std::string::npos && firstAs != std::string::npos && firstAs < open) open = std::string::npos;
    size_t nameEnd = open;
    size_t afterParameters = 0;
    if (open != std::string::npos) {
        int depth = 0;
        size_t close = open;
        for (size_t i = open; i < full.size(); ++i) {
            if (full[i] == '(') ++depth;
            if (full[i] == ')' && --depth == 0) {
                close = i;
                break;
            }
        }
        std::string inside = full.substr(open + 1, close - open - 1);
        // Split at commas outside parentheses ("args() as string").
        int level = 0;
        std::string current;
        for (char c : inside) {
            if (c == '(') ++level;
            if (c == ')') --level;
            if (c == ',' && level == 0) {
                declaration.parameters.push_back(ParseParameter(current));
                current.clear();
            } else {
                current += c;
            }
        }
        if (!Trim(current).empty()) declaration.parameters.push_back(ParseParameter(current));
        afterParameters = close + 1;
    } else {
        size_t as = FindAs(lower, 0);
        nameEnd = as;
        afterParameters = as == std::string::npos ? full.size() : as;
    }
    declaration.name = Trim(full.substr(0, nameEnd));
    size_t as = FindAs(lower, afterParameters);
    if (as != std::string::npos) declaration.result = Lower(Trim(full.substr(as + 4)));
    return declaration;
}

}  // namespace emu
