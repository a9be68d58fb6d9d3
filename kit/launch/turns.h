// Two runs that took turns, and what tells of both.
#ifndef VORN_KIT_LAUNCH_TURNS_H_
#define VORN_KIT_LAUNCH_TURNS_H_

#include <string>

namespace vorn::kit {

/// Below the folder that was named with --run.
inline constexpr const char* kTurnFolders[] = {"A", "B"};

/// Writes times.jsonl of a folder: the lines of the runs in A and B below it, each with its series,
/// in the order in which they began. Throws a Fault.
void MergeTimes(const std::string& folder);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_TURNS_H_
