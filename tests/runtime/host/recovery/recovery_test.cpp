// After any operation that failed, the same operation made again is right.
//
// A model lives through load, bind, batch, execute and unload while the n-th allocation fails, or
// the n-th call of ONNX Runtime, for every n until nothing fails any more. What failed is done
// again. Inputs are others in every execution and outputs are filled with 0xee before it, so that
// neither an old result nor an unwritten one passes for a right one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/engine/engine.h"
#include "host/engine/engine_threads.h"
#include "runtime/host/few_threads.h"
#include "runtime/host/recovery/faults.h"
#include "runtime/host/refusal.h"
#include "support/files.h"
#include "support/onnx_writer.h"
#include "vorn/vorn.h"

namespace vorn::host {
namespace {

constexpr uint64_t kMemoryLimit = 8 << 20;
constexpr int kMostFaults = 20'000;

/// Dense values, tensor by tensor.
using Values = std::vector<std::vector<float>>;

struct Kind {
  const char* name;
  std::string image;
  uint64_t counts[2];  ///< batch items, or frames, of two executions
  bool hasFrames;
  /// What the model makes of inputs for that many items or frames; short rows are zeros behind.
  std::function<Values(const Values&, uint64_t)> expected;
  bool isLimited = true;  ///< takes its memory out of a limit, otherwise out of the engine's arena
  bool isTimed = false;   ///< under a time-out, which is longer than any run
};

std::vector<float> Twice(std::vector<float> values) {
  for (float& value : values) value *= 2;
  return values;
}

/// Padded rows, an output of another type, and one that is an input as well.
Kind Plain() {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {2, 3});
  model.Output("y", kOnnxFloat, {2, 3})
      .Output("n", kOnnxInt32, {2, 3})
      .Output("x", kOnnxFloat, {2, 3});
  model.Node("Add", {"x", "x"}, {"y"});
  model.Node("Cast", {"x"}, {"n"}, {IntAttribute("to", kOnnxInt32)});
  return {.name = "plain",
          .image = model.Image(),
          .counts = {1, 1},
          .hasFrames = false,
          .expected = [](const Values& in, uint64_t) {
            return Values{Twice(in[0]), in[0], in[0]};
          }};
}

/// A whole batch in one run over dense rows, which are bound where they lie.
Kind Batch() {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {"n", 4}).Input("scale", kOnnxFloat, {1});
  model.Output("y", kOnnxFloat, {"n", 4}).Output("x", kOnnxFloat, {"n", 4});
  model.Node("Mul", {"x", "scale"}, {"y"});
  model.Metadata("vorn", R"({"constants": {"scale": 2}})");
  return {.name = "batch",
          .image = model.Image(),
          .counts = {3, 2},
          .hasFrames = false,
          .expected =
              [](const Values& in, uint64_t) {
                return Values{Twice(in[0]), in[0]};
              },
          .isLimited = false};
}

/// A batch item by item, and an output whose shape a trial has to show.
Kind Items() {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {1, 3})
      .Output("y", kOnnxFloat, {1, 3})
      .ShapelessOutput("z", kOnnxFloat);
  model.Node("Add", {"x", "x"}, {"y"}).Node("Identity", {"x"}, {"z"});
  return {.name = "items",
          .image = model.Image(),
          .counts = {2, 3},
          .hasFrames = false,
          .expected =
              [](const Values& in, uint64_t) {
                return Values{Twice(in[0]), in[0]};
              },
          .isTimed = true};
}

/// hn = [last of the frame before, frame] + h, step by step.
Kind Steps() {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {1, 3}).Input("h", kOnnxFloat, {1, 3});
  model.Output("y", kOnnxFloat, {1, 3}).Output("hn", kOnnxFloat, {1, 3});
  model.Node("Add", {"x", "h"}, {"hn"}).Node("Relu", {"hn"}, {"y"});
  model.Metadata("vorn", R"({"netType": "recurrent", "sequence": "steps", "maxFrames": 5,
                             "context": 1, "states": {"h": "hn"}, "constants": {"h": 1}})");
  const auto expected = [](const Values& in, uint64_t frames) {
    std::vector<float> y(15);
    std::vector<float> h;
    for (size_t t = 0; t < frames; ++t) {
      const bool begins = t == 0 || in[1][t] == 0;
      if (begins) h = {1, 1, 1};
      h[0] += begins ? 0 : in[0][2 * t - 1];
      h[1] += in[0][2 * t];
      h[2] += in[0][2 * t + 1];
      for (size_t i = 0; i < 3; ++i) y[3 * t + i] = std::max(h[i], 0.0F);
    }
    return Values{y};
  };
  return {.name = "steps",
          .image = model.Image(),
          .counts = {4, 5},
          .hasFrames = true,
          .expected = expected,
          .isLimited = false};
}

/// Running sums over a whole sequence of any length, which is divided at flags of 0, and how many
/// frames the last part had.
Kind Whole() {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {"t", 2}).Input("count", kOnnxInt64, {1});
  model.Output("y", kOnnxFloat, {"t", 2}).Output("frames", kOnnxFloat, {1});
  model.Output("x", kOnnxFloat, {"t", 2}).Output("at", kOnnxInt64, {2, "k"});
  model.Constant<int64_t>("axis", kOnnxInt64, {}, {0}).Node("CumSum", {"x", "axis"}, {"y"});
  model.Node("Cast", {"count"}, {"frames"}, {IntAttribute("to", kOnnxFloat)});
  model.Node("NonZero", {"x"}, {"at"});
  model.Metadata("vorn", R"({"netType": "recurrent", "maxFrames": 4, "length": "count",
                             "outputDims": {"at": [2, 8]}})");
  const auto expected = [](const Values& in, uint64_t frames) {
    Values out = {std::vector<float>(8), {0}, std::vector<float>(8), std::vector<float>(16)};
    size_t first = 0;
    for (size_t t = 0; t < frames; ++t) {
      if (t != 0 && in[1][t] == 0) first = t;
      for (size_t i = 0; i < 2; ++i) {
        out[2][2 * t + i] = in[0][2 * t + i];
        out[0][2 * t + i] = in[0][2 * t + i] + (t == first ? 0 : out[0][2 * t - 2 + i]);
      }
    }
    out[1][0] = static_cast<float>(frames - first);
    size_t found = 0;
    for (size_t at = 2 * first; at < 2 * frames; ++at) {
      if (in[0][at] == 0) continue;
      const size_t frame = at / 2;
      out[3][found] = static_cast<float>(frame - first);
      out[3][8 + found++] = static_cast<float>(at % 2);
    }
    return out;
  };
  return {.name = "whole",
          .image = model.Image(),
          .counts = {4, 3},
          .hasFrames = true,
          .expected = expected};
}

/// Thresholds that the whole batch shares, and an output whose shape the data decide.
Kind Detection() {
  OnnxWriter model;
  model.Input("limits", kOnnxFloat, {1, 4}).Input("x", kOnnxFloat, {1, 4});
  model.Output("y", kOnnxFloat, {1, 4}).Output("at", kOnnxInt64, {2, "k"});
  model.Node("Sub", {"x", "limits"}, {"y"}).Node("NonZero", {"x"}, {"at"});
  model.Metadata("vorn", R"({"netType": "detection", "rpn": "limits",
                             "outputDims": {"at": [2, 3]}})");
  const auto expected = [](const Values& in, uint64_t batch) {
    Values out = {std::vector<float>(4 * batch), std::vector<float>(6 * batch)};
    for (size_t item = 0; item < batch; ++item) {
      size_t found = 0;
      for (size_t i = 0; i < 4; ++i) {
        out[0][4 * item + i] = in[0][4 * item + i] - in[1][i];
        if (in[0][4 * item + i] == 0 || found == 3) continue;
        out[1][6 * item + 3 + found++] = static_cast<float>(i);
      }
    }
    return out;
  };
  return {.name = "detection",
          .image = model.Image(),
          .counts = {2, 1},
          .hasFrames = false,
          .expected = expected};
}

const std::vector<Kind>& Kinds() {
  static const std::vector<Kind> kinds = {Plain(), Batch(), Items(), Steps(), Whole(), Detection()};
  return kinds;
}

/// A tensor as the runtime describes it, for one item.
struct Tensor {
  std::string name;
  vorn_data_type type = VORN_FLOAT32;
  uint64_t elements = 1;
  uint64_t columns = 1;  ///< elements in a row
  uint64_t stride = 0;   ///< bytes from row to row
  uint64_t bytes = 0;

  size_t ElementBytes() const { return type == VORN_UINT8 ? 1 : sizeof(float); }
  std::byte* ElementAt(void* block, size_t element) const {
    return static_cast<std::byte*>(block) + element / columns * stride +
           element % columns * ElementBytes();
  }
};

/// One side of an execution: blocks behind buffers in a dataset.
struct Side {
  vorn_mdl_dataset* dataset = nullptr;
  std::vector<void*> blocks;
  std::vector<vorn_data_buffer*> buffers;
};

/// Both sides, for executions of the same count.
struct Pair {
  Side in;
  Side out;
  uint64_t count = 0;
};

/// Small whole numbers, some of them 0; those of flags are 0 or 1.
std::vector<float> InputValues(const Tensor& tensor, uint64_t elements, int seed) {
  std::vector<float> values(elements);
  for (size_t i = 0; i < elements; ++i) {
    const int number = (seed * 7 + static_cast<int>(i) * 5) % 11;
    values[i] = static_cast<float>(tensor.type == VORN_UINT8 ? number % 3 != 0 : number - 5);
  }
  return values;
}

void Write(const Tensor& tensor, const std::vector<float>& values, void* block) {
  for (size_t i = 0; i < values.size(); ++i) {
    const auto flag = static_cast<uint8_t>(values[i]);
    const void* value = &values[i];
    if (tensor.type == VORN_UINT8) value = &flag;
    std::memcpy(tensor.ElementAt(block, i), value, tensor.ElementBytes());
  }
}

class Recovery : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    WatchEngine();
    for (const Kind& one : Kinds()) {
      if (one.name == GetParam()) kind = &one;
    }
    ASSERT_NE(kind, nullptr);
    const support::TempDir folder;
    const std::string config = folder.Path() / "host.json";
    const std::string limit = "\"memoryLimit\": " + std::to_string(kMemoryLimit);
    support::WriteFile(config, "{" + (kind->isLimited ? limit : "") + "}");
    ASSERT_EQ(vorn_init(config.c_str()), VORN_SUCCESS);
    ASSERT_EQ(vorn_rt_set_device(0), VORN_SUCCESS);
    ASSERT_EQ(vorn_rt_create_context(&context, 0), VORN_SUCCESS);
    if (kind->isTimed) {
      ASSERT_EQ(vorn_rt_set_op_wait_timeout(600), VORN_SUCCESS);
    }
  }

  /// Nothing may be left, and all memory of the device has to be back.
  void TearDown() override {
    void* all = nullptr;
    EXPECT_EQ(vorn_rt_malloc(&all, kMemoryLimit, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
    EXPECT_EQ(vorn_rt_free(all), VORN_SUCCESS);
    EXPECT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
    EXPECT_EQ(vorn_rt_reset_device(0), VORN_SUCCESS);
    testing::internal::CaptureStderr();
    EXPECT_EQ(vorn_finalize(), VORN_SUCCESS);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    unsetenv("VORN_LOG");
  }

  template <typename Operation>
  vorn_status StatusOf(Operation&& operation) {
    const Exposed exposed;
    return operation();
  }

  template <typename Operation>
  bool Succeeds(Operation&& operation) {
    const vorn_status status = StatusOf(operation);
    if (status == VORN_SUCCESS) return true;
    // An allocation that failed is told as such, also where ONNX Runtime made it.
    if (fault == Fault::kAllocation) {
      EXPECT_EQ(status, VORN_ERROR_OUT_OF_MEMORY);
    }
    return false;
  }

  /// Again if it fails, which it may do but once.
  template <typename Operation>
  void Do(const char* what, Operation&& operation) {
    if (Succeeds(operation)) return;
    ++failures;
    EXPECT_TRUE(Succeeds(operation)) << what << " after a failure";
  }

  /// For operations that answer with what they make.
  template <typename Thing, typename Operation>
  Thing* Make(const char* what, Operation&& operation) {
    Thing* thing = nullptr;
    Do(what, [&] {
      thing = operation();
      return thing == nullptr ? VORN_ERROR_OUT_OF_MEMORY : VORN_SUCCESS;
    });
    return thing;
  }

  void Load() {
    Do("load",
       [&] { return vorn_mdl_load_from_mem(kind->image.data(), kind->image.size(), &modelId); });
    auto* desc = Make<vorn_mdl_desc>("create desc", [] { return vorn_mdl_create_desc(); });
    Do("get desc", [&] { return vorn_mdl_get_desc(desc, modelId); });
    Describe(desc);
    Do("destroy desc", [&] { return vorn_mdl_destroy_desc(desc); });
  }

  void Describe(const vorn_mdl_desc* desc) {
    inputs.clear();
    outputs.clear();
    vorn_mdl_io_dims dims;
    for (uint64_t i = 0; i < vorn_mdl_get_num_inputs(desc); ++i) {
      ASSERT_EQ(vorn_mdl_get_input_dims(desc, i, &dims), VORN_SUCCESS);
      inputs.push_back(Described(dims, vorn_mdl_get_input_data_type(desc, i),
                                 vorn_mdl_get_input_default_stride(desc, i),
                                 vorn_mdl_get_input_size_by_index(desc, i)));
    }
    for (uint64_t i = 0; i < vorn_mdl_get_num_outputs(desc); ++i) {
      ASSERT_EQ(vorn_mdl_get_output_dims(desc, i, &dims), VORN_SUCCESS);
      outputs.push_back(Described(dims, vorn_mdl_get_output_data_type(desc, i),
                                  vorn_mdl_get_output_default_stride(desc, i),
                                  vorn_mdl_get_output_size_by_index(desc, i)));
    }
  }

  static Tensor Described(const vorn_mdl_io_dims& dims, vorn_data_type type, uint64_t stride,
                          uint64_t bytes) {
    Tensor tensor = {.name = dims.name, .type = type, .stride = stride, .bytes = bytes};
    for (uint64_t i = 0; i < dims.dimCount; ++i) {
      tensor.columns = static_cast<uint64_t>(dims.dims[i]);
      tensor.elements *= tensor.columns;
    }
    return tensor;
  }

  void Unload() {
    Do("unload", [&] { return vorn_mdl_unload(modelId); });
  }

  uint64_t ItemsOf(uint64_t count) const { return kind->hasFrames ? 1 : count; }

  Side Create(const std::vector<Tensor>& tensors, uint64_t items) {
    Side side;
    side.dataset =
        Make<vorn_mdl_dataset>("create dataset", [] { return vorn_mdl_create_dataset(); });
    for (const Tensor& tensor : tensors) {
      const uint64_t bytes = items * tensor.bytes;
      void* block = nullptr;
      Do("malloc", [&] { return vorn_rt_malloc(&block, bytes, VORN_MEM_NORMAL_ONLY); });
      auto* buffer = Make<vorn_data_buffer>(
          "create buffer", [&] { return vorn_create_data_buffer(block, bytes, tensor.stride); });
      Do("add buffer", [&] { return vorn_mdl_add_dataset_buffer(side.dataset, buffer); });
      side.blocks.push_back(block);
      side.buffers.push_back(buffer);
    }
    return side;
  }

  void Destroy(const Side& side) {
    for (vorn_data_buffer* buffer : side.buffers) {
      Do("destroy buffer", [&] { return vorn_destroy_data_buffer(buffer); });
    }
    for (void* block : side.blocks) Do("free", [&] { return vorn_rt_free(block); });
    Do("destroy dataset", [&] { return vorn_mdl_destroy_dataset(side.dataset); });
  }

  Pair CreatePair(uint64_t count) {
    Pair pair;
    pair.count = count;
    pair.in = Create(inputs, ItemsOf(count));
    pair.out = Create(outputs, ItemsOf(count));
    Do("set count", [&] {
      return kind->hasFrames ? vorn_mdl_set_total_t(modelId, pair.in.dataset, count)
                             : vorn_mdl_set_dynamic_batch_size(modelId, pair.in.dataset, 0, count);
    });
    return pair;
  }

  void DestroyPair(const Pair& pair) {
    Destroy(pair.in);
    Destroy(pair.out);
  }

  /// Other inputs than ever before, and outputs that nobody has written.
  Values Fill(const Pair& pair) {
    ++seed;
    Values values;
    for (size_t i = 0; i + 2 < inputs.size(); ++i) {  // the last two are the runtime's own
      const uint64_t elements = inputs[i].elements * ItemsOf(pair.count);
      values.push_back(InputValues(inputs[i], elements, seed + static_cast<int>(i)));
      Write(inputs[i], values[i], pair.in.blocks[i]);
    }
    for (size_t i = 0; i < outputs.size(); ++i) {
      std::memset(pair.out.blocks[i], 0xee, outputs[i].bytes * ItemsOf(pair.count));
    }
    return values;
  }

  /// To the last byte, padding included.
  void ExpectRight(const Pair& pair, const Values& given) {
    const Values expected = kind->expected(given, pair.count);
    for (size_t i = 0; i < outputs.size(); ++i) {
      std::vector<std::byte> whole(outputs[i].bytes * ItemsOf(pair.count), std::byte{0xee});
      Write(outputs[i], expected[i], whole.data());
      EXPECT_EQ(std::memcmp(whole.data(), pair.out.blocks[i], whole.size()), 0)
          << "output '" << outputs[i].name << "' is wrong";
    }
  }

  bool ExecutesRight(const Pair& pair) {
    const Values given = Fill(pair);
    const bool succeeds =
        Succeeds([&] { return vorn_mdl_execute(modelId, pair.in.dataset, pair.out.dataset); });
    if (succeeds) ExpectRight(pair, given);
    return succeeds;
  }

  void Execute(const Pair& pair) {
    if (ExecutesRight(pair)) return;
    ++failures;
    EXPECT_TRUE(ExecutesRight(pair)) << "execute after a failure";
  }

  /// Everything that happens to a model, from its load to its end.
  void Live() {
    Load();
    const Pair first = CreatePair(kind->counts[0]);
    Execute(first);
    const Pair second = CreatePair(kind->counts[1]);
    Execute(second);
    Execute(second);
    Execute(first);
    DestroyPair(second);
    DestroyPair(first);
    Unload();
  }

  void LiveWithEvery(Fault kindOfFault) {
    fault = kindOfFault;
    Live();  // warms up
    EXPECT_EQ(failures, 0);
    setenv("VORN_LOG", "error", 1);
    int n = 0;
    for (bool hasFailed = true; hasFailed && !HasFailure(); ++n) {
      ASSERT_LT(n, kMostFaults);
      testing::internal::CaptureStderr();
      Arm(fault, n);
      Live();
      hasFailed = Disarm();
      const std::string said = testing::internal::GetCapturedStderr();
      EXPECT_FALSE(HasFailure()) << "after fault " << n << ": " << said;
    }
    // All but those that cost no more than a line of the log.
    EXPECT_GT(failures, n / 2);
    RecordProperty("faults", n - 1);
    RecordProperty("failures", failures);
  }

  vorn_rt_context* context = nullptr;
  const Kind* kind = nullptr;
  Fault fault = Fault::kAllocation;
  uint32_t modelId = 0;
  std::vector<Tensor> inputs;
  std::vector<Tensor> outputs;
  int seed = 0;
  int failures = 0;
};

TEST_P(Recovery, OfEveryAllocation) { LiveWithEvery(Fault::kAllocation); }

TEST_P(Recovery, OfEveryCallOfTheEngine) { LiveWithEvery(Fault::kCall); }

TEST_P(Recovery, KeepsTheContextWhereAnotherOneFails) {
  for (bool hasFailed = true; hasFailed; ++failures) {
    Arm(Fault::kAllocation, failures);
    vorn_rt_context* other = nullptr;
    const vorn_status status = StatusOf([&] { return vorn_rt_create_context(&other, 0); });
    hasFailed = Disarm();
    EXPECT_EQ(status, hasFailed ? VORN_ERROR_OUT_OF_MEMORY : VORN_SUCCESS);
    void* block = nullptr;
    EXPECT_EQ(vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
    EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
    if (hasFailed) continue;
    EXPECT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
    context = other;
  }
  EXPECT_GT(failures, 1);
}

/// Lets each call of the engine fail that brings it up, and counts them.
int CallsOfComingUp() {
  for (int n = 0;; ++n) {
    Arm(Fault::kCall, n);
    std::string reason;
    {
      const Exposed exposed;
      reason = ReasonOf(VORN_ERROR_INTERNAL, [] { CreateEngine(); });
    }
    if (!Disarm()) {
      EXPECT_EQ(reason, "");
      return n;
    }
    EXPECT_EQ(reason, "the execution library does not come up (refused on purpose)");
  }
}

TEST(EngineRecovery, OfEveryCallThatBringsTheEngineUp) {
  WatchEngine();
  const int calls = CallsOfComingUp();
  EXPECT_GT(calls, 3);
  // Nobody holds it any more, so that it has to come up once more.
  EXPECT_EQ(CallsOfComingUp(), calls);
  const std::unique_ptr<Engine> first = CreateEngine();
  std::unique_ptr<Engine> second = CreateEngine();
  second.reset();
  EXPECT_EQ(CallsOfComingUp(), 0);
}

TEST(EngineRecovery, OfEveryAllocationThatStartsThreads) {
  const int before = ThreadCount();
  bool hasFailed = true;
  int n = 0;
  for (; hasFailed; ++n) {
    Arm(Fault::kAllocation, n);
    try {
      const Exposed exposed;
      const EngineThreads threads(3);
    } catch (const std::bad_alloc&) {
      // Those that were started are gone by now.
    }
    hasFailed = Disarm();
    EXPECT_EQ(ThreadCount(), before);
  }
  EXPECT_GT(n, 3);
}

INSTANTIATE_TEST_SUITE_P(Host, Recovery,
                         testing::Values("plain", "batch", "items", "steps", "whole", "detection"),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace vorn::host
