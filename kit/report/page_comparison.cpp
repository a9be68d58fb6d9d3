// Two runs and more side by side: each further one against the first.
#include <algorithm>
#include <cmath>

#include "kit/common/printable.h"
#include "kit/page/chart.h"
#include "kit/page/table.h"
#include "kit/report/page_parts.h"

namespace vorn::kit {
namespace {

std::string RunName(const ReportFacts& facts, size_t run) {
  return run < facts.runs.size() ? NameExcerpt(facts.runs[run].name, 60) : std::string("run");
}

Html RunLink(const ReportFacts& facts, size_t run) {
  return LinkTo("run-" + std::to_string(run + 1), Text(RunName(facts, run)));
}

Tone ToneOf(TimingVerdict verdict) {
  switch (verdict) {
    case TimingVerdict::kSlower:
      return Tone::kBad;
    case TimingVerdict::kFaster:
    case TimingVerdict::kAlike:
      return Tone::kGood;
    case TimingVerdict::kCannotTell:
    case TimingVerdict::kNothing:
      return Tone::kOpen;
  }
  return Tone::kOpen;
}

Html RunTable(const ReportFacts& facts) {
  Table table;
  table.caption = "The runs";
  table.columns = {{"run"},
                   {"verdict"},
                   {"done", true},
                   {"wrong samples", true},
                   {"median time", true},
                   {"its interval", true},
                   {"99th", true},
                   {"host"}};
  for (size_t i = 0; i < facts.runs.size(); ++i) {
    const ReportRun& run = facts.runs[i];
    uint64_t wrong = 0;
    if (run.judgement) {
      for (const ReportOutput& output : run.judgement->outputs) {
        wrong = std::max(wrong, output.wrongSamples);
      }
    }
    std::vector<Cell> cells{{RunLink(facts, i), {}},
                            {Pill(vorn::kit::ToneOf(run.answer.tone), run.answer.verdict), {}},
                            CountCell(run.facts.counts.done),
                            run.judgement ? CountCell(wrong) : TextCell("")};
    if (run.times.series.empty() || run.times.series[0].count == 0) {
      cells.insert(cells.end(), {{}, {}, {}});
    } else {
      const ReportSeries& series = run.times.series[0];
      cells.push_back(TimeCell(series.medianOfAllNs));
      cells.push_back({Text(TimeText(series.lowNs) + " – " + TimeText(series.highNs)),
                       series.highNs - series.lowNs});
      cells.push_back(series.p99Ns ? TimeCell(*series.p99Ns) : Cell{});
    }
    cells.push_back(NameCell(run.facts.machine.host));
    table.rows.push_back({std::move(cells), run.answer.tone == ReportTone::kBad});
  }
  return Draw(table);
}

// The forest plot: a ratio with its interval for each run.
Html RatioPlot(const ReportFacts& facts) {
  RowPlot plot;
  plot.title = "Times of each run by those of " + RunName(facts, 0);
  plot.labelTitle = "run";
  plot.valueTitle = "ratio, interval";
  plot.axis = {.label = "ratio of medians; right of 1 is slower"};
  plot.reference = 1;
  for (const ReportComparison& comparison : facts.comparisons) {
    const Comparison& times = comparison.times;
    RowPlot::Row row{RunLink(facts, comparison.other) + Raw(" ") +
                         Pill(ToneOf(times.verdict), VerdictName(times.verdict)),
                     {},
                     "",
                     false};
    if (times.verdict != TimingVerdict::kNothing) {
      const RatioInterval& interval = times.interval;
      row.marks.push_back({.kind = RowPlot::Mark::Kind::kInterval,
                           .from = interval.low,
                           .to = interval.high,
                           .at = interval.ratio,
                           .ink = times.verdict == TimingVerdict::kSlower   ? Ink::kBad
                                  : times.verdict == TimingVerdict::kFaster ? Ink::kGood
                                                                            : Ink::kFirst});
      row.value = NumberText(interval.ratio) + ", " + NumberText(interval.low) + " to " +
                  NumberText(interval.high);
    } else {
      row.value = "nothing measured";
    }
    plot.rows.push_back(std::move(row));
  }
  if (plot.rows.empty()) return {};
  return Draw(plot);
}

Html TimesInWords(const ReportFacts& facts, const ReportComparison& comparison) {
  const Comparison& times = comparison.times;
  if (times.verdict == TimingVerdict::kNothing) return {};
  std::string text = std::string(VerdictName(times.verdict)) + ": the median of " +
                     RunName(facts, comparison.other) + " is " + NumberText(times.interval.ratio) +
                     " times that of " + RunName(facts, comparison.base) + " (" +
                     PercentText(comparison.confidence) + " sure between " +
                     NumberText(times.interval.low) + " and " + NumberText(times.interval.high) +
                     "), a difference of " + TimeText(std::abs(times.differenceNs)) + "; " +
                     CountText(times.base) + " and " + CountText(times.other) +
                     " times were compared, p = " + NumberText(times.p) +
                     ". A difference counts from a ratio of " + NumberText(times.gate) + " on.";
  if (times.needed) {
    text += " About " + CountText(*times.needed) + " times a side would tell.";
  }
  return Paragraph(Text(text));
}

// A stretch of times by their logarithms.
struct LogStretch {
  double from = 0;
  double to = 0;

  [[nodiscard]] double Width() const { return to - from; }
};

// Null where there is no histogram; of equal times it has one bin.
std::optional<LogStretch> StretchOf(const ReportFacts& facts, size_t run) {
  if (run >= facts.runs.size() || facts.runs[run].times.series.empty()) return {};
  const ReportSeries& series = facts.runs[run].times.series[0];
  if (series.histogram.empty() || !(series.histogramLowNs > 0)) return {};
  const double high = std::max(series.histogramHighNs, series.histogramLowNs * 1.0001);
  return LogStretch{std::log(series.histogramLowNs), std::log(high)};
}

// The shares of a run's executions in bars that both runs have: each of its own bins is divided
// over those that it covers.
ChartSeries BarsOf(const ReportSeries& series, const LogStretch& own, const LogStretch& all,
                   std::string name, Ink ink) {
  constexpr size_t kBars = 48;
  ChartSeries bars{.name = std::move(name), .style = ChartSeries::Style::kBars, .ink = ink};
  const double width = all.Width() / kBars;
  for (size_t i = 0; i <= kBars; ++i) {
    bars.x.push_back(std::exp(all.from + width * static_cast<double>(i)));
  }
  bars.y.assign(kBars, 0);
  uint64_t sum = 0;
  for (const uint64_t count : series.histogram) sum += count;
  const double bin = own.Width() / static_cast<double>(series.histogram.size());
  for (size_t b = 0; b < series.histogram.size() && sum > 0; ++b) {
    const double from = own.from + bin * static_cast<double>(b);
    const double share = static_cast<double>(series.histogram[b]) / static_cast<double>(sum);
    for (size_t i = 0; i < kBars; ++i) {
      const double left = all.from + width * static_cast<double>(i);
      const double covered = std::min(from + bin, left + width) - std::max(from, left);
      if (covered > 0) bars.y[i] += share * covered / bin;
    }
  }
  return bars;
}

Html SpreadChart(const ReportFacts& facts, const ReportComparison& comparison, size_t number) {
  const auto base = StretchOf(facts, comparison.base);
  const auto other = StretchOf(facts, comparison.other);
  if (!base || !other) return {};
  const LogStretch all{std::min(base->from, other->from), std::max(base->to, other->to)};
  Chart chart;
  chart.id = "comparison-" + std::to_string(number) + "-spread";
  chart.title = "How the times of both are spread";
  chart.description =
      "Which share of the executions took how long, of both runs, without warm-ups.";
  chart.x = {.label = "time", .quantity = Quantity::kNanoseconds, .isLogarithmic = true};
  chart.y = {.label = "share of the executions in a bar", .quantity = Quantity::kFraction};
  const auto add = [&](size_t run, const LogStretch& own, Ink ink) {
    chart.series.push_back(
        BarsOf(facts.runs[run].times.series[0], own, all, RunName(facts, run), ink));
  };
  add(comparison.base, *base, Ink::kFirst);
  add(comparison.other, *other, Ink::kSecond);
  return Draw(chart);
}

Html ChangeTable(const std::vector<ReportChange>& changes, const std::string& caption,
                 const std::string& base, const std::string& other) {
  if (changes.empty()) return {};
  Table table;
  table.caption = caption;
  table.showsCaption = true;
  table.columns = {{"what"}, {base}, {other}};
  for (const ReportChange& change : changes) {
    table.rows.push_back({{TextCell(change.what), NameCell(change.base), NameCell(change.other)}});
  }
  return Draw(table);
}

Html OutputTable(const ReportComparison& comparison) {
  if (comparison.outputs.empty()) return {};
  Table table;
  table.caption = "Outputs, byte by byte";
  table.showsCaption = true;
  table.columns = {{"output"},
                   {"equal samples", true},
                   {"different", true},
                   {"first different", true},
                   {"in the first alone", true},
                   {"in the second alone", true}};
  for (const ReportOutputChange& output : comparison.outputs) {
    table.rows.push_back(
        {{NameCell(output.output), CountCell(output.equal), CountCell(output.different),
          output.firstDifferent ? CountCell(*output.firstDifferent) : Cell{},
          CountCell(output.onlyBase), CountCell(output.onlyOther)}});
  }
  return Draw(table);
}

Html OneComparison(const ReportFacts& facts, const ReportComparison& comparison, size_t number,
                   bool isOnly) {
  const std::string base = RunName(facts, comparison.base);
  const std::string other = RunName(facts, comparison.other);
  Html html;
  if (!isOnly) {
    html += Paragraph(Text(comparison.answer.sentence)) + Sentences(comparison.answer.more);
  }
  html += TimesInWords(facts, comparison);
  html += SpreadChart(facts, comparison, number);
  html += ChangeTable(comparison.verdicts, "Verdicts that changed", base, other);
  html += OutputTable(comparison);
  html +=
      comparison.environment.empty()
          ? Paragraph(
                Text("Nothing that is known of machine, runtime, program, model and configuration "
                     "is different."))
          : ChangeTable(comparison.environment, "What is not the same around them", base, other);
  html += Sentences(comparison.remarks);
  if (isOnly) return html;
  return Element("details", {{"class", "card"}, {"open", ""}},
                 Element("summary", Pill(vorn::kit::ToneOf(comparison.answer.tone),
                                         comparison.answer.verdict) +
                                        Raw(" ") + Element("strong", Text(other))) +
                     Element("div", {{"class", "inside"}}, html));
}

}  // namespace

std::vector<Tile> ComparisonTiles(const ReportFacts& facts) {
  if (facts.comparisons.size() != 1) return {};
  const ReportComparison& comparison = facts.comparisons[0];
  std::vector<Tile> tiles;
  if (comparison.times.verdict != TimingVerdict::kNothing) {
    const RatioInterval& interval = comparison.times.interval;
    tiles.push_back({"ratio of times", NumberText(interval.ratio),
                     NumberText(interval.low) + " to " + NumberText(interval.high),
                     ToneOf(comparison.times.verdict), true});
  }
  for (const size_t run : {comparison.base, comparison.other}) {
    if (run >= facts.runs.size() || facts.runs[run].times.series.empty()) continue;
    const ReportSeries& series = facts.runs[run].times.series[0];
    if (series.count == 0) continue;
    tiles.push_back({"median of " + NameExcerpt(facts.runs[run].name, 30),
                     TimeText(series.medianOfAllNs),
                     TimeText(series.lowNs) + " to " + TimeText(series.highNs)});
  }
  if (!comparison.outputs.empty()) {
    uint64_t different = 0;
    uint64_t all = 0;
    for (const ReportOutputChange& output : comparison.outputs) {
      different += output.different;
      all += output.different + output.equal;
    }
    tiles.push_back({"outputs with other bytes", CountText(different), "of " + CountText(all),
                     Tone::kOpen, different > 0});
  }
  tiles.push_back({"changes around it", CountText(comparison.environment.size()),
                   "machine, runtime, program, model, configuration", Tone::kOpen,
                   !comparison.environment.empty()});
  return tiles;
}

Html ComparisonPart(const ReportFacts& facts) {
  Html html = RunTable(facts) + RatioPlot(facts);
  for (size_t i = 0; i < facts.comparisons.size(); ++i) {
    html += OneComparison(facts, facts.comparisons[i], i + 1, facts.comparisons.size() == 1);
  }
  return html;
}

}  // namespace vorn::kit
