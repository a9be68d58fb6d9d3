// Executing a sequence of frames, whole or step by step.
//
// A caller sees a model of the net type VORN_NET_RECURRENT like this:
//
//     input 0   [T, frame..]  the frames; T is the most that a sequence may have
//     input 1   [T]           the continuation flags: 0 where a frame begins a new sequence
//     input 2.. as they are   any other data input, the same for all frames
//     outputs   [T, ..]       what the model makes of each frame, in order
//
// `vorn_mdl_set_total_t` says how many frames count. What lies beyond them is not read, and outputs
// are zero there. The first frame begins a sequence whatever its flag says, so that executing again
// gives the same. There is one sequence at a time: the batch is 1.
//
// "steps": the model takes one frame a run. Its state inputs hold their start values (zeros, or the
// `constants` of that name) where a sequence begins, and the state outputs of the run before
// elsewhere. With a `context`, the last so many elements of the frame before stand in front of
// every frame, zeros where a sequence begins: a model input of [1, 576] with a context of 64 shows
// frames of 512. A first dimension of 1, of the frame or of an output, gives way to T; otherwise T
// comes in front of the others.
//
// "whole": the model takes all frames in one run, along the dimension `timeAxis` of its input; the
// dimensions before that one are 1 and not shown. Where it leaves T open, it gets just the frames
// that count; where it is fixed, the rest is filled up with zeros. A flag of 0 ends a run and
// begins the next one. An output follows the frames along the dimension that grows with T, or that
// is as long as a fixed T (the first such); any other output is that of the last run.
//
// The flags are an input of the model itself if `flags` names one: it is shown with the model's
// type, and a whole sequence is not divided. Otherwise they are uint8, named "flags".
#ifndef VORN_RUNTIME_HOST_PLAN_RECURRENT_PLAN_H_
#define VORN_RUNTIME_HOST_PLAN_RECURRENT_PLAN_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/config/config.h"
#include "host/config/model_settings.h"
#include "host/engine/engine.h"
#include "host/memory/staging.h"
#include "host/plan/plan.h"
#include "host/plan/scratch.h"
#include "host/plan/signature.h"
#include "host/tensor/frame_rows.h"

namespace vorn::host {

class RecurrentPlan : public Plan {
 public:
  /// Learns the shapes of the outputs from trials; `session` must outlive the plan. Fails with
  /// VORN_ERROR_MODEL for settings that do not fit the model, and says which.
  RecurrentPlan(Session& session, Signature signature, const ModelSettings& settings,
                const Config& config);

  std::shared_ptr<const ModelDescription> description() const override { return description_; }
  void CheckFrames(uint64_t frames) const override;
  void Execute(const Call& call) override;

 private:
  /// A tensor of the session and its dense place in the work buffer.
  struct Place {
    size_t port = 0;  // of the session
    vorn_data_type type = VORN_FLOAT32;
    Shape shape;                     // as it is bound; T is put in at `timeAxis`
    std::optional<size_t> timeAxis;  // where that follows the count of frames in a run
    uint64_t bytes = 0;              // at most
    uint64_t offset = 0;             // in the work buffer
    std::byte* data = nullptr;       // in the present execution
  };

  /// An output: its place, and how it comes into the caller's block.
  struct Output {
    Place place;
    bool isOfAnyShape = false;
    bool followsFrames = false;
    FrameRows rows;  // of the block; all of it is one frame where it does not follow the frames
    vorn_data_type shown = VORN_FLOAT32;
  };

  struct StatePlaces {
    Place in;
    Place out;
    const ProvidedInput* start = nullptr;
  };

  void PlanFrames(const ModelSettings& settings, ModelDescription& description);
  Shape SettleSteps(const ModelSettings& settings, const Shape& shape);
  Shape SettleWhole(const ModelSettings& settings, Shape& shape);
  void PlanFlags(ModelDescription& description);
  void PlanStates(const std::vector<Shape>& tried);
  std::optional<size_t> AxisOfOutput(const std::string& name, const Shape& tried,
                                     const Shape& triedShorter) const;
  void PlanOutput(const Port& port, const Shape& tried, const Shape& triedShorter,
                  OutputTypes outputTypes, ModelDescription& description);
  std::vector<Shape> TryFrames(uint64_t frames);
  Place Reserve(size_t port, vorn_data_type type, const Shape& shape);
  void TellLength(uint64_t frames);

  void CheckBlocks(const Call& call) const;
  void Locate(const BlockView& work);
  void Bind(uint64_t frames);
  void BindInput(Place& place, uint64_t frames);
  void FeedOtherInputs(const Call& call);
  uint64_t RunLength(const Call& call, uint64_t first) const;
  uint64_t BoundFrames(FrameSpan span) const;
  bool BeginsSequence(const Call& call, uint64_t frame) const;
  void BeginSequence();
  void Feed(const Call& call, FrameSpan span);
  void Take(const Call& call, FrameSpan span);
  void TakeResultOfAnyShape(const Output& output);
  void CarryStates();

  Session& session_;
  Signature signature_;
  std::shared_ptr<const ModelDescription> description_;
  uint64_t rowAlignment_ = 1;
  bool isStepwise_ = false;
  bool isLengthOpen_ = false;  // the model takes any count of frames in a run
  uint64_t mostFrames_ = 1;    // T
  uint64_t contextBytes_ = 0;
  WorkLayout work_;
  Place frames_;
  FrameRows frameRows_;
  std::optional<Place> flags_;  // where the model has them as an input
  FrameRows flagRows_;
  vorn_data_type flagType_ = VORN_UINT8;
  std::vector<Place> others_;
  std::vector<StatePlaces> states_;
  std::vector<Output> outputs_;
  Staging ownWork_;                 // where the caller's work buffer is out of line
  std::byte* boundWork_ = nullptr;  // what the session is bound to
  uint64_t boundFrames_ = 0;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_PLAN_RECURRENT_PLAN_H_
