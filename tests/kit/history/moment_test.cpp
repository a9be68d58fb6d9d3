#include "kit/history/moment.h"

#include <gtest/gtest.h>

#include "kit/history/made_run.h"

namespace vorn::kit {
namespace {

using support::kDayNs;
using support::kNovemberNs;

constexpr uint64_t kHourNs = kDayNs / 24;

TEST(MomentText, IsInUtc) {
  EXPECT_EQ(MomentText(kNovemberNs), "2026-11-01 00:00");
  EXPECT_EQ(MomentText(0), "1970-01-01 00:00");
  EXPECT_EQ(MomentText(kNovemberNs + kDayNs - 1), "2026-11-01 23:59");
}

TEST(MomentOf, ReadsDaysAndMoments) {
  EXPECT_EQ(MomentOf("2026-11-01", 0), kNovemberNs);
  EXPECT_EQ(MomentOf("2026-11-01T02:30", 0), kNovemberNs + 5 * kHourNs / 2);
  EXPECT_EQ(MomentOf("2026-11-01 02:30:10Z", 0), kNovemberNs + 5 * kHourNs / 2 + 10000000000);
  EXPECT_EQ(MomentOf("1970-01-01", 0), 0U);
}

TEST(MomentOf, ReadsHowLongAgo) {
  EXPECT_EQ(MomentOf("36h", kNovemberNs), kNovemberNs - 36 * kHourNs);
  EXPECT_EQ(MomentOf("2w", kNovemberNs), kNovemberNs - 14 * kDayNs);
  EXPECT_EQ(MomentOf("99999999d", kNovemberNs), 0U);
}

TEST(MomentOf, RefusesWhatIsNoMoment) {
  for (const char* text :
       {"", "yesterday", "2026-02-30", "2026-13-01", "2026-1-1", "2026-11-01T25:00", "2026-11-01T",
        "2026-11-01T02:30:61", "2026-11-01x", "1969-12-31", "9999-01-01", "-5d", "5", "5m", "d",
        "2026-11-01T02:30:10ZZ", "18446744073709551616d"}) {
    EXPECT_EQ(MomentOf(text, kNovemberNs), std::nullopt) << text;
  }
}

TEST(DurationText, TakesTheUnitThatSuits) {
  EXPECT_EQ(DurationText(1.2345e6), "1.234 ms");
  EXPECT_EQ(DurationText(999), "999.000 ns");
  EXPECT_EQ(DurationText(0.5), "0.500 ns");
  EXPECT_EQ(DurationText(1e9), "1.000 s");
  EXPECT_EQ(DurationText(2500), "2.500 us");
}

}  // namespace
}  // namespace vorn::kit
