// Runs in which the command and its model part, and nobody has decided yet. Not part of the suite;
// --gtest_also_run_disabled_tests shows them.
#include <gtest/gtest.h>

#include "e2e/compare_run.h"

namespace e2e {
namespace {

// A stride counts in 32 bits with a sign and is rounded down to whole floats. Down from -2 is -4,
// so that of the second to the fourth row only the end lies in the block; the command takes 0 and
// lays all rows over each other. Strides from -1 to -3 are the only ones that show it.
TEST(DisputedRuns, DISABLED_RoundANegativeRpnStrideDown) {
  RunPlan plan;
  plan.words = {"-m",        "model.om", "-i",  "list.txt", "-j",
                "vorn.json", "-o",       "out", "-r",       "rpn.txt"};
  plan.files = {{"model.om", "an image"},
                {"vorn.json", "{}"},
                {"list.txt", "a\n"},
                {"a", "0123456789abcdef"},
                {"rpn.txt", "1 2 3 4 5 6 7 8 9 10 11 12"}};
  plan.inputs = {{{"image", {1, 4}, 0, 16, 16, 0}, {}, {}},
                 {{"rpn", {4, 3}, 0, 0xFFFFFFFE, 48, 0}, {}, {}},
                 {{"task", {32}, 4, 16, 32, 0}, {}, {}},
                 {{"work", {64}, 4, 16, 64, 0}, {}, {}}};
  const std::string difference = PlayAndCompare(plan);
  if (!difference.empty()) ADD_FAILURE() << difference;
}

}  // namespace
}  // namespace e2e
