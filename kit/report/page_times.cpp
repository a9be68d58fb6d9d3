// How long it took: executions in order and spread, phases, calls, and what the machine did
// meanwhile.
#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <utility>

#include "kit/common/printable.h"
#include "kit/page/chart.h"
#include "kit/page/table.h"
#include "kit/page/timeline.h"
#include "kit/report/page_parts.h"

namespace vorn::kit {
namespace {

Ink InkOf(size_t series) { return series == 0 ? Ink::kFirst : Ink::kSecond; }

// Far-off values would press all others onto the axis.
bool WantsLogarithm(const std::vector<ReportSeries>& all) {
  return std::any_of(all.begin(), all.end(), [](const ReportSeries& series) {
    return series.medianOfAllNs > 0 && series.mostOfAllNs > 8 * series.medianOfAllNs;
  });
}

// So would a warm-up: the axis reaches as far as what counts needs.
ChartAxis TimeAxis(const std::vector<ReportSeries>& all) {
  ChartAxis axis{
      .label = "time", .quantity = Quantity::kNanoseconds, .isLogarithmic = WantsLogarithm(all)};
  double most = 0;
  double first = 0;
  for (const ReportSeries& series : all) {
    most = std::max(most, series.mostOfAllNs);
    first = std::max(first, series.firstNs);
  }
  if (most > 0 && first > 1.5 * most) axis.to = most * 1.1;
  return axis;
}

std::string SeriesName(const ReportSeries& series) {
  return series.name.empty() ? "execution" : "series " + series.name;
}

// ---- Executions in order ------------------------------------------------------------------------

void AddWarmUps(const ReportSeries& series, std::vector<ChartRegion>& regions) {
  const auto per = static_cast<double>(series.executionsPerRow);
  for (size_t i = 0; i < series.isWarmUp.size();) {
    if (series.isWarmUp[i] == 0) {
      ++i;
      continue;
    }
    size_t end = i;
    while (end < series.isWarmUp.size() && series.isWarmUp[end] != 0) ++end;
    // The key names the shade once.
    regions.push_back({(static_cast<double>(i) - 0.5) * per, (static_cast<double>(end) - 0.5) * per,
                       regions.empty() ? "warm-up" : ""});
    i = end;
    if (regions.size() >= 200) return;
  }
}

Html OrderChart(const RunOnPage& on, const ReportTimes& times) {
  // A single dot is no order.
  if (std::all_of(times.series.begin(), times.series.end(),
                  [](const ReportSeries& series) { return series.medianNs.size() < 2; })) {
    return {};
  }
  Chart chart;
  chart.id = on.Id("times-order");
  chart.title = "Executions in their order";
  const ReportSeries& first = times.series[0];
  chart.description =
      "Each execution, or a stretch of them, with the median and its interval. The "
      "warm-up is shaded and does not count.";
  chart.x = {.label = "execution", .quantity = Quantity::kCount};
  chart.y = TimeAxis(times.series);
  for (size_t s = 0; s < times.series.size(); ++s) {
    const ReportSeries& series = times.series[s];
    const auto per = static_cast<double>(series.executionsPerRow);
    ChartSeries dots{.name = times.series.size() > 1 ? SeriesName(series) : "",
                     .x = {},
                     .y = series.medianNs,
                     .style = ChartSeries::Style::kDots,
                     .ink = InkOf(s)};
    for (size_t i = 0; i < series.medianNs.size(); ++i) {
      dots.x.push_back(static_cast<double>(i) * per);
    }
    if (!series.leastNs.empty() && series.mostNs.size() == series.leastNs.size()) {
      chart.series.push_back({.name = "least to most",
                              .x = dots.x,
                              .y = series.leastNs,
                              .top = series.mostNs,
                              .style = ChartSeries::Style::kBand,
                              .ink = InkOf(s)});
    }
    chart.series.push_back(std::move(dots));
    AddWarmUps(series, chart.regions);
    if (series.count > 0) {
      chart.levels.push_back({.at = series.medianOfAllNs,
                              .low = series.lowNs,
                              .high = series.highNs,
                              .text = "median " + TimeText(series.medianOfAllNs)});
    }
  }
  if (first.executionsPerRow > 1) {
    chart.description +=
        " Each value stands for " + CountText(first.executionsPerRow) + " executions.";
  }
  return Draw(chart);
}

// ---- How they are spread ------------------------------------------------------------------------

Html SpreadChart(const RunOnPage& on, const ReportTimes& times) {
  Chart chart;
  chart.id = on.Id("times-spread");
  chart.title = "How the times are spread";
  chart.description =
      "How many executions took how long, without the warm-up, with the median and its interval.";
  chart.x = {.label = "time", .quantity = Quantity::kNanoseconds, .isLogarithmic = true};
  chart.y = {.label = "executions", .quantity = Quantity::kCount};
  for (size_t s = 0; s < times.series.size(); ++s) {
    const ReportSeries& series = times.series[s];
    const size_t bins = series.histogram.size();
    if (bins == 0 || !(series.histogramLowNs > 0)) continue;
    ChartSeries bars{.name = times.series.size() > 1 ? SeriesName(series) : "",
                     .x = {},
                     .y = {series.histogram.begin(), series.histogram.end()},
                     .style = ChartSeries::Style::kBars,
                     .ink = InkOf(s)};
    // All times the same: one bin, which has no width of its own.
    const double high = std::max(series.histogramHighNs, series.histogramLowNs * 1.0001);
    for (size_t i = 0; i <= bins; ++i) {
      const double share = static_cast<double>(i) / static_cast<double>(bins);
      bars.x.push_back(series.histogramLowNs * std::pow(high / series.histogramLowNs, share));
    }
    chart.series.push_back(std::move(bars));
    if (series.count > 0) {
      chart.levels.push_back({.at = series.medianOfAllNs,
                              .low = series.lowNs,
                              .high = series.highNs,
                              .text = "median " + TimeText(series.medianOfAllNs),
                              .isOnX = true});
    }
  }
  return chart.series.empty() ? Html() : Draw(chart);
}

std::string SlowestText(const ReportSeries& series) {
  std::string text;
  for (size_t i = 0; i < series.slowest.size(); ++i) {
    const ReportSeries::Slow& slow = series.slowest[i];
    const bool areAll = series.slowest.size() >= series.outliers;
    text += i > 0 ? ", " : areAll ? "the slowest: " : "the slowest of them: ";
    text += "sample " + std::to_string(slow.sample) + " with " + TimeText(slow.timeNs);
  }
  return text;
}

// "From sample 119 on an execution takes 35 µs (median of 80), and took 22 µs before …".
std::vector<std::string> StepTexts(const ReportSeries& series) {
  std::vector<std::string> texts;
  for (const ReportSeries::Step& step : series.steps) {
    texts.push_back("From sample " + std::to_string(step.sample) + " on an execution takes " +
                    TimeText(step.behindNs) + " (median of " + CountText(step.countBehind) +
                    "), and took " + TimeText(step.beforeNs) + " before (median of " +
                    CountText(step.countBefore) +
                    "): " + NumberText(step.behindNs / step.beforeNs, 3) + " times as long.");
  }
  return texts;
}

Html SeriesFacts(const ReportSeries& series) {
  std::vector<Fact> facts;
  if (series.count > 0) {
    facts.push_back(
        {"median", Element("strong", Text(TimeText(series.medianOfAllNs))) +
                       Text(", " + PercentText(series.confidence) + " sure between " +
                            TimeText(series.lowNs) + " and " + TimeText(series.highNs))});
    facts.push_back(
        {"spread", Text("half of them within " + TimeText(series.deviationNs) + " of the median; " +
                        TimeText(series.leastOfAllNs) + " to " + TimeText(series.mostOfAllNs))});
    std::string percentiles;
    const auto add = [&](const char* name, const std::optional<double>& value) {
      if (!value) return;
      percentiles += (percentiles.empty() ? "" : ", ") + std::string(name) + " " + TimeText(*value);
    };
    add("90th", series.p90Ns);
    add("95th", series.p95Ns);
    add("99th", series.p99Ns);
    if (!percentiles.empty()) facts.push_back({"percentiles", Text(percentiles)});
  }
  std::string counted =
      CountedText(series.count, "execution") + (series.count == 1 ? " counts" : " count");
  if (series.count == 0 && series.warmUps > 0) {
    counted = "none counts: " +
              (series.warmUps == 1 ? std::string("the only one") : CountText(series.warmUps)) +
              " warmed up, and took " + TimeText(series.firstNs) +
              (series.warmUps == 1 ? "" : " at first");
  } else if (series.warmUps > 0) {
    counted += ", " + CountText(series.warmUps) + " for warming up do" +
               (series.warmUps == 1 ? "es not (it took " : " not (the first took ") +
               TimeText(series.firstNs) + ")";
  }
  if (series.failed > 0) counted += ", " + CountText(series.failed) + " failed";
  if (series.repeated > 0) counted += ", " + CountText(series.repeated) + " were run again";
  facts.push_back({"executions", Text(counted)});
  std::string odd;
  if (series.outliers > 0) {
    const std::string slowest = SlowestText(series);
    odd =
        CountedText(series.outliers, "time") + " far off" + (slowest.empty() ? "" : ", " + slowest);
  }
  // A step is no drift, and tells more.
  if (series.drift && series.steps.empty()) {
    odd += (odd.empty() ? "" : "; ") + std::string("the last third takes ") +
           PercentText(std::abs(*series.drift)) +
           (*series.drift > 0 ? " longer than the first" : " less than the first");
  }
  if (!odd.empty()) facts.push_back({"odd", Text(odd)});
  const Html steps = Sentences(StepTexts(series));
  return (steps.IsEmpty() ? steps : Element("div", {{"class", "callout"}}, steps)) +
         FactList(facts);
}

Html PhasePlot(const ReportTimes& times) {
  if (times.phases.empty() || times.wholeNs == 0) return {};
  RowPlot plot;
  plot.title = "Where the time of vorn-run's process went";
  plot.labelTitle = "part";
  plot.valueTitle = "time, share";
  // No moments: an execution here and there makes one of them.
  plot.axis = {.label = "sums, one behind the other",
               .quantity = Quantity::kNanoseconds,
               .from = 0.0,
               .to = static_cast<double>(times.wholeNs)};
  const auto whole = static_cast<double>(times.wholeNs);
  for (const ReportPhase& phase : times.phases) {
    const auto begin = static_cast<double>(phase.beginNs);
    const auto duration = static_cast<double>(phase.durationNs);
    plot.rows.push_back({Text(phase.text),
                         {{.from = begin,
                           .to = begin + duration,
                           .ink = phase.id == "execute" ? Ink::kSecond : Ink::kFirst}},
                         TimeText(duration) + ", " + PercentText(duration / whole)});
  }
  plot.rows.push_back({Text("the whole process"),
                       {{.from = 0, .to = whole, .ink = Ink::kQuiet}},
                       TimeText(whole),
                       true});
  return Draw(plot);
}

// A run that was gone on with may have rested for days.
const char* LaunchEnds(const RunFacts& facts) {
  const auto& words = facts.command;
  const bool wasGoneOnWith = std::find(words.begin(), words.end(), "--resume") != words.end();
  return wasGoneOnWith ? " from its first start to its last end, whatever lay between"
                       : " from its start to its end";
}

// Each length by its name, from the longest on: what is longer holds what is shorter.
Html Lengths(const ReportRun& run) {
  const RunFacts& facts = run.facts;
  std::vector<Fact> lengths;
  if (facts.endRealtimeNs && *facts.endRealtimeNs > facts.startRealtimeNs) {
    lengths.push_back({"vorn launch", Text(TimeText(static_cast<double>(*facts.endRealtimeNs -
                                                                        facts.startRealtimeNs)) +
                                           LaunchEnds(facts))});
  }
  if (run.times.wholeNs > 0) {
    lengths.push_back(
        {"vorn-run's process", Text(TimeText(static_cast<double>(run.times.wholeNs)) +
                                    " from its start to its end; of several processes the sum")});
  }
  double sum = 0;
  for (const ReportSeries& series : run.times.series) sum += series.sumNs;
  if (sum > 0) {
    lengths.push_back({"all executions", Text(TimeText(sum) + " in sum, warm-ups among them")});
  }
  return FactList(lengths);
}

// ---- Over the run -------------------------------------------------------------------------------

ChartAxis RunAxis(double endNs) {
  return {.label = "since the start of the run",
          .quantity = Quantity::kNanoseconds,
          .from = 0.0,
          .to = std::max(endNs, 1.0)};
}

double EndOf(const ReportRun& run) {
  double end = 0;
  if (run.machine && !run.machine->atNs.empty()) {
    end = static_cast<double>(run.machine->atNs.back());
  }
  for (const ReportSeries& series : run.times.series) {
    for (const uint64_t start : series.startNs) end = std::max(end, static_cast<double>(start));
  }
  if (run.trace && run.trace->beganNs) {
    end = std::max(
        end, static_cast<double>(*run.trace->beganNs) + static_cast<double>(run.trace->wholeNs));
  }
  return end;
}

// What a reader has to know before anything is held against it.
Html WhatZeroIs(const ReportRun& run) {
  const bool isFleet = run.fleet || run.facts.fleet;
  std::string text = std::string("Time counts from the start of the run, when vorn ") +
                     (isFleet ? "fleet" : "launch") + " began it";
  if (run.facts.startRealtimeNs > 0) text += " (" + DayAndTime(run.facts.startRealtimeNs) + ")";
  if (run.trace && run.trace->beganNs) {
    text += "; vorn-run's process began " + TimeText(static_cast<double>(*run.trace->beganNs)) +
            " later, and its calls are on the same line of time";
  }
  return Note(Text(text + "."));
}

// The axis of what a trace tells: that of the run, if both clocks tell the same.
struct TraceAxis {
  std::string label;
  uint64_t shiftNs = 0;  ///< of the trace's own moments
  uint64_t fromNs = 0;
  uint64_t toNs = 1;
};

TraceAxis AxisOfTrace(const ReportRun& run) {
  const ReportTrace& trace = *run.trace;
  if (!trace.beganNs) {
    return {"since vorn-run's process began to be traced", 0, 0,
            std::max<uint64_t>(trace.wholeNs, 1)};
  }
  // Where the process began late its calls have the room.
  const uint64_t began = *trace.beganNs;
  return {"since the start of the run", began, began > trace.wholeNs ? began : 0,
          std::max<uint64_t>(began + trace.wholeNs, 1)};
}

Html TimesOverRun(const RunOnPage& on, double endNs) {
  Chart chart;
  chart.id = on.Id("over-times");
  chart.title = "Executions over the run";
  chart.description = "When each execution began, and how long it took.";
  chart.x = RunAxis(endNs);
  chart.y = TimeAxis(on.run.times.series);
  chart.height = 150;
  for (size_t s = 0; s < on.run.times.series.size(); ++s) {
    const ReportSeries& series = on.run.times.series[s];
    ChartSeries dots{.name = on.run.times.series.size() > 1 ? SeriesName(series) : "",
                     .x = {},
                     .y = {},
                     .style = ChartSeries::Style::kDots,
                     .ink = InkOf(s)};
    // Executions of several boards or attempts need not stand in the order of time.
    std::vector<std::pair<double, double>> moments;
    for (size_t i = 0; i < series.startNs.size() && i < series.medianNs.size(); ++i) {
      if (series.startNs[i] == 0) continue;
      moments.emplace_back(static_cast<double>(series.startNs[i]), series.medianNs[i]);
    }
    std::sort(moments.begin(), moments.end());
    for (const auto& [x, y] : moments) {
      dots.x.push_back(x);
      dots.y.push_back(y);
    }
    if (dots.x.size() > 1) chart.series.push_back(std::move(dots));
  }
  return chart.series.empty() ? Html() : Draw(chart);
}

template <typename Value>
ChartSeries OverMoments(const ReportMachine& machine,
                        const std::vector<std::optional<Value>>& values, std::string name,
                        Ink ink) {
  ChartSeries series{
      .name = std::move(name), .x = {}, .y = {}, .style = ChartSeries::Style::kLine, .ink = ink};
  // What is not known in between breaks the line; before the first and behind the last there is
  // nothing to break.
  size_t known = 0;
  for (size_t i = 0; i < machine.atNs.size() && i < values.size(); ++i) {
    if (values[i]) known = series.x.size() + 1;
    if (!values[i] && known == 0) continue;
    series.x.push_back(static_cast<double>(machine.atNs[i]));
    series.y.push_back(values[i] ? static_cast<double>(*values[i]) : NAN);
  }
  series.x.resize(known);
  series.y.resize(known);
  return series;
}

// One reading is no line over time.
Html OneReading(const char* title, const std::vector<ChartSeries>& series, Quantity quantity) {
  std::string text;
  for (const ChartSeries& one : series) {
    text += (text.empty() ? "" : ", ") + (one.name.empty() ? "" : one.name + " ") +
            QuantityText(one.y[0], quantity);
  }
  return Paragraph(
      Element("strong", Text(title)) +
      Text(": " + text + ". It was read once, " + TimeText(series[0].x[0]) + " after the start."));
}

Html MomentsChart(const std::string& id, const char* title, const char* description, ChartAxis x,
                  ChartAxis y, std::vector<ChartSeries> series) {
  series.erase(std::remove_if(series.begin(), series.end(),
                              [](const ChartSeries& one) { return one.x.empty(); }),
               series.end());
  if (series.empty()) return {};
  const bool isOne = std::all_of(series.begin(), series.end(), [&](const ChartSeries& one) {
    return one.x.size() == 1 && one.x == series[0].x;
  });
  if (isOne) return OneReading(title, series, y.quantity);
  Chart chart;
  chart.id = id;
  chart.title = title;
  chart.description = description;
  chart.x = std::move(x);
  chart.y = std::move(y);
  chart.series = std::move(series);
  chart.height = 130;
  return Draw(chart);
}

// Four lines can be told apart; of more zones the range of the rest is told in words.
Html Temperatures(const RunOnPage& on, const ReportMachine& machine, double endNs) {
  constexpr std::array<Ink, 4> kInks{Ink::kFirst, Ink::kSecond, Ink::kThird, Ink::kFourth};
  std::vector<ChartSeries> series;
  for (size_t z = 0; z < machine.zones.size() && z < kInks.size(); ++z) {
    series.push_back(OverMoments(machine, machine.zones[z].milliC,
                                 NameExcerpt(machine.zones[z].name, 40), kInks[z]));
  }
  Html html = MomentsChart(
      on.Id("over-temperature"), "Temperature", "Temperature of the hottest zones.", RunAxis(endNs),
      {.label = "temperature", .quantity = Quantity::kMilliCelsius}, std::move(series));
  if (machine.zones.size() > kInks.size()) {
    std::vector<std::string> rest;
    for (size_t z = kInks.size(); z < machine.zones.size(); ++z) {
      int64_t most = INT64_MIN;
      for (const auto& value : machine.zones[z].milliC) {
        if (value) most = std::max(most, *value);
      }
      if (most == INT64_MIN) continue;
      rest.push_back(NameExcerpt(machine.zones[z].name, 40) + ": up to " +
                     QuantityText(static_cast<double>(most), Quantity::kMilliCelsius));
    }
    html += Details(Text("Further zones"), Sentences(rest));
  }
  return html;
}

Html DeviceMemoryChart(const RunOnPage& on, const ReportTrace& trace) {
  if (trace.memory.size() < 2) return {};
  const TraceAxis axis = AxisOfTrace(on.run);
  ChartSeries series{
      .name = "", .x = {}, .y = {}, .style = ChartSeries::Style::kSteps, .ink = Ink::kThird};
  for (const MemoryMoment& moment : trace.memory) {
    series.x.push_back(static_cast<double>(axis.shiftNs + moment.monotonicNs));
    series.y.push_back(static_cast<double>(moment.bytes));
  }
  Chart chart;
  chart.id = on.Id("calls-memory");
  chart.title = "Device memory";
  chart.description =
      "Blocks of device memory that were held, at most " + SizeText(trace.peakBytes) + ".";
  chart.x = {.label = axis.label,
             .quantity = Quantity::kNanoseconds,
             .from = static_cast<double>(axis.fromNs),
             .to = static_cast<double>(axis.toNs)};
  chart.y = {.label = "held", .quantity = Quantity::kBytes, .from = 0.0};
  chart.height = 150;
  chart.series = {std::move(series)};
  return Draw(chart) +
         (trace.leftBytes > 0
              ? Paragraph(Text(SizeText(trace.leftBytes) + " were not freed at the end."))
              : Html());
}

// ---- Calls --------------------------------------------------------------------------------------

Html OperationPlot(const ReportTrace& trace) {
  constexpr size_t kMost = 12;
  RowPlot plot;
  plot.title = "Time inside the runtime, by operation";
  plot.labelTitle = "operation";
  plot.valueTitle = "total";
  plot.axis = {.label = "total", .quantity = Quantity::kNanoseconds, .from = 0.0};
  for (const OperationTimes& operation : trace.operations) {
    if (plot.rows.size() == kMost) break;
    const auto total = static_cast<double>(operation.totalNs);
    plot.rows.push_back({Name(operation.name), {{.from = 0, .to = total}}, TimeText(total)});
  }
  return plot.rows.empty() ? Html() : Draw(plot);
}

Html OperationTable(const ReportTrace& trace) {
  Table table;
  table.caption = "Calls by operation";
  table.isFilterable = trace.operations.size() > 10;
  table.columns = {{"operation"},    {"calls", true}, {"failed", true}, {"total", true},
                   {"median", true}, {"99th", true},  {"most", true}};
  for (const OperationTimes& operation : trace.operations) {
    table.rows.push_back(
        {{NameCell(operation.name), CountCell(operation.count), CountCell(operation.failed),
          TimeCell(static_cast<double>(operation.totalNs)),
          TimeCell(static_cast<double>(operation.medianNs)),
          operation.p99Ns ? TimeCell(static_cast<double>(*operation.p99Ns)) : Cell{},
          TimeCell(static_cast<double>(operation.mostNs))},
         operation.failed > 0});
  }
  return Details(Text("Calls by operation: counts, medians, longest"), Draw(table),
                 trace.operations.size() <= 12);
}

// Of each operation its place among them, what fills most of the timeline first: the key has room
// for some, and so have the colours that are told apart.
std::vector<uint32_t> PlacesByTime(const ReportTrace& trace) {
  std::vector<uint64_t> sums(trace.names.size());
  for (const ReportSpan& span : trace.spans) sums[span.operation] += span.durationNs;
  std::vector<uint32_t> order(sums.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](uint32_t one, uint32_t other) { return sums[one] > sums[other]; });
  std::vector<uint32_t> places(order.size());
  for (size_t i = 0; i < order.size(); ++i) places[order[i]] = static_cast<uint32_t>(i);
  return places;
}

Html TimelineOf(const RunOnPage& on, const ReportTrace& trace) {
  if (trace.spans.empty()) return {};
  Timeline timeline;
  timeline.id = on.Id("timeline");
  timeline.title = "Calls over time";
  timeline.withoutScripts =
      "With scripts a timeline of all calls stands here, to be zoomed. What took "
      "how long stands in the table of operations.";
  const std::vector<uint32_t> places = PlacesByTime(trace);
  timeline.names.resize(trace.names.size());
  for (size_t i = 0; i < places.size(); ++i) timeline.names[places[i]] = trace.names[i];
  const TraceAxis axis = AxisOfTrace(on.run);
  timeline.axis = axis.label;
  timeline.fromNs = axis.fromNs;
  timeline.toNs = axis.toNs;
  uint32_t lanes = 0;
  for (const ReportSpan& span : trace.spans) {
    lanes = std::max(lanes, span.lane + 1);
    timeline.spans.push_back({axis.shiftNs + span.beginNs, span.durationNs, places[span.operation],
                              span.lane, span.calls, span.isFailed || span.isOpen});
  }
  constexpr uint32_t kMostLanes = 16;
  for (TimelineSpan& span : timeline.spans) span.lane = std::min(span.lane, kMostLanes - 1);
  for (uint32_t lane = 0; lane < std::min(lanes, kMostLanes); ++lane) {
    timeline.lanes.push_back(lane == 0 ? "first thread" : "thread " + std::to_string(lane + 1));
  }
  if (lanes > kMostLanes) timeline.lanes.back() = "all further threads";
  return Draw(timeline);
}

}  // namespace

Html TimesPart(const RunOnPage& on) {
  const ReportTimes& times = on.run.times;
  Html html = Lengths(on.run);
  if (times.series.empty()) return html + PhasePlot(times);
  for (const ReportSeries& series : times.series) {
    if (times.series.size() > 1) html += Heading(3, SeriesName(series));
    html += SeriesFacts(series);
  }
  html += OrderChart(on, times);
  html += SpreadChart(on, times);
  return html + PhasePlot(times);
}

Html MachineOverTimePart(const RunOnPage& on) {
  const double endNs = EndOf(on.run);
  if (!(endNs > 0)) return {};
  const bool hasMoments = on.run.machine && !on.run.machine->atNs.empty();
  if (!hasMoments) return {};
  const ReportMachine& machine = *on.run.machine;
  Html html = WhatZeroIs(on.run) + TimesOverRun(on, endNs);
  html +=
      MomentsChart(on.Id("over-frequency"), "Frequency", "Of the slowest and of the fastest core.",
                   RunAxis(endNs), {.label = "frequency", .quantity = Quantity::kKilohertz},
                   {OverMoments(machine, machine.leastFrequencyKhz, "slowest core", Ink::kFirst),
                    OverMoments(machine, machine.mostFrequencyKhz, "fastest core", Ink::kSecond)});
  html += Temperatures(on, machine, endNs);
  html +=
      MomentsChart(on.Id("over-memory"), "Memory of the program", "Its resident memory.",
                   RunAxis(endNs), {.label = "resident", .quantity = Quantity::kBytes, .from = 0.0},
                   {OverMoments(machine, machine.rssBytes, "", Ink::kThird)});
  html += MomentsChart(on.Id("over-available"), "Memory that the machine has left",
                       "What the system calls available.", RunAxis(endNs),
                       {.label = "available", .quantity = Quantity::kBytes, .from = 0.0},
                       {OverMoments(machine, machine.memoryAvailableBytes, "", Ink::kQuiet)});
  return html;
}

Html CallsPart(const RunOnPage& on) {
  if (!on.run.trace) return {};
  const ReportTrace& trace = *on.run.trace;
  Html html = Paragraph(Text(
      CountedText(trace.calls, "call") + " in the " + TimeText(static_cast<double>(trace.wholeNs)) +
      " of vorn-run's process" +
      (trace.beganNs ? ", which began " + TimeText(static_cast<double>(*trace.beganNs)) +
                           " after the start of the run" +
                           (on.run.facts.startRealtimeNs > 0
                                ? " (" + DayAndTime(on.run.facts.startRealtimeNs) + ")"
                                : std::string())
                     : std::string()) +
      (trace.isEnded ? "" : "; the process was not taken down in order") +
      (trace.dropped > 0 ? "; " + CountedText(trace.dropped, "call") + " could not be kept" : "") +
      ". A reading of the clock takes " + TimeText(static_cast<double>(trace.clockNs)) + "."));
  return html + OperationPlot(trace) + OperationTable(trace) + TimelineOf(on, trace) +
         DeviceMemoryChart(on, trace);
}

}  // namespace vorn::kit
