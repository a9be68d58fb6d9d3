// A trace as the layer left it.
#ifndef VORN_KIT_TRACE_TRACE_FILE_H_
#define VORN_KIT_TRACE_TRACE_FILE_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::kit {

/// One call of an operation.
struct TracedCall {
  uint64_t number = 0;  ///< from 1, in the order in which they began
  uint16_t operation = 0;
  uint32_t thread = 0;
  uint64_t beganNs = 0;
  std::optional<uint64_t> endedNs;  ///< empty: the process ended inside of it
  std::vector<uint64_t> arguments;
  std::vector<uint64_t> results;  ///< the answer first
};

struct TraceFile {
  uint32_t pid = 0;
  uint64_t monotonicNs = 0;  ///< when the layer was loaded, of the same moment as:
  uint64_t realtimeNs = 0;
  uint64_t clockNs = 0;             ///< one reading of the clock
  std::optional<uint64_t> endedNs;  ///< when the layer was taken down in order
  std::string host;
  std::string program;
  std::string runtime;   ///< behind the layer; empty if no call came
  std::string other;     ///< one in the process that was not called by way of the layer
  uint64_t dropped = 0;  ///< calls for which there was no room
  uint64_t cut = 0;      ///< calls that had room, and are behind the end of a file that was cut
  uint64_t passed = 0;   ///< calls that the settings left out
  std::string settings;  ///< in force, lines as "calls=131072"
  std::vector<std::string> operations;
  std::vector<TracedCall> calls;  ///< whole ones, and those that had begun
};

/// Reads a trace of any version, also of a process that runs still or was killed. Throws a Fault of
/// kInput that says what is wrong with it.
[[nodiscard]] TraceFile ParseTrace(std::string_view bytes);

}  // namespace vorn::kit

#endif  // VORN_KIT_TRACE_TRACE_FILE_H_
