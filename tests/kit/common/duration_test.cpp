#include "kit/common/duration.h"

#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

TEST(DurationNs, ReadsANumberAndItsUnit) {
  EXPECT_EQ(DurationNs("10s"), 10e9);
  EXPECT_EQ(DurationNs("0.5ms"), 5e5);
  EXPECT_EQ(DurationNs("7us"), 7e3);
  EXPECT_EQ(DurationNs("0ns"), 0);
  EXPECT_EQ(DurationNs("2min"), 120e9);
  EXPECT_EQ(DurationNs("1h"), 3600e9);
}

TEST(DurationNs, RefusesAnythingElse) {
  for (const char* text :
       {"", "10", "s", "-1s", "1 s", "1S", "infs", "nans", "1e999s", "1sx", "+1s", "0x10s"}) {
    EXPECT_FALSE(DurationNs(text)) << text;
  }
  EXPECT_FALSE(UnitNs("m"));
}

}  // namespace
}  // namespace vorn::kit
