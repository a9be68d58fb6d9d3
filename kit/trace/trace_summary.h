// What a trace tells: which operations took the time, and how it divides into phases.
#ifndef VORN_KIT_TRACE_TRACE_SUMMARY_H_
#define VORN_KIT_TRACE_TRACE_SUMMARY_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/trace/trace_file.h"

namespace vorn::kit {

/// The calls of one operation that came to an end. Times in nanoseconds.
struct OperationTimes {
  std::string name;
  uint64_t count = 0;
  uint64_t failed = 0;  ///< of those that answer a status
  uint64_t totalNs = 0;
  uint64_t medianNs = 0;
  std::optional<uint64_t> p99Ns;  ///< with 100 calls and more
  uint64_t mostNs = 0;
};

/// The time from the loading of the layer to its end, or to the last record of a process that was
/// killed, by what the thread was about that executed models: all parts add up to the whole.
struct Phases {
  uint64_t wholeNs = 0;
  uint64_t startNs = 0;    ///< up to the first call
  uint64_t loadNs = 0;     ///< inside vorn_mdl_load_from_mem
  uint64_t copyInNs = 0;   ///< outside, from a new input dataset to its execution: files are read
  uint64_t executeNs = 0;  ///< inside vorn_mdl_execute
  uint64_t writeNs =
      0;  ///< outside, from an execution to the next input dataset: dumps are written
  uint64_t otherCallsNs = 0;  ///< inside all other operations
  uint64_t otherNs = 0;       ///< outside, before the first input dataset and behind the last call
};

/// Makes phases out of the calls of one thread, which come one by one in the order in which they
/// began.
class PhaseDivider {
 public:
  /// `loadedNs`: when the layer was loaded.
  explicit PhaseDivider(uint64_t loadedNs) : now_(loadedNs), loadedNs_(loadedNs) {}

  /// Empty `endedNs`: the call has not come back.
  void Add(std::string_view operation, uint64_t beganNs, std::optional<uint64_t> endedNs);

  /// `endNs`: of the process, or of the last record.
  [[nodiscard]] Phases Finish(uint64_t endNs);

 private:
  // Where a moment outside of the runtime counts: it is known from the calls before it.
  enum class Outside { kStart, kOther, kCopyIn, kWrite };

  void AddOutside(uint64_t until);
  void Leave(std::string_view operation, uint64_t endedNs);

  Phases phases_;
  uint64_t now_;
  uint64_t loadedNs_;
  Outside outside_ = Outside::kStart;
  std::string inside_;  // of a call that has not come back
};

/// How much device memory was held from a moment on.
struct MemoryMoment {
  uint64_t monotonicNs = 0;
  uint64_t bytes = 0;

  bool operator==(const MemoryMoment&) const = default;
};

/// By blocks of vorn_rt_malloc that were not freed yet, in the order of time.
[[nodiscard]] std::vector<MemoryMoment> MemoryOverTime(const TraceFile& file);

/// The same at its most and at its end.
struct DeviceMemory {
  uint64_t peakBytes = 0;
  uint64_t leftBytes = 0;  ///< not freed at the end
};

/// Whether the call came to an end, answers a status, and that says that it failed.
[[nodiscard]] bool AnswersFailure(const TraceFile& file, const TracedCall& call);

/// Ordered by total, the largest first.
[[nodiscard]] std::vector<OperationTimes> TimesByOperation(const TraceFile& file);
[[nodiscard]] Phases DivideIntoPhases(const TraceFile& file);
[[nodiscard]] DeviceMemory FollowMemory(const TraceFile& file);

/// All of it for people, with what was inside when the process ended.
[[nodiscard]] std::string TraceReport(const TraceFile& file);

}  // namespace vorn::kit

#endif  // VORN_KIT_TRACE_TRACE_SUMMARY_H_
