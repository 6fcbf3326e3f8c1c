// Strings and text: reference-counted host strings with an encoding tag,
// conversions through iconv, and the string entries.
#include <iconv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>

#include "host/emulator_internal.h"

namespace emu {

namespace {

// A freed string is emptied but kept for a while, so that a late lock,
// unlock or read of it is reported instead of touching freed memory.
constexpr size_t kKeptFreed = 1 << 16;

struct FreedStrings {
    std::unordered_set<const HostString*> set;
    std::deque<HostString*> order;
    std::unordered_set<const HostString*> abandoned;  // held when their host went away
};
FreedStrings* const gFreed = new FreedStrings;

void Free(HostString* s) {
    std::string().swap(s->bytes);
    s->refs = 0;
    gFreed->set.insert(s);
    gFreed->order.push_back(s);
    if (gFreed->order.size() > kKeptFreed) {
        HostString* oldest = gFreed->order.front();
        gFreed->order.pop_front();
        gFreed->set.erase(oldest);
        delete oldest;
    }
}

}  // namespace

HostString* StringOf(REALstring string) { return reinterpret_cast<HostString*>(string); }

HostString* CheckedString(REALstring string, const char* entry) {
    if (string == nullptr) return nullptr;
    HostString* s = StringOf(string);
    if (State().strings.count(s) || gFreed->abandoned.count(s)) return s;
    if (gFreed->set.count(s)) {
        Fault(std::string(entry) + " was handed a string already freed");
        return nullptr;
    }
    char address[32];
    snprintf(address, sizeof address, "%p", static_cast<void*>(string));
    Fault(std::string(entry) + " was handed " + address + ", which is no string of this host");
    return nullptr;
}

REALstring NewString(std::string bytes, uint32_t encoding) {
    auto* string = new HostString;
    string->bytes = std::move(bytes);
    string->encoding = encoding;
    State().strings.insert(string);
    return reinterpret_cast<REALstring>(string);
}

void LockString(REALstring string) {
    if (HostString* s = CheckedString(string, "REALLockString")) ++s->refs;
}

void UnlockString(REALstring string) {
    HostString* s = CheckedString(string, "REALUnlockString");
    if (s == nullptr || --s->refs > 0) return;
    State().strings.erase(s);
    Free(s);
}

void ForgetStrings() {
    Host::Impl& state = State();
    gFreed->abandoned.insert(state.strings.begin(), state.strings.end());
    state.strings.clear();
}

namespace {

const char* IconvName(uint32_t encoding) {
    switch (encoding) {
        case kEncodingUTF8:
            return "UTF-8";
        case kEncodingASCII:
            return "ASCII";
        case kEncodingUTF16:
        case kEncodingUTF16LE:
            return "UTF-16LE";
        case kEncodingUTF16BE:
            return "UTF-16BE";
        case kEncodingUTF32:
        case kEncodingUTF32LE:
            return "UTF-32LE";
        case kEncodingUTF32BE:
            return "UTF-32BE";
        case kEncodingISOLatin1:
            return "ISO-8859-1";
        case kEncodingWindowsLatin1:
            return "WINDOWS-1252";
        default:
            return "MACINTOSH";  // Mac Roman, and the host's "unknown"
    }
}

}  // namespace

std::string Convert(const std::string& bytes, uint32_t from, uint32_t to) {
    if (from == to || bytes.empty()) return bytes;
    // ASCII text reads the same in every 8-bit encoding the host uses.
    iconv_t cd = iconv_open(IconvName(to), IconvName(from));
    if (cd == reinterpret_cast<iconv_t>(-1)) return bytes;
    std::string out(bytes.size() * 4 + 16, '\0');
    char* in = const_cast<char*>(bytes.data());
    size_t inLeft = bytes.size();
    char* outPtr = out.data();
    size_t outLeft = out.size();
    iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    iconv_close(cd);
    out.resize(out.size() - outLeft);
    return out;
}

// ---- entries -------------------------------------------------------------------

REALstring BuildString(const char* bytes, int length) {
    return NewString(std::string(bytes ? bytes : "", bytes && length > 0 ? static_cast<size_t>(length) : 0),
                     kEncodingUnknown);
}

REALstring BuildStringWithEncoding(const char* bytes, int length, uint32_t encoding) {
    return NewString(std::string(bytes ? bytes : "", bytes && length > 0 ? static_cast<size_t>(length) : 0), encoding);
}

uint32_t GetStringEncoding(REALstring string) {
    HostString* s = CheckedString(string, "REALGetStringEncoding");
    return s ? s->encoding : kEncodingUnknown;
}

void SetStringEncoding(REALstring string, uint32_t encoding) {
    if (HostString* s = CheckedString(string, "REALSetStringEncoding")) s->encoding = encoding;
}

REALstring ConvertString(REALstring string, uint32_t encoding) {
    HostString* s = CheckedString(string, "REALConvertString");
    if (s == nullptr) return nullptr;
    return NewString(Convert(s->bytes, s->encoding, encoding), encoding);
}

void* StringGetCString(REALstring string) {
    HostString* s = CheckedString(string, "StringGetCString");
    return s ? const_cast<char*>(s->bytes.c_str()) : nullptr;
}

namespace {

RBInteger LenB(REALstring string) {
    HostString* s = CheckedString(string, "LenB");
    return s ? static_cast<RBInteger>(s->bytes.size()) : 0;
}

}  // namespace

void* LoadGlobalMethod(const char* module, const char* prototype) {
    if (module == nullptr && prototype && strcmp(prototype, "LenB( s as string ) as integer") == 0)
        return reinterpret_cast<void*>(LenB);
    return nullptr;
}

RBBoolean GetStringData(REALstring string, uint32_t encoding, REALstringData* out) {
    HostString* s = CheckedString(string, "PluginGetStringData");
    if (s == nullptr || out == nullptr) return 0;
    std::string converted = Convert(s->bytes, s->encoding, encoding);
    char* buffer = static_cast<char*>(malloc(converted.size() + 1));
    memcpy(buffer, converted.data(), converted.size());
    buffer[converted.size()] = Host::Current()->options().stringDataUnterminated ? 'X' : 0;
    out->data = buffer;
    out->length = converted.size();
    out->encoding = encoding;
    out->private1 = buffer;
    out->private2 = 0;
    State().stringData.insert(buffer);
    return 1;
}

void DisposeStringData(REALstringData* data) {
    if (data == nullptr) return;
    if (State().stringData.erase(data->private1) == 0) {
        Fault("PluginDisposeStringData was handed a record it did not fill, or one already disposed");
        return;
    }
    free(const_cast<void*>(data->private1));
    data->private1 = nullptr;
    data->data = nullptr;
}

REALstring AddStrings(REALstring a, REALstring b) {
    HostString* first = CheckedString(a, "RuntimeAddString");
    HostString* second = CheckedString(b, "RuntimeAddString");
    uint32_t encoding = first ? first->encoding : (second ? second->encoding : kEncodingUTF8);
    std::string bytes = first ? first->bytes : "";
    if (second) bytes += Convert(second->bytes, second->encoding, encoding);
    return NewString(bytes, encoding);
}

// ---- strings made and read by tests ---------------------------------------------

Value Host::String(std::string_view bytes, uint32_t encoding) {
    return Value::AdoptString(NewString(std::string(bytes), encoding));
}

std::string Host::Bytes(const Value& string) const {
    HostString* s = CheckedString(string.AsString(), "Host::Bytes");
    return s ? s->bytes : std::string();
}

uint32_t Host::Encoding(const Value& string) const {
    HostString* s = CheckedString(string.AsString(), "Host::Encoding");
    return s ? s->encoding : kEncodingUnknown;
}

std::string Host::Text(const Value& string) const {
    HostString* s = CheckedString(string.AsString(), "Host::Text");
    return s ? Convert(s->bytes, s->encoding, kEncodingUTF8) : std::string();
}

}  // namespace emu
