// From what a model declares and what trials show to descriptions and places.
#include "host/plan/recurrent_layout.h"

#include <algorithm>
#include <utility>

#include "host/common/failure.h"
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

bool IsZero(const std::byte* element, uint64_t bytes) {
  return std::all_of(element, element + bytes, [](std::byte b) { return b == std::byte{0}; });
}

TensorPlace Reserve(WorkLayout& work, size_t port, vorn_data_type type, const Shape& shape) {
  TensorPlace place{};
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
  place.offset = work.Reserve(place.bytes);
  return place;
}

/// Settles T and the context of a model that takes one frame of `shape` a run. Returns what a
/// caller sees of the frames.
Shape SettleSteps(const DeclaredTensor& tensor, const ModelSettings& settings, const Shape& shape,
                  RecurrentLayout& layout) {
  layout.mostFrames = static_cast<uint64_t>(settings.maxFrames);
  if (layout.mostFrames == 0) {
    throw Failure(VORN_ERROR_MODEL, "the model takes one frame a run; say how many a sequence ",
                  "may have with 'maxFrames'");
  }
  if (settings.context == 0) return Stacked(layout.mostFrames, shape);
  const bool isOneRow = !shape.empty() && AreAllOne(shape, 0, shape.size() - 1);
  if (!isOneRow || shape.back() <= settings.context) {
    throw Failure(VORN_ERROR_MODEL, "'context' of ", settings.context, " leaves nothing of '",
                  tensor.name, "', which has the shape ", ShapeText(shape),
                  "; it has to be one row that is longer");
  }
  layout.contextBytes = static_cast<uint64_t>(settings.context) * ElementBytes(tensor.type);
  Shape frame = shape;
  frame.back() -= settings.context;
  return Stacked(layout.mostFrames, frame);
}

/// Settles T of a model that takes all frames in a run, and puts it into the input's shape. Returns
/// what a caller sees of the frames.
Shape SettleWhole(const DeclaredTensor& tensor, const ModelSettings& settings, Shape& shape,
                  RecurrentLayout& layout) {
  const auto axis = static_cast<size_t>(settings.timeAxis);
  if (axis >= shape.size() || !AreAllOne(shape, 0, axis)) {
    throw Failure(VORN_ERROR_MODEL, "'timeAxis' is ", axis, ", but '", tensor.name,
                  "' has the shape ", ShapeText(shape),
                  "; the dimensions before the frames have to be 1");
  }
  layout.isLengthOpen = tensor.shape[axis].size < 0;
  if (layout.isLengthOpen && settings.maxFrames == 0) {
    throw Failure(VORN_ERROR_MODEL, "'maxFrames' is not given, but '", tensor.name,
                  "' takes any count of frames; say how many a sequence may have");
  }
  if (!layout.isLengthOpen && settings.maxFrames != 0 && settings.maxFrames != shape[axis]) {
    throw Failure(VORN_ERROR_MODEL, "'maxFrames' is ", settings.maxFrames, ", but '", tensor.name,
                  "' takes ", shape[axis], " frames");
  }
  if (layout.isLengthOpen) shape[axis] = settings.maxFrames;
  layout.mostFrames = static_cast<uint64_t>(std::max<int64_t>(shape[axis], 0));
  return {shape.begin() + static_cast<std::ptrdiff_t>(axis), shape.end()};
}

void AddFrames(const Port& port, const ModelSettings& settings, uint64_t rowAlignment,
               RecurrentLayout& layout) {
  const DeclaredTensor& tensor = port.tensor;
  Shape shape = CloseDims(tensor.shape);
  const Shape shown = layout.isStepwise ? SettleSteps(tensor, settings, shape, layout)
                                        : SettleWhole(tensor, settings, shape, layout);
  layout.description.inputs.push_back(
      DescribeTensor("input", tensor.name, ShownInputType(tensor.type), shown, rowAlignment));
  layout.frames = Reserve(layout.work, port.index, tensor.type, shape);
  if (layout.isLengthOpen) layout.frames.timeAxis = static_cast<size_t>(settings.timeAxis);
  layout.frameRows = FrameRowsOf(shown, 0);
}

/// `port` is that of the model's own flags, if it has such.
void AddFlags(const std::optional<Port>& port, uint64_t rowAlignment, RecurrentLayout& layout) {
  ModelDescription& description = layout.description;
  const Shape shown = {static_cast<int64_t>(layout.mostFrames)};
  layout.flagRows = FrameRowsOf(shown, 0);
  if (!port) {
    description.inputs.push_back(DescribeTensor("input", FreeInputName(description, "flags"),
                                                layout.flagType, shown, rowAlignment));
    return;
  }
  const DeclaredTensor& tensor = port->tensor;
  layout.flagType = tensor.type;
  const uint64_t inRun = RoomOfRun(layout, layout.mostFrames);
  const std::optional<size_t> axis =
      layout.isStepwise ? std::nullopt : AxisOfFlags(tensor.shape, layout.mostFrames);
  const Shape shape = WithDim(CloseDims(tensor.shape), axis, inRun);
  if (DenseBytes(tensor.type, shape) != inRun * ElementBytes(tensor.type)) {
    throw Failure(VORN_ERROR_MODEL, "'flags' names '", tensor.name, "' of the shape ",
                  ShapeText(shape), "; it has to hold one flag for each of ", inRun, " frames");
  }
  description.inputs.push_back(
      DescribeTensor("input", tensor.name, ShownInputType(tensor.type), shown, rowAlignment));
  layout.flags = Reserve(layout.work, port->index, tensor.type, shape);
  if (layout.isLengthOpen) layout.flags->timeAxis = axis;
}

void AddOtherInput(const Port& port, uint64_t rowAlignment, RecurrentLayout& layout) {
  const DeclaredTensor& tensor = port.tensor;
  const Shape shape = CloseDims(tensor.shape);
  layout.description.inputs.push_back(
      DescribeTensor("input", tensor.name, ShownInputType(tensor.type), shape, rowAlignment));
  layout.others.push_back(Reserve(layout.work, port.index, tensor.type, shape));
}

void AddStateOutput(const State& state, const Shape& tried, StatePlaces& places, WorkLayout& work) {
  if (DenseBytes(places.in.type, tried) != places.in.bytes) {
    throw Failure(VORN_ERROR_MODEL, "'states' feeds '", state.start.name, "' of the shape ",
                  ShapeText(places.in.shape), " from an output of the shape ", ShapeText(tried));
  }
  places.out = Reserve(work, state.output, places.in.type, tried);
}

/// The dimension of an output that follows the frames of a whole sequence: with an open length the
/// one that got shorter, else the first one of that length.
std::optional<size_t> AxisOfOutput(const RecurrentLayout& layout, const std::string& name,
                                   const Shape& tried, const Shape& triedShorter) {
  const uint64_t shorter = FramesOfShorterTrial(layout);
  const bool canShorten = shorter != layout.mostFrames;
  std::optional<size_t> axis;
  for (size_t i = 0; i < tried.size() && !axis; ++i) {
    const bool gotShorter = i < triedShorter.size() && triedShorter[i] == tried[i] - 1;
    if (tried[i] == static_cast<int64_t>(layout.mostFrames) && (gotShorter || !canShorten)) {
      axis = i;
    }
  }
  if (triedShorter == (canShorten ? WithDim(tried, axis, shorter) : tried)) return axis;
  throw Failure(VORN_ERROR_MODEL, "output '", name, "' has the shape ", ShapeText(tried), " for ",
                layout.mostFrames, " frames and ", ShapeText(triedShorter),
                " for one less; give the largest that it takes with 'outputDims'");
}

void AddOutput(const Port& port, const Shape& tried, const Shape& triedShorter,
               OutputTypes outputTypes, uint64_t rowAlignment, RecurrentLayout& layout) {
  OutputPlace output{};
  output.isOfAnyShape = port.largest.has_value();
  const Shape& shape = output.isOfAnyShape ? *port.largest : tried;
  Shape shown = shape;
  std::optional<size_t> axis;
  if (layout.isStepwise) {
    shown = Stacked(layout.mostFrames, shape);
    axis = 0;
  } else if (!output.isOfAnyShape) {
    axis = AxisOfOutput(layout, port.tensor.name, tried, triedShorter);
    if (axis && AreAllOne(shape, 0, *axis)) {
      shown.erase(shown.begin(), shown.begin() + static_cast<std::ptrdiff_t>(*axis));
    }
  }
  output.shown = ShownOutputType(port.tensor.type, outputTypes);
  layout.description.outputs.push_back(
      DescribeTensor("output", port.tensor.name, output.shown, shown, rowAlignment));
  output.place = Reserve(layout.work, port.index, port.tensor.type, shape);
  output.followsFrames = axis.has_value();
  if (layout.isLengthOpen) output.place.timeAxis = axis;
  if (axis) {
    const size_t dropped = layout.isStepwise ? 0 : shape.size() - shown.size();
    output.rows = FrameRowsOf(shown, *axis - std::min(dropped, *axis));
  } else {
    Shape single = layout.description.outputs.back().dims;
    single.insert(single.begin(), 1);
    output.rows = FrameRowsOf(single, 0);
  }
  layout.outputs.push_back(std::move(output));
}

}  // namespace

RecurrentLayout LayOutInputs(const Signature& signature, const ModelSettings& settings,
                             uint64_t rowAlignment) {
  RecurrentLayout layout{};
  layout.isStepwise = settings.sequence == Sequence::kSteps;
  AddFrames(*signature.frames, settings, rowAlignment, layout);
  AddFlags(signature.flags, rowAlignment, layout);
  for (const Port& port : signature.inputs) AddOtherInput(port, rowAlignment, layout);
  for (const State& state : signature.states) {
    const ProvidedInput& start = state.start;
    layout.states.push_back(
        {.in = Reserve(layout.work, start.index, start.type, start.shape), .out = {}});
  }
  return layout;
}

std::vector<Shape> TrialShapes(const RecurrentLayout& layout, size_t inputCount, uint64_t frames) {
  std::vector<Shape> shapes(inputCount);
  const auto put = [&](const TensorPlace& place) {
    shapes.at(place.port) = place.ShapeFor(frames);
  };
  put(layout.frames);
  if (layout.flags) put(*layout.flags);
  for (const TensorPlace& place : layout.others) put(place);
  for (const StatePlaces& state : layout.states) put(state.in);
  return shapes;
}

uint64_t FramesOfShorterTrial(const RecurrentLayout& layout) {
  const bool canShorten = layout.isLengthOpen && layout.mostFrames > 1;
  return canShorten ? layout.mostFrames - 1 : layout.mostFrames;
}

void LayOutOutputs(const Signature& signature, const std::vector<Shape>& tried,
                   const std::vector<Shape>& triedShorter, OutputTypes outputTypes,
                   uint64_t rowAlignment, RecurrentLayout& layout) {
  for (size_t i = 0; i < layout.states.size(); ++i) {
    const State& state = signature.states[i];
    AddStateOutput(state, tried.at(state.output), layout.states[i], layout.work);
  }
  for (const Port& port : signature.outputs) {
    AddOutput(port, tried.at(port.index), triedShorter.at(port.index), outputTypes, rowAlignment,
              layout);
  }
  if (layout.outputs.empty()) {
    throw Failure(VORN_ERROR_MODEL, "the model has no output but its states; there is nothing to ",
                  "execute it for");
  }
  ModelDescription& description = layout.description;
  AppendScratchInputs(description,
                      kScratchUnit * (description.inputs.size() + description.outputs.size()),
                      layout.work.bytes(), rowAlignment);
}

bool BeginsSequence(const RecurrentLayout& layout, const BlockView& flags, uint64_t frame) {
  const uint64_t bytes = ElementBytes(layout.flagType);
  return frame == 0 || IsZero(flags.address + frame * bytes, bytes);
}

FrameSpan RunFrom(const RecurrentLayout& layout, const BlockView& flags, uint64_t first,
                  uint64_t frames) {
  if (layout.isStepwise) return {.first = first, .count = 1};
  uint64_t end = first + 1;
  while (end < frames && (layout.flags || !BeginsSequence(layout, flags, end))) ++end;
  return {.first = first, .count = end - first};
}

uint64_t RoomOfRun(const RecurrentLayout& layout, uint64_t count) {
  if (layout.isStepwise) return 1;
  return layout.isLengthOpen ? count : layout.mostFrames;
}

}  // namespace vorn::host
