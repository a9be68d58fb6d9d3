#include "kit/common/progress_line.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vorn::kit {
namespace {

constexpr std::chrono::milliseconds kBetween{200};

bool IsTerminal() {
  const char* kind = std::getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && (kind == nullptr || std::strcmp(kind, "dumb") != 0);
}

}  // namespace

ProgressLine::ProgressLine(bool isQuiet) : canShow_(!isQuiet && IsTerminal()) {}

void ProgressLine::Show(const std::function<std::string()>& text) {
  const auto now = std::chrono::steady_clock::now();
  if (!canShow_ || (isShown_ && now - shownAt_ < kBetween)) return;
  std::fprintf(stderr, "\r\x1b[K%s", text().c_str());
  std::fflush(stderr);
  isShown_ = true;
  shownAt_ = now;
}

void ProgressLine::Clear() {
  if (isShown_) std::fputs("\r\x1b[K", stderr);
  isShown_ = false;
}

}  // namespace vorn::kit
