#include "kit/common/text_table.h"

#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

TEST(TextTable, LinesColumnsUp) {
  TextTable table({{"index", true}, {"name"}, {"bytes", true}});
  table.Add({"0", "image", "150528"});
  table.Add({"10", "s", "4"});
  EXPECT_EQ(table.Text(),
            "index  name    bytes\n"
            "    0  image  150528\n"
            "   10  s           4\n");
}

TEST(TextTable, CountsPlacesAndNotBytes) {
  TextTable table({{"name"}, {"x"}});
  table.Add({"größe", "1"});
  EXPECT_EQ(table.Text(), "name   x\ngröße  1\n");
}

TEST(TextTable, LeavesNoBlanksAtTheEndOfALine) {
  TextTable table({{"a"}, {"long title"}});
  table.Add({"1"});
  table.Add({"1", "2", "left out"});
  EXPECT_EQ(table.Text(), "a  long title\n1\n1  2\n");
}

TEST(TextTable, MakesTextsPrintable) {
  TextTable table({{"name"}});
  table.Add({"a\x1B[2Jb\n"});
  EXPECT_EQ(table.Text(), "name\na\\x1B[2Jb\\x0A\n");
}

}  // namespace
}  // namespace vorn::kit
