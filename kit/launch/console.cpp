#include "kit/launch/console.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace vorn::kit {
std::string ProgressText(const Progress& progress) {
  std::string text = progress.series.empty() ? "" : progress.series + ": ";
  text += std::to_string(progress.done) + " of " + std::to_string(progress.all) +
          (progress.all == 1 ? " inference" : " inferences");
  constexpr double kMilli = 1000;
  constexpr uint64_t kMinute = 60;
  const double seconds = static_cast<double>(progress.elapsed.count()) / kMilli;
  if (progress.doneHere > 0 && seconds > 0) {
    const double each = seconds / static_cast<double>(progress.doneHere);
    const auto left = static_cast<uint64_t>(std::llround(
        each * static_cast<double>(progress.all - std::min(progress.done, progress.all))));
    std::array<char, 96> more{};
    std::snprintf(more.data(), more.size(), ", %.1f/s, %llu:%02llu left", 1 / each,
                  static_cast<unsigned long long>(left / kMinute),
                  static_cast<unsigned long long>(left % kMinute));
    text += more.data();
  }
  if (progress.faults > 0) {
    text += ", " + std::to_string(progress.faults) + (progress.faults == 1 ? " fault" : " faults");
  }
  return text;
}

Console::Console(bool isQuiet, std::string verb)
    : isQuiet_(isQuiet), verb_(std::move(verb)), line_(isQuiet) {}

void Console::Say(const std::string& line) {
  if (isQuiet_) return;
  line_.Clear();
  std::fprintf(stderr, "vorn %s: %s\n", verb_.c_str(), line.c_str());
}

void Console::Show(const Progress& progress) {
  line_.Show([&] { return ProgressText(progress); });
}

}  // namespace vorn::kit
