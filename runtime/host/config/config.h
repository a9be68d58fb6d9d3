// The runtime's configuration: a JSON object in a file, every key optional, `{}` valid.
//
//     {
//       "threads": 4,
//       "rowAlignment": 64,
//       "memoryLimit": 268435456,
//       "graphOptimization": "all",
//       "dims": { "sequence": 128 },
//       "outputTypes": "presented",
//       "model": { "constants": { "rate": 16000 } }
//     }
//
// | key                 | value                                        | without it    |
// |---------------------|----------------------------------------------|---------------|
// | `threads`           | 1..256, threads that execute one model       | 1             |
// | `rowAlignment`      | a power of two, 1..4096 bytes                | 16            |
// | `devices`           | 1..64, devices that there are                | 1             |
// | `memoryLimit`       | 1.., bytes of memory that a device has       | the machine's |
// | `probe`             | 1..3600 seconds                              | no probe      |
// | `graphOptimization` | "none", "basic", "extended" or "all"         | "all"         |
// | `dims`              | object: name of an open dimension -> size    | {}            |
// | `outputTypes`       | "presented" or "native"                      | "presented"   |
// | `model`             | object: what the model does not say itself   | {}            |
//
// `threads` of 1 keeps execution on the calling thread. `rowAlignment` is what the row stride of
// every model input and output is rounded up to. `devices` are numbered from 0; all of them are
// this machine, each with memory of its own. With a `memoryLimit`, blocks and what models keep and
// use while they execute come out of it and are refused where it is exhausted; constants are then
// worked out in every execution and not when the model is loaded. Without one, only blocks are
// counted. With a `probe`, a model is first loaded and executed once in a process of its own, and
// refused if it ends that process or takes longer: ONNX Runtime aborts over some models that are
// malformed in ways which it does not check. It takes the time and the memory of loading once more.
// `graphOptimization` says how far the model's graph
// may be rewritten when it is loaded; results can differ in their last bits. More of it makes
// executions faster, loading longer and the peak of memory higher: a convolutional network of 98
// MiB took 0.65 times the time of "none" to execute, 2.5 times to load and 1.6 times the memory.
// `dims` closes dimensions that a model names but leaves open: a first dimension named here is no
// longer the batch; an open inner dimension that is not named here counts as 1. A name that a model
// does not have is logged and passed over, since the file serves every model. `outputTypes` is
// explained in presentation.h: by default every output has a type whose values a dump shows.
//
// The keys of `model`, for any model:
//
// | key          | value                                               | without it           |
// |--------------|-----------------------------------------------------|----------------------|
// | `netType`    | "feedForward", "detection" or "recurrent"           | "feedForward"        |
// | `dims`       | as above; a size above goes before one here         | {}                   |
// | `inputDims`  | object: input -> its dimensions, -1 for the model's | {}                   |
// | `outputDims` | object: output -> the largest dimensions it takes   | {}                   |
// | `constants`  | object: input -> number, or list of numbers         | {}                   |
//
// `inputDims` closes dimensions that have no name, and gives an input a shape that declares none.
// An input that has a dimension of 0 then, or in the model, has no elements: it is logged and is
// not among the inputs that a caller sees. An output of which the model or `outputDims` says so is
// left out likewise. `outputDims` is for outputs whose shape depends on the data, or is not
// declared and not shown by a trial with zero inputs: a smaller result stands at the front of every
// dimension with zeros behind it, what is beyond in a larger one is cut off and logged, and a batch
// is executed item by item. An input of `constants` always has these values, one number filling all
// of it, and is not among the inputs that a caller sees.
//
// For "detection":
//
// | key          | value                                               | without it           |
// |--------------|-----------------------------------------------------|----------------------|
// | `rpn`        | the input of the thresholds, or a list of such      | has to be given      |
//
// An input of thresholds is float32 of [1, 4] or [4, classes]. It comes behind all other data
// inputs, whatever the model's order, and serves the whole batch.
//
// For "recurrent":
//
// | key          | value                                               | without it           |
// |--------------|-----------------------------------------------------|----------------------|
// | `sequence`   | "whole" or "steps"                                  | "whole"              |
// | `maxFrames`  | 1.., frames that a sequence may have                | what the model says  |
// | `frames`     | the input of the frames                             | the first data input |
// | `flags`      | the input of the continuation flags                 | the model has none   |
// | `length`     | the input that is told the count of frames          | the model has none   |
// | `timeAxis`   | 0.., dimension of the frames, for "whole"           | 0                    |
// | `context`    | 0.., elements kept of the frame before, for "steps" | 0                    |
// | `states`     | object: state input -> state output                 | {}                   |
//
// recurrent_plan.h says what a caller sees of such a model and how it is executed. An input of
// `states` is fed from its output and starts from its `constants`, or from zeros.
//
// An ONNX file may carry an object of the keys of `model` as its metadata property "vorn"; a key
// given here takes the place of the file's. Names of inputs and outputs that the model does not
// have are refused when it is loaded.
//
// A key that is not in the tables is refused: a mistyped one would otherwise do nothing, silently.
#ifndef VORN_RUNTIME_HOST_CONFIG_CONFIG_H_
#define VORN_RUNTIME_HOST_CONFIG_CONFIG_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "host/tensor/presentation.h"

namespace vorn::host {

enum class GraphOptimization { kNone, kBasic, kExtended, kAll };

struct Config {
  int threads = 1;
  uint64_t rowAlignment = 16;  ///< bytes
  int devices = 1;
  uint32_t probeSeconds = 0;            ///< that a probe of a model may take; 0: there is none
  std::optional<uint64_t> memoryLimit;  ///< bytes of each device; nothing: what the machine has
  GraphOptimization graphOptimization = GraphOptimization::kAll;
  std::map<std::string, int64_t> dims;
  OutputTypes outputTypes = OutputTypes::kPresented;
  std::string model = "{}";  ///< the section's JSON text, known to be readable
};

inline constexpr int kMaxThreads = 256;
inline constexpr int kMaxDevices = 64;
inline constexpr uint32_t kMaxProbeSeconds = 3600;
inline constexpr uint64_t kMaxRowAlignment = 4096;
inline constexpr uint64_t kMaxConfigBytes = 1 << 20;

/// Reads a configuration from its text. Fails with VORN_ERROR_CONFIG and what to change.
Config ParseConfig(std::string_view text);

/// Reads a configuration from the file at `path`, of at most `kMaxConfigBytes`. Fails likewise,
/// also for a file that cannot be read.
Config ReadConfigFile(const char* path);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_CONFIG_H_
