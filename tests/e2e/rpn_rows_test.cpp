// Rows of thresholds that do not follow each other: they overlap, or run backwards.
#include <gtest/gtest.h>

#include "e2e/compare_run.h"

namespace e2e {
namespace {

/// A detection model whose thresholds, three classes of them, lie `stride` bytes apart.
RunPlan ThreeClasses(uint64_t stride) {
  RunPlan plan;
  plan.words = {"-m",        "model.om", "-i",  "list.txt", "-j",
                "vorn.json", "-o",       "out", "-r",       "rpn.txt"};
  plan.files = {{"model.om", "an image"},
                {"vorn.json", "{}"},
                {"list.txt", "a\n"},
                {"a", "0123456789abcdef"},
                {"rpn.txt", "1 2 3 4 5 6 7 8 9 10 11 12"}};
  plan.inputs = {{{"image", {1, 4}, 0, 16, 16, 0}, {}, {}},
                 {{"rpn", {4, 3}, 0, stride, 48, 0}, {}, {}},
                 {{"task", {32}, 4, 16, 32, 0}, {}, {}},
                 {{"work", {64}, 4, 16, 64, 0}, {}, {}}};
  return plan;
}

TEST(RpnRows, KeepTheLaterClassWhereTheyOverlap) {
  for (const uint64_t stride : {4, 8, 11}) {
    EXPECT_EQ(PlayAndCompare(ThreeClasses(stride)), "") << stride;
  }
}

TEST(RpnRows, StartAtANegativeStrideRoundedDown) {
  // 32 bits with a sign: down from -2 is -4, so only the ends of the later rows lie in the block.
  for (const uint64_t stride : {0xFFFFFFFE, 0xFFFFFFFC, 0xFFFFFFF0}) {
    EXPECT_EQ(PlayAndCompare(ThreeClasses(stride)), "") << stride;
  }
}

}  // namespace
}  // namespace e2e
