// What a person says of the inputs: on the command line, or in a file where names make that hard.
//
//     {"schema": 1,
//      "inputs": [{"name": "picture:0",      an input of the model
//                  "source": "photos",       from the folder of the job on
//                  "part": "x_test",         the array of an archive, the output of a run
//                  "recipe": "letterbox"}]}  a ready one, a file, or the recipe itself
//
// A source may be a list: of paths, and of {"path": "x.npz", "part": "x", "item": 3}, where "part"
// is an array's name and "item" one of several in the file; both may be left out.
#ifndef VORN_KIT_PREPARE_JOB_H_
#define VORN_KIT_PREPARE_JOB_H_

#include <span>
#include <string>
#include <vector>

#include "kit/model/model_description.h"
#include "kit/prepare/prepare.h"

namespace vorn::kit {

struct Job {
  std::vector<InputRequest> inputs;
  std::optional<uint64_t> count;
  std::optional<Json> thresholds;
};

/// Reads a job. Throws a Fault of kInput that names the file and the key.
[[nodiscard]] Job ReadJob(const std::string& path);

/// The same of a value within another file, whose paths are relative to `folder`. Throws a
/// JsonError.
[[nodiscard]] std::vector<InputRequest> InputsFromJson(const Json& inputs,
                                                       const std::string& folder);

/// Words of `--input`, `--recipe` and `--random`: "NAME=SOURCE", where NAME is one of the inputs
/// that take files, whatever characters it has; of a model with one such input the name may be left
/// out. Throws a Fault of kUsage that lists the inputs.
[[nodiscard]] std::vector<InputRequest> InputsFromWords(std::span<const std::string> sources,
                                                        std::span<const std::string> recipes,
                                                        std::span<const std::string> randoms,
                                                        const ModelDescription& model);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_JOB_H_
