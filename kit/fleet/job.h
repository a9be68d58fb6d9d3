// One attempt at a chunk, or at the cross-check, on one board: from its begin in the journal to its
// end.
//
// While it lasts it lies in FLEET/chunks/C/A.part, which becomes FLEET/chunks/C/A once it is whole.
// An attempt that is made twice harms nobody: each has a number of its own.
#ifndef VORN_KIT_FLEET_JOB_H_
#define VORN_KIT_FLEET_JOB_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/fleet/attempt.h"
#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/journal.h"
#include "kit/fleet/ssh_board.h"

namespace vorn::kit {

/// What an attempt is about.
struct AttemptRequest {
  std::string fleet;
  std::optional<uint64_t> chunk;  ///< empty: the cross-check
  std::string board;              ///< its name
  uint64_t slot = 1;
  std::string config;  ///< a file instead of the plan's; empty: that one
  std::optional<std::chrono::seconds> limit;
  std::function<std::optional<std::chrono::seconds>()> laterLimit{};  ///< as BoardWork has it
  bool doesEngineBegin = false;  ///< it calls BoardWork::begin once it is at work in earnest
};

/// Does the work; `folder` gets run/.
using Engine = std::function<BoardEnd(const BoardWork& work)>;

/// Whether the files of the plan are on the board by their hashes, or where they are.
enum class FilesOnBoard { kByHash, kHere };

struct AttemptEnd {
  JournalRecord record;  ///< as it was noted
  bool wasStopped = false;
  bool wasGivenUp = false;     ///< before it began, so that the journal has nothing of it
  bool hasOtherFiles = false;  ///< the board's files are not what their names say
  std::vector<BoardFile> files;
};

/// Makes the attempt and notes it. What is not whole is removed. Throws a Fault where this machine
/// cannot go on; the attempt has its end in the journal by then.
[[nodiscard]] AttemptEnd RunAttempt(const FleetPlan& plan, const AttemptRequest& request,
                                    FilesOnBoard files, const Engine& engine, Journal& journal);

/// The time that so many inferences may take: ten times what they take by the median of `times`,
/// nanoseconds an inference of what was done, and two minutes. Empty where nothing was.
[[nodiscard]] std::optional<std::chrono::seconds> LimitOf(std::vector<uint64_t> times,
                                                          uint64_t inferences);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_JOB_H_
