// The rpn parameters of detection models: what the files may say and where the values land.
#include <gtest/gtest.h>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::TensorSpec;
using support::Transcript;

const TensorSpec kSingle{"rpn", {1, 4}, 0, 16, 16, 0};
const TensorSpec kMulti{"rpn", {4, 3}, 0, 32, 128, 0};

/// A model with one data input, this rpn input and no output; one file for the data.
void SetRpn(Stage* stage, const TensorSpec& rpn, const std::string& text) {
  stage->script.Input({"in0", {1, 4}, 0, 16, 16, 0})
      .Input(rpn)
      .Scratch()
      .Net(1)
      .Line("see inputs hex");
  stage->File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("rpn.txt", text);
}

Lines Failed(const Lines& cause) {
  return Join({cause, {"[ERROR] Set rpn data failed"}, Unloaded(), ProcessFailed()});
}

std::string Size(uint32_t height, uint32_t width) {
  return "[INFO]  input rpn data height[" + std::to_string(height) + "] * width[" +
         std::to_string(width) + "]";
}

/// Runs the rpn input with this text and expects these lines from the first error on.
void ExpectRefused(const TensorSpec& rpn, const std::string& text, const Lines& cause) {
  Stage stage;
  SetRpn(&stage, rpn, text);
  const Transcript run = stage.Run({"-r", "rpn.txt"});
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), Failed(cause)) << run.Describe();
  ExpectClean(run);
}

TEST(Rpn, PutsTheFourValuesOfASingleClassAtTheStart) {
  Stage stage;
  SetRpn(&stage, kSingle, "0.5 0.3 0.7 0.1");
  const Transcript run = stage.Run({"-r", "rpn.txt"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Join({PathChecks({"model.om", "vorn.json", "rpn.txt"}),
                                Plan(1, 1),
                                BatchSet(),
                                {Size(1, 4)},
                                {"[INFO]  model execute success"}}));
  const auto inputs = InputsSeen(run);
  ASSERT_EQ(inputs.size(), 4u);
  EXPECT_EQ(support::Hex(inputs[1].bytes),
            support::Hex(support::Bytes<float>({0.5F, 0.3F, 0.7F, 0.1F})));
  EXPECT_EQ(inputs[2].bytes, std::string(32, '\0')) << "the task buffer comes behind";
  ExpectClean(run);
}

TEST(Rpn, ClearsTheRestOfTheBlock) {
  Stage stage;
  SetRpn(&stage, {"rpn", {1, 4}, 0, 32, 64, 0}, "1\t2\n3 4");
  const auto inputs = InputsSeen(stage.Run({"-r", "rpn.txt"}));
  ASSERT_EQ(inputs.size(), 4u);
  EXPECT_EQ(support::Hex(inputs[1].bytes),
            support::Hex(support::Bytes<float>({1, 2, 3, 4}) + std::string(48, '\0')));
}

TEST(Rpn, PutsTheRowsOfSeveralClassesAtTheirStride) {
  Stage stage;
  SetRpn(&stage, kMulti, "1 2 3 4 5 6 7 8 9 10 11 12");
  const Transcript run = stage.Run({"-r", "rpn.txt"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, {Size(4, 3)});
  std::string expected(128, '\0');
  for (int row = 0; row < 4; ++row) {
    const auto first = static_cast<float>(3 * row + 1);
    expected.replace(static_cast<size_t>(row) * 32, 12,
                     support::Bytes<float>({first, first + 1, first + 2}));
  }
  EXPECT_EQ(support::Hex(InputsSeen(run)[1].bytes), support::Hex(expected));
  ExpectClean(run);
}

// Only the number of values tells the forms apart: one class in the multi-class form is laid out
// as a single class is.
TEST(Rpn, PutsFourRowsOfOneClassSideBySide) {
  Stage stage;
  SetRpn(&stage, {"rpn", {4, 1}, 0, 16, 64, 0}, "1 2 3 4");
  const Transcript run = stage.Run({"-r", "rpn.txt"});
  ExpectStatus(run, 0);
  EXPECT_EQ(support::Hex(InputsSeen(run)[1].bytes),
            support::Hex(support::Bytes<float>({1, 2, 3, 4}) + std::string(48, '\0')));
}

TEST(Rpn, RoundsAnOddStrideDownToWholeFloats) {
  Stage stage;
  SetRpn(&stage, {"rpn", {4, 2}, 0, 19, 76, 0}, "1 2 3 4 5 6 7 8");
  const Transcript run = stage.Run({"-r", "rpn.txt"});
  ExpectStatus(run, 0);
  std::string expected(76, '\0');
  for (int row = 0; row < 4; ++row) {
    const auto first = static_cast<float>(2 * row + 1);
    expected.replace(static_cast<size_t>(row) * 16, 8, support::Bytes<float>({first, first + 1}));
  }
  EXPECT_EQ(support::Hex(InputsSeen(run)[1].bytes), support::Hex(expected));
}

TEST(Rpn, IsNotScaledByTheBatch) {
  Stage stage;
  SetRpn(&stage, kSingle, "1 2 3 4");
  stage.File("a.bin", support::CountingBytes(32));
  const Transcript run = stage.Run({"-r", "rpn.txt", "-b", "2"});
  ExpectStatus(run, 0);
  EXPECT_EQ(InputsSeen(run)[1].bytes.size(), 16u);
  EXPECT_EQ(InputsSeen(run)[2].bytes.size(), 64u);
}

// Two files, two buffers; both take size and stride from input 1, the shape from the third last but
// one.
TEST(Rpn, AddsOneBufferForEachFileSizedLikeInputOne) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0})
      .Input({"rpn0", {7, 7}, 0, 24, 48, 0})
      .Input({"rpn1", {1, 4}, 0, 32, 32, 0})
      .Scratch()
      .Line("see inputs hex");
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  stage.File("r0", "1 2 3 4").File("r1", "5 6 7 8");
  const Transcript run = stage.Run({"-r", "r0,r1"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Join({Plan(1, 1), {Size(1, 4), Size(1, 4)}}));
  const auto inputs = InputsSeen(run);
  ASSERT_EQ(inputs.size(), 5u);
  EXPECT_EQ(support::Hex(inputs[1].bytes),
            support::Hex(support::Bytes<float>({1, 2, 3, 4}) + std::string(32, '\0')));
  EXPECT_EQ(support::Hex(inputs[2].bytes),
            support::Hex(support::Bytes<float>({5, 6, 7, 8}) + std::string(32, '\0')));
  const Lines created = run.record.CallsOf("vorn_create_data_buffer");
  ASSERT_EQ(created.size(), 5u);
  EXPECT_EQ(created[1], "vorn_create_data_buffer(block#3, 48, 24) = buffer#2");
  EXPECT_EQ(created[2], "vorn_create_data_buffer(block#4, 48, 24) = buffer#3");
  ExpectClean(run);
}

TEST(Rpn, IsReadAgainForEachInference) {
  Stage stage;
  SetRpn(&stage, kSingle, "1 2 3 4");
  stage.List({"a.bin", "a.bin"});
  const Transcript run = stage.Run({"-r", "rpn.txt"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Join({BatchSet(), {Size(1, 4)}, BatchSet(), {Size(1, 4)}}));
  EXPECT_EQ(InputsSeen(run, 2)[1].bytes, support::Bytes<float>({1, 2, 3, 4}));
}

TEST(Rpn, CountsAFinalLineEndAsOneMoreValue) {
  ExpectRefused(kSingle, "0.5 0.3 0.7 0.1\n",
                {"[ERROR] [single thr]: detPara.size 1 should be 4, Please check rpn file."});
}

TEST(Rpn, RefusesAnotherCountOfValuesForASingleClass) {
  ExpectRefused(kSingle, "1 2 3",
                {"[ERROR] [single thr]: detPara.size 0 should be 4, Please check rpn file."});
  ExpectRefused(kSingle, "1 2 3 4 5 6 7 8 9",
                {"[ERROR] [single thr]: detPara.size 2 should be 4, Please check rpn file."});
  ExpectRefused({"rpn", {1, 5}, 0, 32, 32, 0}, "1 2 3 4",
                {"[ERROR] [single thr]: detPara.size 1 should be 4, Please check rpn file."});
}

TEST(Rpn, RefusesAnotherCountOfValuesForSeveralClasses) {
  ExpectRefused(kMulti, "1 2 3 4 5 6 7 8 9 10 11",
                {"[ERROR] [multi thr]: detPara.size 11 should be 12"});
}

TEST(Rpn, RefusesATextThatIsNoNumber) {
  ExpectRefused(kSingle, "0.5 x 0.7 0.1", {"[ERROR] read rpn para error"});
  ExpectRefused(kSingle, "1 2 3 4 five", {"[ERROR] read rpn para error"});
}

TEST(Rpn, RefusesAnotherHeightThanOneAndFour) {
  for (const int64_t height : {0, 2, 3, 5, -1}) {
    SCOPED_TRACE(height);
    ExpectRefused({"rpn", {height, 4}, 0, 16, 16, 0}, "1 2 3 4",
                  {"[ERROR] only support single or multi class"});
  }
}

TEST(Rpn, ShowsNegativeDimensionsAsZero) {
  Stage stage;
  SetRpn(&stage, {"rpn", {-4, -1}, 0, 16, 16, 0}, "1 2 3 4");
  EXPECT_TRUE(stage.Run({"-r", "rpn.txt"}).HasLine(Size(0, 0)));
}

TEST(Rpn, RefusesAnInputThatIsNoMatrix) {
  const Lines cause{"[ERROR] vorn_mdl_get_input_dims rpn_data error!"};
  ExpectRefused({"rpn", {1, 1, 4}, 0, 16, 16, 0}, "1 2 3 4", cause);
  ExpectRefused({"rpn", {4}, 0, 16, 16, 0}, "1 2 3 4", cause);
}

TEST(Rpn, RefusesAFileThatIsMissingOrNoFile) {
  Stage stage;
  SetRpn(&stage, kSingle, "");
  EXPECT_EQ(FromFirstError(stage.Run({"-r", "none.txt"})),
            Failed({"[ERROR] failed to get file $DIR/none.txt", "[ERROR] read rpn para error"}));
  EXPECT_EQ(FromFirstError(stage.Run({"-r", "out"})),
            Failed({"[ERROR] $DIR/out is not a file, please enter a file",
                    "[ERROR] read rpn para error"}));
}

// All files are checked before the first buffer is made.
TEST(Rpn, AddsNothingIfTheSecondFileIsBad) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0}).Input(kSingle).Input(kSingle).Scratch();
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  stage.File("r0", "1 2 3 4").File("r1", "1 2 3");
  const Transcript run = stage.Run({"-r", "r0,r1"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.record.CallsOf("vorn_create_data_buffer").size(), 1u) << "the data input's";
  ExpectClean(run);
}

TEST(Rpn, ReportsABufferThatCannotBeMade) {
  const struct {
    const char* operation;
    const char* calls;
    const char* value;
    const char* error;
  } cases[] = {
      // The model and the data input come before.
      {"vorn_rt_malloc", "3", "5", "[ERROR] malloc device buffer failed"},
      {"vorn_create_data_buffer", "2", "null",
       "[ERROR] can't create data buffer, create input failed"},
      {"vorn_mdl_add_dataset_buffer", "2", "4", "[ERROR] add input dataset buffer failed"},
  };
  for (const auto& failure : cases) {
    SCOPED_TRACE(failure.operation);
    Stage stage;
    SetRpn(&stage, kSingle, "1 2 3 4");
    stage.script.Answer(failure.operation, failure.calls, failure.value);
    const Transcript run = stage.Run({"-r", "rpn.txt"});
    ExpectStatus(run, 1);
    EXPECT_EQ(FromFirstError(run), Failed({failure.error, "[ERROR] SetDetParas error"}));
    ExpectClean(run);
  }
}

}  // namespace
}  // namespace e2e
