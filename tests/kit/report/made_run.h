// Run directories for tests of reports, written with the kit's own writers.
#ifndef VORN_TESTS_KIT_REPORT_MADE_RUN_H_
#define VORN_TESTS_KIT_REPORT_MADE_RUN_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "kit/run/run_directory.h"

namespace vorn::kit {

/// A run with one input, a picture of 4x4 bytes, and one output of floats.
struct MadeRun {
  std::filesystem::path folder;
  std::string output = "prob";
  std::vector<int64_t> shape{1, 4};         ///< of the output
  std::vector<std::vector<float>> samples;  ///< the output's values
  std::vector<uint64_t> timesNs;            ///< an execution a sample; empty: not measured
  RunFacts facts;

  /// Four samples of `shape`, which are probabilities, and ten times.
  explicit MadeRun(std::filesystem::path place);

  /// All files of a run that is done. Inputs lie in the folder's parent, in inputs/.
  void Write() const;
};

/// Judges as vorn judge does, and leaves verdict.json in the first one's folder.
void JudgeRuns(const std::filesystem::path& actual, const std::filesystem::path& expected);

}  // namespace vorn::kit

#endif  // VORN_TESTS_KIT_REPORT_MADE_RUN_H_
