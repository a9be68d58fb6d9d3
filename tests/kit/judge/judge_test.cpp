// Samples and outputs found, paired, and judged, over files.
#include "kit/judge/judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "kit/run/run_directory.h"
#include "support/files.h"
#include "support/onnx_writer.h"

namespace vorn::kit {
namespace {

using support::Bytes;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Values = std::vector<float>;

class Judgement : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  void Dump(const std::string& sample, const Values& values, const std::string& name = "prob") {
    support::WriteFile(Path(sample + "/" + name + ".0.17.bin"), Bytes(values));
  }

  void Array(const std::string& name, const std::string& descr, const std::string& shape,
             const std::string& bytes, const std::string& order = "False") {
    const std::string text =
        "{'descr': '" + descr + "', 'fortran_order': " + order + ", 'shape': " + shape + ", }";
    support::WriteFile(Path(name), std::string("\x93NUMPY\x01\0", 8) +
                                       static_cast<char>(text.size()) + '\0' + text + bytes);
  }

  Verdict Run(const std::string& actual = "actual", const std::string& expected = "expected") {
    request_.actual = FindTensors(Path(actual));
    request_.expected = FindTensors(Path(expected));
    return Judge(request_);
  }

  std::string Refusal(const std::string& actual = "actual",
                      const std::string& expected = "expected") {
    try {
      (void)Run(actual, expected);
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      return fault.what();
    }
    return "judged";
  }

  JudgeRequest request_;

 private:
  support::TempDir folder_;
};

TEST_F(Judgement, FindsEqualSidesRight) {
  Dump("actual/0", {1, 2, 3});
  Dump("actual/1", {4, 5, 6});
  Dump("expected/0", {1, 2, 3});
  Dump("expected/1", {4, 5, 6});
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDone);
  EXPECT_EQ(verdict.samples, 2U);
  ASSERT_THAT(verdict.outputs, SizeIs(1));
  EXPECT_EQ(verdict.outputs[0].census.equal, 6U);
}

// Whoever opens a sample again has to find the other side's.
TEST_F(Judgement, NotesWhichExpectedSampleItWas) {
  Dump("actual/0", {1, 2});
  Dump("actual/3", {3, 4});
  Array("expected.npy", "<f4", "(2, 2)", Bytes(Values{1, 2, 3, 4}));
  Verdict verdict = Run("actual", "expected.npy");
  ASSERT_THAT(verdict.outputs.at(0).samples, SizeIs(2));
  EXPECT_EQ(verdict.outputs[0].samples[1].sample, 3U);
  EXPECT_EQ(verdict.outputs[0].samples[1].expectedSample, 1U);
  Dump("other/8", {1, 2});
  request_.map.samples = Map::Samples::kListed;
  request_.map.listed = {{0, 8}};
  verdict = Run("actual", "other");
  EXPECT_EQ(verdict.outputs.at(0).samples.at(0).expectedSample, 8U);
}

TEST_F(Judgement, NamesSampleElementAndReason) {
  Dump("actual/0", {1, 2, 3});
  Dump("actual/4", {1, 9, 3});
  Dump("expected/0", {1, 2, 3});
  Dump("expected/4", {1, 2, 3});
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDiffers);
  const OutputVerdict& output = verdict.outputs[0];
  ASSERT_THAT(output.wrong, SizeIs(1));
  EXPECT_EQ(output.wrong[0].sample, 4U);
  EXPECT_THAT(output.wrong[0].reasons[0], HasSubstr("1 of 3 elements outside"));
  ASSERT_THAT(output.worst, SizeIs(1));
  EXPECT_EQ(output.worst[0].sample, 4U);
  EXPECT_EQ(output.worst[0].difference.index, 1U);
}

TEST_F(Judgement, ReadsTensorsOfManyBlocks) {
  Values values(100000);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);
  Dump("expected/0", values);
  values[70000] += 1;
  Dump("actual/0", values);
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.outputs[0].census.elements, 100000U);
  EXPECT_EQ(verdict.outputs[0].census.outside, 1U);
  EXPECT_EQ(verdict.outputs[0].worst[0].difference.index, 70000U);
}

TEST_F(Judgement, FailsWhatIsMissing) {
  Dump("actual/0", {1});
  Dump("expected/0", {1});
  Dump("expected/1", {1});
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kPartial);
  ASSERT_THAT(verdict.missing, SizeIs(1));
  EXPECT_EQ(verdict.missing[0].sample, 1U);
  EXPECT_TRUE(verdict.missing[0].isActualMissing);
}

TEST_F(Judgement, FailsASampleOfWhichNothingIsExpected) {
  Dump("actual/0", {1});
  Dump("actual/1", {1});
  Dump("expected/0", {1});
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kPartial);
  EXPECT_FALSE(verdict.missing[0].isActualMissing);
}

TEST_F(Judgement, FailsAnOutputThatIsMissing) {
  Dump("actual/0", {1});
  Dump("expected/0", {1});
  Dump("expected/0", {1}, "boxes");
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDiffers);
  EXPECT_THAT(verdict.outputs[1].wrong[0].reasons[0], HasSubstr("has no such output"));
}

TEST_F(Judgement, DoesNotPassAnOutputOfWhichNothingIsExpected) {
  Dump("actual/0", {1});
  Dump("actual/0", {1}, "prov");
  Dump("expected/0", {1});
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kNothing);
  EXPECT_THAT(verdict.outputs[1].notJudged[0].reasons[0], HasSubstr("did you mean 'prob'?"));
  request_.only = "prob";
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
}

TEST_F(Judgement, OfEmptyOutputsComparesNothing) {
  Dump("actual/0", {});
  Dump("expected/0", {});
  EXPECT_EQ(Run().Status(), ExitStatus::kNothing);
}

// Whatever the rules, and beside samples that are right.
TEST_F(Judgement, DoesNotPassWhereNoPairIsFinite) {
  request_.rules = ParseRules(R"({"schema": 1, "rules": [
      {"output": "*", "atol": 1, "nan": "where expected"},
      {"output": "*", "metric": "cosine", "atLeast": 0.9},
      {"output": "*", "metric": "maxAbs", "atMost": 1}]})",
                              "the rules");
  Dump("actual/0", {1, 2});
  Dump("expected/0", {1, 2});
  Dump("actual/1", {NAN, INFINITY, NAN});
  Dump("expected/1", {NAN, INFINITY, NAN});
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kNothing);
  ASSERT_THAT(verdict.outputs[0].notJudged, SizeIs(1));
  EXPECT_EQ(verdict.outputs[0].notJudged[0].reasons[0],
            "nothing of it could be measured: none of 3 pairs is of finite numbers (2 NaN and 1 "
            "infinities)");
  EXPECT_THAT(verdict.outputs[0].wrong, IsEmpty());
  Dump("expected/1", {NAN, INFINITY, 1});
  EXPECT_EQ(Run().Status(), ExitStatus::kDiffers);
}

TEST_F(Judgement, ShowsNoFiguresOfNothing) {
  Dump("actual/0", {INFINITY, INFINITY});
  Dump("expected/0", {INFINITY, INFINITY});
  const Verdict verdict = Run();
  const std::string text = VerdictText(verdict);
  EXPECT_THAT(text, HasSubstr("2      2       0        0        -        -     -       -"));
  EXPECT_THAT(text, HasSubstr("sample 0 is not judged: nothing of it could be measured"));
  EXPECT_THAT(VerdictJson(verdict), HasSubstr("\"cosine\": \"NaN\""));
}

TEST_F(Judgement, SaysThatARunHasNotEnded) {
  Dump("run/dumps/0", {1, 2});
  Dump("expected/0", {1, 2});
  RunFacts facts;
  facts.state = RunState::kRunning;
  facts.counts.inferences = 3;
  support::WriteFile(Path("run/run.json"), ToJson(facts));
  const Verdict running = Run("run");
  EXPECT_EQ(running.Status(), ExitStatus::kPartial);
  EXPECT_EQ(running.unfinished.at(0),
            "the run '" + Path("run") +
                "' has not ended: its run.json says \"running\", and it has 1 sample of 3; "
                "judge it again when it has, or finish it with vorn launch --resume");
  EXPECT_THAT(VerdictText(running), HasSubstr("has not ended"));
  EXPECT_THAT(VerdictText(running), HasSubstr("0 wrong, and not all samples were there\n"));
  EXPECT_THAT(VerdictJUnit(running), HasSubstr("errors=\"1\""));
  EXPECT_EQ(Run("expected", "run").Status(), ExitStatus::kPartial);
  facts.state = RunState::kInterrupted;
  support::WriteFile(Path("run/run.json"), ToJson(facts));
  EXPECT_THAT(Run("run").unfinished.at(0), HasSubstr("ended early, with 1 sample of 3"));
  support::WriteFile(Path("run/run.json"), R"({"state": "running"})");
  EXPECT_THAT(Run("run").unfinished.at(0), HasSubstr("and it has 1 sample; judge"));
  support::WriteFile(Path("run/run.json"), "{");
  EXPECT_THAT(Refusal("run"), HasSubstr("run/run.json': "));
  facts.counts.inferences = 1;
  facts.state = RunState::kDone;
  support::WriteFile(Path("run/run.json"), ToJson(facts));
  EXPECT_EQ(Run("run").Status(), ExitStatus::kDone);
}

TEST_F(Judgement, FailsOtherNumbersOfElements) {
  Dump("actual/0", {1, 2});
  Dump("expected/0", {1, 2, 3});
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDiffers);
  EXPECT_EQ(verdict.outputs[0].wrong[0].reasons[0],
            "it has 2 elements (2), and 3 are expected (3)");
}

// ---- Kinds of expectation -----------------------------------------------------------------------

TEST_F(Judgement, TakesArraysOfAnyOrderAndType) {
  Dump("actual/0", {1, 2, 3, 4, 5, 6});
  Array("expected/0/prob.npy", ">i2", "(2, 3)", std::string("\0\1\0\4\0\2\0\5\0\3\0\6", 12),
        "True");
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDone);
  EXPECT_EQ(verdict.outputs[0].shape, (Shape{2, 3}));
}

TEST_F(Judgement, TakesOneArrayOfAllSamples) {
  for (const int sample : {0, 1, 2}) {
    const auto first = static_cast<float>(sample * 2);
    Dump("actual/" + std::to_string(sample), {first, first + 1});
  }
  Array("all.npy", "<f4", "(3, 2)", Bytes<float>({0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(Run("actual", "all.npy").Status(), ExitStatus::kDone);
  Array("all.npy", "<f4", "(3, 2)", Bytes<float>({0, 1, 2, 3, 9, 5}));
  EXPECT_EQ(Run("actual", "all.npy").outputs[0].wrong[0].sample, 2U);
  Array("all.npy", "<f4", "(2, 2)", Bytes<float>({0, 1, 2, 3}));
  EXPECT_THAT(Refusal("actual", "all.npy"),
              HasSubstr("holds 2x2, and for 3 samples of 2 elements its first dimension"));
}

TEST_F(Judgement, TakesTestFoldersOfOnnx) {
  Dump("actual/0", {1, 2});
  const std::string tensor =
      WireWriter().Varint(1, 2).Varint(2, 1).Bytes(9, Bytes<float>({1, 2})).str();
  support::WriteFile(Path("expected/test_data_set_0/output_0.pb"), tensor);
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
}

TEST_F(Judgement, ReadsATextWhereThereIsNoBinary) {
  support::WriteFile(Path("actual/0/prob.0.17.float"), "1.5000000000000000\n");
  Dump("expected/0", {1.5F});
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
}

// ---- Maps ---------------------------------------------------------------------------------------

// Two rows, two columns, three channels: channels last on the one side, first on the other.
TEST_F(Judgement, TakesScalesOfChannels) {
  Values stored;
  Values meant(12);
  const Values scales{0.5F, 2, -1};
  const Values zeros{1, -2, 0};
  for (size_t place = 0; place < 4; ++place) {
    for (size_t channel = 0; channel < 3; ++channel) {
      const auto value = static_cast<float>(place * 10 + channel * 3 + 5);
      stored.push_back(value);
      meant[channel * 4 + place] = (value - zeros[channel]) * scales[channel];
    }
  }
  const std::string quantised =
      R"(, "type": "int8", "scale": [0.5, 2, -1], "zeroPoint": [1, -2, 0], "axis": 3)";
  const auto map = [&](const std::string& actual, const std::string& expected) {
    request_.map = ParseMap(R"({"schema": 1, "outputs": [{"actual": {"name": "prob", )" + actual +
                                R"(}, "expected": {"name": "prob", )" + expected + "}}]}",
                            "m");
  };
  Dump("actual/0", stored);
  Dump("expected/0", meant);
  const std::string last = R"("layout": "NHWC", "shape": [1, 2, 2, 3])";
  const std::string first = R"("layout": "NCHW", "shape": [1, 3, 2, 2])";
  map(last + quantised, first);
  request_.rules = ParseRules(R"({"schema": 1, "rules": [{"output": "*", "exact": true}]})", "r");
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
  // The other way round it is the quantised side that is read in another order.
  map(first, last + quantised);
  EXPECT_EQ(Run("expected", "actual").Status(), ExitStatus::kDone);
  request_.rules = {};
  map(last + quantised, first);
  EXPECT_EQ(Run().outputs[0].rules.tolerance.tolerance.atol, 2);
  map(R"("layout": "NHWC", "shape": [1, 2, 2, 3], "scale": [1, 2], "axis": 3)", first);
  EXPECT_EQ(Refusal(), "the map gives 'prob' 2 scales along axis 3, and it is 1x2x2x3");
  map(R"("scale": [1, 2], "axis": 0)", R"("type": "float32")");
  EXPECT_THAT(Refusal(), HasSubstr("and its shape is not known; give it as \"shape\""));
}

TEST_F(Judgement, PairsOtherNamesAndLayouts) {
  Dump("actual/0", {0, 3, 1, 4, 2, 5}, "out");
  Dump("expected/0", {0, 1, 2, 3, 4, 5}, "prob_0");
  request_.map = ParseMap(
      R"({"schema": 1, "outputs": [{"actual": {"name": "out", "layout": "NHWC"},
          "expected": {"name": "prob/0", "layout": "CHW", "shape": [2, 1, 3]}}]})",
      "m");
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDone) << VerdictText(verdict);
  EXPECT_EQ(verdict.outputs[0].shape, (Shape{1, 1, 3, 2}));
}

TEST_F(Judgement, ComparesQuantisedValuesAsWhatTheyMean) {
  Dump("actual/0", {-128, 0, 127});
  Dump("expected/0", {0, 12.8F, 25.4F});
  request_.map = ParseMap(R"({"schema": 1, "outputs": [
      {"actual": {"name": "prob", "type": "int8", "scale": 0.1, "zeroPoint": -128},
       "expected": {"name": "prob"}}]})",
                          "m");
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kDone);
  EXPECT_EQ(verdict.outputs[0].rules.tolerance.source, "one step of the quantised output");
}

TEST_F(Judgement, ReadsTypesWhoseBitsADumpHolds) {
  Dump("actual/0", {0x3C00, 0xC000});
  Dump("expected/0", {1, -2});
  const auto map = [](const std::string& type) {
    return ParseMap(R"({"schema": 1, "outputs": [{"actual": {"name": "prob", "type": ")" + type +
                        R"("}, "expected": {"name": "prob"}}]})",
                    "m");
  };
  request_.map = map("float16");
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
  support::WriteFile(Path("actual/0/prob.0.17.bin"), Bytes<int32_t>({1, -2}));
  request_.map = map("int32");
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
  support::WriteFile(Path("actual/0/prob.0.17.bin"), Bytes<uint32_t>({1, 4294967295U}));
  Dump("expected/0", {1, 4294967296.0F});
  request_.map = map("uint32");
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
  Dump("actual/0", {0x3F80, 0xC000});
  Dump("expected/0", {1, -2});
  request_.map = map("bfloat16");
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
  for (const char* type : {"uint64", "float64", "bool"}) {
    request_.map = map(type);
    EXPECT_EQ(Run().Status(), ExitStatus::kNothing) << type;
  }
  request_.map = map("int64");
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kNothing);
  EXPECT_THAT(verdict.outputs[0].notJudged[0].reasons[0], HasSubstr("take them from a capture"));
  Dump("actual/0", {0.5F, 1});
  request_.map = map("float16");
  EXPECT_THAT(Run().outputs[0].notJudged[0].reasons[0],
              HasSubstr("holds other values than the bits of floats of 16 bits"));
}

TEST_F(Judgement, JudgesWhatStandsBesideADamagedFile) {
  for (const char* sample : {"0", "1", "2"}) {
    Dump(std::string("actual/") + sample, {1, 2, 3});
    Dump(std::string("expected/") + sample, {1, 2, 3});
    Dump(std::string("actual/") + sample, {4, 5}, "other");
    Dump(std::string("expected/") + sample, {4, 5}, "other");
  }
  support::WriteFile(Path("actual/1/prob.0.17.bin"), "12345");
  Dump("actual/2", {1, 2, 4});  // whose cause may be in the sample before
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kInput);
  ASSERT_THAT(verdict.outputs, SizeIs(2));
  const OutputVerdict& damaged = verdict.outputs[1];
  EXPECT_EQ(damaged.name, "prob");
  EXPECT_THAT(damaged.samples, SizeIs(2));
  ASSERT_THAT(damaged.notJudged, SizeIs(1));
  EXPECT_EQ(damaged.notJudged[0].sample, 1U);
  EXPECT_THAT(damaged.notJudged[0].reasons[0], HasSubstr("has 5 bytes"));
  ASSERT_THAT(damaged.wrong, SizeIs(1));
  EXPECT_EQ(damaged.wrong[0].sample, 2U);
  EXPECT_THAT(verdict.outputs[0].samples, SizeIs(3));
  EXPECT_THAT(verdict.Unreadable(), SizeIs(1));
}

TEST_F(Judgement, TakesSamplesOfAStackByTheirIndex) {
  Array("stack.npy", "<f4", "(4, 2)", Bytes<float>({0, 1, 10, 11, 20, 21, 30, 31}));
  Dump("actual/0", {0, 1});
  Dump("actual/2", {20, 21});
  const Verdict verdict = Run("actual", "stack.npy");
  EXPECT_EQ(verdict.Status(), ExitStatus::kPartial);
  EXPECT_THAT(verdict.outputs[0].wrong, IsEmpty());
  ASSERT_THAT(verdict.missing, SizeIs(2));
  EXPECT_EQ(verdict.missing[0].sample, 1U);
  EXPECT_EQ(verdict.missing[1].sample, 3U);
  EXPECT_TRUE(verdict.missing[1].isActualMissing);
  // The one that is left of a run.
  Dump("rest/3", {30, 31});
  EXPECT_THAT(Run("rest", "stack.npy").missing, SizeIs(3));
}

// Such as the last ones of a longer list, with what is expected of them alone.
TEST_F(Judgement, TakesSamplesOfAShorterStackInTheirOrder) {
  Array("stack.npy", "<f4", "(2, 2)", Bytes<float>({20, 21, 30, 31}));
  Dump("actual/2", {20, 21});
  Dump("actual/3", {30, 31});
  EXPECT_EQ(Run("actual", "stack.npy").Status(), ExitStatus::kDone);
  Dump("actual/5", {50, 51});
  EXPECT_THAT(Refusal("actual", "stack.npy"),
              HasSubstr("holds 2x2, and for 3 samples up to number 5 of 2 elements its first "
                        "dimension has to be theirs"));
}

TEST_F(Judgement, RefusesANameThatNoOutputHas) {
  Dump("actual/0", {1});
  Dump("expected/0", {1});
  Dump("expected/0", {1}, "missed");
  const auto said = [&](const char* only) -> std::string {
    request_.only = only;
    try {
      (void)Run();
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kNothing);
      return fault.what();
    }
    return "judged";
  };
  EXPECT_EQ(said("prop"), "--only 'prop' fits the name of no output; did you mean 'prob'?");
  EXPECT_EQ(said("zzzz"), "--only 'zzzz' fits the name of no output; there is 'missed', 'prob'");
  EXPECT_EQ(said("miss*"), "judged");
  EXPECT_EQ(said("*"), "judged");
}

TEST_F(Judgement, ReadsNoBitsOutOfAText) {
  support::WriteFile(Path("actual/0/prob.0.17.float"), "1.5000000000000000\n");
  Dump("expected/0", {1.5F});
  request_.map = ParseMap(R"({"schema": 1, "outputs": [{"actual": {"name": "prob", "type": "int32"},
                              "expected": {"name": "prob"}}]})",
                          "m");
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kNothing);
  EXPECT_EQ(verdict.outputs[0].notJudged[0].reasons[0],
            "the output 'prob' is of int32, and a dump as text shows its bits as a float; give the "
            ".bin, or a capture");
}

TEST_F(Judgement, PairsSamplesAsTheMapSays) {
  Dump("actual/0", {1});
  Dump("expected/7", {1});
  request_.map = ParseMap(R"({"schema": 1, "samples": [[0, 7]]})", "m");
  EXPECT_EQ(Run().Status(), ExitStatus::kDone);
  request_.map = ParseMap(R"({"schema": 1, "samples": [[0, 8], [3, 7]]})", "m");
  const Verdict verdict = Run();
  EXPECT_EQ(verdict.Status(), ExitStatus::kPartial);
  EXPECT_EQ(verdict.samples, 0U);
  ASSERT_THAT(verdict.missing, SizeIs(2));
  EXPECT_EQ(verdict.missing[0].sample, 0U);
  EXPECT_FALSE(verdict.missing[0].isActualMissing);
  EXPECT_EQ(verdict.missing[0].reason, "the map expects sample 8 of it, which is not there");
  EXPECT_EQ(verdict.missing[1].sample, 3U);
  EXPECT_TRUE(verdict.missing[1].isActualMissing);
  EXPECT_EQ(verdict.missing[1].reason, "the map names it, and it was not run");
}

// ---- By inputs ----------------------------------------------------------------------------------

// Three samples a side, in other orders.
class ByInputs : public Judgement {
 protected:
  ByInputs() {
    for (const int sample : {0, 1, 2}) {
      Dump("actual/" + std::to_string(sample), {static_cast<float>(sample)});
      Dump("expected/" + std::to_string(sample), {static_cast<float>(2 - sample)});
    }
    request_.map = ParseMap(R"({"schema": 1, "samples": "inputs"})", "m");
    request_.actual = FindTensors(Path("actual"));
    request_.expected = FindTensors(Path("expected"));
    const std::vector<std::string> files{"a.bin", "b.bin", "c.bin"};
    for (size_t i = 0; i < files.size(); ++i) {
      request_.actual.samples[i].inputs = {files[i], "same.bin"};
      request_.expected.samples[2 - i].inputs = {files[i], "same.bin"};
    }
  }

  std::string Refused() const {
    try {
      (void)Judge(request_);
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      return fault.what();
    }
    return "judged";
  }
};

TEST_F(ByInputs, SamplesArePairedWhereverTheyStand) {
  const Verdict verdict = Judge(request_);
  EXPECT_EQ(verdict.Status(), ExitStatus::kDone) << VerdictText(verdict);
  EXPECT_EQ(verdict.samples, 3U);
}

TEST_F(ByInputs, SamplesThatAreOnOneSideOnlyAreMissed) {
  request_.actual.samples[1].inputs = {"d.bin", "same.bin"};
  const Verdict verdict = Judge(request_);
  EXPECT_EQ(verdict.Status(), ExitStatus::kPartial);
  EXPECT_EQ(verdict.samples, 2U);
  ASSERT_THAT(verdict.missing, SizeIs(2));
  EXPECT_EQ(verdict.missing[0].sample, 1U);
  EXPECT_FALSE(verdict.missing[0].isActualMissing);
  EXPECT_EQ(verdict.missing[0].reason, "nothing is expected of the input d.bin");
  EXPECT_EQ(verdict.missing[1].sample, 1U);
  EXPECT_TRUE(verdict.missing[1].isActualMissing);
  EXPECT_EQ(verdict.missing[1].reason, "it is expected and was not run");
}

TEST_F(ByInputs, SamplesOfTheSameInputsAreRefused) {
  request_.expected.samples[0].inputs = request_.expected.samples[1].inputs;
  EXPECT_EQ(Refused(), "two samples of " + request_.expected.kind + " '" + Path("expected") +
                           "' have the input 'b.bin'; pair them by index or in the map");
}

TEST_F(ByInputs, SamplesThatTellNoInputsAreRefused) {
  request_.actual.samples[2].inputs.clear();
  EXPECT_EQ(Refused(), "sample 2 of " + request_.actual.kind + " '" + Path("actual") +
                           "' tells no inputs to be paired by; pair by index");
}

// One that the source says has no outputs is missed with the source's own reason.
TEST_F(Judgement, MissesWhatHasNoOutputsOnEitherSide) {
  for (const char* sample : {"actual/0", "actual/1", "expected/0", "expected/1"}) {
    Dump(sample, {1});
  }
  request_.actual = FindTensors(Path("actual"));
  request_.expected = FindTensors(Path("expected"));
  request_.actual.samples[0].absence = "it failed";
  request_.expected.samples[1].absence = "its dump was changed";
  const Verdict verdict = Judge(request_);
  EXPECT_EQ(verdict.samples, 0U);
  ASSERT_THAT(verdict.missing, SizeIs(2));
  EXPECT_TRUE(verdict.missing[0].isActualMissing);
  EXPECT_EQ(verdict.missing[0].reason, "it failed");
  EXPECT_FALSE(verdict.missing[1].isActualMissing);
  EXPECT_EQ(verdict.missing[1].reason, "its dump was changed");
}

// What stands behind a sample without outputs keeps its place among the stacked items.
TEST_F(Judgement, LeavesAPlaceInOneArrayForASampleWithoutOutputs) {
  for (const int sample : {0, 1, 2}) {
    Dump("actual/" + std::to_string(sample), {static_cast<float>(sample)});
  }
  Array("all.npy", "<f4", "(3, 1)", Bytes<float>({0, 1, 2}));
  request_.actual = FindTensors(Path("actual"));
  request_.expected = FindTensors(Path("all.npy"));
  request_.actual.samples[1].absence = "it failed";
  const Verdict verdict = Judge(request_);
  EXPECT_EQ(verdict.Status(), ExitStatus::kPartial);
  EXPECT_EQ(verdict.samples, 2U);
  EXPECT_THAT(verdict.outputs[0].wrong, IsEmpty()) << VerdictText(verdict);
  ASSERT_THAT(verdict.missing, SizeIs(1));
  EXPECT_EQ(verdict.missing[0].reason, "it failed");
}

TEST_F(Judgement, RefusesRulesOfAnotherModel) {
  Dump("actual/0", {1});
  Dump("expected/0", {1});
  for (const char* rules : {R"({"schema": 1, "rules": [{"output": "pro", "exact": true}]})",
                            R"({"schema": 1, "rules": [
                                {"output": "p*", "exact": true},
                                {"output": "pro", "metric": "cosine", "atLeast": 0.5}]})"}) {
    request_.rules = ParseRules(rules, "r");
    EXPECT_THAT(Refusal(), HasSubstr("the rules name the output 'pro', and there is none; did you "
                                     "mean 'prob'?"));
  }
}

TEST_F(Judgement, RefusesAMapOfAnotherModel) {
  Dump("actual/0", {1});
  Dump("expected/0", {1});
  request_.map = ParseMap(
      R"({"schema": 1, "outputs": [{"actual": {"name": "prop"}, "expected": {"name": "prob"}}]})",
      "m");
  EXPECT_THAT(Refusal(), HasSubstr("'prop', and there is none; did you mean 'prob'?"));
}

TEST_F(Judgement, RefusesAMapThatDoesNotFitTheTensors) {
  Dump("actual/0", {0, 1, 2, 3, 4, 5});
  Dump("expected/0", {0, 1, 2, 3, 4, 5});
  const auto map = [&](const std::string& actual, const std::string& expected,
                       const std::string& more = "") {
    request_.map = ParseMap(R"({"schema": 1, "outputs": [{"actual": {"name": "prob")" + actual +
                                R"(}, "expected": {"name": "prob")" + expected + "}" + more + "}]}",
                            "m");
    return Refusal();
  };
  EXPECT_EQ(map(R"(, "shape": [2, 2])", ""), "the map says that 'prob' is 2x2, and '" +
                                                 Path("actual/0/prob.0.17.bin") +
                                                 "' has 6 elements");
  EXPECT_EQ(map("", R"(, "shape": [2, 3])", R"(, "order": [2, 0, 1])"),
            "the map of 'prob' has an order of 3 dimensions, and the expected tensor is 2x3");
  EXPECT_EQ(map(R"(, "layout": "NHWC")", R"(, "layout": "NCHW")"),
            "the map of 'prob' has layouts, and the shape of the expected tensor is not known; "
            "give it as \"shape\"");
  EXPECT_EQ(map("", R"(, "shape": [2, 3])", R"(, "order": [1, 0])"), "judged");
}

TEST_F(Judgement, RefusesLabelsOfAnotherModel) {
  Dump("actual/0", {1, 2});
  Dump("expected/0", {1, 2});
  request_.labels = ParseLabels(R"({"schema": 1, "outputs": [{"output": "prop", "classes": [1]}]})",
                                "the labels", ".");
  EXPECT_EQ(Refusal(),
            "the labels name the output 'prop', and there is none; did you mean 'prob'?");
  request_.labels = ParseLabels("1\n", "the labels", ".");
  EXPECT_EQ(Refusal(), "judged");
  Dump("actual/0", {1, 2}, "other");
  EXPECT_EQ(Refusal(),
            "the labels are a list of classes, and the samples have several outputs; say which one "
            "in a labels file of JSON");
}

// ---- What docs/judging.md shows -----------------------------------------------------------------

// The blocks of JSON of the page, in their order.
std::vector<std::string> BlocksOfPage() {
  const std::string page = support::ReadFile(VORN_SOURCE_FOLDER "/docs/judging.md");
  std::vector<std::string> blocks;
  const std::string begin = "```json\n";
  for (size_t at = page.find(begin); at != std::string::npos; at = page.find(begin, at)) {
    at += begin.size();
    blocks.push_back(page.substr(at, page.find("```", at) - at));
  }
  return blocks;
}

TEST(JudgingPage, ShowsFilesThatAreRead) {
  const std::vector<std::string> blocks = BlocksOfPage();
  ASSERT_THAT(blocks, SizeIs(3));
  EXPECT_THAT(ParseMap(blocks[0], "the map").outputs, SizeIs(2));
  const Rules rules = ParseRules(blocks[1], "the rules");
  EXPECT_THAT(rules.tolerances, SizeIs(3));
  EXPECT_THAT(rules.metrics, SizeIs(2));
  EXPECT_THAT(ParseLabels(blocks[2], "the labels", "."), SizeIs(3));
}

// A run whose model.json tells that a dump holds bits.
TEST_F(Judgement, TakesTypesAndShapesOfTheModel) {
  const auto model = [](int code, int bits) {
    return R"({"schema": 1, "model": {"path": "m"}, "inputs": [], "outputs": [
        {"index": 0, "name": "pr.ob", "role": "output", "shape": [1, 2, 1], "typeCode": )" +
           std::to_string(code) + R"(, "elementBits": )" + std::to_string(bits) + "}]}";
  };
  support::WriteFile(Path("run/run.json"), "{}");
  support::WriteFile(Path("run/model.json"), model(1, 16));
  Dump("run/dumps/0", {0x3C00, 0xC000, 0, 0x3C00}, "pr_ob");
  Dump("expected/0", {1, -2, 0, 1}, "pr_ob");
  const Verdict verdict = Run("run");
  EXPECT_EQ(verdict.Status(), ExitStatus::kDone) << VerdictText(verdict);
  EXPECT_EQ(verdict.outputs[0].type, ElementType::kFloat16);
  EXPECT_EQ(verdict.outputs[0].shape, (Shape{2, 2, 1}));
  support::WriteFile(Path("run/model.json"), model(9, 64));
  EXPECT_EQ(Run("run").Status(), ExitStatus::kNothing);
}

// By shape of the model and number of values; empty where the model's shape tells nothing of it.
TEST_F(Judgement, TakesTheModelsShapeForAsManyItemsAsThereAre) {
  struct Case {
    std::string modelShape;
    size_t values;
    Shape shape;
  };
  const std::vector<Case> cases{
      {"[3, 2]", 6, {3, 2}}, {"[3, 2]", 12, {2, 3, 2}}, {"[1, 3, 2]", 12, {2, 3, 2}},
      {"[3, 2]", 8, {8}},    {"[-1, 2]", 6, {6}},       {"[0, 2]", 6, {6}},
      {"[]", 6, {6}},
  };
  for (const Case& one : cases) {
    support::WriteFile(Path("run/run.json"), "{}");
    support::WriteFile(Path("run/model.json"),
                       R"({"schema": 1, "model": {"path": "m"}, "inputs": [], "outputs": [
        {"index": 0, "name": "prob", "role": "output", "shape": [7], "typeCode": 0},
        {"index": 1, "name": "prob", "role": "output", "shape": )" +
                           one.modelShape + R"(, "typeCode": 0}]})");
    for (const char* folder : {"run/dumps/0", "expected/0"}) {
      support::WriteFile(Path(std::string(folder) + "/prob.1.17.bin"),
                         Bytes(Values(one.values, 1)));
    }
    const Verdict verdict = Run("run");
    ASSERT_THAT(verdict.outputs, SizeIs(1));
    EXPECT_EQ(verdict.outputs[0].shape, one.shape)
        << one.modelShape << " of " << one.values << ", " << verdict.outputs[0].name;
  }
}

// ---- Causes -------------------------------------------------------------------------------------

std::vector<std::string> CauseIdsOf(const Verdict& verdict) {
  std::vector<std::string> ids;
  for (const SampleCauses& sample : verdict.outputs[0].causes) {
    ids.push_back(sample.causes.empty() ? "none" : sample.causes[0].id);
  }
  return ids;
}

Values Wave(size_t count, float phase) {
  Values values(count);
  for (size_t i = 0; i < count; ++i) {
    values[i] = std::sin(static_cast<float>(i * i) * 0.37F + phase);
  }
  return values;
}

TEST_F(Judgement, TellsTheSampleBeforeFromAnother) {
  for (int sample = 0; sample < 6; ++sample) {
    const auto own = static_cast<float>(sample);
    Dump("expected/" + std::to_string(sample), Wave(50, own));
    const float given = sample == 2 ? 1 : sample == 4 ? 0 : own;
    Dump("actual/" + std::to_string(sample), Wave(50, given));
  }
  const Verdict verdict = Run();
  EXPECT_THAT(CauseIdsOf(verdict), testing::ElementsAre("stale", "other-sample"));
  EXPECT_EQ(verdict.outputs[0].causes[1].causes[0].text, "it is the output of sample 0");
}

// Sure scores of few classes are like those of many another sample.
TEST_F(Judgement, TellsANeighbourFromOthersThatAreLikeIt) {
  for (int sample = 0; sample < 12; ++sample) {
    const auto kind = static_cast<float>(sample % 3);
    const int given = sample < 6 ? sample : sample % 2 == 0 ? sample + 1 : sample - 1;
    Values rounded = Wave(50, static_cast<float>(given % 3));
    for (float& value : rounded) value += 0.0004F;
    Dump("expected/" + std::to_string(sample), Wave(50, kind));
    Dump("actual/" + std::to_string(sample), rounded);
  }
  request_.rules =
      ParseRules(R"({"schema": 1, "rules": [{"output": "*", "atol": 0.001}]})", "the rules");
  const Verdict verdict = Run();
  const auto& causes = verdict.outputs[0].causes;
  ASSERT_EQ(causes.size(), 6U);
  EXPECT_EQ(causes[0].causes[0].text, "it is the output of sample 7, the next one");
  EXPECT_EQ(causes[1].causes[0].text, "it is what was expected of the sample before");
  EXPECT_EQ(causes[4].causes[0].text, "it is the output of sample 11, the next one");
}

// A sure score that stands in another place may be shifted, or turned about, too.
TEST_F(Judgement, TellsExchangedNeighboursAsOneFault) {
  for (int sample = 0; sample < 20; ++sample) {
    const auto scores = [](int of, float sure) {
      Values values(10, 0);
      values[static_cast<size_t>(of * 7 % 10)] = sure;
      values[static_cast<size_t>(of * 3 % 10)] += 0.006F;
      return values;
    };
    Dump("expected/" + std::to_string(sample), scores(sample, 0.994F));
    Dump("actual/" + std::to_string(sample), scores(sample ^ 1, 0.99F));
  }
  request_.rules =
      ParseRules(R"({"schema": 1, "rules": [{"output": "*", "atol": 0.03}]})", "the rules");
  EXPECT_THAT(CauseIdsOf(Run()), testing::Each("other-sample"));
}

// Of 8 and 9 the answers are the same, and 10 and 11 were not exchanged.
TEST_F(Judgement, DoesNotCallThoseRightThatMayHaveBeenExchangedUnseen) {
  for (int sample = 0; sample < 20; ++sample) {
    const bool isExchanged = sample >= 4 && sample < 16 && sample / 2 != 5;
    const auto of = [](int one) { return Wave(50, one == 9 ? 8.0F : static_cast<float>(one)); };
    Dump("expected/" + std::to_string(sample), of(sample));
    Dump("actual/" + std::to_string(sample), of(isExchanged ? sample ^ 1 : sample));
  }
  const OutputVerdict output = Run().outputs[0];
  ASSERT_THAT(output.stretches, SizeIs(1));
  EXPECT_EQ(output.stretches[0].pattern, NeighbourPattern::kExchanged);
  EXPECT_THAT(output.stretches[0].wrong, testing::ElementsAre(4, 5, 6, 7, 12, 13, 14, 15));
  EXPECT_THAT(output.stretches[0].undecided, testing::ElementsAre(8, 9));
  EXPECT_THAT(output.stretches[0].right, testing::ElementsAre(10, 11));
}

// Old bytes are those that stood there, not those that should have.
TEST_F(Judgement, CallsNoOutputStaleThatIsAnotherThanTheOneBefore) {
  for (int sample = 0; sample < 6; ++sample) {
    const auto own = static_cast<float>(sample);
    Dump("expected/" + std::to_string(sample), Wave(50, own));
    Dump("actual/" + std::to_string(sample), Wave(50, sample == 4 ? 3 : own));
  }
  EXPECT_THAT(CauseIdsOf(Run()), testing::ElementsAre("stale"));
  Values before = Wave(50, 3);
  before[7] += 1e-6F;
  Dump("actual/3", before);
  const Verdict verdict = Run();
  EXPECT_THAT(CauseIdsOf(verdict), testing::ElementsAre("other-sample"));
}

// Of two inputs of one class the outputs are nearly the same.
TEST_F(Judgement, TellsACopyOfAnotherFromTheNearlySameBefore) {
  for (int sample = 0; sample < 6; ++sample) {
    const std::string number = std::to_string(sample);
    Values values = Wave(50, static_cast<float>(sample));
    if (sample == 3) {
      values = Wave(50, 1);
      for (float& value : values) value *= 1.001F;
    }
    if (sample == 0) values = Wave(50, 1.0001F);
    Dump("expected/" + number, values);
    Dump("actual/" + number, sample == 4 ? Wave(50, 1) : values);
  }
  const Verdict verdict = Run();
  ASSERT_THAT(CauseIdsOf(verdict), testing::ElementsAre("other-sample"));
  EXPECT_EQ(verdict.outputs[0].causes[0].causes[0].text, "it is the output of sample 1");
}

TEST_F(Judgement, LooksForTheCauseOfEachSampleWhereTheyAreFew) {
  for (int sample = 0; sample < 6; ++sample) {
    Dump("expected/" + std::to_string(sample), Wave(50, static_cast<float>(sample)));
    Dump("actual/" + std::to_string(sample), Values(50, 0));
  }
  EXPECT_THAT(CauseIdsOf(Run()), testing::ElementsAre("constant", "constant", "constant",
                                                      "constant", "constant", "constant"));
}

// Each of them is, of so few classes, nearly the output of another sample, too.
TEST_F(Judgement, PrefersTheCauseThatSamplesShare) {
  constexpr size_t kClasses = 10;
  const auto sure = [](size_t place, float noise) {
    Values values(kClasses, noise);
    values[place] = 1 - 9 * noise;
    return values;
  };
  for (size_t sample = 0; sample < 12; ++sample) {
    const auto noise = 1e-6F * static_cast<float>(sample + 1);
    Dump("expected/" + std::to_string(sample), sure((sample * 3 + 1) % kClasses, noise));
    // From the eighth on everything comes one element late.
    const size_t late = sample < 8 ? 0 : 1;
    Dump("actual/" + std::to_string(sample), sure((sample * 3 + 1 + late) % kClasses, noise));
  }
  const Verdict verdict = Run();
  ASSERT_THAT(verdict.outputs[0].causes, SizeIs(4));
  for (const SampleCauses& sample : verdict.outputs[0].causes) {
    ASSERT_THAT(sample.causes, Not(testing::IsEmpty())) << sample.sample;
    EXPECT_EQ(sample.causes[0].id, "shifted") << sample.sample << ": " << sample.causes[0].text;
  }
}

// Two of them are to the bit what was expected of other samples.
TEST_F(Judgement, PrefersWhatFitsNearlyAllToWhatFitsSomeBetter) {
  constexpr size_t kClasses = 11;
  constexpr float kHeight = 0.9F;
  constexpr float kHigher = 0.909F;
  const auto sure = [](size_t place, float height) {
    Values values(kClasses, 1e-6F);
    values[place] = height;
    return values;
  };
  for (size_t sample = 0; sample < 10; ++sample) {
    const bool isRight = sample >= 8;
    const size_t place = isRight ? sample - 6 : sample + 1;
    const Values expected = sure(place, isRight ? kHigher : kHeight);
    Dump("expected/" + std::to_string(sample), expected);
    Dump("actual/" + std::to_string(sample), isRight ? expected : sure(place + 1, kHigher));
  }
  const Verdict verdict = Run();
  EXPECT_THAT(CauseIdsOf(verdict), testing::AllOf(SizeIs(8), testing::Each("shifted")));
  // What is told as another possibility never seems the better one.
  for (const SampleCauses& sample : verdict.outputs[0].causes) {
    for (const Cause& cause : sample.causes) {
      EXPECT_LE(cause.certainty, sample.causes[0].certainty) << sample.sample << cause.text;
    }
  }
}

// A single value of each that is not near nought tells nothing alone.
TEST_F(Judgement, FindsTheScaleThatSingleLargeValuesShare) {
  const auto sure = [](size_t place, float value) {
    Values values(10, 0);
    values[place] = value;
    return values;
  };
  const auto write = [&](size_t halved) {
    for (size_t sample = 0; sample < 8; ++sample) {
      const float value = 1 - 0.001F * static_cast<float>(sample);
      const bool isHalved = sample >= 8 - halved;
      Dump("expected/" + std::to_string(sample), sure(sample, value));
      Dump("actual/" + std::to_string(sample), sure(sample, isHalved ? value / 2 : value));
    }
  };
  write(4);
  Verdict verdict = Run();
  EXPECT_THAT(CauseIdsOf(verdict), testing::ElementsAre("scaled", "scaled", "scaled", "scaled"));
  EXPECT_EQ(verdict.outputs[0].causes[0].causes[0].text,
            "every value is 0.5 times the expected one");
  write(1);
  EXPECT_THAT(CauseIdsOf(Run()), testing::Not(testing::Contains("scaled")));
}

TEST_F(Judgement, LooksIntoLargeOutputsFromTheFirstToTheLast) {
  constexpr size_t kLarge = 400000;  // two of them are most of what is looked into
  for (int sample = 0; sample < 6; ++sample) {
    Dump("expected/" + std::to_string(sample), Wave(kLarge, static_cast<float>(sample)));
    Dump("actual/" + std::to_string(sample), Values(kLarge, 0));
  }
  const Verdict verdict = Run();
  std::vector<uint64_t> samples;
  for (const SampleCauses& sample : verdict.outputs[0].causes) samples.push_back(sample.sample);
  EXPECT_THAT(samples, testing::ElementsAre(0, 2, 5));
}

TEST_F(Judgement, TellsHowFarItIs) {
  Dump("actual/0", {1});
  Dump("actual/1", {1});
  Dump("expected/0", {1});
  Dump("expected/1", {1});
  request_.actual = FindTensors(Path("actual"));
  request_.expected = FindTensors(Path("expected"));
  std::vector<size_t> done;
  (void)Judge(request_, [&](size_t now, size_t all) {
    EXPECT_EQ(all, 2U);
    done.push_back(now);
  });
  EXPECT_THAT(done, testing::ElementsAre(1, 2));
}

TEST_F(Judgement, TakesTheSamplesOfAnArchiveOneBehindTheOther) {
  // Each of its arrays is 0, 1, 2 in the first row and 3, 4, 5 in the second.
  const std::string archive = VORN_SOURCE_FOLDER "/tests/kit/tensor/arrays/streamed.npz";
  support::WriteFile(Path("expected.npz"), support::ReadFile(archive));
  for (const char* output : {"version 1", "version 2", "version 3"}) {
    Dump("actual/0", {0, 1, 2}, output);
    Dump("actual/1", {3, 4, 5}, output);
  }
  EXPECT_EQ(Run("actual", "expected.npz").Status(), ExitStatus::kDone);
  Dump("actual/1", {3, 4, 6}, "version 3");
  EXPECT_EQ(Run("actual", "expected.npz").Status(), ExitStatus::kDiffers);
}

}  // namespace
}  // namespace vorn::kit
