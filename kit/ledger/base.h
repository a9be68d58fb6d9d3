// The run that another one is to be compared with, out of the history.
#ifndef VORN_KIT_LEDGER_BASE_H_
#define VORN_KIT_LEDGER_BASE_H_

#include <string>

#include "kit/ledger/run_entry.h"

namespace vorn::kit {

/// The history's file that `--with history` or `--with history=FILE` means. Throws a Fault of
/// kUsage for any other word.
[[nodiscard]] std::string LedgerOfWith(const std::string& value);

enum class BaseUse {
  kTimes,    ///< it was timed; its directory need not be there any more
  kOutputs,  ///< it was not judged wrong, and its directory is there as it was
};

/// The last run before `run` of its series and level that is done and of such use, with its times.
/// Throws a Fault: of kNothing where there is none, or its directory is gone or holds another run
/// by now; of kInput where `run` is no run directory, or there is no history.
[[nodiscard]] RunEntry FindBase(const std::string& ledger, const std::string& run, BaseUse use);

}  // namespace vorn::kit

#endif  // VORN_KIT_LEDGER_BASE_H_
