// Networks with rpn inputs.
#include <cstring>

#include "model.h"

namespace conformance {
namespace {

class Detection : public ModelContract {
 protected:
  std::string Lacks() const override {
    return Path().empty() ? "--detection-model is not given" : "";
  }
  const std::string& Path() const override { return Given().detectionModel; }

  size_t FirstRpn() {
    Require(model->DataInputCount() > Given().rpnInputs,
            "vorn_mdl_get_num_inputs: no data input before the rpn inputs");
    return model->DataInputCount() - Given().rpnInputs;
  }

  /// All thresholds alike.
  void SetThresholds(Dataset& in, float threshold) {
    for (size_t i = FirstRpn(); i < model->DataInputCount(); ++i) {
      const Tensor& tensor = model->inputs()[i];
      Bytes dense(tensor.Rows() * tensor.RowBytes());
      for (size_t at = 0; at < dense.size(); at += sizeof threshold) {
        std::memcpy(&dense[at], &threshold, sizeof threshold);
      }
      PutRows(in.Content(i), tensor, dense);
    }
  }
};

CONTRACT(Detection, ModelsSaySo) {
  vorn_net_type type = 77;
  EXPECT_EQ(vorn_ext_get_mdl_net_type(model->Id(), &type), VORN_SUCCESS);
  EXPECT_EQ(type, VORN_NET_DETECTION) << "vorn_ext_get_mdl_net_type";
}

CONTRACT(Detection, RpnInputsStandBehindTheDataInputs) {
  for (size_t i = FirstRpn(); i < model->DataInputCount(); ++i) {
    const Tensor& tensor = model->inputs()[i];
    EXPECT_EQ(tensor.type, vorn_data_type{VORN_FLOAT32})
        << "vorn_mdl_get_input_data_type of rpn input " << i;
    ASSERT_EQ(tensor.dims.size(), 2u) << "vorn_mdl_get_input_dims of rpn input " << i;
    const bool isSingle = tensor.dims[0] == 1 && tensor.dims[1] == 4;
    EXPECT_TRUE(isSingle || tensor.dims[0] == 4) << "vorn_mdl_get_input_dims of rpn input " << i;
  }
}

CONTRACT(Detection, GivesTheSameAgain) {
  Dataset in = model->Inputs(1);
  SetThresholds(in, 0.5F);
  const auto expected = model->Execute(in);
  for (int round = 0; round < 3; ++round) {
    model->ExpectSame(expected, model->Execute(in), 0, "of a detection model, executed again");
  }
}

CONTRACT(Detection, FollowsItsThresholds) {
  Dataset in = model->Inputs(1);
  SetThresholds(in, 0.125F);
  const auto low = model->Execute(in);
  SetThresholds(in, 0.875F);
  EXPECT_TRUE(model->Execute(in) != low)
      << "vorn_mdl_execute gave the same for thresholds of 0.125 and 0.875";
}

CONTRACT(Detection, ThresholdsServeTheWholeBatch) {
  const uint64_t batch = Given().batch;
  if (batch == 1) LeaveOut("--batch is 1");
  Dataset in = model->Inputs(1, batch);
  SetThresholds(in, 0.5F);
  Require(vorn_mdl_set_dynamic_batch_size(model->Id(), in.Handle(), 0, batch) == VORN_SUCCESS,
          "vorn_mdl_set_dynamic_batch_size failed");
  for (uint32_t item = 0; item < batch; ++item) {
    Dataset alone = model->Inputs(1 + item);
    SetThresholds(alone, 0.5F);
    model->ExpectSame(model->Execute(alone), model->Execute(in, item, batch), Given().tolerance,
                      "item " + std::to_string(item) + " of a batch under the same thresholds");
  }
}

}  // namespace
}  // namespace conformance
