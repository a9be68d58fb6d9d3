#include "kit/judge/floor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "kit/judge/judge.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using support::Bytes;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using Values = std::vector<float>;

Census CensusOf(const Values& actual, const Values& expected) {
  CensusTaker taker(Tolerance{}, 0);
  taker.Take(actual, expected);
  return taker.Result();
}

FloorComparison Compared(const Values& actual, const Values& floor, const Values& expected) {
  return {"prob", 1, CensusOf(actual, expected), CensusOf(floor, expected), ""};
}

TEST(TimesFloor, IsTheRatioOfTheRootMeanSquares) {
  std::mt19937 random(3);
  std::normal_distribution<float> normal;
  Values expected(500);
  Values actual(500);
  Values floor(500);
  double own = 0;
  double least = 0;
  for (size_t i = 0; i < expected.size(); ++i) {
    expected[i] = normal(random);
    actual[i] = expected[i] + normal(random);
    floor[i] = expected[i] + 0.3F * normal(random);
    own += std::pow(static_cast<double>(actual[i]) - static_cast<double>(expected[i]), 2);
    least += std::pow(static_cast<double>(floor[i]) - static_cast<double>(expected[i]), 2);
  }
  EXPECT_NEAR(TimesFloor(CensusOf(actual, expected), CensusOf(floor, expected)),
              std::sqrt(own / least), 1e-9);
}

TEST(TimesFloor, HasAnAnswerWhereNothingIsLost) {
  EXPECT_EQ(TimesFloor(CensusOf({1}, {1}), CensusOf({1}, {1})), 1);
  EXPECT_EQ(TimesFloor(CensusOf({2}, {1}), CensusOf({1}, {1})), INFINITY);
  EXPECT_EQ(TimesFloor(CensusOf({1}, {1}), CensusOf({2}, {1})), 0);
  EXPECT_TRUE(std::isnan(TimesFloor(CensusOf({NAN}, {1}), CensusOf({2}, {1}))));
}

TEST(FloorComparison, IsWithinUpToTheRatio) {
  const FloorComparison one = Compared({1.25F, 2}, {1.125F, 2}, {1, 2});
  EXPECT_EQ(one.Answer(2), FloorAnswer::kWithin);
  EXPECT_EQ(one.Answer(1.999), FloorAnswer::kWorse);
  EXPECT_EQ(FloorComparison{}.Answer(2), FloorAnswer::kNotMeasured);
}

TEST(FloorComparison, IsWorseWithNaNThatTheFloorHasNot) {
  EXPECT_EQ(Compared({NAN, 2}, {1.5F, 2}, {1, 2}).Answer(1.25), FloorAnswer::kWorse);
  EXPECT_EQ(Compared({NAN, 2}, {NAN, 2}, {1, 2}).Answer(1.25), FloorAnswer::kWithin);
  EXPECT_EQ(Compared({NAN}, {INFINITY}, {1}).Answer(1.25), FloorAnswer::kNotMeasured);
}

TEST(FloorText, AnswersInWords) {
  FloorReport report{"rounded", "int8", 1.25, {}};
  report.outputs = {Compared({1.5F}, {1.5F}, {1}),
                    Compared({2.5F, 1}, {1.5F, 1}, {1, 1}),
                    Compared({1, NAN}, {1, 1}, {1, 1}),
                    {"odd", 0, {}, {}, "sample 3, gone"}};
  const std::string text = FloorText(report);
  EXPECT_THAT(text,
              StartsWith("output  floor         samples     RMSE  floor's RMSE  times  SNR dB  "
                         "floor's SNR dB\n"
                         "prob    within              1      0.5           0.5      1       6  "
                         "             6\n"
                         "prob    worse               1  1.06066      0.353553      3    -0.5  "
                         "             9\n"));
  EXPECT_THAT(text, HasSubstr("\nprob: within what int8 has to lose: RMSE 1 times that of the "
                              "floor\n"));
  EXPECT_THAT(text, HasSubstr("\nprob: worse than int8 has to be: RMSE 3 times that of the "
                              "floor\n"));
  EXPECT_THAT(text, HasSubstr("RMSE 1 times that of the floor, and 1 NaN or infinities on one side "
                              "only, the floor has 0\n"));
  EXPECT_THAT(text, HasSubstr("\nodd: could not be held against the floor (left out: sample 3, "
                              "gone)\n"));
  EXPECT_THAT(text, HasSubstr("the floor is 'rounded'; up to 1.25 times its RMSE is within\n"));
  report.outputs = {Compared({1, -1, 1}, {1, -1, 1}, {-1, 1, 1})};
  EXPECT_THAT(
      FloorText(report),
      HasSubstr("RMSE 1 times that of the floor; the floor itself has lost this output (SNR "
                "-4.3 dB), and to be as good says nothing\n"));
  report.precision = "";
  EXPECT_THAT(FloorText(report), HasSubstr("within what the floor has to lose"));
}

class FloorJudgement : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  void Dump(const std::string& sample, const Values& values, const std::string& name = "prob") {
    support::WriteFile(Path(sample + "/" + name + ".0.17.bin"), Bytes(values));
  }

  Verdict Run() {
    request_.actual = FindTensors(Path("actual"));
    request_.expected = FindTensors(Path("expected"));
    request_.floor = FindTensors(Path("floor"));
    return Judge(request_);
  }

  JudgeRequest request_;
  support::TempDir folder_;
};

TEST_F(FloorJudgement, StandsBesideTheVerdict) {
  for (const int sample : {0, 1}) {
    const std::string folder = "/" + std::to_string(sample);
    Dump("actual" + folder, {1.5F, 2});
    Dump("floor" + folder, {1.25F, 2});
    Dump("expected" + folder, {1, 2});
  }
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDiffers);
  ASSERT_THAT(verdict.floor->outputs, SizeIs(1));
  EXPECT_EQ(verdict.floor->outputs[0].samples, 2U);
  EXPECT_EQ(TimesFloor(verdict.floor->outputs[0].actual, verdict.floor->outputs[0].floor), 2);
  EXPECT_THAT(VerdictText(verdict), HasSubstr("prob: worse than the floor has to be"));
}

// Else the sides would be measured over different samples.
TEST_F(FloorJudgement, LeavesOutSamplesThatTheFloorHasNot) {
  Dump("actual/0", {1.5F});
  Dump("actual/1", {9});
  Dump("floor/0", {1.5F});
  Dump("expected/0", {1});
  Dump("expected/1", {1});
  const FloorComparison one = Run().floor->outputs[0];
  EXPECT_EQ(one.samples, 1U);
  EXPECT_EQ(one.Answer(1), FloorAnswer::kWithin);
  EXPECT_EQ(one.leftOut, "sample 1, the floor has no sample 1");
  Dump("floor/1", {1, 2});
  EXPECT_THAT(Run().floor->outputs[0].leftOut, HasSubstr("the floor has 2 elements, and 1 are"));
  support::WriteFile(Path("floor/1/prob.0.17.bin"), "12345");
  EXPECT_THAT(Run().floor->outputs[0].leftOut, HasSubstr("has 5 bytes"));
}

TEST_F(FloorJudgement, LeavesOutSamplesThatAreNotDone) {
  Dump("actual/0", {1.5F});
  Dump("actual/1", {9});
  Dump("floor/0", {1.5F});
  Dump("floor/1", {9});
  Dump("expected/0", {1});
  Dump("expected/1", {1});
  (void)Run();
  request_.floor->samples[1].absence = "it was put aside";
  const FloorComparison one = Judge(request_).floor->outputs[0];
  EXPECT_EQ(one.samples, 1U);
  EXPECT_EQ(one.leftOut, "sample 1, of the floor: it was put aside");
}

TEST_F(FloorJudgement, TakesTheNamesAndSamplesOfTheExpectedSide) {
  Dump("actual/0", {4, 3}, "out");
  Dump("floor/7", {1, 2.5F, 3, 4.5F});
  Dump("expected/7", {1, 2, 3, 4});
  Dump("actual/0", {1, 3, 2.5F, 4}, "out");  // [2, 2], the other way round
  request_.map = ParseMap(R"({"schema": 1, "samples": [[0, 7]], "outputs": [
      {"actual": {"name": "out"}, "expected": {"name": "prob", "shape": [2, 2]},
       "order": [1, 0]}]})",
                          "the map");
  const FloorComparison one = Run().floor->outputs[0];
  EXPECT_EQ(one.samples, 1U) << one.leftOut;
  EXPECT_NEAR(TimesFloor(one.actual, one.floor), std::sqrt(0.5), 1e-12);
}

TEST_F(FloorJudgement, TakesOneArrayForAllSamples) {
  Dump("actual/0", {1.5F});
  Dump("actual/1", {2});
  Dump("floor/0", {1.25F});
  Dump("floor/1", {2});
  support::WriteFile(Path("expected/prob.bin"), Bytes<float>({1, 2}));
  const FloorComparison one = Run().floor->outputs[0];
  EXPECT_EQ(one.samples, 2U) << one.leftOut;
  EXPECT_EQ(TimesFloor(one.actual, one.floor), 2);
}

TEST_F(FloorJudgement, DecidesWhereARuleAsksForIt) {
  Dump("actual/0", {1.5F});
  Dump("floor/0", {1.25F});
  Dump("expected/0", {1});
  const auto judged = [&](const std::string& bound) {
    request_.rules = ParseRules(R"({"schema": 1, "rules": [
        {"output": "*", "metric": "overFloor", "atMost": )" +
                                    bound + "}]}",
                                "the rules");
    return Run();
  };
  EXPECT_EQ(judged("2").Status(), ExitStatus::kDone);
  const Verdict worse = judged("1.5");
  EXPECT_EQ(worse.Status(), ExitStatus::kDiffers);
  EXPECT_EQ(worse.outputs[0].wrong[0].reasons[0], "overFloor is 2, and has to be at most 1.5");
  std::filesystem::rename(Path("floor/0"), Path("floor/3"));
  EXPECT_THAT(judged("2").outputs[0].wrong[0].reasons[0],
              HasSubstr("the floor has nothing to compare it with"));
  request_.floor.reset();
  try {
    (void)Judge(request_);
    FAIL() << "no fault";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("give --floor"));
  }
}

// Nothing is left of what was expected: 1.0 times such a floor is as good as noise.
TEST_F(FloorJudgement, CannotJudgeByAFloorThatLostTheOutput) {
  for (const int sample : {0, 1}) {
    const std::string folder = "/" + std::to_string(sample);
    Dump("actual" + folder, {-1, 1, 1});
    Dump("floor" + folder, {1, -1, 1});
    Dump("expected" + folder, {-1, 1, -1});
  }
  const auto judged = [&](const std::string& others) {
    request_.rules = ParseRules(
        R"({"schema": 1, "rules": [{"output": "*", "metric": "overFloor", "atMost": 1.25})" +
            others + "]}",
        "the rules");
    return Run();
  };
  const Verdict alone = judged("");
  EXPECT_EQ(alone.Status(), ExitStatus::kNothing);
  EXPECT_THAT(alone.outputs[0].wrong, SizeIs(0));
  ASSERT_THAT(alone.outputs[0].notJudged, SizeIs(2));
  EXPECT_EQ(alone.outputs[0].notJudged[1].sample, 1U);
  EXPECT_EQ(alone.outputs[0].notJudged[1].reasons[0],
            "no rule but overFloor is about it, and the floor itself has lost this output (SNR -6 "
            "dB); bound another metric, top1 or snrDb, or measure the floor's ranges anew");
  EXPECT_THAT(VerdictText(alone), HasSubstr("prob    not judged"));
  EXPECT_THAT(VerdictText(alone), HasSubstr("1 output: 0 wrong, 1 not judged everywhere"));
  EXPECT_THAT(VerdictJson(alone), HasSubstr(R"("verdict": "notJudged")"));
  EXPECT_THAT(VerdictJUnit(alone), HasSubstr("<error message=\"could not be judged\">"));

  // What another rule judged is judged.
  EXPECT_EQ(judged(R"(, {"output": "prob", "metric": "maxAbs", "atMost": 2})").Status(),
            ExitStatus::kDone);
  EXPECT_EQ(judged(R"(, {"output": "prob", "atol": 2})").Status(), ExitStatus::kDone);
  EXPECT_EQ(judged(R"(, {"output": "prob", "atol": 1})").Status(), ExitStatus::kDiffers);
}

TEST_F(FloorJudgement, IsWorseAndIsEqualBesideALostFloorAsWell) {
  Dump("floor/0", {1, -1, 1});
  Dump("expected/0", {-1, 1, -1});
  request_.rules = ParseRules(
      R"({"schema": 1, "rules": [{"output": "*", "metric": "overFloor", "atMost": 1.25}]})",
      "the rules");
  Dump("actual/0", {9, -9, 9});
  EXPECT_EQ(Run().Status(), ExitStatus::kDiffers);
  Dump("actual/0", {-1, 1, -1});
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
}

// In a picture with nothing in it there is nothing to lose.
TEST_F(FloorJudgement, HasLostAnOutputOnlyOverAllSamples) {
  Dump("actual/0", {0.01F, 0});
  Dump("floor/0", {0, 0.01F});
  Dump("expected/0", {0, 0});
  Dump("actual/1", {1, 2.01F});
  Dump("floor/1", {1, 2.01F});
  Dump("expected/1", {1, 2});
  request_.rules = ParseRules(
      R"({"schema": 1, "rules": [{"output": "*", "metric": "overFloor", "atMost": 1.25}]})",
      "the rules");
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
}

}  // namespace
}  // namespace vorn::kit
