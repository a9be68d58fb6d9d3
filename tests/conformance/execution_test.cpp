// Executing a model: what it reads, what it writes, and what it refuses.
#include <algorithm>

#include "model.h"

namespace conformance {
namespace {

constexpr std::byte kUntouched{0xEE};

class Execution : public ModelContract {
 protected:
  vorn_status Execute(const Dataset& in, Dataset& out) {
    return vorn_mdl_execute(model->Id(), in.Handle(), out.Handle());
  }

  /// Expects that an execution fails, and that the outputs stay as they were.
  void ExpectRefused(vorn_mdl_dataset* in, Dataset& out, const std::string& what) {
    EXPECT_NE(vorn_mdl_execute(model->Id(), in, out.Handle()), VORN_SUCCESS) << what;
    for (size_t i = 0; i < out.Count(); ++i) {
      EXPECT_TRUE(std::ranges::all_of(out.Content(i), [](std::byte b) { return b == kUntouched; }))
          << "vorn_mdl_execute wrote output " << i << " after a failure: " << what;
    }
  }
};

CONTRACT(Execution, WritesEveryRow) {
  const Dataset in = model->Inputs(1);
  Dataset ones = model->Outputs(1, std::byte{0xFF});
  Dataset zeros = model->Outputs(1, std::byte{0});
  Require(Execute(in, ones) == VORN_SUCCESS, "vorn_mdl_execute failed");
  Require(Execute(in, zeros) == VORN_SUCCESS, "vorn_mdl_execute failed");
  model->ExpectSame(model->Results(ones), model->Results(zeros), 0,
                    "over blocks of ones and of zeros");
}

CONTRACT(Execution, KeepsToItsBlocks) {
  const Dataset in = model->Inputs(1);
  Dataset out = model->Outputs();
  Require(Execute(in, out) == VORN_SUCCESS, "vorn_mdl_execute failed");
  in.CheckGuards();
  out.CheckGuards();
}

CONTRACT(Execution, GivesTheSameAgain) {
  const Dataset in = model->Inputs(1);
  Dataset out = model->Outputs();
  Require(Execute(in, out) == VORN_SUCCESS, "vorn_mdl_execute failed");
  const auto expected = model->Results(out);
  for (int round = 0; round < 21; ++round) {
    Require(Execute(in, out) == VORN_SUCCESS, "vorn_mdl_execute failed");
    model->ExpectSame(expected, model->Results(out), 0, "executed again");
  }
}

CONTRACT(Execution, FollowsItsInputs) {
  Dataset in = model->Inputs(1);
  const auto first = model->Execute(in);
  bool isOther = false;
  for (uint32_t seed = 2; seed < 10 && !isOther; ++seed) {
    model->FillItem(in, 0, seed);
    isOther = model->Execute(in) != first;
  }
  EXPECT_TRUE(isOther) << "vorn_mdl_execute gave the same for 9 different inputs; "
                          "if that is the model's nature, give another one";
}

CONTRACT(Execution, SeesWhatIsNewInTheSameBlocks) {
  Dataset in = model->Inputs(1);
  const auto first = model->Execute(in);
  for (const uint32_t seed : {2u, 3u}) {
    model->FillItem(in, 0, seed);
    model->ExpectSame(model->Execute(model->Inputs(seed)), model->Execute(in), 0,
                      "over blocks with new values");
  }
  model->FillItem(in, 0, 1);
  model->ExpectSame(first, model->Execute(in), 0, "over blocks with the first values again");
}

CONTRACT(Execution, ServesSeveralInputsInTurn) {
  // What is expected comes from blocks that stay the same.
  Dataset in = model->Inputs(1);
  std::vector<Bytes> expected[2];
  for (uint32_t turn = 0; turn < 2; ++turn) {
    model->FillItem(in, 0, 1 + turn);
    expected[turn] = model->Execute(in);
  }
  const Dataset ins[] = {model->Inputs(1), model->Inputs(2)};
  Dataset out = model->Outputs();
  for (const size_t turn : {0, 1, 0, 1, 1, 0}) {
    Require(Execute(ins[turn], out) == VORN_SUCCESS, "vorn_mdl_execute failed");
    model->ExpectSame(expected[turn], model->Results(out), 0, "in turn with other inputs");
  }
}

CONTRACT(Execution, ServesSeveralOutputsInTurn) {
  const Dataset in = model->Inputs(1);
  const auto expected = model->Execute(in);
  Dataset outs[] = {model->Outputs(), model->Outputs()};
  for (const size_t turn : {0, 1, 0, 1, 1, 0}) {
    for (size_t i = 0; i < outs[turn].Count(); ++i) {
      std::ranges::fill(outs[turn].Content(i), kUntouched);
    }
    Require(Execute(in, outs[turn]) == VORN_SUCCESS, "vorn_mdl_execute failed");
    model->ExpectSame(expected, model->Results(outs[turn]), 0, "in turn with other outputs");
  }
}

CONTRACT(Execution, DoesNotReadPadding) {
  bool hasPadding = false;
  for (size_t i = 0; i < model->DataInputCount(); ++i) {
    hasPadding |= model->inputs()[i].HasPadding();
  }
  if (!hasPadding) LeaveOut("no input of the model has padding");
  const auto expected = model->Execute(model->Inputs(1, 1, std::byte{0}));
  for (const int fill : {0x3F, 0x7F, 0xFF}) {
    model->ExpectSame(expected, model->Execute(model->Inputs(1, 1, static_cast<std::byte>(fill))),
                      0, "with other bytes between the rows of its inputs");
  }
}

CONTRACT(Execution, OnlyReadsDataInputs) {
  const Dataset in = model->Inputs(1);
  const Dataset same = model->Inputs(1);
  model->Execute(in);
  for (size_t i = 0; i < model->DataInputCount(); ++i) {
    EXPECT_TRUE(std::ranges::equal(in.Content(i), same.Content(i)))
        << "vorn_mdl_execute changed input " << i;
  }
}

CONTRACT(Execution, RefusesNull) {
  const Dataset in = model->Inputs(1);
  Dataset out = model->Outputs();
  ExpectRefused(nullptr, out, "without inputs");
  EXPECT_NE(vorn_mdl_execute(model->Id(), in.Handle(), nullptr), VORN_SUCCESS);
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute";
}

CONTRACT(Execution, RefusesMoreOrFewerInputs) {
  Dataset in;
  Dataset out = model->Outputs();
  for (const Tensor& tensor : model->inputs()) {
    ExpectRefused(in.Handle(), out, std::to_string(in.Count()) + " input buffers");
    in.Add(tensor.size, tensor.stride, std::byte{0});
  }
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute, with all input buffers";
  Dataset untouched = model->Outputs();
  in.Add(64, 64, std::byte{0});
  ExpectRefused(in.Handle(), untouched, "an input buffer more than the model has inputs");
}

CONTRACT(Execution, RefusesMoreOrFewerOutputs) {
  const Dataset in = model->Inputs(1);
  Dataset out;
  for (const Tensor& tensor : model->outputs()) {
    ExpectRefused(in.Handle(), out, std::to_string(out.Count()) + " output buffers");
    out.Add(tensor.size, tensor.stride, kUntouched);
  }
  out.Add(64, 64, kUntouched);
  ExpectRefused(in.Handle(), out, "an output buffer more than the model has outputs");
}

CONTRACT(Execution, RefusesInputsThatAreTooSmall) {
  Dataset out = model->Outputs();
  for (size_t small = 0; small < model->inputs().size(); ++small) {
    Dataset in;
    for (size_t i = 0; i < model->inputs().size(); ++i) {
      const Tensor& tensor = model->inputs()[i];
      in.Add(tensor.size - (i == small ? 1 : 0), tensor.stride, std::byte{0}, 0);
    }
    ExpectRefused(in.Handle(), out, "input " + std::to_string(small) + " is a byte too small");
  }
  EXPECT_EQ(Execute(model->Inputs(1), out), VORN_SUCCESS) << "vorn_mdl_execute, after refusals";
}

CONTRACT(Execution, RefusesOutputsThatAreTooSmall) {
  const Dataset in = model->Inputs(1);
  for (size_t small = 0; small < model->outputs().size(); ++small) {
    Dataset out;
    for (size_t i = 0; i < model->outputs().size(); ++i) {
      const Tensor& tensor = model->outputs()[i];
      out.Add(tensor.size - (i == small ? 1 : 0), tensor.stride, kUntouched, 0);
    }
    ExpectRefused(in.Handle(), out, "output " + std::to_string(small) + " is a byte too small");
  }
  Dataset out = model->Outputs();
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute, after refusals";
}

}  // namespace
}  // namespace conformance
