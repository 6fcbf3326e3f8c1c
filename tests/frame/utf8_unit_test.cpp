// The strict UTF-8 check that decides how libvlc's log lines are read.
#include <gtest/gtest.h>

#include <string>

#include "plugin/text.h"

namespace {

bool Valid(const std::string& bytes) {
    return IsStrictUTF8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

TEST(StrictUTF8, AcceptsWellFormedSequencesOfEveryLength) {
    EXPECT_TRUE(Valid("abc\xC3\xA9"));  // é
    EXPECT_TRUE(Valid("\t\r\nplain text ~"));
    EXPECT_TRUE(Valid("\xE0\xA0\x80"));  // lowest 3-byte after overlongs
    EXPECT_TRUE(Valid("\xE2\x82\xAC"));  // €
    EXPECT_TRUE(Valid("\xED\x9F\xBF"));  // last before surrogates
    EXPECT_TRUE(Valid("\xEE\x80\x80\xEF\xBF\xBF"));
    EXPECT_TRUE(Valid("\xF0\x90\x80\x80"));                  // first 4-byte
    EXPECT_TRUE(Valid("\xF3\xBF\xBF\xBF\xF4\x8F\xBF\xBF"));  // up to U+10FFFF
}

TEST(StrictUTF8, RejectsControlBytesOverlongsSurrogatesAndTruncation) {
    EXPECT_FALSE(Valid("abc\x01\xC3\xA9"));  // a control byte fails the whole text
    EXPECT_FALSE(Valid("abc\x7F"));
    EXPECT_FALSE(Valid("\xC0\xAF"));  // overlong 2-byte
    EXPECT_FALSE(Valid("\xC1\xBF"));
    EXPECT_FALSE(Valid("\xE0\x9F\xBF"));      // overlong 3-byte
    EXPECT_FALSE(Valid("\xED\xA0\x80"));      // surrogate
    EXPECT_FALSE(Valid("\xF0\x8F\xBF\xBF"));  // overlong 4-byte
    EXPECT_FALSE(Valid("\xF4\x90\x80\x80"));  // above U+10FFFF
    EXPECT_FALSE(Valid("\xF5\x80\x80\x80"));
    EXPECT_FALSE(Valid("\xC3"));  // truncated
    EXPECT_FALSE(Valid("\xE2\x82"));
    EXPECT_FALSE(Valid("\xF0\x90\x80"));
    EXPECT_FALSE(Valid("\xE9"));      // Mac Roman / Latin-1 é
    EXPECT_FALSE(Valid("\xC3\x28"));  // bad continuation
}

}  // namespace
