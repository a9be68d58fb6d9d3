// A fleet on a Slurm cluster, whose nodes all see the folder of the fleet.
//
// A round hands all that is to do to Slurm as arrays of tasks, waits for them, and looks at what is
// there; then follows the next one. Instead of waiting a job can be left behind that Slurm starts
// when they are over, which does the same.
//
//     FLEET/slurm/words.json    the words for sbatch, as they were given last
//     FLEET/slurm/R/            round R:
//         chunks.A.txt          what array A is about
//         jobs.txt              "array 17" and "after 18", a line each job that was handed in
//         ends                  how many attempts had ended before
//         A.T.log, after.log    what the jobs said
#ifndef VORN_KIT_FLEET_SLURM_ENGINE_H_
#define VORN_KIT_FLEET_SLURM_ENGINE_H_

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/fleet/fleet_state.h"
#include "kit/launch/console.h"

namespace vorn::kit {

struct SlurmRunRequest {
  std::string fleet;               ///< absolute
  std::vector<std::string> words;  ///< for sbatch; of a run that is gone on with those of before
                                   ///< where there are none
  bool isResumed = false;
  bool isAgain = false;           ///< chunks that were put aside are tried again
  bool isWaiting = true;          ///< else jobs are handed in and left
  std::optional<uint64_t> after;  ///< the round that is over: its job behind it goes on
};

/// Runs what is to do on the nodes, until all is done or another round would do no more; asked to
/// stop it cancels its jobs. Throws a Fault where it cannot begin or go on; what was done by then
/// is in the journals.
[[nodiscard]] ExitStatus RunFleetBySlurm(const SlurmRunRequest& request, Console& console);

/// Whether a fleet was handed to Slurm last.
[[nodiscard]] bool WasOnSlurm(const std::string& fleet);

/// What is handed in as one array.
struct ArrayOfChunks {
  std::vector<uint64_t> chunks;
  std::set<std::string> without;  ///< nodes that are not to have them

  bool operator==(const ArrayOfChunks&) const = default;
};

/// Chunks that no node has failed are one array; those that some have failed have to go to others.
/// No node that is put aside gets any. Chunks that no node is left for are left out.
[[nodiscard]] std::vector<ArrayOfChunks> ArraysOf(const FleetState& state,
                                                  const std::vector<uint64_t>& chunks,
                                                  const std::set<std::string>& nodes);

/// The words of sbatch for `tasks` tasks; those of the user come last, so that they win.
[[nodiscard]] std::vector<std::string> ArrayWords(const std::string& folder, uint64_t array,
                                                  uint64_t tasks,
                                                  const std::set<std::string>& without,
                                                  const std::vector<std::string>& more);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_SLURM_ENGINE_H_
