#include "support/golden.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/files.h"
#include "support/stage.h"

namespace support {
namespace {

namespace fs = std::filesystem;

std::string JoinLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

std::string EndOf(const Transcript& transcript) {
  return transcript.status ? "status " + std::to_string(*transcript.status) + "\n"
                           : "signal " + std::to_string(*transcript.signal) + "\n";
}

}  // namespace

std::vector<std::string> ListGoldenCases(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.is_directory()) names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

GoldenFiles ReadGolden(const fs::path& caseFolder) { return ReadTree(caseFolder / "expected"); }

GoldenFiles RunGolden(const fs::path& caseFolder) {
  Stage stage;
  for (const auto& [name, bytes] : ReadTree(caseFolder / "stage")) stage.File(name, bytes);
  stage.script.Line(ReadFile(caseFolder / "script"));
  const Transcript transcript = stage.RunWith(SplitLines(ReadFile(caseFolder / "arguments")));
  GoldenFiles files;
  files["stdout"] = stage.Normalise(transcript.rawOut);
  files["stderr"] = transcript.err;
  files["status"] = EndOf(transcript);
  files["calls"] = JoinLines(transcript.record.Calls());
  for (const auto& [name, bytes] : transcript.files) files["files/" + name] = bytes;
  return files;
}

void WriteGolden(const fs::path& caseFolder, const GoldenFiles& files) {
  fs::remove_all(caseFolder / "expected");
  for (const auto& [name, bytes] : files) WriteFile(caseFolder / "expected" / name, bytes);
}

bool MustUpdateGolden() {
  const char* value = std::getenv("VORN_UPDATE_GOLDEN");
  return value != nullptr && std::strcmp(value, "1") == 0;
}

}  // namespace support
