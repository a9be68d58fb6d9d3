// Executing again over the same blocks allocates nothing. The replaced operators new count what
// this program and the libraries that it loads ask for, so what the engine allocates in a run of
// its own is counted first and then expected, and no more.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "host/engine/engine.h"
#include "host/state/execution.h"
#include "host/state/lifecycle.h"
#include "host/state/loading.h"
#include "host/state/tables.h"
#include "support/files.h"
#include "support/onnx_writer.h"

namespace {

std::atomic<uint64_t> allocations = 0;

/// How many more allocations this thread is granted before one is refused; -1: all of them.
thread_local int granted = -1;

void* Allocate(size_t bytes, size_t alignment) {
  ++allocations;
  if (granted >= 0 && granted-- == 0) throw std::bad_alloc();
  void* block = nullptr;
  if (posix_memalign(&block, std::max(alignment, sizeof(void*)), bytes) != 0) {
    throw std::bad_alloc();
  }
  return block;
}

}  // namespace

void* operator new(size_t bytes) { return Allocate(bytes, alignof(std::max_align_t)); }
void* operator new(size_t bytes, std::align_val_t alignment) {
  return Allocate(bytes, static_cast<size_t>(alignment));
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }

namespace vorn::host {
namespace {

constexpr int kRuns = 20;

template <typename Run>
uint64_t AllocationsOf(Run&& run) {
  run();  // warms up
  run();
  const uint64_t before = allocations;
  for (int i = 0; i < kRuns; ++i) run();
  return allocations - before;
}

OnnxWriter Model(int columns) {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {"n", 4, columns}).Output("y", kOnnxFloat, {"n", 4, columns});
  model.Node("Relu", {"x"}, {"y"});
  return model;
}

/// What the engine allocates itself, over memory that stays bound.
uint64_t AllocationsOfEngine(const std::string& image, const Shape& shape) {
  const auto session = CreateEngine()->Open(std::as_bytes(std::span(image)), Config());
  std::vector<float> in(1024), out(1024);
  session->BindInput(0, in.data(), shape);
  session->BindOutput(0, out.data(), shape);
  return AllocationsOf([&] { session->Run(); });
}

constexpr int kFrames = 7;

/// A step model: what the engine allocates in a run, times the frames, is what a sequence
/// allocates.
OnnxWriter StepModel() {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {1, 3}).Input("h", kOnnxFloat, {1, 3});
  model.Output("y", kOnnxInt64, {1, 3}).Output("hn", kOnnxFloat, {1, 3});
  model.Node("Add", {"x", "h"}, {"hn"});
  model.Node("Cast", {"hn"}, {"y"}, {IntAttribute("to", kOnnxInt64)});
  model.Metadata("vorn", R"({"netType": "recurrent", "sequence": "steps", "maxFrames": 9,
                             "context": 1, "states": {"h": "hn"}})");
  return model;
}

uint64_t AllocationsOfSteps(const std::string& image) {
  const auto session = CreateEngine()->Open(std::as_bytes(std::span(image)), Config());
  std::vector<float> x(3), h(3), hn(3);
  std::vector<int64_t> y(3);
  session->BindInput(0, x.data(), {1, 3});
  session->BindInput(1, h.data(), {1, 3});
  session->BindOutput(0, y.data(), {1, 3});
  session->BindOutput(1, hn.data(), {1, 3});
  return AllocationsOf([&] {
    for (int i = 0; i < kFrames; ++i) session->Run();
  });
}

/// A runtime with the model loaded and blocks for it.
class AllocationTest : public testing::Test {
 protected:
  void SetUp() override {
    const support::TempDir folder;
    const std::string config = folder.Path() / "host.json";
    support::WriteFile(config, "{}");
    StartRuntime(config.c_str());
    Change()->devices.Set(0);
    context = Change()->devices.CreateContext(0);
  }
  void TearDown() override {
    for (vorn_data_buffer* buffer : buffers) Change()->datasets.DestroyBuffer(buffer);
    for (void* block : blocks) Change()->blocks.Free(block);
    for (vorn_mdl_dataset* dataset : datasets) Change()->datasets.Destroy(dataset);
    Change()->devices.DestroyContext(context);
    Change()->devices.Reset(0);
    StopRuntime();
  }

  vorn_mdl_dataset* Dataset(const std::vector<TensorDescription>& tensors, uint64_t batch) {
    vorn_mdl_dataset* dataset = Change()->datasets.Create();
    datasets.push_back(dataset);
    for (const TensorDescription& tensor : tensors) {
      const uint64_t bytes = batch * tensor.layout.ItemBytes();
      const Change tables;
      blocks.push_back(tables->blocks.Allocate(bytes, tables->devices.CurrentMemory()));
      buffers.push_back(tables->datasets.CreateBuffer(blocks.back(), bytes, tensor.layout.stride));
      tables->datasets.Add(dataset, buffers.back());
    }
    return dataset;
  }

  uint64_t AllocationsOfRuntime(const std::string& image, uint64_t batch, uint64_t frames = 0) {
    const uint32_t id = LoadModel(image.data(), image.size());
    const auto description = Look()->models.At(id)->description();
    vorn_mdl_dataset* inputs = Dataset(description->inputs, batch);
    vorn_mdl_dataset* outputs = Dataset(description->outputs, batch);
    Change()->datasets.SetBatch(inputs, 0, batch);
    if (frames != 0) Change()->datasets.At(inputs).frames = frames;
    const uint64_t count = AllocationsOf([&] { ExecuteModel(id, inputs, outputs); });
    Change()->models.Remove(id);
    return count;
  }

  vorn_rt_context* context = nullptr;
  std::vector<void*> blocks;
  std::vector<vorn_data_buffer*> buffers;
  std::vector<vorn_mdl_dataset*> datasets;
};

TEST_F(AllocationTest, ExecutingAgainAllocatesNothingOverDenseRows) {
  const std::string image = Model(4).Image();
  EXPECT_EQ(AllocationsOfRuntime(image, 1), AllocationsOfEngine(image, {1, 4, 4}));
}

TEST_F(AllocationTest, ExecutingAgainAllocatesNothingOverPaddedRows) {
  const std::string image = Model(3).Image();
  EXPECT_EQ(AllocationsOfRuntime(image, 1), AllocationsOfEngine(image, {1, 4, 3}));
}

TEST_F(AllocationTest, ExecutingAgainAllocatesNothingForABatch) {
  const std::string image = Model(3).Image();
  EXPECT_EQ(AllocationsOfRuntime(image, 5), AllocationsOfEngine(image, {5, 4, 3}));
}

TEST_F(AllocationTest, ExecutingAgainAllocatesNothingForConvertedOutputs) {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {"n", 4, 3}).Output("y", kOnnxInt32, {"n", 4, 3});
  model.Node("Cast", {"x"}, {"y"}, {IntAttribute("to", kOnnxInt32)});
  const std::string image = model.Image();
  EXPECT_EQ(AllocationsOfRuntime(image, 2), AllocationsOfEngine(image, {2, 4, 3}));
}

TEST_F(AllocationTest, ExecutingAgainAllocatesNothingForFrames) {
  const std::string image = StepModel().Image();
  EXPECT_EQ(AllocationsOfRuntime(image, 1, kFrames), AllocationsOfSteps(image));
}

/// Whether the operation came through although the allocation behind `before` ones was refused.
template <typename Operation>
bool ComesThrough(int before, Operation&& operation) {
  granted = before;
  try {
    operation();
    granted = -1;
    return true;
  } catch (const std::bad_alloc&) {
    granted = -1;
    return false;
  }
}

/// Refuses every allocation of an operation in turn until it needs no more; nothing may be left of
/// an operation that failed.
template <typename Operation, typename Count>
void ExpectAllOrNothing(Operation&& operation, Count&& count) {
  const size_t before = count();
  int refusals = 0;
  while (!ComesThrough(refusals, operation)) {
    EXPECT_EQ(count(), before) << "after refusal " << refusals;
    ++refusals;
    ASSERT_LT(refusals, 100);
  }
  EXPECT_GT(refusals, 0);
  EXPECT_EQ(count(), before + 1);
}

TEST_F(AllocationTest, WhatCannotBeMadeLeavesNothing) {
  vorn_rt_context* other = nullptr;
  ExpectAllOrNothing([&] { other = Change()->devices.CreateContext(0); },
                     [] { return Look()->devices.Contexts().size(); });
  vorn_rt_stream* stream = nullptr;
  ExpectAllOrNothing([&] { stream = Change()->devices.CreateStream(); },
                     [] { return Look()->devices.Streams().size(); });
  vorn_mdl_desc* desc = nullptr;
  ExpectAllOrNothing([&] { desc = Change()->descriptions.Create(); },
                     [] { return Look()->descriptions.Handles().size(); });
  vorn_mdl_dataset* dataset = nullptr;
  ExpectAllOrNothing([&] { dataset = Change()->datasets.Create(); },
                     [] { return Look()->datasets.Handles().size(); });
  char memory[16];
  vorn_data_buffer* buffer = nullptr;
  ExpectAllOrNothing([&] { buffer = Change()->datasets.CreateBuffer(memory, 16, 16); },
                     [] { return Look()->datasets.BufferHandles().size(); });
  ExpectAllOrNothing([&] { Change()->datasets.Add(dataset, buffer); },
                     [&] { return Look()->datasets.At(dataset).buffers.size(); });
  void* block = nullptr;
  ExpectAllOrNothing(
      [&] {
        const Change tables;
        block = tables->blocks.Allocate(64, tables->devices.CurrentMemory());
      },
      [] { return Look()->blocks.Count(); });
  Change()->blocks.Free(block);
  Change()->datasets.DestroyBuffer(buffer);
  Change()->datasets.Destroy(dataset);
  Change()->descriptions.Destroy(desc);
  Change()->devices.DestroyStream(stream);
  Change()->devices.DestroyContext(other);
}

TEST_F(AllocationTest, GoesDownWithoutTheMemoryForItsLog) {
  for (int before = 0; before < 3; ++before) {
    const vorn_mdl_desc* left = Change(Needs::kContext)->descriptions.Create();
    setenv("VORN_LOG", "1", 1);
    EXPECT_TRUE(ComesThrough(before, [] { StopRuntime(); })) << "refusal " << before;
    unsetenv("VORN_LOG");
    if (Look()->engine != nullptr) StopRuntime();
    Change()->descriptions.Destroy(const_cast<vorn_mdl_desc*>(left));
    SetUp();
  }
}

TEST_F(AllocationTest, AsksForTheSameDescriptionWithoutMoreMemory) {
  const std::string image = Model(4).Image();
  const uint32_t id = LoadModel(image.data(), image.size());
  vorn_mdl_desc* desc = Change()->descriptions.Create();
  EXPECT_EQ(AllocationsOf([&] {
              const Change tables;
              tables->descriptions.At(desc).Fill(tables->models.At(id)->description());
            }),
            0u);
  Change()->descriptions.Destroy(desc);
  Change()->models.Remove(id);
}

TEST_F(AllocationTest, CountsWhatIsAllocated) {
  EXPECT_EQ(AllocationsOf([] { ::operator delete(::operator new(1)); }), uint64_t{kRuns});
}

}  // namespace
}  // namespace vorn::host
