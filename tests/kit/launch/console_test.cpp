#include "kit/launch/console.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using vorn::kit::ProgressText;

TEST(Console, SaysHowFarARunIs) {
  EXPECT_EQ(ProgressText(
                {.done = 0, .all = 200, .doneHere = 0, .faults = 0, .elapsed = milliseconds(900)}),
            "0 of 200 inferences");
  EXPECT_EQ(
      ProgressText({.done = 1, .all = 1, .doneHere = 0, .faults = 1, .elapsed = milliseconds(0)}),
      "1 of 1 inference, 1 fault");
}

// 50 of them in 10 s; 100 were done before, and 350 are left.
TEST(Console, ReckonsWithWhatIsDoneHere) {
  EXPECT_EQ(
      ProgressText(
          {.done = 150, .all = 500, .doneHere = 50, .faults = 2, .elapsed = milliseconds(10000)}),
      "150 of 500 inferences, 5.0/s, 1:10 left, 2 faults");
}

TEST(Console, DoesNotReckonBelowNothing) {
  EXPECT_EQ(ProgressText(
                {.done = 7, .all = 5, .doneHere = 7, .faults = 0, .elapsed = milliseconds(7000)}),
            "7 of 5 inferences, 1.0/s, 0:00 left");
}

}  // namespace
