#include "host/graph/short_name.h"

#include <gtest/gtest.h>

#include <string>

namespace vorn::host {
namespace {

TEST(ShortName, IsTheNameWhereAFileCanHaveIt) {
  EXPECT_EQ(ShortName(""), "");
  EXPECT_EQ(ShortName(std::string(200, 'n')), std::string(200, 'n'));
}

// The hash is that of an implementation in Python.
TEST(ShortName, KeepsBothEndsAroundAHash) {
  const std::string name = "front" + std::string(191, '.') + "end/x";
  EXPECT_EQ(ShortName(name),
            "front" + std::string(35, '.') + "~c2956c26e450de74~" + std::string(35, '.') + "end/x");
}

TEST(ShortName, IsAnotherOneForEveryName) {
  std::string one(300, 'n');
  std::string other = one;
  other[150] = 'm';
  EXPECT_NE(ShortName(one), ShortName(other));
  EXPECT_EQ(ShortName(one).substr(0, 41), ShortName(other).substr(0, 41));
}

TEST(ShortName, CutsNoCharacterApart) {
  std::string name = "n";
  for (int i = 0; i < 150; ++i) name += "\u00e9";
  name += "n";
  const std::string shortened = ShortName(name);
  std::string ends = "n";
  for (int i = 0; i < 19; ++i) ends += "\u00e9";
  EXPECT_TRUE(shortened.starts_with(ends + "~")) << shortened;
  EXPECT_TRUE(shortened.ends_with("~" + ends.substr(1) + "n")) << shortened;
}

// No text, and still a name.
TEST(ShortName, TakesBytesOfAnyKind) {
  EXPECT_EQ(ShortName(std::string(1000, '\x80')).size(), 18U);
}

}  // namespace
}  // namespace vorn::host
