#include "kit/fleet/make_plan.h"

#include <gtest/gtest.h>

namespace {

using vorn::kit::ChunkFor;
using vorn::kit::FleetCost;

// What is spent beside the inferences, half a second for the connection among it, as a share of
// all.
double ShareBeside(const FleetCost& cost, uint64_t chunk) {
  const double beside = static_cast<double>(cost.startNs) + 5e8;
  return beside / (beside + static_cast<double>(cost.sampleNs) * static_cast<double>(chunk));
}

TEST(ChunkForTest, IsTheShortestOfWhichATwentiethAtMostIsOverhead) {
  constexpr uint64_t kMany = UINT64_MAX / 2;
  for (const uint64_t startNs : {0UL, 1'000'000UL, 700'000'000UL, 90'000'000'000UL}) {
    for (const uint64_t sampleNs : {100'000UL, 3'000'000UL, 2'000'000'000UL}) {
      const FleetCost cost{.startNs = startNs, .sampleNs = sampleNs};
      const uint64_t chunk = ChunkFor(cost, kMany);
      EXPECT_LE(ShareBeside(cost, chunk), 0.05 + 1e-9) << startNs << " " << sampleNs;
      EXPECT_GT(ShareBeside(cost, chunk - 1), 0.05 - 1e-9) << startNs << " " << sampleNs;
    }
  }
}

TEST(ChunkForTest, IsNoLongerThanTheListAndNeverNothing) {
  EXPECT_EQ(ChunkFor({.startNs = 1'000'000'000, .sampleNs = 1}, 100), 100U);
  EXPECT_EQ(ChunkFor({.startNs = 0, .sampleNs = UINT64_MAX}, 100), 1U);
}

}  // namespace
