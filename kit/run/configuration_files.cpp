#include "kit/run/configuration_files.h"

#include <sys/stat.h>

#include <set>

#include "kit/common/fault.h"
#include "kit/json/json.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostConfigurationBytes = 64 << 20;

void GatherTexts(const Json& value, std::set<std::string>& texts) {
  if (value.IsText()) {
    texts.insert(value.AsText());
  } else if (value.IsArray()) {
    for (const Json& item : value.Items()) GatherTexts(item, texts);
  } else if (value.IsObject()) {
    for (const auto& [key, member] : value.Members()) GatherTexts(member, texts);
  }
}

}  // namespace

std::vector<FileIdentity> FilesNamedIn(const std::string& configuration) {
  std::set<std::string> texts;
  try {
    GatherTexts(ParseJson(ReadWholeFile(configuration, "the configuration", ExitStatus::kModel,
                                        kMostConfigurationBytes)),
                texts);
  } catch (const JsonError&) {
    return {};
  }
  std::vector<FileIdentity> files;
  for (const std::string& text : texts) {
    struct stat about {};
    const bool isFile = text.find('\0') == std::string::npos && stat(text.c_str(), &about) == 0 &&
                        S_ISREG(about.st_mode);
    if (isFile) {
      files.push_back(
          IdentifyFile(text, "the file that the configuration names", ExitStatus::kModel));
    }
  }
  return files;
}

}  // namespace vorn::kit
