#include "BrimbleCore/Support/Text.h"

#include <gtest/gtest.h>

namespace brimble {
namespace {

TEST(Text, DecodesWellFormedUTF8AndReplacesEachBadByte) {
  EXPECT_EQ(decodeUTF8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"),
            (std::vector<char32_t>{U'a', U'é', U'€', U'😀'}));
  // An overlong "/", a UTF-16 surrogate, a cut-off emoji and a stray continuation byte: one
  // replacement per byte that starts no character, and the next character still decodes.
  EXPECT_EQ(decodeUTF8("\xC0\xAF"), (std::vector<char32_t>{0xFFFD, 0xFFFD}));
  EXPECT_EQ(decodeUTF8("\xED\xA0\x80x"), (std::vector<char32_t>{0xFFFD, 0xFFFD, 0xFFFD, U'x'}));
  EXPECT_EQ(decodeUTF8("\xF0\x9F\x98"), (std::vector<char32_t>{0xFFFD, 0xFFFD, 0xFFFD}));
  EXPECT_EQ(decodeUTF8("\x80"
                       "b"),
            (std::vector<char32_t>{0xFFFD, U'b'}));

  EXPECT_TRUE(isValidUTF8("plain \xE2\x80\xA8 \xF4\x8F\xBF\xBF"));  // U+2028, U+10FFFF
  EXPECT_FALSE(isValidUTF8("\xF4\x90\x80\x80"));                    // past U+10FFFF
  EXPECT_FALSE(isValidUTF8("\xED\xBF\xBF"));                        // a low surrogate
}

TEST(Text, LowercasesASCIIOnlyAndTrimsTheGivenBlanks) {
  EXPECT_EQ(lowercased("Xterm ÉCOLE"),
            "xterm \xC3\x89"
            "cole");
  EXPECT_EQ(trimmed("\t a b \n"), "a b");
  EXPECT_EQ(trimmed("\n a \n", " "), "\n a \n");
  EXPECT_EQ(trimmed(" \t "), "");
}

}  // namespace
}  // namespace brimble
