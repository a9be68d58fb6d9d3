#include "output/dump_names.h"

#include <gtest/gtest.h>

namespace vorn::run {
namespace {

TEST(FileNameOfOutput, ReplacesWhatAFileNameCannotHold) {
  EXPECT_EQ(FileNameOfOutput("prob"), "prob");
  EXPECT_EQ(FileNameOfOutput("a.b"), "a_b");
  EXPECT_EQ(FileNameOfOutput("x/y\\z"), "x_y_z");
  EXPECT_EQ(FileNameOfOutput("..:0 "), "__:0 ");
}

TEST(FileNameOfOutput, NamesAnOutputWithoutName) { EXPECT_EQ(FileNameOfOutput(""), "output"); }

TEST(DuplicateCounter, CountsEachNameFromZero) {
  DuplicateCounter duplicates;
  EXPECT_EQ(duplicates.Next("a"), 0U);
  EXPECT_EQ(duplicates.Next("b"), 0U);
  EXPECT_EQ(duplicates.Next("a"), 1U);
  EXPECT_EQ(duplicates.Next("a"), 2U);
}

TEST(InferenceFolder, JoinsThePathAsItIs) {
  EXPECT_EQ(InferenceFolder("out", 0), "out/0");
  EXPECT_EQ(InferenceFolder("out/", 12), "out//12");
  EXPECT_EQ(InferenceFolder("", 0), "/0");
  EXPECT_EQ(InferenceFolder("out", 0U - 1U), "out/4294967295");
}

TEST(DumpBaseName, JoinsFolderNameDuplicateAndTime) {
  EXPECT_EQ(DumpBaseName("out/0", "prob", 0, 1699999999123456), "out/0/prob.0.1699999999123456");
  EXPECT_EQ(DumpBaseName("/0", "a_b", 18446744073709551615U, 0), "/0/a_b.18446744073709551615.0");
}

}  // namespace
}  // namespace vorn::run
