#include "kit/history/history_text.h"

#include <array>
#include <cstdio>

#include "kit/common/printable.h"
#include "kit/history/moment.h"
#include "kit/json/json.h"

namespace vorn::kit {
namespace {

constexpr int kSchema = 1;

std::string OutcomeText(const RunEntry& run) {
  if (run.state != "done") return run.signal.empty() ? run.state : run.state + ", " + run.signal;
  return run.verdict.empty() ? "done" : run.verdict;
}

std::string DoneText(const RunEntry& run) {
  return std::to_string(run.done) + "/" + std::to_string(run.inferences);
}

std::string MedianText(const RunEntry& run) {
  return run.medianNs ? DurationText(*run.medianNs) : "-";
}

const char* OutcomeWord(RunOutcome outcome) {
  switch (outcome) {
    case RunOutcome::kRight:
      return "right";
    case RunOutcome::kWrong:
      return "wrong";
    case RunOutcome::kNotJudged:
      return "done";
    case RunOutcome::kFailed:
      return "failed";
    case RunOutcome::kUnfinished:
      return "unfinished";
  }
  return "";
}

// Every row is as wide as the longest name, and a name may be of any length.
std::string Shortened(const std::string& name) {
  constexpr size_t kMostBytes = 120;
  if (name.size() <= kMostBytes) return name;
  size_t end = kMostBytes;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  return name.substr(0, end) + "...";
}

// ---- A run --------------------------------------------------------------------------------------

void AddFile(TextTable& table, const char* what, const std::string& name, const std::string& hash) {
  if (name.empty() && hash.empty()) return;
  table.Add({what, name + (hash.empty() ? "" : " (" + hash + ")")});
}

void AddText(TextTable& table, const char* what, const std::string& text) {
  if (!text.empty()) table.Add({what, text});
}

std::string CountsText(const RunEntry& run) {
  std::string text = std::to_string(run.done) + " of " + std::to_string(run.inferences) + " done";
  const auto add = [&](uint64_t count, const char* what) {
    if (count > 0) text += ", " + std::to_string(count) + " " + what;
  };
  add(run.failed, "failed");
  add(run.aside, "put aside");
  add(run.missing, "not run");
  return text;
}

std::string TimesText(const RunEntry& run) {
  if (!run.medianNs) return run.executions == 0 ? "none" : "first ones only";
  std::string text =
      std::to_string(run.executions) + " executions, median " + DurationText(*run.medianNs);
  if (run.madNs) text += ", MAD " + DurationText(*run.madNs);
  if (run.firstNs) text += ", first " + DurationText(*run.firstNs);
  return text;
}

void AddMachine(TextTable& table, const RunEntry& run) {
  AddText(table, "board", run.board);
  AddText(table, "kernel", run.kernel);
  AddText(table, "processor", run.processor);
  if (run.cores) AddText(table, "cores", std::to_string(*run.cores));
  AddText(table, "governor", run.governor);
  AddText(table, "container", run.container);
}

std::string FigureText(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.6g", value);
  return text.data();
}

// ---- Changes ------------------------------------------------------------------------------------

Json RunJson(const RunEntry& run) {
  return Json::Object(
      {{"id", run.id}, {"path", run.path}, {"startRealtimeNs", run.startRealtimeNs}});
}

std::string RunPlace(const RunEntry& run) {
  return "run " + std::to_string(run.id) + " of " + MomentText(run.startRealtimeNs) + ", " +
         Printable(run.path);
}

std::string ToldText(const ToldChange& told) {
  const HistoryChange& change = told.change;
  std::string text =
      "  " + MomentText(told.after.startRealtimeNs) + "  " + Printable(TextOf(change)) + "\n";
  if (change.isByHand) {
    text += "      a new level, set by hand" +
            (told.after.level ? ": " + Printable(told.after.level->reason) : "") + "\n";
  }
  if (change.figure != nullptr && !change.isByHand) {
    const auto& levels = change.figure->levels;
    text += "      " + Counted(levels[change.level - 1].count, "run") + " before, " +
            std::to_string(levels[change.level].count) + " since; told with run " +
            std::to_string(told.toldAt) + "\n";
  }
  text += "      from " + RunPlace(told.before) + "\n      to   " + RunPlace(told.after) + "\n";
  if (told.differences.empty()) {
    text += "      nothing that a run notes differs between them\n";
  }
  for (const RunDifference& difference : told.differences) {
    text += "      " + Printable(TextOf(difference)) + "\n";
  }
  return text;
}

}  // namespace

// ---- Runs ---------------------------------------------------------------------------------------

RunTable::RunTable()
    : table_({{"id", true},
              {"started"},
              {"board"},
              {"model"},
              {"configuration"},
              {"options"},
              {"outcome"},
              {"done", true},
              {"median", true},
              {"run"}}) {}

void RunTable::Add(const RunEntry& run) {
  table_.Add({std::to_string(run.id), MomentText(run.startRealtimeNs),
              Shortened(run.board) + (run.side.empty() ? "" : " " + run.side), Shortened(run.model),
              Shortened(run.configuration), Shortened(run.options),
              OutcomeText(run) + (run.level ? " (new level)" : ""), DoneText(run), MedianText(run),
              run.path});
}

std::string RunText(const RunEntry& run) {
  TextTable table({{"run"}, {std::to_string(run.id)}});
  table.Add({"path", run.path});
  table.Add({"started", MomentText(run.startRealtimeNs)});
  if (run.endRealtimeNs) table.Add({"ended", MomentText(*run.endRealtimeNs)});
  table.Add({"outcome", OutcomeText(run)});
  if (run.status) table.Add({"status", std::to_string(*run.status)});
  table.Add({"inferences", CountsText(run)});
  table.Add({"times", TimesText(run)});
  AddText(table, "side", run.side);
  AddFile(table, "model", run.model, run.modelXxh3);
  AddFile(table, "configuration", run.configuration, run.configurationXxh3);
  AddFile(table, "list", run.list, run.listXxh3);
  AddText(table, "options", run.options);
  AddFile(table, "runtime", run.runtime, run.runtimeXxh3);
  AddFile(table, "program", run.program, run.programXxh3);
  AddText(table, "version", run.tool);
  AddText(table, "fleet", run.fleet);
  AddMachine(table, run);
  for (const RunMetric& metric : run.metrics) {
    table.Add({metric.output + ", " + metric.metric,
               FigureText(metric.value) +
                   (metric.expected ? ", expected side " + FigureText(*metric.expected) : "")});
  }
  if (run.level) table.Add({"new level", run.level->reason});
  table.Add({"added", MomentText(run.addedRealtimeNs)});
  return table.Text();
}

// ---- Series -------------------------------------------------------------------------------------

std::string SeriesText(std::span<const SeriesHistory> all) {
  TextTable table({{"series"},
                   {"runs", true},
                   {"last"},
                   {"outcome"},
                   {"median", true},
                   {"steps", true},
                   {"of"}});
  for (const SeriesHistory& series : all) {
    const bool hasTimes = !series.figures.empty() && series.figures[0].kind == FigureKind::kTime;
    const RunPoint& last = series.runs.back();
    table.Add({series.name, std::to_string(series.runs.size()), MomentText(last.startRealtimeNs),
               OutcomeWord(last.outcome),
               hasTimes ? DurationText(series.figures[0].levels.back().median) : "-",
               std::to_string(ChangesOf(series).size()), series.text});
  }
  return table.Text();
}

std::string SeriesLine(const SeriesHistory& series, std::span<const KeyPart> parts) {
  Json key = Json::Object();
  for (size_t i = 0; i < parts.size(); ++i) {
    if (!series.key[i].empty()) key.Set(parts[i].name, series.key[i]);
  }
  Json figures = Json::Array();
  for (const FigureHistory& figure : series.figures) {
    Json levels = Json::Array();
    for (const FigureLevel& level : figure.levels) {
      levels.Append(Json::Object({{"firstRun", series.runs[figure.runs[level.first]].id},
                                  {"runs", level.count},
                                  {"median", level.median},
                                  {"isByHand", level.isByHand}}));
    }
    Json one = Json::Object({{"metric", figure.metric}});
    if (!figure.output.empty()) one.Set("output", figure.output);
    one.Set("values", figure.values.size());
    one.Set("levels", std::move(levels));
    if (figure.suspicion) {
      one.Set("suspicion", Json::Object({{"runs", figure.suspicion->count},
                                         {"before", figure.suspicion->before},
                                         {"after", figure.suspicion->after}}));
    }
    figures.Append(std::move(one));
  }
  const Json line = Json::Object({{"schema", kSchema},
                                  {"series", series.name},
                                  {"key", std::move(key)},
                                  {"runs", series.runs.size()},
                                  {"firstRun", series.runs.front().id},
                                  {"lastRun", series.runs.back().id},
                                  {"lastRealtimeNs", series.runs.back().startRealtimeNs},
                                  {"outcome", OutcomeWord(series.runs.back().outcome)},
                                  {"figures", std::move(figures)}});
  return ToText(line) + "\n";
}

// ---- Changes ------------------------------------------------------------------------------------

std::vector<ToldChange> TellChanges(const SeriesHistory& series, uint64_t sinceNs,
                                    const FindRun& find, size_t most) {
  std::vector<ToldChange> told;
  std::vector<HistoryChange> changes = ChangesOf(series);
  std::erase_if(changes, [&](const HistoryChange& change) {
    return series.runs[change.after].startRealtimeNs < sinceNs;
  });
  for (size_t i = 0; i < changes.size(); ++i) {
    const HistoryChange& change = changes[i];
    if (changes.size() - i > most && !change.isLast) continue;
    ToldChange one{.change = change,
                   .before = find(series.runs[change.before].id),
                   .after = find(series.runs[change.after].id),
                   .toldAt = series.runs[change.toldAt].id,
                   .differences = {}};
    one.differences = DifferencesOf(one.before, one.after);
    told.push_back(std::move(one));
  }
  return told;
}

std::string SuspicionText(const FigureHistory& figure) {
  const Suspicion& suspicion = *figure.suspicion;
  const bool isUp = suspicion.after > suspicion.before;
  std::string text = figure.output.empty() ? "" : figure.output + ", ";
  text += figure.metric + ": the last " + std::to_string(suspicion.count) + " runs all lie " +
          (isUp ? "above" : "below") + " all others of their level, ";
  if (figure.kind == FigureKind::kTime) {
    text += DurationText(suspicion.before) + " -> " + DurationText(suspicion.after);
  } else {
    text += FigureText(suspicion.before) + " -> " + FigureText(suspicion.after);
  }
  return text + "; too few to be told from chance";
}

std::string ChangesText(const SeriesHistory& series, std::span<const ToldChange> changes) {
  std::string text;
  for (const ToldChange& change : changes) text += ToldText(change);
  for (const FigureHistory& figure : series.figures) {
    if (figure.suspicion) text += "  perhaps           " + Printable(SuspicionText(figure)) + "\n";
  }
  if (text.empty()) return "";
  return Printable(series.text) + " (series " + series.name + ", " +
         Counted(series.runs.size(), "run") + ")\n" + text + "\n";
}

std::string ChangeLine(const SeriesHistory& series, const ToldChange& told) {
  const HistoryChange& change = told.change;
  Json line = Json::Object({{"schema", kSchema}, {"series", series.name}});
  if (change.figure != nullptr) {
    const FigureHistory& figure = *change.figure;
    const FigureLevel& before = figure.levels[change.level - 1];
    const FigureLevel& after = figure.levels[change.level];
    line.Set("kind", figure.kind == FigureKind::kTime ? "time" : "metric");
    line.Set("metric", figure.metric);
    if (!figure.output.empty()) line.Set("output", figure.output);
    line.Set("before", before.median);
    line.Set("after", after.median);
    line.Set("runsBefore", before.count);
    line.Set("runsSince", after.count);
  } else {
    line.Set("kind", "outcome");
    line.Set("from", change.turn->from);
    line.Set("to", change.turn->to);
  }
  line.Set("isWorse", change.isWorse);
  line.Set("isByHand", change.isByHand);
  line.Set("isLast", change.isLast);
  if (change.isByHand && told.after.level) line.Set("reason", told.after.level->reason);
  line.Set("lastRun", RunJson(told.before));
  line.Set("firstRun", RunJson(told.after));
  line.Set("toldAtRun", told.toldAt);
  Json differences = Json::Array();
  for (const RunDifference& difference : told.differences) {
    differences.Append(Json::Object(
        {{"what", difference.what}, {"before", difference.before}, {"after", difference.after}}));
  }
  line.Set("differences", std::move(differences));
  return ToText(line) + "\n";
}

}  // namespace vorn::kit
