// run.json of a whole that several runs make up.
#ifndef VORN_KIT_FLEET_MERGED_FACTS_H_
#define VORN_KIT_FLEET_MERGED_FACTS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kit/fleet/fleet_plan.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

class MergedFacts {
 public:
  explicit MergedFacts(const FleetPlan& plan);

  [[nodiscard]] RunFacts& Facts() { return facts_; }

  /// One of the runs; `told` says which ("chunk 3, attempt 1"). Of one that is not all that was
  /// tried of its inferences, `isWhole` is false: what ended it counts then.
  void Take(const RunFacts& part, const std::string& told, bool isWhole);

  /// A warning that is there already counts on, and keeps its message.
  void Warn(const std::string& id, uint64_t count, const std::string& message);

  /// Behind the last one. `areAllTimed`: nothing is missing for want of a trace.
  void Finish(bool areAllTimed);

 private:
  void TakeTimes(const RunFacts& part);
  void TakeMachine(const MachineFacts& machine);
  void TakeRuntime(const RunFacts& part);
  void CompareConfiguration(const RunFacts& part, const std::string& told);

  RunFacts facts_;
  bool hasPart_ = false;
  std::set<std::string> hosts_;
  std::set<std::pair<std::string, std::string>> mapped_;
  std::map<std::string, std::string> runtimes_;  // path by hash
};

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_MERGED_FACTS_H_
