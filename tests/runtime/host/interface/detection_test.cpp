// Networks that take their thresholds from an input of their own.
#include <gmock/gmock.h>

#include "runtime/host/host_fixture.h"

namespace {

using testing::HasSubstr;

/// Boxes in, the indices of those that are kept out: thresholds are [score, overlap, unused, most].
/// The input of the thresholds is declared first.
OnnxWriter Suppression(const OnnxDim& rows = 1, const OnnxDim& columns = 4,
                       OnnxType type = kOnnxFloat) {
  const auto cut = [](OnnxWriter& model, const std::string& name, int64_t at) {
    model.Constant<int64_t>(name + "_from", kOnnxInt64, {1}, {at})
        .Constant<int64_t>(name + "_to", kOnnxInt64, {1}, {at + 1})
        .Node("Slice", {"row", name + "_from", name + "_to"}, {name});
  };
  OnnxWriter model;
  model.Input("thresholds", type, {rows, columns})
      .Input("boxes", kOnnxFloat, {1, 3, 4})
      .Input("scores", kOnnxFloat, {1, 1, 3})
      .Output("kept", kOnnxInt64, {"count", 3})
      .Constant<int64_t>("flat", kOnnxInt64, {1}, {-1})
      .Constant<int64_t>("most", kOnnxInt64, {1}, {10})
      .Node("Reshape", {"thresholds", "flat"}, {"row"});
  cut(model, "score", 0);
  cut(model, "overlap", 1);
  return model.Node("NonMaxSuppression", {"boxes", "scores", "most", "overlap", "score"}, {"kept"});
}

constexpr const char* kDetection = R"({"model": {"netType": "detection", "rpn": "thresholds",
                                                 "outputDims": {"kept": [3, 3]}}})";

class HostDetection : public HostFixture {
 protected:
  /// The boxes that are kept, by number; the first two overlap by half.
  std::vector<float> Kept(float score, float overlap) {
    Blocks in = Inputs();
    Blocks out = Outputs();
    in.Put<float>(0, {0, 0, 2, 2, 0, 0.5F, 2, 2.5F, 10, 10, 12, 12}, 4);
    in.Put<float>(1, {0.9F, 0.8F, 0.3F}, 3);
    in.Put<float>(2, {score, overlap, 0, 0}, 4);
    EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    const std::vector<float> rows = out.Take<float>(0, 9, 3);
    return {rows[2], rows[5], rows[8]};
  }
};

TEST_F(HostDetection, ThresholdsComeBehindTheOtherDataInputs) {
  Restart(kDetection);
  ASSERT_EQ(Load(Suppression()), VORN_SUCCESS);
  vorn_net_type type = 7;
  EXPECT_EQ(vorn_ext_get_mdl_net_type(modelId, &type), VORN_SUCCESS);
  EXPECT_EQ(type, VORN_NET_DETECTION);
  ASSERT_EQ(vorn_mdl_get_num_inputs(desc), 5u);
  EXPECT_EQ(NameOfInput(0), "boxes");
  EXPECT_EQ(NameOfInput(1), "scores");
  EXPECT_EQ(NameOfInput(2), "thresholds");
  EXPECT_EQ(ShapeOfInput(2), (std::vector<int64_t>{1, 4}));
  EXPECT_EQ(NameOfInput(3), "task_buffer");
  Blocks in;
  EXPECT_EQ(vorn_mdl_set_total_t(modelId, in.dataset, 1), VORN_ERROR_UNSUPPORTED);
}

TEST_F(HostDetection, ThresholdsDecideWhatIsKept) {
  Restart(kDetection);
  ASSERT_EQ(Load(Suppression()), VORN_SUCCESS);
  EXPECT_EQ(Kept(0.1F, 0.9F), (std::vector<float>{0, 1, 2}));
  EXPECT_EQ(Kept(0.1F, 0.5F), (std::vector<float>{0, 2, 0}));
  EXPECT_EQ(Kept(0.5F, 0.9F), (std::vector<float>{0, 1, 0}));
  EXPECT_EQ(Kept(0.95F, 0.9F), (std::vector<float>{0, 0, 0}));
}

TEST_F(HostDetection, ThresholdsServeTheWholeBatch) {
  Restart(R"({"model": {"netType": "detection", "rpn": "limit"}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("limit", kOnnxFloat, {1, 4})
                     .Input("x", kOnnxFloat, {"n", 4})
                     .Output("y", kOnnxFloat, {"n", 4})
                     .Node("Max", {"x", "limit"}, {"y"})),
            VORN_SUCCESS);
  Blocks in;
  in.Add(48, 48, 16).Add(16, 16, 16);  // three items, one row of thresholds
  for (const uint64_t i : {2, 3}) {
    const uint64_t bytes = 3 * vorn_mdl_get_input_size_by_index(desc, i);
    in.Add(bytes, bytes, vorn_mdl_get_input_default_stride(desc, i));
  }
  Blocks out = Outputs(3);
  in.Put<float>(0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3}, 4).Put<float>(1, {5, 5, 5, 5}, 4);
  ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 3), VORN_SUCCESS);
  for (int repeat = 0; repeat < 2; ++repeat) {
    ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    EXPECT_EQ(out.Take<float>(0, 12, 4), (std::vector<float>{5, 5, 5, 5, 5, 6, 7, 8, 9, 5, 5, 5}));
  }
}

TEST_F(HostDetection, ThresholdsOfSeveralClassesAreRowsOfThem) {
  Restart(R"({"model": {"netType": "detection", "rpn": "t", "dims": {"classes": 3}}})");
  const auto model = OnnxWriter()
                         .Input("t", kOnnxFloat, {4, "classes"})
                         .Input("x", kOnnxFloat, {1, 1})
                         .Output("y", kOnnxFloat, {4, "classes"})
                         .Node("Add", {"t", "x"}, {"y"});
  ASSERT_EQ(Load(model), VORN_SUCCESS);
  EXPECT_EQ(ShapeOfInput(1), (std::vector<int64_t>{4, 3}));
  Unload();
  Restart(R"({"model": {"netType": "detection", "rpn": "t"}})");
  EXPECT_THAT(Refusal(model), HasSubstr("'dims' {\"classes\": N} or 'inputDims' {\"t\": [4, N]}"));
}

TEST_F(HostDetection, ThresholdsHaveNoBatch) {
  Restart(R"({"model": {"netType": "detection", "rpn": "t"}})");
  EXPECT_THAT(Refusal(OnnxWriter()
                          .Input("t", kOnnxFloat, {"", 4})
                          .Input("x", kOnnxFloat, {1, 1})
                          .Output("y", kOnnxFloat, {"", 4})
                          .Node("Add", {"t", "x"}, {"y"})),
              HasSubstr("input 't' leaves sizes open in [?, 4]"));
}

TEST_F(HostDetection, SettingsThatDoNotFitAreRefused) {
  Restart(R"({"model": {"netType": "detection"}})");
  EXPECT_THAT(Refusal(Suppression()), HasSubstr("with 'rpn'"));
  Restart(R"({"model": {"netType": "detection", "rpn": "limits"}})");
  EXPECT_THAT(Refusal(Suppression()), HasSubstr("names 'limits'"));
  Restart(R"({"model": {"netType": "detection", "rpn": ["thresholds", "thresholds"]}})");
  EXPECT_THAT(Refusal(Suppression()), HasSubstr("another use already"));
  Restart(R"({"model": {"netType": "detection", "rpn": "scores"}})");
  EXPECT_THAT(Refusal(Suppression()), HasSubstr("[1, 4] or [4, classes]"));
  Restart(kDetection);
  EXPECT_THAT(Refusal(Suppression(2, 4)), HasSubstr("[1, 4] or [4, classes]"));
}

}  // namespace
