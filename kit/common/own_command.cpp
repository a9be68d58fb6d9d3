#include "kit/common/own_command.h"

#include <algorithm>

#include "kit/common/file_identity.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostCommandBytes = 16 << 20;

}  // namespace

std::vector<std::string> OwnCommand(std::string_view verb) {
  const std::string bytes = ReadWholeFile("/proc/self/cmdline", "the own command line",
                                          ExitStatus::kOwnFault, kMostCommandBytes);
  std::vector<std::string> words{"vorn", std::string(verb)};
  size_t start = bytes.find('\0');
  start = start == std::string::npos ? bytes.size() : start + 1;
  while (start < bytes.size()) {
    const size_t end = std::min(bytes.find('\0', start), bytes.size());
    words.push_back(bytes.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

}  // namespace vorn::kit
