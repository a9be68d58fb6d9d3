// What a model file does not say of itself, and a person has to: settings of one model.
//
// They stand in the configuration under the key "model", or in the ONNX file as the text of its
// metadata property "vorn"; a key of the configuration takes the place of the file's.
// docs/host-runtime.md is the reference of the keys, and a test holds it to this file.
#ifndef VORN_RUNTIME_HOST_CONFIG_MODEL_SETTINGS_H_
#define VORN_RUNTIME_HOST_CONFIG_MODEL_SETTINGS_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/tensor/shape.h"
#include "vorn/vorn.h"

namespace vorn::host {

/// A number as it was written: whole where it has neither point nor exponent.
struct Number {
  double real = 0;
  int64_t whole = 0;  ///< the same, where `isWhole`
  bool isWhole = true;

  bool operator==(const Number&) const = default;
};

/// How a recurrent model takes the frames of a sequence.
enum class Sequence {
  kWhole,  ///< all in one run
  kSteps   ///< one a run, its state outputs fed back into its state inputs
};

/// The precision to which a model's numbers are rounded.
enum class Rounding { kNone, kToFloat16, kToBfloat16, kToInt8 };

/// The values that a tensor takes.
struct Range {
  double min = 0;
  double max = 0;  ///< not below `min`

  bool operator==(const Range&) const = default;
};

/// A dimension of `inputDims` that stays as the model has it.
inline constexpr int64_t kDimOfModel = -1;

struct ModelSettings {
  vorn_net_type netType = VORN_NET_FEED_FORWARD;
  std::map<std::string, int64_t> dims;      ///< name of an open dimension -> size
  std::map<std::string, Shape> inputDims;   ///< input -> dimensions, some of them kDimOfModel
  std::map<std::string, Shape> outputDims;  ///< output -> the largest dimensions that it takes
  std::map<std::string, std::vector<Number>> constants;  ///< input -> values, or one for all
  std::vector<std::string> rpn;                          ///< inputs of thresholds
  Sequence sequence = Sequence::kWhole;
  int64_t maxFrames = 0;  ///< 0: as many as the model declares
  std::string frames;     ///< the input of the frames; empty: the first one that is left
  std::string flags;      ///< the input of the continuation flags; empty: the model has none
  std::string length;     ///< the input that is told the count of frames; empty: none
  int64_t timeAxis = 0;   ///< of the frames, where the model takes them whole
  int64_t context = 0;    ///< elements of the frame before that stand in front of a frame
  std::map<std::string, std::string> states;  ///< state input <- state output
  bool exposeAll = false;                     ///< every result that can be given is an output
  std::vector<std::string> expose;            ///< results of nodes that are outputs as well
  std::vector<std::string> until;  ///< results that are the outputs instead; empty: the model's own
  Rounding round = Rounding::kNone;
  std::map<std::string, Range> ranges;  ///< of tensors, for kToInt8
  std::string rangesFile;               ///< where they stand instead; empty: here
  bool isFused = true;  ///< for kToInt8: what compilers make one operation of is rounded once

  bool operator==(const ModelSettings&) const = default;
};

/// Reads settings from the text of a JSON object; what it does not mention stays as in `base`.
/// Fails with VORN_ERROR_CONFIG and what to change.
ModelSettings ParseModelSettings(std::string_view text, ModelSettings base = {});

/// The keys that it takes, in the order in which messages name them.
std::vector<std::string_view> ModelSettingsKeys();

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_MODEL_SETTINGS_H_
