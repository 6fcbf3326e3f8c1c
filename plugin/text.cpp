#include "plugin/text.h"

#include <cstdlib>
#include <cstring>
#include <exception>

#include "plugin/exceptions.h"
#include "plugin/host_entries.h"
#include "plugin/kept.h"
#include "plugin/registration.h"
#include "plugin/trace.h"

namespace {

// Shared empty text: never null, always terminated.
const char kEmptyText[4] = {0, 0, 0, 0};

bool AllBelow0x80(const unsigned char* bytes, int64_t length) {
    for (int64_t i = 0; i < length; ++i)
        if (bytes[i] >= 0x80) return false;
    return true;
}

bool IsWideEncoding(uint32_t encoding) {
    switch (encoding) {
        case kEncodingUTF16:
        case kEncodingUTF16BE:
        case kEncodingUTF16LE:
        case kEncodingUTF32:
        case kEncodingUTF32BE:
        case kEncodingUTF32LE:
            return true;
        default:
            return false;
    }
}

bool IsContinuation(unsigned char c) { return c >= 0x80 && c <= 0xBF; }

}  // namespace

REALstring BuildWithEncoding(const char* bytes, int length, uint32_t encoding) {
    if (rbversion >= 2012.0) return REALBuildStringWithEncoding(bytes, length, encoding);
    REALstring string = originalREALBuildString(bytes, length);
    if (string != nullptr) REALSetStringEncoding(string, encoding);
    return string;
}

// ---- rbData ------------------------------------------------------------------

rbData::rbData(REALstring s) : string(s) {
    if (string == nullptr) return;
    REALLockString(string);
    pointer = static_cast<const char*>(REALGetStringContents(string, &length));
}

rbData::~rbData() {
    if (string != nullptr) REALUnlockString(string);
}

// ---- rbText ------------------------------------------------------------------

rbText::rbText(REALstring string) : string_(string) {
    if (string_ == nullptr) return;
    REALLockString(string_);
    bool available = false;
    encoding_ = REALGetStringEncoding(string_, &available);
    if (!available || encoding_ != kEncodingUnknown) return;

    // The host's "unknown" tag: ASCII stays as it is, anything else is Mac Roman.
    CheckASCII();
    if (ascii_ == AsciiState::Ascii) return;
    rbData raw(string_);
    if (raw.length < 0) TRACE("Out of Memory.");
    REALstring roman = REALBuildUnicodeString(raw.pointer, raw.length, kEncodingMacRoman);
    REALUnlockString(string_);
    string_ = roman;
    encoding_ = kEncodingMacRoman;
    ascii_ = AsciiState::Unknown;
}

rbText::~rbText() {
    free(copy_);
    if (haveConverted_) REALDisposeStringData(&converted_);
    if (string_ != nullptr) REALUnlockString(string_);
}

void rbText::CheckASCII() {
    if (ascii_ != AsciiState::Unknown) return;
    // 16- and 32-bit text has zero bytes between its characters: never read in place.
    if (IsWideEncoding(encoding_)) {
        ascii_ = AsciiState::NotAscii;
        return;
    }
    rbData raw(string_);
    if (!AllBelow0x80(reinterpret_cast<const unsigned char*>(raw.pointer), raw.pointer ? raw.length : 0)) {
        ascii_ = AsciiState::NotAscii;
        return;
    }
    ascii_ = AsciiState::Ascii;
    if (raw.pointer != nullptr && raw.length > 0) {
        utf8_ = raw.pointer;
        length_ = raw.length;
    } else {
        utf8_ = kEmptyText;
        length_ = 0;
    }
}

const char* rbText::GetUTF8() {
    if (length_ >= 0) return utf8_;
    utf8_ = kEmptyText;
    length_ = 0;
    if (string_ == nullptr) return utf8_;

    length_ = -1;
    CheckASCII();
    if (ascii_ == AsciiState::Ascii) return utf8_;

    utf8_ = kEmptyText;
    length_ = 0;
    if (!REALGetStringData(string_, kEncodingUTF8, &converted_)) {
        TRACE("REALGetStringData failed.");
        return utf8_;
    }
    haveConverted_ = true;
    const char* data = static_cast<const char*>(converted_.data);
    int64_t length = static_cast<int64_t>(converted_.length);
    if (data == nullptr || length <= 0) return utf8_;
    if (data[length] != 0) {
        TRACE("String is not zero terminated. Fixed.");
        copy_ = static_cast<char*>(calloc(static_cast<size_t>(length) + 4, 1));
        if (copy_ == nullptr) {
            TRACE("Out of memory");
            return utf8_;
        }
        memcpy(copy_, data, static_cast<size_t>(length));
        data = copy_;
    }
    utf8_ = data;
    length_ = length;
    return utf8_;
}

int64_t rbText::Length() {
    GetUTF8();
    return length_;
}

// ---- building host strings ---------------------------------------------------

REALstring REALBuildUnicodeString(const void* bytes, int64_t length, uint32_t encoding) {
    if (bytes == nullptr || length < 1) return nullptr;
    if (length >= (int64_t{1} << 31)) {
        TRACE("Count too big for REALBuildUnicodeString.");
        return nullptr;
    }
    const char* text = static_cast<const char*>(bytes);
    int count = static_cast<int>(length);
    try {
        switch (encoding) {
            case kEncodingMacRoman:
            case kEncodingISOLatin1:
            case kEncodingWindowsLatin1:
            case kEncodingUnknown:
                if (AllBelow0x80(static_cast<const unsigned char*>(bytes), length)) encoding = kEncodingASCII;
                return BuildWithEncoding(text, count, encoding);
            case kEncodingASCII:
            case kEncodingUTF8:
                return BuildWithEncoding(text, count, encoding);
            case kEncodingUTF16: {
                REALstring utf16 = BuildWithEncoding(text, count, encoding);
                if (utf16 == nullptr) {
                    TRACE("Out of memory in REALBuildUnicodeStringUTF16.");
                    return nullptr;
                }
                REALstring utf8 = REALConvertString(utf16, kEncodingUTF8);
                REALUnlockString(utf16);
                return utf8;
            }
            default:
                TRACEF("%u", "Unknown encoding in REALBuildUnicodeString", encoding);
                return BuildWithEncoding(text, count, encoding);
        }
    } catch (const std::exception& e) {
        RaiseRuntimeException(e);
        return nullptr;
    }
}

REALstring BuildStringUTF8(const char* text) {
    if (text == nullptr) return nullptr;
    return REALBuildUnicodeString(text, static_cast<int64_t>(strlen(text)), kEncodingUTF8);
}

REALstring BuildStringUTF8Kept(const char* text) {
    DeliberatelyKept(text);
    return BuildStringUTF8(text);
}

REALstring BuildStringASCII(const char* text) {
    if (text == nullptr) return nullptr;
    size_t length = strlen(text);
    if (DebuggingEnabled == 1 &&
        !AllBelow0x80(reinterpret_cast<const unsigned char*>(text), static_cast<int64_t>(length)))
        LogMessageX("%s%s %s", kTracePrefix, "Error: text is not ascii", text);
    return REALBuildUnicodeString(text, static_cast<int64_t>(length), kEncodingASCII);
}

bool IsStrictUTF8(const unsigned char* s, size_t length) {
    size_t i = 0;
    while (i < length) {
        unsigned char c = s[i];
        size_t need = 0;  // continuation bytes after the lead byte and its special second byte
        if (c == 0x09 || c == 0x0A || c == 0x0D || (c >= 0x20 && c <= 0x7E)) {
            i += 1;
            continue;
        }
        if (c >= 0xC2 && c <= 0xDF) {
            if (i + 1 >= length || !IsContinuation(s[i + 1])) return false;
            i += 2;
            continue;
        }
        if (i + 1 >= length) return false;
        unsigned char d = s[i + 1];
        if (c == 0xE0) {
            if (d < 0xA0 || d > 0xBF) return false;
            need = 1;
        } else if ((c >= 0xE1 && c <= 0xEC) || c == 0xEE || c == 0xEF) {
            if (!IsContinuation(d)) return false;
            need = 1;
        } else if (c == 0xED) {
            if (d < 0x80 || d > 0x9F) return false;
            need = 1;
        } else if (c == 0xF0) {
            if (d < 0x90 || d > 0xBF) return false;
            need = 2;
        } else if (c >= 0xF1 && c <= 0xF3) {
            if (!IsContinuation(d)) return false;
            need = 2;
        } else if (c == 0xF4) {
            if (d < 0x80 || d > 0x8F) return false;
            need = 2;
        } else {
            return false;
        }
        if (i + 2 + need > length) return false;
        for (size_t k = 0; k < need; ++k)
            if (!IsContinuation(s[i + 2 + k])) return false;
        i += 2 + need;
    }
    return true;
}

REALstring CString2RB_detect_encoding(const char* text) {
    if (text == nullptr || *text == 0) return nullptr;
    size_t length = strlen(text);
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    uint32_t encoding = kEncodingASCII;
    if (!AllBelow0x80(bytes, static_cast<int64_t>(length)))
        encoding = IsStrictUTF8(bytes, length) ? kEncodingUTF8 : kEncodingMacRoman;
    return REALBuildUnicodeString(text, static_cast<int64_t>(length), encoding);
}

StringRef::~StringRef() {
    if (string_ != nullptr) REALUnlockString(string_);
}
