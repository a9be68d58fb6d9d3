// From a caller's frames to runs of the model, and its outputs back into frames.
#include "host/plan/recurrent_plan.h"

#include <cstring>
#include <string>
#include <utility>

#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/plan/result_fit.h"
#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

void CheckBlocks(const ModelDescription& description, const Call& call) {
  if (call.batch != 1) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the batch is ", call.batch,
                  "; a recurrent model executes one sequence at a time");
  }
  CheckBlockCount("input", call.inputs, description.inputs);
  CheckBlockCount("output", call.outputs, description.outputs);
  for (size_t i = 0; i < call.inputs.size(); ++i) {
    CheckInputBlock(call.inputs[i], i, description.inputs[i], 1);
  }
  for (size_t i = 0; i < call.outputs.size(); ++i) {
    const TensorDescription& tensor = description.outputs[i];
    const uint64_t bytes = ItemBytesIn(call.outputs[i], "output", tensor);
    if (call.outputs[i].capacity >= bytes) continue;
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "output ", i, " '", tensor.name, "' holds ",
                  call.outputs[i].capacity, " bytes; a sequence needs ", bytes);
  }
}

/// Tells where the caller speaks of fewer frames than count, or of a part of one. What it does not
/// speak of cannot be seen: a file that was too short for the block that it was read into.
void LogShortInput(const Call& call, size_t index, const std::string& name, uint64_t frameBytes,
                   uint64_t mostFrames) {
  const uint64_t registered = call.inputs[index].registered;
  if (registered == 0 || registered / frameBytes >= mostFrames) return;
  const uint64_t whole = registered / frameBytes;
  if (whole < call.frames) {
    Log(LogLevel::kError, "vorn_mdl_execute",
        Join("input ", index, " '", name, "' is registered with ", registered, " bytes, which is ",
             whole, " of ", call.frames, " frames; the others are whatever lies behind them"));
  } else if (registered % frameBytes != 0) {
    Log(LogLevel::kError, "vorn_mdl_execute",
        Join("input ", index, " '", name, "' is registered with ", registered,
             " bytes, which ends within a frame of ", frameBytes, "; that frame does not count"));
  }
}

/// Which frames begin a sequence: so a flag shows that was never given.
void LogSequences(const RecurrentLayout& layout, const Call& call) {
  constexpr uint64_t kMostNamed = 8;
  uint64_t sequences = 0;
  std::string begins;
  for (uint64_t frame = 0; frame < call.frames; ++frame) {
    if (!BeginsSequence(layout, call.inputs[1], frame)) continue;
    if (++sequences <= kMostNamed) begins += Join(begins.empty() ? "" : ", ", frame);
  }
  if (sequences > kMostNamed) begins += ", ...";
  Log(LogLevel::kInfo, "vorn_mdl_execute",
      Join(call.frames, " of at most ", layout.mostFrames, " frames count; sequences begin at ",
           begins));
}

void LogFrames(const RecurrentLayout& layout, const Call& call) {
  const std::vector<TensorDescription>& inputs = layout.description.inputs;
  const auto frameBytes = [&](size_t index, const FrameRows& rows) {
    return FrameBytesIn(rows, call.inputs[index].stride, inputs[index].type);
  };
  LogShortInput(call, 0, inputs[0].name, frameBytes(0, layout.frameRows), layout.mostFrames);
  LogShortInput(call, 1, inputs[1].name, frameBytes(1, layout.flagRows), layout.mostFrames);
  if (IsLogged(LogLevel::kInfo)) LogSequences(layout, call);
}

TaskTable TableOf(const Call& call) { return TaskTable(call.inputs[call.inputs.size() - 2]); }

/// The inputs that are the same for all frames.
void FeedOtherInputs(const RecurrentLayout& layout, const Call& call, std::byte* work) {
  TaskTable table = TableOf(call);
  for (size_t i = 0; i < layout.others.size(); ++i) {
    const size_t index = i + 2;  // behind the frames and the flags
    const TensorPlace& place = layout.others[i];
    const TensorLayout& block = layout.description.inputs[index].layout;
    MoveRows(table.Put(index, {.from = call.inputs[index].address,
                               .fromStride = call.inputs[index].stride,
                               .to = work + place.offset,
                               .toStride = block.rowBytes,
                               .rows = block.rows,
                               .columns = block.rowBytes / block.elementBytes,
                               .fromType = place.type,
                               .toType = place.type}));
  }
}

/// Zeros behind `count` elements or frames of `bytes` bytes where a run has room for more.
void FillUp(std::byte* dense, uint64_t count, uint64_t room, uint64_t bytes) {
  if (room != count) std::memset(dense + count * bytes, 0, (room - count) * bytes);
}

void FeedFrames(const RecurrentLayout& layout, const Call& call, FrameSpan span, std::byte* work) {
  const FrameRows& rows = layout.frameRows;
  const vorn_data_type type = layout.frames.type;
  std::byte* dense = work + layout.frames.offset + layout.contextBytes;
  MoveRows(
      TableOf(call).Put(0, MoveOutOfBlock(rows, call.inputs[0], type, dense, span.count, span, 0)));
  FillUp(dense, span.count, RoomOfRun(layout, span.count),
         rows.rows * rows.columns * ElementBytes(type));
}

/// The model's own, if it has such.
void FeedFlags(const RecurrentLayout& layout, const Call& call, FrameSpan span, std::byte* work) {
  if (!layout.flags) return;
  std::byte* dense = work + layout.flags->offset;
  MoveRows(TableOf(call).Put(1, MoveOutOfBlock(layout.flagRows, call.inputs[1], layout.flagType,
                                               dense, span.count, span, 0)));
  FillUp(dense, span.count, RoomOfRun(layout, span.count), ElementBytes(layout.flagType));
}

/// What a run left of output `index` in its place, into the caller's block.
void TakeOutput(const RecurrentLayout& layout, const Call& call, size_t index, FrameSpan span,
                const std::byte* work) {
  TaskTable table = TableOf(call);
  const OutputPlace& output = layout.outputs[index];
  const FrameSpan taken = output.followsFrames ? span : FrameSpan{.first = 0, .count = 1};
  const uint64_t denseFrames = output.followsFrames ? RoomOfRun(layout, span.count) : 1;
  for (uint64_t outer = 0; outer < output.rows.outer; ++outer) {
    MoveRows(
        table.Put(layout.description.DataInputCount() + index,
                  MoveIntoBlock(output.rows, call.outputs[index], output.place.type, output.shown,
                                work + output.place.offset, denseFrames, taken, outer)));
  }
}

void ZeroBeyondFrames(const RecurrentLayout& layout, const Call& call) {
  for (size_t i = 0; i < layout.outputs.size(); ++i) {
    const OutputPlace& output = layout.outputs[i];
    if (!output.followsFrames) continue;
    ZeroFrames(output.rows, call.outputs[i], output.shown,
               {.first = call.frames, .count = layout.mostFrames - call.frames});
  }
}

/// Writes the count into every element of the input that is told it, if there is one.
void TellLength(std::optional<ProvidedInput>& length, uint64_t frames) {
  if (!length) return;
  const auto wide = static_cast<int64_t>(frames);
  const auto narrow = static_cast<int32_t>(frames);
  const uint64_t bytes = ElementBytes(length->type);
  for (uint64_t at = 0; at < length->bytes.size(); at += bytes) {
    if (length->type == VORN_INT64) std::memcpy(length->bytes.data() + at, &wide, sizeof(wide));
    if (length->type == VORN_INT32) std::memcpy(length->bytes.data() + at, &narrow, sizeof(narrow));
  }
}

}  // namespace

RecurrentPlan::RecurrentPlan(Session& session, Signature signature, const ModelSettings& settings,
                             const Config& config)
    : session_(session), signature_(std::move(signature)) {
  ProvideInputs();
  RecurrentLayout layout = LayOutInputs(signature_, settings, config.rowAlignment);
  const std::vector<Shape> tried = TryFrames(layout, layout.mostFrames);
  const uint64_t shorter = FramesOfShorterTrial(layout);
  const std::vector<Shape> triedShorter =
      shorter == layout.mostFrames ? tried : TryFrames(layout, shorter);
  LayOutOutputs(signature_, tried, triedShorter, config.outputTypes, config.rowAlignment, layout);
  for (const OutputPlace& output : layout.outputs) {
    if (output.isOfAnyShape) session_.BindOutputOfAnyShape(output.place.port);
  }
  layout_ = std::make_shared<const RecurrentLayout>(std::move(layout));
}

/// Binds what trials have to see, too.
void RecurrentPlan::ProvideInputs() {
  const auto bind = [&](ProvidedInput& input) {
    session_.BindConstant(input.index, input.bytes.data(), input.shape);
  };
  for (ProvidedInput& constant : signature_.constants) bind(constant);
  if (signature_.length) bind(*signature_.length);
}

std::vector<Shape> RecurrentPlan::TryFrames(const RecurrentLayout& layout, uint64_t frames) {
  TellLength(signature_.length, layout.isStepwise ? 1 : frames);
  try {
    return session_.Try(TrialShapes(layout, session_.inputs().size(), frames));
  } catch (const Failure& e) {
    if (e.status() != VORN_ERROR_EXECUTION) throw;
    throw Failure(VORN_ERROR_MODEL, e.what(),
                  "; give its open dimensions a size with 'dims' or 'inputDims'");
  }
}

void RecurrentPlan::CheckFrames(uint64_t frames) const {
  if (frames >= 1 && frames <= layout_->mostFrames) return;
  throw Failure(VORN_ERROR_INVALID_ARGUMENT, "a sequence of ", frames, " frames; the model takes ",
                "1 to ", layout_->mostFrames);
}

void RecurrentPlan::Execute(const Call& call) {
  CheckFrames(call.frames);
  CheckBlocks(layout_->description, call);
  if (IsLogged(LogLevel::kError)) LogFrames(*layout_, call);
  const BlockView& flags = call.inputs[1];
  Locate(call.inputs.back());
  FeedOtherInputs(*layout_, call, work_);
  FrameSpan span{};
  for (; span.first < call.frames; span.first += span.count) {
    span = RunFrom(*layout_, flags, span.first, call.frames);
    Bind(RoomOfRun(*layout_, span.count));
    if (BeginsSequence(*layout_, flags, span.first)) BeginSequence();
    Feed(call, span);
    session_.Run();
    Take(call, span);
    CarryStates();
  }
  ZeroBeyondFrames(*layout_, call);
}

/// Finds where the places lie in this execution.
void RecurrentPlan::Locate(const BlockView& work) {
  const uint64_t bytes = layout_->work.bytes();
  std::byte* place = PlaceIn(work, 0, bytes);
  if (place == nullptr) place = ownWork_.AtLeast(bytes);
  if (place == work_) return;
  boundFrames_ = 0;
  work_ = place;
}

/// Binds everything for runs with room for that many frames.
void RecurrentPlan::Bind(uint64_t frames) {
  if (frames == boundFrames_) return;
  boundFrames_ = 0;  // until all of it is bound
  const auto bindInput = [&](const TensorPlace& place) {
    session_.BindInput(place.port, work_ + place.offset, place.ShapeFor(frames));
  };
  const auto bindOutput = [&](const TensorPlace& place) {
    session_.BindOutput(place.port, work_ + place.offset, place.ShapeFor(frames));
  };
  bindInput(layout_->frames);
  if (layout_->flags) bindInput(*layout_->flags);
  for (const TensorPlace& place : layout_->others) bindInput(place);
  for (const StatePlaces& state : layout_->states) {
    bindInput(state.in);
    bindOutput(state.out);
  }
  for (const OutputPlace& output : layout_->outputs) {
    if (!output.isOfAnyShape) bindOutput(output.place);
  }
  boundFrames_ = frames;
}

void RecurrentPlan::BeginSequence() {
  for (size_t i = 0; i < layout_->states.size(); ++i) {
    const TensorPlace& state = layout_->states[i].in;
    std::memcpy(work_ + state.offset, signature_.states[i].start.bytes.data(), state.bytes);
  }
  if (layout_->contextBytes == 0) return;
  std::memset(work_ + layout_->frames.offset, 0, layout_->contextBytes);
}

/// Frames, flags and their count, as the next run takes them.
void RecurrentPlan::Feed(const Call& call, FrameSpan span) {
  FeedFrames(*layout_, call, span, work_);
  FeedFlags(*layout_, call, span, work_);
  TellLength(signature_.length, span.count);
}

void RecurrentPlan::Take(const Call& call, FrameSpan span) {
  for (size_t i = 0; i < layout_->outputs.size(); ++i) {
    const TensorPlace& place = layout_->outputs[i].place;
    if (layout_->outputs[i].isOfAnyShape) {
      FitResult(session_.outputs()[place.port].name, session_.Result(place.port), place.shape,
                ElementBytes(place.type), work_ + place.offset);
    }
    TakeOutput(*layout_, call, i, span, work_);
  }
}

/// What the run left, for the one behind it.
void RecurrentPlan::CarryStates() {
  for (const StatePlaces& state : layout_->states) {
    std::memcpy(work_ + state.in.offset, work_ + state.out.offset, state.in.bytes);
  }
  if (layout_->contextBytes == 0) return;
  std::byte* frames = work_ + layout_->frames.offset;
  std::memmove(frames, frames + layout_->frames.bytes - layout_->contextBytes,
               layout_->contextBytes);
}

}  // namespace vorn::host
