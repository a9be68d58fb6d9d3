// Which of a model's inputs and outputs a caller sees, and what the others are there for.
//
//     inputs   = those that a caller sees + constants + states + the count of frames
//     outputs  = those that a caller sees + state outputs
#ifndef VORN_RUNTIME_HOST_PLAN_SIGNATURE_H_
#define VORN_RUNTIME_HOST_PLAN_SIGNATURE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/config/model_settings.h"
#include "host/engine/engine.h"
#include "host/tensor/shape.h"

namespace vorn::host {

/// An input or output of the session.
struct Port {
  size_t index;  ///< in the session
  DeclaredTensor tensor;
  std::optional<Shape> largest;  ///< of an output whose shape depends on the data
};

/// An input whose values the runtime provides.
struct ProvidedInput {
  size_t index;  ///< in the session
  std::string name;
  vorn_data_type type = VORN_FLOAT32;
  Shape shape;
  std::vector<std::byte> bytes;  ///< dense
  bool hadOpenDims;
};

/// An output that is fed back into an input, and what the input holds at the start of a sequence.
struct State {
  ProvidedInput start;
  size_t output;  ///< in the session
};

struct Signature {
  std::vector<Port> inputs;  ///< in the order in which a caller sees them; thresholds come last
  size_t rpnCount = 0;       ///< how many of them are thresholds
  std::vector<Port> outputs;
  std::vector<ProvidedInput> constants;  ///< inputs without elements among them
  // Of a recurrent model, and not among `inputs`:
  std::optional<Port> frames;  ///< always there
  std::optional<Port> flags;
  std::optional<ProvidedInput> length;
  std::vector<State> states;
};

/// Sorts the session's tensors by what the settings say of them, and puts the dimensions in that
/// they give. Fails with VORN_ERROR_MODEL for settings that do not fit the model: a name that it
/// does not have or that has two uses, other dimensions than it declares, a key of another net
/// type; and for an input with an open dimension that nobody gave a size. What may stay open, and
/// counts as 1 then, can be nothing but the batch:
///
///   - the first dimension of an input or a constant, though not of thresholds;
///   - of a recurrent model, the dimensions of the frames before the one that they follow, the only
///     open one of a state wherever it is, and any of the flags and of the count of frames, which
///     have to hold one number for each frame and one in all.
Signature SignatureOf(const Session& session, const ModelSettings& settings);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_PLAN_SIGNATURE_H_
