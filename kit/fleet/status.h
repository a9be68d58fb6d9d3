// How far a fleet is, for people and for programs, by its journals alone: any machine can tell that
// sees its folder, while it runs and behind it.
#ifndef VORN_KIT_FLEET_STATUS_H_
#define VORN_KIT_FLEET_STATUS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/fleet_state.h"

namespace vorn::kit {

struct StatusRequest {
  std::string fleet;       ///< its folder
  bool isWatched = false;  ///< until nothing runs
  bool isJson = false;
};

struct BoardStatus {
  std::string name;
  BoardState state;
  uint64_t running = 0;   ///< slots that are at chunks
  uint64_t fetching = 0;  ///< attempts that are on their way back from slots which run others
  std::optional<double> samplesPerSecond;
};

/// A chunk that is not done and is not tried again by itself.
struct LeftChunk {
  uint64_t chunk = 0;
  FleetChunk about;
  ChunkState state;
};

struct FleetStatus {
  std::string fleet;  ///< its folder
  std::string id;     ///< of the plan
  uint64_t inferences = 0;
  uint64_t done = 0;
  uint64_t aside = 0;  ///< of chunks that are not tried again
  uint64_t chunks = 0;
  uint64_t chunksDone = 0;
  uint64_t chunksRunning = 0;
  uint64_t checksRunning = 0;  ///< boards that are at the cross-check
  uint64_t chunksToDo = 0;
  uint64_t attemptsFailed = 0;
  std::vector<LeftChunk> left;
  std::vector<BoardStatus> boards;         ///< by their names
  std::optional<double> samplesPerSecond;  ///< of the boards that are at chunks now
  std::optional<uint64_t> leftSeconds;     ///< as long as they are
  std::optional<uint64_t> lastNotedNs;     ///< real time
  uint64_t unreadableLines = 0;            ///< of journals
};

/// Throws a Fault of kInput.
[[nodiscard]] FleetStatus ReadFleetStatus(const std::string& fleet, const FleetPlan& plan);

/// Some lines, each with its end. `nowNs` is the real time.
[[nodiscard]] std::string StatusText(const FleetStatus& status, uint64_t nowNs);

/// One line of it, without an end.
[[nodiscard]] std::string StatusLine(const FleetStatus& status);

/// One line, with its end.
[[nodiscard]] std::string ToJson(const FleetStatus& status);

/// Prints it on standard output. Watched on a terminal it is drawn anew once a second in its place;
/// elsewhere a line is printed whenever it has changed. Throws as above, and a Fault of kLimit
/// where it cannot be printed.
[[nodiscard]] ExitStatus ShowStatus(const StatusRequest& request);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_STATUS_H_
