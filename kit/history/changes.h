// What changed when in a series: steps of its figures, and turns of its verdicts.
#ifndef VORN_KIT_HISTORY_CHANGES_H_
#define VORN_KIT_HISTORY_CHANGES_H_

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/history/levels.h"
#include "kit/ledger/ledger.h"

namespace vorn::kit {

/// One figure of a series over its runs.
struct FigureHistory {
  FigureKind kind = FigureKind::kTime;
  std::string output;        ///< empty for the time
  std::string metric;        ///< "time", "top 1", "RMSE"
  std::vector<size_t> runs;  ///< places among the series' runs
  std::vector<double> values;
  std::vector<FigureLevel> levels;     ///< over the values
  std::optional<Suspicion> suspicion;  ///< of the last level
};

/// A turn of what cannot be measured: from one run to another it fails, or its verdict is another.
struct OutcomeTurn {
  size_t before = 0;  ///< places among the series' runs
  size_t after = 0;
  std::string from;  ///< "right", "wrong", "done", "failed"
  std::string to;
  bool isWorse = false;
  bool isByHand = false;
};

struct SeriesHistory {
  std::string name;  ///< eight digits
  std::string text;  ///< of its key, for people
  std::vector<std::string> key;
  std::vector<RunPoint> runs;
  std::vector<FigureHistory> figures;  ///< the time first, if there is one
  std::vector<OutcomeTurn> turns;
};

/// Looks for all of it.
[[nodiscard]] SeriesHistory HistoryOf(RunSeriesPoints points, std::span<const KeyPart> parts,
                                      const LevelGates& gates);

/// A step or a turn.
struct HistoryChange {
  const FigureHistory* figure = nullptr;  ///< null for a turn
  const OutcomeTurn* turn = nullptr;      ///< null for a step
  size_t level = 0;                       ///< of the figure: the one behind the step
  size_t before = 0;                      ///< places among the series' runs
  size_t after = 0;
  size_t toldAt = 0;
  bool isWorse = false;
  bool isByHand = false;
  /// Of its figure, or of its kind of turn, and in the last level: the series stands there now.
  bool isLast = false;
};

/// By the start of the first run behind each. Points into `series`, which has to stay.
[[nodiscard]] std::vector<HistoryChange> ChangesOf(const SeriesHistory& series);

/// "time: 1.234 ms -> 1.456 ms, +18.0 %, slower", names as they are.
[[nodiscard]] std::string TextOf(const HistoryChange& change);

/// What a look at all series ends with: kDiffers where one stands at worse outputs since a step
/// that nobody accepted, kSlower the same of times, kNothing where no run has a figure,
/// kCannotTell where no series has values enough for a step, else kDone. Steps before `sinceNs` are
/// old news.
[[nodiscard]] ExitStatus StatusOf(std::span<const SeriesHistory> all, uint64_t sinceNs);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_CHANGES_H_
