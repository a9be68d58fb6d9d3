#include "common/wall_clock.h"

#include <gtest/gtest.h>

namespace vorn::run {
namespace {

TEST(TimevalToMs, AddsSecondsAndMicroseconds) {
  EXPECT_DOUBLE_EQ(TimevalToMs(0, 0), 0.0);
  EXPECT_DOUBLE_EQ(TimevalToMs(2, 500), 2000.5);
  EXPECT_DOUBLE_EQ(TimevalToMs(-1, 250000), -750.0);
}

TEST(GetCurrentTimeUs, AgreesWithTheMilliseconds) {
  const double before = GetCurrentTimeMs();
  const auto now = static_cast<double>(GetCurrentTimeUs());
  const double after = GetCurrentTimeMs();
  EXPECT_GE(now, before * 1000 - 1);
  EXPECT_LE(now, after * 1000 + 1);
}

}  // namespace
}  // namespace vorn::run
