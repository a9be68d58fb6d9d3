// Plain concatenation: a path is used as it was given.
#include "output/dump_names.h"

#include <algorithm>

namespace vorn::run {

std::string InferenceFolder(const std::string& outputPath, uint32_t inference) {
  return outputPath + "/" + std::to_string(inference);
}

std::string FileNameOfOutput(std::string_view outputName) {
  if (outputName.empty()) return "output";
  std::string name(outputName);
  std::ranges::replace_if(
      name, [](char c) { return c == '.' || c == '/' || c == '\\'; }, '_');
  return name;
}

std::string DumpBaseName(const std::string& folder, const std::string& name, uint64_t duplicate,
                         uint64_t timeUs) {
  return folder + "/" + name + "." + std::to_string(duplicate) + "." + std::to_string(timeUs);
}

}  // namespace vorn::run
