// Tasks that may crash, hang or eat all memory, done in processes of their own on all cores.
//
//     parent  -- number of a task (8 bytes) -->  child     one task, and a second to go on with
//     parent  <-- status, length, text --------  child     (4 + 4 bytes, and the text)
//
// Children are forked from the process that asks, which must have one thread; what they write into
// files stays, what they change in memory is gone. A child that dies or takes too long costs its
// task alone: another takes its place, and what the dead one had not begun.
#ifndef VORN_KIT_PREPARE_WORKERS_H_
#define VORN_KIT_PREPARE_WORKERS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "kit/common/fault.h"

namespace vorn::kit {

struct WorkerLimits {
  size_t workers = 1;
  std::chrono::seconds time{60};             ///< of one task
  uint64_t memoryBytes = uint64_t{4} << 30;  ///< beyond what the parent has mapped
};

struct TaskAnswer {
  uint64_t task = 0;
  ExitStatus status = ExitStatus::kDone;  ///< kDone, or that of the Fault
  std::string text;                       ///< what the work returned, or what went wrong
};

/// Runs `work` for each of the tasks 0 to `tasks` − 1, in a child; gives each answer to `take`,
/// here, as it comes. `take` returns whether to go on: if not, the children end and the rest is not
/// done. `idle` is called several times a second. What `work` throws as a Fault becomes the answer.
/// Throws a Fault of kLimit where no process can be started.
void RunTasks(uint64_t tasks, const WorkerLimits& limits,
              const std::function<std::string(uint64_t task)>& work,
              const std::function<bool(const TaskAnswer& answer)>& take,
              const std::function<void()>& idle);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_WORKERS_H_
