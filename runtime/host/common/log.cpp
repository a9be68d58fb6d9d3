// The runtime's log on standard error.
#include "host/common/log.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace vorn::host {
namespace {

/// The message without anything that could break its line.
std::string OneLine(std::string_view message) {
  std::string line(message);
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
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
    const std::string line = "vorn: " + std::string(operation) + ": " + OneLine(message) + "\n";
    // One call a line: lines of several threads do not mix.
    std::fwrite(line.data(), 1, line.size(), stderr);
  } catch (...) {
    // Without the memory for a line there is no line.
  }
}

}  // namespace vorn::host
