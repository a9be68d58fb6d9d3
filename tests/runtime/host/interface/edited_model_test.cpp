// Models that the configuration has changed: cut short, or with inner tensors as outputs.
#include <gmock/gmock.h>

#include <algorithm>

#include "runtime/host/host_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// y = -relu(x + w), with the tensors in between "sum" and "relu".
OnnxWriter Chain() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {"n", 3})
      .Output("y", kOnnxFloat, {"n", 3})
      .Constant<float>("w", kOnnxFloat, {3}, {1, -2, 3})
      .Node("Add", {"x", "w"}, {"sum"})
      .Node("Relu", {"sum"}, {"relu"})
      .Node("Neg", {"relu"}, {"y"});
}

class HostEditedModel : public HostFixture {
 protected:
  void Configure(const std::string& model) {
    Restart(R"({"rowAlignment": 1, "model": )" + model + "}");
  }

  std::vector<std::string> OutputNames() const {
    std::vector<std::string> names;
    for (uint64_t i = 0; i < vorn_mdl_get_num_outputs(desc); ++i) {
      vorn_mdl_io_dims dims = {};
      EXPECT_EQ(vorn_mdl_get_output_dims(desc, i, &dims), VORN_SUCCESS);
      names.emplace_back(dims.name);
    }
    return names;
  }

  /// The dense values of an output, after one execution over `x`.
  std::vector<float> Output(uint64_t index, const std::vector<float>& x, uint64_t row, size_t count,
                            uint64_t outputRow, uint64_t batch = 1) {
    Blocks in = Inputs(batch);
    Blocks out = Outputs(batch);
    in.Put(0, x, row);
    if (batch != 1) {
      EXPECT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, batch), VORN_SUCCESS);
    }
    EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    return out.Take<float>(index, count, outputRow);
  }
};

TEST_F(HostEditedModel, GivesInnerTensorsBehindItsOutputs) {
  Configure(R"({"expose": ["relu", "sum"]})");
  ASSERT_EQ(Load(Chain()), VORN_SUCCESS);
  EXPECT_THAT(OutputNames(), ElementsAre("y", "sum", "relu"));
  EXPECT_THAT(Output(0, {1, 1, -5}, 3, 3, 3), ElementsAre(-2, 0, 0));
  EXPECT_THAT(Output(1, {1, 1, -5}, 3, 3, 3), ElementsAre(2, -1, -2));
  EXPECT_THAT(Output(2, {1, 1, -5}, 3, 3, 3), ElementsAre(2, 0, 0));
}

TEST_F(HostEditedModel, GivesEveryInnerTensorThatDependsOnAnInput) {
  Configure(R"({"expose": "all"})");
  OnnxWriter model = Chain();
  model.Node("Shape", {"x"}, {"shape"}).Node("Add", {"w", "w"}, {"constant"});
  model.Node("SequenceConstruct", {"sum"}, {"sequence"}).Node("NonZero", {"sum"}, {"places"});
  vorn_status status = VORN_SUCCESS;
  const std::string log = LogOf([&] { status = Load(model); });
  ASSERT_EQ(status, VORN_SUCCESS) << log;
  EXPECT_THAT(OutputNames(), ElementsAre("y", "sum", "relu"));
  EXPECT_EQ(log,
            "vorn: vorn_mdl_load_from_mem: exposed 2 tensors and left out 2: 'sequence' is a "
            "sequence; 'places' may have another shape for other data; name it in a list, with "
            "'outputDims'\n");
}

TEST_F(HostEditedModel, LeavesOutWhatWouldTakeATrialWhereATrialMayFail) {
  // Zeros are no shape of three elements, and the sum over all is a scalar, which looks like a
  // tensor of which nothing is known.
  Configure(R"({"expose": "all"})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {3})
                     .Input("shape", kOnnxInt64, {1})
                     .Output("y", kOnnxFloat, {3})
                     .Node("Neg", {"x"}, {"negative"})
                     .Node("ReduceSum", {"x"}, {"sum"}, {IntAttribute("keepdims", 0)})
                     .Node("Reshape", {"negative", "shape"}, {"reshaped"})
                     .Node("Add", {"reshaped", "sum"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_THAT(OutputNames(), ElementsAre("y", "negative"));
}

TEST_F(HostEditedModel, GivesATensorWithoutAShapeInItsLargestOne) {
  Configure(R"({"expose": "places", "outputDims": {"places": [2, 4]}})");
  OnnxWriter model = Chain();
  model.Node("NonZero", {"sum"}, {"at"}).Node("Cast", {"at"}, {"places"}, {IntAttribute("to", 1)});
  ASSERT_EQ(Load(model), VORN_SUCCESS);
  EXPECT_THAT(OutputNames(), ElementsAre("y", "places"));
  EXPECT_THAT(Output(1, {-1, 1, 1}, 3, 8, 4), ElementsAre(0, 0, 0, 0, 1, 2, 0, 0));
}

TEST_F(HostEditedModel, RefusesASequenceThatIsNamed) {
  Configure(R"({"expose": "sequence"})");
  OnnxWriter model = Chain();
  EXPECT_THAT(Refusal(model.Node("SequenceConstruct", {"sum"}, {"sequence"})),
              HasSubstr("output 'sequence' is a sequence; only dense tensors are served"));
}

TEST_F(HostEditedModel, GivesItemsOfABatch) {
  Configure(R"({"expose": "all"})");
  ASSERT_EQ(Load(Chain()), VORN_SUCCESS);
  EXPECT_THAT(Output(1, {1, 1, -5, 0, 0, 0}, 3, 6, 3, 2), ElementsAre(2, -1, -2, 1, -2, 3));
}

TEST_F(HostEditedModel, EndsWhereItIsCut) {
  Configure(R"({"until": "sum"})");
  OnnxWriter model = Chain();
  model.Input("unused", kOnnxFloat, {1}).Node("Add", {"y", "unused"}, {"more"});
  const std::string log = LogOf([&] { EXPECT_EQ(Load(model), VORN_SUCCESS); });
  EXPECT_EQ(log, "vorn: vorn_mdl_load_from_mem: cut at 'sum': 1 of 4 nodes is left\n");
  EXPECT_THAT(OutputNames(), ElementsAre("sum"));
  EXPECT_EQ(NameOfInput(1), "unused");
  EXPECT_THAT(Output(0, {1, 1, -5}, 3, 3, 3), ElementsAre(2, -1, -2));
}

TEST_F(HostEditedModel, NeedsNoSizeOfAnOutputThatIsCutAway) {
  Configure(R"({"until": "sum", "outputDims": {"y": [7, 3]}})");
  EXPECT_EQ(Load(Chain()), VORN_SUCCESS);
}

TEST_F(HostEditedModel, DoesWhatTheFileSaysOfItself) {
  OnnxWriter model = Chain();
  ASSERT_EQ(Load(model.Metadata("vorn", R"({"expose": "all"})")), VORN_SUCCESS);
  EXPECT_THAT(OutputNames(), ElementsAre("y", "sum", "relu"));
  Unload();
  Configure(R"({"expose": []})");
  ASSERT_EQ(Load(model), VORN_SUCCESS);
  EXPECT_THAT(OutputNames(), ElementsAre("y"));
}

TEST_F(HostEditedModel, GivesInnerTensorsOfEveryFrame) {
  Configure(R"({"netType": "recurrent", "sequence": "steps", "maxFrames": 3,
                "states": {"h": "hn"}, "expose": "sum"})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {1, 2})
                     .Input("h", kOnnxFloat, {1, 2})
                     .Output("y", kOnnxFloat, {1, 2})
                     .Output("hn", kOnnxFloat, {1, 2})
                     .Node("Add", {"x", "h"}, {"sum"})
                     .Node("Neg", {"sum"}, {"y"})
                     .Node("Identity", {"sum"}, {"hn"})),
            VORN_SUCCESS);
  EXPECT_THAT(OutputNames(), ElementsAre("y", "sum"));
  Blocks in = Inputs();
  Blocks out = Outputs();
  in.Put<float>(0, {1, 2, 3, 4, 5, 6}, 2).Put<uint8_t>(1, {0, 1, 1}, 3);
  ASSERT_EQ(vorn_mdl_set_total_t(modelId, in.dataset, 3), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
  EXPECT_THAT(out.Take<float>(1, 6, 2), ElementsAre(1, 2, 4, 6, 9, 12));
}

TEST_F(HostEditedModel, KeepsTheStatesOfACutModel) {
  Configure(R"({"netType": "recurrent", "sequence": "steps", "maxFrames": 3,
                "states": {"h": "hn"}, "until": "sum"})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {1, 2})
                     .Input("h", kOnnxFloat, {1, 2})
                     .Output("y", kOnnxFloat, {1, 2})
                     .Output("hn", kOnnxFloat, {1, 2})
                     .Node("Add", {"x", "h"}, {"sum"})
                     .Node("Neg", {"sum"}, {"y"})
                     .Node("Identity", {"sum"}, {"hn"})),
            VORN_SUCCESS);
  EXPECT_THAT(OutputNames(), ElementsAre("sum"));
}

TEST_F(HostEditedModel, GivesStatesThatAreAskedFor) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {R"("expose": "hn")", {"y", "hn"}},
      {R"("expose": "all")", {"y", "sum", "hn"}},
      {R"("until": "hn")", {"hn"}},
      {R"("until": ["hn", "sum"], "expose": "all")", {"hn", "sum"}},
  };
  for (const auto& [edit, names] : cases) {
    SCOPED_TRACE(edit);
    Configure(R"({"netType": "recurrent", "sequence": "steps", "maxFrames": 3,
                  "states": {"h": "hn"}, )" +
              std::string(edit) + "}");
    ASSERT_EQ(Load(OnnxWriter()
                       .Input("x", kOnnxFloat, {1, 2})
                       .Input("h", kOnnxFloat, {1, 2})
                       .Output("hn", kOnnxFloat, {1, 2})
                       .Output("y", kOnnxFloat, {1, 2})
                       .Node("Add", {"x", "h"}, {"sum"})
                       .Node("Neg", {"sum"}, {"y"})
                       .Node("Identity", {"sum"}, {"hn"})),
              VORN_SUCCESS);
    const std::vector<std::string> given = OutputNames();
    EXPECT_EQ(given, names);
    const auto place = static_cast<size_t>(std::ranges::find(given, "hn") - given.begin());
    Blocks in = Inputs();
    Blocks out = Outputs();
    in.Put<float>(0, {1, 2, 3, 4, 5, 6}, 2).Put<uint8_t>(1, {0, 1, 1}, 3);
    ASSERT_EQ(vorn_mdl_set_total_t(modelId, in.dataset, 3), VORN_SUCCESS);
    ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    EXPECT_THAT(out.Take<float>(place, 6, 2), ElementsAre(1, 2, 4, 6, 9, 12));
    Unload();
  }
}

TEST_F(HostEditedModel, RefusesWeightsInOtherFilesAsBefore) {
  Configure(R"({"expose": "all"})");
  EXPECT_THAT(Refusal(Chain().ExternalConstant("v", kOnnxFloat, {1}, "weights.bin")),
              HasSubstr("keeps weights in other files"));
}

TEST_F(HostEditedModel, RefusesAnImageThatIsNone) {
  Configure(R"({"expose": "all"})");
  EXPECT_NE(Load(std::string("hello, world")), VORN_SUCCESS);
}

}  // namespace
