// Where tensors of many samples come from: a run directory, a folder of dumps, arrays, test
// folders of ONNX, or a single file. Found by what is there; only names are read.
#ifndef VORN_KIT_TENSOR_TENSOR_SOURCE_H_
#define VORN_KIT_TENSOR_TENSOR_SOURCE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kit/model/model_description.h"
#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// One output of one sample, in a file.
struct OutputPlace {
  /// As a dump spells it: full stops, slashes and backslashes as underscores. The second of a name
  /// has "#1" behind it. Empty where nothing tells one.
  std::string name;
  std::string path;
  std::string array{};  ///< of an archive of arrays: the array's name there

  /// What OpenTensor has unpacked, where it may be asked for many times.
  std::shared_ptr<std::optional<StoredTensor>> kept{};
};

struct SampleSource {
  uint64_t index = 0;  ///< of the inference
  std::vector<OutputPlace> outputs;
  std::vector<std::string> inputs;  ///< names of the input files, where the source tells
  std::string absence;              ///< why there are no outputs, where the source tells
};

struct TensorSource {
  std::string path;
  std::string kind;  ///< for people: "the run directory", "the dumps"
  bool isRun = false;
  /// The one sample's tensors may hold all samples, one behind the other.
  bool mayBeStacked = false;
  std::vector<SampleSource> samples;      ///< by index
  std::string unfinished;                 ///< of a run that has not ended: what is known of it
  std::optional<ModelDescription> model;  ///< of a run directory
};

/// Throws a Fault of kInput that says what was looked for and what is there.
[[nodiscard]] TensorSource FindTensors(const std::string& path);

/// The same of some samples alone, of which those that are there come, so that a source of a
/// million of them is not held; a source that may be stacked comes as it is. `unfinished` stays
/// empty.
[[nodiscard]] TensorSource FindTensors(const std::string& path, const std::set<uint64_t>& samples);

/// By the ending of the file: .bin, .float, .npy, .pb. An archive (.npz) holds one array then.
[[nodiscard]] StoredTensor OpenTensor(const std::string& path);

[[nodiscard]] StoredTensor OpenTensor(const OutputPlace& place);

/// The part of a dump's file name that is the output's name, with its number among outputs of that
/// name. A name without number and time stamp is one as it is.
[[nodiscard]] std::string OutputNameOfDump(const std::string& fileName);

/// The name as a dump spells it.
[[nodiscard]] std::string SpelledAsDump(std::string name);

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_TENSOR_SOURCE_H_
