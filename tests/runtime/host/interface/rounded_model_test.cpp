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
  RoundOne betweenBoth;  ///< what the Relu reads of the Conv
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
      const auto value = static_cast<float>(sum);
      results.conv.push_back(precision.conv(value));
      results.relu.push_back(precision.relu(std::max(precision.betweenBoth(value), 0.0F)));
    }
  }
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
          .betweenBoth = round,
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
  precision.betweenBoth = Nothing;
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

TEST_F(HostRoundedModel, RoundsEveryResultWhereNothingIsToBeFused) {
  Precision apart = Int8();
  apart.betweenBoth = apart.conv;
  EXPECT_NE(Reference(apart).relu, Reference(Int8()).relu);
  ExpectLike(apart, "{\"int8\": " + kRanges + ", \"fuse\": false}");
}

// A range of what no device holds need not be known, unless somebody looks at it.
TEST_F(HostRoundedModel, NeedsTheRangeOfWhatIsFusedWhereItIsGiven) {
  const std::string ranges = R"({"relu": {"min": 0, "max": 7.96875},
      "scaled": {"min": 0.5, "max": 7.96875}, "scores": {"min": -31.75, "max": 32}})";
  Configure("{\"round\": {\"int8\": " + ranges + "}}");
  EXPECT_EQ(Load(Network()), VORN_SUCCESS);
  Unload();
  const std::string wanted = "'round' needs the range of 'conv', 1 of 4 results";
  Configure("{\"expose\": [\"conv\"], \"round\": {\"int8\": " + ranges + "}}");
  EXPECT_THAT(Refusal(Network()), HasSubstr(wanted));
  Configure("{\"round\": {\"int8\": " + ranges + ", \"fuse\": false}}");
  EXPECT_THAT(Refusal(Network()), HasSubstr(wanted));
}

/// What compilers make one operation of, and what they do not; [1, 2, 2, 2] all along.
TEST_F(HostRoundedModel, FusesWhatCompilersFuse) {
  const auto network = [] {
    return OnnxWriter()
        .OperatorSet(17)
        .Input("x", kOnnxFloat, {1, 2, 2, 2})
        .Output("y", kOnnxFloat, {1, 2, 2, 2})
        .Constant<float>("w", kOnnxFloat, {2, 2, 1, 1}, {1, 2, 3, 4})
        .Constant<float>("m", kOnnxFloat, {2, 2}, {1, 2, 3, 4})
        .Constant<float>("channels", kOnnxFloat, {2}, {1, 2})
        .Constant<float>("all", kOnnxFloat, {2, 2, 2}, {1, 2, 3, 4, 5, 6, 7, 8})
        .Constant<float>("least", kOnnxFloat, {}, {0.5F});
  };
  const auto conv = [&] { return network().Node("Conv", {"x", "w"}, {"a"}); };
  const auto norm = [](OnnxWriter model, const std::string& from, const std::string& to) {
    return model.Node("BatchNormalization", {from, "channels", "channels", "channels", "channels"},
                      {to});
  };
  struct Case {
    const char* what;
    OnnxWriter model;
    int fused;
  };
  const Case cases[] = {
      {"Relu", conv().Node("Relu", {"a"}, {"y"}), 1},
      {"LeakyRelu", conv().Node("LeakyRelu", {"a"}, {"y"}), 1},
      {"Clip", conv().Node("Clip", {"a", "least"}, {"y"}), 1},
      {"normalised", norm(conv(), "a", "y"), 1},
      {"normalised and cut off", norm(conv(), "a", "b").Node("Relu", {"b"}, {"y"}), 2},
      {"bias", network().Node("MatMul", {"x", "m"}, {"a"}).Node("Add", {"a", "channels"}, {"y"}),
       1},
      {"bias in front",
       network()
           .Node("MatMul", {"x", "m"}, {"a"})
           .Node("Add", {"channels", "a"}, {"b"})
           .Node("Clip", {"b", "least"}, {"y"}),
       2},
      {"more than a bias", conv().Node("Add", {"a", "all"}, {"y"}), 0},
      {"residual", conv().Node("Add", {"a", "x"}, {"b"}).Node("Relu", {"b"}, {"y"}), 1},
      {"other activations", conv().Node("Sigmoid", {"a"}, {"y"}), 0},
      {"HardSwish", conv().Node("HardSwish", {"a"}, {"y"}), 0},
      {"other operations", network().Node("Exp", {"x"}, {"a"}).Node("Relu", {"a"}, {"y"}), 0},
      {"two readers",
       conv().Node("Relu", {"a"}, {"b"}).Node("Neg", {"a"}, {"c"}).Node("Add", {"b", "c"}, {"y"}),
       0},
      {"an output as well", conv().Output("a", kOnnxFloat, {1, 2, 2, 2}).Node("Relu", {"a"}, {"y"}),
       0},
  };
  for (const Case& one : cases) {
    const std::string range = R"({"min": -4, "max": 4})";
    Configure(R"({"round": {"int8": {"a": )" + range + R"(, "b": )" + range + R"(, "c": )" + range +
              R"(, "y": )" + range + "}}}");
    const std::string log = LogOf([&] { EXPECT_EQ(Load(one.model), VORN_SUCCESS) << one.what; });
    const std::string wanted = one.fused == 0 ? "to int8\n"
                                              : "to int8, and " + std::to_string(one.fused) +
                                                    " fused with what reads " +
                                                    (one.fused == 1 ? "it\n" : "them\n");
    EXPECT_THAT(log, testing::EndsWith(wanted)) << one.what;
    Unload();
  }
}

// A bias is 32 bits wide wherever it stands: 0.3 and 100 have no grid of 8 bits in common.
TEST_F(HostRoundedModel, LeavesABiasBehindAMatMulAsItIs) {
  Configure(R"({"round": {"int8": {"y": {"min": -127.5, "max": 127.5}}}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {1, 2})
                     .Output("y", kOnnxFloat, {1, 2})
                     .Constant<float>("m", kOnnxFloat, {2, 2}, {1, 0, 0, 1})
                     .Constant<float>("bias", kOnnxFloat, {2}, {0.3F, 100})
                     .Node("MatMul", {"x", "m"}, {"a"})
                     .Node("Add", {"a", "bias"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_THAT(Output(0, {0.25F, 0}, 2), ElementsAre(1, 100));
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

TEST_F(HostRoundedModel, SaysThatRangesAreOfAnotherModel) {
  const support::TempDir folder;
  const std::string path = (folder.Path() / "ranges.json").string();
  const auto loaded = [&](const std::string& xxh3, const std::string& ranges) {
    support::WriteFile(path, R"({"schema": 1, "kind": "ranges", "tensors": )" + ranges +
                                 R"(, "model": {"path": "other.onnx", "xxh3_128": ")" + xxh3 +
                                 "\"}}");
    Configure(R"({"round": {"int8": ")" + path + "\"}}");
    return LogOf([&] {
      if (Load(Network()) == VORN_SUCCESS) Unload();
    });
  };
  const std::string other = loaded("00", kRanges);
  EXPECT_THAT(other, HasSubstr("ranges.json' was measured over another model, 'other.onnx' with "
                               "the XXH3 00, and this one has "));
  EXPECT_THAT(other, HasSubstr("and 1 fused"));
  const std::string refused = loaded("00", "{}");
  EXPECT_THAT(refused, HasSubstr("measured over another model, 'other.onnx'"));
  EXPECT_THAT(refused, HasSubstr("'round' needs the range of 'relu'"));
  const std::string own = other.substr(other.find("one has ") + 8, 32);
  EXPECT_THAT(loaded(own, kRanges), testing::Not(HasSubstr("another model")));
}

TEST_F(HostRoundedModel, ReadsNoFileBecauseAModelSaysSo) {
  OnnxWriter model = Network();
  EXPECT_THAT(Refusal(model.Metadata("vorn", R"({"round": {"int8": "/etc/passwd"}})")),
              HasSubstr("a model may not have files read"));
}

TEST_F(HostRoundedModel, NamesTheFirstRangeThatIsMissing) {
  Configure(R"({"round": {"int8": {"conv": {"min": 0, "max": 1}}}})");
  EXPECT_THAT(Refusal(Network()),
              HasSubstr("'round' needs the range of 'relu' and of 2 more, 3 of 3 results"));
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

// ---- Recurrent and detection models -------------------------------------------------------------

const Floats kFactors = {1.984375F, -0.703125F};   // of 1/64, of which the first one is 127
const Floats kDecays = {0.9921875F, -0.3984375F};  // of 1/128
const Floats kFrames = {1.2382812F, -0.5117187F, 0.8007812F, 1.9960937F, -1.4179687F,
                        0.0664062F, 1.1054687F,  0.3164062F, 0.7001953F, -1.3333333F};

/// A frame a row; the state is what each frame leaves of those before it.
OnnxWriter Fading() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {1, 2})
      .Input("h", kOnnxFloat, {1, 2})
      .Output("y", kOnnxFloat, {1, 2})
      .Output("hn", kOnnxFloat, {1, 2})
      .Constant<float>("factors", kOnnxFloat, {2}, kFactors)
      .Constant<float>("decays", kOnnxFloat, {2}, kDecays)
      .Node("Mul", {"x", "factors"}, {"product"})
      .Node("Mul", {"h", "decays"}, {"faded"})
      .Node("Add", {"product", "faded"}, {"hn"})
      .Node("Neg", {"hn"}, {"y"});
}

/// How its tensors are rounded; each of the others as the results are.
struct FadingPrecision {
  RoundOne input, start, weight, result;
};

Floats FadingByHand(const FadingPrecision& precision, const std::vector<uint8_t>& flags) {
  Floats h(2);
  Floats all;
  for (size_t t = 0; t < flags.size(); ++t) {
    for (size_t i = 0; i < 2; ++i) {
      if (flags[t] == 0) h[i] = precision.start(0.3F);
      const float x = precision.input(kFrames[2 * t + i]);
      const float product = precision.result(x * precision.weight(kFactors[i]));
      const float faded = precision.result(h[i] * precision.weight(kDecays[i]));
      h[i] = precision.result(product + faded);
      all.push_back(precision.result(-h[i]));
    }
  }
  return all;
}

TEST_F(HostRoundedModel, RoundsEveryFrameAndWhatIsFedBack) {
  // Of [-3.96875, 4] steps of 1/32. A state that has no range begins as it is.
  const std::string range = R"({"min": -3.96875, "max": 4})";
  const std::string ranges = R"({"x": )" + range + R"(, "product": )" + range + R"(, "faded": )" +
                             range + R"(, "hn": )" + range + R"(, "y": )" + range + "}";
  const RoundOne grid = Unsigned(-3.96875, 4);
  const std::pair<std::string, FadingPrecision> cases[] = {
      {R"("float16")", {Float16, Float16, Float16, Float16}},
      {R"("bfloat16")", {Bfloat16, Bfloat16, Bfloat16, Bfloat16}},
      {R"({"int8": )" + ranges + "}", {grid, Nothing, Nothing, grid}},
  };
  const std::vector<uint8_t> flags = {0, 1, 1, 0, 1};
  for (const auto& [round, precision] : cases) {
    const Floats wanted = FadingByHand(precision, flags);
    EXPECT_NE(wanted, FadingByHand({Nothing, Nothing, Nothing, Nothing}, flags)) << round;
    for (const std::string expose : {"", R"(, "expose": "all")"}) {
      Configure(R"({"netType": "recurrent", "sequence": "steps", "maxFrames": 6,
                    "states": {"h": "hn"}, "constants": {"h": 0.3}, "round": )" +
                round + expose + "}");
      ASSERT_EQ(Load(Fading()), VORN_SUCCESS) << round;
      Blocks in = Inputs();
      Blocks out = Outputs();
      in.Put(0, kFrames, 2).Put(1, flags, 6);
      ASSERT_EQ(vorn_mdl_set_total_t(modelId, in.dataset, flags.size()), VORN_SUCCESS);
      ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
      EXPECT_EQ(out.Take<float>(0, wanted.size(), 2), wanted) << round << expose;
      Unload();
    }
  }
}

float Sigmoid(float x) { return 1 / (1 + std::exp(-x)); }

// One number in, one out: gates of an LSTM in the order input, output, forget, cell.
const Floats kGates = {0.8F, -0.55F, 1.3F, 0.95F};
const Floats kRecurrence = {-0.35F, 0.45F, 0.65F, -1.1F};

/// `state` rounds what goes from one frame to the next, `result` what a frame gives.
Floats LstmByHand(const RoundOne& input, const RoundOne& state, const RoundOne& result,
                  const std::function<Floats(Floats)>& weights, const Floats& x,
                  const std::vector<uint8_t>& flags) {
  const Floats w = weights(kGates);
  const Floats r = weights(kRecurrence);
  float h = 0;
  float c = 0;
  Floats all;
  for (size_t t = 0; t < flags.size(); ++t) {
    if (flags[t] == 0) h = c = 0;
    const auto gate = [&](size_t i) { return w[i] * input(x[t]) + r[i] * h; };
    const float cell = Sigmoid(gate(2)) * c + Sigmoid(gate(0)) * std::tanh(gate(3));
    const float shown = Sigmoid(gate(1)) * std::tanh(cell);
    c = state(cell);
    h = state(shown);
    all.push_back(result(shown));
  }
  return all;
}

OnnxWriter Lstm(const OnnxDim& time) {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {time, 1, 1})
      .Input("h", kOnnxFloat, {1, 1, 1})
      .Input("c", kOnnxFloat, {1, 1, 1})
      .Output("y", kOnnxFloat, {time, 1, 1, 1})
      .Output("hn", kOnnxFloat, {1, 1, 1})
      .Output("cn", kOnnxFloat, {1, 1, 1})
      .Constant<float>("w", kOnnxFloat, {1, 4, 1}, kGates)
      .Constant<float>("r", kOnnxFloat, {1, 4, 1}, kRecurrence)
      .Node("LSTM", {"x", "w", "r", "", "", "h", "c"}, {"y", "hn", "cn"},
            {IntAttribute("hidden_size", 1)});
}

TEST_F(HostRoundedModel, RoundsWhatAnLstmGivesAndNotWhatItKeeps) {
  const std::string range = R"({"min": -0.9921875, "max": 1})";  // steps of 1/128
  const std::string ranges = R"({"x": {"min": -3.96875, "max": 4}, "y": )" + range + R"(, "hn": )" +
                             range + R"(, "cn": )" + range + "}";
  const auto each = [](const RoundOne& round) {
    return [round](Floats values) { return Each(std::move(values), round); };
  };
  const auto toSigned = [](Floats values) {
    RoundSigned(values, 0, values.size(), 1);
    return values;
  };
  struct Case {
    std::string round;
    RoundOne input, result;
    std::function<Floats(Floats)> weights;
    float step;
  };
  const Case cases[] = {
      {R"("float16")", Float16, Float16, each(Float16), 0x1p-11F},
      {R"("bfloat16")", Bfloat16, Bfloat16, each(Bfloat16), 0x1p-8F},
      {R"({"int8": )" + ranges + "}", Unsigned(-3.96875, 4), Unsigned(-0.9921875, 1), toSigned,
       0x1p-7F},
  };
  const std::vector<uint8_t> flags = {0, 1, 1, 1, 0, 1};
  const Floats x = {1.2F, -0.7F, 0.33F, 1.9F, -1.1F, 0.6F};
  for (const auto& [round, input, result, weights, step] : cases) {
    for (const bool isWhole : {true, false}) {
      Configure(R"({"netType": "recurrent", "maxFrames": 6, "states": {"h": "hn", "c": "cn"},
                    "sequence": ")" +
                std::string(isWhole ? "whole" : "steps") + R"(", "round": )" + round + "}");
      ASSERT_EQ(Load(Lstm(isWhole ? OnnxDim("time") : OnnxDim(1))), VORN_SUCCESS) << round;
      Blocks in = Inputs();
      Blocks out = Outputs();
      in.Put(0, x, 1).Put(1, flags, 6);
      ASSERT_EQ(vorn_mdl_set_total_t(modelId, in.dataset, flags.size()), VORN_SUCCESS);
      ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
      const Floats y = out.Take<float>(0, flags.size(), 1);
      const RoundOne state = isWhole ? RoundOne(Nothing) : result;
      const Floats wanted = LstmByHand(input, state, result, weights, x, flags);
      for (size_t t = 0; t < y.size(); ++t) {
        EXPECT_EQ(result(y[t]), y[t]) << round << " frame " << t;
        // Of a sum that lies between two steps either may come out.
        EXPECT_NEAR(y[t], wanted[t], static_cast<double>(step)) << round << " frame " << t;
      }
      Unload();
    }
  }
}

TEST_F(HostRoundedModel, RoundsBoxesAndNoThresholds) {
  const auto kept = [&](const std::string& round, float score) {
    Configure(R"({"netType": "detection", "rpn": "thresholds", "outputDims": {"kept": [3, 3]})" +
              round + "}");
    OnnxWriter model;
    model.Input("thresholds", kOnnxFloat, {1, 4})
        .Input("boxes", kOnnxFloat, {1, 3, 4})
        .Input("scores", kOnnxFloat, {1, 1, 3})
        .Output("kept", kOnnxInt64, {"count", 3})
        .Constant<int64_t>("flat", kOnnxInt64, {1}, {4})
        .Constant<int64_t>("zero", kOnnxInt64, {1}, {0})
        .Constant<int64_t>("one", kOnnxInt64, {1}, {1})
        .Constant<int64_t>("two", kOnnxInt64, {1}, {2})
        .Constant<int64_t>("most", kOnnxInt64, {1}, {10})
        .Node("Reshape", {"thresholds", "flat"}, {"row"})
        .Node("Slice", {"row", "zero", "one"}, {"score"})
        .Node("Slice", {"row", "one", "two"}, {"overlap"})
        .Node("Abs", {"scores"}, {"sizes"})
        .Node("NonMaxSuppression", {"boxes", "sizes", "most", "overlap", "score"}, {"kept"});
    EXPECT_EQ(Load(model), VORN_SUCCESS) << round;
    Blocks in = Inputs();
    Blocks out = Outputs();
    in.Put<float>(0, {0, 0, 2, 2, 4, 4, 6, 6, 10, 10, 12, 12}, 4);
    in.Put<float>(1, {0.9F, 0.8F, 0.3F}, 3);
    in.Put<float>(2, {score, 0.5F, 0, 0}, 4);
    EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    const Floats rows = out.Take<float>(0, 9, 3);
    Unload();
    return Floats{rows[2], rows[5], rows[8]};
  };
  // A score has to be larger than the threshold. 0.3 of float16 is, as long as the threshold is not
  // rounded, too.
  EXPECT_THAT(kept("", 0.3F), ElementsAre(0, 1, 0));
  EXPECT_THAT(kept(R"(, "round": "float16")", 0.3F), ElementsAre(0, 1, 2));
  EXPECT_THAT(kept(R"(, "round": "bfloat16")", 0.3F), ElementsAre(0, 1, 2));
  EXPECT_THAT(kept(R"(, "round": "float16", "expose": "all")", 0.3F), ElementsAre(0, 1, 2));
  // Of steps of 1/128 it is 38.
  const std::string int8 = R"(, "round": {"int8": {"boxes": {"min": 0, "max": 15.9375},
      "scores": {"min": 0, "max": 1.9921875}, "sizes": {"min": 0, "max": 1.9921875}}})";
  EXPECT_THAT(kept("", 0.297F), ElementsAre(0, 1, 2));
  EXPECT_THAT(kept(int8, 0.297F), ElementsAre(0, 1, 0));
  EXPECT_THAT(kept(int8, 0.296F), ElementsAre(0, 1, 2));
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
