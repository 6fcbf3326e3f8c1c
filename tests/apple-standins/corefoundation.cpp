// Core Foundation stand-in: strings (UTF-8 inside, lengths in UTF-16 units as
// Apple counts them), mutable copies, normalisation through GLib, file URLs
// with Apple's POSIX-path and percent rules, and NSLog.
#include <CoreFoundation/CoreFoundation.h>
#include <glib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <string>

#include "tests/apple-standins/standin.h"

using standin::Fail;
using standin::Kind;

struct __CFString : standin::Object {
    __CFString(std::string text, bool isMutable)
        : Object(Kind::String), utf8(std::move(text)), mutableText(isMutable) {}
    std::string utf8;
    bool mutableText;
};

struct __CFURL : standin::Object {
    explicit __CFURL(std::string text) : Object(Kind::URL), string(std::move(text)) {}
    std::string string;  // the URL as written, percent escapes kept
};

namespace {

__CFString* StringOf(const void* string, const char* function) {
    return standin::As<__CFString>(string, Kind::String, function);
}

CFStringRef NewString(std::string text) { return standin::Adopt(new __CFString(std::move(text), false)); }

void CheckUTF8(CFStringEncoding encoding, const char* function) {
    if (encoding != kCFStringEncodingUTF8)
        Fail("%s: only UTF-8 is stood in for, not encoding 0x%x", function, encoding);
}

// Characters a path keeps as they are in a URL; everything else is percent-encoded.
bool KeptInPath(unsigned char c) { return g_ascii_isalnum(c) || strchr("-._~!$&'()*+,;=:@/", c) != nullptr; }
bool LegalInURL(unsigned char c) { return c > 0x20 && c < 0x7F && strchr("\"<>\\^`{|}", c) == nullptr; }

}  // namespace

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;

void CFRelease(CFTypeRef cf) {
    if (cf == nullptr) Fail("CFRelease: NULL");
    standin::Release(cf, standin::KindOf(cf, "CFRelease"), "CFRelease");
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* cStr, CFStringEncoding encoding) {
    CheckUTF8(encoding, "CFStringCreateWithCString");
    if (cStr == nullptr) Fail("CFStringCreateWithCString: NULL text");
    if (!g_utf8_validate(cStr, -1, nullptr)) return nullptr;
    return NewString(cStr);
}

CFStringRef __CFStringMakeConstantString(const char* cStr) {
    static std::mutex lock;
    static auto* constants = new std::map<std::string, __CFString*>;
    std::lock_guard<std::mutex> hold(lock);
    __CFString*& constant = (*constants)[cStr];
    if (constant == nullptr) {
        constant = new __CFString(cStr, false);
        constant->immortal = true;
        standin::Register(constant);
    }
    return constant;
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex maxLength, CFStringRef theString) {
    __CFString* source = StringOf(theString, "CFStringCreateMutableCopy");
    if (maxLength != 0 && CFStringGetLength(theString) > maxLength)
        Fail("CFStringCreateMutableCopy: the string is longer than the %ld allowed", maxLength);
    return standin::Adopt(new __CFString(source->utf8, true));
}

void CFStringNormalize(CFMutableStringRef theString, CFStringNormalizationForm theForm) {
    __CFString* string = StringOf(theString, "CFStringNormalize");
    if (!string->mutableText) Fail("CFStringNormalize: the string is immutable");
    static const GNormalizeMode modes[] = {G_NORMALIZE_NFD, G_NORMALIZE_NFKD, G_NORMALIZE_NFC, G_NORMALIZE_NFKC};
    if (theForm < 0 || theForm > 3) Fail("CFStringNormalize: no normalisation form %ld", theForm);
    gchar* normalized = g_utf8_normalize(string->utf8.c_str(), -1, modes[theForm]);
    string->utf8 = normalized;
    g_free(normalized);
}

CFIndex CFStringGetLength(CFStringRef theString) {
    CFIndex units = 0;
    const std::string& text = StringOf(theString, "CFStringGetLength")->utf8;
    for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p)) units += g_utf8_get_char(p) > 0xFFFF ? 2 : 1;
    return units;
}

Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize, CFStringEncoding encoding) {
    CheckUTF8(encoding, "CFStringGetCString");
    const std::string& text = StringOf(theString, "CFStringGetCString")->utf8;
    if (buffer == nullptr || bufferSize < static_cast<CFIndex>(text.size()) + 1) return false;
    memcpy(buffer, text.c_str(), text.size() + 1);
    return true;
}

// A string that is no valid URL (spaces, non-ASCII, a stray '%') gives NULL.
CFURLRef CFURLCreateWithString(CFAllocatorRef, CFStringRef URLString, CFURLRef baseURL) {
    const std::string& text = StringOf(URLString, "CFURLCreateWithString")->utf8;
    if (baseURL != nullptr) Fail("CFURLCreateWithString: base URLs are not stood in for");
    for (size_t i = 0; i < text.size(); ++i) {
        if (!LegalInURL(text[i])) return nullptr;
        if (text[i] == '%' &&
            (i + 2 >= text.size() || !g_ascii_isxdigit(text[i + 1]) || !g_ascii_isxdigit(text[i + 2])))
            return nullptr;
    }
    return standin::Adopt(new __CFURL(text));
}

// Absolute paths become file:// URLs; relative ones stay relative (to the
// working directory). A directory gets its trailing slash.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef filePath, CFURLPathStyle pathStyle,
                                       Boolean isDirectory) {
    const std::string& path = StringOf(filePath, "CFURLCreateWithFileSystemPath")->utf8;
    if (pathStyle != kCFURLPOSIXPathStyle) Fail("CFURLCreateWithFileSystemPath: only POSIX paths are stood in for");
    if (path.empty()) return nullptr;
    std::string url = path[0] == '/' ? "file://" : "";
    for (unsigned char c : path) {
        if (KeptInPath(c)) {
            url += static_cast<char>(c);
        } else {
            char escape[4];
            snprintf(escape, sizeof escape, "%%%02X", c);
            url += escape;
        }
    }
    if (isDirectory && path.back() != '/') url += '/';
    return standin::Adopt(new __CFURL(url));
}

// The URL's path without scheme, authority, query or fragment, percent
// escapes decoded, trailing slash dropped; NULL when it decodes to no UTF-8 text.
CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle) {
    std::string text = standin::As<__CFURL>(anURL, Kind::URL, "CFURLCopyFileSystemPath")->string;
    if (pathStyle != kCFURLPOSIXPathStyle) Fail("CFURLCopyFileSystemPath: only POSIX paths are stood in for");
    size_t colon = text.find(':');
    if (colon != std::string::npos && colon > 0 && text.find('/') > colon) text.erase(0, colon + 1);
    if (text.rfind("//", 0) == 0) {
        size_t slash = text.find('/', 2);
        text.erase(0, slash == std::string::npos ? text.size() : slash);
    }
    text = text.substr(0, text.find_first_of("?#"));
    gchar* decoded = g_uri_unescape_string(text.c_str(), nullptr);
    if (decoded == nullptr) return nullptr;
    std::string path = decoded;
    g_free(decoded);
    if (!g_utf8_validate(path.c_str(), -1, nullptr)) return nullptr;
    if (path.size() > 1 && path.back() == '/') path.pop_back();
    return path.empty() ? nullptr : NewString(path);
}

// One line on standard error in one write: date, process [pid:thread], the message.
void NSLog(CFStringRef format, ...) {
    const std::string& text = StringOf(format, "NSLog")->utf8;
    if (text.find("%@") != std::string::npos) Fail("NSLog: object formats are not stood in for");
    va_list args;
    va_start(args, format);
    gchar* message = g_strdup_vprintf(text.c_str(), args);
    va_end(args);
    GDateTime* clock = g_date_time_new_now_local();
    gchar* now = g_date_time_format(clock, "%Y-%m-%d %H:%M:%S.%f");
    g_date_time_unref(clock);
    std::string line = std::string(now, strlen(now) - 3) + " " + program_invocation_short_name + "[" +
                       std::to_string(getpid()) + ":" + std::to_string(syscall(SYS_gettid)) + "] " + message;
    if (line.back() != '\n') line += '\n';
    ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    (void)written;
    g_free(message);
    g_free(now);
}
}
