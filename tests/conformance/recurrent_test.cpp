// Sequences of frames.
//
//     input 0   [T, frame..]   the frames; T is the most that a sequence may have
//     input 1   [.., F]       F >= T flags: 0 where a frame begins a sequence, 1 where it goes on
#include <algorithm>

#include "model.h"

namespace conformance {
namespace {

class Recurrent : public ModelContract {
 protected:
  std::string Lacks() const override {
    return Path().empty() ? "--recurrent-model is not given" : "";
  }
  const std::string& Path() const override { return Given().recurrentModel; }

  uint64_t MostFrames() {
    Require(model->DataInputCount() >= 2, "vorn_mdl_get_num_inputs: no frames and flags");
    return static_cast<uint64_t>(model->inputs()[0].dims[0]);
  }

  /// Frames of one sequence.
  Dataset Frames(uint32_t seed) {
    Dataset in = model->Inputs(seed);
    FillRowsWith(in.Content(1), model->inputs()[1], 1);
    const Tensor& flags = model->inputs()[1];
    std::fill_n(in.Content(1).begin(), flags.elementBytes, std::byte{0});
    return in;
  }

  /// Bytes from one frame of input 0 to the next; frames are rows, or elements of the only row.
  uint64_t FrameBytes() {
    const Tensor& frames = model->inputs()[0];
    return frames.dims.size() == 1 ? frames.elementBytes : frames.size / MostFrames();
  }

  /// What lies in the frames from `first` on.
  std::span<std::byte> FramesFrom(const Dataset& in, uint64_t first) {
    return in.Content(0).subspan(FrameBytes() * first);
  }

  std::span<std::byte> FrameAt(const Dataset& in, uint64_t index) {
    return FramesFrom(in, index).first(FrameBytes());
  }

  vorn_status SetFrames(const Dataset& in, uint64_t frames) {
    return vorn_mdl_set_total_t(model->Id(), in.Handle(), frames);
  }

  /// The first `frames` frames of every output that has a row a frame, and all of any other.
  std::vector<Bytes> Execute(const Dataset& in, uint64_t frames) {
    Require(SetFrames(in, frames) == VORN_SUCCESS,
            "vorn_mdl_set_total_t to " + std::to_string(frames) + " failed");
    std::vector<Bytes> results = model->Execute(in);
    for (size_t i = 0; i < results.size(); ++i) {
      if (model->outputs()[i].dims[0] != static_cast<int64_t>(MostFrames())) continue;
      results[i].resize(results[i].size() / MostFrames() * frames);
    }
    return results;
  }
};

CONTRACT(Recurrent, ModelsSaySo) {
  vorn_net_type type = 77;
  EXPECT_EQ(vorn_ext_get_mdl_net_type(model->Id(), &type), VORN_SUCCESS);
  EXPECT_EQ(type, VORN_NET_RECURRENT) << "vorn_ext_get_mdl_net_type";
}

CONTRACT(Recurrent, FlagsAreNoFewerThanFrames) {
  const std::vector<int64_t>& flags = model->inputs().at(1).dims;
  EXPECT_GE(static_cast<uint64_t>(flags.back()), MostFrames())
      << "vorn_mdl_get_input_dims of input 1";
}

CONTRACT(Recurrent, TakesAnyCountOfFrames) {
  const Dataset in = Frames(1);
  for (uint64_t frames = 1; frames <= MostFrames(); ++frames) Execute(in, frames);
  Execute(in, 1);
}

CONTRACT(Recurrent, GivesTheSameAgain) {
  const Dataset in = Frames(1);
  const auto expected = Execute(in, MostFrames());
  for (int round = 0; round < 21; ++round) {
    model->ExpectSame(expected, Execute(in, MostFrames()), 0,
                      "of a recurrent model, executed again");
  }
}

CONTRACT(Recurrent, FollowsItsFrames) {
  EXPECT_TRUE(Execute(Frames(1), MostFrames()) != Execute(Frames(2), MostFrames()))
      << "vorn_mdl_execute gave the same for different frames";
}

CONTRACT(Recurrent, ReadsTheLastFrameThatCounts) {
  const Dataset other = Frames(2);
  for (uint64_t counted = 1; counted <= MostFrames(); ++counted) {
    Dataset in = Frames(1);
    const auto before = Execute(in, counted);
    std::ranges::copy(FrameAt(other, counted - 1), FrameAt(in, counted - 1).begin());
    EXPECT_TRUE(Execute(in, counted) != before)
        << "vorn_mdl_execute gave the same after frame " << counted << " changed, although "
        << "vorn_mdl_set_total_t was told of " << counted;
  }
}

CONTRACT(Recurrent, DoesNotReadFramesThatDoNotCount) {
  if (MostFrames() == 1) LeaveOut("the model takes one frame only");
  for (uint64_t counted = 1; counted < MostFrames(); ++counted) {
    Dataset in = Frames(1);
    const auto expected = Execute(in, counted);
    std::ranges::fill(FramesFrom(in, counted), std::byte{0x3F});
    model->ExpectSame(expected, Execute(in, counted), 0,
                      "with other frames behind those of vorn_mdl_set_total_t");
  }
}

CONTRACT(Recurrent, RefusesCountsThatItDoesNotTake) {
  Dataset in = Frames(1);
  EXPECT_NE(SetFrames(in, 0), VORN_SUCCESS) << "vorn_mdl_set_total_t";
  EXPECT_NE(SetFrames(in, MostFrames() + 1), VORN_SUCCESS) << "vorn_mdl_set_total_t";
  EXPECT_NE(SetFrames(in, UINT64_MAX), VORN_SUCCESS) << "vorn_mdl_set_total_t";
  EXPECT_NE(vorn_mdl_set_total_t(model->Id(), nullptr, 1), VORN_SUCCESS);
  Execute(in, MostFrames());
}

}  // namespace
}  // namespace conformance
