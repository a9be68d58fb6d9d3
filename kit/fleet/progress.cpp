#include "kit/fleet/progress.h"

#include <algorithm>
#include <utility>

namespace vorn::kit {

FleetProgress::FleetProgress(const std::string& fleet, const FleetPlan& plan, std::string called,
                             Console& console)
    : fleet_(fleet), plan_(plan), called_(std::move(called)), console_(console) {}

void FleetProgress::Begin(const FleetState& state) {
  began_ = std::chrono::steady_clock::now();
  doneBefore_ = state.Done();
}

void FleetProgress::Show() {
  constexpr int kShareOfTime = 100;  // of which one part is for telling
  const auto now = std::chrono::steady_clock::now();
  if (now < showAgain_) return;
  const FleetState state = ReadFleetState(fleet_, plan_);
  TellOfBoards(state);
  uint64_t faults = 0;
  for (const auto& [name, board] : state.boards) faults += board.failed;
  const uint64_t done = state.Done();
  console_.Show({.series = {},
                 .done = done,
                 .all = plan_.inferences,
                 .doneHere = done - std::min(done, doneBefore_),
                 .faults = faults,
                 .elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - began_)});
  const auto shown = std::chrono::steady_clock::now();
  showAgain_ = shown + std::max<std::chrono::nanoseconds>((shown - now) * kShareOfTime,
                                                          std::chrono::milliseconds(500));
}

void FleetProgress::TellOfBoards(const FleetState& state) {
  for (const auto& [name, board] : state.boards) {
    if (!board.isAside || !told_.insert(name).second) continue;
    console_.Say(called_ + " " + name + " is put aside: " + board.reason);
  }
}

}  // namespace vorn::kit
