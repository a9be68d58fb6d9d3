// This machine as a board: where the folder of the fleet is one that all machines see.
#ifndef VORN_KIT_FLEET_HERE_BOARD_H_
#define VORN_KIT_FLEET_HERE_BOARD_H_

#include <string>

#include "kit/fleet/ssh_board.h"
#include "kit/launch/program.h"

namespace vorn::kit {

/// Runs the work with the vorn-launch beside this program. `from` is the folder from which what the
/// configuration names counts.
[[nodiscard]] BoardEnd RunHere(const BoardWork& work, const std::string& from,
                               StopSignals& signals);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_HERE_BOARD_H_
