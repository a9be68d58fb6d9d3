// About a run: what is odd about it, its boards, the machine, what to type to have it again.
#include <algorithm>
#include <array>
#include <cmath>

#include "kit/common/printable.h"
#include "kit/page/chart.h"
#include "kit/page/table.h"
#include "kit/report/page_parts.h"

namespace vorn::kit {
namespace {

// As a sentence of its own. What is named keeps its spelling.
std::string Sentence(std::string text) {
  const bool isName = text.starts_with("vorn");
  if (!text.empty() && !isName && text[0] >= 'a' && text[0] <= 'z') {
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
  }
  const bool isEnded = text.ends_with('.') || text.ends_with('?') || text.ends_with('!');
  return text + (text.empty() || isEnded ? "" : ".");
}

// What a program looks for stands behind what a person reads, and small.
Html Tag(const std::string& id) {
  return id.empty() ? Html() : Raw(" ") + Element("code", {{"class", "tag"}}, Text(id));
}

Html RemarkItems(const RunOnPage& on, ReportRemark::Kind kind) {
  Html items;
  for (const ReportRemark& remark : on.run.remarks) {
    if (remark.kind != kind) continue;
    const std::string times =
        remark.count > 1 ? " (" + CountText(remark.count) + " times)" : std::string();
    Html text = Text(Sentence(remark.text + times));
    if (remark.id == kRepeatedWarning && on.run.judgement) {
      text += Raw(" ") + LinkTo(on.Id("outputs"), Text("The verdict"));
    }
    items += Element("li", text + Tag(remark.id));
  }
  return items.IsEmpty() ? items : Element("ul", {{"class", "plain"}}, items);
}

Tone SeverityTone(const std::string& severity) {
  return severity == "error" ? Tone::kBad : Tone::kOpen;
}

Html FindingTable(const ReportRun& run) {
  if (run.findings.empty()) {
    return run.areFindingsKnown ? Paragraph(Text("The layers that watched have found nothing."))
                                : Html();
  }
  Table table;
  table.caption = "Findings of layers";
  table.isFilterable = true;
  table.columns = {{"severity"}, {"finding"}, {"times", true}, {"operation"}};
  for (const ReportFinding& finding : run.findings) {
    table.rows.push_back(
        {{{finding.severity.empty() ? Html()
                                    : Pill(SeverityTone(finding.severity), finding.severity),
           {}},
          {finding.message.empty() ? TextCell(finding.id).content
                                   : TextCell(finding.message).content + Tag(finding.id),
           {}},
          CountCell(finding.count),
          NameCell(finding.operation)},
         finding.severity == "error"});
  }
  Html html = Draw(table);
  if (run.findingsLeftOut > 0) {
    html += Note(Text(CountText(run.findingsLeftOut) + " more are in findings.jsonl."));
  }
  return html;
}

std::string FileText(const FileIdentity& file) {
  std::string text;
  if (file.sizeBytes) text += ", " + SizeText(*file.sizeBytes);
  if (file.xxh3) text += ", XXH3-128 " + *file.xxh3;
  return text;
}

Html FileFact(const std::optional<FileIdentity>& file) {
  if (!file || file->path.empty()) return {};
  return Name(file->path) + Text(FileText(*file));
}

Html OptionalText(const std::string& text) { return text.empty() ? Html() : Text(text); }

const char* StateText(RunState state) {
  switch (state) {
    case RunState::kRunning:
      return "running";
    case RunState::kDone:
      return "done";
    case RunState::kFailed:
      return "failed";
    case RunState::kInterrupted:
      return "interrupted";
  }
  return "";
}

std::string EndText(const RunFacts& facts) {
  std::string text = StateText(facts.state);
  if (facts.status) text += ", status " + std::to_string(*facts.status);
  if (facts.programStatus) text += "; vorn-run ended with " + std::to_string(*facts.programStatus);
  if (facts.signal) text += "; ended by " + *facts.signal;
  if (facts.endRealtimeNs && *facts.endRealtimeNs > facts.startRealtimeNs) {
    text += "; vorn launch ended " +
            TimeText(static_cast<double>(*facts.endRealtimeNs - facts.startRealtimeNs)) +
            " after it was first started";
  }
  return text;
}

// A table of more rows is read by nobody, and makes the page large.
constexpr size_t kMostRows = 200;

Html MoreRows(const Table& table, uint64_t all) {
  if (all <= table.rows.size()) return {};
  return Note(Text("and " + CountText(all - table.rows.size()) + " more"));
}

Html MappedTable(const ReportRun& run) {
  const RunFacts& facts = run.facts;
  if (facts.mapped.empty()) return {};
  Table table;
  table.caption = "Files that the program had mapped";
  table.columns = {{"file"}, {"build id"}};
  for (const MappedFile& mapped : facts.mapped) {
    if (table.rows.size() == kMostRows) break;
    table.rows.push_back({{NameCell(mapped.path), TextCell(mapped.buildId.value_or(""))}});
  }
  table.isFilterable = table.rows.size() > 10;
  const uint64_t all = facts.mapped.size() + run.librariesLeftOut;
  return Details(Text("Libraries that were mapped (" + CountText(all) + ")"),
                 Draw(table) + MoreRows(table, all));
}

Html TensorTable(const ReportRun& run) {
  if (run.tensors.empty()) return {};
  Table table;
  table.caption = "What the model takes and gives";
  table.showsCaption = true;
  table.isFilterable = run.tensors.size() > 20;
  table.columns = {{"role"}, {"name"}, {"type"}, {"shape"}, {"format"}};
  for (const ReportTensor& tensor : run.tensors) {
    if (table.rows.size() == kMostRows) break;
    table.rows.push_back({{TextCell(tensor.role), NameCell(tensor.name), TextCell(tensor.type),
                           TextCell(tensor.shape), TextCell(tensor.format)}});
  }
  return Draw(table) + MoreRows(table, run.tensors.size());
}

// ---- Boards -------------------------------------------------------------------------------------

Html BoardTable(const ReportFleet& fleet) {
  Table table;
  table.caption = "Boards";
  table.isFilterable = fleet.boards.size() > 10;
  table.columns = {{"board"},
                   {"state"},
                   {"host"},
                   {"samples", true},
                   {"a second", true},
                   {"median sample", true},
                   {"chunks", true},
                   {"failed attempts", true},
                   {"in doubt", true},
                   {"hottest", true},
                   {"slowest clock", true}};
  for (const ReportBoard& board : fleet.boards) {
    if (table.rows.size() == kMostRows) break;
    Html state;
    if (board.isAside) state += Pill(Tone::kBad, "aside");
    if (!board.disagreesAt.empty()) state += Pill(Tone::kBad, "disagrees");
    if (state.IsEmpty())
      state = board.isChecked ? Pill(Tone::kGood, "checked") : Text("not checked");
    if (!board.reason.empty()) state += Text(" " + board.reason);
    table.rows.push_back(
        {{NameCell(board.name),
          {state, {}},
          NameCell(board.host),
          CountCell(board.samples),
          board.samplesPerSecond ? NumberCell(*board.samplesPerSecond) : Cell{},
          board.medianSampleNs ? TimeCell(static_cast<double>(*board.medianSampleNs)) : Cell{},
          CountCell(board.chunksDone),
          CountCell(board.failedAttempts),
          CountCell(board.inDoubt),
          board.highestTemperatureMilliC
              ? Cell{Text(QuantityText(static_cast<double>(*board.highestTemperatureMilliC),
                                       Quantity::kMilliCelsius)),
                     static_cast<double>(*board.highestTemperatureMilliC)}
              : Cell{},
          board.lowestFrequencyKhz
              ? Cell{Text(QuantityText(static_cast<double>(*board.lowestFrequencyKhz),
                                       Quantity::kKilohertz)),
                     static_cast<double>(*board.lowestFrequencyKhz)}
              : Cell{}},
         board.isAside || !board.disagreesAt.empty()});
  }
  return Draw(table) + MoreRows(table, fleet.boards.size() + fleet.boardsLeftOut);
}

Html BoardPhases(const ReportFleet& fleet) {
  constexpr size_t kMost = 40;
  RowPlot plot;
  plot.title = "Where each board's time went";
  plot.labelTitle = "board";
  plot.valueTitle = "parts";
  plot.axis = {.label = "time", .quantity = Quantity::kNanoseconds, .from = 0.0};
  constexpr std::array<Ink, 4> kInks{Ink::kFirst, Ink::kSecond, Ink::kThird, Ink::kFourth};
  for (const ReportBoard& board : fleet.boards) {
    if (board.phases.empty() || plot.rows.size() == kMost) continue;
    RowPlot::Row row{Name(board.name), {}, "", false};
    double at = 0;
    for (size_t p = 0; p < board.phases.size(); ++p) {
      const auto duration = static_cast<double>(board.phases[p].durationNs);
      row.marks.push_back({.from = at, .to = at + duration, .ink = kInks[p % kInks.size()]});
      at += duration;
      row.value += (p == 0 ? "" : ", ") + board.phases[p].name + " " + TimeText(duration);
    }
    plot.rows.push_back(std::move(row));
  }
  return plot.rows.empty() ? Html() : Draw(plot);
}

Html CrossCheck(const ReportFleet& fleet) {
  Html html;
  if (!fleet.crossCheck.empty()) {
    html += Paragraph(Text("All boards ran " + CountedText(fleet.crossCheck.size(), "sample") +
                           " alike, to see whether they agree."));
  }
  constexpr size_t kMostSentences = 50;  // the table tells which others disagree
  std::vector<std::string> disagreements;
  for (const ReportBoard& board : fleet.boards) {
    if (board.disagreesAt.empty() || disagreements.size() == kMostSentences) continue;
    std::string samples;
    for (size_t i = 0; i < board.disagreesAt.size() && i < 10; ++i) {
      samples += (i == 0 ? "" : ", ") + std::to_string(board.disagreesAt[i]);
    }
    disagreements.push_back(NameExcerpt(board.name, 60) + " has other outputs than the others at " +
                            CountedText(board.disagreesAt.size(), "sample") + ": " + samples +
                            (board.disagreesAt.size() > 10 ? ", …" : ""));
  }
  html += Sentences(disagreements);
  if (fleet.notDeterministic > 0) {
    html += Paragraph(Text(CountedText(fleet.notDeterministic, "sample") +
                           " gave several outputs when run again.")) +
            Sentences(fleet.unequal);
  }
  if (fleet.unfitAttempts > 0) {
    html += Paragraph(Text(CountedText(fleet.unfitAttempts, "attempt") + " did not verify.")) +
            Sentences(fleet.unfit);
  }
  return html;
}

Tile CountTile(const RunFacts& facts) {
  const SampleCounts& counts = facts.counts;
  Tile tile{"inferences done", CountText(counts.done), "of " + CountText(counts.inferences)};
  if (counts.done != counts.inferences) {
    tile.isToned = true;
    tile.tone = Tone::kBad;
    std::string more;
    const auto add = [&](uint64_t count, const char* what) {
      if (count > 0) more += ", " + CountText(count) + " " + what;
    };
    add(counts.failed, "failed");
    add(counts.aside, "set aside");
    add(counts.missing, "missing");
    tile.more += more;
  }
  return tile;
}

}  // namespace

// Whose memory it is. A script that a program takes the place of is told by its own name.
std::string OfProgram(const RunFacts& facts) {
  if (!facts.program || facts.program->path.empty()) return {};
  const std::string& path = facts.program->path;
  return ", of " + NameExcerpt(path.substr(path.rfind('/') + 1), 40);
}

std::vector<Tile> RunTiles(const ReportRun& run) {
  std::vector<Tile> tiles{CountTile(run.facts)};
  if (run.judgement) {
    uint64_t wrongOutputs = 0;
    uint64_t wrongSamples = 0;
    for (const ReportOutput& output : run.judgement->outputs) {
      wrongOutputs += output.verdict == ReportVerdict::kWrong ? 1 : 0;
      wrongSamples = std::max(wrongSamples, output.wrongSamples);
    }
    const bool isWrong = wrongOutputs > 0;
    Tile tile{"wrong samples", CountText(wrongSamples),
              "of " + CountText(run.judgement->samples) + " compared"};
    if (run.judgement->outputs.size() > 1) {
      tile.more += "; " + CountText(wrongOutputs) + " of " +
                   CountText(run.judgement->outputs.size()) + " outputs wrong";
    }
    tile.isToned = true;
    tile.tone = isWrong ? Tone::kBad : Tone::kGood;
    tiles.push_back(std::move(tile));
  }
  for (const ReportSeries& series : run.times.series) {
    if (series.count == 0) continue;
    tiles.push_back({"median time" + (series.name.empty() ? "" : ", " + series.name),
                     TimeText(series.medianOfAllNs),
                     TimeText(series.lowNs) + " to " + TimeText(series.highNs)});
  }
  if (run.machine) {
    int64_t hottest = INT64_MIN;
    for (const auto& zone : run.machine->zones) {
      for (const auto& value : zone.milliC) {
        if (value) hottest = std::max(hottest, *value);
      }
    }
    if (hottest != INT64_MIN) {
      tiles.push_back({"hottest",
                       QuantityText(static_cast<double>(hottest), Quantity::kMilliCelsius),
                       "of all zones"});
    }
    uint64_t rss = 0;
    size_t readings = 0;
    for (const auto& value : run.machine->rssBytes) {
      rss = std::max(rss, value.value_or(0));
      readings += value ? 1 : 0;
    }
    if (rss > 0) {
      tiles.push_back(
          {"memory", SizeText(rss),
           (readings == 1 ? "resident, read once" : "resident at most") + OfProgram(run.facts)});
    }
  }
  if (run.trace && run.trace->peakBytes > 0) {
    tiles.push_back({"device memory", SizeText(run.trace->peakBytes), "held at most"});
  }
  return tiles;
}

Html FindingsPart(const RunOnPage& on) {
  const ReportRun& run = on.run;
  Html html = RemarkItems(on, ReportRemark::Kind::kWarning) + FindingTable(run) +
              RemarkItems(on, ReportRemark::Kind::kNote);
  const Html missing = RemarkItems(on, ReportRemark::Kind::kMissing);
  if (!missing.IsEmpty()) html += Heading(3, "Not in this report") + missing;
  if (!run.facts.standardError.empty()) {
    html += Details(Text("What the program said on standard error"),
                    Printout("Standard error", run.facts.standardError));
  }
  return html;
}

Html BoardsPart(const RunOnPage& on) {
  if (!on.run.fleet) return {};
  const ReportFleet& fleet = *on.run.fleet;
  return CrossCheck(fleet) + BoardTable(fleet) + BoardPhases(fleet);
}

Html MachinePart(const RunOnPage& on) {
  const RunFacts& facts = on.run.facts;
  const MachineFacts& machine = facts.machine;
  std::vector<Fact> list{
      {"run", Name(on.run.path)},
      {"ended", Text(EndText(facts))},
      {"host", machine.host.empty() ? Html() : Name(machine.host)},
      {"processor",
       OptionalText(machine.processor +
                    (machine.cores ? ", " + CountedText(*machine.cores, "core") : ""))},
      {"governor", OptionalText(machine.governor.value_or(""))},
      {"load before it", machine.loadAverage ? Text(NumberText(*machine.loadAverage)) : Html()},
      {"memory", machine.memoryTotalBytes
                     ? Text(SizeText(*machine.memoryTotalBytes) +
                            (machine.memoryAvailableBytes
                                 ? ", " + SizeText(*machine.memoryAvailableBytes) + " available"
                                 : ""))
                     : Html()},
      {"kernel", OptionalText(machine.kernel)},
      {"container", OptionalText(machine.container.value_or(""))},
      {"model", FileFact(facts.model)},
      {"configuration", FileFact(facts.configuration)},
      {"list", FileFact(facts.list)},
      {"runtime", FileFact(facts.runtime)},
      {"program", FileFact(facts.program)},
      {"vorn", OptionalText(facts.version)},
      {"fleet", OptionalText(facts.fleet.value_or(""))},
  };
  return FactList(list) + TensorTable(on.run) + MappedTable(on.run);
}

Html CommandsPart(const RunOnPage& on) {
  Html html;
  for (const ReportCommand& command : on.run.commands) {
    std::string purpose = Sentence(command.purpose);
    purpose.back() = ':';
    html += Paragraph(Text(purpose)) + Printout(command.purpose, command.command);
  }
  if (!html.IsEmpty()) {
    html +=
        Note(Text("Paths that do not begin with / count from the folder that vorn was called "
                  "in."));
  }
  return html;
}

}  // namespace vorn::kit
