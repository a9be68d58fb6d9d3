// The main path: one model, one input file, everything goes well.
#include <gtest/gtest.h>

#include "e2e/expected.h"
#include "support/files.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

TEST(PlainRun, SaysEachStepAndExitsWithZero) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
  EXPECT_EQ(run.rawOut.back(), '\n');
  ExpectClean(run);
}

// The same output in full, so that the blocks of expected.cpp are themselves seen once.
TEST(PlainRun, ReadsLikeThis) {
  Stage stage;
  SetPlain(&stage);
  EXPECT_EQ(stage.Run().lines,
            (Lines{"[INFO]  inputPath: model.om",
                   "[INFO]  inputPath: vorn.json",
                   "[INFO]  vorn init success",
                   "[INFO]  open device 0 success",
                   "[INFO]  set op wait time success",
                   "[INFO]  create context success",
                   "[INFO]  create stream success",
                   "[INFO]  get run mode success",
                   "[INFO]  load model $DIR/model.om success",
                   "[INFO]  create model description success",
                   "[INFO]  ------------------ Input Info ------------------",
                   "[INFO]  Input index: 0, name: in0",
                   "[INFO]  Shape: [1, 2, 3, ]",
                   "[INFO]  DataType: 0, stride: 16, format: 0, dataSizeWithStride: 32",
                   "[INFO]  Input index: 1, name: task",
                   "[INFO]  Shape: [32, ]",
                   "[INFO]  DataType: 4, stride: 16, format: 2, dataSizeWithStride: 32",
                   "[INFO]  Input index: 2, name: work",
                   "[INFO]  Shape: [64, ]",
                   "[INFO]  DataType: 4, stride: 16, format: 2, dataSizeWithStride: 64",
                   "[INFO]  ------------------ Output Info ------------------",
                   "[INFO]  Output index: 0, name: prob",
                   "[INFO]  Shape: [1, 3, ]",
                   "[INFO]  DataType: 0, stride: 16, format: 2, dataSizeWithStride: 16",
                   "[INFO]  inputPath: ./a.bin",
                   "[INFO]  create model output success",
                   "[INFO]  Model inputNum: 1",
                   "[INFO]  Model Iters : 1",
                   "[INFO]  start to process file:$DIR/a.bin",
                   "[INFO]  The amount of data required for inference in a single batch is [32]",
                   "[INFO]  The stride of model is [16]",
                   "[INFO]  The data size of data type is [4]",
                   "[INFO]  Reading bin file [$DIR/a.bin]",
                   "[INFO]  The shape of the model is [1,2,3]",
                   "[WARN]  vorn_mdl_set_dynamic_batch_size set batchsize to 1",
                   "[INFO]  model execute success",
                   "[INFO]  The value of vorn_data_type is [0]",
                   "[INFO]  dump data success",
                   "[INFO]  unload model success, modelId is 1",
                   "[INFO]  execute sample success",
                   "[INFO]  end to destroy stream",
                   "[INFO]  end to destroy context",
                   "[INFO]  end to reset device is 0",
                   "[INFO]  end to finalize vorn"}));
}

TEST(PlainRun, AsksTheRuntimeInTheGivenOrder) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run();
  EXPECT_EQ(
      run.record.CallsWithoutQueries(),
      (Lines{"vorn_init(\"$DIR/vorn.json\") = 0", "vorn_rt_set_device(0) = 0",
             "vorn_rt_set_op_wait_timeout(0) = 0", "vorn_rt_create_context(0) = 0 context#1",
             "vorn_rt_create_stream() = 0 stream#1", "vorn_rt_get_run_mode() = 0 0",
             // The model.
             "vorn_rt_malloc(25, 2) = 0 block#1", "vorn_mdl_load_from_mem(block#1, 25) = 0 model#1",
             "vorn_mdl_create_desc() = desc#1", "vorn_mdl_get_desc(desc#1, 1) = 0",
             // The outputs, once.
             "vorn_mdl_create_dataset() = dataset#1", "vorn_rt_malloc(16, 2) = 0 block#2",
             "vorn_create_data_buffer(block#2, 16, 16) = buffer#1",
             "vorn_mdl_add_dataset_buffer(dataset#1, buffer#1) = 0",
             // The inference: the file, the task buffer, the work buffer.
             "vorn_mdl_create_dataset() = dataset#2", "vorn_rt_malloc(32, 2) = 0 block#3",
             "vorn_create_data_buffer(block#3, 32, 16) = buffer#2",
             "vorn_mdl_add_dataset_buffer(dataset#2, buffer#2) = 0",
             "vorn_mdl_set_dynamic_batch_size(1, dataset#2, 0, 1) = 0",
             "vorn_rt_malloc(32, 2) = 0 block#4",
             "vorn_create_data_buffer(block#4, 32, 16) = buffer#3",
             "vorn_mdl_add_dataset_buffer(dataset#2, buffer#3) = 0",
             "vorn_rt_malloc(64, 2) = 0 block#5",
             "vorn_create_data_buffer(block#5, 64, 16) = buffer#4",
             "vorn_mdl_add_dataset_buffer(dataset#2, buffer#4) = 0",
             "vorn_rt_set_op_wait_timeout(0) = 0", "vorn_mdl_execute(1, dataset#2, dataset#1) = 0",
             "vorn_rt_free(block#3) = 0", "vorn_destroy_data_buffer(buffer#2) = 0",
             "vorn_rt_free(block#4) = 0", "vorn_destroy_data_buffer(buffer#3) = 0",
             "vorn_rt_free(block#5) = 0", "vorn_destroy_data_buffer(buffer#4) = 0",
             "vorn_mdl_destroy_dataset(dataset#2) = 0",
             // Everything back.
             "vorn_mdl_unload(1) = 0", "vorn_mdl_destroy_desc(desc#1) = 0",
             "vorn_rt_free(block#1) = 0", "vorn_rt_free(block#2) = 0",
             "vorn_destroy_data_buffer(buffer#1) = 0", "vorn_mdl_destroy_dataset(dataset#1) = 0",
             "vorn_rt_destroy_stream(stream#1) = 0", "vorn_rt_destroy_context(context#1) = 0",
             "vorn_rt_reset_device(0) = 0", "vorn_finalize() = 0"}));
}

TEST(PlainRun, LaysTheFileIntoRowsAndClearsTheScratchBlocks) {
  Stage stage;
  SetPlain(&stage);
  const auto inputs = InputsSeen(stage.Run());
  ASSERT_EQ(inputs.size(), 3u);
  const std::string untouched(4, '\xA5');
  const std::string file = support::Bytes(kPlainInput);
  EXPECT_EQ(support::Hex(inputs[0].bytes),
            support::Hex(file.substr(0, 12) + untouched + file.substr(12) + untouched));
  EXPECT_EQ(support::Hex(inputs[1].bytes), support::Hex(std::string(32, '\0')));
  EXPECT_EQ(support::Hex(inputs[2].bytes), support::Hex(std::string(64, '\0')));
}

TEST(PlainRun, LeavesTheOutputAsTextAndAsBinary) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run();
  const std::map<std::string, std::string> expected{
      {"0/prob.0.T.float", "1.5000000000000000\n-2.0000000000000000\n0.2500000000000000\n"},
      {"0/prob.0.T.bin", support::Bytes(kPlainOutput)}};
  EXPECT_EQ(run.files, expected);
}

TEST(PlainRun, GivesBothFilesOfAnOutputOneTimeStamp) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run();
  ASSERT_EQ(run.rawFileNames.size(), 2u);
  const auto stem = [](const std::string& name) { return name.substr(0, name.rfind('.')); };
  EXPECT_EQ(stem(run.rawFileNames[0]), stem(run.rawFileNames[1]));
}

TEST(PlainRun, HandsTheModelImageOverByteForByte) {
  Stage stage;
  SetPlain(&stage);
  stage.File("model.om", support::CountingBytes(1000));
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem"),
            (Lines{"vorn_mdl_load_from_mem(block#1, 1000) = 0 model#1"}));
}

}  // namespace
}  // namespace e2e
