// The frame's conversions and helpers, run directly against the host
// emulator's entries: strings, exceptions, arrays, memory blocks, paths, trace.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "plugin/exceptions.h"
#include "plugin/host_entries.h"
#include "plugin/memory.h"
#include "plugin/registration.h"
#include "plugin/text.h"
#include "plugin/trace.h"
#include "tests/support/test_support.h"

namespace {

using qrvtest::StderrCapture;

// The plug-in's own code, statically linked here, bound to a fresh emulator.
class HostServices : public ::testing::Test {
protected:
    void SetUp() override { Restart({}); }
    void TearDown() override {
        DebuggingEnabled = 0;
        SetHostResolver(nullptr);
        host_.reset();
    }
    void Restart(emu::HostOptions options) {
        TearDown();
        options.callMain = false;
        host_ = std::make_unique<emu::Host>(options);
        SetHostResolver(&emu::Host::Resolve);
        rbversion = options.version;
    }
    emu::Host& host() { return *host_; }
    ::testing::AssertionResult Took(const std::string& className, const std::string& message) {
        host().exception = host().TakeRaised();
        return qrvtest::Raised(host(), className, message);
    }
    emu::Value Adopt(REALstring s) { return emu::Value::AdoptString(s); }

    std::unique_ptr<emu::Host> host_;
};

std::string UTF8Of(REALstring s) {
    rbText text(s);
    return {text.GetUTF8(), static_cast<size_t>(text.Length())};
}

TEST_F(HostServices, ReadingHostStringsAsUTF8) {
    EXPECT_STREQ(rbText(nullptr).GetUTF8(), "");
    std::vector<emu::Value> strings;
    // The host's "unknown" tag: 0xE9 is read as Mac Roman, where it stands for U+00C8.
    for (auto [bytes, encoding, utf8] : std::initializer_list<std::tuple<std::string, uint32_t, const char*>>{
             {"plain", kEncodingASCII, "plain"},
             {"caf\xC3\xA9", kEncodingUTF8, "caf\xC3\xA9"},
             {std::string("h\0i\0", 4), kEncodingUTF16, "hi"},
             {"\xE9t\xE9", kEncodingISOLatin1, "\xC3\xA9t\xC3\xA9"},
             {"\xE9", kEncodingUnknown, "\xC3\x88"},
             {"abc", kEncodingUnknown, "abc"}}) {
        strings.push_back(host().String(bytes, encoding));
        EXPECT_EQ(UTF8Of(strings.back().AsString()), utf8) << bytes;
    }
    EXPECT_EQ(host().LiveStrings(), strings.size()) << "readers give back what they made";
    // Plain ASCII is read in place; other text through a converted copy.
    rbText ascii(strings[0].AsString()), utf8(strings[1].AsString());
    ascii.GetUTF8();
    EXPECT_EQ(host().Count().stringData, 0u);
    utf8.GetUTF8();
    EXPECT_EQ(host().Count().stringData, 1u);
}

TEST_F(HostServices, UnterminatedConvertedTextIsCopied) {
    Restart({.stringDataUnterminated = true});
    DebuggingEnabled = 1;
    emu::Value utf8 = host().String("\xC3\xA9t\xC3\xA9", kEncodingUTF8);
    StderrCapture capture;
    EXPECT_EQ(UTF8Of(utf8.AsString()), "\xC3\xA9t\xC3\xA9");
    EXPECT_NE(capture.Finish().find("QRV Debug: String is not zero terminated. Fixed.\n"), std::string::npos);
}

// The strict check that decides how libvlc's log lines are read.
TEST(StrictUTF8, AcceptsWellFormedTextOnly) {
    auto valid = [](const char* t) { return IsStrictUTF8(reinterpret_cast<const unsigned char*>(t), strlen(t)); };
    // Every length, each edge of each lead-byte range, around overlongs and surrogates, up to U+10FFFF.
    for (const char* text : {"abc\xC3\xA9", "\t\r\nplain text ~", "\xC2\x80\xDF\xBF", "\xE0\xA0\x80", "\xE1\x80\x80",
                             "\xEC\xBF\xBF", "\xED\x9F\xBF", "\xEE\x80\x80\xEF\xBF\xBF", "\xF0\x90\x80\x80",
                             "\xF1\x80\x80\x80", "\xF3\xBF\xBF\xBF\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(valid(text)) << text;
    // A control byte fails the whole text; overlongs of each length, a surrogate, past U+10FFFF, truncated
    // sequences, Latin-1 "é", a bad continuation.
    for (const char* text : {"abc\x01\xC3\xA9", "abc\x7F", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",
                             "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC3", "\xE2\x82", "\xF0\x90\x80",
                             "\xE9", "\xC3\x28", "\xE1\x28\x80", "\xF2\x28\x80\x80"})
        EXPECT_FALSE(valid(text)) << text;
}

TEST_F(HostServices, BuildingHostStringsPicksOrDetectsTheEncoding) {
    auto build = [&](const char* bytes, int64_t n, uint32_t e) { return Adopt(REALBuildUnicodeString(bytes, n, e)); };
    EXPECT_EQ(host().Encoding(build("abc", 3, kEncodingMacRoman)), kEncodingASCII);  // pure ASCII is tagged as such
    EXPECT_EQ(host().Encoding(build("\xE9", 1, kEncodingMacRoman)), kEncodingMacRoman);
    EXPECT_EQ(host().Encoding(build("x", 1, kEncodingWindowsLatin1)), kEncodingASCII);
    emu::Value utf16 = build("h\0\xE9\0", 4, kEncodingUTF16);
    EXPECT_EQ(host().Encoding(utf16), kEncodingUTF8);
    EXPECT_EQ(host().Text(utf16), "h\xC3\xA9");
    EXPECT_TRUE(build(nullptr, 3, kEncodingUTF8).IsNil());
    for (int64_t length : {0, -5}) EXPECT_TRUE(build("abc", length, kEncodingUTF8).IsNil()) << length;

    DebuggingEnabled = 1;
    StderrCapture capture;
    // The length is refused before any byte is read.
    EXPECT_TRUE(build("abc", int64_t{1} << 31, kEncodingUTF8).IsNil());
    emu::Value odd = build("abc", 3, 4);
    std::string trace = capture.Finish();
    EXPECT_EQ(host().Encoding(odd), 4u);
    EXPECT_NE(trace.find("QRV Debug: Count too big for REALBuildUnicodeString.\n"), std::string::npos);
    EXPECT_NE(trace.find("QRV Debug: Unknown encoding in REALBuildUnicodeString 4\n"), std::string::npos);
    EXPECT_EQ(host().LiveStrings(), 2u);  // the UTF-16 intermediate was released

    EXPECT_EQ(host().Encoding(Adopt(CString2RB_detect_encoding("abc\x01\xC3\xA9"))), kEncodingMacRoman);
    EXPECT_EQ(host().Encoding(Adopt(CString2RB_detect_encoding("abc\xC3\xA9"))), kEncodingUTF8);
    EXPECT_EQ(host().Encoding(Adopt(CString2RB_detect_encoding("abc\x01"))), kEncodingASCII);
    EXPECT_EQ(host().Text(Adopt(CString2RB_detect_encoding("caf\x8E"))), "caf\xC3\xA9");  // 0x8E is é in Mac Roman
    EXPECT_TRUE(Adopt(CString2RB_detect_encoding(nullptr)).IsNil());
    EXPECT_TRUE(Adopt(CString2RB_detect_encoding("")).IsNil());

    rbversion = 2011.5;  // old hosts build, then tag
    emu::Value old = build("caf\xC3\xA9", 5, kEncodingUTF8);
    EXPECT_EQ(host().Encoding(old), kEncodingUTF8);
    EXPECT_EQ(host().Text(old), "caf\xC3\xA9");
}

TEST_F(HostServices, OutOfBoundsAndStandardExceptionsBecomeHostExceptionsOrRuntimeExceptions) {
    RaiseOutOfBoundsException(7, 5, "index", nullptr);
    EXPECT_TRUE(Took("OutOfBoundsException", "The parameter index  is too big. Range is 0 to 4, but value is 7."));
    RaiseOutOfBoundsException(-1, 3, "index", "");
    EXPECT_TRUE(Took("OutOfBoundsException", "The parameter index  is too small. Range is 0 to 2, but value is -1."));
    RaiseOutOfBoundsException(9, 9, nullptr, "PresetName");
    EXPECT_TRUE(Took("OutOfBoundsException",
                     "The parameter ? to method PresetName is too big. Range is 0 to 8, but value is 9."));
    auto check = [&](const std::exception& e, const char* className, const char* message) {
        RaiseRuntimeException(e);
        EXPECT_TRUE(Took(className, message)) << e.what();
    };
    check(std::bad_alloc(), "OutOfMemoryException", "Failed to allocate memory: std::bad_alloc");
    check(std::out_of_range("vector"), "OutOfBoundsException", "C++ reports range error: vector");
    check(std::out_of_range(""), "OutOfBoundsException", "C++ reports range error.");
    check(std::range_error("r"), "OutOfBoundsException", "C++ reports range error: r");
    check(std::overflow_error("o"), "OutOfBoundsException", "C++ reports overflow error: o");
    check(std::underflow_error("u"), "OutOfBoundsException", "C++ reports underflow error: u");
    check(std::runtime_error("boom"), "RuntimeException", "C++ Exception: boom");
    check(std::logic_error(""), "RuntimeException", "C++ Exception.");

    // A class the host refuses falls back to RuntimeException.
    Restart({.refusedClasses = {"NilObjectException"}});
    RaiseNilObjectException("vlc parameter is nil");
    EXPECT_TRUE(Took("RuntimeException", "vlc parameter is nil"));
    Restart({.refusedClasses = {"NilObjectException", "RuntimeException"}});
    RaiseNilObjectException("vlc parameter is nil");
    EXPECT_FALSE(host().TakeRaised());
}

TEST_F(HostServices, ArraysAreReadInPlaceOnlyWhenTheLayoutChecks) {
    for (bool broken : {false, true}) {
        Restart({.brokenArrayLayout = broken});
        // Whichever read comes first checks the layout.
        ArrayAccessTested = false;
        EXPECT_EQ(ArrayIntegerAt(host().IntegerArray({5, -6, 7}).AsObject(), 1), -6);
        EXPECT_TRUE(ArrayAccessTested);
        ArrayAccessTested = false;
        emu::Value array = host().StringArray({"zero", "one", "two"});
        EXPECT_EQ(ArrayUpperBound(array.AsObject()), 2);
        EXPECT_EQ(host().Text(Adopt(ArrayStringAt(array.AsObject(), 1))), "one");
        EXPECT_TRUE(ArrayAccessTested);
        EXPECT_EQ(ArrayAccessSuccess, !broken);
        EXPECT_EQ(ArrayUpperBound(host().StringArray({}).AsObject()), -1);
        EXPECT_EQ(ArrayUpperBound(nullptr), -1);
    }
}

TEST_F(HostServices, MemoryBlocksSmallerThanAskedAreRefused) {
    REALmemoryBlock block = NewMemoryBlock(100);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(REALMemoryBlockGetSize(block), 100);
    REALUnlockObject(block);

    Restart({.memoryBlocksShort = true});
    EXPECT_EQ(NewMemoryBlock(100), nullptr);

    Restart({.hidden = {"PluginCallFunctionWithExceptionHandler"}});
    block = NewMemoryBlock(8);
    EXPECT_NE(block, nullptr) << "hosts without the handler entry get a direct call";
    EXPECT_TRUE(host().hiddenAsked.count("PluginCallFunctionWithExceptionHandler")) << "asked of this host";
    REALUnlockObject(block);
}

TEST_F(HostServices, FolderItemPathsKeepTheirBytes) {
    // Precomposed and decomposed names are different files on Linux.
    for (const char* name : {"/tmp/caf\xC3\xA9 file.mp4", "/tmp/cafe\xCC\x81 file.mp4"}) {
        emu::Value item = host().FolderItem(name);
        rbversion = 2021.0;
        std::unique_ptr<char, decltype(&free)> path(UnixFilePathUTF8(item.AsObject()), free);
        EXPECT_STREQ(path.get(), name);

        rbversion = 2012.5;  // older hosts: the URL path, decoded back to the same bytes
        rbPath holder(item.AsObject());
        EXPECT_STREQ(holder.GetUnixPath(), name);
        EXPECT_EQ(holder.GetUnixPath(), holder.GetUnixPath());
    }
    EXPECT_EQ(UnixFilePathUTF8(nullptr), nullptr);
}

TEST_F(HostServices, TraceLinesAreWholeAndCut) {
    StderrCapture capture;
    LogMessageX("%s%s", kTracePrefix, std::string(5000, 'x').c_str());
    LogMessageX("%s%s %lld", kTracePrefix, "n", 5LL);
    EXPECT_EQ(capture.Finish(), kTracePrefix + std::string(4095 - strlen(kTracePrefix), 'x') + "\nQRV Debug: n 5\n");
}

// The emulator's own checks, each provoked once: they are what the other
// suites rely on to see faults.
TEST_F(HostServices, EmulatorReportsWhatARealHostWouldPunish) {
    static std::vector<std::string> faults;
    faults.clear();
    emu::SetFaultHandler([](const std::string& message) { faults.push_back(message); });

    REALobject exception = REALnewInstance("NilObjectException");
    REALobject other = REALnewInstance("OutOfBoundsException");
    REALRaiseException(exception);
    REALRaiseException(other);
    EXPECT_EQ(host().TakeRaised()->className, "NilObjectException");
    EXPECT_EQ(host().raisedLog.size(), 2u);

    REALUnlockObject(other);
    EXPECT_EQ(REALGetEventInstance(other, 1000), nullptr);
    REALLockObject(other);

    REALstring text = REALBuildStringWithEncoding("x", 1, kEncodingUTF8);
    REALUnlockString(text);
    REALUnlockString(text);

    // A write just before the data block, as code using another class's offset would make.
    emu::Value picture = host().NewRaw("Picture");
    static_cast<char*>(static_cast<void*>(picture.AsObject()))[3] = 1;
    REALLockObject(picture.AsObject());
    REALUnlockObject(picture.AsObject());

    REALstringData data{};
    emu::Value s = host().String("abc");
    ASSERT_TRUE(REALGetStringData(s.AsString(), kEncodingUTF8, &data));
    REALDisposeStringData(&data);
    REALstringData copy = data;
    copy.private1 = s.AsString();
    REALDisposeStringData(&copy);

    // One fault per step, in order; the first exception keeps the reference it was made with, unreferenced.
    picture = s = emu::Value();
    TearDown();
    EXPECT_EQ(faults,
              (std::vector<std::string>{
                  "a second exception was raised in one call: NilObjectException \"\", then OutOfBoundsException \"\"",
                  "GetEventInstance was handed a destroyed OutOfBoundsException object",
                  "REALLockObject was handed a destroyed OutOfBoundsException object",
                  "REALUnlockString was handed a string already freed",
                  "REALLockObject: byte 3 of a Picture object, outside its classes' data, was overwritten",
                  "PluginDisposeStringData was handed a record it did not fill, or one already disposed",
                  "the host went away with 1 object(s), 0 string(s), 0 picture lock(s) and 0 string data record(s) "
                  "(NilObjectException) that the plug-in no longer refers to"}));
    emu::SetFaultHandler(qrvtest::FailTestOnFault);
}

}  // namespace
