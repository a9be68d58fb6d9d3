// Shapes that a model leaves open, and what a person may say of them.
#include <gmock/gmock.h>

#include "runtime/host/host_fixture.h"

namespace {

using testing::HasSubstr;

/// The positions of values other than 0 in x: as many as there are.
OnnxWriter Positions() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {2, 3})
      .Output("at", kOnnxInt64, {2, "count"})
      .Node("NonZero", {"x"}, {"at"});
}

class HostShapes : public HostFixture {
 protected:
  vorn_status Execute(const Blocks& in, Blocks& out) {
    return vorn_mdl_execute(modelId, in.dataset, out.dataset);
  }
};

TEST_F(HostShapes, ThatDependOnTheDataAskForTheLargest) {
  EXPECT_THAT(Refusal(Positions()), HasSubstr("output 'at' has the shape [2, 0]"));
  EXPECT_THAT(Refusal(Positions()), HasSubstr("'outputDims'"));
}

TEST_F(HostShapes, ThatDependOnTheDataAreFilledUpWithZeros) {
  Restart(R"({"model": {"outputDims": {"at": [2, 4]}}})");
  ASSERT_EQ(Load(Positions()), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfOutput(0), (std::vector<int64_t>{2, 4}));
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {0, 5, 0, 0, 0, 6}, 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 8, 4), (std::vector<float>{0, 1, 0, 0, 1, 2, 0, 0}));
  in.Put<float>(0, {0, 0, 0, 0, 0, 0}, 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 8, 4), std::vector<float>(8, 0));
}

TEST_F(HostShapes, ThatDependOnTheDataStandBeforeOthers) {
  Restart(R"({"model": {"outputDims": {"at": [2, 4]}}})");
  ASSERT_EQ(Load(Positions().Output("y", kOnnxFloat, {2, 3}).Node("Neg", {"x"}, {"y"})),
            VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  for (const float value : {5.0F, 7.0F}) {
    in.Put<float>(0, {0, value, 0, 0, 0, value}, 3);
    ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 8, 4), (std::vector<float>{0, 1, 0, 0, 1, 2, 0, 0}));
    EXPECT_EQ(out.Take<float>(1, 6, 3), (std::vector<float>{0, -value, 0, 0, 0, -value}));
  }
}

TEST_F(HostShapes, ThatDependOnTheDataAreCutOffAndLogged) {
  Restart(R"({"model": {"outputDims": {"at": [2, 2]}}})");
  ASSERT_EQ(Load(Positions()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {0, 5, 7, 0, 0, 6}, 3);
  for (int repeat = 0; repeat < 2; ++repeat) {
    EXPECT_THAT(LogOf([&] { EXPECT_EQ(Execute(in, out), VORN_SUCCESS); }),
                HasSubstr("output 'at' has the shape [2, 3]; what is beyond [2, 2] is cut off"));
    EXPECT_EQ(out.Take<float>(0, 4, 2), (std::vector<float>{0, 0, 1, 2}));
  }
  EXPECT_EQ(out.Bytes(0)[8], 0xee);  // padding
}

TEST_F(HostShapes, ThatDependOnTheDataAreServedForEveryItemOfABatch) {
  Restart(R"({"model": {"outputDims": {"at": [2, 3]}}, "outputTypes": "native"})");
  ASSERT_EQ(Load(Positions()), VORN_SUCCESS);
  Blocks in = Inputs(2);
  Blocks out = Outputs(2);
  in.Put<float>(0, {0, 0, 1, 0, 0, 0, 0, 0, 0, 1, 1, 0}, 3);
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 2), VORN_SUCCESS);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<int64_t>(0, 12, 3),
            (std::vector<int64_t>{0, 0, 0, 2, 0, 0, 1, 1, 0, 0, 1, 0}));
}

TEST_F(HostShapes, OfAnotherCountOfDimensionsThanGivenFail) {
  Restart(R"({"model": {"outputDims": {"at": [6]}}})");
  ASSERT_EQ(Load(Positions()), VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  EXPECT_THAT(LogOf([&] { EXPECT_EQ(Execute(in, out), VORN_ERROR_EXECUTION); }),
              HasSubstr("'outputDims' gives it 1 dimensions"));
}

TEST_F(HostShapes, OfATrialThatTurnOutOtherwiseNameTheKey) {
  // With zeros, every value is its own only copy of one.
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {4})
                     .Output("y", kOnnxFloat, {"count"})
                     .Node("Unique", {"x"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(ShapeOfOutput(0), std::vector<int64_t>{1});
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {3, 1, 3, 1}, 4);
  EXPECT_THAT(LogOf([&] { EXPECT_EQ(Execute(in, out), VORN_ERROR_EXECUTION); }),
              HasSubstr("'outputDims'"));
}

TEST_F(HostShapes, WithoutElementsAreLeftOutAsLongAsAnotherOutputIsThere) {
  const auto model = OnnxWriter()
                         .Input("x", kOnnxFloat, {2})
                         .Output("nothing", kOnnxFloat, {0, 2})
                         .Output("y", kOnnxFloat, {2})
                         .RawConstant("none", kOnnxFloat, {0, 2}, "")
                         .Node("Relu", {"none"}, {"nothing"})
                         .Node("Relu", {"x"}, {"y"});
  EXPECT_THAT(LogOf([&] { ASSERT_EQ(Load(model), VORN_SUCCESS); }),
              HasSubstr("output 'nothing' is declared without elements and left out"));
  EXPECT_EQ(vorn_mdl_get_num_outputs(desc), 1u);
  EXPECT_STREQ(vorn_mdl_get_output_name_by_index(desc, 0), "y");
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {-1, 4}, 2);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 2, 2), (std::vector<float>{0, 4}));
  Unload();
  EXPECT_THAT(Refusal(OnnxWriter()
                          .Input("x", kOnnxFloat, {2})
                          .Output("nothing", kOnnxFloat, {0, 2})
                          .RawConstant("none", kOnnxFloat, {0, 2}, "")
                          .Node("Relu", {"none"}, {"nothing"})),
              HasSubstr("no output with elements"));
}

/// x / d, of which a trial with zeros fails; y says nothing of its shape.
OnnxWriter Quotient(const std::vector<OnnxDim>& dims) {
  return OnnxWriter()
      .Input("x", kOnnxInt32, dims)
      .Input("d", kOnnxInt32, dims)
      .ShapelessOutput("y", kOnnxInt32)
      .Node("Div", {"x", "d"}, {"y"});
}

TEST_F(HostShapes, ThatNoTrialShowsMayBeGiven) {
  EXPECT_THAT(Refusal(Quotient({""})), HasSubstr("a trial with zero inputs failed"));
  EXPECT_THAT(Refusal(Quotient({""})), HasSubstr("'outputDims'"));
  Restart(R"({"model": {"inputDims": {"x": [2], "d": [2]}, "outputDims": {"y": [2]}}})");
  ASSERT_EQ(Load(Quotient({""})), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfOutput(0), std::vector<int64_t>{2});
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<int32_t>(0, {6, 8}, 2).Put<int32_t>(1, {2, 4}, 2);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 2, 2), (std::vector<float>{3, 2}));
}

TEST_F(HostShapes, OfOneElementWithoutDimensionsMayBeGiven) {
  Restart(R"({"model": {"outputDims": {"y": []}}})");
  ASSERT_EQ(Load(Quotient({})), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfOutput(0), std::vector<int64_t>{1});
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<int32_t>(0, {6}, 1).Put<int32_t>(1, {2}, 1);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 1, 1), std::vector<float>{3});
}

TEST_F(HostShapes, OfOneElementWithoutDimensionsAreServedForEveryItemOfABatch) {
  Restart(R"({"model": {"outputDims": {"y": []}}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {"n", 2})
                     .ShapelessOutput("y", kOnnxFloat)
                     .Node("ReduceSum", {"x"}, {"y"}, {IntAttribute("keepdims", 0)})),
            VORN_SUCCESS);
  Blocks in = Inputs(2);
  Blocks out = Outputs(2);
  in.Put<float>(0, {1, 2, 3, 4}, 2);
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 2), VORN_SUCCESS);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 2, 1), (std::vector<float>{3, 7}));
}

TEST_F(HostShapes, OfOutputsMayBeGivenNoElements) {
  const auto model = OnnxWriter()
                         .Input("x", kOnnxFloat, {2, 3})
                         .ShapelessOutput("at", kOnnxInt64)
                         .Output("y", kOnnxFloat, {2, 3})
                         .Node("NonZero", {"x"}, {"at"})
                         .Node("Relu", {"x"}, {"y"});
  Restart(R"({"model": {"outputDims": {"at": [2, 0]}}})");
  EXPECT_THAT(LogOf([&] { ASSERT_EQ(Load(model), VORN_SUCCESS); }),
              HasSubstr("output 'at' is declared without elements and left out"));
  ASSERT_EQ(vorn_mdl_get_num_outputs(desc), 1u);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {1, -2, 3, -4, 5, -6}, 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 6, 3), (std::vector<float>{1, 0, 3, 0, 5, 0}));
}

TEST_F(HostShapes, OfInputsComeFromTheConfiguration) {
  const auto open = OnnxWriter()
                        .Input("x", kOnnxFloat, {"", ""})
                        .Output("y", kOnnxFloat, {"", ""})
                        .Node("Relu", {"x"}, {"y"});
  Restart(R"({"model": {"inputDims": {"x": [-1, 5]}}})");
  ASSERT_EQ(Load(open), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{1, 5}));
  EXPECT_EQ(ShapeOfOutput(0), (std::vector<int64_t>{1, 5}));
  Blocks in = Inputs(2);
  Blocks out = Outputs(2);
  in.Put<float>(0, {1, -2, 3, -4, 5, 6, -7, 8, -9, 10}, 5);
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 2), VORN_SUCCESS);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 10, 5), (std::vector<float>{1, 0, 3, 0, 5, 6, 0, 8, 0, 10}));
}

TEST_F(HostShapes, OfInputsThatDeclareNoneHaveToBeGiven) {
  const auto shapeless = OnnxWriter()
                             .ShapelessInput("x", kOnnxFloat)
                             .ShapelessOutput("y", kOnnxFloat)
                             .Node("Relu", {"x"}, {"y"});
  EXPECT_THAT(Refusal(shapeless), HasSubstr("input 'x' says nothing of its shape"));
  Restart(R"({"model": {"inputDims": {"x": [2, 3]}}})");
  ASSERT_EQ(Load(shapeless), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfOutput(0), (std::vector<int64_t>{2, 3}));
}

TEST_F(HostShapes, OfInputsThatAreNotTheModelsAreRefused) {
  for (const char* dims : {"[3]", "[3, 3]", "[2, 3, 1]"}) {
    Restart(std::string(R"({"model": {"inputDims": {"x": )") + dims + "}}}");
    EXPECT_THAT(Refusal(Positions()), HasSubstr("'inputDims' gives 'x'"));
  }
  Restart(R"({"model": {"inputDims": {"z": [3]}}})");
  EXPECT_THAT(Refusal(Positions()), HasSubstr("names 'z', but the model has no input"));
}

TEST_F(HostShapes, ConstantsAreNotAmongTheInputs) {
  Restart(R"({"model": {"constants": {"rate": 16000, "weights": [1, -2]}}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("rate", kOnnxInt64, {})
                     .Input("x", kOnnxFloat, {"n", 2})
                     .Input("weights", kOnnxFloat, {""})
                     .Output("y", kOnnxFloat, {"n", 2})
                     .Output("doubled", kOnnxInt64, {})
                     .Node("Mul", {"x", "weights"}, {"y"})
                     .Node("Add", {"rate", "rate"}, {"doubled"})),
            VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_get_num_inputs(desc), 3u);
  EXPECT_EQ(NameOfInput(0), "x");
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {3, 4}, 2);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 2, 2), (std::vector<float>{3, -8}));
  EXPECT_EQ(out.Take<float>(1, 1, 1), std::vector<float>{32000});
}

TEST_F(HostShapes, ConstantsMayHaveNoElements) {
  Restart(R"({"model": {"constants": {"none": []}}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {2})
                     .Input("none", kOnnxFloat, {0})
                     .Output("y", kOnnxFloat, {2})
                     .Node("Concat", {"x", "none"}, {"y"}, {IntAttribute("axis", 0)})),
            VORN_SUCCESS);
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {3, 4}, 2);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 2, 2), (std::vector<float>{3, 4}));
}

/// x behind the columns of an input that has none.
OnnxWriter JoinedWithNothing(const std::vector<OnnxDim>& dimsOfNothing) {
  return OnnxWriter()
      .Input("nothing", kOnnxFloat, dimsOfNothing)
      .Input("x", kOnnxFloat, {2, 3})
      .Output("y", kOnnxFloat, {2, 3})
      .Node("Concat", {"nothing", "x"}, {"y"}, {IntAttribute("axis", 1)});
}

TEST_F(HostShapes, OfInputsWithoutElementsAreLeftOut) {
  EXPECT_THAT(LogOf([&] {
                ASSERT_EQ(Load(JoinedWithNothing({2, 0})), VORN_SUCCESS);
              }),
              HasSubstr("input 'nothing' has no elements and is left out"));
  ASSERT_EQ(vorn_mdl_get_num_inputs(desc), 3u);
  EXPECT_EQ(NameOfInput(0), "x");
  Blocks in = Inputs(2);
  Blocks out = Outputs(2);
  const std::vector<float> x = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  in.Put<float>(0, x, 3);
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 2), VORN_SUCCESS);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 12, 3), x);
}

TEST_F(HostShapes, OfInputsMayBeGivenNoElements) {
  Restart(R"({"model": {"inputDims": {"nothing": [-1, 0]}}})");
  ASSERT_EQ(Load(JoinedWithNothing({2, "columns"})), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_get_num_inputs(desc), 3u);
  Blocks in = Inputs();
  Blocks out = Outputs();
  const std::vector<float> x = {1, 2, 3, 4, 5, 6};
  in.Put<float>(0, x, 3);
  ASSERT_EQ(Execute(in, out), VORN_SUCCESS);
  EXPECT_EQ(out.Take<float>(0, 6, 3), x);
}

TEST_F(HostShapes, ConstantsThatDoNotFitAreRefused) {
  const auto model = OnnxWriter()
                         .Input("x", kOnnxInt64, {2})
                         .Output("y", kOnnxInt64, {2})
                         .Node("Identity", {"x"}, {"y"});
  Restart(R"({"model": {"constants": {"x": [1, 2, 3]}}})");
  EXPECT_THAT(Refusal(model), HasSubstr("constant 'x' has 3 numbers"));
  Restart(R"({"model": {"constants": {"x": 0.5}}})");
  EXPECT_THAT(Refusal(model), HasSubstr("does not hold"));
  Restart(R"({"model": {"constants": {"z": 1}}})");
  EXPECT_THAT(Refusal(model), HasSubstr("names 'z'"));
}

TEST_F(HostShapes, ComeFromTheFileAndTheConfigurationGoesBeforeIt) {
  const auto model = [](const std::string& metadata) {
    return OnnxWriter()
        .Input("x", kOnnxFloat, {"a", "b"})
        .Output("y", kOnnxFloat, {"a", "b"})
        .Node("Relu", {"x"}, {"y"})
        .Metadata("author", "somebody")
        .Metadata("vorn", metadata);
  };
  ASSERT_EQ(Load(model(R"({"dims": {"a": 2, "b": 3}})")), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{2, 3}));
  Unload();
  EXPECT_THAT(Refusal(model("[")), HasSubstr("(in the model's metadata 'vorn')"));
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  for (const std::string& text : {deep, R"({"rpn": )" + deep + "}"}) {
    EXPECT_THAT(Refusal(model(text)),
                HasSubstr("more than 16 deep; no key takes a value like that (in the model's"));
  }
  Restart(R"({"dims": {"b": 7}})");
  ASSERT_EQ(Load(model(R"({"dims": {"a": 2, "b": 3}})")), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{2, 7}));
  Unload();
  Restart(R"({"model": {"dims": {"b": 8}}})");
  ASSERT_EQ(Load(model(R"({"dims": {"a": 2, "b": 3}})")), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{1, 8}));
}

TEST_F(HostShapes, KeysOfAnotherNetTypeAreRefused) {
  for (const char* key : {R"("states": {"x": "at"})", R"("maxFrames": 3)", R"("frames": "x")",
                          R"("flags": "x")", R"("length": "x")", R"("timeAxis": 1)",
                          R"("context": 1)", R"("sequence": "steps")", R"("rpn": "x")"}) {
    Restart(std::string(R"({"model": {)") + key + "}}");
    EXPECT_THAT(Refusal(Positions()), HasSubstr("'netType' is not")) << key;
  }
}

// ---- What the log says of them
// -------------------------------------------------------------------

OnnxWriter Picture() {
  return OnnxWriter()
      .Input("image", kOnnxFloat, {"batch", 3, "height", ""})
      .Input("scale", kOnnxFloat, {1})
      .Output("y", kOnnxFloat, {"batch", 3, "height", ""})
      .Node("Mul", {"image", "scale"}, {"y"});
}

TEST_F(HostShapes, ThatNobodyGaveAreRefusedByName) {
  EXPECT_THAT(Refusal(Picture()),
              HasSubstr("input 'image' leaves sizes open in [batch, 3, height, ?]; give them, also "
                        "where 1 is meant, with 'inputDims' {\"image\": [-1, 3, N, N]}"));
  Restart(R"({"dims": {"height": 2}})");
  EXPECT_THAT(Refusal(Picture()),
              HasSubstr("open in [batch, 3, 2, ?]; give them, also where 1 is meant, with "
                        "'inputDims' {\"image\": [-1, 3, 2, N]}"));
  Restart(R"({"dims": {"height": 2}, "model": {"inputDims": {"image": [-1, -1, -1, 5]}}})");
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Load(Picture()), VORN_SUCCESS); }), "");
  EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{1, 3, 2, 5}));
}

TEST_F(HostShapes, OfOneAreTakenWhereTheyAreGiven) {
  Restart(R"({"dims": {"height": 1}, "model": {"inputDims": {"image": [-1, 3, -1, 1]}}})");
  ASSERT_EQ(Load(Picture()), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfInput(0), (std::vector<int64_t>{1, 3, 1, 1}));
}

TEST_F(HostShapes, OfConstantsHaveToBeKnownBehindTheFirst) {
  const auto model = [](const OnnxDim& rows, const OnnxDim& columns) {
    return OnnxWriter()
        .Input("x", kOnnxFloat, {1, 2})
        .Input("c", kOnnxFloat, {rows, columns})
        .Output("y", kOnnxFloat, {1, 2})
        .Node("Add", {"x", "c"}, {"y"});
  };
  Restart(R"({"model": {"constants": {"c": 7}}})");
  EXPECT_THAT(Refusal(model(1, "width")),
              HasSubstr("input 'c' leaves sizes open in [1, width]; give them, also where 1 is "
                        "meant, with 'dims' {\"width\": N} or 'inputDims' {\"c\": [1, N]}"));
  EXPECT_EQ(Load(model("n", 2)), VORN_SUCCESS);
}

TEST_F(HostShapes, OfABatchAloneAreNothingToTell) {
  EXPECT_EQ(LogOf([&] {
              EXPECT_EQ(Load(OnnxWriter()
                                 .Input("x", kOnnxFloat, {"n", 2})
                                 .Output("y", kOnnxFloat, {"n", 2})
                                 .Node("Relu", {"x"}, {"y"})),
                        VORN_SUCCESS);
            }),
            "");
}

TEST_F(HostShapes, ThatNobodyLeavesOpenAreTold) {
  Restart(R"({"dims": {"height": 2}, "model": {"dims": {"width": 320},
              "inputDims": {"image": [-1, 3, 2, 5]}}})");
  EXPECT_THAT(
      LogOf([&] { EXPECT_EQ(Load(Picture()), VORN_SUCCESS); }),
      HasSubstr("'dims' gives 'width' the size 320, but no input or output has it; the names are "
                "'batch', 'height'\n"));
}

TEST_F(HostShapes, ThatContradictTheModelAreShownBesideIt) {
  Restart(R"({"model": {"inputDims": {"image": [-1, 4, 2, 5]}}})");
  EXPECT_THAT(Refusal(Picture()),
              HasSubstr("'inputDims' gives 'image' the shape [?, 4, 2, 5], but the model declares "
                        "[batch, 3, height, ?]"));
}

TEST_F(HostShapes, OfAnUnknownInputBringUpTheKnownOnes) {
  Restart(R"({"model": {"inputDims": {"picture": [1]}}})");
  EXPECT_THAT(Refusal(Picture()),
              HasSubstr("'inputDims' names 'picture', but the model has no input "
                        "of that name; it has 'image', 'scale'"));
}

TEST_F(HostShapes, AnOutputThatIsNotAsDeclaredIsToBeGivenItsLargest) {
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {6})
                     .Input("shape", kOnnxInt64, {2})
                     .Output("y", kOnnxFloat, {2, 3})
                     .Node("Reshape", {"x", "shape"}, {"y"})),
            VORN_SUCCESS);
  Blocks in = Inputs();
  in.Put<int64_t>(1, {3, 2}, 2);
  const Blocks out = Outputs();
  const std::string log = LogOf(
      [&] { EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_ERROR_EXECUTION); });
  EXPECT_THAT(log, testing::HasSubstr("depends on the data, give the largest with 'outputDims'"));
}

}  // namespace
