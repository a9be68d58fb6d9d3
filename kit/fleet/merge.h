// The attempts of a fleet put together into one run directory, as if one machine had run the list.
//
//     RUN/                    as docs/schema has it of every run; the dumps are links
//     RUN/boards.json         what each board did, and where boards differ     BoardReport
//     RUN/boards/NAME/        machine.jsonl of a board, and the traces that it left, CHUNK.ATTEMPT
#ifndef VORN_KIT_FLEET_MERGE_H_
#define VORN_KIT_FLEET_MERGE_H_

#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/launch/console.h"

namespace vorn::kit {

struct MergeRequest {
  std::string fleet;                 ///< its folder
  std::string run;                   ///< is made; empty, or a merge of the same fleet with holes
  std::vector<std::string> command;  ///< of the verb
  std::string version;
};

/// Takes each inference from one attempt that has it and verifies, and says what is missing, by
/// lines of the list, what was not the same twice, and which boards disagree. Nothing of the fleet
/// is changed; a merge that was killed is run again. Returns kPartial where inferences are missing,
/// kDiffers where outputs of attempts or boards differ. Throws a Fault where it cannot go on.
[[nodiscard]] ExitStatus MergeFleet(const MergeRequest& request, Console& console);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_MERGE_H_
