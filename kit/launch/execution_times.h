// What a trace tells of a run of vorn-run: the times of each inference, and where the rest went.
#ifndef VORN_KIT_LAUNCH_EXECUTION_TIMES_H_
#define VORN_KIT_LAUNCH_EXECUTION_TIMES_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorn::kit {

struct InferenceTimes {
  uint64_t startRealtimeNs = 0;     ///< of its first execution
  std::vector<uint64_t> executeNs;  ///< executions that came back
};

struct ExecutionTimes {
  std::string host;
  std::string runtime;                     ///< that was called, by its path
  std::vector<InferenceTimes> inferences;  ///< as they were executed
  std::map<std::string, uint64_t> phases;  ///< nanoseconds
  uint64_t dropped = 0;                    ///< calls for which there was no room
};

/// Throws a Fault of kInput if this is no trace.
[[nodiscard]] ExecutionTimes ReadExecutionTimes(const std::string& trace);

/// The operation that the program is inside of, or was when it ended; empty: none, or no trace.
[[nodiscard]] std::string OperationInside(const std::string& trace);

/// For how many calls a run needs room, with some to spare.
[[nodiscard]] uint64_t CallsOfRun(uint64_t inputs, uint64_t outputs, uint64_t inferences,
                                  uint64_t executionsEach);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_EXECUTION_TIMES_H_
