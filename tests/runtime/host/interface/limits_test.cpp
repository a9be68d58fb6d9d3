// Limits: how many devices, how much memory, how long an execution, and what is left at the end.
#include <gmock/gmock.h>

#include <atomic>
#include <regex>
#include <thread>

#include "runtime/host/host_fixture.h"

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

class HostLimits : public HostFixture {
 protected:
  vorn_status Allocate(uint64_t size) {
    void* block = nullptr;
    const vorn_status status = vorn_rt_malloc(&block, size, VORN_MEM_NORMAL_ONLY);
    if (status == VORN_SUCCESS) allocated.push_back(block);
    return status;
  }

  void FreeAll() {
    for (void* block : allocated) EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
    allocated.clear();
  }

  std::vector<void*> allocated;
};

// ---- Devices ------------------------------------------------------------------------------------

TEST_F(HostLimits, HasAsManyDevicesAsConfigured) {
  Restart(R"({"devices": 3})");
  vorn_rt_context* other = nullptr;
  EXPECT_EQ(vorn_rt_set_device(2), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_set_device(3), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_create_context(&other, 1), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_create_context(&other, 2), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_reset_device(1), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_THAT(LogOf([] { vorn_rt_set_device(3); }), HasSubstr("device 3 does not exist"));
}

TEST_F(HostLimits, ResettingADeviceLeavesTheOthersAlone) {
  Restart(R"({"devices": 2})");
  vorn_rt_stream* onFirst = nullptr;
  vorn_rt_stream* onSecond = nullptr;
  vorn_rt_context* second = nullptr;
  ASSERT_EQ(vorn_rt_create_stream(&onFirst), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_set_device(1), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_create_context(&second, 1), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_create_stream(&onSecond), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_reset_device(1), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_destroy_stream(onSecond), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_rt_destroy_context(second), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_rt_destroy_stream(onFirst), VORN_SUCCESS);
}

// ---- Memory -------------------------------------------------------------------------------------

TEST_F(HostLimits, BlocksComeOutOfTheMemoryOfTheDevice) {
  Restart(R"({"memoryLimit": 1000})");
  EXPECT_EQ(Allocate(600), VORN_SUCCESS);
  EXPECT_EQ(Allocate(401), VORN_ERROR_OUT_OF_MEMORY);
  EXPECT_THAT(LogOf([&] { Allocate(401); }),
              HasSubstr("size is 401 bytes; the device has 1000, of which 600 are taken"));
  EXPECT_EQ(Allocate(400), VORN_SUCCESS);
  FreeAll();
  EXPECT_EQ(Allocate(1000), VORN_SUCCESS);
  FreeAll();
}

TEST_F(HostLimits, EveryDeviceHasMemoryOfItsOwn) {
  Restart(R"({"memoryLimit": 1000, "devices": 2})");
  EXPECT_EQ(Allocate(1000), VORN_SUCCESS);
  EXPECT_EQ(Allocate(1), VORN_ERROR_OUT_OF_MEMORY);
  vorn_rt_context* second = nullptr;
  ASSERT_EQ(vorn_rt_set_device(1), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_create_context(&second, 1), VORN_SUCCESS);
  EXPECT_EQ(Allocate(1000), VORN_SUCCESS);
  EXPECT_EQ(Allocate(1), VORN_ERROR_OUT_OF_MEMORY);
  FreeAll();
}

TEST_F(HostLimits, BlocksOfAnEarlierRuntimeDoNotCount) {
  Restart(R"({"memoryLimit": 1000})");
  EXPECT_EQ(Allocate(1000), VORN_SUCCESS);
  Restart(R"({"memoryLimit": 1000})");
  EXPECT_EQ(Allocate(1000), VORN_SUCCESS);
  FreeAll();
}

/// y = x times a matrix of 512 by 512: 1 MiB of weights.
OnnxWriter Heavy() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {1, 512})
      .Constant<float>("w", kOnnxFloat, {512, 512}, std::vector<float>(512 * 512, 0.5F))
      .Output("y", kOnnxFloat, {1, 512})
      .Node("MatMul", {"x", "w"}, {"y"});
}

TEST_F(HostLimits, AModelHasToFitIntoTheMemoryOfTheDevice) {
  Restart(R"({"memoryLimit": 1000000})");
  EXPECT_EQ(Load(Heavy()), VORN_ERROR_OUT_OF_MEMORY);
  const std::string log = LogOf([&] { Load(Heavy()); });
  std::smatch numbers;
  ASSERT_TRUE(std::regex_search(
      log, numbers,
      std::regex(
          "the model wants ([0-9]+) bytes more; the device has 1000000, of which ([0-9]+) ")))
      << log;
  EXPECT_GT(std::stoull(numbers[1]) + std::stoull(numbers[2]), 1000000u) << log;
  EXPECT_EQ(Allocate(1000000), VORN_SUCCESS);  // nothing of it was kept
  FreeAll();
  Restart(R"({"memoryLimit": 4000000})");
  ASSERT_EQ(Load(Heavy()), VORN_SUCCESS);
  EXPECT_EQ(Allocate(3500000), VORN_ERROR_OUT_OF_MEMORY);  // the weights are there
  Unload();
  EXPECT_EQ(Allocate(3500000), VORN_SUCCESS);
  FreeAll();
}

/// Repeats a number as often as the data say, and takes the greatest: so does what it needs.
OnnxWriter Repeated() {
  return OnnxWriter()
      .Input("count", kOnnxInt64, {1})
      .Constant<float>("one", kOnnxFloat, {1}, {1})
      .Output("sum", kOnnxFloat, {1})
      .Node("Expand", {"one", "count"}, {"many"})
      .Node("Exp", {"many"}, {"more"})
      .Node("ReduceMax", {"more"}, {"sum"}, {IntAttribute("keepdims", 1)});
}

TEST_F(HostLimits, AnExecutionHasToFitIntoTheMemoryOfTheDevice) {
  Restart(R"({"memoryLimit": 1000000})");
  ASSERT_EQ(Load(Repeated()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<int64_t>(0, {1000}, 1);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
  in.Put<int64_t>(0, {1'000'000}, 1);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_ERROR_OUT_OF_MEMORY);
  in.Put<int64_t>(0, {INT64_C(1) << 60}, 1);
  EXPECT_NE(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
  in.Put<int64_t>(0, {1000}, 1);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
  EXPECT_FLOAT_EQ(out.Take<float>(0, 1, 1)[0], 2.7182817F);
}

TEST_F(HostLimits, ConstantsAreNotWorkedOutBesideTheLimit) {
  Restart(R"({"memoryLimit": 1000000, "graphOptimization": "all"})");
  const std::vector<int64_t> aGigabyte = {INT64_C(1) << 28};
  EXPECT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {1})
                     .Constant<int64_t>("size", kOnnxInt64, {1}, aGigabyte)
                     .Output("y", kOnnxFloat, {1})
                     .Node("ConstantOfShape", {"size"}, {"many"})
                     .Node("ReduceMax", {"many"}, {"most"}, {IntAttribute("keepdims", 1)})
                     .Node("Add", {"most", "x"}, {"y"})),
            VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_ERROR_OUT_OF_MEMORY);
}

TEST_F(HostLimits, WhatABatchBeyondItsOutputTakesIsCounted) {
  Restart(R"({"memoryLimit": 4000000})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {"n", 1024})
                     .Output("y", kOnnxFloat, {"n", 1024})
                     .Node("Neg", {"x"}, {"y"})),
            VORN_SUCCESS);
  // 2 MB, and the engine makes as much, of which the output holds an item.
  Blocks in = Inputs(500);
  Blocks out = Outputs();
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 500), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_ERROR_OUT_OF_MEMORY);
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 100), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
}

// ---- Time ---------------------------------------------------------------------------------------

/// The body of a loop that adds `step` to a number in every turn.
std::string Adding(const char* step) {
  return OnnxWriter()
      .Input("turn", kOnnxInt64, {})
      .Input("going", kOnnxBool, {})
      .Input("from", kOnnxFloat, {1})
      .Output("still", kOnnxBool, {})
      .Output("to", kOnnxFloat, {1})
      .Node("Identity", {"going"}, {"still"})
      .Node("Add", {"from", step}, {"to"})
      .Graph();
}

/// Counts up to `turns`, of which there may be as many as 64 bits hold.
OnnxWriter Turning() {
  return OnnxWriter()
      .Input("turns", kOnnxInt64, {1})
      .Constant<float>("one", kOnnxFloat, {1}, {1})
      .Constant<uint8_t>("yes", kOnnxBool, {}, {1})
      .Constant<float>("zero", kOnnxFloat, {1}, {0})
      .Output("count", kOnnxFloat, {1})
      .Node("Loop", {"turns", "yes", "zero"}, {"count"}, {GraphAttribute("body", Adding("one"))});
}

TEST_F(HostLimits, AnExecutionThatTakesTooLongIsEnded) {
  ASSERT_EQ(Load(Turning()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<int64_t>(0, {INT64_MAX}, 1);  // would end in some thousand years
  ASSERT_EQ(vorn_rt_set_op_wait_timeout(1), VORN_SUCCESS);
  const std::string log = LogOf(
      [&] { EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_ERROR_TIMEOUT); });
  EXPECT_EQ(log,
            "vorn: vorn_mdl_execute: the model ran longer than 1 s and was ended; give "
            "vorn_rt_set_op_wait_timeout more\n");
  ASSERT_EQ(vorn_rt_set_op_wait_timeout(3600), VORN_SUCCESS);
  in.Put<int64_t>(0, {7}, 1);
  for (int repeat = 0; repeat < 2; ++repeat) {
    ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 1, 1), std::vector<float>{7});
  }
}

/// Turns forever whatever its input is, and does not say what it gives: it takes a trial to know.
OnnxWriter Endless() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {1})
      .Constant<uint8_t>("yes", kOnnxBool, {}, {1})
      .ShapelessOutput("y", kOnnxFloat)
      .Node("Loop", {"", "yes", "x"}, {"y"}, {GraphAttribute("body", Adding("x"))});
}

TEST_F(HostLimits, ATrialThatTakesTooLongIsEnded) {
  ASSERT_EQ(vorn_rt_set_op_wait_timeout(1), VORN_SUCCESS);
  EXPECT_EQ(Load(Endless()), VORN_ERROR_TIMEOUT);
}

TEST_F(HostLimits, TimeOutsCanBeTakenBackAndNeedTheRuntime) {
  ASSERT_EQ(vorn_rt_set_op_wait_timeout(1), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_set_op_wait_timeout(0), VORN_SUCCESS);
  Stop();
  EXPECT_EQ(vorn_rt_set_op_wait_timeout(1), VORN_ERROR_NOT_INITIALIZED);
  Start("{}");
}

/// Executes without an end on a thread of its own, for the second that it is given.
class EndlessExecution {
 public:
  EndlessExecution(uint32_t modelId, Blocks& in, Blocks& out) {
    in.Put<int64_t>(0, {INT64_MAX}, 1);
    thread_ = std::thread([=, this, input = in.dataset, output = out.dataset] {
      vorn_rt_context* own = nullptr;
      EXPECT_EQ(vorn_rt_create_context(&own, 0), VORN_SUCCESS);
      isGoing_ = true;
      isGoing_.notify_all();
      status_ = vorn_mdl_execute(modelId, input, output);
    });
    isGoing_.wait(false);
  }
  vorn_status Wait() {
    thread_.join();
    return status_;
  }

 private:
  std::thread thread_;
  std::atomic<bool> isGoing_ = false;
  vorn_status status_ = VORN_SUCCESS;
};

TEST_F(HostLimits, TheRuntimeGoesDownAndUpAroundAnExecution) {
  const char* const configs[] = {"{}", R"({"memoryLimit": 100000000})", "{}"};
  for (const char* next : configs) {
    ASSERT_EQ(Load(Turning()), VORN_SUCCESS);
    ASSERT_EQ(vorn_rt_set_op_wait_timeout(1), VORN_SUCCESS);
    {
      Blocks in = Inputs();
      Blocks out = Outputs();
      EndlessExecution execution(modelId, in, out);
      Unload();
      Restart(next);
      ASSERT_EQ(Load(Turning()), VORN_SUCCESS);
      // Refused where the runtime was down before it began.
      EXPECT_THAT(execution.Wait(),
                  AnyOf(VORN_ERROR_TIMEOUT, VORN_ERROR_NOT_INITIALIZED, VORN_ERROR_INVALID_HANDLE));
    }
    Blocks in = Inputs();
    Blocks out = Outputs();
    in.Put<int64_t>(0, {3}, 1);
    EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    Unload();
  }
}

// ---- Models that end the process ----------------------------------------------------------------

/// Two outputs where the attribute says one; ONNX Runtime 1.27 aborts over it.
OnnxWriter Contradicting() {
  return OnnxWriter()
      .OperatorSet(18)
      .Input("x", kOnnxFloat, {6})
      .Output("y", kOnnxFloat, {3})
      .Output("z", kOnnxFloat, {3})
      .Node("Split", {"x"}, {"y", "z"}, {IntAttribute("num_outputs", 1)});
}

TEST_F(HostLimits, AModelThatEndsTheProcessIsFoundByAProbe) {
  Restart(R"({"probe": 60})");
  EXPECT_EQ(Load(Contradicting()), VORN_ERROR_MODEL);
  EXPECT_THAT(LogOf([&] { Load(Contradicting()); }),
              AnyOf("vorn: vorn_mdl_load_from_mem: the model ended the process in which it was "
                    "tried (Aborted); the execution library cannot run it\n",
                    HasSubstr("the model is refused (")));  // by a library that sees it
  ASSERT_EQ(Load(Heavy()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
}

TEST_F(HostLimits, AModelThatNeverEndsIsFoundByAProbe) {
  Restart(R"({"probe": 1})");
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Load(Endless()), VORN_ERROR_TIMEOUT); }),
            "vorn: vorn_mdl_load_from_mem: loading and executing the model once takes longer than "
            "1 s; give 'probe' more\n");
}

TEST_F(HostLimits, AProbeLeavesRefusalsAsTheyAre) {
  Restart(R"({"probe": 60, "memoryLimit": 1000000})");
  EXPECT_EQ(Load(std::string("garbage")), VORN_ERROR_MODEL);
  EXPECT_EQ(Load(Heavy()), VORN_ERROR_OUT_OF_MEMORY);
}

// ---- What is left at the end --------------------------------------------------------------------

TEST_F(HostLimits, TellsWhatWasNeverReleased) {
  ASSERT_EQ(Load(Heavy()), VORN_SUCCESS);
  vorn_rt_stream* stream = nullptr;
  ASSERT_EQ(vorn_rt_create_stream(&stream), VORN_SUCCESS);
  ASSERT_EQ(Allocate(4096), VORN_SUCCESS);
  ASSERT_EQ(Allocate(128), VORN_SUCCESS);
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  vorn_data_buffer* buffer = vorn_create_data_buffer(allocated[0], 4096, 16);
  const std::string log = LogOf([] { EXPECT_EQ(vorn_finalize(), VORN_SUCCESS); });
  for (const char* line :
       {"vorn: vorn_finalize: 1 model(s) were not unloaded: ", "2 block(s) were not freed: ",
        " of 4096 bytes", " of 128 bytes",
        "1 description(s) were not destroyed: ", "1 dataset(s) were not destroyed: ",
        "1 data buffer(s) were not destroyed: ", "1 stream(s) were not destroyed: ",
        "1 context(s) were not destroyed: ", "1 device(s) were not reset: 0\n"}) {
    EXPECT_THAT(log, HasSubstr(line));
  }
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
  desc = nullptr;
  modelId = 0;
  FreeAll();
  Start("{}");
}

TEST_F(HostLimits, TellsNothingWhereAllWasReleased) {
  ASSERT_EQ(Load(Heavy()), VORN_SUCCESS);
  EXPECT_EQ(Allocate(4096), VORN_SUCCESS);
  FreeAll();
  Unload();
  ASSERT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_reset_device(0), VORN_SUCCESS);
  EXPECT_EQ(LogOf([] { EXPECT_EQ(vorn_finalize(), VORN_SUCCESS); }), "");
  Start("{}");
}

TEST_F(HostLimits, NamesTheFirstFewOfManyThatAreLeft) {
  for (int i = 0; i < 9; ++i) ASSERT_EQ(Allocate(16), VORN_SUCCESS);
  const std::string log = LogOf([] { EXPECT_EQ(vorn_finalize(), VORN_SUCCESS); });
  EXPECT_THAT(log, AllOf(HasSubstr("9 block(s) were not freed: "), HasSubstr("16 bytes, ...\n"),
                         Not(HasSubstr("model(s)"))));
  FreeAll();
  Start("{}");
}

}  // namespace
