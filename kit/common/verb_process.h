// A verb run by another one, as a person would run it.
#ifndef VORN_KIT_COMMON_VERB_PROCESS_H_
#define VORN_KIT_COMMON_VERB_PROCESS_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/common/fault.h"

namespace vorn::kit {

struct VerbCall {
  std::string verb;                ///< "prepare": the program beside this one
  std::vector<std::string> words;  ///< behind the verb
  /// Laid over this process's environment; without a value the variable is taken out.
  std::vector<std::pair<std::string, std::optional<std::string>>> environment{};
  bool isOutKept = true;  ///< its standard output is returned, else it goes where this one's goes
};

struct VerbEnd {
  ExitStatus status = ExitStatus::kDone;
  std::string out;
  int asked = 0;  ///< a signal that asked this process to end meanwhile; 0: none
};

/// "vorn prepare -m model.om …", for a person to repeat: variables in front that it was given.
[[nodiscard]] std::string CommandText(const VerbCall& call);

/// Runs it to its end; what it says on standard error goes where this one's goes. A signal to the
/// whole group of processes, such as Ctrl-C, reaches both; SIGINT, SIGTERM and SIGHUP that reach
/// this process alone are handed on. This one waits for the other to end in order, and then gives
/// itself a SIGTERM or SIGHUP that came, as if it came only now; after a SIGINT it goes on. Throws
/// a Fault of kOwnFault if the program is not there, and one of kRuntime if a signal ended it that
/// nobody had asked it by; one that ended of being asked has the status kPartial. For one thread of
/// the process at a time.
[[nodiscard]] VerbEnd RunVerbProcess(const VerbCall& call);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_VERB_PROCESS_H_
