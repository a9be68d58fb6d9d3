// What runs on a board: programs of ours and the layer, as one folder that is sent when it is
// missing.
#ifndef VORN_KIT_FLEET_TOOLS_H_
#define VORN_KIT_FLEET_TOOLS_H_

#include <string>
#include <vector>

#include "kit/launch/program.h"

namespace vorn::kit {

struct Tools {
  std::string id;                  ///< of all files, their names and bytes
  std::string folder;              ///< here
  std::vector<std::string> files;  ///< names in it
};

/// Of a folder, or of an archive as scripts/board.sh makes it, which is unpacked below `scratch`;
/// of the folder of this program where `from` is empty. Throws a Fault of kUsage for one that has
/// no vorn-launch or no vorn-run, of kLimit where it cannot be unpacked.
[[nodiscard]] Tools FindTools(const std::string& from, const std::string& scratch,
                              StopSignals& signals);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_TOOLS_H_
