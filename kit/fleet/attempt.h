// The run directory that an attempt at a chunk left: whether it is what was asked for.
#ifndef VORN_KIT_FLEET_ATTEMPT_H_
#define VORN_KIT_FLEET_ATTEMPT_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/fleet/fleet_plan.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

/// What an attempt is about: the records of inputs.jsonl of a chunk, or of the cross-check where
/// `chunk` is empty. Throws a Fault of kInput, also where inputs.jsonl is not the plan's any more.
[[nodiscard]] std::vector<SampleRecord> ReadPlanned(const std::string& fleet, const FleetPlan& plan,
                                                    const std::optional<uint64_t>& chunk);

/// Of what was dumped, inference by inference, and of how each ended: the same for the same
/// outputs, whatever board they come from and whatever their files are called.
[[nodiscard]] std::string OutputsHash(const std::vector<SampleRecord>& samples);

struct AttemptFound {
  std::optional<RunFacts> facts;      ///< of its run.json, where that can be read
  std::vector<SampleRecord> samples;  ///< as the run directory has them: numbered from 0
  uint64_t done = 0;
  uint64_t notDone = 0;        ///< tried, and put aside or failed
  std::string fault;           ///< why it does not count; empty: it does
  bool hasOtherFiles = false;  ///< it does not, since its model or inputs are others than planned
};

/// What an attempt says of itself.
struct AttemptSaid {
  RunFacts facts;
  std::vector<SampleRecord> samples;  ///< numbered from 0
};

/// RUN/run.json and RUN/samples.jsonl. Throws a Fault of kInput: a link is none of them.
[[nodiscard]] AttemptSaid ReadAttempt(const std::string& run);

/// Why nothing of an attempt counts by what its run.json says: it ran another model. Empty: it did
/// not.
[[nodiscard]] std::string WhyNotOfPlan(const RunFacts& facts, const FleetPlan& plan);

/// Looks at an attempt's run directory. It counts if a merge would take all of it: it ran the
/// plan's model, has every inference, made of inputs with the planned hashes, and every output has
/// the size and hash that was noted, which is read to see. `planned` are the records of
/// inputs.jsonl. Asked before each inference, `isStopped` ends it, and what was found is not the
/// whole then.
[[nodiscard]] AttemptFound LookAtAttempt(
    const std::string& run, const FleetPlan& plan, const std::vector<SampleRecord>& planned,
    const std::function<bool()>& isStopped = [] { return false; });

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_ATTEMPT_H_
