#include "common/input_entry.h"

#include <gtest/gtest.h>

namespace vorn::run {
namespace {

TEST(HasInputNamePrefix, WantsAColonInside) {
  EXPECT_TRUE(HasInputNamePrefix("in0:a.bin"));
  EXPECT_TRUE(HasInputNamePrefix("a:b:c"));
  EXPECT_TRUE(HasInputNamePrefix("a:b:"));
  EXPECT_TRUE(HasInputNamePrefix("a::"));
  EXPECT_FALSE(HasInputNamePrefix("a.bin"));
  EXPECT_FALSE(HasInputNamePrefix(":a.bin"));
  EXPECT_FALSE(HasInputNamePrefix("a.bin:"));
  EXPECT_FALSE(HasInputNamePrefix("::a"));
  EXPECT_FALSE(HasInputNamePrefix(""));
}

TEST(InputNamePrefix, EndsAtTheFirstColon) {
  EXPECT_EQ(InputNamePrefix("in0:a:b"), "in0");
  EXPECT_EQ(InputNamePrefix("plain"), "plain");
}

}  // namespace
}  // namespace vorn::run
