// What was found out about series of times, for people and as JSON.
#ifndef VORN_KIT_TIMING_TIMING_REPORT_H_
#define VORN_KIT_TIMING_TIMING_REPORT_H_

#include <cstddef>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/timing/comparison.h"
#include "kit/timing/times.h"

namespace vorn::kit {

/// The series of all sources, and of some pairs of them how they compare.
struct TimingResult {
  struct Pair {
    size_t base = 0;  ///< which of the series
    size_t other = 0;
    Comparison comparison;
  };
  std::vector<Times> series;
  std::vector<std::string> kinds;  ///< of the source of each
  std::vector<Pair> pairs;
  bool tookNoTurns = false;  ///< of a run with two series that are no pairs
  Gates gates;
  Bootstrap bootstrap;
};

/// Compares: the first source with each further one, or, of a run that took turns, its two series.
/// Of several sources each has one series; throws a Fault of kUsage otherwise.
[[nodiscard]] TimingResult CompareTimes(const std::vector<MeasuredTimes>& sources,
                                        const Gates& gates, const Bootstrap& bootstrap);

/// Slower before nothing measured before cannot tell; nothing of these is kDone.
[[nodiscard]] ExitStatus StatusOf(const TimingResult& result);

[[nodiscard]] std::string TimingText(const TimingResult& result);

/// By docs/schema/timing.json, indented, with a line end.
[[nodiscard]] std::string TimingJson(const TimingResult& result);

}  // namespace vorn::kit

#endif  // VORN_KIT_TIMING_TIMING_REPORT_H_
