// The command with the digit finder over its scenes.
#ifndef VORN_TESTS_EXAMPLES_DIGIT_FINDER_FINDER_RUN_H_
#define VORN_TESTS_EXAMPLES_DIGIT_FINDER_FINDER_RUN_H_

#include <filesystem>
#include <string>
#include <vector>

#include "examples/digit-finder/findings.h"
#include "support/command.h"

namespace finder {

inline constexpr size_t kScenes = 12;

/// What a run is made with; what is empty or not named stands in the folder of the example.
struct FinderRun {
  std::string model = "finder.onnx";
  std::string thresholds{};  ///< a file of the example, or the text of one
  std::filesystem::path list{};
  std::string config{};  ///< text
  std::string batch = "1";
};

/// The findings of every inference, as many as the output `count` says. Throws
/// std::runtime_error where the run fails, or where something is behind them.
std::vector<std::vector<Finding>> Find(const FinderRun& run);

/// The command line of a run with its output in `folder`, where its files are written, too.
support::Command CommandOf(const FinderRun& run, const std::filesystem::path& folder);

/// The bytes of a scene, [96, 96].
std::string Scene(size_t number);

/// The digits of a scene; their score is 1.
std::vector<Finding> Truth(size_t scene);

/// The text of a file of thresholds for the model that takes a column a class.
std::string TextOf(const ThresholdsByClass& thresholds);

}  // namespace finder

#endif  // VORN_TESTS_EXAMPLES_DIGIT_FINDER_FINDER_RUN_H_
