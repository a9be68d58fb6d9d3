// The history as a page: what got worse and what got better on top, then all series as small
// multiples, then those with changes at length, on to each run.
#ifndef VORN_KIT_HISTORY_HISTORY_PAGE_H_
#define VORN_KIT_HISTORY_HISTORY_PAGE_H_

#include <cstdint>
#include <span>
#include <string>

#include "kit/history/changes.h"
#include "kit/history/history_text.h"

namespace vorn::kit {

struct HistoryPageRequest {
  std::span<const SeriesHistory> all;
  FindRun find;
  uint64_t sinceNs = 0;  ///< changes before are left out
  std::string ledger;    ///< the file's path, as it is shown
  std::string folder;    ///< in which the page will lie, absolute: links count from there
  uint64_t nowNs = 0;
};

/// The whole file. Of very many series and runs the page tells those that changed at length, and of
/// the others the last run; it says so.
[[nodiscard]] std::string HistoryPage(const HistoryPageRequest& request);

/// The sentence that a person can repeat: how many series stand worse, and which the most. Names
/// are as they are.
[[nodiscard]] std::string HistoryAnswer(std::span<const SeriesHistory> all, uint64_t sinceNs);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_HISTORY_PAGE_H_
