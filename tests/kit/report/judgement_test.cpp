#include "kit/report/judgement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "kit/common/fault.h"
#include "kit/json/json.h"
#include "kit/judge/verdict.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

Verdict WrongVerdict() {
  OutputVerdict output;
  output.name = "a/b";
  output.expectedName = "c";
  output.shape = {1, 3};
  output.rules = RulesFor({}, output.name, ElementType::kFloat32, {});
  CensusTaker taker(output.rules.tolerance.tolerance, 5);
  taker.Take(std::vector<float>{1, 2, NAN}, std::vector<float>{1, 2.5F, 3});
  output.census = taker.Result();
  output.samples.push_back({0, true, 0, 0.25, 0.125, 1, 5});
  output.samples.push_back({4, false, 2, 0.5, 0.25, 0.75, 6});
  output.wrong.push_back({4, {"1 NaN where a number is expected"}});
  output.notJudged.push_back({9, {"unreadable"}, true});
  output.worst.push_back({4, {2, NAN, 3, INFINITY}});
  output.causes.push_back({4, {{"stale", "it is the output of the sample before", 0.9}}});
  output.stretches = {{NeighbourPattern::kBefore, {4}, {5, 6}, {7}}};
  output.agreement = {.items = 2, .top1 = 1, .top5 = 2, .pairs = {{{7, 2}, 1}, {{3, 3}, 4}}};
  Verdict verdict;
  verdict.actualPath = "run";
  verdict.expectedPath = "reference";
  verdict.samples = 2;
  verdict.outputs = {output};
  verdict.missing.push_back({3, false, "nothing is expected of it"});
  verdict.accuracy.push_back({"a/b", "top 1", 0.5, NAN});
  verdict.remarks = {"a remark"};
  verdict.command = {"vorn", "judge", "run"};
  verdict.map = R"({"schema": 1, "samples": "index"})";
  return verdict;
}

// What judge writes is what is read.
TEST(ParseJudgement, ReadsWhatJudgeWrites) {
  const KeptJudgement kept = ParseJudgement(VerdictJson(WrongVerdict()), "run/verdict.json");
  const ReportJudgement& judgement = kept.facts;
  EXPECT_EQ(judgement.path, "run/verdict.json");
  EXPECT_EQ(judgement.status, 3);
  EXPECT_EQ(judgement.expected, "reference");
  EXPECT_EQ(judgement.missingSamples, 1U);
  EXPECT_EQ(judgement.missing.at(0).side, "expected");
  EXPECT_THAT(judgement.command, ElementsAre("vorn", "judge", "run"));
  EXPECT_TRUE(std::isnan(judgement.accuracy.at(0).expected));
  EXPECT_THAT(kept.map, HasSubstr("\"samples\":\"index\""));
  ASSERT_THAT(judgement.outputs, SizeIs(1));
  const ReportOutput& output = judgement.outputs[0];
  EXPECT_EQ(output.name, "a/b");
  EXPECT_EQ(output.expectedName, "c");
  EXPECT_EQ(output.verdict, ReportVerdict::kWrong);
  EXPECT_EQ(output.type, "float32");
  EXPECT_THAT(output.shape, ElementsAre(1, 3));
  EXPECT_EQ(output.samples, 2U);
  EXPECT_EQ(output.wrongSamples, 1U);
  EXPECT_THAT(output.columns.sample, ElementsAre(0, 4));
  EXPECT_THAT(output.columns.expectedSample, ElementsAre(5, 6));
  EXPECT_THAT(output.columns.isWrong, ElementsAre(0, 1));
  EXPECT_THAT(output.columns.rmse, ElementsAre(0.125, 0.25));
  ASSERT_THAT(output.wrong, SizeIs(1));
  EXPECT_EQ(output.wrong[0].causes.at(0).id, "stale");
  ASSERT_THAT(output.stretches, SizeIs(1));
  EXPECT_EQ(output.stretches[0].pattern, NeighbourPattern::kBefore);
  EXPECT_THAT(output.stretches[0].wrong, ElementsAre(4));
  EXPECT_THAT(output.stretches[0].undecided, ElementsAre(5, 6));
  EXPECT_THAT(output.stretches[0].right, ElementsAre(7));
  EXPECT_THAT(output.notJudged, SizeIs(1));
  EXPECT_TRUE(std::isnan(output.worst.at(0).actual));
  EXPECT_EQ(output.agreement->top5, 2U);
  EXPECT_EQ(output.confusionItems, 5U);
  EXPECT_EQ(output.confusion.at(0).expectedClass, 3U);
  EXPECT_EQ(output.confusion.at(1).actualClass, 2U);
  EXPECT_FALSE(output.census.empty());
  for (const ReportMeasure& measure : output.census) {
    if (measure.name == "elements") {
      EXPECT_TRUE(measure.isCount && measure.value == 3);
    }
    if (measure.name == "maxAbs") {
      EXPECT_TRUE(!measure.isCount && measure.value == 0.5);
    }
  }
  EXPECT_THAT(output.spreads, SizeIs(3));
}

constexpr const char* kLeast =
    R"({"schema": 1, "status": 0, "actual": "a", "expected": "b", "samples": 1, "outputs": [)";

// Neither columns nor anything else that came later.
TEST(ParseJudgement, ReadsAVerdictOfAnOlderVersion) {
  const KeptJudgement kept = ParseJudgement(
      std::string(kLeast) + R"({"name": "x", "verdict": "right"}]})", "verdict.json");
  ASSERT_THAT(kept.facts.outputs, SizeIs(1));
  EXPECT_EQ(kept.facts.outputs[0].verdict, ReportVerdict::kRight);
  EXPECT_THAT(kept.facts.outputs[0].columns.sample, IsEmpty());
  EXPECT_EQ(kept.map, "");
}

TEST(ParseJudgement, RefusesAnotherSchema) {
  for (const char* schema : {"0", "2", "\"1\"", "null"}) {
    std::string text = std::string(kLeast) + "]}";
    text.replace(text.find(": 1") + 2, 1, schema);
    try {
      (void)ParseJudgement(text, "");
      FAIL() << schema;
    } catch (const JsonError& error) {
      EXPECT_EQ(std::string(error.what()),
                "its schema is " + std::string(schema) + ", and this program reads 1");
    }
  }
}

TEST(ParseJudgement, RefusesWhatIsNone) {
  EXPECT_THROW((void)ParseJudgement("{}", ""), JsonError);
  EXPECT_THROW((void)ParseJudgement(std::string(kLeast) + "{}]}", ""), JsonError);
  EXPECT_THROW((void)ParseJudgement(std::string(kLeast) + R"({"name": "x", "verdict": "right",
      "columns": {"sample": [1], "isRight": [], "outside": [1], "maxAbs": [1], "rmse": [1],
      "cosine": [1]}}]})",
                                    ""),
               JsonError);
  EXPECT_THROW((void)ParseJudgement(std::string(kLeast) + R"({"name": "x", "verdict": "right",
      "agreement": {"items": 1, "top1": 1, "top5": 1, "pairs": [[1, 2]]}}]})",
                                    ""),
               JsonError);
}

TEST(ParseJudgement, KeepsTheTensorsThatTellSomething) {
  std::string tensors;
  constexpr size_t kMany = 3 * kMostReportTensors;
  for (size_t i = 0; i < kMany; ++i) {
    tensors += (i == 0 ? "" : ",") + std::string(R"({"name": "t)") + std::to_string(i) +
               R"(", "verdict": "wrong"})";
  }
  const KeptJudgement kept =
      ParseJudgement(std::string(kLeast) + R"(], "inside": {"order": "o", "tensors": [)" + tensors +
                         R"(], "begin": {"name": "t1001", "place": 1001},
             "greatest": {"name": "x", "place": 99999999},
             "unpaired": [{"name": "u", "side": "actual"}]}})",
                     "");
  const ReportInside& inside = *kept.facts.inside;
  EXPECT_LE(inside.tensors.size(), kMostReportTensors);
  EXPECT_EQ(inside.leftOut, kMany - inside.tensors.size());
  EXPECT_EQ(inside.tensors.at(*inside.begin).name, "t1001");
  EXPECT_EQ(inside.tensors.back().name, "t" + std::to_string(kMany - 1));
  EXPECT_FALSE(inside.greatest.has_value());
  EXPECT_THAT(inside.unpaired, ElementsAre("'u' is on the actual side only"));
}

// Whoever opens a sample asks for the tensor at the place.
TEST(ParseJudgement, NamesNoPlaceWhereNoTensorIs) {
  for (const char* tensors : {"[]", R"([{"name":"x"}])"}) {
    const KeptJudgement kept = ParseJudgement(
        R"({"schema":1,"status":6,"actual":"a","expected":"e","samples":1,"outputs":[],"inside":{)"
        R"("order":"o","unpaired":[],"begin":{"name":"x","place":1},"greatest":{"name":"x",)"
        R"("place":1},"largestStep":{"name":"x","place":1,"behind":"y"},"tensors":)" +
            std::string(tensors) + "}}",
        "v");
    ASSERT_TRUE(kept.facts.inside);
    EXPECT_FALSE(kept.facts.inside->begin);
    EXPECT_FALSE(kept.facts.inside->greatest);
    EXPECT_FALSE(kept.facts.inside->largestStep);
  }
}

TEST(ReadJudgement, NamesTheFile) {
  const support::TempDir folder;
  support::WriteFile(folder.Path() / "verdict.json", "[");
  try {
    (void)ReadJudgement((folder.Path() / "verdict.json").string());
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("verdict.json"));
  }
}

}  // namespace
}  // namespace vorn::kit
