#include "host/common/excerpt.h"

#include <gtest/gtest.h>

#include <string>

namespace vorn::host {
namespace {

TEST(Excerpt, KeepsWhatIsShortAndReadable) {
  EXPECT_EQ(Excerpt(""), "");
  EXPECT_EQ(Excerpt("a name"), "a name");
  EXPECT_EQ(Excerpt("\u00e4\u20ac\U0001d11e"), "\u00e4\u20ac\U0001d11e");
  EXPECT_EQ(Excerpt(std::string(kLongestName, 'a')), std::string(kLongestName, 'a'));
}

TEST(Excerpt, CutsBetweenTwoCharacters) {
  EXPECT_EQ(Excerpt("abcdef", 5), "abcde...");
  EXPECT_EQ(Excerpt("abcd\u00e4", 5), "abcd...");
  EXPECT_EQ(Excerpt("ab\U0001d11e", 5), "ab...");
  EXPECT_EQ(Excerpt("a\U0001d11e", 5), "a\U0001d11e");
}

TEST(Excerpt, ReplacesWhatBreaksALine) {
  EXPECT_EQ(Excerpt("a\nb\r\tc\x7f"), "a?b??c?");
  EXPECT_EQ(Excerpt(std::string_view("a\0b", 3)), "a?b");
}

TEST(Excerpt, ReplacesBytesThatAreNoText) {
  const std::string bad[] = {"\x80",
                             "\xff",
                             "\xc3",
                             "\xc0\xaf",
                             "\xc1\xbf",
                             "\xe2\x82",
                             "\xe0\x9f\xbf",
                             "\xed\xa0\x80",
                             "\xf0\x8f\xbf\xbf",
                             "\xf4\x90\x80\x80",
                             "\xf5\x80\x80\x80",
                             "\xf0\x9d\x84"};
  for (const std::string& bytes : bad) {
    EXPECT_EQ(Excerpt("a" + bytes + "b"), "a" + std::string(bytes.size(), '?') + "b");
  }
}

TEST(Excerpt, KeepsTheFirstAndLastOfEveryLength) {
  for (const char* text :
       {"\u0080", "\u07ff", "\u0800", "\ud7ff", "\ue000", "\uffff", "\U00010000", "\U0010ffff"}) {
    EXPECT_EQ(Excerpt(text), text);
  }
}

}  // namespace
}  // namespace vorn::host
