// What differs between two runs, in words.
#ifndef VORN_KIT_HISTORY_DIFFERENCES_H_
#define VORN_KIT_HISTORY_DIFFERENCES_H_

#include <string>
#include <vector>

#include "kit/ledger/run_entry.h"

namespace vorn::kit {

struct RunDifference {
  std::string what;  ///< "the runtime libvorn.so"
  std::string before;
  std::string after;
};

/// What the runs were made of, then what their machines were like, each as it may have made a
/// difference: a load that rose by a hundredth is none.
[[nodiscard]] std::vector<RunDifference> DifferencesOf(const RunEntry& before,
                                                       const RunEntry& after);

/// "the runtime libvorn.so: 0a1b2c3d -> 4e5f6071", not printable characters and all.
[[nodiscard]] std::string TextOf(const RunDifference& difference);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_DIFFERENCES_H_
