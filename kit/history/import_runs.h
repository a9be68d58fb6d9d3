// Runs into the history: of run directories, and of the lines of an export.
#ifndef VORN_KIT_HISTORY_IMPORT_RUNS_H_
#define VORN_KIT_HISTORY_IMPORT_RUNS_H_

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/ledger/ledger.h"

namespace vorn::kit {

/// How many became what.
struct ImportCounts {
  size_t added = 0;
  size_t updated = 0;
  size_t known = 0;
  size_t older = 0;
  size_t refused = 0;  ///< could not be read
};

/// What is called with each run that was read, in order, once it is kept.
using OnImported = std::function<void(const RunEntry& run, Addition addition)>;
/// The same with what is wrong with one that could not be read.
using OnRefused = std::function<void(const std::string& message)>;

/// Adds them a few at a time: what was added stays, however this ends. `ledger` may be null, then
/// all are read and none is kept, and all count as added.
[[nodiscard]] ImportCounts ImportRuns(Ledger* ledger, const std::vector<std::string>& runs,
                                      const std::optional<std::string>& board,
                                      const OnImported& onImported, const OnRefused& onRefused);

/// The same of a file that `vorn history export` wrote. Throws a Fault of kInput that names the
/// line which is none of such; those before it are kept.
[[nodiscard]] ImportCounts ImportLines(Ledger* ledger, const std::string& path,
                                       const OnImported& onImported);

/// "3 added, 1 brought up to date, 12 known already".
[[nodiscard]] std::string TextOf(const ImportCounts& counts);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_IMPORT_RUNS_H_
