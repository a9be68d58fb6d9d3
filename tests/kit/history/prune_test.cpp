#include "kit/history/prune.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

using testing::ElementsAre;

// Two series, of runs 1, 3, 5 and 2, 4, each started at ten times its id.
std::vector<RunSeriesPoints> Two() {
  std::vector<RunSeriesPoints> all(2);
  for (const int64_t id : {1, 2, 3, 4, 5}) {
    RunPoint point;
    point.id = id;
    point.startRealtimeNs = static_cast<uint64_t>(10 * id);
    all[id % 2 == 1 ? 0 : 1].runs.push_back(point);
  }
  return all;
}

TEST(RunsToPrune, KeepsTheLatestOfEachSeries) {
  EXPECT_THAT(RunsToPrune(Two(), {.keep = 2, .beforeNs = {}}), ElementsAre(1));
  EXPECT_THAT(RunsToPrune(Two(), {.keep = 1, .beforeNs = {}}), ElementsAre(1, 2, 3));
  EXPECT_THAT(RunsToPrune(Two(), {.keep = 0, .beforeNs = {}}), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(RunsToPrune(Two(), {.keep = 9, .beforeNs = {}}), ElementsAre());
}

TEST(RunsToPrune, TakesWhatStartedBefore) {
  EXPECT_THAT(RunsToPrune(Two(), {.keep = {}, .beforeNs = 30}), ElementsAre(1, 2));
}

}  // namespace
}  // namespace vorn::kit
