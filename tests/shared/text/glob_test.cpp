// Patterns, against a reference that follows their definition.
#include "shared/text/glob.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

using vorn::text::FitsGlob;

bool FitsSlowly(std::string_view text, std::string_view glob) {
  if (glob.empty()) return text.empty();
  if (glob.front() == '*') {
    return FitsSlowly(text, glob.substr(1)) || (!text.empty() && FitsSlowly(text.substr(1), glob));
  }
  return !text.empty() && (glob.front() == '?' || glob.front() == text.front()) &&
         FitsSlowly(text.substr(1), glob.substr(1));
}

std::string RandomText(std::mt19937& random, std::string_view characters, size_t longest) {
  std::string text(random() % (longest + 1), ' ');
  for (char& c : text) c = characters[random() % characters.size()];
  return text;
}

TEST(Glob, FitsTheWholeText) {
  EXPECT_TRUE(FitsGlob("", ""));
  EXPECT_TRUE(FitsGlob("", "**"));
  EXPECT_FALSE(FitsGlob("", "?"));
  EXPECT_TRUE(FitsGlob("vorn_rt_free", "vorn_rt_*"));
  EXPECT_FALSE(FitsGlob("vorn_rt_free", "rt_*"));
  EXPECT_FALSE(FitsGlob("vorn_rt_free", "vorn_rt"));
  EXPECT_TRUE(FitsGlob("[a]", "[a]"));
  EXPECT_FALSE(FitsGlob("a", "[a]"));
}

TEST(Glob, FitsAsItsDefinitionSays) {
  std::mt19937 random(20261122);
  int fitting = 0;
  for (int round = 0; round < 50000; ++round) {
    const std::string text = RandomText(random, "ab", 8);
    const std::string glob = RandomText(random, "ab?**", 6);
    const bool fits = FitsSlowly(text, glob);
    ASSERT_EQ(FitsGlob(text, glob), fits) << text << " and " << glob;
    fitting += fits ? 1 : 0;
  }
  EXPECT_GT(fitting, 5000);
}

// Tried one within the other, these stars would take longer than anybody waits.
TEST(Glob, EndsWithManyStars) {
  std::string glob;
  for (int i = 0; i < 400; ++i) glob += "*a";
  EXPECT_FALSE(FitsGlob(std::string(399, 'a') + "b", glob));
  EXPECT_TRUE(FitsGlob(std::string(400, 'a'), glob));
}

}  // namespace
