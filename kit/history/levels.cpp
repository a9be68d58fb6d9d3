#include "kit/history/levels.h"

#include <algorithm>
#include <cmath>

#include "kit/history/step_chart.h"
#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

// The levels as the chart tells them, before what does not count is taken out.
class LevelFinder {
 public:
  LevelFinder(FigureKind kind, const LevelGates& gates) : kind_(kind), gates_(gates) {}

  void Add(size_t place, double value, bool isBegin) {
    if (levels_.empty() || isBegin) {
      Begin(place, place, isBegin);
      chart_.Clear();
      chart_.Take(value);
    } else if (IsOffConstant(value)) {
      Begin(place, place, false);
      chart_.Clear();
      chart_.Take(value);
    } else if (const auto behind = chart_.Add(value)) {
      Begin(place + 1 - *behind, place, false);
    }
  }

  std::vector<FigureLevel> Take() { return std::move(levels_); }

 private:
  void Begin(size_t first, size_t toldAt, bool isByHand) {
    levels_.push_back(
        {.first = first, .count = 0, .median = 0, .toldAt = toldAt, .isByHand = isByHand});
  }

  bool IsOffConstant(double value) const {
    return kind_ != FigureKind::kTime && chart_.IsConstant() &&
           chart_.Values().size() >= kLeastForConstant &&
           Counts(kind_, chart_.Values().back(), value, gates_);
  }

  FigureKind kind_;
  const LevelGates& gates_;
  StepChart chart_;
  std::vector<FigureLevel> levels_;
};

void Measure(FigureLevel& level, std::span<const double> values) {
  level.median = Median(values.subspan(level.first, level.count));
}

}  // namespace

bool Counts(FigureKind kind, double before, double after, const LevelGates& gates) {
  const double difference = std::abs(after - before);
  if (kind == FigureKind::kShare) return difference >= gates.share;
  // From or to nothing there is no ratio.
  const double least = std::min(before, after);
  const bool isRatio = least > 0 ? std::max(before, after) / least >= gates.ratio : difference > 0;
  return isRatio && (kind == FigureKind::kError || difference >= gates.absoluteNs);
}

bool IsWorse(FigureKind kind, double before, double after) {
  return kind == FigureKind::kShare ? after < before : after > before;
}

std::vector<FigureLevel> LevelsOf(FigureKind kind, std::span<const double> values,
                                  std::span<const size_t> begins, const LevelGates& gates) {
  LevelFinder finder(kind, gates);
  size_t begin = 0;
  for (size_t place = 0; place < values.size(); ++place) {
    while (begin < begins.size() && begins[begin] < place) ++begin;
    const bool isBegin = begin < begins.size() && begins[begin] == place;
    finder.Add(place, values[place], isBegin);
  }
  std::vector<FigureLevel> found = finder.Take();
  std::vector<FigureLevel> levels;
  for (size_t i = 0; i < found.size(); ++i) {
    const size_t end = i + 1 < found.size() ? found[i + 1].first : values.size();
    found[i].count = end - found[i].first;
    Measure(found[i], values);
    levels.push_back(found[i]);
    while (levels.size() > 1) {
      FigureLevel& before = levels[levels.size() - 2];
      const FigureLevel& last = levels.back();
      if (last.isByHand || Counts(kind, before.median, last.median, gates)) break;
      before.count += last.count;
      levels.pop_back();
      Measure(levels.back(), values);
    }
  }
  return levels;
}

std::optional<Suspicion> SuspicionOf(FigureKind kind, std::span<const double> level,
                                     const LevelGates& gates) {
  constexpr size_t kLeastOthers = 3;
  constexpr size_t kLeastBeyond = 2;
  constexpr size_t kMostBeyond = 10;
  for (size_t count = kMostBeyond; count >= kLeastBeyond; --count) {
    if (level.size() < count + kLeastOthers) continue;
    const auto others = level.first(level.size() - count);
    const auto last = level.last(count);
    const auto [least, most] = std::minmax_element(others.begin(), others.end());
    const auto [leastLast, mostLast] = std::minmax_element(last.begin(), last.end());
    if (*leastLast <= *most && *mostLast >= *least) continue;
    const Suspicion suspicion{.count = count, .before = Median(others), .after = Median(last)};
    if (Counts(kind, suspicion.before, suspicion.after, gates)) return suspicion;
  }
  return std::nullopt;
}

}  // namespace vorn::kit
