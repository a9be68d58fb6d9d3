#include "kit/history/changes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>

#include "kit/history/moment.h"
#include "kit/history/step_chart.h"

namespace vorn::kit {
namespace {

FigureKind KindOfMetric(const std::string& metric) {
  return metric == "RMSE" ? FigureKind::kError : FigureKind::kShare;
}

std::vector<size_t> PlacesOfLevels(const std::vector<RunPoint>& runs) {
  std::vector<size_t> places;
  for (size_t i = 0; i < runs.size(); ++i) {
    if (runs[i].beginsLevel) places.push_back(i);
  }
  return places;
}

// Where a person said that a level begins at a run without this figure, it begins at the next one.
std::vector<size_t> BeginsOf(const FigureHistory& figure, const std::vector<size_t>& places) {
  std::vector<size_t> begins;
  for (const size_t place : places) {
    const auto at = std::lower_bound(figure.runs.begin(), figure.runs.end(), place);
    if (at == figure.runs.end()) break;
    const auto begin = static_cast<size_t>(at - figure.runs.begin());
    if (begins.empty() || begins.back() != begin) begins.push_back(begin);
  }
  return begins;
}

void FindLevels(FigureHistory& figure, const std::vector<size_t>& places, const LevelGates& gates) {
  figure.levels = LevelsOf(figure.kind, figure.values, BeginsOf(figure, places), gates);
  if (figure.levels.empty()) return;
  const FigureLevel& last = figure.levels.back();
  figure.suspicion = SuspicionOf(figure.kind, std::span(figure.values).subspan(last.first), gates);
}

FigureHistory TimesOf(const std::vector<RunPoint>& runs) {
  FigureHistory figure;
  figure.kind = FigureKind::kTime;
  figure.metric = "time";
  for (size_t i = 0; i < runs.size(); ++i) {
    if (!(runs[i].medianNs > 0)) continue;
    figure.runs.push_back(i);
    figure.values.push_back(runs[i].medianNs);
  }
  return figure;
}

// Two questions, whose answers turn for themselves: whether runs fail, and what is judged of those
// that do not.
std::vector<OutcomeTurn> TurnsOf(const std::vector<RunPoint>& runs,
                                 const std::vector<size_t>& begins) {
  std::vector<OutcomeTurn> turns;
  std::optional<size_t> lastRun;
  std::optional<size_t> lastJudged;
  const auto isByHand = [&](size_t from, size_t to) {
    const auto begin = std::upper_bound(begins.begin(), begins.end(), from);
    return begin != begins.end() && *begin <= to;
  };
  for (size_t i = 0; i < runs.size(); ++i) {
    const RunOutcome outcome = runs[i].outcome;
    if (outcome == RunOutcome::kUnfinished) continue;
    const bool hasFailed = outcome == RunOutcome::kFailed;
    if (lastRun && (runs[*lastRun].outcome == RunOutcome::kFailed) != hasFailed) {
      turns.push_back({.before = *lastRun,
                       .after = i,
                       .from = hasFailed ? "done" : "failed",
                       .to = hasFailed ? "failed" : "done",
                       .isWorse = hasFailed,
                       .isByHand = isByHand(*lastRun, i)});
    }
    lastRun = i;
    if (hasFailed || outcome == RunOutcome::kNotJudged) continue;
    const bool isWrong = outcome == RunOutcome::kWrong;
    if (lastJudged && (runs[*lastJudged].outcome == RunOutcome::kWrong) != isWrong) {
      turns.push_back({.before = *lastJudged,
                       .after = i,
                       .from = isWrong ? "right" : "wrong",
                       .to = isWrong ? "wrong" : "right",
                       .isWorse = isWrong,
                       .isByHand = isByHand(*lastJudged, i)});
    }
    lastJudged = i;
  }
  return turns;
}

bool IsOfFailure(const OutcomeTurn& turn) { return turn.from == "failed" || turn.to == "failed"; }

template <typename... Values>
std::string Formatted(const char* format, Values... values) {
  std::array<char, 128> text{};
  std::snprintf(text.data(), text.size(), format, values...);
  return text.data();
}

std::string ValueText(FigureKind kind, double value) {
  return kind == FigureKind::kTime ? DurationText(value) : Formatted("%.6g", value);
}

std::string DifferenceText(FigureKind kind, double before, double after) {
  if (kind == FigureKind::kShare) return Formatted("%+.6g", after - before);
  if (before > 0) return Formatted("%+.1f %%", 100 * (after / before - 1));
  return Formatted("%+.6g", after - before);
}

std::string DirectionText(FigureKind kind, bool isWorse) {
  if (kind == FigureKind::kTime) return isWorse ? "slower" : "faster";
  return isWorse ? "worse" : "better";
}

}  // namespace

SeriesHistory HistoryOf(RunSeriesPoints points, std::span<const KeyPart> parts,
                        const LevelGates& gates) {
  SeriesHistory series;
  series.name = SeriesNameOf(points.key);
  series.text = SeriesTextOf(points.key, parts);
  series.key = std::move(points.key);
  series.runs = std::move(points.runs);
  const std::vector<size_t> places = PlacesOfLevels(series.runs);
  if (FigureHistory times = TimesOf(series.runs); !times.values.empty()) {
    FindLevels(times, places, gates);
    series.figures.push_back(std::move(times));
  }
  for (MetricPoints& metric : points.metrics) {
    FigureHistory figure{.kind = KindOfMetric(metric.metric),
                         .output = std::move(metric.output),
                         .metric = std::move(metric.metric),
                         .runs = std::move(metric.runs),
                         .values = std::move(metric.values),
                         .levels = {},
                         .suspicion = std::nullopt};
    FindLevels(figure, places, gates);
    series.figures.push_back(std::move(figure));
  }
  series.turns = TurnsOf(series.runs, places);
  return series;
}

std::vector<HistoryChange> ChangesOf(const SeriesHistory& series) {
  std::vector<HistoryChange> changes;
  for (const FigureHistory& figure : series.figures) {
    for (size_t level = 1; level < figure.levels.size(); ++level) {
      const FigureLevel& before = figure.levels[level - 1];
      const FigureLevel& after = figure.levels[level];
      changes.push_back({.figure = &figure,
                         .turn = nullptr,
                         .level = level,
                         .before = figure.runs[after.first - 1],
                         .after = figure.runs[after.first],
                         .toldAt = figure.runs[after.toldAt],
                         .isWorse = IsWorse(figure.kind, before.median, after.median),
                         .isByHand = after.isByHand,
                         .isLast = level + 1 == figure.levels.size()});
    }
  }
  for (size_t i = 0; i < series.turns.size(); ++i) {
    const OutcomeTurn& turn = series.turns[i];
    // Behind a level by hand nothing is compared with what was before it.
    const bool isLast =
        std::none_of(
            series.turns.begin() + static_cast<ptrdiff_t>(i) + 1, series.turns.end(),
            [&](const OutcomeTurn& later) { return IsOfFailure(later) == IsOfFailure(turn); }) &&
        std::none_of(series.runs.begin() + static_cast<ptrdiff_t>(turn.after) + 1,
                     series.runs.end(), [](const RunPoint& run) { return run.beginsLevel; });
    changes.push_back({.figure = nullptr,
                       .turn = &turn,
                       .level = 0,
                       .before = turn.before,
                       .after = turn.after,
                       .toldAt = turn.after,
                       .isWorse = turn.isWorse,
                       .isByHand = turn.isByHand,
                       .isLast = isLast});
  }
  std::stable_sort(changes.begin(), changes.end(),
                   [](const auto& one, const auto& other) { return one.after < other.after; });
  return changes;
}

std::string TextOf(const HistoryChange& change) {
  if (change.turn != nullptr) {
    return std::string(IsOfFailure(*change.turn) ? "runs" : "verdict") + ": " + change.turn->from +
           " -> " + change.turn->to;
  }
  const FigureHistory& figure = *change.figure;
  const double before = figure.levels[change.level - 1].median;
  const double after = figure.levels[change.level].median;
  const bool isDifferent = before != after;
  return (figure.output.empty() ? "" : figure.output + ", ") + figure.metric + ": " +
         ValueText(figure.kind, before) + " -> " + ValueText(figure.kind, after) + ", " +
         DifferenceText(figure.kind, before, after) +
         (isDifferent ? ", " + DirectionText(figure.kind, change.isWorse) : "");
}

ExitStatus StatusOf(std::span<const SeriesHistory> all, uint64_t sinceNs) {
  bool hasFigure = false;
  bool hasEnough = false;
  bool isSlower = false;
  for (const SeriesHistory& series : all) {
    for (const RunPoint& run : series.runs) {
      hasFigure = hasFigure || run.outcome == RunOutcome::kRight ||
                  run.outcome == RunOutcome::kWrong || run.outcome == RunOutcome::kFailed;
      // Nobody needs many of those.
      hasEnough = hasEnough || hasFigure;
    }
    for (const FigureHistory& figure : series.figures) {
      hasFigure = true;
      hasEnough = hasEnough || figure.values.size() >= kLeastForStep;
    }
    for (const HistoryChange& change : ChangesOf(series)) {
      const bool isNews = series.runs[change.after].startRealtimeNs >= sinceNs;
      if (!change.isLast || !change.isWorse || change.isByHand || !isNews) continue;
      const bool isTime = change.figure != nullptr && change.figure->kind == FigureKind::kTime;
      if (!isTime) return ExitStatus::kDiffers;
      isSlower = true;
    }
  }
  if (isSlower) return ExitStatus::kSlower;
  if (!hasFigure) return ExitStatus::kNothing;
  return hasEnough ? ExitStatus::kDone : ExitStatus::kCannotTell;
}

}  // namespace vorn::kit
