// The runtime's log on standard error.
#include "host/common/log.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/common/excerpt.h"

namespace vorn::host {
namespace {

constexpr size_t kLongestFault = 2000;    // bytes
constexpr size_t kLongestRemark = 16000;  // signatures of the library take a page

/// Moves on to where a UTF-8 character begins.
size_t BeginOfCharacter(std::string_view text, size_t at) {
  while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80) ++at;
  return at;
}

/// A name in a model may have any length. What is too much goes out of the middle: in front stands
/// what was wrong, and at the end what to change.
std::string Shortened(std::string_view message, size_t longest) {
  if (message.size() <= longest) return std::string(message);
  const size_t behind = longest / 4;
  const std::string_view front = message.substr(0, BeginOfCharacter(message, longest - behind));
  const std::string_view end = message.substr(BeginOfCharacter(message, message.size() - behind));
  return std::string(front) + " ... " + std::string(end);
}

}  // namespace

bool IsLogged(LogLevel level) noexcept {
  const char* value = std::getenv("VORN_LOG");
  const std::string_view asked = value == nullptr ? "" : value;
  if (asked.empty() || asked == "0" || asked == "off") return false;
  return level == LogLevel::kError || asked == "info";
}

void Log(LogLevel level, std::string_view operation, std::string_view message) noexcept {
  if (!IsLogged(level)) return;
  try {
    const size_t longest = level == LogLevel::kError ? kLongestFault : kLongestRemark;
    const std::string line =
        "vorn: " + std::string(operation) + ": " + OneLine(Shortened(message, longest)) + "\n";
    // One call a line: lines of several threads do not mix.
    std::fwrite(line.data(), 1, line.size(), stderr);
  } catch (...) {
    // Without the memory for a line there is no line.
  }
}

}  // namespace vorn::host
