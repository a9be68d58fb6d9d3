#include "kit/report/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "kit/page/number_text.h"
#include "kit/report/summary_tables.h"

namespace vorn::kit {
namespace {

constexpr size_t kShownOutputs = 10;
constexpr size_t kShownBoards = 20;
constexpr size_t kMostWarnings = 10;
constexpr size_t kMostUndone = 5;
constexpr size_t kBarWidth = 24;

// ---- How it looks -------------------------------------------------------------------------------

std::string Coloured(const std::string& text, ReportTone tone, const TerminalLook& look) {
  if (!look.isColoured) return text;
  const char* colour = tone == ReportTone::kGood  ? "\x1b[1;32m"
                       : tone == ReportTone::kBad ? "\x1b[1;31m"
                                                  : "\x1b[1;33m";
  return colour + text + "\x1b[0m";
}

std::string LinesOf(const SummaryTable& table) {
  if (table.rows.empty()) return "";
  std::vector<TextTable::Column> columns;
  for (const auto& column : table.columns) columns.push_back({column.title, column.holdsNumbers});
  TextTable lines(std::move(columns));
  for (const auto& row : table.rows) lines.Add(row);
  std::string text = lines.Text();
  if (table.leftOut > 0) text += "and " + CountText(table.leftOut) + " more\n";
  return text;
}

// ---- Parts --------------------------------------------------------------------------------------

std::string HeadText(const ReportAnswer& answer, const TerminalLook& look) {
  std::string text = Coloured(Printable(VerdictHeading(answer)), answer.tone, look) + "  " +
                     Printable(answer.sentence) + "\n";
  for (const std::string& more : answer.more) text += "  " + Printable(more) + "\n";
  return text;
}

// Each value as a level between nothing and the most.
std::string Levels(const std::vector<uint64_t>& counts, bool isUnicode) {
  constexpr std::array<const char*, 9> kBlocks{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::string_view kPlain = " .:-=+*#@";
  const uint64_t most = *std::max_element(counts.begin(), counts.end());
  std::string text;
  for (const uint64_t count : counts) {
    const double share = most == 0 ? 0 : static_cast<double>(count) / static_cast<double>(most);
    const size_t level = count == 0 ? 0 : 1 + static_cast<size_t>(std::lround(share * 7));
    text += isUnicode ? std::string(kBlocks[level]) : std::string(1, kPlain[level]);
  }
  return text;
}

std::string SpreadText(const ReportRun& run, const TerminalLook& look) {
  std::string text;
  for (const ReportSeries& series : run.times.series) {
    if (series.histogram.size() < 2) continue;
    text += "  " + TimeText(series.histogramLowNs) + " |" +
            Levels(series.histogram, look.isUnicode) + "| " + TimeText(series.histogramHighNs) +
            (series.name.empty() ? "" : "  " + Printable(series.name)) + "\n";
  }
  return text;
}

std::string PhasesText(const ReportTimes& times, const TerminalLook& look) {
  if (times.wholeNs == 0) return "";
  TextTable table({{"phase"}, {"share", true}, {"time", true}, {""}, {""}});
  for (const ReportPhase& phase : times.phases) {
    if (phase.durationNs == 0) continue;
    const double share = static_cast<double>(phase.durationNs) / static_cast<double>(times.wholeNs);
    table.Add({phase.id, PercentText(share), TimeText(static_cast<double>(phase.durationNs)),
               BarText(share, kBarWidth, look.isUnicode), phase.text});
  }
  return "\n" + table.Text();
}

// The greatest difference fills the bar.
std::string WorstText(const ReportRun& run, const TerminalLook& look) {
  SummaryTable table = WorstTable(run);
  if (table.rows.empty()) return "";
  double most = 0;
  for (const ReportDetail& detail : run.details) {
    if (std::isfinite(detail.rmse)) most = std::max(most, detail.rmse);
  }
  table.columns.insert(table.columns.end() - 1, {"", false});
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const double rmse = run.details[i].rmse;
    const double share = most > 0 && std::isfinite(rmse) ? rmse / most : 0;
    table.rows[i].insert(table.rows[i].end() - 1, BarText(share, kBarWidth / 2, look.isUnicode));
  }
  return "\n" + Printable(run.detailsRule) + "\n" + LinesOf(table);
}

std::string UndoneText(const ReportRun& run) {
  std::string text;
  for (size_t i = 0; i < std::min(run.undone.size(), kMostUndone); ++i) {
    const ReportUndone& one = run.undone[i];
    text += "sample " + std::to_string(one.sample) + " " + one.status +
            (one.reason.empty() ? "" : ": " + Printable(one.reason)) + "\n";
  }
  return text.empty() ? "" : "\n" + text;
}

std::string MachineText(const ReportRun& run) {
  if (!run.machine) return "";
  uint64_t rss = 0;
  for (const auto& bytes : run.machine->rssBytes) rss = std::max(rss, bytes.value_or(0));
  std::optional<int64_t> hottest;
  for (const ReportMachine::Zone& zone : run.machine->zones) {
    for (const auto& milliC : zone.milliC) hottest = std::max(hottest, milliC);
  }
  std::string text;
  if (rss > 0) text += "memory at most " + SizeText(rss);
  if (run.trace) {
    text += (text.empty() ? "" : ", ") + std::string("device memory at most ") +
            SizeText(run.trace->peakBytes);
  }
  if (hottest) {
    text += (text.empty() ? "" : ", ") + std::string("at most ") +
            QuantityText(static_cast<double>(*hottest), Quantity::kMilliCelsius);
  }
  return text.empty() ? "" : "\n" + text + "\n";
}

std::string WarningsText(const ReportRun& run) {
  std::string text;
  size_t told = 0;
  for (const ReportRemark& remark : run.remarks) {
    if (remark.kind == ReportRemark::Kind::kMissing || ++told > kMostWarnings) continue;
    const bool isWarning = remark.kind == ReportRemark::Kind::kWarning;
    text += std::string(isWarning ? "warning: " : "note: ") + Printable(remark.text) +
            (remark.count > 1 ? " (" + CountText(remark.count) + " times)" : "") + "\n";
  }
  if (told > kMostWarnings) text += "and " + CountText(told - kMostWarnings) + " more\n";
  return text.empty() ? "" : "\n" + text;
}

std::string FindingsText(const ReportRun& run) {
  if (!run.areFindingsKnown) return "";
  std::string text = "\n" + Counted(run.findings.size() + run.findingsLeftOut, "finding") + "\n";
  for (size_t i = 0; i < std::min(run.findings.size(), kMostWarnings); ++i) {
    const ReportFinding& finding = run.findings[i];
    text += "  " + Printable(finding.severity) + (finding.severity.empty() ? "" : " ") +
            Printable(finding.id) + ": " + Printable(finding.message) + "\n";
  }
  return text;
}

std::string RunText(const ReportRun& run, const TerminalLook& look) {
  std::string text;
  const std::string outputs =
      run.judgement ? LinesOf(OutputTable(*run.judgement, kShownOutputs)) : "";
  if (!outputs.empty()) text += "\n" + outputs;
  text += WorstText(run, look) + UndoneText(run);
  const std::string boards = run.fleet ? LinesOf(BoardTable(*run.fleet, kShownBoards)) : "";
  if (!boards.empty()) text += "\n" + boards;
  return text;
}

std::string ComparisonText(const ReportComparison& comparison) {
  std::string text;
  for (const SummaryTable& table :
       {OutputChangeTable(comparison, kShownOutputs), ChangeTable(comparison)}) {
    if (!table.rows.empty()) text += "\n" + LinesOf(table);
  }
  for (const std::string& remark : comparison.remarks) text += "note: " + Printable(remark) + "\n";
  return text;
}

bool IsUtf8Locale() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') continue;
    return strcasestr(value, "UTF-8") != nullptr || strcasestr(value, "UTF8") != nullptr;
  }
  return false;
}

}  // namespace

TerminalLook LookOfTerminal() {
  const bool isTerminal = isatty(STDOUT_FILENO) != 0;
  const char* noColour = std::getenv("NO_COLOR");
  const bool isPlain = noColour != nullptr && *noColour != '\0';
  return {isTerminal && IsUtf8Locale(), isTerminal && !isPlain};
}

std::string BarText(double share, size_t width, bool isUnicode) {
  constexpr std::array<const char*, 8> kParts{"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
  if (!(share > 0)) return "";
  const double places = std::min(share, 1.0) * static_cast<double>(width);
  std::string bar;
  if (!isUnicode) {
    return std::string(static_cast<size_t>(std::max(std::lround(places), 1L)), '#');
  }
  const auto eighths = static_cast<size_t>(std::max(std::lround(8 * places), 1L));
  for (size_t i = 0; i < eighths / 8; ++i) bar += "█";
  return bar + kParts[eighths % 8];
}

std::string TerminalText(const ReportFacts& facts, const TerminalLook& look) {
  std::string text = HeadText(facts.answer, look);
  for (const ReportComparison& comparison : facts.comparisons) text += ComparisonText(comparison);
  const bool areSeveral = facts.runs.size() > 1;
  for (const ReportRun& run : facts.runs) {
    std::string own = RunText(run, look);
    if (areSeveral) own += FindingsText(run) + WarningsText(run);
    if (areSeveral && !own.empty()) text += "\n== " + Printable(run.name) + "\n";
    text += own;
  }
  if (const std::string times = LinesOf(TimesTable(facts.runs)); !times.empty()) {
    text += "\n" + times;
  }
  for (const ReportRun& run : facts.runs) text += SpreadText(run, look);
  if (!areSeveral) {
    const ReportRun& run = facts.runs.front();
    text += PhasesText(run.times, look) + MachineText(run) + FindingsText(run) + WarningsText(run);
  }
  return text;
}

}  // namespace vorn::kit
