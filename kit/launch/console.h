// What a launch, or a verb that launches, says while it goes on, on standard error.
#ifndef VORN_KIT_LAUNCH_CONSOLE_H_
#define VORN_KIT_LAUNCH_CONSOLE_H_

#include <chrono>
#include <cstdint>
#include <string>

#include "kit/common/progress_line.h"

namespace vorn::kit {

struct Progress {
  std::string series;  ///< "A" or "B" of two that take turns
  uint64_t done = 0;   ///< of all, those that were done before included
  uint64_t all = 0;
  uint64_t doneHere = 0;  ///< in `elapsed`
  uint64_t faults = 0;
  std::chrono::milliseconds elapsed{0};
};

/// "1200 of 5000 inferences, 12.5/s, 5:04 left, 3 faults".
[[nodiscard]] std::string ProgressText(const Progress& progress);

/// Lines, and below them on a terminal how far it is, which is written anew in its place.
class Console {
 public:
  explicit Console(bool isQuiet, std::string verb = "launch");

  /// A line, with "vorn VERB: " in front of it.
  void Say(const std::string& line);

  void Show(const Progress& progress);

 private:
  bool isQuiet_;
  std::string verb_;
  ProgressLine line_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_CONSOLE_H_
