// What several threads do at once.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "runtime/host/host_fixture.h"

namespace {

/// Takes a while that grows with `steps`.
void Linger(int steps) {
  for (int i = 0; i < steps; ++i) std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// Executes over and over until it is refused; a context of its own is current on the thread.
void ExecuteUntilRefused(uint32_t modelId, const Blocks& in, const Blocks& out,
                         std::atomic<int>& executions) {
  vorn_rt_context* context = nullptr;
  EXPECT_EQ(vorn_rt_create_context(&context, 0), VORN_SUCCESS);
  vorn_status status = VORN_SUCCESS;
  while ((status = vorn_mdl_execute(modelId, in.dataset, out.dataset)) == VORN_SUCCESS) {
    ++executions;
  }
  EXPECT_EQ(status, VORN_ERROR_NOT_INITIALIZED);
}

using HostThreads = HostFixture;

/// The model comes to its end on the thread that executes it, some time while the runtime comes up
/// again; many rounds with growing steps in between meet every moment of that.
TEST_F(HostThreads, BringTheRuntimeUpAgainWhileAModelStillExecutes) {
  constexpr int kRounds = 100;
  const ConfigFile config("{}");
  const std::string matrices = OnnxWriter()
                                   .Input("x", kOnnxFloat, {128, 128})
                                   .Output("y", kOnnxFloat, {128, 128})
                                   .Node("MatMul", {"x", "x"}, {"y"})
                                   .Image();
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_EQ(Load(matrices), VORN_SUCCESS);
    {
      const Blocks in = Inputs();
      const Blocks out = Outputs();
      std::atomic<int> executions = 0;
      std::thread other([&] { ExecuteUntilRefused(modelId, in, out, executions); });
      while (executions == 0) std::this_thread::yield();
      EXPECT_EQ(vorn_finalize(), VORN_SUCCESS);
      Linger(i * 200);
      EXPECT_EQ(vorn_init(config.path()), VORN_SUCCESS) << "in round " << i;
      other.join();
    }
    modelId = 0;  // ended with the runtime
    Unload();
    ASSERT_EQ(vorn_rt_set_device(0), VORN_SUCCESS);
    ASSERT_EQ(vorn_rt_create_context(&context, 0), VORN_SUCCESS);
  }
}

using LoadingAtOnce = HostFixture;

/// Each probe is a copy of the process in the midst of what the other threads do.
TEST_F(LoadingAtOnce, TakesGoodModelsThroughAProbeEach) {
  Restart(R"({"probe": 60})");
  const std::string model = OnnxWriter()
                                .Input("x", kOnnxFloat, {4})
                                .Output("y", kOnnxFloat, {4})
                                .Node("Relu", {"x"}, {"y"})
                                .Image();
  const auto loadOften = [&] {
    vorn_rt_context* own = nullptr;
    EXPECT_EQ(vorn_rt_create_context(&own, 0), VORN_SUCCESS);
    for (int i = 0; i < 20; ++i) {
      uint32_t id = 0;
      const vorn_status status = vorn_mdl_load_from_mem(model.data(), model.size(), &id);
      EXPECT_EQ(status, VORN_SUCCESS) << "load " << i;
      if (status != VORN_SUCCESS) break;
      EXPECT_EQ(vorn_mdl_unload(id), VORN_SUCCESS);
    }
    EXPECT_EQ(vorn_rt_destroy_context(own), VORN_SUCCESS);
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back(loadOften);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
