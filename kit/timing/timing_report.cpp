#include "kit/timing/timing_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>
#include <utility>

#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "kit/json/json.h"
#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

constexpr int kTimingSchema = 1;
constexpr std::array kShares{0.9, 0.95, 0.99};

template <typename... Values>
std::string Format(const char* format, Values... values) {
  std::array<char, 256> text{};
  std::snprintf(text.data(), text.size(), format, values...);
  return text.data();
}

// ---- For people
// ----------------------------------------------------------------------------------

// One unit for all times, by the smallest median, so that columns can be compared.
struct Unit {
  const char* name;
  double ns;
};

Unit UnitFor(const TimingResult& result) {
  double least = INFINITY;
  for (const Times& times : result.series) {
    if (!times.timesNs.empty()) least = std::min(least, Median(times.timesNs));
  }
  constexpr std::array kUnits{Unit{"s", 1e9}, Unit{"ms", 1e6}, Unit{"us", 1e3}};
  for (const Unit& unit : kUnits) {
    if (least >= unit.ns && least < INFINITY) return unit;
  }
  return least < INFINITY ? Unit{"ns", 1} : Unit{"ms", 1e6};
}

std::string InUnit(std::optional<double> ns, const Unit& unit) {
  return ns ? Format("%.3f", *ns / unit.ns) : "-";
}

std::string Percent(std::optional<double> share) {
  return share ? Format("%.1f %%", 100 * *share) : "-";
}

std::string Names(const TimingResult& result) {
  std::string text;
  for (size_t i = 0; i < result.series.size(); ++i) {
    text +=
        Format("%-2zu ", i + 1) + result.kinds[i] + "  " + Printable(result.series[i].name) + "\n";
  }
  return text;
}

std::string Table(const TimingResult& result, const Unit& unit) {
  const std::string in = std::string(" ") + unit.name;
  TextTable table({{""},
                   {"times", true},
                   {"first" + in, true},
                   {"median" + in, true},
                   {"MAD" + in, true},
                   {"spread", true},
                   {"90th" + in, true},
                   {"95th" + in, true},
                   {"99th" + in, true},
                   {"most" + in, true}});
  for (size_t i = 0; i < result.series.size(); ++i) {
    const Times& times = result.series[i];
    const auto& all = times.timesNs;
    std::vector<std::string> row{std::to_string(i + 1), std::to_string(all.size()),
                                 times.firstNs.empty() ? "-" : InUnit(Median(times.firstNs), unit)};
    if (!all.empty()) {
      row.insert(row.end(), {InUnit(Median(all), unit), InUnit(MedianDeviation(all), unit),
                             Percent(Spread(all))});
      for (const double share : kShares) row.push_back(InUnit(Percentile(all, share), unit));
      row.push_back(InUnit(*std::max_element(all.begin(), all.end()), unit));
    }
    table.Add(std::move(row));
  }
  return table.Text();
}

// How many independent times tell as much: a time is one, whatever its neighbours.
double WorthOf(size_t count, double inflation) {
  return std::max(1.0, std::floor(static_cast<double>(count) / inflation));
}

// What a reader should know before trusting a series.
std::string Remarks(const TimingResult& result, const Unit& unit) {
  std::string text;
  const auto remark = [&](size_t series, const std::string& what) {
    text += std::to_string(series + 1) + ": " + what + "\n";
  };
  for (size_t i = 0; i < result.series.size(); ++i) {
    const Times& times = result.series[i];
    const auto& all = times.timesNs;
    if (times.failed != 0) {
      remark(i, std::to_string(times.failed) + " executions failed and are left out");
    }
    if (times.isUnfinished) {
      remark(i, "the run has not ended (\"running\" in its run.json): these are its times so far");
    }
    if (times.repeated != 0) {
      remark(i, Counted(times.repeated, "line") +
                    " of times.jsonl of inferences that stand there again: the latest attempt "
                    "counts, and the other is left out");
    }
    if (all.empty()) continue;
    if (const auto drift = FindDrift(all)) {
      remark(i, Format("the times drift by %+.1f %% from the first third to the last: does the "
                       "machine get hot, or another program busy?",
                       100 * *drift));
    }
    const double inflation = VarianceInflation(all);
    constexpr double kWorthTelling = 1.5;
    if (inflation > kWorthTelling) {
      remark(i, Format("neighbours are alike, so that these %zu times are worth %.0f", all.size(),
                       WorthOf(all.size(), inflation)));
    }
    const auto outliers = FindOutliers(all);
    if (!outliers.empty()) {
      remark(i,
             Format("%zu of %zu lie far off, the first is number %zu with %s %s; they are counted",
                    outliers.size(), all.size(), outliers[0] + 1,
                    InUnit(all[outliers[0]], unit).c_str(), unit.name));
    }
  }
  if (result.tookNoTurns) {
    text +=
        "they took no turns: most inferences of one began long before or after those of the other, "
        "so they are not compared by pairs, and what changed on the machine meanwhile counts\n";
  }
  return text;
}

std::string Verdict(const TimingResult::Pair& pair, const Unit& unit) {
  const Comparison& found = pair.comparison;
  std::string text = Format("%zu against %zu: %s", pair.other + 1, pair.base + 1,
                            std::string(VerdictName(found.verdict)).c_str());
  if (found.verdict == TimingVerdict::kNothing) {
    return text + " in " + std::to_string((found.base == 0 ? pair.base : pair.other) + 1) + "\n";
  }
  if (found.verdict == TimingVerdict::kCannotTell) {
    text += Format(" with %zu and %zu times", found.other, found.base);
  }
  if (std::min(found.base, found.other) < kLeastJudged) {
    return text + Format(": %zu a side is the least\n", kLeastJudged);
  }
  text += Format(". %s%+.2f %% (%+.2f to %+.2f %%, 19 times in 20), %+.3f %s, p %.2g%s\n",
                 found.isPaired ? "By pairs " : "", 100 * (found.interval.ratio - 1),
                 100 * (found.interval.low - 1), 100 * (found.interval.high - 1),
                 found.differenceNs / unit.ns, unit.name, found.p,
                 found.p <= found.leastP ? ", the least that so few can reach" : "");
  if (found.verdict == TimingVerdict::kAlike) {
    text += Format("    less than %.2f %% either way would not count\n", 100 * (found.gate - 1));
  }
  if (found.verdict == TimingVerdict::kCannotTell) {
    text += found.needed ? Format("    about %zu times a side would tell\n", *found.needed)
                         : Format(
                               "    more than %zu times a side would be needed: it is about as "
                               "large as what would count, %.2f %%\n",
                               kMostNeeded, 100 * (found.gate - 1));
  }
  return text;
}

// ---- As JSON
// -------------------------------------------------------------------------------------

Json NumbersOf(const std::vector<double>& values) { return Json::ArrayOf(values); }

void SetIfThere(Json& object, std::string_view key, std::optional<double> value) {
  if (value) object.Set(key, *value);
}

Json SeriesJson(const Times& times, const std::string& kind) {
  const auto& all = times.timesNs;
  Json object = Json::Object({{"name", times.name},
                              {"kind", kind},
                              {"count", all.size()},
                              {"failed", times.failed},
                              {"repeated", times.repeated},
                              {"unfinished", times.isUnfinished},
                              {"firstNs", NumbersOf(times.firstNs)}});
  if (all.empty()) return object;
  const auto [least, most] = std::minmax_element(all.begin(), all.end());
  object.Set("medianNs", Median(all));
  object.Set("madNs", MedianDeviation(all));
  object.Set("leastNs", *least);
  object.Set("mostNs", *most);
  SetIfThere(object, "spread", Spread(all));
  for (const double share : kShares) {
    SetIfThere(object, Format("p%.0fNs", 100 * share), Percentile(all, share));
  }
  SetIfThere(object, "drift", FindDrift(all));
  Json places = Json::Array();
  for (const size_t place : FindOutliers(all)) places.Append(place);
  object.Set("outliers", places);
  object.Set("autocorrelation", Autocorrelation(all));
  object.Set("effectiveCount",
             std::max(1.0, static_cast<double>(all.size()) / VarianceInflation(all)));
  return object;
}

Json PairJson(const TimingResult::Pair& pair) {
  const Comparison& found = pair.comparison;
  Json object = Json::Object({{"base", pair.base},
                              {"other", pair.other},
                              {"verdict", VerdictName(found.verdict)},
                              {"paired", found.isPaired},
                              {"baseCount", found.base},
                              {"otherCount", found.other}});
  if (found.verdict == TimingVerdict::kNothing) return object;
  object.Set("ratio", found.interval.ratio);
  // An interval of fewer does not hold the truth as often as it says.
  if (std::min(found.base, found.other) >= kLeastJudged) {
    object.Set("ratioLow", found.interval.low);
    object.Set("ratioHigh", found.interval.high);
  }
  object.Set("differenceNs", found.differenceNs);
  object.Set("p", found.p);
  object.Set("leastP", found.leastP);
  object.Set("gateRatio", found.gate);
  object.Set("varianceInflation", found.inflation);
  if (found.needed) object.Set("neededCount", *found.needed);
  return object;
}

Contest MakeContest(const TimingResult& result, size_t base, size_t other, bool isPaired) {
  return {.base = result.series[base].timesNs,
          .other = result.series[other].timesNs,
          .isPaired = isPaired};
}

}  // namespace

TimingResult CompareTimes(const std::vector<MeasuredTimes>& sources, const Gates& gates,
                          const Bootstrap& bootstrap) {
  TimingResult result;
  result.gates = gates;
  result.bootstrap = bootstrap;
  for (const MeasuredTimes& source : sources) {
    if (sources.size() > 1 && source.series.size() > 1) {
      throw Fault(ExitStatus::kUsage, "'" + Printable(source.series[0].name) +
                                          "' is of a run that took turns and compares by itself; "
                                          "leave out the others");
    }
    for (const Times& times : source.series) {
      result.series.push_back(times);
      result.kinds.push_back(source.kind);
    }
  }
  const bool isPaired = sources.size() == 1 && sources[0].isPaired;
  result.tookNoTurns = sources.size() == 1 && result.series.size() == 2 && !isPaired &&
                       !result.series[0].timesNs.empty() && !result.series[1].timesNs.empty();
  std::vector<Contest> contests;
  for (size_t other = 1; other < result.series.size(); ++other) {
    contests.push_back(MakeContest(result, 0, other, isPaired));
    result.pairs.push_back({.base = 0, .other = other, .comparison = {}});
  }
  const std::vector<Comparison> found = Compare(contests, gates, bootstrap);
  for (size_t i = 0; i < found.size(); ++i) result.pairs[i].comparison = found[i];
  return result;
}

ExitStatus StatusOf(const TimingResult& result) {
  const auto has = [&](TimingVerdict verdict) {
    return std::any_of(result.pairs.begin(), result.pairs.end(),
                       [&](const auto& pair) { return pair.comparison.verdict == verdict; });
  };
  const bool isOneEmpty = std::any_of(result.series.begin(), result.series.end(),
                                      [](const Times& one) { return one.timesNs.empty(); });
  if (has(TimingVerdict::kSlower)) return ExitStatus::kSlower;
  if (isOneEmpty) return ExitStatus::kNothing;
  return has(TimingVerdict::kCannotTell) ? ExitStatus::kCannotTell : ExitStatus::kDone;
}

std::string TimingText(const TimingResult& result) {
  const Unit unit = UnitFor(result);
  std::string text = Names(result) + "\n" + Table(result, unit);
  if (const std::string remarks = Remarks(result, unit); !remarks.empty()) text += "\n" + remarks;
  if (!result.pairs.empty()) text += "\n";
  for (const TimingResult::Pair& pair : result.pairs) text += Verdict(pair, unit);
  return text;
}

std::string TimingJson(const TimingResult& result) {
  Json series = Json::Array();
  for (size_t i = 0; i < result.series.size(); ++i) {
    series.Append(SeriesJson(result.series[i], result.kinds[i]));
  }
  Json comparisons = Json::Array();
  for (const TimingResult::Pair& pair : result.pairs) comparisons.Append(PairJson(pair));
  const Json object = Json::Object({{"schema", kTimingSchema},
                                    {"gateRatio", result.gates.ratio},
                                    {"gateNs", result.gates.absoluteNs},
                                    {"level", result.gates.level},
                                    {"confidence", result.bootstrap.confidence},
                                    {"resamples", result.bootstrap.resamples},
                                    {"seed", result.bootstrap.seed},
                                    {"series", std::move(series)},
                                    {"comparisons", std::move(comparisons)},
                                    {"status", static_cast<int>(StatusOf(result))}});
  constexpr int kIndent = 2;
  return ToText(object, kIndent) + "\n";
}

}  // namespace vorn::kit
