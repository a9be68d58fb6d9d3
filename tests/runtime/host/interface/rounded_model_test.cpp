// Models in reduced precision, node by node against a slow reference that is written here. Numbers
// are chosen so that sums of products are exact in float32, in whatever order they are added up:
// what differs then is rounding, and nothing else.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>

#include "runtime/host/host_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Floats = std::vector<float>;
using RoundOne = std::function<float(float)>;

const Floats kX = {1.23828125F,  -0.51171875F, 0.80078125F, 1.99609375F,
                   -1.41796875F, 0.06640625F,  1.10546875F, 0.31640625F};  // [1, 2, 2, 2]
const Floats kWeights = {0.73675537F, -1.984375F,  0.30041504F,
                         0.55810547F, 1.11962891F, 3.96875F};  // [3, 2, 1, 1]
const Floats kBias = {0.125F, -0.25F, 0.0078125F};
const Floats kFactor = {1.2109375F};
const Floats kMatrix = {1,     -0.5F,  0.75F, 0.25F,     -1.25F, 1.75F, 0.5F,   -0.25F,
                        1.5F,  0.75F,  -1,    1.984375F, 0.5F,   1.25F, -0.75F, 1,
                        0.25F, -1.75F, 0.5F,  1,         -0.25F, 0.75F, 1.5F,   3.96875F};

/// conv -> relu -> scaled -> flat -> scores; the optimiser would make one node of the first two.
OnnxWriter Network(uint64_t operatorSet = 17) {
  return OnnxWriter()
      .OperatorSet(operatorSet)
      .Input("x", kOnnxFloat, {1, 2, 2, 2})
      .Output("scores", kOnnxFloat, {1, 2})
      .Constant<float>("weights", kOnnxFloat, {3, 2, 1, 1}, kWeights)
      .Constant<float>("bias", kOnnxFloat, {3}, kBias)
      .Constant<float>("factor", kOnnxFloat, {1}, kFactor)
      .Constant<float>("matrix", kOnnxFloat, {12, 2}, kMatrix)
      .Constant<int64_t>("shape", kOnnxInt64, {2}, {1, 12})
      .Node("Conv", {"x", "weights", "bias"}, {"conv"})
      .Node("Relu", {"conv"}, {"relu"})
      .Node("Mul", {"relu", "factor"}, {"scaled"})
      .Node("Reshape", {"scaled", "shape"}, {"flat"})
      .Node("MatMul", {"flat", "matrix"}, {"scores"});
}

/// How each tensor of the network is rounded.
struct Precision {
  RoundOne input, conv, relu, scaled, scores;
  std::function<Floats(Floats)> weights, matrix;
  RoundOne bias, factor;
};

struct Results {
  Floats conv, relu, scaled, scores;
};

Floats Each(Floats values, const RoundOne& round) {
  std::ranges::transform(values, values.begin(), round);
  return values;
}

Results Reference(const Precision& precision) {
  const Floats x = Each(kX, precision.input);
  const Floats weights = precision.weights(kWeights);
  const Floats bias = Each(kBias, precision.bias);
  const Floats factor = Each(kFactor, precision.factor);
  const Floats matrix = precision.matrix(kMatrix);
  Results results;
  for (size_t out = 0; out < 3; ++out) {
    for (size_t at = 0; at < 4; ++at) {
      double sum = bias[out];
      for (size_t in = 0; in < 2; ++in) sum += double{x[in * 4 + at]} * weights[out * 2 + in];
      results.conv.push_back(precision.conv(static_cast<float>(sum)));
    }
  }
  for (const float value : results.conv)
    results.relu.push_back(precision.relu(std::max(value, 0.0F)));
  for (const float value : results.relu)
    results.scaled.push_back(precision.scaled(value * factor[0]));
  for (size_t column = 0; column < 2; ++column) {
    double sum = 0;
    for (size_t row = 0; row < 12; ++row)
      sum += double{results.scaled[row]} * matrix[row * 2 + column];
    results.scores.push_back(precision.scores(static_cast<float>(sum)));
  }
  return results;
}

Precision Same(const RoundOne& round) {
  const auto all = [round](Floats values) { return Each(std::move(values), round); };
  return {.input = round,
          .conv = round,
          .relu = round,
          .scaled = round,
          .scores = round,
          .weights = all,
          .matrix = all,
          .bias = round,
          .factor = round};
}

float Nothing(float value) { return value; }

/// To a multiple of what the last of so many places of the fraction is worth.
float WithPlaces(float value, int places, int leastExponent, double largest) {
  const int exponent = value == 0 ? leastExponent : std::max(std::ilogb(value), leastExponent);
  const double unit = std::ldexp(1.0, exponent - places);
  const double rounded = std::nearbyint(double{value} / unit) * unit;
  if (std::fabs(rounded) > largest) return std::copysign(HUGE_VALF, value);
  return static_cast<float>(rounded);
}

float Float16(float value) { return WithPlaces(value, 10, -14, 65504); }
float Bfloat16(float value) { return WithPlaces(value, 7, -126, 0x1.fep127); }

/// To unsigned numbers of 8 bits for a range that holds zero.
RoundOne Unsigned(double least, double most) {
  const double scale = (most - least) / 255;
  const double zero = std::nearbyint(-least / scale);
  return [=](float value) {
    const double step = std::fmin(std::fmax(std::nearbyint(value / scale) + zero, 0), 255);
    return static_cast<float>((step - zero) * scale);
  };
}

/// To signed numbers of 8 bits, for every `stride`-th value from `first` on.
void RoundSigned(Floats& values, size_t first, size_t count, size_t stride) {
  double most = 0;
  for (size_t i = 0; i < count; ++i) most = std::fmax(most, std::fabs(values[first + i * stride]));
  for (size_t i = 0; i < count; ++i) {
    float& value = values[first + i * stride];
    value = static_cast<float>(std::nearbyint(value / (most / 127)) * (most / 127));
  }
}

// All of 255 / 32, so that scales are powers of two and products exact.
const std::string kRanges = R"({"x": {"min": -3.96875, "max": 4},
  "conv": {"min": -2.96875, "max": 5}, "relu": {"min": 0, "max": 7.96875},
  "scaled": {"min": 0.5, "max": 7.96875}, "scores": {"min": -31.75, "max": 32}})";

Precision Int8() {
  Precision precision = Same(Nothing);
  precision.input = Unsigned(-3.96875, 4);
  precision.conv = Unsigned(-2.96875, 5);
  precision.relu = precision.scaled = Unsigned(0, 7.96875);
  precision.scores = Unsigned(-31.75, 32);
  precision.weights = [](Floats values) {
    for (size_t out = 0; out < 3; ++out) RoundSigned(values, out * 2, 2, 1);
    return values;
  };
  precision.matrix = [](Floats values) {
    for (size_t column = 0; column < 2; ++column) RoundSigned(values, column, 12, 2);
    return values;
  };
  precision.factor = [](float value) { return static_cast<float>(127 * (double{value} / 127)); };
  return precision;
}

class HostRoundedModel : public HostFixture {
 protected:
  void Configure(const std::string& model, const std::string& level = "all") {
    Restart(R"({"rowAlignment": 1, "graphOptimization": ")" + level + R"(", "model": )" + model +
            "}");
  }

  Floats Output(uint64_t index, const Floats& x, size_t count) {
    Blocks in = Inputs();
    Blocks out = Outputs();
    in.Put(0, x, x.size());
    EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    return out.Take<float>(index, count, count);
  }

  void ExpectLike(const Precision& precision, const std::string& round, uint64_t operatorSet = 17) {
    const Results wanted = Reference(precision);
    EXPECT_NE(wanted.scores, Reference(Same(Nothing)).scores) << "rounding changes nothing";
    for (const std::string level : {"none", "basic", "extended", "all"}) {
      Configure("{\"round\": " + round + "}", level);
      ASSERT_EQ(Load(Network(operatorSet)), VORN_SUCCESS);
      EXPECT_EQ(Output(0, kX, 2), wanted.scores) << level;
      Unload();
      Configure("{\"expose\": \"all\", \"round\": " + round + "}", level);
      ASSERT_EQ(Load(Network(operatorSet)), VORN_SUCCESS);
      EXPECT_EQ(Output(0, kX, 2), wanted.scores) << level;
      EXPECT_EQ(Output(1, kX, 12), wanted.conv) << level;
      EXPECT_EQ(Output(2, kX, 12), wanted.relu) << level;
      EXPECT_EQ(Output(3, kX, 12), wanted.scaled) << level;
      EXPECT_EQ(Output(4, kX, 12), wanted.scaled) << level;
      Unload();
    }
  }
};

TEST_F(HostRoundedModel, IsTheReferenceWithoutRounding) {
  Configure(R"({"expose": "all"})", "none");
  ASSERT_EQ(Load(Network()), VORN_SUCCESS);
  const Results wanted = Reference(Same(Nothing));
  EXPECT_EQ(Output(1, kX, 12), wanted.conv);
}

TEST_F(HostRoundedModel, HoldsNumbersOfFloat16) { ExpectLike(Same(Float16), R"("float16")"); }

TEST_F(HostRoundedModel, HoldsNumbersOfBfloat16) { ExpectLike(Same(Bfloat16), R"("bfloat16")"); }

TEST_F(HostRoundedModel, HoldsNumbersOfEightBits) {
  ExpectLike(Int8(), "{\"int8\": " + kRanges + "}");
}

TEST_F(HostRoundedModel, NeedsNoOperatorsOfAVersion) {
  // Of which bfloat16 is no type that a Cast takes.
  ExpectLike(Same(Bfloat16), R"("bfloat16")", 8);
}

TEST_F(HostRoundedModel, SaysWhatItDid) {
  Configure(R"({"until": "scaled", "round": "float16", "expose": "relu"})");
  const std::string log = LogOf([&] { EXPECT_EQ(Load(Network()), VORN_SUCCESS); });
  EXPECT_EQ(log,
            "vorn: vorn_mdl_load_from_mem: cut at 'scaled': 3 of 5 nodes are left; rounded 3 "
            "weights, 1 input and 3 results to float16; exposed 1 tensor\n");
}

TEST_F(HostRoundedModel, TakesRangesFromAFile) {
  const support::TempDir folder;
  const std::string path = (folder.Path() / "ranges.json").string();
  support::WriteFile(path, R"({"schema": 1, "kind": "ranges", "tensors": )" + kRanges + "}");
  ExpectLike(Int8(), R"({"int8": ")" + path + "\"}");
}

TEST_F(HostRoundedModel, ReadsNoFileBecauseAModelSaysSo) {
  OnnxWriter model = Network();
  EXPECT_THAT(Refusal(model.Metadata("vorn", R"({"round": {"int8": "/etc/passwd"}})")),
              HasSubstr("a model may not have files read"));
}

TEST_F(HostRoundedModel, NamesTheFirstRangeThatIsMissing) {
  Configure(R"({"round": {"int8": {"conv": {"min": 0, "max": 1}}}})");
  EXPECT_THAT(Refusal(Network()),
              HasSubstr("'round' needs the range of 'relu' and of 2 more, 3 of 4 results"));
}

TEST_F(HostRoundedModel, GoesBeyondFloat16ToInfinity) {
  Configure(R"({"round": "float16"})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {2})
                     .Output("y", kOnnxFloat, {2})
                     .Node("Mul", {"x", "x"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_THAT(Output(0, {256, -255.875F}, 2),
              ElementsAre(std::numeric_limits<float>::infinity(), 65472));
}

TEST_F(HostRoundedModel, LeavesFactorsOfAShapeAlone) {
  // 17 / 30 has no place in 8 bits of fraction, and 16 or 18 columns would be a fault.
  for (const char* round :
       {R"("float16")", R"("bfloat16")", R"({"int8": {"y": {"min": -1, "max": 1}}})"}) {
    Configure(std::string("{\"round\": ") + round + "}");
    ASSERT_EQ(Load(OnnxWriter()
                       .Input("x", kOnnxFloat, {1, 1, 1, 301})
                       .Output("y", kOnnxFloat, {1, 1, 1, 170})
                       .Constant<float>("scales", kOnnxFloat, {4}, {1, 1, 1, 170.5F / 301})
                       .Node("Resize", {"x", "", "scales"}, {"y"})),
              VORN_SUCCESS);
    EXPECT_EQ(ShapeOfOutput(0), (std::vector<int64_t>{1, 1, 1, 170}));
    Unload();
  }
}

TEST_F(HostRoundedModel, LeavesOtherTypesAlone) {
  Configure(R"({"round": "bfloat16"})");
  const std::string log = LogOf([&] {
    ASSERT_EQ(Load(OnnxWriter()
                       .Input("x", kOnnxInt32, {2})
                       .Output("y", kOnnxFloat, {2})
                       .Constant<int32_t>("w", kOnnxInt32, {2}, {1000, 1001})
                       .Node("Add", {"x", "w"}, {"sum"})
                       .Node("Cast", {"sum"}, {"y"}, {IntAttribute("to", 1)})),
              VORN_SUCCESS);
  });
  EXPECT_THAT(log, HasSubstr("rounded 0 weights, 0 inputs and 1 result to bfloat16"));
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<int32_t>(0, {0, 0}, 2);
  ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
  EXPECT_THAT(out.Take<float>(0, 2, 2), ElementsAre(1000, 1000));
}

TEST_F(HostRoundedModel, RoundsWhatABodyGivesAndWhatItReads) {
  Configure(R"({"round": "bfloat16"})");
  const std::string then =
      OnnxWriter().Output("t", kOnnxFloat, {1}).Node("Mul", {"a", "a"}, {"t"}).Graph();
  const std::string other =
      OnnxWriter().Output("e", kOnnxFloat, {1}).Node("Neg", {"a"}, {"e"}).Graph();
  ASSERT_EQ(
      Load(OnnxWriter()
               .Input("x", kOnnxFloat, {1})
               .Output("y", kOnnxFloat, {1})
               .Constant<uint8_t>("yes", kOnnxBool, {}, {1})
               .Node("Abs", {"x"}, {"a"})
               .Node("If", {"yes"}, {"y"},
                     {GraphAttribute("then_branch", then), GraphAttribute("else_branch", other)})),
      VORN_SUCCESS);
  EXPECT_THAT(Output(0, {-1.00390625F * 1.5F}, 1),
              ElementsAre(Bfloat16(Bfloat16(1.505859375F) * Bfloat16(1.505859375F))));
}

TEST_F(HostRoundedModel, RoundsManyValuesOnSeveralThreads) {
  Restart(R"({"rowAlignment": 1, "threads": 3, "model": {"round": "bfloat16"}})");
  constexpr int kCount = 100000;
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {kCount})
                     .Output("y", kOnnxFloat, {kCount})
                     .Node("Neg", {"x"}, {"y"})),
            VORN_SUCCESS);
  Floats x;
  for (int i = 0; i < kCount; ++i) x.push_back(static_cast<float>(i) * 0.37F);
  const Floats y = Output(0, x, kCount);
  for (size_t i = 0; i < kCount; ++i) ASSERT_EQ(y[i], -Bfloat16(x[i])) << i;
}

TEST_F(HostRoundedModel, RoundsScalarsAndConstantsThatNodesMake) {
  Configure(R"({"round": {"int8": {"y": {"min": 0, "max": 510}}}})");
  // 127 and 63.4 have a grid of their own, of whole numbers; the sum has one of even numbers.
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {2})
                     .Output("y", kOnnxFloat, {2})
                     .Constant<double>("w", kOnnxDouble, {2}, {127, 63.4})
                     .Node("Cast", {"w"}, {"cast"}, {IntAttribute("to", 1)})
                     .Node("Add", {"x", "cast"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_THAT(Output(0, {1, 1}, 2), ElementsAre(128, 64));
  EXPECT_THAT(Output(0, {0, 0.5F}, 2), ElementsAre(128, 64));
}

TEST_F(HostRoundedModel, RoundsBatches) {
  Configure(R"({"round": "bfloat16"})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {"n", 2})
                     .Output("y", kOnnxFloat, {"n", 2})
                     .Node("Neg", {"x"}, {"y"})),
            VORN_SUCCESS);
  Blocks in = Inputs(2);
  Blocks out = Outputs(2);
  in.Put<float>(0, {1, 1.005F, 2, 2.01F}, 2);
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 2), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
  EXPECT_THAT(out.Take<float>(0, 4, 2), ElementsAre(-1, Bfloat16(-1.005F), -2, Bfloat16(-2.01F)));
}

}  // namespace
