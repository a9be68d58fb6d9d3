// Which runs the history need not keep.
#ifndef VORN_KIT_HISTORY_PRUNE_H_
#define VORN_KIT_HISTORY_PRUNE_H_

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "kit/ledger/ledger.h"

namespace vorn::kit {

/// One of both.
struct PruneRequest {
  std::optional<uint64_t> keep;      ///< so many of the latest runs of each series
  std::optional<uint64_t> beforeNs;  ///< what started before
};

/// Their ids, rising.
[[nodiscard]] std::vector<int64_t> RunsToPrune(std::span<const RunSeriesPoints> all,
                                               const PruneRequest& request);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_PRUNE_H_
