// The borders of UTF-8, and those of what steers; the host's excerpts and the kit's texts have
// more.
#include "shared/text/characters.h"

#include <gtest/gtest.h>

namespace vorn::text {
namespace {

TEST(CharacterLength, CountsTheBytesOfACharacter) {
  EXPECT_EQ(CharacterLength("a\u00e4"), 1U);
  EXPECT_EQ(CharacterLength("\u00e4b"), 2U);
  EXPECT_EQ(CharacterLength("\u20ac"), 3U);
  EXPECT_EQ(CharacterLength("\U0010ffff"), 4U);
}

TEST(CharacterLength, FindsNoneInOtherBytes) {
  for (const char* bytes : {"\x80", "\xc1\xbf", "\xc3", "\xe0\x9f\xbf", "\xed\xa0\x80",
                            "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80"}) {
    EXPECT_EQ(CharacterLength(bytes), 0U);
  }
}

TEST(Steers, KnowsTheBordersOfEachKind) {
  for (const char* character : {"\x1f", "\x7f", "\u0080", "\u009f", "\u200e", "\u200f", "\u2028",
                                "\u202e", "\u2066", "\u2069", "\ufeff"}) {
    EXPECT_TRUE(Steers(character)) << character;
  }
  for (const char* character : {" ", "~", "\u00a0", "\u200d", "\u2010", "\u2027", "\u202f",
                                "\u2065", "\u206a", "\ufefe", "\U0001d11e"}) {
    EXPECT_FALSE(Steers(character)) << character;
  }
}

}  // namespace
}  // namespace vorn::text
