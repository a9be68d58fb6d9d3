// Whether a list fits a model, before anything runs: what vorn-run would fail at, and what it would
// take without a word and get wrong.
#ifndef VORN_KIT_LAUNCH_CHECKS_H_
#define VORN_KIT_LAUNCH_CHECKS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/launch/findings.h"
#include "kit/launch/input_list.h"
#include "kit/model/model_description.h"

namespace vorn::kit {

/// What a file is, as the checks have to know it.
struct FileState {
  std::string fault;       ///< "is not there", "is a folder", ...; empty: it can be read
  uint64_t sizeBytes = 0;  ///< of one that can be read
};
using FileLook = std::function<FileState(const std::string& path)>;

struct CheckRequest {
  std::string listPath;  ///< as the messages have it
  int64_t batch = 1;
  std::optional<int64_t> totalT;
  /// By file of -r, in their order: the numbers that vorn-run reads in it, or why it reads none.
  struct Thresholds {
    std::string path;
    std::string fault;
    uint64_t values = 0;
  };
  std::vector<Thresholds> thresholds;
};

/// The inputs that a list has to name files for: all but thresholds and scratch buffers.
[[nodiscard]] uint64_t DataInputs(const ModelDescription& model, size_t thresholdFiles);

/// Names of all inputs but the scratch buffers, which is what vorn-run sorts a list by.
[[nodiscard]] std::vector<std::string> NamedInputs(const ModelDescription& model);

/// All faults, one a line at most: those of names first, then those of files. The list is sorted by
/// the model's NamedInputs. Throws a Fault of kInput where it cannot be read to its end.
[[nodiscard]] Findings CheckList(const CheckRequest& request, const ModelDescription& model,
                                 const InputList& list, const FileLook& look);

/// What can be said of a list where the model is not known: which files are not there.
[[nodiscard]] Findings CheckFilesAlone(const std::string& listPath, const InputList& list,
                                       const FileLook& look);

/// How many 32-bit values a dump of an output holds, counted as vorn-run does.
[[nodiscard]] uint64_t DumpValues(const TensorDescription& output, uint64_t batch);

/// What the dumps of one inference take: surely, and at the worst, which depends on the values.
struct DumpSize {
  uint64_t leastBytes = 0;
  uint64_t mostBytes = 0;
};
[[nodiscard]] DumpSize SizeOfDumps(const ModelDescription& model, uint64_t batch, bool isTextKept);

/// How many numbers vorn-run reads in the text of a thresholds file; empty where it refuses it.
/// White space behind the last number counts it once more.
[[nodiscard]] std::optional<uint64_t> CountThresholds(const std::string& text);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_CHECKS_H_
