// Sequences of frames, whole and step by step.
#include <gmock/gmock.h>

#include <cmath>

#include "runtime/host/host_fixture.h"

namespace {

using testing::HasSubstr;

/// y = x + h, which is also the next h: sums up what it is given.
OnnxWriter Adder(OnnxType type = kOnnxFloat) {
  return OnnxWriter()
      .Input("x", type, {1, 2})
      .Input("h", type, {1, 2})
      .Output("y", type, {1, 2})
      .Output("hn", type, {1, 2})
      .Node("Add", {"x", "h"}, {"y"})
      .Node("Identity", {"y"}, {"hn"});
}

std::string Steps(const std::string& more = "") {
  return R"({"model": {"netType": "recurrent", "sequence": "steps", "maxFrames": 5,
                       "states": {"h": "hn"})" +
         more + "}}";
}

std::string Whole(const std::string& more) {
  return R"({"model": {"netType": "recurrent")" + more + "}}";
}

class HostRecurrent : public HostFixture {
 protected:
  vorn_status SetFrames(const Blocks& in, uint64_t frames) {
    return vorn_mdl_set_total_t(modelId, in.dataset, frames);
  }

  /// Executes over the first `frames` frames; everything beyond them is 0xee.
  vorn_status Execute(Blocks& in, Blocks& out, const std::vector<float>& frames, uint64_t row,
                      const std::vector<uint8_t>& flags) {
    in.Put(0, frames, row);
    in.Put(1, flags, flags.size());
    const vorn_status set = SetFrames(in, flags.size());
    return set != VORN_SUCCESS ? set : vorn_mdl_execute(modelId, in.dataset, out.dataset);
  }

  /// Output 0 after one such execution, all `count` values of it.
  std::vector<float> Run(const std::vector<float>& frames, uint64_t row,
                         const std::vector<uint8_t>& flags, size_t count, uint64_t outputRow) {
    Blocks in = Inputs();
    Blocks out = Outputs();
    EXPECT_EQ(Execute(in, out, frames, row, flags), VORN_SUCCESS);
    return out.Take<float>(0, count, outputRow);
  }
};

TEST_F(HostRecurrent, OutputsWithoutElementsAreLeftOut) {
  Restart(Steps());
  OnnxWriter model = Adder();
  model.Output("nothing", kOnnxFloat, {0, 2})
      .Constant<float>("none", kOnnxFloat, {0, 2}, {})
      .Node("Identity", {"none"}, {"nothing"});
  EXPECT_THAT(LogOf([&] { ASSERT_EQ(Load(model), VORN_SUCCESS); }),
              HasSubstr("output 'nothing' is declared without elements and left out"));
  EXPECT_EQ(vorn_mdl_get_num_outputs(desc), 1u);
  EXPECT_EQ(Run({1, 2, 3, 4}, 2, {0, 1}, 10, 2),
            (std::vector<float>{1, 2, 4, 6, 0, 0, 0, 0, 0, 0}));
}

TEST_F(HostRecurrent, ModelsShowFramesFlagsAndOutputsAlongTheSequence) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  vorn_net_type type = 7;
  EXPECT_EQ(vorn_ext_get_mdl_net_type(modelId, &type), VORN_SUCCESS);
  EXPECT_EQ(type, VORN_NET_RECURRENT);
  ASSERT_EQ(vorn_mdl_get_num_inputs(desc), 4u);
  EXPECT_EQ(NameOfInput(0), "x");
  EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{5, 2}));
  EXPECT_EQ(NameOfInput(1), "flags");
  EXPECT_EQ(ShapeOfInput(1), std::vector<int64_t>{5});
  EXPECT_EQ(vorn_mdl_get_input_data_type(desc, 1), vorn_data_type{VORN_UINT8});
  ASSERT_EQ(vorn_mdl_get_num_outputs(desc), 1u);
  EXPECT_EQ(ShapeOfOutput(0), (std::vector<int64_t>{5, 2}));
}

TEST_F(HostRecurrent, StepsCarryTheirStatesAndStartAnewAtAFlagOf0) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  const std::vector<float> frames = {1, 10, 2, 20, 3, 30, 4, 40, 5, 50};
  EXPECT_EQ(Run(frames, 2, {0, 1, 1, 1, 1}, 10, 2),
            (std::vector<float>{1, 10, 3, 30, 6, 60, 10, 100, 15, 150}));
  EXPECT_EQ(Run(frames, 2, {0, 1, 0, 1, 1}, 10, 2),
            (std::vector<float>{1, 10, 3, 30, 3, 30, 7, 70, 12, 120}));
  EXPECT_EQ(Run(frames, 2, {0, 0, 0, 0, 0}, 10, 2), frames);
}

TEST_F(HostRecurrent, FramesAreTheFirstInputThatHasElements) {
  Restart(Whole(R"(, "maxFrames": 3)"));
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("nothing", kOnnxFloat, {0, 2})
                     .Input("x", kOnnxFloat, {"t", 2})
                     .Output("y", kOnnxFloat, {"t", 2})
                     .Node("Concat", {"nothing", "x"}, {"y"}, {IntAttribute("axis", 0)})),
            VORN_SUCCESS);
  EXPECT_EQ(NameOfInput(0), "x");
  const std::vector<float> frames = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(Run(frames, 2, {0, 1, 1}, 6, 2), frames);
}

TEST_F(HostRecurrent, FirstFrameBeginsASequenceWhateverItsFlagSays) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  for (int repeat = 0; repeat < 21; ++repeat) {
    ASSERT_EQ(Execute(in, out, {1, 2, 3, 4}, 2, {1, 1}), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 10, 2), (std::vector<float>{1, 2, 4, 6, 0, 0, 0, 0, 0, 0}));
  }
}

TEST_F(HostRecurrent, FramesThatDoNotCountLeaveZerosAndPaddingAlone) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  ASSERT_EQ(Execute(in, out, {1, 2, 3, 4, 5, 6}, 2, {0, 1, 1}), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 10, 2), (std::vector<float>{1, 2, 4, 6, 9, 12, 0, 0, 0, 0}));
  const auto bytes = out.Bytes(0);
  for (size_t row = 0; row < 5; ++row) EXPECT_EQ(bytes[16 * row + 8], 0xee);
}

TEST_F(HostRecurrent, StatesStartFromTheConstantsOfTheirName) {
  Restart(Steps(R"(, "constants": {"h": [100, 200]})"));
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  EXPECT_EQ(Run({1, 2, 3, 4, 5, 6}, 2, {0, 1, 0}, 6, 2),
            (std::vector<float>{101, 202, 104, 206, 105, 206}));
}

TEST_F(HostRecurrent, StepOutputsAreConvertedAsAnyOther) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder(kOnnxInt64)), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_input_data_type(desc, 0), vorn_data_type{VORN_INT64});
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<int64_t>(0, {1, 2, 3, 4}, 2).Put<uint8_t>(1, {0, 1}, 2);
  ASSERT_EQ(SetFrames(in, 2), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 6, 2), (std::vector<float>{1, 2, 4, 6, 0, 0}));
}

TEST_F(HostRecurrent, ContextStandsInFrontOfEveryFrame) {
  // The last two elements of the frame before, then three of its own.
  Restart(R"({"model": {"netType": "recurrent", "sequence": "steps", "maxFrames": 4,
                        "context": 2}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {1, 5})
                     .Output("y", kOnnxFloat, {1, 5})
                     .Node("Relu", {"x"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{4, 3}));
  EXPECT_EQ(Run({1, 2, 3, 4, 5, 6, 7, 8, 9}, 3, {0, 1, 0}, 15, 5),
            (std::vector<float>{0, 0, 1, 2, 3, 2, 3, 4, 5, 6, 0, 0, 7, 8, 9}));
  Unload();
  // Longer than a frame: it reaches back over several.
  Restart(R"({"model": {"netType": "recurrent", "sequence": "steps", "maxFrames": 4,
                        "context": 3, "inputDims": {"x": [1, 4]}}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {"", ""})
                     .Output("y", kOnnxFloat, {"", ""})
                     .Node("Relu", {"x"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(Run({1, 2, 3}, 1, {0, 1, 1}, 12, 4),
            (std::vector<float>{0, 0, 0, 1, 0, 0, 1, 2, 0, 1, 2, 3}));
}

TEST_F(HostRecurrent, SingleNumbersAreFramesToo) {
  Restart(R"({"model": {"netType": "recurrent", "sequence": "steps", "maxFrames": 6,
                        "states": {"h": "y"}}})");
  const auto model = OnnxWriter()
                         .Input("x", kOnnxFloat, {})
                         .Input("h", kOnnxFloat, {})
                         .Output("y", kOnnxFloat, {})
                         .Output("twice", kOnnxFloat, {1})
                         .Constant<int64_t>("shape", kOnnxInt64, {1}, {1})
                         .Node("Add", {"x", "h"}, {"y"})
                         .Node("Add", {"y", "y"}, {"sum"})
                         .Node("Reshape", {"sum", "shape"}, {"twice"});
  ASSERT_EQ(Load(model), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfInput(0), std::vector<int64_t>{6});
  EXPECT_EQ(ShapeOfOutput(0), std::vector<int64_t>{6});
  EXPECT_EQ(Run({1, 2, 3, 4}, 6, {0, 1, 1, 0}, 6, 6), (std::vector<float>{2, 6, 12, 8, 0, 0}));
}

TEST_F(HostRecurrent, FlagsAndOtherInputsOfTheModelAreFed) {
  Restart(R"({"model": {"netType": "recurrent", "sequence": "steps", "maxFrames": 3,
                        "frames": "x", "flags": "cont"}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("scale", kOnnxFloat, {2})
                     .Input("cont", kOnnxFloat, {1, 1})
                     .Input("x", kOnnxFloat, {1, 2})
                     .Output("y", kOnnxFloat, {1, 2})
                     .Node("Mul", {"x", "scale"}, {"scaled"})
                     .Node("Add", {"scaled", "cont"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(NameOfInput(0), "x");
  EXPECT_EQ(NameOfInput(1), "cont");
  EXPECT_EQ(ShapeOfInput(1), std::vector<int64_t>{3});
  EXPECT_EQ(NameOfInput(2), "scale");
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {1, 2, 3, 4}, 2).Put<float>(1, {0, 0.5F}, 3).Put<float>(2, {10, 100}, 2);
  ASSERT_EQ(SetFrames(in, 2), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 6, 2), (std::vector<float>{10, 200, 30.5F, 400.5F, 0, 0}));
}

/// y sums x up along the frames; last is the sum of all.
OnnxWriter CumulativeSum(const std::vector<OnnxDim>& dims, int64_t axis) {
  return OnnxWriter()
      .Input("x", kOnnxFloat, dims)
      .Output("y", kOnnxFloat, dims)
      .Output("all", kOnnxFloat, {1})
      .Constant<int64_t>("axis", kOnnxInt64, {}, {axis})
      .Constant<int64_t>("flat", kOnnxInt64, {1}, {1})
      .Node("CumSum", {"x", "axis"}, {"y"})
      .Node("ReduceSum", {"x"}, {"sum"}, {IntAttribute("keepdims", 0)})
      .Node("Reshape", {"sum", "flat"}, {"all"});
}

TEST_F(HostRecurrent, WholeSequencesGetTheFramesThatCount) {
  const std::vector<float> frames = {1, 10, 2, 20, 3, 30};
  const std::vector<float> sums = {1, 10, 3, 30, 6, 60, 0, 0, 0, 0};
  const std::pair<std::vector<OnnxDim>, std::string> models[] = {
      {{"time", 2}, R"(, "maxFrames": 5)"},                      // just as many
      {{5, 2}, ""},                                              // filled up with zeros
      {{5, 1, 2}, R"(, "maxFrames": 5)"},                        //
      {{1, "time", 2}, R"(, "maxFrames": 5, "timeAxis": 1)"},    // behind the batch
      {{"n", 5, 1, 2}, R"(, "timeAxis": 1, "dims": {"n": 1})"},  //
  };
  for (const auto& [dims, settings] : models) {
    Restart(Whole(settings));
    const int axis = settings.find("timeAxis") == std::string::npos ? 0 : 1;
    ASSERT_EQ(Load(CumulativeSum(dims, axis)), VORN_SUCCESS) << settings;
    EXPECT_EQ(ShapeOfInput(0)[0], 5);
    EXPECT_EQ(ShapeOfOutput(0)[0], 5);
    EXPECT_EQ(ShapeOfOutput(1), std::vector<int64_t>{1});
    Blocks in = Inputs();
    Blocks out = Outputs();
    for (int repeat = 0; repeat < 2; ++repeat) {
      ASSERT_EQ(Execute(in, out, frames, 2, {0, 1, 1}), VORN_SUCCESS) << settings;
      EXPECT_EQ(out.Take<float>(0, 10, 2), sums) << settings;
      EXPECT_EQ(out.Take<float>(1, 1, 1), std::vector<float>{66}) << settings;
    }
    Unload();
  }
}

TEST_F(HostRecurrent, WholeSequencesAreDividedAtAFlagOf0) {
  for (const OnnxDim& first : {OnnxDim("time"), OnnxDim(5)}) {
    Restart(Whole(R"(, "maxFrames": 5)"));
    ASSERT_EQ(Load(CumulativeSum({first, 2}, 0)), VORN_SUCCESS);
    EXPECT_EQ(Run({1, 10, 2, 20, 3, 30, 4, 40}, 2, {0, 1, 0, 1}, 10, 2),
              (std::vector<float>{1, 10, 3, 30, 3, 30, 7, 70, 0, 0}));
    Unload();
  }
}

TEST_F(HostRecurrent, WholeSequencesMayLeaveTheFramesInAnotherPlace) {
  // [time, 2] -> [2, time]: the frames become the elements of a row.
  Restart(Whole(R"(, "maxFrames": 4)"));
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {"time", 2})
                     .Output("y", kOnnxFloat, {2, "time"})
                     .Node("Transpose", {"x"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(ShapeOfOutput(0), (std::vector<int64_t>{2, 4}));
  EXPECT_EQ(Run({1, 10, 2, 20, 3, 30}, 2, {0, 1, 0}, 8, 4),
            (std::vector<float>{1, 2, 3, 0, 10, 20, 30, 0}));
  Unload();
  // [time, 3, 2] -> [3, time, 2]: they lie in the middle.
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {"time", 2, 1})
                     .Output("y", kOnnxFloat, {2, "time", 1})
                     .Node("Einsum", {"x"}, {"y"}, {StringAttribute("equation", "tab->atb")})),
            VORN_SUCCESS);
  EXPECT_EQ(Run({1, 10, 2, 20, 3, 30}, 1, {0, 1, 0}, 8, 1),
            (std::vector<float>{1, 2, 3, 0, 10, 20, 30, 0}));
}

TEST_F(HostRecurrent, ModelsMayBeToldTheCountOfFrames) {
  for (const OnnxDim& first : {OnnxDim("time"), OnnxDim(4)}) {
    for (const OnnxType type : {kOnnxInt64, kOnnxInt32}) {
      Restart(Whole(R"(, "maxFrames": 4, "length": "count")"));
      ASSERT_EQ(Load(OnnxWriter()
                         .Input("count", type, {1})
                         .Input("x", kOnnxFloat, {first, 1})
                         .Output("y", kOnnxFloat, {first, 1})
                         .Node("Cast", {"count"}, {"real"}, {IntAttribute("to", kOnnxFloat)})
                         .Node("Mul", {"x", "real"}, {"y"})),
                VORN_SUCCESS);
      ASSERT_EQ(vorn_mdl_get_num_inputs(desc), 4u);
      EXPECT_EQ(Run({1, 2, 3}, 1, {0, 1, 0}, 4, 1), (std::vector<float>{2, 4, 3, 0}));
      Unload();
    }
  }
}

TEST_F(HostRecurrent, FlagsOfTheModelKeepAWholeSequenceTogether) {
  for (const OnnxDim& time : {OnnxDim("time"), OnnxDim(4)}) {
    Restart(Whole(R"(, "maxFrames": 4, "flags": "cont")"));
    ASSERT_EQ(Load(OnnxWriter()
                       .Input("x", kOnnxFloat, {time, 1})
                       .Input("cont", kOnnxFloat, {time, 1})
                       .Output("y", kOnnxFloat, {time, 1})
                       .Constant<int64_t>("axis", kOnnxInt64, {}, {0})
                       .Node("Mul", {"x", "cont"}, {"kept"})
                       .Node("CumSum", {"kept", "axis"}, {"y"})),
              VORN_SUCCESS);
    Blocks in = Inputs();
    Blocks out = Outputs();
    in.Put<float>(0, {1, 2, 3}, 1).Put<float>(1, {1, 0, 1}, 4);
    ASSERT_EQ(SetFrames(in, 3), VORN_SUCCESS);
    ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 4, 1), (std::vector<float>{1, 1, 4, 0}));
    Unload();
  }
}

// ---- A real LSTM against one by hand ------------------------------------------------------------

constexpr size_t kHidden = 3;
constexpr size_t kFeatures = 2;

std::vector<float> Weights(size_t count, int seed) {
  std::vector<float> weights(count);
  for (size_t i = 0; i < count; ++i) {
    weights[i] =
        static_cast<float>(std::sin(static_cast<double>(seed) + 1.7 * static_cast<double>(i)));
  }
  return weights;
}

float Sigmoid(float x) { return 1 / (1 + std::exp(-x)); }

/// h of every frame by the definition of the operator: gates in the order input, output, forget,
/// cell; starts anew where a flag is 0.
std::vector<float> LstmByHand(const std::vector<float>& x, const std::vector<uint8_t>& flags) {
  const std::vector<float> w = Weights(4 * kHidden * kFeatures, 1);
  const std::vector<float> r = Weights(4 * kHidden * kHidden, 2);
  std::vector<float> h(kHidden);
  std::vector<float> c(kHidden);
  std::vector<float> all;
  for (size_t t = 0; t < flags.size(); ++t) {
    if (flags[t] == 0) {
      h.assign(kHidden, 0);
      c.assign(kHidden, 0);
    }
    std::vector<float> gates(4 * kHidden);
    for (size_t g = 0; g < gates.size(); ++g) {
      for (size_t k = 0; k < kFeatures; ++k)
        gates[g] += w[g * kFeatures + k] * x[t * kFeatures + k];
      for (size_t k = 0; k < kHidden; ++k) gates[g] += r[g * kHidden + k] * h[k];
    }
    for (size_t k = 0; k < kHidden; ++k) {
      c[k] = Sigmoid(gates[2 * kHidden + k]) * c[k] +
             Sigmoid(gates[k]) * std::tanh(gates[3 * kHidden + k]);
      h[k] = Sigmoid(gates[kHidden + k]) * std::tanh(c[k]);
    }
    all.insert(all.end(), h.begin(), h.end());
  }
  return all;
}

OnnxWriter Lstm(const OnnxDim& time) {
  const int hidden = kHidden;
  return OnnxWriter()
      .Input("x", kOnnxFloat, {time, 1, static_cast<int>(kFeatures)})
      .Input("h", kOnnxFloat, {1, 1, hidden})
      .Input("c", kOnnxFloat, {1, 1, hidden})
      .Output("y", kOnnxFloat, {time, 1, 1, hidden})
      .Output("hn", kOnnxFloat, {1, 1, hidden})
      .Output("cn", kOnnxFloat, {1, 1, hidden})
      .Constant<float>("w", kOnnxFloat, {1, 4 * hidden, static_cast<int64_t>(kFeatures)},
                       Weights(4 * kHidden * kFeatures, 1))
      .Constant<float>("r", kOnnxFloat, {1, 4 * hidden, hidden}, Weights(4 * kHidden * kHidden, 2))
      .Node("LSTM", {"x", "w", "r", "", "", "h", "c"}, {"y", "hn", "cn"},
            {IntAttribute("hidden_size", hidden)});
}

TEST_F(HostRecurrent, LstmGivesTheSameWholeStepByStepAndByHand) {
  const std::vector<uint8_t> flags = {0, 1, 1, 1, 0, 1, 1};
  const std::vector<float> frames = Weights(flags.size() * kFeatures, 9);
  std::vector<float> expected = LstmByHand(frames, flags);
  expected.resize(10 * kHidden);
  const std::string states = R"(, "states": {"h": "hn", "c": "cn"}, "maxFrames": 10)";
  const std::pair<OnnxDim, std::string> models[] = {
      {OnnxDim("time"), Whole(states)},
      {OnnxDim(10), Whole(states)},
      {OnnxDim(1), Whole(states + R"(, "sequence": "steps")")}};
  for (const auto& [time, config] : models) {
    Restart(config);
    ASSERT_EQ(Load(Lstm(time)), VORN_SUCCESS) << config;
    const std::vector<float> y = Run(frames, kFeatures, flags, 10 * kHidden, kHidden);
    for (size_t i = 0; i < y.size(); ++i) ASSERT_NEAR(y[i], expected[i], 1e-6) << i << config;
    Unload();
  }
}

// ---- Refusals -----------------------------------------------------------------------------------

TEST_F(HostRecurrent, ExecutionsRefuseCountsOfFramesThatDoNotFit) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(SetFrames(in, 0), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_THAT(LogOf([&] { EXPECT_EQ(SetFrames(in, 6), VORN_ERROR_INVALID_ARGUMENT); }),
              HasSubstr("a sequence of 6 frames; the model takes 1 to 5"));
  EXPECT_EQ(SetFrames(in, 5), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
}

TEST_F(HostRecurrent, TellsWhereFewerFramesAreRegisteredThanCount) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  const auto said = [&](uint64_t framesBytes, uint64_t flagsBytes, uint64_t frames) {
    Blocks in;
    in.Add(80, framesBytes, 16).Add(16, flagsBytes, 16);
    for (uint64_t i = 2; i < 4; ++i) {
      const uint64_t bytes = vorn_mdl_get_input_size_by_index(desc, i);
      in.Add(bytes, bytes, bytes);
    }
    Blocks out = Outputs();
    EXPECT_EQ(SetFrames(in, frames), VORN_SUCCESS);
    return LogOf(
        [&] { EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS); });
  };
  EXPECT_EQ(said(80, 16, 5), "");
  EXPECT_EQ(said(80, 5, 5), "");
  EXPECT_EQ(said(48, 3, 3), "");
  const auto line = [](const std::string& what) {
    return "vorn: vorn_mdl_execute: input " + what + "\n";
  };
  const std::string flags = line(
      "1 'flags' is registered with 3 bytes, which is 3 of 5 frames; the others are whatever lies "
      "behind them");
  EXPECT_EQ(said(80, 3, 5), flags);
  EXPECT_EQ(said(48, 16, 4),
            line("0 'x' is registered with 48 bytes, which is 3 of 4 frames; the others are "
                 "whatever lies behind them"));
  EXPECT_EQ(said(60, 16, 3), line("0 'x' is registered with 60 bytes, which ends within a frame "
                                  "of 16; that frame does not count"));
  EXPECT_EQ(said(64, 3, 5), line("0 'x' is registered with 64 bytes, which is 4 of 5 frames; the "
                                 "others are whatever lies behind them") +
                                flags);
}

TEST_F(HostRecurrent, TellsWhereSequencesBegin) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  setenv("VORN_LOG", "info", 1);
  testing::internal::CaptureStderr();
  Run({1, 2, 3, 4, 5, 6}, 2, {1, 1, 0}, 10, 2);
  unsetenv("VORN_LOG");
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      HasSubstr("vorn_mdl_execute: 3 of at most 5 frames count; sequences begin at 0, 2\n"));
}

TEST_F(HostRecurrent, ExecutionsRefuseBatchesAndBlocksThatDoNotFit) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  Blocks in = Inputs(2);
  Blocks out = Outputs(2);
  ASSERT_EQ(SetFrames(in, 2), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 2), VORN_SUCCESS);
  EXPECT_THAT(LogOf([&] {
                EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset),
                          VORN_ERROR_INVALID_ARGUMENT);
              }),
              "vorn: vorn_mdl_execute: the batch is 2; a recurrent model executes one sequence at "
              "a time\n");
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 1), VORN_SUCCESS);
  Blocks small;
  small.Add(79, 79, 16);
  EXPECT_EQ(LogOf([&] {
              EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, small.dataset),
                        VORN_ERROR_INVALID_ARGUMENT);
            }),
            "vorn: vorn_mdl_execute: output 0 'y' holds 79 bytes; a sequence needs 80\n");
  Blocks few;
  ASSERT_EQ(SetFrames(few, 2), VORN_SUCCESS);
  EXPECT_EQ(
      LogOf([&] {
        EXPECT_EQ(vorn_mdl_execute(modelId, few.dataset, out.dataset), VORN_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, few.dataset), VORN_ERROR_INVALID_ARGUMENT);
      }),
      "vorn: vorn_mdl_execute: the input dataset has 0 buffers; the model has 4 inputs\n"
      "vorn: vorn_mdl_execute: the output dataset has 0 buffers; the model has 1 outputs\n");
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
}

TEST_F(HostRecurrent, ModelsThatDoNotFitTheirSettingsAreRefused) {
  const auto refusal = [&](const std::string& settings, const OnnxWriter& model) {
    Restart(Whole(settings));
    return Refusal(model);
  };
  const std::string steps = R"(, "sequence": "steps")";
  EXPECT_THAT(refusal(steps, Adder()), HasSubstr("'maxFrames'"));
  EXPECT_THAT(refusal(R"(, "states": {"z": "hn"})", Adder()), HasSubstr("names 'z'"));
  EXPECT_THAT(refusal(R"(, "states": {"h": "z"})", Adder()), HasSubstr("no output of that name"));
  EXPECT_THAT(refusal(R"(, "states": {"h": "hn", "x": "hn"})", Adder()),
              HasSubstr("another use already"));
  EXPECT_THAT(refusal(R"(, "frames": "h", "states": {"h": "hn"})", Adder()),
              HasSubstr("another use already"));
  EXPECT_THAT(refusal(R"(, "length": "h")", Adder()), HasSubstr("int32 or int64"));
  EXPECT_THAT(refusal(R"(, "timeAxis": 2)", Adder()), HasSubstr("'timeAxis' is 2"));
  EXPECT_THAT(refusal(R"(, "maxFrames": 9)", Adder()), HasSubstr("'x' takes 1 frames"));
  EXPECT_THAT(refusal(steps + R"(, "maxFrames": 9, "context": 2, "states": {"h": "hn"})", Adder()),
              HasSubstr("'context' of 2 leaves nothing"));
  EXPECT_THAT(refusal(steps + R"(, "maxFrames": 9, "flags": "h")", Adder()),
              HasSubstr("one flag for each of 1 frames"));
  EXPECT_THAT(refusal("", CumulativeSum({"time", 2}, 0)), HasSubstr("'maxFrames' is not given"));
  EXPECT_THAT(refusal(R"(, "maxFrames": 4)", OnnxWriter()
                                                 .Input("x", kOnnxFloat, {"time", 2})
                                                 .Output("y", kOnnxFloat, {"half", 4})
                                                 .Constant<int64_t>("to", kOnnxInt64, {2}, {-1, 1})
                                                 .Node("Reshape", {"x", "to"}, {"y"})),
              HasSubstr("for one less; give the largest that it takes with 'outputDims'"));
  EXPECT_THAT(refusal(steps + R"(, "maxFrames": 9, "states": {"h": "hn"})",
                      OnnxWriter()
                          .Input("x", kOnnxFloat, {1, 2})
                          .Input("h", kOnnxFloat, {1, 2})
                          .Output("y", kOnnxFloat, {1, 2})
                          .Output("hn", kOnnxFloat, {1, 1})
                          .Node("Add", {"x", "h"}, {"y"})
                          .Node("ReduceSum", {"y"}, {"hn"})),
              HasSubstr("from an output of the shape"));
}

TEST_F(HostRecurrent, OutputsThatDoNotFollowTheFramesMayBeGivenTheLargestShape) {
  Restart(Whole(R"(, "maxFrames": 4, "outputDims": {"y": [8, 1]})"));
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {"time", 2})
                     .Output("y", kOnnxFloat, {"twice", 1})
                     .Constant<int64_t>("to", kOnnxInt64, {2}, {-1, 1})
                     .Node("Reshape", {"x", "to"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(Run({1, 2, 3, 4, 5, 6}, 2, {0, 1, 1}, 8, 1),
            (std::vector<float>{1, 2, 3, 4, 5, 6, 0, 0}));
}

/// y = x + h, and hn = h; a frame a run.
OnnxWriter WithState(const std::vector<OnnxDim>& x, const std::vector<OnnxDim>& h) {
  return OnnxWriter()
      .Input("x", kOnnxFloat, x)
      .Input("h", kOnnxFloat, h)
      .Output("y", kOnnxFloat, {1, 1, 2})
      .Output("hn", kOnnxFloat, h)
      .Node("Add", {"x", "h"}, {"y"})
      .Node("Identity", {"h"}, {"hn"});
}

TEST_F(HostRecurrent, OpenSizesThatCanOnlyBeTheBatchCountAsOne) {
  Restart(R"({"model": {"netType": "recurrent", "sequence": "steps", "maxFrames": 4,
                        "states": {"h": "hn"}, "constants": {"h": 5}}})");
  for (const char* name : {"", "batch"}) {
    ASSERT_EQ(Load(WithState({name, 2}, {1, name, 2})), VORN_SUCCESS);
    EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{4, 2}));
    Unload();
  }
}

TEST_F(HostRecurrent, OtherOpenSizesAreRefusedByName) {
  const std::string steps = R"({"model": {"netType": "recurrent", "sequence": "steps",
                                "maxFrames": 4, "frames": "x", "states": {"h": "hn"}}})";
  Restart(steps);
  EXPECT_THAT(Refusal(WithState({1, ""}, {1, 1, 2})),
              HasSubstr("input 'x' leaves sizes open in [1, ?]; give them, also where 1 is meant, "
                        "with 'inputDims' {\"x\": [1, N]}"));
  EXPECT_THAT(Refusal(WithState({1, 2}, {"layers", "batch", 2})),
              HasSubstr("input 'h' leaves sizes open in [layers, batch, 2]; give them, also where "
                        "1 is meant, with 'dims' {\"layers\": N, \"batch\": N} or 'inputDims' "
                        "{\"h\": [N, N, 2]}"));
  const auto whole = [](const std::vector<OnnxDim>& x) {
    return OnnxWriter()
        .Input("x", kOnnxFloat, x)
        .Output("y", kOnnxFloat, x)
        .Node("Relu", {"x"}, {"y"});
  };
  Restart(R"({"model": {"netType": "recurrent", "maxFrames": 4, "timeAxis": 1}})");
  EXPECT_EQ(Load(whole({"", "", 2})), VORN_SUCCESS);
  Unload();
  EXPECT_THAT(Refusal(whole({"b", "t", "w"})),
              HasSubstr("'dims' {\"w\": N} or 'inputDims' {\"x\": [-1, -1, N]}"));
  Restart(R"({"model": {"netType": "recurrent", "maxFrames": 4}})");
  EXPECT_THAT(Refusal(whole({"t", "b", 2})), HasSubstr("'dims' {\"b\": N}"));
}

TEST_F(HostRecurrent, SurvivesAnyByteOfAModelBeingWrong) {
  const std::string whole =
      Adder()
          .Metadata("vorn", R"({"netType":"recurrent","sequence":"steps","maxFrames":3,)"
                            R"("states":{"h":"hn"},"context":1,"constants":{"h":1}})")
          .Image();
  for (size_t at = 0; at < whole.size(); ++at) {
    for (const int flip : {0x01, 0x10, 0xff}) {
      std::string wrong = whole;
      wrong[at] = static_cast<char>(wrong[at] ^ flip);
      if (HostFixture::Load(wrong) == VORN_SUCCESS) Unload();
    }
  }
}

TEST_F(HostRecurrent, WorkBuffersMayLieAnywhere) {
  Restart(Steps());
  ASSERT_EQ(Load(Adder()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  const uint64_t bytes = vorn_mdl_get_input_size_by_index(desc, 3);
  std::vector<uint8_t> foreign(bytes + 1);
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  for (size_t i = 0; i < 3; ++i) vorn_mdl_add_dataset_buffer(dataset, in.buffers[i]);
  vorn_data_buffer* work = vorn_create_data_buffer(foreign.data() + 1, bytes, bytes);
  vorn_mdl_add_dataset_buffer(dataset, work);
  in.Put<float>(0, {1, 2, 3, 4}, 2).Put<uint8_t>(1, {0, 1}, 2);
  ASSERT_EQ(vorn_mdl_set_total_t(modelId, dataset, 2), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_execute(modelId, dataset, out.dataset), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 4, 2), (std::vector<float>{1, 2, 4, 6}));
  vorn_destroy_data_buffer(work);
  vorn_mdl_destroy_dataset(dataset);
}

}  // namespace
