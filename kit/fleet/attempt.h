// The run directory that an attempt at a chunk left: whether it is what was asked for.
#ifndef VORN_KIT_FLEET_ATTEMPT_H_
#define VORN_KIT_FLEET_ATTEMPT_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kit/fleet/fleet_plan.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

/// Inferences that an attempt is about, by their places in the list: those of a chunk, or those of
/// the cross-check.
[[nodiscard]] std::vector<uint64_t> InferencesOf(const FleetPlan& plan, uint64_t chunk);

/// Of what was dumped, inference by inference, and of how each ended: the same for the same
/// outputs, whatever board they come from and whatever their files are called.
[[nodiscard]] std::string OutputsHash(const std::vector<SampleRecord>& samples);

struct AttemptFound {
  std::vector<SampleRecord> samples;  ///< as the run directory has them: numbered from 0
  uint64_t done = 0;
  uint64_t notDone = 0;  ///< tried, and put aside or failed
  std::string fault;     ///< why it does not count; empty: it does
};

/// Looks at an attempt's run directory. It counts if it has every inference, made of inputs with
/// the planned hashes, and every output has the size and hash that was noted; `areOutputsRead` is
/// whether those are read to see. `planned` are the records of inputs.jsonl.
[[nodiscard]] AttemptFound LookAtAttempt(const std::string& run,
                                         const std::vector<SampleRecord>& planned, uint64_t outputs,
                                         bool areOutputsRead);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_ATTEMPT_H_
