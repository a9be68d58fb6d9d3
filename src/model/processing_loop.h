// The work of one run once the runtime is up: one model over a list of input files.
#ifndef VORN_SRC_MODEL_PROCESSING_LOOP_H_
#define VORN_SRC_MODEL_PROCESSING_LOOP_H_

#include <cstdint>
#include <string>
#include <vector>

namespace vorn::run {

/// What is to be run. `Process` reorders and resolves `inputFiles` in place and fills `inputNames`.
struct ModelRun {
  std::string modelFile;
  /// Path or name:path, one group of data inputs an inference.
  std::vector<std::string> inputFiles;
  std::vector<std::string> inputNames;
  std::vector<std::string> rpnFiles;
  std::string outputPath;
  int32_t batchSize = 0;
  int32_t nlpTotalT = -1;
  int32_t profile = 0;
};

/// Loads the model, runs one inference a group of input files, releases the model. Files left over
/// after the last whole group are ignored. Returns 0, or 1 after having printed what failed; the
/// model is released on every way out. A model without data inputs ends the process by an integer
/// division fault.
[[nodiscard]] int Process(ModelRun& run);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_PROCESSING_LOOP_H_
