// A run directory as the entry that the history keeps of it.
#ifndef VORN_KIT_HISTORY_READ_RUN_H_
#define VORN_KIT_HISTORY_READ_RUN_H_

#include <optional>
#include <string>

#include "kit/ledger/run_entry.h"

namespace vorn::kit {

/// Reads run.json, and what is there of times.jsonl, machine.jsonl and the verdict. `board` takes
/// the place of the machine's name, if it is given. Throws a Fault of kInput that names the file.
[[nodiscard]] RunEntry ReadRunEntry(const std::string& run,
                                    const std::optional<std::string>& board = std::nullopt);

/// Figures are kept of so many outputs of a verdict, the first of them: one over inner tensors has
/// hundreds, whose differences follow from each other.
inline constexpr size_t kMostOutputsKept = 64;

/// What verdict.json holds, into `verdict` and `metrics`. Throws a JsonError.
void TakeVerdict(std::string_view text, RunEntry& run);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_READ_RUN_H_
