// Models over a session that is written here: what is bound, what is copied, what is touched.
#include "host/state/model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <optional>

#include "host/common/failure.h"
#include "host/tensor/element_type.h"
#include "runtime/host/refusal.h"
#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

constexpr auto kUntouched = std::byte{0xee};

DeclaredDim Fixed(int64_t size) { return {.size = size, .symbol = ""}; }
DeclaredDim Open(const char* symbol) { return {.size = DeclaredDim::kOpen, .symbol = symbol}; }

/// What the test sees of its session while the model owns it.
struct SessionScript {
  std::vector<DeclaredTensor> inputs;
  std::vector<DeclaredTensor> outputs;
  std::function<std::vector<Shape>(std::span<const Shape>)> onTry;
  std::function<void()> onRun = [] {};
  bool failsToRun = false;
  bool runsUntilTerminated = false;
  std::atomic<bool> isTerminated = false;

  int bindings = 0;
  std::vector<void*> boundInputs;
  std::vector<void*> boundOutputs;
  std::vector<Shape> boundShapes;             // of output 0, run by run
  std::vector<std::pair<void*, void*>> runs;  // input 0 and output 0, run by run
};

/// Copies the bytes of input 0 to output 0.
class ScriptedSession : public Session {
 public:
  explicit ScriptedSession(SessionScript& script) : script_(script) {
    script_.boundInputs.resize(script_.inputs.size());
    script_.boundOutputs.resize(script_.outputs.size());
  }
  const std::vector<DeclaredTensor>& inputs() const override { return script_.inputs; }
  const std::vector<DeclaredTensor>& outputs() const override { return script_.outputs; }
  void BindInput(size_t index, void* data, const Shape&) override {
    ++script_.bindings;
    script_.boundInputs[index] = data;
  }
  void BindOutput(size_t index, void* data, const Shape& shape) override {
    ++script_.bindings;
    script_.boundOutputs[index] = data;
    if (index == 0) outputShape_ = shape;
  }
  void BindConstant(size_t index, void* data, const Shape& shape) override {
    BindInput(index, data, shape);
  }
  void BindOutputOfAnyShape(size_t) override {}
  TensorView Result(size_t) override { return {}; }
  void Run() override {
    script_.onRun();
    if (script_.runsUntilTerminated) script_.isTerminated.wait(false);
    if (script_.failsToRun) throw Failure(VORN_ERROR_EXECUTION, "scripted");
    uint64_t bytes = ElementBytes(script_.outputs[0].type);
    for (const int64_t dim : outputShape_) bytes *= static_cast<uint64_t>(dim);
    std::memcpy(script_.boundOutputs[0], script_.boundInputs[0], bytes);
    script_.runs.emplace_back(script_.boundInputs[0], script_.boundOutputs[0]);
    script_.boundShapes.push_back(outputShape_);
  }
  std::vector<Shape> Try(std::span<const Shape> shapes) override { return script_.onTry(shapes); }
  void Terminate() noexcept override {
    script_.isTerminated = true;
    script_.isTerminated.notify_all();
  }
  void Resume() override { script_.isTerminated = false; }

 private:
  SessionScript& script_;
  Shape outputShape_;
};

class ScriptedEngine : public Engine {
 public:
  explicit ScriptedEngine(SessionScript& script) : script_(script) {}
  std::unique_ptr<Session> Open(std::span<const std::byte>, const Config&) override {
    return std::make_unique<ScriptedSession>(script_);
  }
  std::vector<ResultFacts> TellOutputs(std::span<const std::byte>, const Config&) override {
    return {};
  }

 private:
  SessionScript& script_;
};

/// A model with one input and one output of that shape, and blocks for it.
class ModelTest : public testing::Test {
 protected:
  void Load(const DeclaredShape& shape, vorn_data_type type = VORN_UINT8) {
    script.inputs = {{.name = "x", .type = type, .shape = shape}};
    script.outputs = {{.name = "y", .type = type, .shape = shape}};
    Reload();
  }

  void Reload() {
    ScriptedEngine engine(script);
    model.emplace(engine, std::span<const std::byte>(), config);
  }

  const TensorDescription& Input() { return model->description()->inputs[0]; }

  /// Executes over blocks of `inputBytes` and `outputBytes`, the input counting upwards.
  vorn_status Execute(uint64_t batch, uint64_t inputBytes, uint64_t outputBytes,
                      uint64_t stride = 0) {
    return StatusOf([&] { ExecuteOver(batch, inputBytes, outputBytes, stride); });
  }

  /// Why an execution fails with that status.
  std::string Refusal(vorn_status status, uint64_t batch, uint64_t inputBytes, uint64_t outputBytes,
                      uint64_t stride = 0) {
    return ReasonOf(status, [&] { ExecuteOver(batch, inputBytes, outputBytes, stride); });
  }

  void ExecuteOver(uint64_t batch, uint64_t inputBytes, uint64_t outputBytes, uint64_t stride) {
    in.resize(inputBytes);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<std::byte>(i % 100);
    out.assign(outputBytes, kUntouched);
    const auto description = model->description();
    if (stride == 0) stride = Input().layout.stride;
    std::vector<BlockView> inputs = {{in.data(), in.size(), stride}};
    scratch.resize(2 << 16);
    for (size_t i = 1; i < description->inputs.size(); ++i) {
      inputs.push_back(
          {scratch.data() + ((i - 1) << 16), 1 << 16, description->inputs[i].layout.stride});
    }
    const std::vector<BlockView> outputs = {{out.data(), out.size(), stride}};
    model->Execute({.inputs = inputs, .outputs = outputs, .batch = batch}, timeout);
  }

  /// What the log says while `steps` run.
  template <typename Steps>
  std::string LogOf(Steps&& steps) {
    setenv("VORN_LOG", "error", 1);
    testing::internal::CaptureStderr();
    steps();
    unsetenv("VORN_LOG");
    return testing::internal::GetCapturedStderr();
  }

  /// The output as it has to be: `rows` rows of the input, padding left alone.
  std::vector<std::byte> Expected(uint64_t rows, uint64_t rowBytes, uint64_t stride) {
    std::vector<std::byte> expected(out.size(), kUntouched);
    for (uint64_t r = 0; r < rows; ++r) {
      for (uint64_t b = 0; b < rowBytes; ++b) expected[r * stride + b] = in[r * stride + b];
    }
    return expected;
  }

  Config config;
  SessionScript script;
  std::optional<Model> model;
  Timeout timeout;
  std::vector<std::byte> in, out, scratch;
};

TEST_F(ModelTest, BindsDenseBlocksWhereTheyLie) {
  Load({Fixed(2), Fixed(16)});
  ASSERT_EQ(Execute(1, 32, 32), VORN_SUCCESS);
  EXPECT_EQ(script.runs[0].first, in.data());
  EXPECT_EQ(script.runs[0].second, out.data());
  EXPECT_EQ(out, in);
}

TEST_F(ModelTest, IsLateAlsoWhereItCameToItsEnd) {
  Load({Fixed(2), Fixed(16)});
  timeout.seconds = 1;
  script.runsUntilTerminated = true;
  EXPECT_EQ(Execute(1, 32, 32), VORN_ERROR_TIMEOUT);
  script.failsToRun = true;
  EXPECT_EQ(Execute(1, 32, 32), VORN_ERROR_TIMEOUT);
  EXPECT_FALSE(script.isTerminated);
  script.runsUntilTerminated = false;
  timeout.seconds = 3600;
  EXPECT_EQ(Execute(1, 32, 32), VORN_ERROR_EXECUTION);
  script.failsToRun = false;
  EXPECT_EQ(Execute(1, 32, 32), VORN_SUCCESS);
}

TEST_F(ModelTest, RehearsesOverZeros) {
  Load({Fixed(2), Fixed(16)});
  model->Rehearse();
  EXPECT_EQ(script.runs.size(), 1u);
}

TEST_F(ModelTest, RehearsesWithinItsBudgetAllTogether) {
  const uint64_t item = 1 << 20;
  Load({Fixed(1), Fixed(item)});
  for (const uint64_t room : {2 * item, 3 * item}) {
    ScriptedEngine engine(script);
    model.emplace(engine, std::span<const std::byte>(), config,
                  std::make_shared<MemoryBudget>(room));
    if (room == 2 * item) {
      EXPECT_THROW(model->Rehearse(), std::bad_alloc);  // input, output and scratch
    } else {
      EXPECT_NO_THROW(model->Rehearse());
    }
  }
  EXPECT_EQ(script.runs.size(), 1u);
}

TEST_F(ModelTest, BindsASingleRowWhereItLiesInSpiteOfItsPadding) {
  Load({Fixed(1), Fixed(10)});
  ASSERT_EQ(Execute(1, 16, 16), VORN_SUCCESS);
  EXPECT_EQ(script.runs[0].first, in.data());
  EXPECT_EQ(script.runs[0].second, out.data());
  EXPECT_EQ(out, Expected(1, 10, 16));
}

TEST_F(ModelTest, StagesPaddedBlocksAndLeavesPaddingAlone) {
  Load({Fixed(3), Fixed(5)});
  ASSERT_EQ(Execute(1, 48, 48), VORN_SUCCESS);
  EXPECT_NE(script.runs[0].first, in.data());
  EXPECT_EQ(out, Expected(3, 5, 16));
}

TEST_F(ModelTest, StagesElsewhereWhereTheWorkBufferIsTooSmallOnceItIsAligned) {
  Load({Fixed(3), Fixed(5)});
  alignas(64) std::byte block[4096] = {};
  std::vector<std::byte> from(48), to(48, kUntouched);
  for (size_t i = 0; i < from.size(); ++i) from[i] = static_cast<std::byte>(i);
  const uint64_t work = model->description()->inputs[2].layout.ItemBytes();
  const std::vector<BlockView> outputs = {{to.data(), to.size(), 16}};
  for (const size_t shift : {0, 1}) {
    const std::vector<BlockView> inputs = {
        {from.data(), from.size(), 16}, {block, 1024, 512}, {block + 2048 + shift, work, work}};
    model->Execute({.inputs = inputs, .outputs = outputs, .batch = 1});
    // The input's place comes first, and the output's reaches beyond the end.
    const auto* staged = static_cast<std::byte*>(script.runs.back().second);
    EXPECT_EQ(staged >= block + 2048 && staged < block + 4096, shift == 0);
    EXPECT_EQ(to[36], std::byte{36});
    to[36] = kUntouched;
  }
}

TEST_F(ModelTest, StagesInTheSamePlaceEveryTime) {
  Load({Fixed(3), Fixed(5)});
  ASSERT_EQ(Execute(1, 48, 48), VORN_SUCCESS);
  ASSERT_EQ(Execute(1, 48, 48), VORN_SUCCESS);
  EXPECT_EQ(script.runs[0], script.runs[1]);
}

TEST_F(ModelTest, BindsNothingAnewForTheSameBlocks) {
  Load({Open("n"), Fixed(3), Fixed(5)});
  std::vector<std::byte> from(96, std::byte{1}), to(96, kUntouched), scratchBlock(2 << 15);
  const auto execute = [&](uint64_t batch, uint64_t stride) {
    std::vector<BlockView> inputs = {{from.data(), from.size(), stride}};
    for (int i = 0; i < 2; ++i) {
      inputs.push_back({scratchBlock.data() + (i << 15), 1 << 15, 1 << 14});
    }
    const std::vector<BlockView> outputs = {{to.data(), to.size(), stride}};
    model->Execute({.inputs = inputs, .outputs = outputs, .batch = batch});
    return script.bindings;
  };
  EXPECT_EQ(execute(1, 16), 2);
  from.assign(from.size(), std::byte{2});  // what a block holds is looked at every time
  EXPECT_EQ(execute(1, 16), 2);
  EXPECT_EQ(to[32], std::byte{2});
  EXPECT_EQ(to[5], kUntouched);
  EXPECT_EQ(execute(2, 16), 4);
  EXPECT_EQ(execute(2, 16), 4);
  EXPECT_EQ(execute(1, 16), 6);
  EXPECT_EQ(execute(1, 5), 8);
  EXPECT_EQ(script.runs.size(), 6u);
}

TEST_F(ModelTest, RefusesTheSameBlocksAsBefore) {
  Load({Open("n"), Fixed(5)});
  ASSERT_EQ(Execute(1, 16, 16), VORN_SUCCESS);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Execute(1, 16, 15), VORN_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(Execute(2, 16, 16), VORN_ERROR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(script.runs.size(), 1u);
  script.failsToRun = true;
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Execute(1, 16, 16), VORN_ERROR_EXECUTION);
  script.failsToRun = false;
  EXPECT_EQ(Execute(1, 16, 16), VORN_SUCCESS);
  EXPECT_EQ(out, Expected(1, 5, 16));
}

TEST_F(ModelTest, TellsOfDroppedItemsEveryTime) {
  Load({Open("n"), Fixed(5)});
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(LogOf([&] { ASSERT_EQ(Execute(2, 32, 16), VORN_SUCCESS); }),
              "vorn: vorn_mdl_execute: output 0 'y' holds 1 of 2 batch items; the rest is "
              "dropped\n");
  }
}

TEST_F(ModelTest, BindsAnewWhereAnExecutionFailedInBetween) {
  Load({Open("n"), Fixed(16)});
  std::vector<std::byte> first(16, std::byte{1}), other(16, std::byte{2}), to(16);
  std::vector<std::byte> scratchBlock(4096);
  const auto execute = [&](std::vector<std::byte>& from) {
    const std::vector<BlockView> inputs = {{from.data(), 16, 16},
                                           {scratchBlock.data(), 2048, 2048},
                                           {scratchBlock.data() + 2048, 2048, 2048}};
    const std::vector<BlockView> outputs = {{to.data(), 16, 16}};
    model->Execute({.inputs = inputs, .outputs = outputs, .batch = 1});
  };
  execute(first);
  script.failsToRun = true;
  EXPECT_EQ(StatusOf([&] { execute(other); }), VORN_ERROR_EXECUTION);
  script.failsToRun = false;
  execute(first);
  EXPECT_EQ(script.runs.back().first, first.data());
  EXPECT_EQ(to, first);
}

TEST_F(ModelTest, SaysWhichBlockDoesNotFitAndHow) {
  Load({Open("n"), Fixed(5)});
  const vorn_status status = VORN_ERROR_INVALID_ARGUMENT;
  EXPECT_EQ(Refusal(status, 1, 16, 15), "output 0 'y' holds 15 bytes; one batch item needs 16");
  EXPECT_EQ(Refusal(status, 2, 31, 32),
            "input 0 'x' holds 31 bytes; a batch of 2 needs 2 times 16");
  EXPECT_EQ(Refusal(status, 1, 16, 16, 4), "input 'x' has a stride of 4 bytes; a row has 5");
  std::vector<std::byte> block(4096);
  std::vector<BlockView> inputs(3, {block.data(), 1024, 512});
  const std::vector<BlockView> outputs = {{block.data(), 1024, 4}};
  EXPECT_EQ(ReasonOf(status, [&] { model->Execute({.inputs = inputs, .outputs = outputs}); }),
            "output 'y' has a stride of 4 bytes; a row has 5");
}

TEST_F(ModelTest, RefusesABatchWhoseOutputNoMemoryHolds) {
  script.inputs = {{.name = "x", .type = VORN_UINT8, .shape = {Open("n"), Fixed(1)}}};
  script.outputs = {{.name = "y", .type = VORN_UINT8, .shape = {Open("n"), Fixed(1LL << 40)}}};
  Reload();
  std::byte place{};
  // As if there were room: it is refused before anything is touched.
  const std::vector<BlockView> inputs(3, {&place, INT64_MAX, 1 << 20});
  const std::vector<BlockView> outputs = {{&place, INT64_MAX, 1LL << 40}};
  for (const uint64_t batch : {1 << 23, 1 << 24}) {
    EXPECT_EQ(
        ReasonOf(VORN_ERROR_INVALID_ARGUMENT,
                 [&] { model->Execute({.inputs = inputs, .outputs = outputs, .batch = batch}); }),
        "output 0 'y' of a batch of " + std::to_string(batch) +
            " exceeds any memory; give a smaller batch");
  }
}

TEST_F(ModelTest, KnowsNoFrames) {
  Load({Fixed(4)});
  EXPECT_EQ(ReasonOf(VORN_ERROR_UNSUPPORTED, [&] { model->CheckFrames(3); }),
            "the model is not recurrent; it takes no 3 frames");
}

TEST_F(ModelTest, TakesAStrideOfTheCallersChoice) {
  Load({Fixed(3), Fixed(5)});
  ASSERT_EQ(Execute(1, 21, 21, 7), VORN_SUCCESS);
  EXPECT_EQ(out, Expected(3, 5, 7));
  ASSERT_EQ(Execute(1, 15, 15, 5), VORN_SUCCESS);
  EXPECT_EQ(script.runs[1].first, in.data());
}

TEST_F(ModelTest, RefusesAStrideThatHoldsNoRow) {
  Load({Fixed(3), Fixed(5)});
  EXPECT_EQ(Execute(1, 48, 48, 4), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(Execute(1, 48, 48, UINT64_MAX / 2), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_TRUE(script.runs.empty());
}

TEST_F(ModelTest, StagesWhatIsNotAlignedForItsType) {
  Load({Fixed(4)}, VORN_FLOAT32);
  alignas(4) std::byte from[32] = {};
  alignas(4) std::byte to[32] = {};
  for (size_t i = 0; i < 32; ++i) from[i] = static_cast<std::byte>(i);
  std::vector<BlockView> inputs = {{from + 1, 31, 16}};
  scratch.resize(8192);
  for (int i = 0; i < 2; ++i) inputs.push_back({scratch.data() + 4096 * i, 4096, 4096});
  const std::vector<BlockView> outputs = {{to + 3, 29, 16}};
  model->Execute({.inputs = inputs, .outputs = outputs, .batch = 1});
  EXPECT_EQ(std::memcmp(to + 3, from + 1, 16), 0);
  EXPECT_NE(script.runs[0].first, from + 1);
  EXPECT_NE(script.runs[0].second, to + 3);
}

TEST_F(ModelTest, RunsAnOpenBatchAtOnce) {
  Load({Open("n"), Fixed(2), Fixed(5)});
  ASSERT_EQ(Execute(3, 96, 96), VORN_SUCCESS);
  ASSERT_EQ(script.runs.size(), 1u);
  EXPECT_EQ(script.boundShapes[0], (Shape{3, 2, 5}));
  EXPECT_EQ(out, Expected(6, 5, 16));
}

TEST_F(ModelTest, RunsAFixedBatchItemByItem) {
  Load({Fixed(2), Fixed(16)});
  ASSERT_EQ(Execute(3, 96, 96), VORN_SUCCESS);
  ASSERT_EQ(script.runs.size(), 3u);
  for (size_t b = 0; b < 3; ++b) {
    EXPECT_EQ(script.runs[b].first, in.data() + 32 * b);
    EXPECT_EQ(script.runs[b].second, out.data() + 32 * b);
  }
  EXPECT_EQ(out, in);
}

TEST_F(ModelTest, BatchesMayGrowAndShrink) {
  Load({Open("n"), Fixed(5)});
  for (const uint64_t batch : {2, 5, 1, 3}) {
    ASSERT_EQ(Execute(batch, 16 * batch, 16 * batch), VORN_SUCCESS);
    EXPECT_EQ(out, Expected(batch, 5, 16));
    EXPECT_EQ(script.boundShapes.back()[0], static_cast<int64_t>(batch));
  }
}

TEST_F(ModelTest, RefusesAnInputThatHoldsLessThanTheBatch) {
  for (const DeclaredDim& first : {Open("n"), Fixed(1)}) {
    Load({first, Fixed(5)});
    EXPECT_EQ(Execute(3, 47, 48), VORN_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(Execute(UINT64_MAX, 48, 48), VORN_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(Execute(UINT64_MAX / 16, 48, 48), VORN_ERROR_INVALID_ARGUMENT);
    EXPECT_TRUE(script.runs.empty());
    EXPECT_EQ(Execute(3, 48, 48), VORN_SUCCESS);
    script.runs.clear();
  }
}

TEST_F(ModelTest, DropsBatchItemsThatTheOutputDoesNotHold) {
  for (const DeclaredDim& first : {Open("n"), Fixed(1)}) {
    for (const int64_t row : {5, 16}) {
      Load({first, Fixed(row)});
      ASSERT_EQ(Execute(4, 64, 47), VORN_SUCCESS);
      EXPECT_EQ(out, Expected(2, static_cast<uint64_t>(row), 16));
    }
  }
}

TEST_F(ModelTest, RefusesAnOutputThatHoldsNoItem) {
  Load({Open("n"), Fixed(5)});
  EXPECT_EQ(Execute(1, 16, 15), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_TRUE(script.runs.empty());
}

TEST_F(ModelTest, RefusesAWrongCountOfBlocks) {
  Load({Fixed(16)});
  std::vector<std::byte> block(4096);
  const std::vector<BlockView> views(4, {block.data(), block.size(), 256});
  const auto execute = [&](size_t inputs, size_t outputs) {
    model->Execute({.inputs = std::span(views).first(inputs),
                    .outputs = std::span(views).first(outputs),
                    .batch = 1});
  };
  EXPECT_THROW(execute(0, 0), Failure);
  for (const size_t inputs : {0, 2, 4}) {
    EXPECT_THROW(execute(inputs, 1), Failure);
  }
  for (const size_t outputs : {0, 2}) {
    EXPECT_THROW(execute(3, outputs), Failure);
  }
  EXPECT_NO_THROW(execute(3, 1));
}

TEST_F(ModelTest, RefusesScratchBlocksThatAreTooSmall) {
  Load({Fixed(16)});
  std::vector<std::byte> block(4096);
  const uint64_t task = model->description()->inputs[1].layout.ItemBytes();
  const uint64_t work = model->description()->inputs[2].layout.ItemBytes();
  const auto execute = [&](uint64_t taskBytes, uint64_t workBytes) {
    const std::vector<BlockView> inputs = {
        {block.data(), 4096, 16}, {block.data(), taskBytes, task}, {block.data(), workBytes, work}};
    const std::vector<BlockView> outputs = {{block.data() + 2048, 2048, 16}};
    model->Execute({.inputs = inputs, .outputs = outputs, .batch = 2});
  };
  EXPECT_NO_THROW(execute(2 * task, 2 * work));
  EXPECT_THROW(execute(2 * task - 1, 2 * work), Failure);
  EXPECT_THROW(execute(2 * task, 2 * work - 1), Failure);
}

TEST_F(ModelTest, PassesOnWhatFailsInTheEngine) {
  Load({Fixed(16)});
  script.failsToRun = true;
  EXPECT_EQ(Refusal(VORN_ERROR_EXECUTION, 1, 16, 16), "scripted");
}

TEST_F(ModelTest, NamesTheKeyWhereATrialMayHaveMisled) {
  script.inputs = {{.name = "x", .type = VORN_UINT8, .shape = {Fixed(16)}}};
  script.outputs = {{.name = "y", .type = VORN_UINT8, .shape = {}}};
  script.onTry = [](std::span<const Shape>) { return std::vector<Shape>{{16}}; };
  Reload();
  script.failsToRun = true;
  EXPECT_EQ(Refusal(VORN_ERROR_EXECUTION, 1, 16, 16),
            "scripted; if it is an output whose shape depends on the data, give the largest with "
            "'outputDims'");
}

TEST_F(ModelTest, TellsAnotherFaultThanThatOfMemoryAsItIs) {
  Load({Fixed(16)});
  ScriptedEngine engine(script);
  model.emplace(engine, std::span<const std::byte>(), config, std::make_shared<MemoryBudget>(1000));
  script.onRun = [] { EXPECT_FALSE(BudgetScope::Current()->Take(1001)); };
  script.failsToRun = true;
  EXPECT_EQ(Refusal(VORN_ERROR_EXECUTION, 1, 16, 16), "scripted");
  script.onRun = [] {
    if (!BudgetScope::Current()->Take(1001)) throw std::bad_alloc();
  };
  EXPECT_EQ(Refusal(VORN_ERROR_OUT_OF_MEMORY, 1, 16, 16),
            "the model wants 1001 bytes more; the device has 1000, of which 0 are taken");
}

TEST_F(ModelTest, LearnsUnknownOutputsFromATrial) {
  script.inputs = {{.name = "x", .type = VORN_UINT8, .shape = {Open("n"), Fixed(2)}}};
  script.outputs = {{.name = "y", .type = VORN_UINT8, .shape = {}}};
  script.onTry = [](std::span<const Shape> shapes) {
    return std::vector<Shape>{{shapes[0][0], 7}};
  };
  Reload();
  EXPECT_EQ(model->description()->outputs[0].dims, (Shape{1, 7}));
  script.inputs[0].shape[1] = Fixed(7);
  Reload();
  ASSERT_EQ(Execute(2, 32, 32), VORN_SUCCESS);
  EXPECT_EQ(script.runs.size(), 1u);  // the trial of two items showed twice the first dimension
}

TEST_F(ModelTest, RunsItemByItemWhereATrialShowsNoBatch) {
  script.inputs = {{.name = "x", .type = VORN_UINT8, .shape = {Open("n"), Fixed(7)}}};
  script.outputs = {{.name = "y", .type = VORN_UINT8, .shape = {}}};
  script.onTry = [](std::span<const Shape>) { return std::vector<Shape>{{1, 7}}; };
  Reload();
  ASSERT_EQ(Execute(2, 32, 32), VORN_SUCCESS);
  EXPECT_EQ(script.runs.size(), 2u);

  script.onTry = [](std::span<const Shape> shapes) -> std::vector<Shape> {
    if (shapes[0][0] != 1) throw Failure(VORN_ERROR_EXECUTION, "one item only");
    return {{1, 7}};
  };
  script.runs.clear();
  Reload();
  ASSERT_EQ(Execute(2, 32, 32), VORN_SUCCESS);
  EXPECT_EQ(script.runs.size(), 2u);
}

TEST_F(ModelTest, RefusesAModelWhoseTrialFailsOrShowsNothing) {
  script.inputs = {{.name = "x", .type = VORN_UINT8, .shape = {Open("n")}}};
  script.outputs = {{.name = "y", .type = VORN_UINT8, .shape = {}}};
  script.onTry = [](std::span<const Shape>) -> std::vector<Shape> {
    throw Failure(VORN_ERROR_EXECUTION, "no");
  };
  EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { Reload(); }),
            "the model does not say how large its outputs are, and no; give its open dimensions a "
            "size with 'dims' or 'inputDims', or the outputs one with 'outputDims'");
  script.onTry = [](std::span<const Shape>) { return std::vector<Shape>{{0, 7}}; };
  EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { Reload(); }),
            "output 'y' has the shape [0, 7] in a trial with zero inputs; give the largest that "
            "it takes with 'outputDims'");
}

TEST_F(ModelTest, RefusesTensorsBeyondAnyMemory) {
  const std::string end = "; every dimension has to be at least 1 and the whole below 2^63 bytes";
  const DeclaredShape large = {Fixed(INT64_MAX), Fixed(2)};
  script.inputs = {{.name = "x", .type = VORN_UINT8, .shape = large}};
  script.outputs = {{.name = "y", .type = VORN_UINT8, .shape = large}};
  EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { Reload(); }),
            "input 'x' has the shape [9223372036854775807, 2]" + end);
  script.inputs[0].shape = {Fixed(1)};
  EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { Reload(); }),
            "output 'y' has the shape [9223372036854775807, 2]" + end);
}

TEST_F(ModelTest, RefusesAModelWithoutOutputs) {
  script.inputs = {{.name = "x", .type = VORN_UINT8, .shape = {Fixed(1)}}};
  config.dims = {{"unused", 1}};  // which is told of a model that is taken
  EXPECT_EQ(LogOf([&] {
              EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { Reload(); }),
                        "the model has no output; there is nothing to execute it for");
            }),
            "");
}

TEST_F(ModelTest, LooksForSizesThatNothingHasOnlyWhereSomebodyWantsToKnow) {
  // A graph that is none: whoever looks for the names in it stumbles.
  const std::string image = WireWriter().Bytes(7, "\x3b").str();
  Load({Fixed(16)});
  ScriptedEngine engine(script);
  const auto open = [&] { model.emplace(engine, std::as_bytes(std::span(image)), config); };
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(StatusOf(open), VORN_SUCCESS); }), "");
  config.dims = {{"unused", 7}};
  EXPECT_EQ(StatusOf(open), VORN_SUCCESS);
  LogOf([&] { EXPECT_EQ(StatusOf(open), VORN_ERROR_MODEL); });
}

TEST_F(ModelTest, TellsOfSizesThatNothingHas) {
  config.dims = {{"unused", 7}};
  EXPECT_EQ(LogOf([&] { Load({Fixed(16)}); }),
            "vorn: vorn_mdl_load_from_mem: 'dims' gives 'unused' the size 7, but no input or "
            "output has it; the names are none\n");
}

TEST_F(ModelTest, RehearsesAsIfNobodyHadRegisteredTheBlocks) {
  config.model = R"({"netType": "recurrent"})";
  script.onTry = [](std::span<const Shape>) { return std::vector<Shape>{{4, 16}}; };
  Load({Fixed(4), Fixed(16)});
  EXPECT_EQ(LogOf([&] { model->Rehearse(); }), "");
  EXPECT_EQ(script.runs.size(), 1u);
}

TEST_F(ModelTest, LeavesItsDescriptionToWhoeverHoldsIt) {
  Load({Fixed(16)});
  const auto description = model->description();
  model.reset();
  EXPECT_EQ(description->inputs[0].name, "x");
}

}  // namespace
}  // namespace vorn::host
