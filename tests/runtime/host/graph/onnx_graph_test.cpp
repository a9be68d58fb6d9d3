#include "host/graph/onnx_graph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/host/refusal.h"
#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

OnnxWriter Two() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {2})
      .Output("y", kOnnxFloat, {2})
      .Constant<float>("w", kOnnxFloat, {2}, {1, 2})
      .Constant<float>("v", kOnnxFloat, {2}, {3, 4})
      .Node("Add", {"x", "w"}, {"sum"})
      .Node("Mul", {"sum", "v"}, {"y"});
}

/// The body reads "outer" and "w" from outside, and has "own" and "z" itself.
std::string Body() {
  return OnnxWriter()
      .Constant<float>("own", kOnnxFloat, {1}, {1})
      .Node("Add", {"outer", "own"}, {"z"})
      .Node("Mul", {"z", "w"}, {"result"})
      .Output("result", kOnnxFloat, {2})
      .Graph();
}

TEST(OnnxGraph, ReadsWhatDependsOnWhat) {
  const std::string image = Two().Image();
  const OnnxGraph graph(BytesOf(image));
  ASSERT_EQ(graph.nodes.size(), 2u);
  EXPECT_EQ(graph.nodes[1].op, "Mul");
  EXPECT_THAT(graph.nodes[1].inputs, ElementsAre("sum", "v"));
  EXPECT_THAT(graph.nodes[1].outputs, ElementsAre("y"));
  EXPECT_THAT(graph.inputs, ElementsAre("x"));
  EXPECT_THAT(graph.outputs, ElementsAre("y"));
  EXPECT_EQ(graph.initializers[1].tensor.name, "v");
  EXPECT_THAT(graph.initializers[1].tensor.dims, ElementsAre(2));
  EXPECT_EQ(graph.initializers[1].tensor.type, kFileFloat);
  EXPECT_EQ(graph.ProducerOf("sum"), &graph.nodes[0]);
  EXPECT_EQ(graph.ProducerOf("x"), nullptr);
  EXPECT_TRUE(graph.IsInput("x"));
  EXPECT_TRUE(graph.IsInitializer("w"));
  EXPECT_FALSE(graph.IsInitializer("x"));
  EXPECT_EQ(graph.operatorSet(), 17u);
}

TEST(OnnxGraph, TellsWhatBodiesReadFromOutside) {
  const std::string inner = GraphAttribute("then_branch", Body());
  const std::string outer = OnnxWriter().Node("If", {"c"}, {"r"}, {inner}).Graph();
  const std::string image =
      Two().Node("If", {"x"}, {"q"}, {GraphAttribute("else_branch", outer)}).Image();
  const OnnxGraph graph(BytesOf(image));
  EXPECT_THAT(graph.nodes[2].captured, UnorderedElementsAre("c", "outer", "w"));
  EXPECT_EQ(graph.BodyWith("z"), &graph.nodes[2]);
  EXPECT_EQ(graph.BodyWith("q"), nullptr);
}

TEST(OnnxGraph, WritesWhatItReadWhereNothingIsChanged) {
  // Fields of later versions in the model, the graph and a node; and a value declared.
  const std::string later = WireWriter().Varint(900, 7).Bytes(901, "later").str();
  const std::string node = WireWriter().Bytes(1, "x").Bytes(2, "y").Bytes(4, "Relu").str() + later;
  const std::string value = WireWriter().Bytes(1, "y").str();
  const std::string graph = WireWriter().Bytes(1, node).Bytes(13, value).str() + later;
  const std::string image = WireWriter().Varint(1, 8).Bytes(7, graph).str() + later;
  EXPECT_EQ(OnnxGraph(BytesOf(image)).Image(), image);
}

TEST(OnnxGraph, KeepsUnknownFieldsOfWhatItChanges) {
  const std::string later = WireWriter().Varint(900, 7).Bytes(901, "later").str();
  const std::string node = WireWriter().Bytes(1, "x").Bytes(2, "y").Bytes(4, "Relu").str() + later;
  const std::string image = WireWriter().Bytes(7, WireWriter().Bytes(1, node).str()).str();
  OnnxGraph graph(BytesOf(image));
  graph.nodes[0].outputs[0] = "z";
  graph.nodes[0].isChanged = true;
  const std::string changed =
      WireWriter().Bytes(1, "x").Bytes(2, "z").Bytes(4, "Relu").str() + later;
  EXPECT_EQ(graph.Image(), WireWriter().Bytes(7, WireWriter().Bytes(1, changed).str()).str());
}

TEST(OnnxGraph, LeavesOutWhatNothingReads) {
  const std::string image = Two().Image();
  OnnxGraph graph(BytesOf(image));
  graph.outputs = {"sum"};
  graph.KeepNodes({true, false});
  const std::string cut = graph.Image();
  const OnnxGraph left(BytesOf(cut));
  ASSERT_EQ(left.nodes.size(), 1u);
  EXPECT_EQ(left.nodes[0].op, "Add");
  ASSERT_EQ(left.initializers.size(), 1u);
  EXPECT_EQ(left.initializers[0].tensor.name, "w");
  EXPECT_THAT(left.outputs, ElementsAre("sum"));
  EXPECT_THAT(left.inputs, ElementsAre("x"));
}

TEST(OnnxGraph, KeepsWhatABodyReads) {
  const std::string image =
      Two().Node("If", {"x"}, {"q"}, {GraphAttribute("then_branch", Body())}).Image();
  OnnxGraph graph(BytesOf(image));
  graph.KeepNodes({false, false, true});
  ASSERT_EQ(graph.initializers.size(), 1u);
  EXPECT_EQ(graph.initializers[0].tensor.name, "w");
}

TEST(OnnxGraph, NamesNothingLikeSomethingElse) {
  const std::string image =
      Two().Node("If", {"x"}, {"q"}, {GraphAttribute("then_branch", Body())}).Image();
  OnnxGraph graph(BytesOf(image));
  EXPECT_EQ(graph.NewName("fresh"), "fresh");
  EXPECT_EQ(graph.NewName("fresh"), "fresh_2");
  for (const char* taken : {"x", "y", "sum", "w", "z", "own", "q"}) {
    EXPECT_EQ(graph.NewName(taken), std::string(taken) + "_2");
  }
}

TEST(OnnxGraph, RefusesMoreThanOneGraph) {
  const std::string two = WireWriter().Bytes(7, "").Bytes(7, "").str();
  EXPECT_THAT(ReasonOf(VORN_ERROR_MODEL, [&] { OnnxGraph graph(BytesOf(two)); }),
              HasSubstr("holds 2 graphs"));
}

TEST(OnnxGraph, ImportsADomainOnce) {
  const std::string image = Two().Image();
  OnnxGraph graph(BytesOf(image));
  graph.UseDomain("mine");
  graph.UseDomain("mine");
  const std::string import = WireWriter().Bytes(1, "mine").Varint(2, 1).str();
  const std::string outputsLast = OnnxGraph(BytesOf(image)).Image();
  EXPECT_EQ(graph.Image(), outputsLast + WireWriter().Bytes(8, import).str());
}

TEST(ReadFileTensor, TakesPackedDimensions) {
  const std::string packed = WireWriter().Bytes(1, "\x02\x80\x01").Varint(2, 1).Bytes(8, "w").str();
  EXPECT_THAT(ReadFileTensor(BytesOf(packed)).dims, ElementsAre(2, 128));
}

TEST(Attributes, AreFoundByName) {
  const std::string image =
      OnnxWriter()
          .Node("Gemm", {"a"}, {"b"}, {IntAttribute("transA", 3), IntAttribute("transB", -1)})
          .Image();
  const OnnxGraph graph(BytesOf(image));
  EXPECT_EQ(IntAttributeOf(graph.nodes[0], "transB", 5), -1);
  EXPECT_EQ(IntAttributeOf(graph.nodes[0], "transC", 5), 5);
  EXPECT_EQ(AttributeOf(graph.nodes[0], "transA", 5), std::nullopt);
}

}  // namespace
}  // namespace vorn::host
