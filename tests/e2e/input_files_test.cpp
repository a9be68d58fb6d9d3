// From a dense file to rows in a block: what is checked, what the batch becomes, where bytes land.
#include <gtest/gtest.h>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::ModelScript;
using support::Stage;
using support::TensorSpec;
using support::Transcript;

constexpr char kMismatch[] = "[WARN]  The input data shape not match model's input shape [N,C,H,W]";
constexpr char kNoBuffer[] = "[ERROR] get pic device buffer failed";

const TensorSpec kRow{"in0", {1, 4}, 0, 16, 16, 0};        // 16 dense bytes in 16
const TensorSpec kPadded{"in0", {1, 2, 3}, 0, 16, 32, 0};  // 24 dense bytes in 32

std::string Reset(uint64_t batchSize) {
  return "[WARN]  Reset the batchSize to [" + std::to_string(batchSize) + "]";
}

/// A stage for one input and no output, so that only the input matters.
void SetInput(Stage* stage, const TensorSpec& tensor, const std::string& file) {
  stage->script.Input(tensor).Scratch().Line("see inputs hex");
  stage->File("a.bin", file).List({"a.bin"});
}

TEST(ReadInputFile, PlacesEachRowAtItsStrideAndLeavesThePadding) {
  Stage stage;
  const TensorSpec tensor{"in0", {1, 3, 4, 5}, 4, 32, 384, 0};
  SetInput(&stage, tensor, support::CountingBytes(60));
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  std::string expected(384, '\xA5');
  for (size_t row = 0; row < 12; ++row) {
    expected.replace(row * 32, 5, support::CountingBytes(5, static_cast<unsigned>(row * 5)));
  }
  EXPECT_EQ(support::Hex(InputsSeen(run)[0].bytes), support::Hex(expected));
  ExpectLinesInOrder(run, Join({Reading("$DIR/a.bin", tensor, 1), BatchSet()}));
  ExpectClean(run);
}

TEST(ReadInputFile, ResetsBatchToWhatTheFileHolds) {
  Stage stage;
  SetInput(&stage, kRow, support::CountingBytes(32));
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(
      run.Between("[INFO]  start to process file:$DIR/a.bin", "[INFO]  model execute success"),
      Join({Reading("$DIR/a.bin", kRow, 4), {kMismatch, Reset(2)}, BatchSet(2)}));
  const auto inputs = InputsSeen(run);
  ASSERT_EQ(inputs.size(), 3u);
  EXPECT_EQ(inputs[0].bufferSize, 16u) << "as large as the batch was before the file was read";
  EXPECT_EQ(support::Hex(inputs[0].bytes.substr(0, 32)), support::Hex(support::CountingBytes(32)));
  EXPECT_EQ(inputs[1].bufferSize, 2u * 32);
  EXPECT_EQ(inputs[2].bufferSize, 2u * 64);
  ExpectClean(run);
}

TEST(ReadInputFile, ResetsBatchDownwardsToo) {
  Stage stage;
  SetInput(&stage, kRow, support::CountingBytes(32));
  const Transcript run = stage.Run({"-b", "4"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run,
                     Join({Reading("$DIR/a.bin", kRow, 4), {kMismatch, Reset(2)}, BatchSet(2)}));
  const auto inputs = InputsSeen(run);
  EXPECT_EQ(inputs[0].bufferSize, 64u);
  EXPECT_EQ(support::Hex(inputs[0].bytes),
            support::Hex(support::CountingBytes(32) + std::string(32, '\xA5')));
  EXPECT_EQ(inputs[1].bufferSize, 2u * 32);
}

TEST(ReadInputFile, LeavesTheResetBatchToTheNextInference) {
  Stage stage;
  SetInput(&stage, kRow, support::CountingBytes(32));
  stage.File("b.bin", support::CountingBytes(48)).List({"a.bin", "a.bin", "b.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  const Lines read = Reading("$DIR/a.bin", kRow, 4);
  ExpectLinesInOrder(run, Join({read,
                                {kMismatch, Reset(2)},
                                BatchSet(2),
                                read,
                                BatchSet(2),
                                Reading("$DIR/b.bin", kRow, 4),
                                {kMismatch, Reset(3)},
                                BatchSet(3)}));
  EXPECT_EQ(InputsSeen(run, 2)[0].bufferSize, 32u);
}

TEST(ReadInputFile, SizesLaterInputsByTheResetBatch) {
  Stage stage;
  stage.script.Input(kRow).Input({"in1", {1, 16}, 4, 16, 16, 0}).Scratch().Line("see inputs hex");
  stage.File("a.bin", support::CountingBytes(32)).List({"a.bin", "a.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(InputsSeen(run)[0].bufferSize, 16u);
  EXPECT_EQ(InputsSeen(run)[1].bufferSize, 32u);
  ExpectClean(run);
}

// Compared with the dense size, reset by the padded one: two dense items are one and a half padded.
TEST(ReadInputFile, RefusesTwoPaddedItemsForABatchOfOne) {
  Stage stage;
  SetInput(&stage, kPadded, support::CountingBytes(48));
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectLinesInOrder(
      run, Join({Reading("$DIR/a.bin", kPadded, 4),
                 {kMismatch, Reset(1)},
                 FailedInput({"[ERROR] Input data size[48] must be smaller than malloc size[32]",
                              kNoBuffer})}));
  EXPECT_TRUE(run.record.CallsOf("vorn_mdl_execute").empty());
}

TEST(ReadInputFile, TakesTwoPaddedItemsForABatchOfTwo) {
  Stage stage;
  SetInput(&stage, kPadded, support::CountingBytes(48));
  const Transcript run = stage.Run({"-b", "2"});
  ExpectStatus(run, 0);
  EXPECT_EQ(
      run.Between("[INFO]  start to process file:$DIR/a.bin", "[INFO]  model execute success"),
      Join({Reading("$DIR/a.bin", kPadded, 4), BatchSet(2)}));
}

TEST(ReadInputFile, RefusesOneAndAHalfItems) {
  Stage stage;
  SetInput(&stage, kRow, support::CountingBytes(24));
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_FALSE(run.HasLine(kMismatch)) << "24 / 16 is 1, the batch as it is";
  EXPECT_EQ(
      FromFirstError(run),
      FailedInput({"[ERROR] Input data size[24] must be smaller than malloc size[16]", kNoBuffer}));
  EXPECT_EQ(run.record.Live(),
            "blocks=1 buffers=0 datasets=0 descs=0 contexts=0 streams=0 models=0")
      << "the block of the refused file stays";
  EXPECT_EQ(run.record.Violations(), Lines{});
}

TEST(ReadInputFile, CopiesAShortFileAsFarAsItReaches) {
  Stage stage;
  SetInput(&stage, kPadded, support::CountingBytes(17));
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(
      run.Between("[INFO]  start to process file:$DIR/a.bin", "[INFO]  model execute success"),
      Join({Reading("$DIR/a.bin", kPadded, 4), {kMismatch}, BatchSet()}));
  EXPECT_EQ(support::Hex(InputsSeen(run)[0].bytes),
            support::Hex(support::CountingBytes(12) + std::string(4, '\xA5') +
                         support::CountingBytes(5, 12) + std::string(11, '\xA5')));
}

TEST(ReadInputFile, ShowsTheShapeWithoutBlanks) {
  Stage stage;
  SetInput(&stage, {"in0", {1, 1, 2, 8}, 4, 8, 16, 0}, support::CountingBytes(16));
  EXPECT_TRUE(stage.Run().HasLine("[INFO]  The shape of the model is [1,1,2,8]"));
}

TEST(ReadInputFile, ReportsAFileThatIsMissing) {
  Stage stage;
  SetInput(&stage, kRow, "");
  stage.List({"none.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run, {"[INFO]  start to process file:$DIR/none.bin"});
  EXPECT_EQ(FromFirstError(run),
            FailedInput({"[ERROR] failed to get file $DIR/none.bin", kNoBuffer}));
  ExpectClean(run);
}

TEST(ReadInputFile, ReportsAFolder) {
  Stage stage;
  SetInput(&stage, kRow, "");
  stage.List({"out"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            FailedInput({"[ERROR] $DIR/out is not a file, please enter a file", kNoBuffer}));
}

TEST(ReadInputFile, ReportsAnEmptyFile) {
  Stage stage;
  SetInput(&stage, kRow, "");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run, Join({ReadingHead("$DIR/a.bin", kRow, 4),
                                FailedInput({"[ERROR] Empty file: $DIR/a.bin", kNoBuffer})}));
  ExpectClean(run);
}

TEST(ReadInputFile, TakesFourGibibytesForAnEmptyFile) {
  Stage stage;
  SetInput(&stage, kRow, "");
  support::WriteSparseFile(stage.Folder() / "a.bin", uint64_t{4} << 30);
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedInput({"[ERROR] Empty file: $DIR/a.bin", kNoBuffer}));
}

TEST(ReadInputFile, ReportsWhenMemoryRunsOut) {
  Stage stage;
  SetInput(&stage, kRow, support::CountingBytes(16));
  stage.script.Answer("vorn_rt_malloc", "2", "5");
  const Transcript run = stage.Run({"-b", "3"});
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            FailedInput({"[ERROR] malloc device buffer failed. size is 48", kNoBuffer}));
  ExpectClean(run);
}

TEST(ReadInputFile, ReportsANetTypeThatCannotBeAsked) {
  Stage stage;
  SetInput(&stage, kRow, support::CountingBytes(16));
  stage.script.Answer("vorn_ext_get_mdl_net_type", "1", "-9");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            FailedInput({"[ERROR] vorn_ext_get_mdl_net_type fail! ret = -9", kNoBuffer}));
  EXPECT_EQ(run.record.Live(),
            "blocks=1 buffers=0 datasets=0 descs=0 contexts=0 streams=0 models=0");
}

}  // namespace
}  // namespace e2e
