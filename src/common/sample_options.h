// What the command line asks for, and what its paths became: filled once, then handed by reference
// to everything that runs.
#ifndef VORN_SRC_COMMON_SAMPLE_OPTIONS_H_
#define VORN_SRC_COMMON_SAMPLE_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace vorn::run {

/// The command line as it was given; nothing in it has been checked.
struct SampleOptions {
  std::string modelPath;
  std::string imagePath;     ///< the input list file
  std::string vornJsonPath;  ///< the runtime's configuration
  std::string rpnData;       ///< rpn parameter files, separated by commas
  int32_t batchSize = 1;
  /// Time steps. A recurrent model's first input overrides them; for any other network a number
  /// above 0 only makes the run print what kind of network it is.
  int32_t nlpTotalT = -1;
  int32_t profile = 0;  ///< only 1 is on
  std::string outputPath;
};

/// The paths of a run, resolved but for the input files, which `Process` resolves.
struct ResolvedPaths {
  std::string modelFile;
  /// The entries of the list, each a path or name:path; one group of data inputs per inference.
  std::vector<std::string> inputFiles;
  std::string jsonFile;
  std::vector<std::string> rpnFiles;
};

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_SAMPLE_OPTIONS_H_
