// What the machine is, and what it is like at a moment. What it does not tell stays empty.
#ifndef VORN_KIT_LAUNCH_MACHINE_H_
#define VORN_KIT_LAUNCH_MACHINE_H_

#include <sys/types.h>

#include "kit/run/run_directory.h"

namespace vorn::kit {

/// `root` is what /proc, /sys and their like are below; nothing by default.
[[nodiscard]] MachineFacts DescribeMachine(const std::string& root = "");

/// `pid` is the program's.
[[nodiscard]] MachineMoment TakeMoment(pid_t pid, const std::string& root = "");

[[nodiscard]] uint64_t RealtimeNs();

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_MACHINE_H_
