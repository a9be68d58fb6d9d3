#include "kit/judge/inside.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "kit/common/file_identity.h"
#include "kit/judge/judge.h"
#include "kit/model/model_json.h"
#include "kit/run/run_directory.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using support::Bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Values = std::vector<float>;

InsideTensor TensorOf(const std::string& name, const Values& actual, const Values& expected,
                      InsideState state = InsideState::kRight) {
  CensusTaker taker(Tolerance{.atol = 0.25}, 0);
  taker.Take(actual, expected);
  return {name, state, taker.Result()};
}

// A tensor whose SNR is 20 · log10(signal / noise).
InsideTensor Noisy(const std::string& name, float signal, float noise,
                   InsideState state = InsideState::kRight) {
  return TensorOf(name, {signal + noise}, {signal}, state);
}

TEST(InsideTensor, MeasuresAllSamplesAgainstTheSignal) {
  std::mt19937 random(5);
  std::normal_distribution<float> normal;
  Values expected(1000);
  Values actual(1000);
  double noise = 0;
  double signal = 0;
  size_t outside = 0;
  for (size_t i = 0; i < expected.size(); ++i) {
    expected[i] = normal(random);
    actual[i] = expected[i] + 0.2F * normal(random);
    const double difference = static_cast<double>(actual[i]) - static_cast<double>(expected[i]);
    noise += difference * difference;
    signal += static_cast<double>(expected[i]) * static_cast<double>(expected[i]);
    outside += std::abs(difference) > 0.25 ? 1 : 0;
  }
  const InsideTensor tensor = TensorOf("t", actual, expected);
  EXPECT_NEAR(tensor.RelativeRmse(), std::sqrt(noise / signal), 1e-9);
  EXPECT_NEAR(tensor.census.CappedSnr(), 10 * std::log10(signal / noise), 1e-6);
  EXPECT_DOUBLE_EQ(tensor.OutsideShare(), static_cast<double>(outside) / 1000);
}

TEST(InsideTensor, HasNumbersWhereThereIsNoSignal) {
  EXPECT_EQ(TensorOf("t", {1}, {0}).RelativeRmse(), INFINITY);
  EXPECT_EQ(TensorOf("t", {0}, {0}).RelativeRmse(), 0);
  EXPECT_TRUE(std::isnan(TensorOf("t", {NAN}, {0}).RelativeRmse()));
  EXPECT_TRUE(std::isnan(InsideTensor{}.OutsideShare()));
}

TEST(Inside, BeginsAtTheFirstWrongTensor) {
  Inside inside;
  inside.tensors = {Noisy("a", 1, 0), Noisy("b", 1, 0.5F, InsideState::kNotJudged),
                    Noisy("c", 1, 0.1F, InsideState::kWrong),
                    Noisy("d", 1, 0.2F, InsideState::kRight),
                    Noisy("e", 1, 0.15F, InsideState::kWrong)};
  EXPECT_EQ(inside.Begin(), 2U);
  EXPECT_EQ(inside.Greatest(), 3U);  // not the one before the difference
  inside.tensors.resize(2);
  EXPECT_EQ(inside.Begin(), std::nullopt);
  EXPECT_EQ(inside.Greatest(), std::nullopt);
}

TEST(Inside, FindsTheLargestStepAsASearchOverAllDoes) {
  std::mt19937 random(9);
  for (int round = 0; round < 200; ++round) {
    Inside inside;
    for (int i = 0; i < 12; ++i) {
      const auto noise = static_cast<float>(random() % 1000) / 500;
      inside.tensors.push_back(random() % 5 == 0 ? TensorOf("n", {NAN}, {1})
                                                 : Noisy("t", 2, noise));
    }
    double most = 0;
    std::optional<std::pair<size_t, size_t>> wanted;
    for (size_t i = 0; i < 12; ++i) {
      for (size_t j = i + 1; j < 12; ++j) {
        bool isBetween = false;  // a tensor that could be measured
        for (size_t k = i + 1; k < j; ++k) {
          isBetween = isBetween || inside.tensors[k].census.finite > 0;
        }
        if (isBetween || inside.tensors[i].census.finite == 0 ||
            inside.tensors[j].census.finite == 0) {
          continue;
        }
        const double fall =
            std::min(inside.tensors[i].census.Snr(), 150.5) - inside.tensors[j].census.Snr();
        if (fall > most) {
          most = fall;
          wanted = {i, j};
        }
      }
    }
    const auto step = inside.LargestStep();
    ASSERT_EQ(step.has_value(), wanted.has_value()) << round;
    if (!step) continue;
    EXPECT_EQ(std::pair(step->before, step->at), *wanted) << round;
  }
}

// Else the first rounding would be a step without end, whatever comes behind it.
TEST(Inside, CountsNoStepBeyondWhatFloatsHold) {
  Inside inside;
  inside.tensors = {Noisy("a", 1, 0), Noisy("b", 1, 0x1p-23F), Noisy("c", 1, 0.5F)};
  const auto step = inside.LargestStep();
  ASSERT_TRUE(step);
  EXPECT_EQ(step->at, 2U);
}

TEST(InsideText, TellsWhereItBeginsAndHowItGrows) {
  Inside inside;
  inside.order = "that of the files";
  inside.tensors = {Noisy("conv1", 1, 0), Noisy("relu1", 1, 0x1p-7F),
                    Noisy("conv2", 1, 0.25F, InsideState::kWrong),
                    Noisy("prob", 1, 0.5F, InsideState::kWrong)};
  inside.unpaired = {{"only here", true}, {"only\tthere", false}};
  EXPECT_EQ(
      InsideText(inside),
      "tensor  name   verdict    max abs  relative RMSE  SNR dB  outside\n"
      "     1  conv1  right            0            0 %   equal      0 %\n"
      "     2  relu1  right    0.0078125        0.781 %    42.1      0 %\n"
      "     3  conv2  WRONG         0.25           25 %      12      0 %\n"
      "     4  prob   WRONG          0.5           50 %       6    100 %\n"
      "\n"
      "on the actual side only: only here\n"
      "on the expected side only: only\\x09there\n"
      "\n"
      "the difference begins at 'conv2' (tensor 3 of 4): the tensors before it are right; its "
      "relative RMSE is 25 %, and it grows to 50 % at 'prob'\n"
      "the largest step is at 'relu1': SNR no difference -> 42.1 dB, behind 'conv1'\n"
      "the order is that of the files\n");
}

TEST(InsideText, DoesNotCallRightWhatWasNotJudged) {
  Inside inside;
  inside.tensors = {Noisy("a", 1, 0), Noisy("b", 1, 0, InsideState::kNotJudged),
                    Noisy("c", 1, 0.5F, InsideState::kWrong)};
  EXPECT_THAT(InsideText(inside),
              HasSubstr("at 'c' (tensor 3 of 3): of 2 tensors before it 1 is not judged, and the "
                        "others are right; its relative RMSE is 50 %, and nowhere behind it more"));
  inside.tensors.resize(2);
  EXPECT_THAT(InsideText(inside), HasSubstr("no tensor that was compared is outside"));
  inside.tensors.clear();
  EXPECT_THAT(InsideText(inside), HasSubstr("nothing was compared\n"));
}

// Two tensors whose RMSE is that of 1 + noise and 1 + floor against 1.
InsideTensor BesideFloor(const std::string& name, float noise, float floor) {
  InsideTensor tensor = Noisy(name, 1, noise, InsideState::kWrong);
  tensor.floor.emplace();
  tensor.floor->samples = 1;
  tensor.floor->actual = tensor.census;
  tensor.floor->floor = Noisy(name, 1, floor).census;
  return tensor;
}

TEST(InsideByFloor, BeginsWhereMoreIsLostThanHasToBe) {
  Inside inside;
  inside.order = "that of the files";
  inside.floor = InsideFloor{.precision = "int8"};
  inside.tensors = {BesideFloor("conv1", 0x1p-6F, 0x1p-6F), BesideFloor("conv2", 0x1p-5F, 0x1p-5F),
                    BesideFloor("conv3", 0x1p-3F, 0x1p-5F), BesideFloor("prob", 0x1p-1F, 0x1p-4F)};
  EXPECT_EQ(inside.Begin(), 2U);
  EXPECT_EQ(inside.Greatest(), 3U);
  EXPECT_EQ(inside.LargestStep()->at, 2U);
  EXPECT_EQ(
      InsideText(inside),
      "tensor  name   verdict  floor    max abs  relative RMSE  SNR dB  floor's SNR dB  times  "
      "outside\n"
      "     1  conv1  WRONG    within  0.015625         1.56 %    36.1            36.1      1      "
      "0 %\n"
      "     2  conv2  WRONG    within   0.03125         3.12 %    30.1            30.1      1      "
      "0 %\n"
      "     3  conv3  WRONG    worse      0.125         12.5 %    18.1            30.1      4      "
      "0 %\n"
      "     4  prob   WRONG    worse        0.5           50 %       6            24.1      8    "
      "100 %\n"
      "\n"
      "what is worse than int8 has to be begins at 'conv3' (tensor 3 of 4): the tensors before it "
      "are within 1.25 times the floor's RMSE; its RMSE is 4 times that of the floor, and it grows "
      "to 8 times at 'prob'\n"
      "the largest step beyond int8 is at 'conv3': SNR 0 -> 12 dB below that of the floor, behind "
      "'conv2'\n"
      "the order is that of the files\n");
  // By the rules it would begin at the first one.
  inside.floor.reset();
  EXPECT_EQ(inside.Begin(), 0U);
}

TEST(InsideByFloor, DoesNotDecideWhatTheFloorHasNot) {
  Inside inside;
  inside.floor = InsideFloor{};
  inside.tensors = {Noisy("a", 1, 0.5F, InsideState::kWrong), BesideFloor("b", 0.5F, 0.25F)};
  EXPECT_EQ(inside.Begin(), 1U);
  EXPECT_THAT(
      InsideText(inside),
      HasSubstr("what is worse than the floor has to be begins at 'b' (tensor 2 of 2): of 1 "
                "tensor before it 1 could not be held against the floor, and the others "
                "are within 1.25 times the floor's RMSE; its RMSE is 2 times that of the "
                "floor, and nowhere behind it more\n"));
  inside.floor->most = 2;
  EXPECT_THAT(InsideText(inside), HasSubstr("no tensor is worse than the floor has to be\n"));
  inside.tensors.resize(1);
  EXPECT_THAT(InsideText(inside), HasSubstr("nothing could be held against the floor\n"));
  EXPECT_EQ(inside.LargestStep(), std::nullopt);
}

// What a person looks for stands on a screen, and how much more there is.
TEST(InsideText, FoldsWhatASeaOfTensorsHides) {
  Inside inside;
  inside.ownOutputs = 2;
  for (int i = 0; i < 300; ++i) {
    const bool isBehind = i >= 150;
    inside.tensors.push_back(Noisy("t" + std::to_string(i), 1, isBehind ? 0.25F : 0x1p-10F,
                                   isBehind ? InsideState::kWrong : InsideState::kRight));
  }
  inside.tensors[220] = Noisy("t220", 1, 2, InsideState::kWrong);
  const std::string text = InsideText(inside);
  for (const int shown : {0, 1, 2, 148, 149, 150, 151, 152, 219, 220, 298, 299}) {
    EXPECT_THAT(text, HasSubstr(" t" + std::to_string(shown) + " "));
  }
  for (const int folded : {3, 147, 153, 218, 221, 297}) {
    EXPECT_THAT(text, Not(HasSubstr(" t" + std::to_string(folded) + " ")));
  }
  EXPECT_THAT(text, HasSubstr("\n        ... 145 more\n"));
  EXPECT_THAT(text, HasSubstr("\n288 of 300 tensors are not shown; --all shows them, and "
                              "verdict.json has them\n"));
  EXPECT_EQ(support::SplitLines(InsideText(inside, true)).size(), 300U + 1 + 1 + 3);
  EXPECT_THAT(InsideText(inside, true), Not(HasSubstr("more")));
  // A table that is no longer than a screen or two stays whole.
  inside.tensors.resize(40);
  EXPECT_THAT(InsideText(inside), Not(HasSubstr("not shown")));
}

TEST(ExposedIn, ReadsTheLineOfTheHostRuntime) {
  EXPECT_EQ(ExposedIn("vorn: vorn_mdl_load_from_mem: exposed 9 tensors\n"), 9U);
  EXPECT_EQ(ExposedIn("noise\nvorn: vorn_mdl_load_from_mem: cut at 'x': 7 of 10 nodes are left; "
                      "exposed 1 tensor\nmore"),
            1U);
  EXPECT_EQ(ExposedIn("vorn: vorn_mdl_load_from_mem: exposed 2 tensors\n"
                      "vorn: vorn_mdl_load_from_mem: exposed 3 tensors and left out 1: 'y'\n"),
            3U);
  for (const char* log : {"", "\n", "exposed 9 tensors", "vorn: vorn_mdl_load_from_mem: cut",
                          "vorn: vorn_mdl_load_from_mem: exposed x tensors",
                          "vorn: vorn_mdl_load_from_mem: exposed 9",
                          "vorn: vorn_mdl_load_from_mem: exposed 99999999999999999999 tensors"}) {
    EXPECT_EQ(ExposedIn(log), std::nullopt) << log;
  }
}

TEST(PrecisionIn, ReadsTheLineOfTheHostRuntime) {
  const std::string line =
      "vorn: vorn_mdl_load_from_mem: rounded 7 weights, 0 inputs and 8 results";
  EXPECT_EQ(PrecisionIn(line + " to bfloat16; exposed 9 tensors\n"), "bfloat16");
  EXPECT_EQ(PrecisionIn(line + " to int8\nmore to come"), "int8");
  EXPECT_EQ(PrecisionIn(line + " to int8"), "int8");
  EXPECT_EQ(PrecisionIn(line + "\nto int8"), "");
  EXPECT_EQ(PrecisionIn("exposed 9 tensors to int8"), "");
}

// ---- Over files ---------------------------------------------------------------------------------

class InsideJudgement : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  void Dump(const std::string& run, const std::string& name, const Values& values,
            int sample = 0) const {
    support::WriteFile(Path(run + "/dumps/" + std::to_string(sample) + "/" + name + ".0.17.bin"),
                       Bytes(values));
  }

  // A run whose model lists these outputs.
  void Describe(const std::string& run, const std::vector<std::string>& outputs,
                const std::string& log = "") const {
    ModelDescription model;
    for (const std::string& name : outputs) {
      TensorDescription output;
      output.role = TensorRole::kOutput;
      output.name = name;
      output.shape = {1};
      output.type = 0;
      model.outputs.push_back(output);
    }
    support::WriteFile(Path(run + "/model.json"), ToJson(model));
    support::WriteFile(Path(run + "/run.json"), "{}");
    if (!log.empty()) support::WriteFile(Path(run + "/errors.txt"), log);
  }

  // A run.json with this configuration.
  void Configure(const std::string& run, const std::string& text) const {
    support::WriteFile(Path("config.json"), text);
    RunFacts facts;
    facts.state = RunState::kDone;
    facts.configuration =
        IdentifyFile(Path("config.json"), "the configuration", ExitStatus::kInput);
    support::WriteFile(Path(run + "/run.json"), ToJson(facts));
  }

  GraphOrder OrderOf(const std::string& run) const {
    return GraphOrderOf(FindTensors(Path(run))).value_or(GraphOrder{});
  }

  Verdict Run() {
    request_.actual = FindTensors(Path("actual"));
    request_.expected = FindTensors(Path("expected"));
    request_.isInside = true;
    return Judge(request_);
  }

  static std::vector<std::string> NamesIn(const Verdict& verdict) {
    std::vector<std::string> names;
    for (const InsideTensor& tensor : verdict.inside->tensors) names.push_back(tensor.name);
    return names;
  }

  static constexpr const char* kLog = "vorn: vorn_mdl_load_from_mem: exposed 2 tensors\n";

  JudgeRequest request_;
  support::TempDir folder_;
};

TEST_F(InsideJudgement, PutsTheModelsOwnOutputsLast) {
  Describe("expected", {"prob", "z/conv", "a.relu"}, kLog);
  Dump("expected", "prob", {1});
  const GraphOrder order = OrderOf("expected");
  EXPECT_TRUE(order.isTold);
  EXPECT_THAT(order.names, ElementsAre("z_conv", "a_relu", "prob"));
}

TEST_F(InsideJudgement, TakesTheOrderFromTheConfigurationWithoutALog) {
  Describe("expected", {"prob", "conv", "relu"});
  Dump("expected", "prob", {1});
  Configure("expected", R"({"model": {"expose": ["relu", "conv"]}})");
  EXPECT_THAT(OrderOf("expected").names, ElementsAre("conv", "relu", "prob"));
  Configure("expected", R"({"model": {"expose": ["prob", "relu"]}})");
  EXPECT_THAT(OrderOf("expected").names, ElementsAre("relu", "prob", "conv"));
  // It names none of the last, does not tell how many those are, or says nothing.
  for (const char* text : {R"({"model": {"expose": ["conv"]}})", R"({"model": {"expose": "all"}})",
                           "{}", R"({"model": 7})", "[]"}) {
    Configure("expected", text);
    EXPECT_THAT(OrderOf("expected").names, ElementsAre("prob", "conv", "relu")) << text;
    EXPECT_FALSE(OrderOf("expected").isTold);
  }
  // It is another one by now.
  Configure("expected", R"({"model": {"expose": ["relu", "conv"]}})");
  support::WriteFile(Path("config.json"), R"({"model": {"expose": ["relu", "c"]}})");
  EXPECT_FALSE(OrderOf("expected").isTold);
}

TEST_F(InsideJudgement, NamesTheFirstTensorOfTheGraphThatDiffers) {
  Describe("expected", {"prob", "z_conv", "a_relu"}, kLog);
  Describe("actual", {"a_relu", "prob", "z_conv"});  // as a compiler likes
  for (const char* side : {"actual", "expected"}) {
    const float wrong = side == std::string("actual") ? 0.25F : 0;
    for (int sample = 0; sample < 2; ++sample) {
      Dump(side, "z_conv", {1, 2}, sample);
      Dump(side, "a_relu", {1, 2 + wrong}, sample);
      Dump(side, "prob", {1, 2 + 2 * wrong}, sample);
    }
  }
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDiffers);
  EXPECT_THAT(NamesIn(verdict), ElementsAre("z_conv", "a_relu", "prob"));
  EXPECT_EQ(verdict.inside->Begin(), 1U);
  EXPECT_EQ(verdict.inside->Greatest(), 2U);
  EXPECT_THAT(verdict.inside->order, HasSubstr("expected side's model.json"));
  EXPECT_EQ(verdict.inside->tensors[1].census.elements, 4U);
  // Causes are looked for where it begins; what is behind it is wrong because of that.
  EXPECT_THAT(verdict.outputs[1].causes, Not(IsEmpty()));
  EXPECT_THAT(verdict.outputs[2].causes, IsEmpty());
  const std::string text = VerdictText(verdict);
  EXPECT_THAT(text, HasSubstr("begins at 'a_relu' (tensor 2 of 3): the tensor before it is right"));
  EXPECT_THAT(text, HasSubstr("\na_relu: float32"));
  EXPECT_THAT(text, Not(HasSubstr("\nprob: float32")));
}

TEST_F(InsideJudgement, LetsTheFloorDecide) {
  Describe("expected", {"prob", "conv", "relu"}, kLog);
  for (const auto& [side, errors] : {std::pair("actual", Values{0.125F, 0.5F, 0.5F}),
                                     {"expected", {0, 0, 0}},
                                     {"floor", {0.125F, 0.125F, 0.25F}}}) {
    Describe(side, {"prob", "conv", "relu"},
             std::string(kLog) + (side == std::string("floor")
                                      ? "vorn: vorn_mdl_load_from_mem: rounded 1 weights to int8\n"
                                      : ""));
    Dump(side, "conv", {1 + errors[0]});
    Dump(side, "relu", {1 + errors[1]});
    Dump(side, "prob", {1 + errors[2]});
  }
  EXPECT_EQ(Run().inside->Begin(), 0U);
  request_.floor = FindTensors(Path("floor"));
  const Verdict verdict = Run();
  EXPECT_THAT(NamesIn(verdict), ElementsAre("conv", "relu", "prob"));
  EXPECT_EQ(verdict.inside->Begin(), 1U);
  EXPECT_EQ(verdict.inside->ownOutputs, 1U);
  EXPECT_THAT(verdict.outputs[0].causes, IsEmpty());
  EXPECT_THAT(verdict.outputs[1].causes, Not(IsEmpty()));
  const std::string text = VerdictText(verdict);
  EXPECT_THAT(text, HasSubstr("what is worse than int8 has to be begins at 'relu'"));
  // Of the outputs of the model alone there is a word more.
  EXPECT_THAT(text, HasSubstr("\nprob: worse than int8 has to be"));
  EXPECT_THAT(text, Not(HasSubstr("\nrelu: worse")));
  EXPECT_THAT(VerdictJson(verdict), HasSubstr("\"decidedBy\": \"floor\""));
}

TEST_F(InsideJudgement, TakesTheOrderOfTheSideThatTellsIt) {
  Describe("actual", {"prob", "z_conv", "a_relu"}, kLog);
  Describe("expected", {"a_relu", "prob", "z_conv"});
  for (const char* side : {"actual", "expected"}) {
    for (const char* name : {"prob", "z_conv", "a_relu"}) Dump(side, name, {1});
  }
  EXPECT_THAT(NamesIn(Run()), ElementsAre("z_conv", "a_relu", "prob"));
  std::filesystem::remove(Path("actual/errors.txt"));
  EXPECT_THAT(NamesIn(Run()), ElementsAre("a_relu", "prob", "z_conv"));
  std::filesystem::remove(Path("expected/model.json"));
  EXPECT_THAT(NamesIn(Run()), ElementsAre("prob", "z_conv", "a_relu"));
  std::filesystem::remove(Path("actual/model.json"));
  const Verdict verdict = Run();
  EXPECT_THAT(NamesIn(verdict), ElementsAre("a_relu", "prob", "z_conv"));
  EXPECT_THAT(verdict.inside->order, HasSubstr("neither side has a model.json"));
}

TEST_F(InsideJudgement, FollowsTheMap) {
  Describe("expected", {"prob", "conv:0", "relu:0"}, kLog);
  Dump("expected", "prob", {1});
  Dump("expected", "conv:0", {2});
  Dump("expected", "relu:0", {3});
  Dump("actual", "prob", {1});
  Dump("actual", "b", {2});
  Dump("actual", "a", {3});
  support::WriteFile(Path("actual/run.json"), "{}");
  request_.map = ParseMap(R"({"schema": 1, "outputs": [
      {"actual": {"name": "a"}, "expected": {"name": "relu:0"}},
      {"actual": {"name": "b"}, "expected": {"name": "conv:0"}}]})",
                          "the map");
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDone);
  EXPECT_THAT(NamesIn(verdict), ElementsAre("b", "a", "prob"));
}

TEST_F(InsideJudgement, ListsWhatOneSideHasAndFaultsItNot) {
  Dump("actual", "prob", {1});
  Dump("actual", "extra", {1});
  Dump("expected", "prob", {1});
  Dump("expected", "inner", {1});
  for (const char* side : {"actual/run.json", "expected/run.json"}) {
    support::WriteFile(Path(side), "{}");
  }
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDone);
  EXPECT_THAT(NamesIn(verdict), ElementsAre("prob"));
  ASSERT_THAT(verdict.inside->unpaired, SizeIs(2));
  for (const UnpairedOutput& output : verdict.inside->unpaired) {
    EXPECT_EQ(output.isActual, output.name == "extra");
  }
}

TEST_F(InsideJudgement, ComparesNothingWhereNothingPairs) {
  Dump("actual", "a", {1});
  Dump("expected", "b", {1});
  for (const char* side : {"actual/run.json", "expected/run.json"}) {
    support::WriteFile(Path(side), "{}");
  }
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kNothing);
  EXPECT_THAT(verdict.inside->unpaired, SizeIs(2));
}

// A tensor that a sample lacks, and others have, is not merely one of one side.
TEST_F(InsideJudgement, FaultsATensorThatOneSampleLacks) {
  for (const char* side : {"actual", "expected"}) {
    support::WriteFile(Path(side + std::string("/run.json")), "{}");
    for (int sample = 0; sample < 2; ++sample) {
      Dump(side, "prob", {1}, sample);
      if (side == std::string("expected") || sample == 0) Dump(side, "conv", {1}, sample);
    }
  }
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDiffers);
  EXPECT_THAT(verdict.inside->unpaired, IsEmpty());
}

TEST_F(InsideJudgement, FaultsWhatTheMapPairsWithNothing) {
  Dump("actual", "prob", {1});
  Dump("actual", "a", {1});
  Dump("expected", "prob", {1});
  for (const char* side : {"actual/run.json", "expected/run.json"}) {
    support::WriteFile(Path(side), "{}");
  }
  request_.map = ParseMap(R"({"schema": 1, "outputs": [
      {"actual": {"name": "a"}, "expected": {"name": "rleu"}}]})",
                          "the map");
  EXPECT_EQ(Run().Status(), ExitStatus::kNothing);
}

}  // namespace
}  // namespace vorn::kit
