#include "kit/run/output_names.h"

#include <algorithm>

#include "kit/common/fault.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostLogBytes = 16 << 20;

constexpr std::string_view kFront = "vorn: vorn_mdl_load_from_mem: '";
constexpr std::string_view kBetween = "' stands for '";

}  // namespace

std::string ProgramErrorsOf(const std::string& run) {
  try {
    return ReadWholeFile(run + "/" + kErrorsFile, "the log", ExitStatus::kInput, kMostLogBytes);
  } catch (const Fault&) {
  }
  try {
    return ReadRun(run).standardError;
  } catch (const Fault&) {
    return "";
  }
}

std::map<std::string, std::string> LongNamesIn(std::string_view log) {
  std::map<std::string, std::string> names;
  while (!log.empty()) {
    std::string_view line = log.substr(0, log.find('\n'));
    log.remove_prefix(std::min(log.size(), line.size() + 1));
    if (!line.starts_with(kFront) || !line.ends_with('\'')) continue;
    line.remove_prefix(kFront.size());
    const size_t between = line.find(kBetween);
    // The quote at the end may be the one that stands in between.
    if (between == std::string_view::npos || between + kBetween.size() == line.size()) continue;
    line.remove_suffix(1);
    names.insert_or_assign(std::string(line.substr(0, between)),
                           std::string(line.substr(between + kBetween.size())));
  }
  std::map<std::string_view, size_t> uses;
  for (const auto& [shortName, name] : names) ++uses[name];
  std::map<std::string, std::string> told;
  for (const auto& entry : names) {
    if (uses[entry.second] == 1) told.insert(entry);
  }
  return told;
}

}  // namespace vorn::kit
