// Recurrent models: frames counted from the first file, and total_t handed to the runtime.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::TensorSpec;
using support::Transcript;

const TensorSpec kFrames{"x", {8, 1, 3}, 0, 16, 128, 0};  // at most 8 frames of 12 bytes
const TensorSpec kMask{"mask", {1, 8}, 4, 16, 16, 0};

constexpr char kIsRecurrent[] = "[INFO]  vorn_ext_get_mdl_net_type model type: 2";

std::string TotalT(int steps) {
  return "[WARN]  vorn_mdl_set_total_t set total_t to " + std::to_string(steps);
}

std::string TooMany(int frames, int most) {
  return "[ERROR] Current number of frames[" + std::to_string(frames) +
         "] must be smaller than the recurrent_max_total_t[" + std::to_string(most) + "]";
}

/// A recurrent model with frames and a mask; files of so many frames and mask bytes.
void SetRecurrent(Stage* stage, size_t frames, size_t maskBytes = 8) {
  stage->script.Net(2).Input(kFrames).Input(kMask).Scratch().Line("see inputs hex");
  stage->File("x.bin", support::CountingBytes(frames * 12))
      .File("m.bin", support::CountingBytes(maskBytes, 200))
      .List({"x.bin", "m.bin"});
}

TEST(Recurrent, CountsTheFramesOfTheFirstFile) {
  Stage stage;
  SetRecurrent(&stage, 7);
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.Between("[INFO]  start to process file:$DIR/x.bin", "[INFO]  dump data success"),
            Join({Reading("$DIR/x.bin", kFrames, 4, false),
                  Reading("$DIR/m.bin", kMask, 1, false),
                  BatchSet(),
                  {kIsRecurrent, TotalT(7), "[INFO]  model execute success"}}));
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_set_total_t"),
            (Lines{"vorn_mdl_set_total_t(1, dataset#2, 7) = 0"}));
  std::string expected;
  for (unsigned row = 0; row < 7; ++row) {
    expected += support::CountingBytes(12, row * 12) + std::string(4, '\xA5');
  }
  EXPECT_EQ(support::Hex(InputsSeen(run)[0].bytes),
            support::Hex(expected + std::string(16, '\xA5')));
  EXPECT_EQ(support::Hex(InputsSeen(run)[1].bytes),
            support::Hex(support::CountingBytes(8, 200) + std::string(8, '\xA5')));
  ExpectClean(run);
}

TEST(Recurrent, PaysNoAttentionToTheStepsOfTheCommandLine) {
  Stage stage;
  SetRecurrent(&stage, 7);
  const Transcript run = stage.Run({"-t", "3"});
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines[0], "[INFO]  nlpTotalT: 3");
  ExpectLinesInOrder(run, {kIsRecurrent, TotalT(7)});
}

TEST(Recurrent, TakesAsManyFramesAsTheModelHas) {
  Stage stage;
  SetRecurrent(&stage, 8);
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run), Lines{});
  ExpectLinesInOrder(run, {TotalT(8)});
}

TEST(Recurrent, ReportsTooManyFramesAndGoesOn) {
  Stage stage;
  SetRecurrent(&stage, 10);
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(
      run.Between("[INFO]  start to process file:$DIR/x.bin", "[INFO]  model execute success"),
      Join({Reading("$DIR/x.bin", kFrames, 4, false),
            {TooMany(10, 8)},
            Reading("$DIR/m.bin", kMask, 1, false),
            {TooMany(10, 8)},
            BatchSet(),
            {kIsRecurrent, TotalT(10)}}));
  // The block takes eight.
  EXPECT_EQ(InputsSeen(run)[0].bytes.substr(112, 12), support::CountingBytes(12, 84));
  ExpectClean(run);
}

TEST(Recurrent, MeasuresTheSecondInputByItsLastDimension) {
  Stage stage;
  stage.script.Net(2).Input(kFrames).Input({"mask", {8, 5}, 4, 16, 128, 0}).Scratch();
  stage.File("x.bin", support::CountingBytes(6 * 12)).File("m.bin", "m").List({"x.bin", "m.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Join({Reading("$DIR/m.bin", {"mask", {8, 5}, 4, 16, 128, 0}, 1, false),
                                {TooMany(6, 5)},
                                BatchSet()}));
}

TEST(Recurrent, ChecksFurtherInputsByTheirShape) {
  Stage stage;
  const TensorSpec third{"h", {1, 4}, 0, 16, 16, 0};
  stage.script.Net(2).Input(kFrames).Input(kMask).Input(third).Scratch();
  stage.File("x.bin", support::CountingBytes(12)).File("m.bin", "12345678").File("h.bin", "h");
  stage.List({"x.bin", "m.bin", "h.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run,
                     Join({Reading("$DIR/h.bin", third, 4),
                           {"[WARN]  The input data shape not match model's input shape [N,C,H,W]"},
                           BatchSet()}));
}

TEST(Recurrent, SetsTheBatchToOne) {
  Stage stage;
  SetRecurrent(&stage, 2);
  const Transcript run = stage.Run({"-b", "4"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Join({BatchSet(1), {TotalT(2)}}));
  EXPECT_EQ(InputsSeen(run)[0].bufferSize, 4u * 128) << "sized before the file was read";
  EXPECT_EQ(InputsSeen(run)[1].bufferSize, 16u);
  ExpectClean(run);
}

TEST(Recurrent, SetsNothingForAFileShorterThanOneFrame) {
  Stage stage;
  SetRecurrent(&stage, 0);
  stage.File("x.bin", "short");
  const Transcript run = stage.Run({"-t", "5"});
  ExpectStatus(run, 0);
  EXPECT_FALSE(run.HasLine(kIsRecurrent));
  EXPECT_TRUE(run.record.CallsOf("vorn_mdl_set_total_t").empty());
}

TEST(Recurrent, ReportsATotalTThatIsRefused) {
  Stage stage;
  SetRecurrent(&stage, 7);
  stage.script.Answer("vorn_mdl_set_total_t", "1", "-12");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] vorn_mdl_set_total_t failed, ret = -12", "[ERROR] Set nlpTotalt failed",
                   "[ERROR] execute inference failed"},
                  Unloaded(),
                  ProcessFailed()}));
  EXPECT_TRUE(run.record.CallsOf("vorn_mdl_execute").empty());
  ExpectClean(run);
}

TEST(TotalT, OfTheCommandLineIsNotSetForAnotherModel) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run({"-t", "5"});
  ExpectStatus(run, 0);
  Lines expected = PlainRun(stage.script);
  expected.insert(expected.begin(), "[INFO]  nlpTotalT: 5");
  expected.insert(std::find(expected.begin(), expected.end(), "[INFO]  model execute success"),
                  "[INFO]  vorn_ext_get_mdl_net_type model type: 0");
  EXPECT_EQ(run.lines, expected);
  EXPECT_TRUE(run.record.CallsOf("vorn_mdl_set_total_t").empty());
}

TEST(TotalT, OfZeroOrLessAsksNothing) {
  for (const char* steps : {"0", "-1", "-2147483648"}) {
    SCOPED_TRACE(steps);
    Stage stage;
    SetPlain(&stage);
    const Transcript run = stage.Run({"-t", steps});
    ExpectStatus(run, 0);
    EXPECT_EQ(Lines(run.lines.begin() + 1, run.lines.end()), PlainRun(stage.script));
  }
}

TEST(TotalT, ReportsANetTypeThatCannotBeAsked) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_ext_get_mdl_net_type", "2", "3");  // the first is the file's
  const Transcript run = stage.Run({"-t", "5"});
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] vorn_ext_get_mdl_net_type fail! ret = 3",
                   "[ERROR] Set nlpTotalt failed", "[ERROR] execute inference failed"},
                  Unloaded(),
                  ProcessFailed()}));
}

}  // namespace
}  // namespace e2e
