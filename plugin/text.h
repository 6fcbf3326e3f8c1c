// Conversions between host strings and C text.
#pragma once

#include <cstdint>

#include "plugin/host_abi.h"

// Raw bytes of a host string (held referenced while the reader lives).
class rbData {
public:
    explicit rbData(REALstring string);
    ~rbData();
    rbData(const rbData&) = delete;
    rbData& operator=(const rbData&) = delete;

    REALstring string;
    const char* pointer = nullptr;
    int64_t length = 0;
};

// A zero-terminated UTF-8 view of a host string. Nil reads as "", never null.
// ASCII text is read in place; a copy is made only when the host's converted
// text lacks its terminating zero.
class rbText {
public:
    explicit rbText(REALstring string);
    ~rbText();
    rbText(const rbText&) = delete;
    rbText& operator=(const rbText&) = delete;

    const char* GetUTF8();
    int64_t Length();  // bytes of GetUTF8()
    void CheckASCII();

private:
    enum class AsciiState { Unknown, Ascii, NotAscii };
    REALstring string_;
    uint32_t encoding_ = kEncodingUnknown;
    AsciiState ascii_ = AsciiState::Unknown;
    const char* utf8_ = nullptr;
    int64_t length_ = -1;
    REALstringData converted_{};
    bool haveConverted_ = false;
    char* copy_ = nullptr;
};

// Bytes plus an encoding become a host string with one reference for the
// caller, or nil (null bytes, length < 1 or >= 2^31).
REALstring REALBuildUnicodeString(const void* bytes, int64_t length, uint32_t encoding);

// The host's own build, by host version (no checks; may build an empty string).
REALstring BuildWithEncoding(const char* bytes, int length, uint32_t encoding);

// A C text from libvlc as a UTF-8 host string (nil for null).
REALstring BuildStringUTF8(const char* text);
// The same for a copy libvlc hands over and the plug-in deliberately keeps.
REALstring BuildStringUTF8Kept(const char* text);
// A C text meant to be ASCII (versions, errors, environment); traces
// "Error: text is not ascii" when it is not.
REALstring BuildStringASCII(const char* text);
// Text of unknown encoding (libvlc's log): ASCII, else valid UTF-8, else Mac Roman.
REALstring CString2RB_detect_encoding(const char* text);
// Whether the whole text is valid UTF-8 by the strict rules used for log lines.
bool IsStrictUTF8(const unsigned char* text, size_t length);

// Scoped release of a host string the plug-in built.
class StringRef {
public:
    explicit StringRef(REALstring string) : string_(string) {}
    ~StringRef();
    StringRef(const StringRef&) = delete;
    StringRef& operator=(const StringRef&) = delete;
    REALstring get() const { return string_; }

private:
    REALstring string_;
};
