// Golden transcripts: runs of `vorn-run` whose whole outcome is kept as files.
//
//   <case>/arguments          the words of the command line, one per line
//   <case>/script             what the scripted runtime plays
//   <case>/stage/...          files laid into the folder of the run, beside those of the stage
//   <case>/expected/stdout    standard output, normalised as the stage does it
//   <case>/expected/stderr
//   <case>/expected/status    `status 0` or `signal 6`
//   <case>/expected/calls     the runtime calls, in their order
//   <case>/expected/files/... everything below the folder `out` of the run
#ifndef VORN_TESTS_SUPPORT_GOLDEN_H_
#define VORN_TESTS_SUPPORT_GOLDEN_H_

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace support {

/// The files below `expected`, by name.
using GoldenFiles = std::map<std::string, std::string>;

/// The names of all cases in a folder, sorted.
[[nodiscard]] std::vector<std::string> ListGoldenCases(const std::filesystem::path& folder);

[[nodiscard]] GoldenFiles ReadGolden(const std::filesystem::path& caseFolder);

/// Runs the case and returns what the files would have to hold.
[[nodiscard]] GoldenFiles RunGolden(const std::filesystem::path& caseFolder);

/// Replaces the files by these.
void WriteGolden(const std::filesystem::path& caseFolder, const GoldenFiles& files);

/// True if the environment asks for new files: VORN_UPDATE_GOLDEN=1.
[[nodiscard]] bool MustUpdateGolden();

}  // namespace support

#endif  // VORN_TESTS_SUPPORT_GOLDEN_H_
