#include "host/graph/dependence.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

using testing::Contains;
using testing::Not;
using testing::UnorderedElementsAre;

/// What an exporter makes of a reshape to the rows of the input.
OnnxWriter Flatten() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {"n", 2, 3})
      .Output("y", kOnnxFloat, {"n", 6})
      .Node("Shape", {"x"}, {"shape"})
      .Node("Gather", {"shape", "zero"}, {"rows"})
      .Node("Concat", {"rows", "six"}, {"wanted"})
      .Node("Relu", {"x"}, {"relu"})
      .Node("Reshape", {"relu", "wanted"}, {"y"});
}

TEST(DependenceOf, TellsDataFromShapes) {
  const std::string image = Flatten().Image();
  const Dependence so = DependenceOf(OnnxGraph(BytesOf(image)));
  EXPECT_THAT(so.onData, UnorderedElementsAre("x", "relu", "y"));
  EXPECT_THAT(so.shapeOnData, UnorderedElementsAre());
}

TEST(DependenceOf, TellsShapesThatTheDataDecide) {
  const std::string image = OnnxWriter()
                                .Input("x", kOnnxFloat, {4})
                                .Node("NonZero", {"x"}, {"at"})
                                .Node("Cast", {"at"}, {"cast"})
                                .Node("Shape", {"cast"}, {"count"})
                                .Node("Expand", {"one", "count"}, {"ones"})
                                .Node("Relu", {"x"}, {"relu"})
                                .Image();
  const Dependence so = DependenceOf(OnnxGraph(BytesOf(image)));
  EXPECT_THAT(so.shapeOnData, UnorderedElementsAre("at", "cast", "ones"));
  EXPECT_THAT(so.onData, UnorderedElementsAre("x", "at", "cast", "count", "ones", "relu"));
}

TEST(DependenceOf, TakesNothingForGrantedOfBodiesAndOfOtherDomains) {
  const std::string domain =
      WireWriter().Bytes(1, "x").Bytes(2, "z").Bytes(4, "F").Bytes(7, "d").str();
  const std::string graph = OnnxWriter()
                                .Input("x", kOnnxFloat, {4})
                                .Node("If", {"x"}, {"y"}, {GraphAttribute("then_branch", "")})
                                .Graph() +
                            WireWriter().Bytes(1, domain).str();
  const std::string image = WireWriter().Bytes(7, graph).str();
  EXPECT_THAT(DependenceOf(OnnxGraph(BytesOf(image))).shapeOnData, UnorderedElementsAre("y", "z"));
}

TEST(DependenceOf, NeedsNoOrderOfTheNodes) {
  const std::string image = OnnxWriter()
                                .Input("x", kOnnxFloat, {4})
                                .Node("Relu", {"b"}, {"c"})
                                .Node("Relu", {"a"}, {"b"})
                                .Node("Relu", {"x"}, {"a"})
                                .Image();
  EXPECT_THAT(DependenceOf(OnnxGraph(BytesOf(image))).onData,
              UnorderedElementsAre("x", "a", "b", "c"));
}

TEST(ParametersOf, AreWhatNothingReadsAsData) {
  const std::string image = Flatten().Image();
  EXPECT_THAT(ParametersOf(OnnxGraph(BytesOf(image))),
              UnorderedElementsAre("shape", "zero", "rows", "six", "wanted"));
}

TEST(ParametersOf, AreNotOutputsNorWhatABodyReads) {
  const std::string body = OnnxWriter().Node("Relu", {"half"}, {"z"}).Graph();
  const std::string image = OnnxWriter()
                                .Input("x", kOnnxFloat, {4})
                                .Output("double", kOnnxFloat, {1})
                                .Node("Resize", {"x", "", "double"}, {"a"})
                                .Node("Resize", {"x", "", "half"}, {"b"})
                                .Node("If", {"a"}, {"y"}, {GraphAttribute("then_branch", body)})
                                .Image();
  const auto parameters = ParametersOf(OnnxGraph(BytesOf(image)));
  EXPECT_THAT(parameters, Not(Contains("double")));
  EXPECT_THAT(parameters, Not(Contains("half")));
}

TEST(IsParameter, IsAMatterOfTheOperatorAndThePlace) {
  const std::string image = OnnxWriter()
                                .Node("Slice", {"x", "a", "b", "c", "d"}, {"y"})
                                .Node("Relu", {"x"}, {"z"})
                                .Image();
  const OnnxGraph graph(BytesOf(image));
  EXPECT_FALSE(IsParameter(graph.nodes[0], 0));
  EXPECT_TRUE(IsParameter(graph.nodes[0], 4));
  EXPECT_FALSE(IsParameter(graph.nodes[0], 5));
  EXPECT_FALSE(IsParameter(graph.nodes[0], 100));
  EXPECT_FALSE(IsParameter(graph.nodes[1], 0));
}

}  // namespace
}  // namespace vorn::host
