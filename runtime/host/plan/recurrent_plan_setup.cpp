// What a caller sees of a recurrent model, and where everything of it lies in the work buffer.
#include <algorithm>

#include "host/common/failure.h"
#include "host/plan/recurrent_plan.h"
#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

uint64_t DenseBytes(vorn_data_type type, const Shape& shape) {
  uint64_t bytes = ElementBytes(type);
  for (const int64_t dim : shape) bytes *= static_cast<uint64_t>(dim);
  return bytes;
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

}  // namespace

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

void RecurrentPlan::PlanFrames(const ModelSettings& settings, ModelDescription& description) {
  const DeclaredTensor& tensor = signature_.frames->tensor;
  Shape shape = CloseDims(tensor.shape);
  const Shape shown = isStepwise_ ? SettleSteps(settings, shape) : SettleWhole(settings, shape);
  description.inputs.push_back(
      DescribeTensor("input", tensor.name, ShownInputType(tensor.type), shown, rowAlignment_));
  frames_ = Reserve(signature_.frames->index, tensor.type, shape);
  if (isLengthOpen_) frames_.timeAxis = static_cast<size_t>(settings.timeAxis);
  frameRows_ = FrameRowsOf(shown, 0);
}

/// Settles T and the context of a model that takes one frame of `shape` a run. Returns what a
/// caller sees of the frames.
Shape RecurrentPlan::SettleSteps(const ModelSettings& settings, const Shape& shape) {
  const DeclaredTensor& tensor = signature_.frames->tensor;
  mostFrames_ = static_cast<uint64_t>(settings.maxFrames);
  if (mostFrames_ == 0) {
    throw Failure(VORN_ERROR_MODEL, "the model takes one frame a run; say how many a sequence ",
                  "may have with 'maxFrames'");
  }
  if (settings.context == 0) return Stacked(mostFrames_, shape);
  const bool isOneRow = !shape.empty() && AreAllOne(shape, 0, shape.size() - 1);
  if (!isOneRow || shape.back() <= settings.context) {
    throw Failure(VORN_ERROR_MODEL, "'context' of ", settings.context, " leaves nothing of '",
                  tensor.name, "', which has the shape ", ShapeText(shape),
                  "; it has to be one row that is longer");
  }
  contextBytes_ = static_cast<uint64_t>(settings.context) * ElementBytes(tensor.type);
  Shape frame = shape;
  frame.back() -= settings.context;
  return Stacked(mostFrames_, frame);
}

/// Settles T of a model that takes all frames in a run, and puts it into the input's shape. Returns
/// what a caller sees of the frames.
Shape RecurrentPlan::SettleWhole(const ModelSettings& settings, Shape& shape) {
  const DeclaredTensor& tensor = signature_.frames->tensor;
  const auto axis = static_cast<size_t>(settings.timeAxis);
  if (axis >= shape.size() || !AreAllOne(shape, 0, axis)) {
    throw Failure(VORN_ERROR_MODEL, "'timeAxis' is ", axis, ", but '", tensor.name,
                  "' has the shape ", ShapeText(shape),
                  "; the dimensions before the frames have to be 1");
  }
  isLengthOpen_ = tensor.shape[axis].size < 0;
  if (isLengthOpen_ && settings.maxFrames == 0) {
    throw Failure(VORN_ERROR_MODEL, "'maxFrames' is not given, but '", tensor.name,
                  "' takes any count of frames; say how many a sequence may have");
  }
  if (!isLengthOpen_ && settings.maxFrames != 0 && settings.maxFrames != shape[axis]) {
    throw Failure(VORN_ERROR_MODEL, "'maxFrames' is ", settings.maxFrames, ", but '", tensor.name,
                  "' takes ", shape[axis], " frames");
  }
  if (isLengthOpen_) shape[axis] = settings.maxFrames;
  mostFrames_ = static_cast<uint64_t>(std::max<int64_t>(shape[axis], 0));
  return {shape.begin() + static_cast<std::ptrdiff_t>(axis), shape.end()};
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

/// The dimension of an output that follows the frames of a whole sequence: with an open length the
/// one that got shorter, else the first one of that length.
std::optional<size_t> RecurrentPlan::AxisOfOutput(const std::string& name, const Shape& tried,
                                                  const Shape& triedShorter) const {
  const bool canShorten = isLengthOpen_ && mostFrames_ > 1;
  std::optional<size_t> axis;
  for (size_t i = 0; i < tried.size() && !axis; ++i) {
    const bool gotShorter = i < triedShorter.size() && triedShorter[i] == tried[i] - 1;
    if (tried[i] == static_cast<int64_t>(mostFrames_) && (gotShorter || !canShorten)) axis = i;
  }
  if (triedShorter == (canShorten ? WithDim(tried, axis, mostFrames_ - 1) : tried)) return axis;
  throw Failure(VORN_ERROR_MODEL, "output '", name, "' has the shape ", ShapeText(tried), " for ",
                mostFrames_, " frames and ", ShapeText(triedShorter),
                " for one less; give the largest that it takes with 'outputDims'");
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
    axis = AxisOfOutput(port.tensor.name, tried, triedShorter);
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
    if (e.status() != VORN_ERROR_EXECUTION) throw;
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

}  // namespace vorn::host
