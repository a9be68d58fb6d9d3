// Tensors for a model, the list that names them, and what they were made of.
#ifndef VORN_KIT_PREPARE_PREPARE_H_
#define VORN_KIT_PREPARE_PREPARE_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/json/json.h"
#include "kit/model/model_description.h"
#include "kit/prepare/manifest.h"
#include "kit/prepare/random_values.h"
#include "kit/prepare/recipe.h"
#include "kit/prepare/signal.h"
#include "kit/prepare/source.h"

namespace vorn::kit {

/// What an input of the model is to be filled with.
struct InputRequest {
  std::string name;
  std::string source;               ///< a file or a folder
  std::optional<std::string> part;  ///< the array of an archive, the output of a run
  std::optional<Recipe> recipe;
  std::optional<SignalRecipe> signal;
  std::string signalText;  ///< what was said of the signal, for the hash of what is made of it
  std::optional<Json> signalJson{};    ///< the same, for the manifest
  std::optional<Json> rawSignal;       ///< of samples without a head
  std::optional<RandomRecipe> random;  ///< instead of a source
  std::vector<ListedSource> listed{};  ///< instead of the source: files and items one by one
};

struct PrepareRequest {
  ModelDescription model;
  std::vector<InputRequest> inputs;
  std::string folder;
  uint64_t batch = 1;
  std::optional<uint64_t> most;    ///< samples; the first ones
  std::optional<uint64_t> count;   ///< samples, where only random numbers are asked for
  std::optional<Json> thresholds;  ///< what MakeThresholds takes
  bool areFaultsLeftOut = false;
  bool isResumed = false;
  bool isDryRun = false;
  size_t workers = 1;
  std::chrono::seconds time{60};             ///< of one item
  uint64_t memoryBytes = uint64_t{4} << 30;  ///< of one process
  std::vector<std::string> command;
  std::string version;
};

struct PrepareProgress {
  uint64_t done = 0;  ///< items
  uint64_t all = 0;
  uint64_t faults = 0;
};

struct PrepareResult {
  uint64_t samples = 0;
  uint64_t made = 0;  ///< items
  uint64_t kept = 0;  ///< that were there, and are made of the same
  std::vector<LeftOut> left;
  std::vector<std::string> remarks;
  std::string list;
  std::vector<std::string> thresholds;  ///< files for -r of vorn-run, in their order
  uint64_t sizeBytes = 0;               ///< of all tensors
};

/// Checks everything that can be known before a file is written. Then makes the items, on all
/// workers; the list and the manifest come last, and whole. Throws a Fault: of kInput where an item
/// cannot be made and faults are not left out, with a line for each of the first ones; kModel where
/// an input takes something else; kLimit for the disk. What was made stays for the next time.
/// Interrupted by `isStopped`, it throws one of kLimit that says how to go on.
[[nodiscard]] PrepareResult Prepare(const PrepareRequest& request,
                                    const std::function<void(const PrepareProgress&)>& show,
                                    const std::function<bool()>& isStopped);

/// A line a source that was left out; where many were for the same reason, one for all of these.
[[nodiscard]] std::vector<std::string> FoldedReasons(const std::vector<LeftOut>& left);

/// The inputs that take files, in the model's order.
[[nodiscard]] std::vector<TensorDescription> FileInputs(const ModelDescription& model);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_PREPARE_H_
