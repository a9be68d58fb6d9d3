// Tells which call hangs while it hangs, by the trace that its process writes: from outside, since
// a program that hangs does nothing more.
#ifndef VORN_KIT_TRACE_WATCHDOG_H_
#define VORN_KIT_TRACE_WATCHDOG_H_

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vorn::kit {

struct StuckCall {
  uint32_t pid = 0;
  uint32_t thread = 0;
  uint64_t number = 0;
  std::string operation;
  uint64_t insideNs = 0;  ///< since it began

  bool operator==(const StuckCall&) const = default;
};

/// Looks into growing traces again and again. What it has seen to its end it does not read anew.
class StuckFinder {
 public:
  explicit StuckFinder(uint64_t limitNs) : limitNs_(limitNs) {}

  /// The calls in the trace at `path` that have been inside for the limit at least, by
  /// CLOCK_MONOTONIC, each once. None where there is no trace yet, or nothing that could be one.
  [[nodiscard]] std::vector<StuckCall> Look(const std::string& path, uint64_t nowNs);

 private:
  struct Seen {
    uint64_t next = 0;           // the first slot that was not looked at
    std::vector<uint64_t> open;  // slots whose call had not come back
  };

  uint64_t limitNs_;
  std::map<std::string, Seen> seen_;
};

/// A process beside this one that looks into the traces that grow for `output` until it is taken
/// down, and prints a line on standard error for each call that hangs. It ends with this process.
class Watchdog {
 public:
  /// Throws a Fault of kLimit if there can be no further process.
  Watchdog(const std::string& output, uint64_t limitNs);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  pid_t process_ = -1;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_TRACE_WATCHDOG_H_
