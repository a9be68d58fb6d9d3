#include "kit/common/told_time.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "kit/common/fault.h"

namespace vorn::kit {
namespace {

TEST(ToldTimeNs, IsWhatSourceDateEpochSays) {
  setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
  EXPECT_EQ(ToldTimeNs(), 1'700'000'000'000'000'000U);
  for (const char* wrong : {"soon", "-1", "1.5", "99999999999999999999", "9223372037"}) {
    setenv("SOURCE_DATE_EPOCH", wrong, 1);
    EXPECT_THROW((void)ToldTimeNs(), Fault) << wrong;
  }
  setenv("SOURCE_DATE_EPOCH", "", 1);
  EXPECT_GT(ToldTimeNs(), 1'700'000'000'000'000'000U);
  unsetenv("SOURCE_DATE_EPOCH");
  EXPECT_GT(ToldTimeNs(), 1'700'000'000'000'000'000U);
}

}  // namespace
}  // namespace vorn::kit
