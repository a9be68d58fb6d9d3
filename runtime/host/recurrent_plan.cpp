// From a caller's frames to runs of the model, and its outputs back into frames.
#include "host/recurrent_plan.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "host/element_type.h"
#include "host/failure.h"
#include "host/result_fit.h"

namespace vorn::host {
namespace {

uint64_t DenseBytes(vorn_data_type type, const Shape& shape) {
  uint64_t bytes = ElementBytes(type);
  for (const int64_t dim : shape) bytes *= static_cast<uint64_t>(dim);
  return bytes;
}

Shape WithDim(Shape shape, std::optional<size_t> axis, uint64_t size) {
  if (axis) shape[*axis] = static_cast<int64_t>(size);
  return shape;
}

bool AreAllOne(const Shape& shape, size_t from, size_t to) {
  return std::all_of(shape.begin() + static_cast<std::ptrdiff_t>(from),
                     shape.begin() + static_cast<std::ptrdiff_t>(to),
                     [](int64_t dim) { return dim == 1; });
}

/// `frames` frames of that shape: a first dimension of 1 gives way to them.
Shape Stacked(uint64_t frames, const Shape& frame) {
  Shape stacked = {static_cast<int64_t>(frames)};
  const bool givesWay = !frame.empty() && frame[0] == 1;
  stacked.insert(stacked.end(), frame.begin() + (givesWay ? 1 : 0), frame.end());
  return stacked;
}

/// The dimension that the flags of a whole sequence follow: the last one that is open, or else the
/// last one of that length.
std::optional<size_t> AxisOfFlags(const DeclaredShape& declared, uint64_t frames) {
  std::optional<size_t> open;
  std::optional<size_t> fixed;
  for (size_t i = 0; i < declared.size(); ++i) {
    if (declared[i].size < 0) open = i;
    if (declared[i].size == static_cast<int64_t>(frames)) fixed = i;
  }
  return open ? open : fixed;
}

bool IsZero(const std::byte* element, uint64_t bytes) {
  return std::all_of(element, element + bytes, [](std::byte b) { return b == std::byte{0}; });
}

}  // namespace

// ---- Loading ------------------------------------------------------------------------------------

RecurrentPlan::RecurrentPlan(Session& session, Signature signature, const ModelSettings& settings,
                             const Config& config)
    : session_(session),
      signature_(std::move(signature)),
      rowAlignment_(config.rowAlignment),
      isStepwise_(settings.sequence == Sequence::kSteps) {
  auto description = std::make_shared<ModelDescription>();
  for (ProvidedInput& constant : signature_.constants) {
    session_.BindConstant(constant.index, constant.bytes.data(), constant.shape);
  }
  if (signature_.length) {
    ProvidedInput& length = *signature_.length;
    session_.BindConstant(length.index, length.bytes.data(), length.shape);
  }
  PlanFrames(settings, *description);
  PlanFlags(*description);
  for (const Port& port : signature_.inputs) {
    const Shape shape = CloseDims(port.tensor.shape);
    description->inputs.push_back(DescribeTensor(
        "input", port.tensor.name, ShownInputType(port.tensor.type), shape, rowAlignment_));
    others_.push_back(Reserve(port.index, port.tensor.type, shape));
  }
  for (State& state : signature_.states) {
    StatePlaces places;
    places.in = Reserve(state.start.index, state.start.type, state.start.shape);
    places.start = &state.start;
    states_.push_back(places);
  }

  const std::vector<Shape> tried = TryFrames(mostFrames_);
  const bool canShorten = isLengthOpen_ && mostFrames_ > 1;
  const std::vector<Shape> triedShorter = canShorten ? TryFrames(mostFrames_ - 1) : tried;
  PlanStates(tried);
  for (const Port& port : signature_.outputs) {
    PlanOutput(port, tried[port.index], triedShorter[port.index], config.outputTypes, *description);
  }
  if (outputs_.empty()) {
    throw Failure(VORN_ERROR_MODEL, "the model has no output but its states; there is nothing to ",
                  "execute it for");
  }
  AppendScratchInputs(*description,
                      kScratchUnit * (description->inputs.size() + description->outputs.size()),
                      work_.bytes(), rowAlignment_);
  description_ = std::move(description);
}

/// Settles T, the shape of a run's frames and what a caller sees of them.
void RecurrentPlan::PlanFrames(const ModelSettings& settings, ModelDescription& description) {
  const DeclaredTensor& tensor = signature_.frames->tensor;
  Shape shape = CloseDims(tensor.shape);
  Shape shown;
  if (isStepwise_) {
    mostFrames_ = static_cast<uint64_t>(settings.maxFrames);
    if (mostFrames_ == 0) {
      throw Failure(VORN_ERROR_MODEL, "the model takes one frame a run; say how many a sequence ",
                    "may have with 'maxFrames'");
    }
    Shape frame = shape;
    if (settings.context != 0) {
      if (frame.empty() || frame.back() <= settings.context ||
          !AreAllOne(frame, 0, frame.size() - 1)) {
        throw Failure(VORN_ERROR_MODEL, "'context' of ", settings.context, " leaves nothing of '",
                      tensor.name, "', which has the shape ", ShapeText(shape),
                      "; it has to be one row that is longer");
      }
      frame.back() -= settings.context;
      contextBytes_ = static_cast<uint64_t>(settings.context) * ElementBytes(tensor.type);
    }
    shown = Stacked(mostFrames_, frame);
  } else {
    const auto axis = static_cast<size_t>(settings.timeAxis);
    if (axis >= shape.size() || !AreAllOne(shape, 0, axis)) {
      throw Failure(VORN_ERROR_MODEL, "'timeAxis' is ", axis, ", but '", tensor.name,
                    "' has the shape ", ShapeText(shape),
                    "; the dimensions before the frames have to be 1");
    }
    isLengthOpen_ = tensor.shape[axis].size < 0;
    if (isLengthOpen_ ? settings.maxFrames == 0
                      : settings.maxFrames != 0 && settings.maxFrames != shape[axis]) {
      throw Failure(VORN_ERROR_MODEL, "'maxFrames' is ", settings.maxFrames, ", but '", tensor.name,
                    "' takes ", isLengthOpen_ ? "any count of" : std::to_string(shape[axis]),
                    " frames", isLengthOpen_ ? "; say how many a sequence may have" : "");
    }
    if (isLengthOpen_) shape[axis] = settings.maxFrames;
    mostFrames_ = static_cast<uint64_t>(std::max<int64_t>(shape[axis], 0));
    shown.assign(shape.begin() + static_cast<std::ptrdiff_t>(axis), shape.end());
  }
  description.inputs.push_back(
      DescribeTensor("input", tensor.name, ShownInputType(tensor.type), shown, rowAlignment_));
  frames_ = Reserve(signature_.frames->index, tensor.type, shape);
  if (isLengthOpen_) frames_.timeAxis = static_cast<size_t>(settings.timeAxis);
  frameRows_ = FrameRowsOf(shown, 0);
}

void RecurrentPlan::PlanFlags(ModelDescription& description) {
  const Shape shown = {static_cast<int64_t>(mostFrames_)};
  if (!signature_.flags) {
    description.inputs.push_back(DescribeTensor("input", FreeInputName(description, "flags"),
                                                flagType_, shown, rowAlignment_));
    return;
  }
  const Port& port = *signature_.flags;
  flagType_ = port.tensor.type;
  const uint64_t inRun = isStepwise_ ? 1 : mostFrames_;
  const std::optional<size_t> axis =
      isStepwise_ ? std::nullopt : AxisOfFlags(port.tensor.shape, mostFrames_);
  const Shape shape = WithDim(CloseDims(port.tensor.shape), axis, inRun);
  if (DenseBytes(flagType_, shape) != inRun * ElementBytes(flagType_)) {
    throw Failure(VORN_ERROR_MODEL, "'flags' names '", port.tensor.name, "' of the shape ",
                  ShapeText(shape), "; it has to hold one flag for each of ", inRun, " frames");
  }
  description.inputs.push_back(
      DescribeTensor("input", port.tensor.name, ShownInputType(flagType_), shown, rowAlignment_));
  flags_ = Reserve(port.index, flagType_, shape);
  flagRows_ = FrameRowsOf(shown, 0);
  if (isLengthOpen_) flags_->timeAxis = axis;
}

void RecurrentPlan::PlanStates(const std::vector<Shape>& tried) {
  for (size_t i = 0; i < states_.size(); ++i) {
    const size_t output = signature_.states[i].output;
    if (DenseBytes(states_[i].in.type, tried[output]) != states_[i].in.bytes) {
      throw Failure(VORN_ERROR_MODEL, "'states' feeds '", states_[i].start->name, "' of the shape ",
                    ShapeText(states_[i].in.shape), " from an output of the shape ",
                    ShapeText(tried[output]));
    }
    states_[i].out = Reserve(output, states_[i].in.type, tried[output]);
  }
}

void RecurrentPlan::PlanOutput(const Port& port, const Shape& tried, const Shape& triedShorter,
                               OutputTypes outputTypes, ModelDescription& description) {
  Output output;
  output.isOfAnyShape = port.largest.has_value();
  const Shape& shape = output.isOfAnyShape ? *port.largest : tried;
  Shape shown = shape;
  std::optional<size_t> axis;
  if (isStepwise_) {
    shown = Stacked(mostFrames_, shape);
    axis = 0;
  } else if (!output.isOfAnyShape) {
    // With an open length, the dimension that got shorter; else the first one of that length.
    for (size_t i = 0; i < shape.size() && !axis; ++i) {
      const bool follows = shape[i] == static_cast<int64_t>(mostFrames_) &&
                           (!isLengthOpen_ || mostFrames_ == 1 ||
                            (i < triedShorter.size() && triedShorter[i] == shape[i] - 1));
      if (follows) axis = i;
    }
    const Shape expected =
        isLengthOpen_ ? WithDim(shape, axis, mostFrames_ - (mostFrames_ > 1)) : shape;
    if (triedShorter != expected) {
      throw Failure(VORN_ERROR_MODEL, "output '", port.tensor.name, "' has the shape ",
                    ShapeText(shape), " for ", mostFrames_, " frames and ", ShapeText(triedShorter),
                    " for one less; give the largest that it takes with 'outputDims'");
    }
    if (axis && AreAllOne(shape, 0, *axis)) {
      shown.erase(shown.begin(), shown.begin() + static_cast<std::ptrdiff_t>(*axis));
    }
  }
  output.shown = ShownOutputType(port.tensor.type, outputTypes);
  description.outputs.push_back(
      DescribeTensor("output", port.tensor.name, output.shown, shown, rowAlignment_));
  output.place = Reserve(port.index, port.tensor.type, shape);
  output.followsFrames = axis.has_value();
  if (isLengthOpen_) output.place.timeAxis = axis;
  if (axis) {
    const size_t dropped = isStepwise_ ? 0 : shape.size() - shown.size();
    output.rows = FrameRowsOf(shown, *axis - std::min(dropped, *axis));
  } else {
    Shape single = description.outputs.back().dims;
    single.insert(single.begin(), 1);
    output.rows = FrameRowsOf(single, 0);
  }
  if (output.isOfAnyShape) session_.BindOutputOfAnyShape(port.index);
  outputs_.push_back(std::move(output));
}

std::vector<Shape> RecurrentPlan::TryFrames(uint64_t frames) {
  std::vector<Shape> shapes(session_.inputs().size());
  const auto put = [&](const Place& place) {
    shapes[place.port] = WithDim(place.shape, place.timeAxis, frames);
  };
  put(frames_);
  if (flags_) put(*flags_);
  for (const Place& place : others_) put(place);
  for (const StatePlaces& state : states_) put(state.in);
  TellLength(isStepwise_ ? 1 : frames);
  try {
    return session_.Try(shapes);
  } catch (const Failure& e) {
    throw Failure(VORN_ERROR_MODEL, e.what(),
                  "; give its open dimensions a size with 'dims' or 'inputDims'");
  }
}

RecurrentPlan::Place RecurrentPlan::Reserve(size_t port, vorn_data_type type, const Shape& shape) {
  Place place;
  place.port = port;
  place.type = type;
  place.shape = shape;
  // Also where nothing is described: only then is it known that sizes can be counted.
  const auto layout = LayOut(shape, ElementBytes(type), 1);
  if (!layout) {
    throw Failure(VORN_ERROR_MODEL, "a tensor of the model has the shape ", ShapeText(shape),
                  "; every dimension has to be at least 1 and the whole below 2^63 bytes");
  }
  place.bytes = layout->DenseBytes();
  place.offset = work_.Reserve(place.bytes);
  return place;
}

void RecurrentPlan::TellLength(uint64_t frames) {
  if (!signature_.length) return;
  ProvidedInput& length = *signature_.length;
  const auto whole = static_cast<int64_t>(frames);
  const auto half = static_cast<int32_t>(frames);
  const uint64_t bytes = ElementBytes(length.type);
  for (uint64_t at = 0; at < length.bytes.size(); at += bytes) {
    if (length.type == VORN_INT64) std::memcpy(length.bytes.data() + at, &whole, sizeof(whole));
    if (length.type == VORN_INT32) std::memcpy(length.bytes.data() + at, &half, sizeof(half));
  }
}

// ---- Executing ----------------------------------------------------------------------------------

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
  const uint64_t framesInRun = isStepwise_ ? 1 : (isLengthOpen_ ? span.count : mostFrames_);
  const uint64_t rest = framesInRun - span.count;
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
    const uint64_t framesInRun = isStepwise_ ? 1 : (isLengthOpen_ ? span.count : mostFrames_);
    const FrameSpan taken = output.followsFrames ? span : FrameSpan{.first = 0, .count = 1};
    const uint64_t denseFrames = output.followsFrames ? framesInRun : 1;
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

}  // namespace vorn::host
