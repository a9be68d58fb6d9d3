// What the history holds, for people and as lines of JSON.
#ifndef VORN_KIT_HISTORY_HISTORY_TEXT_H_
#define VORN_KIT_HISTORY_HISTORY_TEXT_H_

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "kit/common/text_table.h"
#include "kit/history/changes.h"
#include "kit/history/differences.h"
#include "kit/ledger/run_entry.h"

namespace vorn::kit {

/// A table of runs, a row each.
class RunTable {
 public:
  RunTable();
  void Add(const RunEntry& run);
  [[nodiscard]] std::string Text() const { return table_.Text(); }

 private:
  TextTable table_;
};

/// All that is kept of a run, a line each.
[[nodiscard]] std::string RunText(const RunEntry& run);

/// A table of series with how they stand now.
[[nodiscard]] std::string SeriesText(std::span<const SeriesHistory> all);

/// A line of JSON a series; docs/schema/history_series.json.
[[nodiscard]] std::string SeriesLine(const SeriesHistory& series, std::span<const KeyPart> parts);

/// Looks up a run that a change names.
using FindRun = std::function<RunEntry(int64_t id)>;

/// A change with the runs on both sides and what differs between them.
struct ToldChange {
  HistoryChange change;
  RunEntry before;
  RunEntry after;
  int64_t toldAt = 0;  ///< id of the run
  std::vector<RunDifference> differences;
};

/// The changes of a series from `sinceNs` on. Of more than `most` the latest, and those at which
/// the series stands.
[[nodiscard]] std::vector<ToldChange> TellChanges(const SeriesHistory& series, uint64_t sinceNs,
                                                  const FindRun& find, size_t most = SIZE_MAX);

/// The series' name and its changes; what is suspected, too. Empty where there is nothing to say.
[[nodiscard]] std::string ChangesText(const SeriesHistory& series,
                                      std::span<const ToldChange> changes);

/// A line of JSON a change; docs/schema/history_change.json.
[[nodiscard]] std::string ChangeLine(const SeriesHistory& series, const ToldChange& change);

/// "time: the last 3 runs all lie above all others of their level, ...", names as they are.
[[nodiscard]] std::string SuspicionText(const FigureHistory& figure);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_HISTORY_TEXT_H_
