// What a task of an array does on its node: its chunks, one after the other.
//
// Slurm may start it again under the same number, on this node or on another one: what is done
// stays done. The folder of the fleet is one that all nodes see.
#ifndef VORN_KIT_FLEET_SLURM_TASK_H_
#define VORN_KIT_FLEET_SLURM_TASK_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kit/common/fault.h"

namespace vorn::kit {

/// FLEET/slurm, and in it a folder for each round, by its number from 1.
[[nodiscard]] std::string SlurmFolder(const std::string& fleet);
[[nodiscard]] std::string SlurmRound(const std::string& fleet, uint64_t round);

/// In that of a round: the chunks of an array, a line each.
[[nodiscard]] std::string ArrayChunksFile(const std::string& fleet, uint64_t round, uint64_t array);

/// The lines of such a file. Throws a Fault of kInput.
[[nodiscard]] std::vector<uint64_t> ReadArrayChunks(const std::string& path);

struct SlurmTaskRequest {
  std::string fleet;
  uint64_t round = 0;
  uint64_t array = 0;  ///< of those of the round
  uint64_t tasks = 1;  ///< of the array; this one takes every that many of its chunks
};

/// The task that SLURM_ARRAY_TASK_ID names, on the node that SLURMD_NODENAME does. SIGHUP tells
/// that its time is nearly up: the attempt ends in order, and where a chunk was done by then Slurm
/// is asked to queue the task anew. Throws a Fault.
[[nodiscard]] ExitStatus RunSlurmTask(const SlurmTaskRequest& request);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_SLURM_TASK_H_
