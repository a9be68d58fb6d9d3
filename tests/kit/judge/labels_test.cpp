#include "kit/judge/labels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using Values = std::vector<float>;

std::string Refusal(const std::string& text) {
  try {
    (void)ParseLabels(text, "the labels 'l'", ".");
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "taken";
}

std::string RefusalOfOutput(const std::string& members) {
  return Refusal(R"({"schema": 1, "outputs": [{"output": "o")" + members + "}]}");
}

TEST(ParseLabels, ReadsAClassALine) {
  const auto labels = ParseLabels("7\n2\r\n10", "l", ".");
  ASSERT_EQ(labels.size(), 1U);
  EXPECT_EQ(labels[0].output, "");
  EXPECT_EQ(labels[0].classes, (std::vector<uint64_t>{7, 2, 10}));
}

TEST(ParseLabels, ReadsJson) {
  const auto labels = ParseLabels(R"({"schema": 1, "outputs": [
      {"output": "a", "classes": [1, 2]},
      {"output": "b", "masks": "m.npy", "ignore": 255},
      {"output": "c", "boxes": [[[0, 1, 2, 3.5, 4]], []]}]})",
                                  "l", "folder");
  ASSERT_EQ(labels.size(), 3U);
  EXPECT_EQ(labels[0].classes.size(), 2U);
  EXPECT_EQ(labels[1].masksPath, "folder/m.npy");
  EXPECT_EQ(labels[1].ignored, 255U);
  ASSERT_EQ(labels[2].boxes.size(), 2U);
  EXPECT_EQ(labels[2].boxes[0][0].bottom, 3.5);
  EXPECT_EQ(labels[2].boxes[0][0].label, 4);
}

TEST(ParseLabels, TakesMasksFromAnywhere) {
  const auto labels = ParseLabels(
      R"({"schema": 1, "outputs": [{"output": "b", "masks": "/data/m.npy"}]})", "l", "folder");
  EXPECT_EQ(labels[0].masksPath, "/data/m.npy");
  EXPECT_EQ(labels[0].ignored, std::nullopt);
}

TEST(ParseLabels, RefusesWhatItDoesNotKnow) {
  EXPECT_THAT(Refusal(""), HasSubstr("the labels 'l': there is nothing in it"));
  EXPECT_THAT(Refusal("1\nseven\n"), HasSubstr("line 2 is 'seven', and no number of a class"));
  EXPECT_THAT(Refusal("1\n\n2\n"), HasSubstr("line 2 is ''"));
  EXPECT_THAT(Refusal(R"({"schema": 2, "outputs": []})"),
              HasSubstr("its schema is 2, and this program reads 1"));
  EXPECT_THAT(RefusalOfOutput(""), HasSubstr("one of: classes, masks, boxes"));
  EXPECT_THAT(RefusalOfOutput(R"(, "classes": [], "boxes": [])"), HasSubstr("one of: "));
  EXPECT_THAT(RefusalOfOutput(R"(, "classes": [], "clases": 1)"), HasSubstr("no key 'clases'"));
  EXPECT_THAT(RefusalOfOutput(R"(, "boxes": [[[1, 2, 3, 4]]])"), HasSubstr("needs five numbers"));
  EXPECT_THAT(RefusalOfOutput(R"(, "boxes": [[[5, 0, 3, 4, 0]]])"), HasSubstr("before it begins"));
  EXPECT_THAT(RefusalOfOutput(R"(, "boxes": [[["NaN", 0, 3, 4, 0]]])"),
              HasSubstr("before it begins"));
}

OutputLabels Classes(std::vector<uint64_t> classes) {
  OutputLabels labels;
  labels.classes = std::move(classes);
  return labels;
}

TEST(LabelJudge, ComparesBothSidesOverABatch) {
  const OutputLabels labels = Classes({9, 9, 1, 0});
  LabelJudge judge(labels);
  // Sample 1 has items 2 and 3.
  judge.Take(1, 2, Values{0, 1, 0, 1}, Values{0, 1, 1, 0});
  const auto result = judge.Result("prob");
  EXPECT_EQ(result[0].output, "prob");
  EXPECT_EQ(result[0].metric, "top 1");
  EXPECT_EQ(result[0].actual, 0.5);
  EXPECT_EQ(result[0].expected, 1);
  EXPECT_THROW(judge.Take(2, 2, Values{0, 1, 0, 1}, Values{0, 1, 1, 0}), Fault);
}

TEST(LabelJudge, ReadsMasksSampleBySample) {
  const support::TempDir folder;
  OutputLabels labels;
  labels.kind = OutputLabels::Kind::kMasks;
  labels.masksPath = folder.Path() / "m.npy";
  const std::string head = "{'descr': '|u1', 'fortran_order': False, 'shape': (2, 1, 2), }";
  support::WriteFile(labels.masksPath, std::string("\x93NUMPY\x01\0", 8) +
                                           static_cast<char>(head.size()) + '\0' + head +
                                           std::string("\0\0\0\1", 4));
  LabelJudge judge(labels);
  judge.Take(1, 1, Values{0, 1}, Values{0, 0});
  EXPECT_EQ(judge.Result("m")[0].actual, 1);
  EXPECT_EQ(judge.Result("m")[0].expected, 0.5);
  EXPECT_THROW(judge.Take(2, 1, Values{0, 1}, Values{0, 0}), Fault);
  EXPECT_THROW(judge.Take(0, 1, Values{0, 1, 2}, Values{0, 0, 0}), Fault);
}

TEST(LabelJudge, CountsBoxes) {
  OutputLabels labels;
  labels.kind = OutputLabels::Kind::kBoxes;
  labels.boxes = {{{0, 0, 10, 10, 3, 0}}};
  LabelJudge judge(labels);
  judge.Take(0, 1, Values{0, 0, 10, 10, 0.9F, 3}, Values{50, 0, 60, 10, 0.9F, 3});
  EXPECT_NEAR(judge.Result("b")[0].actual, 1, 1e-12);
  EXPECT_EQ(judge.Result("b")[0].expected, 0);
  EXPECT_THROW(judge.Take(0, 1, Values{1}, Values{1}), Fault);
  EXPECT_THROW(judge.Take(1, 1, Values{}, Values{}), Fault);
}

}  // namespace
}  // namespace vorn::kit
