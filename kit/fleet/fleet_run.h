// A fleet run to its end, round by round, and gone on with.
#ifndef VORN_KIT_FLEET_FLEET_RUN_H_
#define VORN_KIT_FLEET_FLEET_RUN_H_

#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/fleet/boards.h"
#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/fleet_state.h"
#include "kit/launch/console.h"
#include "kit/launch/program.h"

namespace vorn::kit {

struct FleetRunRequest {
  std::string fleet;   ///< absolute
  std::string named;   ///< the same as a person named it
  std::string boards;  ///< the file of boards; empty where it is gone on: the one of before
  bool isResumed = false;
  bool isAgain = false;  ///< chunks that were put aside are tried again
};

/// Runs what is to do on the boards, until all is done or no board is left that could do more.
/// Throws a Fault where it cannot begin or go on; what was done by then is in the journals.
[[nodiscard]] ExitStatus RunFleetBySsh(const FleetRunRequest& request, Console& console);

/// Looks at every attempt that is there: one that does not verify any more is noted as lost, and
/// stays, since it may verify another time; one that does and has no end is noted as found. False
/// where it was stopped before it was through: another one begins anew. Throws a Fault.
[[nodiscard]] bool VerifyAttempts(const std::string& fleet, const FleetPlan& plan, bool isAgain,
                                  Console& console, StopSignals& signals);

/// What is said then. Returns the status of it.
[[nodiscard]] ExitStatus TellOfStop(const std::string& named, Console& console);

/// The chunks that an engine is to take on, ascending.
[[nodiscard]] std::vector<uint64_t> ChunksToDo(const FleetState& state);

/// What is there at the end, and how to go on. Returns the status of it. `named` is the folder as a
/// person named it.
[[nodiscard]] ExitStatus TellOfEnd(const std::string& named, const FleetPlan& plan,
                                   const FleetState& state, Console& console);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_FLEET_RUN_H_
