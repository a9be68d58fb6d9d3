#include "kit/report/summary_tables.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kit/page/number_text.h"

namespace vorn::kit {
namespace {

std::string MeasureText(const ReportOutput& output, const char* name) {
  const double value = MeasureOf(output, name);
  return std::isnan(value) ? "-" : NumberText(value);
}

std::string TimeOr(std::optional<double> nanoseconds) {
  return nanoseconds ? TimeText(*nanoseconds) : "-";
}

int Rank(ReportVerdict verdict) {
  switch (verdict) {
    case ReportVerdict::kWrong:
      return 0;
    case ReportVerdict::kNotJudged:
      return 1;
    case ReportVerdict::kRight:
      break;
  }
  return 2;
}

std::string CauseText(const ReportDetail& detail) {
  if (!detail.causes.empty()) return detail.causes.front().text;
  if (!detail.reasons.empty()) return detail.reasons.front();
  return detail.obstacle;
}

void AddSeries(const std::string& run, const ReportSeries& series, SummaryTable& table) {
  const bool isAny = series.count > 0;
  table.rows.push_back({run + (series.name.empty() ? "" : " " + series.name),
                        CountText(series.count), isAny ? TimeText(series.medianOfAllNs) : "-",
                        isAny ? TimeText(series.lowNs) + " to " + TimeText(series.highNs) : "-",
                        TimeOr(series.p95Ns), isAny ? TimeText(series.mostOfAllNs) : "-",
                        series.warmUps > 0 ? TimeText(series.firstNs) : "-"});
}

}  // namespace

std::string VerdictHeading(const ReportAnswer& answer) {
  std::string text = answer.verdict;
  if (answer.tone != ReportTone::kBad) return text;
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

std::string VerdictText(ReportVerdict verdict) {
  switch (verdict) {
    case ReportVerdict::kRight:
      return "right";
    case ReportVerdict::kWrong:
      return "WRONG";
    case ReportVerdict::kNotJudged:
      break;
  }
  return "not judged";
}

double MeasureOf(const ReportOutput& output, const char* name) {
  for (const ReportMeasure& measure : output.census) {
    if (measure.name == name) return measure.value;
  }
  return std::numeric_limits<double>::quiet_NaN();
}

SummaryTable OutputTable(const ReportJudgement& judgement, size_t most) {
  SummaryTable table;
  table.columns = {{"output"},        {"verdict"},    {"samples", true}, {"wrong", true},
                   {"max abs", true}, {"RMSE", true}, {"cosine", true},  {"SNR dB", true}};
  std::vector<const ReportOutput*> outputs;
  for (const ReportOutput& output : judgement.outputs) outputs.push_back(&output);
  std::stable_sort(outputs.begin(), outputs.end(),
                   [](const ReportOutput* one, const ReportOutput* other) {
                     return Rank(one->verdict) < Rank(other->verdict);
                   });
  table.leftOut = judgement.outputsLeftOut + outputs.size() - std::min(most, outputs.size());
  outputs.resize(std::min(most, outputs.size()));
  for (const ReportOutput* output : outputs) {
    table.rows.push_back({output->name, VerdictText(output->verdict), CountText(output->samples),
                          CountText(output->wrongSamples), MeasureText(*output, "maxAbs"),
                          MeasureText(*output, "rmse"), MeasureText(*output, "cosine"),
                          MeasureText(*output, "snrDb")});
  }
  return table;
}

SummaryTable WorstTable(const ReportRun& run) {
  SummaryTable table;
  table.columns = {{"sample", true},  {"output"},     {"outside", true},
                   {"max abs", true}, {"RMSE", true}, {"what fits, or why"}};
  if (!run.judgement) return table;
  for (const ReportDetail& detail : run.details) {
    const bool isOpen = detail.obstacle.empty();
    table.rows.push_back(
        {std::to_string(detail.sample), run.judgement->outputs[detail.output].name,
         isOpen ? CountText(detail.outside) + " of " + CountText(detail.elements) : "-",
         isOpen ? NumberText(detail.maxAbs) : "-", isOpen ? NumberText(detail.rmse) : "-",
         CauseText(detail)});
  }
  return table;
}

SummaryTable TimesTable(const std::vector<ReportRun>& runs) {
  SummaryTable table;
  table.columns = {
      {"run"},        {"executions", true}, {"median", true}, {"its 95 % interval", true},
      {"95th", true}, {"most", true},       {"first", true}};
  for (const ReportRun& run : runs) {
    for (const ReportSeries& series : run.times.series) AddSeries(run.name, series, table);
  }
  return table;
}

SummaryTable BoardTable(const ReportFleet& fleet, size_t most) {
  SummaryTable table;
  table.columns = {{"board"},          {"samples", true}, {"a second", true}, {"failed", true},
                   {"in doubt", true}, {"hottest", true}, {"what is odd"}};
  table.leftOut = fleet.boardsLeftOut + fleet.boards.size() - std::min(most, fleet.boards.size());
  for (size_t i = 0; i < std::min(most, fleet.boards.size()); ++i) {
    const ReportBoard& board = fleet.boards[i];
    std::string odd;
    if (!board.disagreesAt.empty()) {
      odd = "other outputs at " + CountText(board.disagreesAt.size()) + " of the cross-check";
    }
    if (board.isAside) odd += (odd.empty() ? "" : "; ") + std::string("put aside: ") + board.reason;
    table.rows.push_back({board.name, CountText(board.samples),
                          board.samplesPerSecond ? NumberText(*board.samplesPerSecond) : "-",
                          CountText(board.failedAttempts), CountText(board.inDoubt),
                          board.highestTemperatureMilliC
                              ? QuantityText(static_cast<double>(*board.highestTemperatureMilliC),
                                             Quantity::kMilliCelsius)
                              : "-",
                          odd});
  }
  return table;
}

SummaryTable OutputChangeTable(const ReportComparison& comparison, size_t most) {
  SummaryTable table;
  table.columns = {
      {"output"}, {"same", true}, {"other", true}, {"first at", true}, {"on one side", true}};
  for (const ReportOutputChange& output : comparison.outputs) {
    const uint64_t single = output.onlyBase + output.onlyOther;
    if (output.different == 0 && single == 0) continue;
    if (table.rows.size() == most) {
      ++table.leftOut;
      continue;
    }
    table.rows.push_back({output.output, CountText(output.equal), CountText(output.different),
                          output.firstDifferent ? std::to_string(*output.firstDifferent) : "-",
                          CountText(single)});
  }
  return table;
}

SummaryTable ChangeTable(const ReportComparison& comparison) {
  SummaryTable table;
  table.columns = {{"not the same"}, {"before"}, {"now"}};
  for (const auto* changes : {&comparison.verdicts, &comparison.environment}) {
    for (const ReportChange& change : *changes) {
      table.rows.push_back({change.what, change.base, change.other});
    }
  }
  return table;
}

}  // namespace vorn::kit
