// The plan of a fleet, made: everything looked at before any board is touched.
#ifndef VORN_KIT_FLEET_MAKE_PLAN_H_
#define VORN_KIT_FLEET_MAKE_PLAN_H_

#include <cstdint>
#include <optional>
#include <string>

#include "kit/fleet/fleet_plan.h"
#include "kit/launch/console.h"
#include "kit/launch/plan.h"

namespace vorn::kit {

struct FleetPlanRequest {
  LaunchRequest launch;  ///< as of a run in one piece; its run directory is the fleet's folder
  std::optional<uint64_t> chunk;  ///< inferences; empty: as many as what is measured here asks for
  uint64_t crossCheck = 5;        ///< inferences that every board runs; 0: none
};

/// Of what a board spends on a chunk, at most one part in twenty is for anything but its
/// inferences.
[[nodiscard]] uint64_t ChunkFor(const FleetCost& cost, uint64_t inferences);

/// Looks at it as a launch does, reads every input once, and writes the plan into a folder that it
/// makes and that has to be empty. Nothing is there unless all of it is. Throws a Fault with all
/// that speaks against the run.
FleetPlan MakeFleetPlan(const FleetPlanRequest& request, Console& console);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_MAKE_PLAN_H_
