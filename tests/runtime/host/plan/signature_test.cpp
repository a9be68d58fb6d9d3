#include "host/plan/signature.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

DeclaredDim Open(const std::string& symbol) {
  return {.size = DeclaredDim::kOpen, .symbol = symbol};
}
DeclaredDim Fixed(int64_t size) { return {.size = size, .symbol = ""}; }

DeclaredTensor Tensor(const std::string& name, const std::vector<DeclaredDim>& dims,
                      vorn_data_type type = VORN_FLOAT32) {
  return {.name = name, .type = type, .shape = dims, .isShapeKnown = true};
}

DeclaredTensor OfNoKnownShape(const std::string& name) {
  return {.name = name, .type = VORN_FLOAT32, .shape = {}, .isShapeKnown = false};
}

/// Declares its tensors and does nothing else.
class DeclaringSession : public Session {
 public:
  DeclaringSession(std::vector<DeclaredTensor> inputs, std::vector<DeclaredTensor> outputs)
      : inputs_(std::move(inputs)), outputs_(std::move(outputs)) {}
  const std::vector<DeclaredTensor>& inputs() const override { return inputs_; }
  const std::vector<DeclaredTensor>& outputs() const override { return outputs_; }
  void BindInput(size_t, void*, const Shape&) override {}
  void BindOutput(size_t, void*, const Shape&) override {}
  void BindConstant(size_t, void*, const Shape&) override {}
  void BindOutputOfAnyShape(size_t) override {}
  TensorView Result(size_t) override { return {}; }
  void Run() override {}
  std::vector<Shape> Try(std::span<const Shape>) override { return {}; }
  void Terminate() noexcept override {}
  void Resume() override {}

 private:
  std::vector<DeclaredTensor> inputs_;
  std::vector<DeclaredTensor> outputs_;
};

std::vector<std::string> NamesOf(const std::vector<Port>& ports) {
  std::vector<std::string> names;
  for (const Port& port : ports) names.push_back(port.tensor.name);
  return names;
}

using Names = std::vector<std::string>;

class SignatureTest : public testing::Test {
 protected:
  Signature Sort(const std::string& settings) {
    return SignatureOf(DeclaringSession(inputs, outputs), ParseModelSettings(settings));
  }

  /// Why the settings are refused for the model.
  std::string Refusal(const std::string& settings) {
    return ReasonOf(VORN_ERROR_MODEL, [&] { Sort(settings); });
  }

  std::string LogOf(const std::string& settings) {
    setenv("VORN_LOG", "error", 1);
    testing::internal::CaptureStderr();
    Sort(settings);
    unsetenv("VORN_LOG");
    return testing::internal::GetCapturedStderr();
  }

  std::vector<DeclaredTensor> inputs = {Tensor("x", {Fixed(1), Fixed(4)}),
                                        Tensor("z", {Fixed(2), Fixed(3)})};
  std::vector<DeclaredTensor> outputs = {Tensor("y", {Fixed(1), Fixed(4)})};
};

TEST_F(SignatureTest, ShowsWhatHasNoOtherUseInTheModelsOrder) {
  const Signature signature = Sort("{}");
  EXPECT_EQ(NamesOf(signature.inputs), (Names{"x", "z"}));
  EXPECT_EQ(signature.inputs[1].index, 1u);
  EXPECT_EQ(NamesOf(signature.outputs), Names{"y"});
  EXPECT_EQ(signature.rpnCount, 0u);
  EXPECT_FALSE(signature.frames || signature.flags || signature.length);
  EXPECT_EQ(LogOf("{}"), "");
}

TEST_F(SignatureTest, ProvidesConstants) {
  inputs.push_back(Tensor("list", {Open("n")}));
  inputs.push_back(Tensor("batch", {Open("n"), Fixed(2)}));
  const Signature signature =
      Sort(R"({"constants": {"z": 7, "list": [1, 2, 3], "batch": [4, 5]}})");
  EXPECT_EQ(NamesOf(signature.inputs), Names{"x"});
  ASSERT_EQ(signature.constants.size(), 3u);
  const auto expect = [&](size_t i, const std::string& name, size_t index, const Shape& shape,
                          bool hadOpenDims, const std::vector<float>& values) {
    const ProvidedInput& constant = signature.constants[i];
    EXPECT_EQ(constant.name, name);
    EXPECT_EQ(constant.index, index);
    EXPECT_EQ(constant.type, vorn_data_type{VORN_FLOAT32});
    EXPECT_EQ(constant.shape, shape);
    EXPECT_EQ(constant.hadOpenDims, hadOpenDims);
    ASSERT_EQ(constant.bytes.size(), values.size() * sizeof(float));
    EXPECT_EQ(std::memcmp(constant.bytes.data(), values.data(), constant.bytes.size()), 0);
  };
  expect(0, "batch", 3, {1, 2}, true, {4, 5});
  expect(1, "list", 2, {3}, true, {1, 2, 3});
  expect(2, "z", 1, {2, 3}, false, {7, 7, 7, 7, 7, 7});
}

TEST_F(SignatureTest, RefusesNamesThatTheModelDoesNotHave) {
  EXPECT_EQ(Refusal(R"({"inputDims": {"w": [1]}})"),
            "'inputDims' names 'w', but the model has no input of that name; it has 'x', 'z'");
  EXPECT_EQ(Refusal(R"({"outputDims": {"w": [1]}})"),
            "'outputDims' names 'w', but the model has no output of that name; it has 'y'");
  EXPECT_EQ(Refusal(R"({"constants": {"w": 1}})"),
            "'constants' names 'w', but the model has no input of that name; it has 'x', 'z'");
}

TEST_F(SignatureTest, RefusesASecondUse) {
  EXPECT_EQ(Refusal(R"({"netType": "detection", "constants": {"z": 1}, "rpn": "z"})"),
            "'rpn' names the input 'z', which has another use already");
  inputs[1] = Tensor("z", {Fixed(1), Fixed(4)});
  outputs.push_back(Tensor("end", {Fixed(1), Fixed(4)}));
  EXPECT_EQ(Refusal(R"({"netType": "recurrent", "states": {"x": "end", "z": "end"}})"),
            "'states' names the output 'end', which has another use already");
}

TEST_F(SignatureTest, PutsTheGivenDimensionsIn) {
  inputs = {Tensor("x", {Open("a"), Fixed(3), Open("b")}), OfNoKnownShape("z")};
  const Signature signature = Sort(R"({"inputDims": {"x": [-1, 3, 5], "z": [2, 4]}})");
  EXPECT_EQ(ShapeText(signature.inputs[0].tensor.shape), "[a, 3, 5]");
  EXPECT_EQ(ShapeText(signature.inputs[1].tensor.shape), "[2, 4]");
  EXPECT_TRUE(signature.inputs[1].tensor.isShapeKnown);
  const std::string front = "'inputDims' gives 'x' the shape ";
  const std::string end = ", but the model declares [a, 3, b]";
  EXPECT_EQ(Refusal(R"({"inputDims": {"x": [1, 4, 5]}})"), front + "[1, 4, 5]" + end);
  EXPECT_EQ(Refusal(R"({"inputDims": {"x": [4, 1, 3]}})"), front + "[4, 1, 3]" + end);
  EXPECT_EQ(Refusal(R"({"inputDims": {"x": [1, 3]}})"), front + "[1, 3]" + end);
}

TEST_F(SignatureTest, WantsAShapeOfEveryInput) {
  inputs[1] = OfNoKnownShape("z");
  EXPECT_EQ(Refusal("{}"),
            "input 'z' says nothing of its shape; declare it in the model or with 'inputDims'");
}

TEST_F(SignatureTest, WantsSizesBehindTheBatch) {
  inputs[1] = Tensor("z", {Open("batch"), Fixed(3), Open("height"), Open("")});
  EXPECT_EQ(Refusal("{}"),
            "input 'z' leaves sizes open in [batch, 3, height, ?]; give them, also where 1 is "
            "meant, with 'inputDims' {\"z\": [-1, 3, N, N]}");
  inputs[1] = Tensor("z", {Open("batch"), Open("")});
  EXPECT_EQ(Refusal("{}"),
            "input 'z' leaves sizes open in [batch, ?]; give them, also where 1 is meant, with "
            "'inputDims' {\"z\": [-1, N]}");
  inputs[1] = Tensor("z", {Open("batch"), Fixed(3)});
  EXPECT_EQ(Refusal("{}"), "");
  inputs[1] = Tensor("z", {Open("batch"), Open("n")});
  EXPECT_EQ(Refusal(R"({"constants": {"z": 1}})"),
            "input 'z' leaves sizes open in [batch, n]; give them, also where 1 is meant, with "
            "'dims' {\"n\": N} or 'inputDims' {\"z\": [-1, N]}");
}

// Whoever has given one would else hear of the next only then.
TEST_F(SignatureTest, NamesAllSizesThatAreWantedAtOnce) {
  inputs[1] = Tensor("z", {Open("batch"), Open("height"), Open("width"), Open("height")});
  EXPECT_EQ(Refusal("{}"),
            "input 'z' leaves sizes open in [batch, height, width, height]; give them, also where "
            "1 is meant, with 'dims' {\"height\": N, \"width\": N} or 'inputDims' {\"z\": "
            "[-1, N, N, N]}");
  inputs.push_back(Tensor("mask", {Open("batch"), Open("length")}));
  EXPECT_EQ(Refusal("{}"),
            "input 'z' leaves sizes open in [batch, height, width, height], and 1 other does; give "
            "them, also where 1 is meant, with 'dims' {\"height\": N, \"width\": N, \"length\": N} "
            "or 'inputDims' {\"z\": [-1, N, N, N], \"mask\": [-1, N]}");
  // What has no name is not given by names.
  inputs.push_back(Tensor("more", {Open("batch"), Open("")}));
  EXPECT_EQ(Refusal("{}"),
            "input 'z' leaves sizes open in [batch, height, width, height], and 2 others do; give "
            "them, also where 1 is meant, with 'inputDims' {\"z\": [-1, N, N, N], \"mask\": "
            "[-1, N], \"more\": [-1, N]}");
}

TEST_F(SignatureTest, LeavesOutWhatHasNoElements) {
  inputs[1] = Tensor("z", {Fixed(0), Open("n")});
  outputs = {Tensor("y", {Fixed(4)}), Tensor("none", {Fixed(0), Fixed(2)}),
             Tensor("small", {Fixed(2)})};
  const std::string settings = R"({"outputDims": {"small": [0]}})";
  const Signature signature = Sort(settings);
  EXPECT_EQ(NamesOf(signature.inputs), Names{"x"});
  ASSERT_EQ(signature.constants.size(), 1u);
  EXPECT_EQ(signature.constants[0].name, "z");
  EXPECT_EQ(signature.constants[0].shape, (Shape{0, 1}));
  EXPECT_EQ(NamesOf(signature.outputs), Names{"y"});
  EXPECT_EQ(LogOf(settings),
            "vorn: vorn_mdl_load_from_mem: input 'z' has no elements and is left out\n"
            "vorn: vorn_mdl_load_from_mem: output 'none' is declared without elements and left "
            "out\n"
            "vorn: vorn_mdl_load_from_mem: output 'small' is declared without elements and left "
            "out\n");
  outputs = {Tensor("none", {Fixed(0)})};
  EXPECT_EQ(Refusal("{}"),
            "the model has no output with elements; there is nothing to execute it for");
  // Which is told before sizes that are missing.
  inputs[0] = Tensor("x", {Fixed(1), Open("n")});
  EXPECT_EQ(Refusal("{}"),
            "the model has no output with elements; there is nothing to execute it for");
}

TEST_F(SignatureTest, KeepsTheLargestDimensionsOfAnOutput) {
  const Signature signature = Sort(R"({"outputDims": {"y": [9, 4]}})");
  EXPECT_EQ(signature.outputs[0].largest, (Shape{9, 4}));
  EXPECT_EQ(Sort("{}").outputs[0].largest, std::nullopt);
}

TEST_F(SignatureTest, RefusesKeysOfAnotherNetType) {
  const auto foreign = [](const std::string& key, const std::string& netType) {
    return "'" + key + "' is given, but 'netType' is not \"" + netType + '"';
  };
  EXPECT_EQ(Refusal(R"({"rpn": "x"})"), foreign("rpn", "detection"));
  EXPECT_EQ(Refusal(R"({"netType": "recurrent", "rpn": "x"})"), foreign("rpn", "detection"));
  for (const char* given :
       {R"("states": {"x": "y"})", R"("frames": "x")", R"("flags": "x")", R"("length": "x")",
        R"("maxFrames": 2)", R"("timeAxis": 1)", R"("context": 1)", R"("sequence": "steps")"}) {
    const std::string key = std::string(given).substr(1, std::string(given).find('"', 1) - 1);
    EXPECT_EQ(Refusal(Join("{", given, "}")), foreign(key, "recurrent"));
    EXPECT_EQ(Refusal(Join(R"({"netType": "detection", )", given, "}")), foreign(key, "recurrent"));
  }
}

TEST_F(SignatureTest, PutsThresholdsBehindTheOtherInputs) {
  inputs = {Tensor("one", {Fixed(1), Fixed(4)}), Tensor("x", {Fixed(1), Fixed(8)}),
            Tensor("many", {Fixed(4), Fixed(1)})};
  const Signature signature = Sort(R"({"netType": "detection", "rpn": ["many", "one"]})");
  EXPECT_EQ(NamesOf(signature.inputs), (Names{"x", "many", "one"}));
  EXPECT_EQ(signature.rpnCount, 2u);
}

TEST_F(SignatureTest, RefusesWhatIsNoThreshold) {
  EXPECT_EQ(Refusal(R"({"netType": "detection"})"),
            "the net type is \"detection\"; name its input of thresholds with 'rpn'");
  const std::string settings = R"({"netType": "detection", "rpn": "z"})";
  const auto refused = [](const std::string& shape) {
    return "'rpn' names 'z' of the shape " + shape +
           "; thresholds are float32 of [1, 4] or [4, classes]";
  };
  for (const Shape& shape : {Shape{4}, Shape{1, 3}, Shape{1, 5}, Shape{2, 4}, Shape{3, 9},
                             Shape{1, 4, 1}, Shape{4, 2, 1}}) {
    std::vector<DeclaredDim> dims;
    for (const int64_t dim : shape) dims.push_back(Fixed(dim));
    inputs[1] = Tensor("z", dims);
    EXPECT_EQ(Refusal(settings), refused(ShapeText(shape)));
  }
  inputs[1] = Tensor("z", {Fixed(1), Fixed(4)}, VORN_FLOAT64);
  EXPECT_EQ(Refusal(settings), refused("[1, 4]"));
  inputs[1] = Tensor("z", {Fixed(4), Open("classes")});
  EXPECT_EQ(Refusal(settings),
            "input 'z' leaves sizes open in [4, classes]; give them, also where 1 is meant, with "
            "'dims' {\"classes\": N} or 'inputDims' {\"z\": [4, N]}");
}

TEST_F(SignatureTest, TakesTheFirstInputThatIsLeftAsFrames) {
  inputs = {Tensor("length", {}, VORN_INT32), Tensor("h", {Fixed(1), Fixed(2)}),
            Tensor("flags", {Open("t")}), Tensor("x", {Fixed(1), Fixed(4)}),
            Tensor("w", {Fixed(1)})};
  outputs = {Tensor("y", {Fixed(1)}), Tensor("hOut", {Fixed(1), Fixed(2)})};
  const Signature signature = Sort(R"({"netType": "recurrent", "states": {"h": "hOut"},
      "length": "length", "flags": "flags", "constants": {"h": [1, 2]}})");
  EXPECT_EQ(signature.frames->tensor.name, "x");
  EXPECT_EQ(signature.flags->tensor.name, "flags");
  ASSERT_EQ(signature.states.size(), 1u);
  EXPECT_EQ(signature.states[0].start.index, 1u);
  EXPECT_EQ(signature.states[0].output, 1u);
  std::array<float, 2> start{};
  ASSERT_EQ(signature.states[0].start.bytes.size(), sizeof(start));
  std::memcpy(start.data(), signature.states[0].start.bytes.data(), sizeof(start));
  EXPECT_EQ(start, (std::array<float, 2>{1, 2}));
  const int32_t one = 1;
  ASSERT_EQ(signature.length->bytes.size(), sizeof(one));
  EXPECT_EQ(std::memcmp(signature.length->bytes.data(), &one, sizeof(one)), 0);
  EXPECT_EQ(NamesOf(signature.inputs), Names{"w"});
  EXPECT_EQ(NamesOf(signature.outputs), Names{"y"});
  EXPECT_TRUE(signature.constants.empty());
}

TEST_F(SignatureTest, TakesTheFramesThatAreNamed) {
  EXPECT_EQ(Sort(R"({"netType": "recurrent", "frames": "z"})").frames->tensor.name, "z");
  EXPECT_EQ(Refusal(R"({"netType": "recurrent", "constants": {"x": 1, "z": 1}})"),
            "no input is left that could hold frames");
}

TEST_F(SignatureTest, RefusesStatesAndLengthsOfOtherTypes) {
  outputs = {Tensor("y", {Fixed(1), Fixed(4)}, VORN_FLOAT64)};
  EXPECT_EQ(Refusal(R"({"netType": "recurrent", "states": {"x": "y"}})"),
            "'states' feeds 'x' from 'y', which has another element type");
  EXPECT_EQ(Refusal(R"({"netType": "recurrent", "length": "x"})"),
            "'length' names 'x'; a count of frames is int32 or int64");
  inputs[0].type = VORN_INT64;
  EXPECT_EQ(Refusal(R"({"netType": "recurrent", "length": "x"})"), "");
}

TEST_F(SignatureTest, LeavesTheBatchOfAStateOpenAndNothingElse) {
  const std::string settings = R"({"netType": "recurrent", "states": {"z": "y"}})";
  inputs[1] = Tensor("z", {Fixed(2), Open("batch"), Fixed(3)});
  EXPECT_EQ(Sort(settings).states[0].start.shape, (Shape{2, 1, 3}));
  inputs[1] = Tensor("z", {Fixed(2), Open("batch"), Open("")});
  EXPECT_EQ(Refusal(settings),
            "input 'z' leaves sizes open in [2, batch, ?]; give them, also where 1 is meant, with "
            "'inputDims' {\"z\": [2, N, N]}");
}

TEST_F(SignatureTest, LeavesTheFramesOpenUpToTheirAxis) {
  inputs[0] = Tensor("x", {Open("batch"), Open("time"), Fixed(4)});
  EXPECT_EQ(Refusal(R"({"netType": "recurrent", "timeAxis": 1})"), "");
  const std::string refused =
      "input 'x' leaves sizes open in [batch, time, 4]; give them, also where 1 is meant, with "
      "'dims' {\"time\": N} or 'inputDims' {\"x\": [-1, N, 4]}";
  EXPECT_EQ(Refusal(R"({"netType": "recurrent"})"), refused);
  EXPECT_EQ(Refusal(R"({"netType": "recurrent", "sequence": "steps", "timeAxis": 1})"), refused);
}

}  // namespace
}  // namespace vorn::host
