// The input dataset of an inference: which buffers it gets, how large, and what goes wrong with
// them.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

constexpr char kNoBuffer[] = "[ERROR] can't create data buffer, create input failed";
constexpr char kNotAdded[] = "[ERROR] add input dataset buffer failed";

/// A plain run in which the runtime answers as said.
Transcript RunAnswering(const std::string& operation, const std::string& calls,
                        const std::string& value) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer(operation, calls, value);
  return stage.Run();
}

/// A plain run of a model whose first input is this.
Transcript RunFirstInput(const support::TensorSpec& tensor) {
  Stage stage;
  SetPlain(&stage);
  stage.script = support::ModelScript();
  stage.script.Input(tensor).Scratch();
  return stage.Run();
}

Lines FailedScratch(const Lines& cause) {
  return Join({cause,
               {"[ERROR] execute Create taskBuffer and workBuffer failed",
                "[ERROR] CreateTaskBufAndWorkBuf failed"},
               Unloaded(),
               ProcessFailed()});
}

TEST(InputBuffers, AreScaledByTheBatchScratchIncluded) {
  Stage stage;
  SetPlain(&stage);
  stage.File("a.bin", support::CountingBytes(4 * 24));
  const Transcript run = stage.Run({"-b", "4"});
  ExpectStatus(run, 0);
  const auto inputs = InputsSeen(run);
  ASSERT_EQ(inputs.size(), 3u);
  EXPECT_EQ(inputs[0].bufferSize, 4u * 32);
  EXPECT_EQ(inputs[1].bytes, std::string(4 * 32, '\0'));
  EXPECT_EQ(inputs[2].bytes, std::string(4 * 64, '\0'));
  std::string expected;
  for (unsigned row = 0; row < 8; ++row) {
    expected += support::CountingBytes(12, row * 12) + std::string(4, '\xA5');
  }
  EXPECT_EQ(support::Hex(inputs[0].bytes), support::Hex(expected));
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_set_dynamic_batch_size"),
            (Lines{"vorn_mdl_set_dynamic_batch_size(1, dataset#2, 0, 4) = 0"}));
  ExpectClean(run);
}

TEST(InputBuffers, AreMadeAnewForEachInference) {
  Stage stage;
  SetPlain(&stage);
  stage.List({"a.bin", "a.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_execute"),
            (Lines{"vorn_mdl_execute(1, dataset#2, dataset#1) = 0",
                   "vorn_mdl_execute(1, dataset#3, dataset#1) = 0"}));
  EXPECT_EQ(InputsSeen(run, 2)[1].bytes, std::string(32, '\0'));
  EXPECT_EQ(
      run.record.CallsOf("vorn_mdl_destroy_dataset"),
      (Lines{"vorn_mdl_destroy_dataset(dataset#2) = 0", "vorn_mdl_destroy_dataset(dataset#3) = 0",
             "vorn_mdl_destroy_dataset(dataset#1) = 0"}));
  ExpectClean(run);
}

TEST(InputBuffers, NeedADataset) {
  // The first dataset is that of the outputs.
  const Transcript run = RunAnswering("vorn_mdl_create_dataset", "2", "null");
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), Join({{"[ERROR] can't create dataset, create input failed",
                                        "[ERROR] execute InitInput failed"},
                                       Unloaded(),
                                       ProcessFailed()}));
  ExpectClean(run);
}

TEST(InputBuffers, RefuseAStrideOfZero) {
  const Transcript run = RunFirstInput({"in0", {1, 4}, 0, 0, 16, 0});
  ExpectStatus(run, 1);
  EXPECT_EQ(FilesRead(run), (Lines{"$DIR/a.bin"}));
  EXPECT_EQ(FromFirstError(run), FailedInput({"[ERROR] vorn_mdl_get_input_default_stride error!",
                                              "[ERROR] GetStrideParam error"}));
  EXPECT_EQ(run.record.CallsOf("vorn_rt_malloc").size(), 1u) << "only the model's";
  ExpectClean(run);
}

TEST(InputBuffers, RefuseASizeOfZero) {
  const Transcript run = RunFirstInput({"in0", {1, 4}, 0, 16, 0, 0});
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedInput({"[ERROR] vorn_mdl_get_input_size_by_index error!",
                                              "[ERROR] GetStrideParam error"}));
}

TEST(InputBuffers, RefuseAnInputWhoseShapeCannotBeAsked) {
  Stage stage;
  SetPlain(&stage);
  stage.script.AnswerAt("vorn_mdl_get_input_dims", 0, "2", "5");  // the first is printed
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedInput({"[ERROR] vorn_mdl_get_input_dims error!",
                                              "[ERROR] GetStrideParam error"}));
}

TEST(InputBuffers, RefuseAnElementOfUnknownOrLessThanAByte) {
  for (const char* bits : {"0", "4", "7"}) {
    SCOPED_TRACE(bits);
    Stage stage;
    SetPlain(&stage);
    stage.script.Line(std::string("bits 0 ") + bits);
    const Transcript run = stage.Run();
    ExpectStatus(run, 1);
    EXPECT_EQ(FromFirstError(run), FailedInput({"[ERROR] GetInputDataSize == 0 error"}));
    ExpectClean(run);
  }
}

TEST(InputBuffers, ReturnTheBlockOfAFileThatGotNoBuffer) {
  const Transcript run = RunAnswering("vorn_create_data_buffer", "2", "null");
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedInput({kNoBuffer, "[ERROR] execute CreateInput failed"}));
  ExpectClean(run);
}

TEST(InputBuffers, ReturnTheBlockOfAFileThatWasNotAdded) {
  const Transcript run = RunAnswering("vorn_mdl_add_dataset_buffer", "2", "4");
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedInput({kNotAdded, "[ERROR] execute CreateInput failed"}));
  ExpectClean(run);
}

TEST(ScratchBuffers, ReportWhenMemoryRunsOut) {
  // Model, output and input come before.
  const Transcript run = RunAnswering("vorn_rt_malloc", "4", "5");
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            FailedScratch({"[ERROR] malloc device buffer failed. size is 32"}));
  ExpectClean(run);
}

TEST(ScratchBuffers, ReturnTheBlockThatGotNoBuffer) {
  for (const char* call : {"3", "4"}) {
    SCOPED_TRACE(call);
    const Transcript run = RunAnswering("vorn_create_data_buffer", call, "null");
    ExpectStatus(run, 1);
    EXPECT_EQ(FromFirstError(run),
              FailedScratch({kNoBuffer, "[ERROR] execute CreateInput failed"}));
    ExpectClean(run);
  }
}

TEST(ScratchBuffers, ReturnTheBlockThatWasNotAdded) {
  const Transcript run = RunAnswering("vorn_mdl_add_dataset_buffer", "4", "4");
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedScratch({kNotAdded, "[ERROR] execute CreateInput failed"}));
  ExpectClean(run);
}

TEST(ScratchBuffers, RefuseAStrideOfZero) {
  Stage stage;
  SetPlain(&stage);
  stage.script.AnswerAt("vorn_mdl_get_input_default_stride", 2, "2", "0");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedScratch({"[ERROR] vorn_mdl_get_input_default_stride error!",
                                                "[ERROR] Error, GetInputStrideParam failed"}));
  ExpectClean(run);
}

// What an inference leaves behind when it fails half-way is released after the model.
TEST(InputBuffers, OfAFailedInferenceGoAfterTheModel) {
  const Transcript run = RunAnswering("vorn_mdl_set_dynamic_batch_size", "1", "8");
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), Join({{"[ERROR] vorn_mdl_set_dynamic_batch_size fail! ret = 8",
                                        "[ERROR] Set batch size failed"},
                                       Unloaded(),
                                       ProcessFailed()}));
  const Lines calls = run.record.CallsWithoutQueries();
  const auto unload = std::find(calls.begin(), calls.end(), "vorn_mdl_unload(1) = 0");
  EXPECT_EQ(
      Lines(unload, calls.end()),
      (Lines{"vorn_mdl_unload(1) = 0", "vorn_mdl_destroy_desc(desc#1) = 0",
             "vorn_rt_free(block#1) = 0", "vorn_rt_free(block#3) = 0",
             "vorn_destroy_data_buffer(buffer#2) = 0", "vorn_mdl_destroy_dataset(dataset#2) = 0",
             "vorn_rt_free(block#2) = 0", "vorn_destroy_data_buffer(buffer#1) = 0",
             "vorn_mdl_destroy_dataset(dataset#1) = 0", "vorn_rt_destroy_stream(stream#1) = 0",
             "vorn_rt_destroy_context(context#1) = 0", "vorn_rt_reset_device(0) = 0",
             "vorn_finalize() = 0"}));
  ExpectClean(run);
}

}  // namespace
}  // namespace e2e
