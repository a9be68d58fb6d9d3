#include "host/engine/onnx_image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/common/failure.h"
#include "runtime/host/refusal.h"
#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

using testing::HasSubstr;

OnnxImageFacts Inspect(const std::string& image) {
  return InspectOnnxImage(std::as_bytes(std::span(image)));
}

std::string Refusal(const std::string& image) {
  return ReasonOf(VORN_ERROR_MODEL, [&] { Inspect(image); });
}

OnnxWriter Relu() {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {2, 3}).Output("y", kOnnxFloat, {2, 3}).Node("Relu", {"x"}, {"y"});
  return model;
}

TEST(FindMetadata, FindsTheTextByItsName) {
  const std::string image = Relu().Metadata("a", "1").Metadata("b", "{}").Image();
  const auto bytes = std::as_bytes(std::span(image));
  EXPECT_EQ(FindMetadata(bytes, "b"), "{}");
  EXPECT_EQ(FindMetadata(bytes, "a"), "1");
  EXPECT_EQ(FindMetadata(bytes, "c"), std::nullopt);
  EXPECT_THROW(FindMetadata(bytes.first(bytes.size() - 1), "b"), Failure);
}

TEST(OpenDimNames, AreThoseOfInputsAndOutputsOnceEach) {
  const std::string image = OnnxWriter()
                                .Input("a", kOnnxFloat, {"n", 3, "", "width"})
                                .Input("b", kOnnxFloat, {"n"})
                                .ShapelessInput("c", kOnnxFloat)
                                .Output("y", kOnnxFloat, {"count"})
                                .Node("Relu", {"a"}, {"y"})
                                .Image();
  EXPECT_EQ(OpenDimNames(std::as_bytes(std::span(image))),
            (std::set<std::string>{"count", "n", "width"}));
}

TEST(InspectOnnxImage, FindsNothingSpecialInAPlainModel) {
  const OnnxImageFacts facts = Inspect(Relu().Image());
  EXPECT_TRUE(facts.hasGraph);
  EXPECT_FALSE(facts.hasExternalData);
  EXPECT_TRUE(facts.shapelessInputs.empty());
}

TEST(InspectOnnxImage, TellsAScalarFromAnInputWithoutShape) {
  const auto facts =
      Inspect(OnnxWriter().Input("scalar", kOnnxFloat, {}).ShapelessInput("x", kOnnxInt8).Image());
  EXPECT_EQ(facts.shapelessInputs, std::set<std::string>{"x"});
}

TEST(InspectOnnxImage, FindsDataInOtherFiles) {
  EXPECT_TRUE(Inspect(Relu().ExternalConstant("w", kOnnxFloat, {1}, "weights.bin").Image())
                  .hasExternalData);
}

TEST(InspectOnnxImage, FindsDataInOtherFilesInASubgraph) {
  OnnxWriter branch;
  branch.ExternalConstant("w", kOnnxFloat, {1}, "weights.bin");
  const std::string image =
      Relu().Node("If", {"c"}, {"z"}, {GraphAttribute("then_branch", branch.Graph())}).Image();
  EXPECT_TRUE(Inspect(image).hasExternalData);
}

TEST(InspectOnnxImage, FindsDataInOtherFilesInAFunctionAndAnAttribute) {
  const std::string tensor = WireWriter().Varint(14, 1).str();
  const std::string attribute = WireWriter().Bytes(5, tensor).str();
  const std::string node = WireWriter().Bytes(5, attribute).str();
  const std::string function = WireWriter().Bytes(7, node).str();
  EXPECT_TRUE(Inspect(WireWriter().Bytes(25, function).str()).hasExternalData);
}

TEST(InspectOnnxImage, FindsDataInOtherFilesInAnAttributeOfAFunction) {
  const std::string tensor = WireWriter().Varint(14, 1).str();
  const std::string attribute = WireWriter().Bytes(5, tensor).str();
  const std::string function = WireWriter().Bytes(11, attribute).str();
  EXPECT_TRUE(Inspect(WireWriter().Bytes(25, function).str()).hasExternalData);
}

TEST(InspectOnnxImage, TakesNoNamesOfAFunctionForItsNodes) {
  // Numbers that mean nodes and tensors in a graph.
  const std::string notes = WireWriter().Varint(14, 1).str();
  const std::string function = WireWriter().Bytes(1, "F").Bytes(5, notes).str();
  EXPECT_EQ(Refusal(WireWriter().Bytes(25, function).str()), "");
  EXPECT_FALSE(Inspect(WireWriter().Bytes(25, function).str()).hasExternalData);
}

TEST(InspectOnnxImage, TakesEveryPrefixOfAModelForAModelOrRefusesIt) {
  const std::string image = Relu().Constant<float>("w", kOnnxFloat, {2}, {1, 2}).Image();
  for (size_t length = 0; length < image.size(); ++length) {
    const std::string prefix = image.substr(0, length);
    EXPECT_THAT(Refusal(prefix), testing::AnyOf("", HasSubstr("no ONNX file")));
  }
}

TEST(InspectOnnxImage, LooksForOtherFilesBeforeItLooksAtInputs) {
  const std::string node = WireWriter().Bytes(5, std::string("\x3a\x7f", 2)).str();
  const std::string input = WireWriter().Bytes(2, "\x3b").str();
  EXPECT_THAT(Refusal(WireWriter().Bytes(7, WireWriter().Bytes(11, input).str()).str()),
              HasSubstr("an unknown wire type"));
  EXPECT_THAT(
      Refusal(WireWriter().Bytes(7, WireWriter().Bytes(11, input).Bytes(1, node).str()).str()),
      HasSubstr("it ends inside a field"));
}

TEST(InspectOnnxImage, RefusesWhatIsNoMessage) {
  EXPECT_THAT(Refusal("hello, world"), HasSubstr("no ONNX file"));
  EXPECT_THAT(Refusal(std::string("\x3a\x7f", 2)), HasSubstr("ends inside"));
  EXPECT_THAT(Refusal(std::string("\0\0", 2)), HasSubstr("without a number"));
  EXPECT_THAT(Refusal(std::string(20, '\xff')), HasSubstr("endless number"));
  EXPECT_THAT(Refusal("\x3b"), HasSubstr("wire type"));
}

TEST(InspectOnnxImage, GoesAHundredMessagesDeep) {
  // The model, its graph, and three more with each round: a node, an attribute, a graph.
  const auto nested = [](std::string innermost, int rounds) {
    for (int i = 0; i < rounds; ++i) {
      innermost = WireWriter().Bytes(6, innermost).str();
      innermost = WireWriter().Bytes(1, WireWriter().Bytes(5, innermost).str()).str();
    }
    return WireWriter().Bytes(7, innermost).str();
  };
  const std::string node = WireWriter().Bytes(1, "").str();
  EXPECT_EQ(Refusal(nested("", 33)), "");  // 100
  EXPECT_EQ(Refusal(nested(node, 33)),
            "the image is no ONNX file (messages nested too deep); give the whole bytes of one");
}

TEST(InspectOnnxImage, RefusesBottomlessNesting) {
  std::string graph;
  for (int depth = 0; depth < 200; ++depth) {
    graph = WireWriter()
                .Bytes(1, WireWriter().Bytes(5, WireWriter().Bytes(6, graph).str()).str())
                .str();
  }
  EXPECT_THAT(Refusal(WireWriter().Bytes(7, graph).str()), HasSubstr("too deep"));
}

}  // namespace
}  // namespace vorn::host
