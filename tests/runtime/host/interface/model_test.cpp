// Loading and executing real models.
#include <algorithm>
#include <thread>

#include "runtime/host/host_fixture.h"

namespace {

/// y = x * w, x of [first, 3], w of 3 by 2.
OnnxWriter MatMul(const OnnxDim& first) {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {first, 3})
      .Constant<float>("w", kOnnxFloat, {3, 2}, {1, 2, 3, 4, 5, 6})
      .Output("y", kOnnxFloat, {first, 2})
      .Node("MatMul", {"x", "w"}, {"y"});
}

/// The same by hand, row by row.
std::vector<float> TimesW(const std::vector<float>& x) {
  const float w[3][2] = {{1, 2}, {3, 4}, {5, 6}};
  std::vector<float> y;
  for (size_t r = 0; r < x.size() / 3; ++r) {
    for (size_t c = 0; c < 2; ++c) {
      float sum = 0;
      for (size_t k = 0; k < 3; ++k) sum += x[3 * r + k] * w[k][c];
      y.push_back(sum);
    }
  }
  return y;
}

std::vector<float> Counting(size_t count) {
  std::vector<float> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i) - 3;
  return values;
}

class HostModel : public HostFixture {
 protected:
  vorn_status Execute(const Blocks& in, Blocks& out) {
    return vorn_mdl_execute(modelId, in.dataset, out.dataset);
  }
  vorn_status SetBatch(const Blocks& in, uint64_t batch) {
    return vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, batch);
  }
};

TEST_F(HostModel, ExecutesOverStridedBlocksAndLeavesPaddingAlone) {
  ASSERT_EQ(Load(MatMul(4)), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  const auto x = Counting(12);
  in.Put(0, x, 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 8, 2), TimesW(x));
  const auto bytes = out.Bytes(0);
  ASSERT_EQ(bytes.size(), 4u * 16);
  for (size_t row = 0; row < 4; ++row) {
    for (size_t pad = 8; pad < 16; ++pad) EXPECT_EQ(bytes[16 * row + pad], 0xee);
  }
}

TEST_F(HostModel, ExecutesAgainWithNewInputs) {
  ASSERT_EQ(Load(MatMul(4)), VORN_SUCCESS);
  Blocks out = Outputs();
  for (int round = 0; round < 3; ++round) {
    Blocks in = Inputs();
    auto x = Counting(12);
    for (float& value : x) value += static_cast<float>(round);
    in.Put(0, x, 3);
    for (int repeat = 0; repeat < 21; ++repeat) ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 8, 2), TimesW(x));
  }
}

TEST_F(HostModel, ExecutesABatchAtOnceAndItemByItemAlike) {
  for (const OnnxDim& first : {OnnxDim("batch"), OnnxDim(1), OnnxDim("")}) {
    ASSERT_EQ(Load(MatMul(first)), VORN_SUCCESS);
    for (const uint64_t batch : {1, 2, 5}) {
      Blocks in = Inputs(batch);
      Blocks out = Outputs(batch);
      const auto x = Counting(3 * batch);
      in.Put(0, x, 3);
      ASSERT_EQ(SetBatch(in, batch), VORN_SUCCESS);
      ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
      EXPECT_EQ(out.Take<float>(0, 2 * batch, 2), TimesW(x));
    }
    Unload();
  }
}

TEST_F(HostModel, BatchBelongsToTheDataset) {
  ASSERT_EQ(Load(MatMul("batch")), VORN_SUCCESS);
  Blocks two = Inputs(2);
  Blocks one = Inputs();
  Blocks out = Outputs(2);
  two.Put(0, Counting(6), 3);
  one.Put(0, Counting(3), 3);
  ASSERT_EQ(SetBatch(two, 2), VORN_SUCCESS);
  EXPECT_EQ(Execute(one, out), VORN_SUCCESS);  // 1 without a setting; two would not fit
  EXPECT_EQ(Execute(two, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 4, 2), TimesW(Counting(6)));
}

TEST_F(HostModel, RefusesBatchSettingsThatMeanNothing) {
  ASSERT_EQ(Load(MatMul("batch")), VORN_SUCCESS);
  Blocks in;
  EXPECT_EQ(SetBatch(in, 0), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 1, 1),
            VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, nullptr, 0, 1), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_set_dynamic_batch_size(modelId + 1, in.dataset, 0, 1),
            VORN_ERROR_INVALID_HANDLE);
  // The model first.
  EXPECT_EQ(vorn_mdl_set_dynamic_batch_size(modelId + 1, nullptr, 0, 1), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_set_total_t(modelId + 1, nullptr, 1), VORN_ERROR_INVALID_HANDLE);
}

TEST_F(HostModel, JudgesAnInputByItsRealBlock) {
  ASSERT_EQ(Load(MatMul("batch")), VORN_SUCCESS);
  const auto addScratch = [&](Blocks& in) {
    for (const uint64_t i : {1, 2}) {
      const uint64_t bytes = 3 * vorn_mdl_get_input_size_by_index(desc, i);
      in.Add(bytes, bytes, vorn_mdl_get_input_default_stride(desc, i));
    }
  };
  Blocks out = Outputs(3);
  {
    Blocks grown;  // registered with the size before it grew
    grown.Add(48, 16, 16).Put(0, Counting(9), 3);
    addScratch(grown);
    ASSERT_EQ(SetBatch(grown, 3), VORN_SUCCESS);
    EXPECT_EQ(Execute(grown, out), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 6, 2), TimesW(Counting(9)));
  }
  {
    Blocks boasting;  // registered with more than there is
    boasting.Add(32, 48, 16);
    addScratch(boasting);
    ASSERT_EQ(SetBatch(boasting, 3), VORN_SUCCESS);
    EXPECT_EQ(Execute(boasting, out), VORN_ERROR_INVALID_ARGUMENT);
  }
}

TEST_F(HostModel, JudgesForeignMemoryByWhatIsRegistered) {
  ASSERT_EQ(Load(MatMul(1)), VORN_SUCCESS);
  const auto execute = [&](uint64_t registered) {
    std::vector<float> x = {1, 2, 3, 0};
    Blocks whole = Inputs();
    Blocks out = Outputs();
    vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
    vorn_data_buffer* buffer = vorn_create_data_buffer(x.data(), registered, 16);
    vorn_mdl_add_dataset_buffer(dataset, buffer);
    vorn_mdl_add_dataset_buffer(dataset, whole.buffers[1]);
    vorn_mdl_add_dataset_buffer(dataset, whole.buffers[2]);
    const vorn_status status = vorn_mdl_execute(modelId, dataset, out.dataset);
    if (status == VORN_SUCCESS) {
      EXPECT_EQ(out.Take<float>(0, 2, 2), TimesW({1, 2, 3}));
    }
    vorn_destroy_data_buffer(buffer);
    vorn_mdl_destroy_dataset(dataset);
    return status;
  };
  EXPECT_EQ(execute(16), VORN_SUCCESS);
  EXPECT_EQ(execute(15), VORN_ERROR_INVALID_ARGUMENT);
}

TEST_F(HostModel, WritesTheBatchItemsThatAnOutputHolds) {
  for (const OnnxDim& first : {OnnxDim("batch"), OnnxDim(1)}) {
    ASSERT_EQ(Load(MatMul(first)), VORN_SUCCESS);
    Blocks in = Inputs(4);
    in.Put(0, Counting(12), 3);
    ASSERT_EQ(SetBatch(in, 4), VORN_SUCCESS);
    Blocks two = Outputs(2);
    EXPECT_EQ(Execute(in, two), VORN_SUCCESS);
    EXPECT_EQ(two.Take<float>(0, 4, 2), TimesW(Counting(6)));
    Blocks registeredSmaller;  // the block holds four, the caller speaks of one
    registeredSmaller.Add(64, 16, 16);
    EXPECT_EQ(Execute(in, registeredSmaller), VORN_SUCCESS);
    const auto bytes = registeredSmaller.Bytes(0);
    EXPECT_TRUE(std::all_of(bytes.begin() + 8, bytes.end(), [](uint8_t b) { return b == 0xee; }));
    Blocks none;
    none.Add(15, 15, 16);
    EXPECT_EQ(Execute(in, none), VORN_ERROR_INVALID_ARGUMENT);
    Unload();
  }
}

TEST_F(HostModel, ServesSeveralInputsAndOutputs) {
  Stop();
  Start(R"({"outputTypes": "native"})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("a", kOnnxInt32, {2, 3})
                     .Input("b", kOnnxInt32, {2, 3})
                     .Output("sum", kOnnxInt32, {2, 3})
                     .Output("difference", kOnnxInt32, {2, 3})
                     .Node("Add", {"a", "b"}, {"sum"})
                     .Node("Sub", {"a", "b"}, {"difference"})),
            VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<int32_t>(0, {1, 2, 3, 4, 5, 6}, 3).Put<int32_t>(1, {10, 20, 30, 40, 50, 60}, 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<int32_t>(0, 6, 3), (std::vector<int32_t>{11, 22, 33, 44, 55, 66}));
  EXPECT_EQ(out.Take<int32_t>(1, 6, 3), (std::vector<int32_t>{-9, -18, -27, -36, -45, -54}));
}

TEST_F(HostModel, ServesAModelWithoutDataInputs) {
  ASSERT_EQ(Load(OnnxWriter()
                     .Constant<float>("w", kOnnxFloat, {2}, {7, 8})
                     .Output("y", kOnnxFloat, {2})
                     .Node("Relu", {"w"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_num_inputs(desc), 2u);
  Blocks in = Inputs(2);
  Blocks out = Outputs(2);
  ASSERT_EQ(SetBatch(in, 2), VORN_SUCCESS);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 4, 2), (std::vector<float>{7, 8, 7, 8}));
}

TEST_F(HostModel, RefusesDatasetsThatDoNotFit) {
  ASSERT_EQ(Load(MatMul(2)), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  Blocks empty;
  EXPECT_EQ(vorn_mdl_execute(modelId, empty.dataset, out.dataset), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, empty.dataset), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_execute(modelId, out.dataset, in.dataset), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_execute(modelId, nullptr, out.dataset), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_execute(modelId + 1, in.dataset, out.dataset), VORN_ERROR_INVALID_HANDLE);
  for (const uint64_t scratch : {1, 2}) {
    Blocks small;
    for (uint64_t i = 0; i < 3; ++i) {
      const uint64_t bytes = vorn_mdl_get_input_size_by_index(desc, i) - (i == scratch ? 1 : 0);
      small.Add(bytes, bytes, vorn_mdl_get_input_default_stride(desc, i));
    }
    EXPECT_EQ(vorn_mdl_execute(modelId, small.dataset, out.dataset), VORN_ERROR_INVALID_ARGUMENT);
  }
}

TEST_F(HostModel, RefusesBuffersAndBlocksThatAreGone) {
  ASSERT_EQ(Load(MatMul(2)), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  vorn_rt_free(vorn_get_data_buffer_addr(in.buffers[0]));
  EXPECT_EQ(Execute(in, out), VORN_ERROR_INVALID_ARGUMENT);
  vorn_destroy_data_buffer(in.buffers[0]);
  EXPECT_EQ(Execute(in, out), VORN_ERROR_INVALID_HANDLE);
}

// Executing again over the same datasets looks little up; each of these has to be seen all the
// same.
TEST_F(HostModel, SeesWhatChangedSinceTheLastExecution) {
  ASSERT_EQ(Load(MatMul("n")), VORN_SUCCESS);
  const auto x = Counting(6);
  Blocks in = Inputs(2);
  Blocks out = Outputs(2);
  in.Put(0, x, 3);
  const auto one = out.Bytes(0);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 2, 2), TimesW({x[0], x[1], x[2]}));
  EXPECT_TRUE(std::equal(one.begin() + 16, one.end(), out.Bytes(0).begin() + 16));

  ASSERT_EQ(SetBatch(in, 2), VORN_SUCCESS);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 4, 2), TimesW(x));

  Blocks other = Outputs(2);
  ASSERT_EQ(Execute(in, other), VORN_SUCCESS);
  EXPECT_EQ(other.Take<float>(0, 4, 2), TimesW(x));

  ASSERT_EQ(vorn_mdl_add_dataset_buffer(other.dataset, other.buffers[0]), VORN_SUCCESS);
  EXPECT_EQ(Execute(in, other), VORN_ERROR_INVALID_ARGUMENT);

  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  ASSERT_EQ(vorn_destroy_data_buffer(out.buffers[0]), VORN_SUCCESS);
  out.buffers.clear();
  EXPECT_EQ(Execute(in, out), VORN_ERROR_INVALID_HANDLE);

  ASSERT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
  EXPECT_EQ(Execute(in, out), VORN_ERROR_NOT_INITIALIZED);
  ASSERT_EQ(vorn_rt_create_context(&context, 0), VORN_SUCCESS);
}

TEST_F(HostModel, SeesThatTheModelIsAnotherOne) {
  ASSERT_EQ(Load(MatMul(1)), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {1, 0, 0}, 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 2, 2), (std::vector<float>{1, 2}));

  const uint32_t first = modelId;
  const auto negative = OnnxWriter()
                            .Input("x", kOnnxFloat, {1, 3})
                            .Constant<float>("w", kOnnxFloat, {3, 2}, {-1, -2, 0, 0, 0, 0})
                            .Output("y", kOnnxFloat, {1, 2})
                            .Node("MatMul", {"x", "w"}, {"y"})
                            .Image();
  uint32_t second = 0;
  ASSERT_EQ(vorn_mdl_load_from_mem(negative.data(), negative.size(), &second), VORN_SUCCESS);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(vorn_mdl_execute(second, in.dataset, out.dataset), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 2, 2), (std::vector<float>{-1, -2}));
    ASSERT_EQ(vorn_mdl_execute(first, in.dataset, out.dataset), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 2, 2), (std::vector<float>{1, 2}));
  }
  ASSERT_EQ(vorn_mdl_unload(second), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_execute(second, in.dataset, out.dataset), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_execute(first, in.dataset, out.dataset), VORN_SUCCESS);
}

TEST_F(HostModel, ReportsAnOutputOfAnotherShapeThanDescribed) {
  // Declared as one position; as many as there are values other than 0.
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {"n"})
                     .Output("y", kOnnxInt64, {1, "n"})
                     .Node("NonZero", {"x"}, {"y"})),
            VORN_SUCCESS);
  Blocks in = Inputs(3);
  Blocks out = Outputs(3);
  in.Put<float>(0, {1}, 1);
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS);
  in.Put<float>(0, {0}, 1);
  EXPECT_EQ(Execute(in, out), VORN_ERROR_EXECUTION);
  in.Put<float>(0, {1}, 1);
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS);
}

TEST_F(HostModel, ReportsAModelThatFailsWhileItRuns) {
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("at", kOnnxInt64, {1})
                     .Constant<float>("w", kOnnxFloat, {2}, {7, 8})
                     .Output("y", kOnnxFloat, {1})
                     .Node("Gather", {"w", "at"}, {"y"})),
            VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<int64_t>(0, {99}, 1);
  EXPECT_EQ(Execute(in, out), VORN_ERROR_EXECUTION);
  in.Put<int64_t>(0, {1}, 1);
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 1, 1), std::vector<float>{8});
}

TEST_F(HostModel, RefusesImagesThatAreNoModel) {
  uint32_t id = 77;
  EXPECT_EQ(vorn_mdl_load_from_mem(nullptr, 0, &id), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_load_from_mem(nullptr, 9, &id), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_load_from_mem("x", 0, &id), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_load_from_mem("x", 1, &id), VORN_ERROR_MODEL);
  EXPECT_EQ(vorn_mdl_load_from_mem("garbage, garbage", 16, &id), VORN_ERROR_MODEL);
  EXPECT_EQ(vorn_mdl_load_from_mem("x", 1, nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(id, 77u);
}

TEST_F(HostModel, RefusesAnImageLongerThanItsBlock) {
  void* block = nullptr;
  uint32_t id = 77;
  ASSERT_EQ(vorn_rt_malloc(&block, 16, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  std::memset(block, 0, 16);
  EXPECT_EQ(vorn_mdl_load_from_mem(block, 17, &id), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_load_from_mem(block, 16, &id), VORN_ERROR_MODEL);
  EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
}

TEST_F(HostModel, RefusesEveryPrefixOfAModel) {
  const std::string whole = MatMul("batch").Image();
  size_t taken = 0;
  for (size_t length = 1; length < whole.size(); ++length) {
    const std::string prefix = whole.substr(0, length);
    uint32_t id = 0;
    if (vorn_mdl_load_from_mem(prefix.data(), prefix.size(), &id) != VORN_SUCCESS) continue;
    ++taken;
    EXPECT_EQ(vorn_mdl_unload(id), VORN_SUCCESS);
  }
  EXPECT_EQ(taken, 0u);
}

TEST_F(HostModel, SurvivesAnyByteOfAModelBeingWrong) {
  const std::string whole = MatMul("batch").Image();
  for (size_t at = 0; at < whole.size(); ++at) {
    for (const int flip : {0x01, 0x80, 0xff}) {
      std::string wrong = whole;
      wrong[at] = static_cast<char>(wrong[at] ^ flip);
      uint32_t id = 0;
      if (vorn_mdl_load_from_mem(wrong.data(), wrong.size(), &id) == VORN_SUCCESS) {
        EXPECT_EQ(vorn_mdl_unload(id), VORN_SUCCESS);
      }
    }
  }
}

TEST_F(HostModel, RefusesModelsThatItCannotDescribe) {
  EXPECT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {0, 2})
                     .Output("y", kOnnxFloat, {0, 2})
                     .Node("Relu", {"x"}, {"y"})),
            VORN_ERROR_MODEL);
  EXPECT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxComplex64, {2})
                     .Output("y", kOnnxComplex64, {2})
                     .Node("Identity", {"x"}, {"y"})),
            VORN_ERROR_MODEL);
  EXPECT_EQ(Load(OnnxWriter().Input("x", kOnnxFloat, {2}).Node("Relu", {"x"}, {"y"})),
            VORN_ERROR_MODEL);
  // With zeros there is no position to show; the trial leads to a tensor without elements.
  EXPECT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {4})
                     .Output("y", kOnnxInt64, {1, "count"})
                     .Node("NonZero", {"x"}, {"y"})),
            VORN_ERROR_MODEL);
}

TEST_F(HostModel, UnloadsOnce) {
  ASSERT_EQ(Load(MatMul(2)), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_unload(modelId), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_unload(modelId), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_unload(0), VORN_ERROR_INVALID_HANDLE);
  modelId = 0;
}

TEST_F(HostModel, IsAFeedForwardNetworkWithoutFrames) {
  ASSERT_EQ(Load(MatMul(2)), VORN_SUCCESS);
  vorn_net_type type = 7;
  EXPECT_EQ(vorn_ext_get_mdl_net_type(modelId, &type), VORN_SUCCESS);
  EXPECT_EQ(type, VORN_NET_FEED_FORWARD);
  EXPECT_EQ(vorn_ext_get_mdl_net_type(modelId + 1, &type), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_ext_get_mdl_net_type(modelId, nullptr), VORN_ERROR_INVALID_ARGUMENT);
  Blocks in;
  EXPECT_EQ(vorn_mdl_set_total_t(modelId, in.dataset, 5), VORN_ERROR_UNSUPPORTED);
}

TEST_F(HostModel, NeedsAContextOnTheThread) {
  ASSERT_EQ(Load(MatMul(2)), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  vorn_status onOther = VORN_SUCCESS;
  std::thread([&] { onOther = Execute(in, out); }).join();
  EXPECT_EQ(onOther, VORN_ERROR_NOT_INITIALIZED);
}

TEST_F(HostModel, ExecutesFromSeveralThreads) {
  ASSERT_EQ(Load(MatMul("batch")), VORN_SUCCESS);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      vorn_rt_context* own = nullptr;
      ASSERT_EQ(vorn_rt_create_context(&own, 0), VORN_SUCCESS);
      for (int round = 0; round < 50; ++round) {
        Blocks in = Inputs(2);
        Blocks out = Outputs(2);
        std::vector<float> x = Counting(6);
        for (float& value : x) value += static_cast<float>(10 * t);
        in.Put(0, x, 3);
        ASSERT_EQ(SetBatch(in, 2), VORN_SUCCESS);
        ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
        ASSERT_EQ(out.Take<float>(0, 4, 2), TimesW(x));
      }
      EXPECT_EQ(vorn_rt_destroy_context(own), VORN_SUCCESS);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(HostModel, LoadsAndExecutesTwoModelsOnTwoThreadsAtOnce) {
  const std::string images[] = {OnnxWriter()
                                    .Input("x", kOnnxFloat, {2, 3})
                                    .Output("y", kOnnxFloat, {2, 3})
                                    .Node("Neg", {"x"}, {"y"})
                                    .Image(),
                                OnnxWriter()
                                    .Input("x", kOnnxFloat, {2, 3})
                                    .Output("y", kOnnxFloat, {2, 3})
                                    .Node("Add", {"x", "x"}, {"y"})
                                    .Image()};
  const float factors[] = {-1, 2};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      vorn_rt_context* own = nullptr;
      ASSERT_EQ(vorn_rt_create_context(&own, 0), VORN_SUCCESS);
      for (int round = 0; round < 10; ++round) {
        uint32_t id = 0;
        ASSERT_EQ(vorn_mdl_load_from_mem(images[t].data(), images[t].size(), &id), VORN_SUCCESS);
        Blocks in;
        Blocks out;
        in.Add(32, 32, 16).Add(128, 128, 128).Add(128, 128, 128);
        out.Add(32, 32, 16);
        for (int repeat = 0; repeat < 10; ++repeat) {
          std::vector<float> x = Counting(6);
          for (float& value : x) value += static_cast<float>(repeat);
          in.Put(0, x, 3);
          ASSERT_EQ(vorn_mdl_execute(id, in.dataset, out.dataset), VORN_SUCCESS);
          for (float& value : x) value *= factors[t];
          ASSERT_EQ(out.Take<float>(0, 6, 3), x);
        }
        ASSERT_EQ(vorn_mdl_unload(id), VORN_SUCCESS);
      }
      EXPECT_EQ(vorn_rt_destroy_context(own), VORN_SUCCESS);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(HostModel, ExecutesWithSeveralThreadsOfItsOwn) {
  Stop();
  Start(R"({"threads": 2, "graphOptimization": "none"})");
  ASSERT_EQ(Load(MatMul(2)), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put(0, Counting(6), 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 4, 2), TimesW(Counting(6)));
}

TEST_F(HostModel, FreesBlocksAfterTheUnload) {
  ASSERT_EQ(Load(MatMul(2)), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put(0, Counting(6), 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_unload(modelId), VORN_SUCCESS);
  modelId = 0;
  EXPECT_EQ(Execute(in, out), VORN_ERROR_INVALID_HANDLE);
}

}  // namespace
