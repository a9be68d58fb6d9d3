// From a caller's frames to runs of the model, and its outputs back into frames.
#include "host/plan/recurrent_plan.h"

#include <algorithm>
#include <cstring>

#include "host/common/failure.h"
#include "host/plan/result_fit.h"
#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

bool IsZero(const std::byte* element, uint64_t bytes) {
  return std::all_of(element, element + bytes, [](std::byte b) { return b == std::byte{0}; });
}

}  // namespace

void RecurrentPlan::CheckFrames(uint64_t frames) const {
  if (frames >= 1 && frames <= mostFrames_) return;
  throw Failure(VORN_ERROR_INVALID_ARGUMENT, "a sequence of ", frames, " frames; the model takes ",
                "1 to ", mostFrames_);
}

void RecurrentPlan::Execute(const Call& call) {
  CheckFrames(call.frames);
  CheckBlocks(call);
  Locate(call.inputs.back());
  FeedOtherInputs(call);
  FrameSpan span;
  for (; span.first < call.frames; span.first += span.count) {
    span.count = RunLength(call, span.first);
    Bind(span.count);
    if (BeginsSequence(call, span.first)) BeginSequence();
    Feed(call, span);
    session_.Run();
    Take(call, span);
    CarryStates();
  }
  for (size_t i = 0; i < outputs_.size(); ++i) {
    if (!outputs_[i].followsFrames) continue;
    ZeroFrames(outputs_[i].rows, call.outputs[i], outputs_[i].shown,
               {.first = call.frames, .count = mostFrames_ - call.frames});
  }
}

void RecurrentPlan::CheckBlocks(const Call& call) const {
  if (call.batch != 1) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the batch is ", call.batch,
                  "; a recurrent model executes one sequence at a time");
  }
  CheckBlockCount("input", call.inputs, description_->inputs);
  CheckBlockCount("output", call.outputs, description_->outputs);
  for (size_t i = 0; i < call.inputs.size(); ++i) {
    CheckInputBlock(call.inputs[i], i, description_->inputs[i], 1);
  }
  for (size_t i = 0; i < call.outputs.size(); ++i) {
    const TensorDescription& tensor = description_->outputs[i];
    const uint64_t bytes = ItemBytesIn(call.outputs[i], "output", tensor);
    if (call.outputs[i].capacity >= bytes) continue;
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "output ", i, " '", tensor.name, "' holds ",
                  call.outputs[i].capacity, " bytes; a sequence needs ", bytes);
  }
}

/// Finds every place in the work buffer.
void RecurrentPlan::Locate(const BlockView& work) {
  std::byte* base = PlaceIn(work, 0, work_.bytes());
  if (base == nullptr) base = ownWork_.AtLeast(work_.bytes());
  if (base == boundWork_) return;
  boundWork_ = nullptr;  // until all of it is bound
  boundFrames_ = 0;
  const auto locate = [&](Place& place) { place.data = base + place.offset; };
  locate(frames_);
  if (flags_) locate(*flags_);
  for (Place& place : others_) locate(place);
  for (StatePlaces& state : states_) {
    locate(state.in);
    locate(state.out);
  }
  for (Output& output : outputs_) locate(output.place);
  boundWork_ = base;
}

/// Binds everything for runs of that many frames.
void RecurrentPlan::Bind(uint64_t frames) {
  if (frames == boundFrames_) return;
  const bool isBound = boundFrames_ != 0 && !isLengthOpen_;
  boundFrames_ = 0;  // until all of it is bound
  if (!isBound) {
    BindInput(frames_, frames);
    if (flags_) BindInput(*flags_, frames);
    for (Place& place : others_) BindInput(place, frames);
    for (StatePlaces& state : states_) {
      BindInput(state.in, frames);
      session_.BindOutput(state.out.port, state.out.data, state.out.shape);
    }
    for (Output& output : outputs_) {
      if (output.isOfAnyShape) continue;
      const Place& place = output.place;
      session_.BindOutput(place.port, place.data, WithDim(place.shape, place.timeAxis, frames));
    }
  }
  boundFrames_ = frames;
}

void RecurrentPlan::BindInput(Place& place, uint64_t frames) {
  session_.BindInput(place.port, place.data, WithDim(place.shape, place.timeAxis, frames));
}

void RecurrentPlan::FeedOtherInputs(const Call& call) {
  TaskTable table(call.inputs[call.inputs.size() - 2]);
  for (size_t i = 0; i < others_.size(); ++i) {
    const size_t index = i + 2;  // behind the frames and the flags
    const TensorLayout& layout = description_->inputs[index].layout;
    MoveRows(table.Put(index, {.from = call.inputs[index].address,
                               .fromStride = call.inputs[index].stride,
                               .to = others_[i].data,
                               .toStride = layout.rowBytes,
                               .rows = layout.rows,
                               .columns = layout.rowBytes / layout.elementBytes,
                               .fromType = others_[i].type,
                               .toType = others_[i].type}));
  }
}

/// How many frames the next run takes.
uint64_t RecurrentPlan::RunLength(const Call& call, uint64_t first) const {
  if (isStepwise_) return 1;
  uint64_t end = first + 1;
  while (end < call.frames && (flags_ || !BeginsSequence(call, end))) ++end;
  return end - first;
}

/// How many frames the tensors of a run have room for.
uint64_t RecurrentPlan::BoundFrames(FrameSpan span) const {
  if (isStepwise_) return 1;
  return isLengthOpen_ ? span.count : mostFrames_;
}

bool RecurrentPlan::BeginsSequence(const Call& call, uint64_t frame) const {
  const uint64_t bytes = ElementBytes(flagType_);
  return frame == 0 || IsZero(call.inputs[1].address + frame * bytes, bytes);
}

void RecurrentPlan::BeginSequence() {
  for (StatePlaces& state : states_) {
    std::memcpy(state.in.data, state.start->bytes.data(), state.in.bytes);
  }
  if (contextBytes_ != 0) std::memset(frames_.data, 0, contextBytes_);
}

/// Frames, flags and their count, as the next run takes them.
void RecurrentPlan::Feed(const Call& call, FrameSpan span) {
  TaskTable table(call.inputs[call.inputs.size() - 2]);
  std::byte* dense = frames_.data + contextBytes_;
  MoveRows(table.Put(
      0, MoveOutOfBlock(frameRows_, call.inputs[0], frames_.type, dense, span.count, span, 0)));
  const uint64_t frameBytes = frameRows_.rows * frameRows_.columns * ElementBytes(frames_.type);
  const uint64_t rest = BoundFrames(span) - span.count;
  if (rest != 0) std::memset(dense + span.count * frameBytes, 0, rest * frameBytes);
  if (flags_) {
    const uint64_t bytes = ElementBytes(flagType_);
    MoveRows(table.Put(1, MoveOutOfBlock(flagRows_, call.inputs[1], flagType_, flags_->data,
                                         span.count, span, 0)));
    if (rest != 0) std::memset(flags_->data + span.count * bytes, 0, rest * bytes);
  }
  TellLength(span.count);
}

void RecurrentPlan::Take(const Call& call, FrameSpan span) {
  TaskTable table(call.inputs[call.inputs.size() - 2]);
  for (size_t i = 0; i < outputs_.size(); ++i) {
    const Output& output = outputs_[i];
    if (output.isOfAnyShape) TakeResultOfAnyShape(output);
    const FrameSpan taken = output.followsFrames ? span : FrameSpan{.first = 0, .count = 1};
    const uint64_t denseFrames = output.followsFrames ? BoundFrames(span) : 1;
    for (uint64_t outer = 0; outer < output.rows.outer; ++outer) {
      MoveRows(
          table.Put(description_->inputs.size() - 2 + i,
                    MoveIntoBlock(output.rows, call.outputs[i], output.place.type, output.shown,
                                  output.place.data, denseFrames, taken, outer)));
    }
  }
}

void RecurrentPlan::TakeResultOfAnyShape(const Output& output) {
  const Place& place = output.place;
  FitResult(session_.outputs()[place.port].name, session_.Result(place.port), place.shape,
            ElementBytes(place.type), place.data);
}

/// What the run left, for the one behind it.
void RecurrentPlan::CarryStates() {
  for (StatePlaces& state : states_) {
    std::memcpy(state.in.data, state.out.data, state.in.bytes);
  }
  if (contextBytes_ == 0) return;
  std::memmove(frames_.data, frames_.data + frames_.bytes - contextBytes_, contextBytes_);
}

/// Writes the count into every element of the input that is told it.
void RecurrentPlan::TellLength(uint64_t frames) {
  if (!signature_.length) return;
  ProvidedInput& length = *signature_.length;
  const auto wide = static_cast<int64_t>(frames);
  const auto narrow = static_cast<int32_t>(frames);
  const uint64_t bytes = ElementBytes(length.type);
  for (uint64_t at = 0; at < length.bytes.size(); at += bytes) {
    if (length.type == VORN_INT64) std::memcpy(length.bytes.data() + at, &wide, sizeof(wide));
    if (length.type == VORN_INT32) std::memcpy(length.bytes.data() + at, &narrow, sizeof(narrow));
  }
}

}  // namespace vorn::host
