// Several batch items in one execution.
#include "model.h"

namespace conformance {
namespace {

/// A batch of 1, which every model takes.
class Batch : public ModelContract {
 protected:
  vorn_status SetBatch(const Dataset& in, uint64_t batch) {
    return vorn_mdl_set_dynamic_batch_size(model->Id(), in.Handle(), 0, batch);
  }
};

CONTRACT(Batch, OfOneChangesNothing) {
  const auto expected = model->Execute(model->Inputs(1));
  const Dataset in = model->Inputs(1);
  Require(SetBatch(in, 1) == VORN_SUCCESS, "vorn_mdl_set_dynamic_batch_size to 1 failed");
  model->ExpectSame(expected, model->Execute(in), 0, "with a batch of 1 said");
}

CONTRACT(Batch, CanBeSaidBeforeThereAreBuffers) {
  Dataset in;
  Require(SetBatch(in, 1) == VORN_SUCCESS, "vorn_mdl_set_dynamic_batch_size to 1 failed");
  for (const Tensor& tensor : model->inputs()) in.Add(tensor.size, tensor.stride, std::byte{0});
  model->Execute(in);
}

CONTRACT(Batch, RefusesWhatMeansNothing) {
  Dataset in = model->Inputs(1);
  EXPECT_NE(vorn_mdl_set_dynamic_batch_size(model->Id(), in.Handle(), 0, 0), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_set_dynamic_batch_size(model->Id(), in.Handle(), 1, 1), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_set_dynamic_batch_size(model->Id(), nullptr, 0, 1), VORN_SUCCESS);
  model->Execute(in);
}

CONTRACT(Batch, RefusesMoreThanItsBlocksHold) {
  Dataset in;
  for (const Tensor& tensor : model->inputs()) in.Add(tensor.size, tensor.stride, std::byte{0}, 0);
  const uint64_t size = model->inputs()[0].size;
  // The last ones are so large that the bytes of a batch are few again in 64 bits.
  for (const uint64_t most : {uint64_t{2}, UINT64_MAX, UINT64_MAX / size + 1, uint64_t{1} << 63}) {
    Dataset out = model->Outputs();
    const bool isTaken = SetBatch(in, most) == VORN_SUCCESS &&
                         vorn_mdl_execute(model->Id(), in.Handle(), out.Handle()) == VORN_SUCCESS;
    EXPECT_FALSE(isTaken) << "vorn_mdl_execute with a batch of " << most << " over blocks of 1";
    out.CheckGuards();
  }
  Require(SetBatch(in, 1) == VORN_SUCCESS, "vorn_mdl_set_dynamic_batch_size to 1 failed");
  model->Execute(in);
}

/// The batch of `--batch`.
class Batches : public Batch {
 protected:
  std::string Lacks() const override {
    const std::string lacks = Batch::Lacks();
    return lacks.empty() && Given().batch == 1 ? "--batch is 1" : lacks;
  }

  /// Inputs of a batch, item b with the values of `seed` + b.
  Dataset BatchOf(uint32_t seed, std::byte padding = std::byte{0x5A}) {
    Dataset in = model->Inputs(seed, batch, padding);
    Require(SetBatch(in, batch) == VORN_SUCCESS,
            "vorn_mdl_set_dynamic_batch_size to " + std::to_string(batch) + " failed");
    return in;
  }

  const uint64_t batch = Given().batch;
};

CONTRACT(Batches, GiveEachItemWhatItGivesAlone) {
  const Dataset in = BatchOf(1);
  for (uint32_t item = 0; item < batch; ++item) {
    model->ExpectSame(model->Execute(model->Inputs(1 + item)), model->Execute(in, item, batch),
                      Given().tolerance, "item " + std::to_string(item) + " of a batch");
  }
}

CONTRACT(Batches, KeepTheirItemsApart) {
  Dataset in = BatchOf(1);
  std::vector<std::vector<Bytes>> before;
  for (uint64_t item = 0; item < batch; ++item) before.push_back(model->Execute(in, item, batch));
  model->FillItem(in, batch - 1, 99);
  for (uint64_t item = 0; item + 1 < batch; ++item) {
    model->ExpectSame(before[item], model->Execute(in, item, batch), 0,
                      "after another item of the batch changed");
  }
}

CONTRACT(Batches, GiveTheSameAgain) {
  const Dataset in = BatchOf(1);
  const auto expected = model->Execute(in, batch - 1, batch);
  for (int round = 0; round < 3; ++round) {
    model->ExpectSame(expected, model->Execute(in, batch - 1, batch), 0, "executed again");
  }
}

CONTRACT(Batches, DoNotReadPadding) {
  const auto expected = model->Execute(BatchOf(1, std::byte{0}), batch - 1, batch);
  model->ExpectSame(expected, model->Execute(BatchOf(1, std::byte{0xFF}), batch - 1, batch), 0,
                    "with other bytes between the rows of its inputs");
}

CONTRACT(Batches, BelongToTheirDataset) {
  const auto alone = model->Execute(model->Inputs(7));
  const Dataset many = BatchOf(1);
  const auto last = model->Execute(many, batch - 1, batch);
  const Dataset one = model->Inputs(7);
  model->ExpectSame(alone, model->Execute(one), Given().tolerance,
                    "of a dataset without a batch beside one with a batch");
  model->ExpectSame(last, model->Execute(many, batch - 1, batch), Given().tolerance,
                    "of a dataset with a batch beside one without");
}

CONTRACT(Batches, CanBeChangedBackToOne) {
  const Dataset in = BatchOf(1);
  const auto first = model->Execute(in, 0, batch);
  Require(SetBatch(in, 1) == VORN_SUCCESS, "vorn_mdl_set_dynamic_batch_size to 1 failed");
  model->ExpectSame(first, model->Execute(in), Given().tolerance, "with the batch changed to 1");
}

CONTRACT(Batches, RefuseInputsThatHoldFewerItems) {
  Dataset in;
  for (size_t i = 0; i < model->inputs().size(); ++i) {
    const Tensor& tensor = model->inputs()[i];
    const uint64_t items = i == 0 ? batch - 1 : model->ItemsOf(i, batch);
    in.Add(items * tensor.size, tensor.stride, std::byte{0}, 0);
  }
  Dataset out = model->Outputs(batch);
  // Where it is noticed is the runtime's business.
  const bool isTaken = SetBatch(in, batch) == VORN_SUCCESS &&
                       vorn_mdl_execute(model->Id(), in.Handle(), out.Handle()) == VORN_SUCCESS;
  EXPECT_FALSE(isTaken) << "vorn_mdl_execute with an input of " << batch - 1
                        << " items in a batch of " << batch;
}

}  // namespace
}  // namespace conformance
