// Sorting tensors by their use.
#include "host/plan/signature.h"

#include <algorithm>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/common/excerpt.h"
#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/config/constant.h"

namespace vorn::host {
namespace {

/// The declared dimensions with those given for this tensor; -1 leaves one as it is.
DeclaredTensor WithDims(DeclaredTensor tensor, const Shape& given) {
  if (!tensor.isShapeKnown) tensor.shape.resize(given.size());
  tensor.isShapeKnown = true;
  const DeclaredShape declared = tensor.shape;
  bool fits = given.size() == tensor.shape.size();
  for (size_t i = 0; fits && i < given.size(); ++i) {
    DeclaredDim& dim = tensor.shape[i];
    fits = given[i] == kDimOfModel || dim.size < 0 || dim.size == given[i];
    if (given[i] != kDimOfModel) dim = {.size = given[i], .symbol = ""};
  }
  if (!fits) {
    throw Failure(VORN_ERROR_MODEL, "'inputDims' gives '", tensor.name, "' the shape ",
                  ShapeText(given), ", but the model declares ", ShapeText(declared));
  }
  return tensor;
}

/// Hands out the session's tensors by name, each for one use only.
class Ports {
 public:
  Ports(const char* kind, const std::vector<DeclaredTensor>& tensors) : kind_(kind) {
    for (size_t i = 0; i < tensors.size(); ++i) {
      ports_.push_back({.index = i, .tensor = tensors[i], .largest = {}});
    }
  }

  Port& At(const std::string& key, const std::string& name) {
    const auto found = Find(name);
    if (found == ports_.end()) {
      throw Failure(VORN_ERROR_MODEL, "'", key, "' names '", Excerpt(name),
                    "', but the model has no ", kind_, " of that name; it has ", Quoted(Names()));
    }
    return *found;
  }

  Port Take(const std::string& key, const std::string& name) {
    Port port = At(key, name);
    if (!taken_.insert(name).second) {
      throw Failure(VORN_ERROR_MODEL, "'", key, "' names the ", kind_, " '", name,
                    "', which has another use already");
    }
    return port;
  }

  /// What nobody took, in the model's order.
  std::vector<Port> Rest() const {
    std::vector<Port> rest;
    for (const Port& port : ports_) {
      if (!taken_.contains(port.tensor.name)) rest.push_back(port);
    }
    return rest;
  }

 private:
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const Port& port : ports_) names.push_back(port.tensor.name);
    return names;
  }

  std::vector<Port>::iterator Find(const std::string& name) {
    return std::find_if(ports_.begin(), ports_.end(),
                        [&](const Port& port) { return port.tensor.name == name; });
  }

  const char* kind_;
  std::vector<Port> ports_;
  std::set<std::string> taken_;
};

bool IsOpen(const DeclaredDim& dim) { return dim.size < 0; }

/// An input, of which its first dimensions of that count may be open.
struct SizedInput {
  const DeclaredTensor* tensor;
  size_t mayBeOpen;
};

std::span<const DeclaredDim> DimsToGive(const SizedInput& input) {
  const DeclaredShape& shape = input.tensor->shape;
  return std::span(shape).subspan(std::min(input.mayBeOpen, shape.size()));
}

bool LeavesSizesOpen(const SizedInput& input) {
  return !HasNoElements(input.tensor->shape) && std::ranges::any_of(DimsToGive(input), IsOpen);
}

/// "{\"height\": N, \"width\": N}"; empty where one that is open has no name.
std::string ExampleOfDims(const std::vector<SizedInput>& inputs) {
  std::vector<std::string> names;
  for (const SizedInput& input : inputs) {
    for (const DeclaredDim& dim : DimsToGive(input)) {
      if (!IsOpen(dim)) continue;
      if (dim.symbol.empty()) return "";
      if (std::ranges::find(names, dim.symbol) == names.end()) names.push_back(dim.symbol);
    }
  }
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "{\"" : ", \"") + Excerpt(name) + "\": N";
  }
  return text + "}";
}

/// "\"x\": [-1, 3, N, N]": what would close all but the first dimensions of that count.
std::string ExampleOfInputDims(const DeclaredTensor& tensor, size_t mayBeOpen) {
  std::string dims;
  for (size_t i = 0; i < tensor.shape.size(); ++i) {
    const std::string fixed = i < mayBeOpen ? "-1" : "N";
    dims += (i == 0 ? "" : ", ") +
            (IsOpen(tensor.shape[i]) ? fixed : std::to_string(tensor.shape[i].size));
  }
  return "\"" + Excerpt(tensor.name) + "\": [" + dims + "]";
}

/// Refuses inputs that leave more open than their first dimensions of that count, all at once. A
/// size of 1 in their place would be run over in silence, and lead to results that mean nothing.
void RequireSizes(std::vector<SizedInput> inputs) {
  std::erase_if(inputs, [](const SizedInput& input) { return !LeavesSizesOpen(input); });
  if (inputs.empty()) return;
  const DeclaredTensor& first = *inputs.front().tensor;
  std::string others;
  if (inputs.size() > 1) {
    others = Join(", and ", inputs.size() - 1, inputs.size() == 2 ? " other does" : " others do");
  }
  const std::string dims = ExampleOfDims(inputs);
  std::string inputDims;
  for (const SizedInput& input : inputs) {
    inputDims +=
        (inputDims.empty() ? "{" : ", ") + ExampleOfInputDims(*input.tensor, input.mayBeOpen);
  }
  throw Failure(VORN_ERROR_MODEL, "input '", first.name, "' leaves sizes open in ",
                ShapeText(first.shape), others, "; give them, also where 1 is meant, with ",
                dims.empty() ? "" : "'dims' " + dims + " or ", "'inputDims' ", inputDims, "}");
}

void RequireSizes(const DeclaredTensor& tensor, size_t mayBeOpen) {
  RequireSizes({{&tensor, mayBeOpen}});
}

/// An open dimension is as long as the numbers where it is the only one, and 1 elsewhere.
ProvidedInput Provide(const Port& port, const std::vector<Number>& numbers) {
  const DeclaredTensor& tensor = port.tensor;
  ProvidedInput input{};
  input.index = port.index;
  input.name = tensor.name;
  input.type = tensor.type;
  input.shape = CloseDims(tensor.shape);
  input.hadOpenDims = std::ranges::any_of(tensor.shape, IsOpen);
  if (input.hadOpenDims && input.shape.size() == 1) {
    input.shape[0] = static_cast<int64_t>(numbers.size());
  }
  input.bytes = EncodeConstant(input.name, input.type, input.shape, numbers);
  return input;
}

/// A state that leaves one dimension open, wherever it is, leaves the batch open; a sequence is
/// executed at a time.
void RequireStateSizes(const DeclaredTensor& tensor) {
  if (std::ranges::count_if(tensor.shape, IsOpen) > 1) RequireSizes(tensor, 0);
}

/// Refuses data inputs that leave more open than what is known to be the batch or the frames.
void RequireDataSizes(const Signature& signature, const ModelSettings& settings) {
  std::vector<SizedInput> inputs;
  for (size_t i = 0; i < signature.inputs.size(); ++i) {
    const bool isRpn = i + signature.rpnCount >= signature.inputs.size();
    inputs.push_back({&signature.inputs[i].tensor, isRpn ? size_t{0} : size_t{1}});
  }
  if (signature.frames) {
    // The dimensions before the frames have to be 1 in any case.
    const int64_t timeAxis = settings.sequence == Sequence::kSteps ? 0 : settings.timeAxis;
    inputs.push_back({&signature.frames->tensor, static_cast<size_t>(timeAxis) + 1});
  }
  RequireSizes(std::move(inputs));
}

/// There is nothing that a caller could give for an input without elements.
void TakeEmptyInputs(Ports& inputs, Signature& signature) {
  for (const Port& port : inputs.Rest()) {
    if (!HasNoElements(port.tensor.shape)) continue;
    Log(LogLevel::kError, "vorn_mdl_load_from_mem",
        Join("input '", port.tensor.name, "' has no elements and is left out"));
    signature.constants.push_back(Provide(inputs.Take("inputDims", port.tensor.name), {}));
  }
}

bool IsEmptyOutput(const Port& port) {
  if (!port.largest) return HasNoElements(port.tensor.shape);
  return std::ranges::find(*port.largest, 0) != port.largest->end();
}

/// An output that is declared without elements has nothing to show.
void LeaveOutEmptyOutputs(Signature& signature) {
  for (const Port& port : signature.outputs) {
    if (!IsEmptyOutput(port)) continue;
    Log(LogLevel::kError, "vorn_mdl_load_from_mem",
        Join("output '", port.tensor.name, "' is declared without elements and left out"));
  }
  if (std::erase_if(signature.outputs, IsEmptyOutput) != 0 && signature.outputs.empty()) {
    throw Failure(VORN_ERROR_MODEL, "the model has no output with elements; there is nothing to ",
                  "execute it for");
  }
}

void RefuseForeignKeys(const ModelSettings& settings) {
  const auto refuseIf = [&](bool isGiven, const char* key, const char* netType) {
    if (!isGiven) return;
    throw Failure(VORN_ERROR_MODEL, "'", key, "' is given, but 'netType' is not \"", netType, '"');
  };
  if (settings.netType != VORN_NET_DETECTION) refuseIf(!settings.rpn.empty(), "rpn", "detection");
  if (settings.netType == VORN_NET_RECURRENT) return;
  refuseIf(!settings.states.empty(), "states", "recurrent");
  refuseIf(!settings.frames.empty(), "frames", "recurrent");
  refuseIf(!settings.flags.empty(), "flags", "recurrent");
  refuseIf(!settings.length.empty(), "length", "recurrent");
  refuseIf(settings.maxFrames != 0, "maxFrames", "recurrent");
  refuseIf(settings.timeAxis != 0, "timeAxis", "recurrent");
  refuseIf(settings.context != 0, "context", "recurrent");
  refuseIf(settings.sequence != Sequence::kWhole, "sequence", "recurrent");
}

void TakeThresholds(const ModelSettings& settings, Ports& inputs, Signature& signature) {
  if (settings.rpn.empty()) {
    throw Failure(VORN_ERROR_MODEL,
                  "the net type is \"detection\"; name its input of thresholds with 'rpn'");
  }
  for (const std::string& name : settings.rpn) {
    const Port port = inputs.Take("rpn", name);
    RequireSizes(port.tensor, 0);
    const Shape shape = CloseDims(port.tensor.shape);
    const bool isOne = shape.size() == 2 && shape[0] == 1 && shape[1] == 4;
    const bool isMany = shape.size() == 2 && shape[0] == 4 && shape[1] >= 1;
    if (port.tensor.type != VORN_FLOAT32 || (!isOne && !isMany)) {
      throw Failure(VORN_ERROR_MODEL, "'rpn' names '", name, "' of the shape ", ShapeText(shape),
                    "; thresholds are float32 of [1, 4] or [4, classes]");
    }
    signature.inputs.push_back(port);
  }
  signature.rpnCount = settings.rpn.size();
}

void TakeSequence(const ModelSettings& settings, Ports& inputs, Ports& outputs,
                  Signature& signature) {
  for (const auto& [input, output] : settings.states) {
    const auto given = settings.constants.find(input);
    const Port start = inputs.Take("states", input);
    RequireStateSizes(start.tensor);
    State state{};
    state.start = Provide(
        start, given == settings.constants.end() ? std::vector<Number>{Number()} : given->second);
    const Port port = outputs.Take("states", output);
    if (port.tensor.type != state.start.type) {
      throw Failure(VORN_ERROR_MODEL, "'states' feeds '", input, "' from '", output,
                    "', which has another element type");
    }
    state.output = port.index;
    signature.states.push_back(std::move(state));
  }
  if (!settings.length.empty()) {
    const Port port = inputs.Take("length", settings.length);
    if (port.tensor.type != VORN_INT32 && port.tensor.type != VORN_INT64) {
      throw Failure(VORN_ERROR_MODEL, "'length' names '", settings.length,
                    "'; a count of frames is int32 or int64");
    }
    signature.length = Provide(port, {Number{.real = 1, .whole = 1}});
  }
  if (!settings.flags.empty()) signature.flags = inputs.Take("flags", settings.flags);
  if (!settings.frames.empty()) signature.frames = inputs.Take("frames", settings.frames);
}

void TakeFirstAsFrames(Ports& inputs, Signature& signature) {
  const std::vector<Port> rest = inputs.Rest();
  if (rest.empty()) throw Failure(VORN_ERROR_MODEL, "no input is left that could hold frames");
  signature.frames = inputs.Take("frames", rest.front().tensor.name);
}

}  // namespace

Signature SignatureOf(const Session& session, const ModelSettings& settings) {
  RefuseForeignKeys(settings);
  Ports inputs("input", session.inputs());
  Ports outputs("output", session.outputs());
  for (const auto& [name, dims] : settings.inputDims) {
    Port& port = inputs.At("inputDims", name);
    port.tensor = WithDims(port.tensor, dims);
  }
  for (const auto& [name, dims] : settings.outputDims) {
    outputs.At("outputDims", name).largest = dims;
  }
  for (const Port& port : inputs.Rest()) {
    if (port.tensor.isShapeKnown) continue;
    throw Failure(VORN_ERROR_MODEL, "input '", port.tensor.name,
                  "' says nothing of its shape; declare it in the model or with 'inputDims'");
  }
  Signature signature;
  for (const auto& [name, numbers] : settings.constants) {
    inputs.At("constants", name);
    if (settings.states.contains(name)) continue;
    const Port port = inputs.Take("constants", name);
    RequireSizes(port.tensor, 1);
    signature.constants.push_back(Provide(port, numbers));
  }
  if (settings.netType == VORN_NET_RECURRENT) TakeSequence(settings, inputs, outputs, signature);
  if (settings.netType == VORN_NET_DETECTION) TakeThresholds(settings, inputs, signature);
  TakeEmptyInputs(inputs, signature);
  if (settings.netType == VORN_NET_RECURRENT && !signature.frames) {
    TakeFirstAsFrames(inputs, signature);
  }
  std::vector<Port> data = inputs.Rest();
  signature.inputs.insert(signature.inputs.begin(), data.begin(), data.end());
  signature.outputs = outputs.Rest();
  LeaveOutEmptyOutputs(signature);
  RequireDataSizes(signature, settings);
  return signature;
}

}  // namespace vorn::host
