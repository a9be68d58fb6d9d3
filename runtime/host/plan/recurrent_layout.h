// What a caller sees of a recurrent model, where everything of it lies in the work buffer, and how
// a sequence is divided into runs. Plain data, and functions over it that need no session.
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
#ifndef VORN_RUNTIME_HOST_PLAN_RECURRENT_LAYOUT_H_
#define VORN_RUNTIME_HOST_PLAN_RECURRENT_LAYOUT_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/config/model_settings.h"
#include "host/plan/scratch.h"
#include "host/plan/signature.h"
#include "host/tensor/block_view.h"
#include "host/tensor/description.h"
#include "host/tensor/frame_rows.h"
#include "host/tensor/presentation.h"
#include "host/tensor/shape.h"

namespace vorn::host {

/// A tensor of the session and its dense place in the work buffer.
struct TensorPlace {
  size_t port;  ///< of the session
  vorn_data_type type = VORN_FLOAT32;
  Shape shape;                     ///< as it is bound, with T at `timeAxis`
  std::optional<size_t> timeAxis;  ///< the dimension that follows the count of frames in a run
  uint64_t bytes;                  ///< at most
  uint64_t offset;                 ///< in the work buffer, a multiple of `kScratchUnit`

  Shape ShapeFor(uint64_t frames) const { return WithDim(shape, timeAxis, frames); }
};

/// An output that a caller sees: its place, and how it comes into the caller's block.
struct OutputPlace {
  TensorPlace place;
  bool isOfAnyShape;   ///< kept by the engine, and fitted into the place then
  bool followsFrames;  ///< otherwise it is that of the last run
  FrameRows rows;      ///< of the block; all of it is one frame where it does not follow the frames
  vorn_data_type shown = VORN_FLOAT32;
};

/// The places of a state, in the order of the signature's.
struct StatePlaces {
  TensorPlace in;
  TensorPlace out;
};

struct RecurrentLayout {
  ModelDescription description;
  bool isStepwise;
  bool isLengthOpen;      ///< the model takes any count of frames in a run
  uint64_t mostFrames;    ///< T
  uint64_t contextBytes;  ///< in front of each frame, in the place of the frames
  WorkLayout work;
  TensorPlace frames;
  FrameRows frameRows;
  std::optional<TensorPlace> flags;  ///< where the model has them as an input
  FrameRows flagRows;
  vorn_data_type flagType = VORN_UINT8;
  std::vector<TensorPlace> others;  ///< inputs 2.., the scratch inputs left out
  std::vector<StatePlaces> states;
  std::vector<OutputPlace> outputs;
};

/// The inputs, as far as they can be known before the model was tried. Rows of what a caller sees
/// are padded to `rowAlignment` bytes. Fails with VORN_ERROR_MODEL for settings that do not fit the
/// model, and says which.
RecurrentLayout LayOutInputs(const Signature& signature, const ModelSettings& settings,
                             uint64_t rowAlignment);

/// The shapes with which to try a model of `inputCount` inputs for that many frames; empty for
/// inputs whose values the runtime provides.
std::vector<Shape> TrialShapes(const RecurrentLayout& layout, size_t inputCount, uint64_t frames);

/// How many frames a second trial has to have: one less than T, to tell which dimensions follow
/// them, or T where the model takes no other count, so that there is no need of a second one.
uint64_t FramesOfShorterTrial(const RecurrentLayout& layout);

/// Adds outputs and scratch inputs, which completes the layout. `tried` and `triedShorter` are the
/// shapes of all the session's outputs in trials of T and of `FramesOfShorterTrial` frames. Fails
/// with VORN_ERROR_MODEL where they do not agree with each other or with the states.
void LayOutOutputs(const Signature& signature, const std::vector<Shape>& tried,
                   const std::vector<Shape>& triedShorter, OutputTypes outputTypes,
                   uint64_t rowAlignment, RecurrentLayout& layout);

/// Whether a sequence begins with `frame`, which has its flag in the block `flags`.
bool BeginsSequence(const RecurrentLayout& layout, const BlockView& flags, uint64_t frame);

/// The run that begins with frame `first` of `frames`.
FrameSpan RunFrom(const RecurrentLayout& layout, const BlockView& flags, uint64_t first,
                  uint64_t frames);

/// How many frames the tensors of a run over `count` frames have room for.
uint64_t RoomOfRun(const RecurrentLayout& layout, uint64_t count);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_PLAN_RECURRENT_LAYOUT_H_
