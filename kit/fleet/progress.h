// How far a fleet is, told by whoever waits for it.
#ifndef VORN_KIT_FLEET_PROGRESS_H_
#define VORN_KIT_FLEET_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <set>
#include <string>

#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/fleet_state.h"
#include "kit/launch/console.h"

namespace vorn::kit {

class FleetProgress {
 public:
  /// All outlive it. `called` is what a board is called: "node".
  FleetProgress(const std::string& fleet, const FleetPlan& plan, std::string called,
                Console& console);

  /// From here on what is done counts for the time that is left.
  void Begin(const FleetState& state);

  /// Reads the journals and shows it, as often as that takes no more than a hundredth of the time.
  void Show();

  /// A line for each board that was put aside, once.
  void TellOfBoards(const FleetState& state);

 private:
  const std::string& fleet_;
  const FleetPlan& plan_;
  std::string called_;
  Console& console_;
  std::set<std::string> told_;
  uint64_t doneBefore_ = 0;
  std::chrono::steady_clock::time_point began_;
  std::chrono::steady_clock::time_point showAgain_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_PROGRESS_H_
