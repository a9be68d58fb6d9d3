// How a verb ends, and the one kind of failure in the kit.
#ifndef VORN_KIT_COMMON_FAULT_H_
#define VORN_KIT_COMMON_FAULT_H_

#include <stdexcept>
#include <string>

namespace vorn::kit {

/// What a verb ends with. Where several hold, the one that stands first here does.
enum class ExitStatus {
  kUsage = 2,        ///< the command line
  kInput = 3,        ///< a list, file, picture or array
  kModel = 4,        ///< the model or its configuration
  kRuntime = 5,      ///< the runtime or the device; the program ended by a signal
  kLimit = 7,        ///< time, memory or disk
  kPartial = 8,      ///< some samples are missing
  kDiffers = 6,      ///< judged: outputs differ
  kSlower = 10,      ///< timed: slower
  kNothing = 9,      ///< nothing compared, nothing measured
  kCannotTell = 11,  ///< at this number of runs
  kOwnFault = 1,     ///< a fault of the kit's own
  kDone = 0,         ///< done, and right
};

/// Ends a verb. `what()` is one line for a person: what was wrong, the value seen, what to change.
class Fault : public std::runtime_error {
 public:
  Fault(ExitStatus status, const std::string& message)
      : std::runtime_error(message), status_(status) {}

  [[nodiscard]] ExitStatus Status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_FAULT_H_
