// A list run over a model into a run directory: in one piece or in chunks, checked before and
// behind.
#ifndef VORN_KIT_LAUNCH_LAUNCH_H_
#define VORN_KIT_LAUNCH_LAUNCH_H_

#include <array>

#include "kit/common/fault.h"
#include "kit/launch/console.h"
#include "kit/launch/plan.h"

namespace vorn::kit {

/// Runs what was planned. Leaves the run directory as its files say, whatever happens, and says on
/// the console what is there and how to go on. Throws a Fault where it cannot go on itself; what it
/// has done by then is in the directory.
[[nodiscard]] ExitStatus Launch(const LaunchRequest& request, Plan plan, Console& console);

/// Runs two plans over one list by turns: a chunk of the one and the same chunk of the other, now
/// the one first and now the other. Each leaves a run directory as above. Where one of them ends
/// before its list does, the other one ends, too.
[[nodiscard]] ExitStatus LaunchInTurns(const std::array<LaunchRequest, 2>& requests,
                                       std::array<Plan, 2> plans, Console& console);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_LAUNCH_H_
