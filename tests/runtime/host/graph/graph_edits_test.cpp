// What is asked of a graph, over facts that are written here; interface/edited_model_test.cpp does
// the same with the engine's.
#include "host/graph/graph_edits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/graph/onnx_graph.h"
#include "host/graph/short_name.h"
#include "runtime/host/refusal.h"
#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// x -> a -> b -> y, and x -> side -> other, with a body in the last.
OnnxWriter Model() {
  const std::string body = OnnxWriter().Node("Relu", {"a"}, {"inside"}).Graph();
  return OnnxWriter()
      .Input("x", kOnnxFloat, {2})
      .Input("c", kOnnxBool, {})
      .Output("y", kOnnxFloat, {2})
      .Output("other", kOnnxFloat, {2})
      .Constant<float>("w", kOnnxFloat, {2}, {1, 2})
      .Node("Add", {"x", "w"}, {"a"})
      .Node("Relu", {"a"}, {"b"})
      .Node("NonZero", {"b"}, {"places"})
      .Node("Neg", {"b"}, {"y"})
      .Node("If", {"c"}, {"other"}, {GraphAttribute("then_branch", body)});
}

class EditModelTest : public testing::Test {
 protected:
  EditedModel Edit(const OnnxWriter& model, const std::string& settings) {
    const std::string image = model.Image();
    edited = EditModel(BytesOf(image), ParseModelSettings(settings), [&](Bytes whole) {
      asked = OnnxGraph(whole).outputs.size();
      return facts;
    });
    return edited;
  }

  std::vector<std::string> Outputs(const std::string& settings) {
    Edit(Model(), settings);
    const OnnxGraph graph(BytesOf(edited.image));
    return {graph.outputs.begin(), graph.outputs.end()};
  }

  std::string Refusal(const std::string& settings) {
    return ReasonOf(VORN_ERROR_MODEL, [&] { Edit(Model(), settings); });
  }

  static ResultFacts Float(const std::string& name, bool isShapeKnown = true) {
    return {.name = name, .type = VORN_FLOAT32, .cannotBeGiven = "", .isShapeKnown = isShapeKnown};
  }

  std::vector<ResultFacts> facts = {Float("a"), Float("b"), Float("places", false), Float("y"),
                                    Float("other", false)};
  EditedModel edited;
  size_t asked = 0;
};

TEST_F(EditModelTest, IsNotWantedWithoutAKey) {
  EXPECT_FALSE(AreEditsWanted(ParseModelSettings(R"({"expose": [], "until": []})")));
  EXPECT_TRUE(AreEditsWanted(ParseModelSettings(R"({"expose": "all"})")));
  EXPECT_TRUE(AreEditsWanted(ParseModelSettings(R"({"expose": "a"})")));
  EXPECT_TRUE(AreEditsWanted(ParseModelSettings(R"({"until": "a"})")));
}

TEST_F(EditModelTest, ExposesBehindTheOutputsInTheOrderOfTheGraph) {
  EXPECT_THAT(Outputs(R"({"expose": ["b", "y", "a"]})"), ElementsAre("y", "other", "a", "b"));
  EXPECT_EQ(edited.done, "exposed 2 tensors");
  EXPECT_EQ(asked, 0u);
}

// What is fed back under such a name is nobody's affair.
TEST_F(EditModelTest, GivesLongNamesInShort) {
  const std::string own(201, 'o');
  const std::string inner(300, 'i');
  const std::string state(400, 's');
  const OnnxWriter model = OnnxWriter()
                               .Input("x", kOnnxFloat, {2})
                               .Input("before", kOnnxFloat, {2})
                               .Output(own, kOnnxFloat, {2})
                               .Output(state, kOnnxFloat, {2})
                               .Node("Add", {"x", "before"}, {inner})
                               .Node("Neg", {inner}, {own})
                               .Node("Neg", {inner}, {state});
  const std::string states = R"("states": {"before": ")" + state + "\"}";
  Edit(model, R"({"expose": [")" + inner + "\"], " + states + "}");
  EXPECT_THAT(edited.shortNames, ElementsAre(testing::Pair(inner, ShortName(inner)),
                                             testing::Pair(own, ShortName(own))));
  Edit(model, R"({"expose": [")" + state + "\"], " + states + "}");
  EXPECT_THAT(edited.shortNames, ElementsAre(testing::Pair(own, ShortName(own)),
                                             testing::Pair(state, ShortName(state))));
  Edit(model, R"({"round": "float16"})");
  EXPECT_TRUE(edited.shortNames.empty()) << "the outputs are as they were";
}

TEST_F(EditModelTest, ExposesAllWhoseShapesAreSettled) {
  EXPECT_THAT(Outputs(R"({"expose": "all"})"), ElementsAre("y", "other", "a", "b"));
  EXPECT_THAT(edited.done,
              HasSubstr("exposed 2 tensors and left out 1: 'places' may have another"));
  EXPECT_EQ(asked, 5u);
}

TEST_F(EditModelTest, ExposesWhatIsNamedAlsoWhereAllLeavesItOut) {
  EXPECT_THAT(Outputs(R"({"expose": "places"})"), ElementsAre("y", "other", "places"));
}

TEST_F(EditModelTest, LeavesOutWhatCannotBeGivenWithItsReason) {
  facts[0] = {.name = "a", .type = std::nullopt, .cannotBeGiven = "is a sequence"};
  facts[2] = Float("places");
  EXPECT_THAT(Outputs(R"({"expose": "all"})"), ElementsAre("y", "other", "b", "places"));
  EXPECT_EQ(edited.done, "exposed 2 tensors and left out 1: 'a' is a sequence");
}

TEST_F(EditModelTest, TakesATensorNamedAllOutOfAList) {
  EXPECT_THAT(Refusal(R"({"expose": ["all"]})"), HasSubstr("no tensor of that name"));
}

TEST_F(EditModelTest, CutsShort) {
  EXPECT_THAT(Outputs(R"({"until": "b"})"), ElementsAre("b"));
  EXPECT_EQ(edited.done, "cut at 'b': 2 of 5 nodes are left");
  EXPECT_THAT(edited.goneOutputs, ElementsAre("y", "other"));
  const OnnxGraph graph(BytesOf(edited.image));
  EXPECT_THAT(graph.inputs, ElementsAre("x", "c"));  // so that the same files serve it
}

TEST_F(EditModelTest, KeepsWhatABodyReadsFromTheGraph) {
  EXPECT_THAT(Outputs(R"({"until": ["other"]})"), ElementsAre("other"));
  EXPECT_EQ(edited.done, "cut at 'other': 2 of 5 nodes are left");
}

TEST_F(EditModelTest, KeepsStatesThatAreFedBack) {
  EXPECT_THAT(Outputs(R"({"until": ["a"], "states": {"x": "y"}})"), ElementsAre("a", "y"));
  EXPECT_THAT(edited.goneOutputs, ElementsAre("other"));
}

TEST_F(EditModelTest, ExposesWhatIsLeftOfACutModel) {
  EXPECT_THAT(Outputs(R"({"until": "b", "expose": "all"})"), ElementsAre("b", "a"));
  EXPECT_EQ(edited.done, "cut at 'b': 2 of 5 nodes are left; exposed 1 tensor");
  EXPECT_EQ(asked, 2u);
  EXPECT_THAT(Refusal(R"({"until": "a", "expose": "b"})"), HasSubstr("no tensor of that name"));
}

TEST_F(EditModelTest, RefusesWhatIsNoResultAndSaysWhatItIs) {
  for (const std::string key : {"expose", "until"}) {
    const auto refusal = [&](const std::string& name) {
      return Refusal("{\"" + key + "\": [\"" + name + "\"]}");
    };
    EXPECT_EQ(refusal("aa"), "'" + key +
                                 "' names 'aa', but the model has no tensor of that name; "
                                 "the nearest is 'a'");
    EXPECT_THAT(refusal("x"), HasSubstr("an input of the model"));
    EXPECT_THAT(refusal("w"), HasSubstr("carries as a constant"));
    EXPECT_THAT(refusal("inside"), HasSubstr("inside a body of the If node 'other'"));
    EXPECT_EQ(refusal("a\", \"a"), "'" + key + "' names 'a' twice; leave one");
  }
}

}  // namespace
}  // namespace vorn::host
