// The output dataset: made once, sized by the batch, released whatever happened.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::ModelScript;
using support::Stage;
using support::TensorSpec;
using support::Transcript;

/// A run whose list is empty, over these outputs.
Transcript RunOutputs(const std::vector<TensorSpec>& outputs, const Lines& more = {},
                      const Lines& statements = {}) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0}).Scratch();
  for (const TensorSpec& output : outputs) stage.script.Output(output);
  for (const std::string& statement : statements) stage.script.Line(statement);
  stage.List({});
  return stage.Run(more);
}

// Of the lines before, none tells of a success.
void ExpectFailed(const Transcript& run, const Lines& cause) {
  EXPECT_EQ(FromFirstError(run),
            Join({cause, {"[ERROR] execute CreateOutput failed"}, Unloaded(), ProcessFailed()}));
  EXPECT_EQ(std::ranges::count(run.lines, "[INFO]  create model output success"), 0);
}

const TensorSpec kOutput{"o", {1, 4}, 0, 16, 48, 0};

TEST(CreateOutput, MakesOneBufferAnOutputScaledByTheBatch) {
  const Transcript run = RunOutputs({kOutput, {"p", {1, 2}, 4, 8, 8, 0}}, {"-b", "3"});
  ExpectStatus(run, 0);
  EXPECT_EQ(run.record.CallsOf("vorn_create_data_buffer"),
            (Lines{"vorn_create_data_buffer(block#2, 144, 16) = buffer#1",
                   "vorn_create_data_buffer(block#3, 24, 8) = buffer#2"}));
  ExpectClean(run);
}

TEST(CreateOutput, ClearsTheBlocks) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Line("see outputs hex");
  for (const support::Sight& sight : stage.Run().record.Sights()) {
    if (!sight.isInput) {
      EXPECT_EQ(sight.bytes, std::string(16, '\0'));
    }
  }
}

TEST(CreateOutput, KeepsTheBlocksFromInferenceToInference) {
  Stage stage;
  SetPlain(&stage);
  stage.List({"a.bin", "a.bin"});
  stage.script.Line("see outputs hex");
  const Transcript run = stage.Run();
  std::vector<std::string> seen;
  for (const support::Sight& sight : run.record.Sights()) {
    if (!sight.isInput) seen.push_back(sight.bytes);
  }
  EXPECT_EQ(seen,
            (Lines{std::string(16, '\0'), support::Bytes(kPlainOutput) + std::string(4, '\0')}));
}

TEST(CreateOutput, SucceedsWithoutOutputs) {
  const Transcript run = RunOutputs({});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, {"[INFO]  create model output success"});
  ExpectClean(run);
}

TEST(CreateOutput, NeedsADataset) {
  const Transcript run = RunOutputs({kOutput}, {}, {"answer vorn_mdl_create_dataset 1 null"});
  ExpectStatus(run, 1);
  ExpectFailed(run, {"[ERROR] can't create dataset, create output failed"});
  ExpectClean(run);
}

TEST(CreateOutput, RefusesABatchOfZero) {
  const Transcript run = RunOutputs({kOutput}, {"-b", "0"});
  ExpectStatus(run, 1);
  ExpectFailed(run, {"[ERROR] Error, output size is 0."});
  ExpectClean(run);
}

TEST(CreateOutput, RefusesAStrideOfZeroAndReleasesTheEarlierOutputs) {
  const Transcript run = RunOutputs({kOutput, {"p", {1, 4}, 0, 0, 16, 0}});
  ExpectStatus(run, 1);
  ExpectFailed(run, {"[ERROR] Error, output default stride is 0."});
  const Lines calls = run.record.CallsWithoutQueries();
  const auto unload = std::find(calls.begin(), calls.end(), "vorn_mdl_unload(1) = 0");
  EXPECT_LT(unload, std::find(calls.begin(), calls.end(), "vorn_rt_free(block#2) = 0"))
      << "the buffers of earlier outputs stay until the model goes";
  ExpectClean(run);
}

TEST(CreateOutput, ReportsTheStrideBeforeTheSize) {
  const Transcript run = RunOutputs({{"o", {1, 4}, 0, 0, 0, 0}});
  ExpectFailed(run, {"[ERROR] Error, output default stride is 0."});
}

TEST(CreateOutput, RefusesASizeOfZero) {
  const Transcript run = RunOutputs({{"o", {1, 4}, 0, 16, 0, 0}});
  ExpectFailed(run, {"[ERROR] Error, output size is 0."});
}

TEST(CreateOutput, ReportsWhenMemoryRunsOut) {
  const Transcript run = RunOutputs({kOutput, kOutput}, {"-b", "2"}, {"answer vorn_rt_malloc 3 5"});
  ExpectStatus(run, 1);
  ExpectFailed(run, {"[ERROR] can't malloc buffer, size is 96, create output failed"});
  ExpectClean(run);
}

TEST(CreateOutput, ReturnsTheBlockThatGotNoBuffer) {
  const Transcript run =
      RunOutputs({kOutput, kOutput}, {}, {"answer vorn_create_data_buffer 2 null"});
  ExpectStatus(run, 1);
  ExpectFailed(run, {"[ERROR] can't create data buffer, create output failed"});
  ExpectClean(run);
}

TEST(CreateOutput, ReturnsBlockThenBufferThatWereNotAdded) {
  const Transcript run = RunOutputs({kOutput}, {}, {"answer vorn_mdl_add_dataset_buffer 1 4"});
  ExpectStatus(run, 1);
  ExpectFailed(run, {"[ERROR] can't add data buffer, create output failed"});
  const Lines calls = run.record.CallsWithoutQueries();
  const auto added = std::find(calls.begin(), calls.end(),
                               "vorn_mdl_add_dataset_buffer(dataset#1, buffer#1) = 4 [scripted]");
  ASSERT_LT(added + 2, calls.end());
  EXPECT_EQ(added[1], "vorn_rt_free(block#2) = 0");
  EXPECT_EQ(added[2], "vorn_destroy_data_buffer(buffer#1) = 0");
  ExpectClean(run);
}

}  // namespace
}  // namespace e2e
