#include "host/common/excerpt.h"

#include <gtest/gtest.h>

#include <string>

namespace vorn::host {
namespace {

TEST(Excerpt, KeepsWhatIsShortAndReadable) {
  EXPECT_EQ(Excerpt(""), "");
  EXPECT_EQ(Excerpt("a name"), "a name");
  EXPECT_EQ(Excerpt("\u00e4\u20ac\U0001d11e"), "\u00e4\u20ac\U0001d11e");
  EXPECT_EQ(Excerpt(std::string(60, 'a')), std::string(60, 'a'));
  EXPECT_EQ(Excerpt(std::string(61, 'a')), std::string(60, 'a') + "...");
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
  EXPECT_EQ(Excerpt("a\u0085b\u2028c\u2029d"), "a?b?c?d");
}

TEST(Excerpt, ReplacesWhatSteersATerminal) {
  EXPECT_EQ(Excerpt("a\x1b[31m"), "a?[31m");
  EXPECT_EQ(Excerpt("a\u009b31m"), "a?31m");
  for (const char* text : {"\u0080", "\u009f", "\u202a", "\u202e", "\u2066", "\u2069"}) {
    EXPECT_EQ(Excerpt(text), "?");
  }
  for (const char* text : {"\u00a0", "\u2027", "\u202f", "\u2065", "\u206a"}) {
    EXPECT_EQ(Excerpt(text), text);
  }
}

TEST(OneLine, PutsBlanksForWhatExcerptsReplace) {
  EXPECT_EQ(OneLine("a\nb\u0085c\u009bd\xff"
                    "e"),
            "a b c d e");
  EXPECT_EQ(OneLine("all of it\n \u2028"), "all of it");
  EXPECT_EQ(OneLine(std::string(3 * kLongestName, 'a')), std::string(3 * kLongestName, 'a'));
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
       {"\u00a0", "\u07ff", "\u0800", "\ud7ff", "\ue000", "\uffff", "\U00010000", "\U0010ffff"}) {
    EXPECT_EQ(Excerpt(text), text);
  }
}

}  // namespace
}  // namespace vorn::host
