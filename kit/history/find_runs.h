// Run directories beneath a folder, as boards leave them.
#ifndef VORN_KIT_HISTORY_FIND_RUNS_H_
#define VORN_KIT_HISTORY_FIND_RUNS_H_

#include <functional>
#include <string>
#include <vector>

namespace vorn::kit {

/// The folder itself if it is a run; else all run directories beneath it, in the order of their
/// paths, without what lies within a run, and without the parts of a fleet, whose whole is a run of
/// its own once it is merged. Links are not followed. Of a run that took turns both sides.
/// `onClosed` is called with a line for each folder that this user may not look into: runs may be
/// there. Throws a Fault of kInput where there is no such folder.
[[nodiscard]] std::vector<std::string> FindRuns(
    const std::string& folder, const std::function<void(const std::string& message)>& onClosed);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_FIND_RUNS_H_
