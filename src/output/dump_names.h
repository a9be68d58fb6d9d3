// The names of dump files.
//
//     <output folder>/<inference>/<output name>.<duplicate>.<microseconds>.float or .bin
#ifndef VORN_SRC_OUTPUT_DUMP_NAMES_H_
#define VORN_SRC_OUTPUT_DUMP_NAMES_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vorn::run {

/// The folder of one inference, counted from 0 by executions that succeeded.
[[nodiscard]] std::string InferenceFolder(const std::string& outputPath, uint32_t inference);

/// An output's name as a part of a file name: full stops, slashes and backslashes become
/// underscores, an empty name becomes "output".
[[nodiscard]] std::string FileNameOfOutput(std::string_view outputName);

/// Numbers outputs of the same name among one inference's outputs, from 0 on.
class DuplicateCounter {
 public:
  [[nodiscard]] uint64_t Next(const std::string& name) { return seen_[name]++; }

 private:
  std::unordered_map<std::string, uint64_t> seen_;
};

/// Folder, name, duplicate number and time stamp in microseconds, without the ending.
[[nodiscard]] std::string DumpBaseName(const std::string& folder, const std::string& name,
                                       uint64_t duplicate, uint64_t timeUs);

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_DUMP_NAMES_H_
