#include "kit/timing/comparison.h"

#include <algorithm>
#include <cmath>

#include "kit/timing/rank_tests.h"
#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

std::vector<double> LogRatios(const Contest& contest) {
  std::vector<double> ratios;
  ratios.reserve(contest.base.size());
  for (size_t i = 0; i < contest.base.size(); ++i) {
    ratios.push_back(std::log(contest.other[i] / contest.base[i]));
  }
  return ratios;
}

// A p of values that depend on each other, as of fewer ones. Of so few values as 6 the dependence
// is a guess, which may be far too high: series that do not overlap at all reach the level all the
// same, and the interval, which is widened in full, has to bear them out.
double Deflated(const Comparison& measured, double level) {
  if (measured.leastP >= level) return measured.p;
  const double reachable = NormalQuantile(measured.leastP / 2) / NormalQuantile(level / 2);
  return Deflate(measured.p, std::min(measured.inflation, reachable * reachable));
}

// All but the verdict, the p not yet corrected for several comparisons. `level` is what it has to
// reach among them.
Comparison Measure(const Contest& contest, const Gates& gates, double level,
                   const Bootstrap& bootstrap) {
  Comparison measured;
  measured.isPaired = contest.isPaired;
  measured.base = contest.base.size();
  measured.other = contest.other.size();
  if (contest.base.empty() || contest.other.empty()) return measured;
  measured.verdict = TimingVerdict::kCannotTell;
  if (contest.isPaired) {
    const std::vector<double> ratios = LogRatios(contest);
    measured.inflation = VarianceInflation(ratios);
    measured.p = SignedRanks(ratios);
    measured.leastP = LeastSignedRanks(measured.base);
    measured.interval = MedianOfRatios(contest.base, contest.other, bootstrap);
  } else {
    // Each side adds to the variance by how few values it has.
    const double ofBase = 1 / static_cast<double>(measured.base);
    const double ofOther = 1 / static_cast<double>(measured.other);
    measured.inflation =
        (VarianceInflation(contest.base) * ofBase + VarianceInflation(contest.other) * ofOther) /
        (ofBase + ofOther);
    measured.p = MannWhitney(contest.base, contest.other);
    measured.leastP = LeastMannWhitney(measured.base, measured.other);
    measured.interval = RatioOfMedians(contest.base, contest.other, bootstrap);
  }
  measured.p = Deflated(measured, level);
  const double base = Median(contest.base);
  const double other = Median(contest.other);
  measured.differenceNs = other - base;
  measured.gate = std::max(gates.ratio, 1 + gates.absoluteNs / std::min(base, other));
  return measured;
}

TimingVerdict Judge(const Comparison& measured, double level) {
  const RatioInterval& interval = measured.interval;
  if (std::min(measured.base, measured.other) < kLeastJudged) return TimingVerdict::kCannotTell;
  const bool isDifferent = measured.p <= level;
  if (isDifferent && interval.low > 1 && interval.ratio >= measured.gate) {
    return TimingVerdict::kSlower;
  }
  if (isDifferent && interval.high < 1 && interval.ratio <= 1 / measured.gate) {
    return TimingVerdict::kFaster;
  }
  if (interval.high < measured.gate && interval.low > 1 / measured.gate) {
    return TimingVerdict::kAlike;
  }
  return TimingVerdict::kCannotTell;
}

// The fewest values a side that can reach a level at all.
size_t LeastCount(bool isPaired, double level) {
  size_t count = kLeastJudged;
  while ((isPaired ? LeastSignedRanks(count) : LeastMannWhitney(count, count)) > level) ++count;
  return count;
}

// An interval shrinks by the root of the count. It has to leave out 1 where the ratio reaches the
// gate, and to lie within the gates where it does not.
std::optional<size_t> CountNeeded(const Comparison& measured, double level) {
  const double distance = std::abs(std::log(measured.interval.ratio));
  const double gate = std::log(measured.gate);
  const double wanted = distance >= gate ? distance : gate - distance;
  const double half = std::log(measured.interval.high / measured.interval.low) / 2;
  const auto count = static_cast<double>(std::min(measured.base, measured.other));
  const double needed = std::ceil(count * (half / wanted) * (half / wanted));
  if (!(needed <= static_cast<double>(kMostNeeded))) return std::nullopt;
  // What it was judged by was not enough, whatever the estimate says.
  const double more = std::max(needed, count + 1);
  return std::max(static_cast<size_t>(more), LeastCount(measured.isPaired, level));
}

}  // namespace

std::string_view VerdictName(TimingVerdict verdict) {
  switch (verdict) {
    case TimingVerdict::kSlower:
      return "slower";
    case TimingVerdict::kFaster:
      return "faster";
    case TimingVerdict::kAlike:
      return "alike";
    case TimingVerdict::kCannotTell:
      return "cannot tell";
    case TimingVerdict::kNothing:
      return "nothing measured";
  }
  return "";
}

std::vector<Comparison> Compare(std::span<const Contest> contests, const Gates& gates,
                                const Bootstrap& bootstrap) {
  std::vector<Comparison> all;
  std::vector<double> chances;
  const auto isMeasured = [](const Contest& one) {
    return !one.base.empty() && !one.other.empty();
  };
  const auto measuredOnes = std::count_if(contests.begin(), contests.end(), isMeasured);
  const double strictest = gates.level / static_cast<double>(std::max<int64_t>(measuredOnes, 1));
  for (const Contest& contest : contests) {
    all.push_back(Measure(contest, gates, strictest, bootstrap));
    if (all.back().verdict != TimingVerdict::kNothing) chances.push_back(all.back().p);
  }
  const std::vector<double> corrected = Holm(chances);
  auto chance = corrected.begin();
  for (Comparison& measured : all) {
    if (measured.verdict == TimingVerdict::kNothing) continue;
    measured.p = *chance++;
    measured.verdict = Judge(measured, gates.level);
    if (measured.verdict == TimingVerdict::kCannotTell) {
      measured.needed = CountNeeded(measured, strictest);
    }
  }
  return all;
}

}  // namespace vorn::kit
