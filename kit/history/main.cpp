// vorn-history: a memory of all runs, and what changed when.
#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <system_error>

#include "kit/common/command_line.h"
#include "kit/common/duration.h"
#include "kit/common/file_place.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/common/told_time.h"
#include "kit/common/whole_file.h"
#include "kit/history/changes.h"
#include "kit/history/find_runs.h"
#include "kit/history/history_page.h"
#include "kit/history/history_text.h"
#include "kit/history/import_runs.h"
#include "kit/history/moment.h"
#include "kit/history/prune.h"
#include "kit/ledger/ledger.h"
#include "kit/ledger/ledger_place.h"
#include "shared/text/glob.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostRuns = 100000000;

constexpr std::string_view kForms[] = {
    "add FOLDER... [--as-board NAME] [--dry-run] [--json]",
    "list [--model GLOB] [--board GLOB] [--outcome WORD] [--last N] [--json]",
    "show ID [--json]",
    "series [--by PARTS] [--json]",
    "changes [--by PARTS] [--since WHEN] [--ratio R] [--absolute TIME] [--share D] [--json]",
    "level ID --reason TEXT | level ID --remove",
    "report -o FILE [--by PARTS] [--since WHEN]",
    "export [-o FILE]",
    "import FILE...",
    "prune --keep N | --before WHEN [--by PARTS] [--dry-run]",
};

constexpr Option kOptions[] = {
    {"db", 0, "FILE",
     "The history. Without it $VORN_HISTORY, else vorn/history.sqlite in $XDG_DATA_HOME or in "
     "~/.local/share."},
    {"as-board", 0, "NAME",
     "Of add: the board that the runs are of. Without it what their machines are called, which of "
     "a "
     "container is another name each time."},
    {"model", 'm', "GLOB", "Only runs of models whose file is named so: resnet*.onnx."},
    {"board", 0, "GLOB", "Only runs of boards that are named so."},
    {"outcome", 0, "WORD",
     "Only runs that ended so: right, wrong, done (and not judged), failed or unfinished."},
    {"since", 0, "WHEN",
     "Only what was from then on: 2026-11-23, 2026-11-23T02:22 (UTC), or so long ago: 36h, 30d, "
     "8w."},
    {"before", 0, "WHEN", "Only what was before; of prune, what goes."},
    {"last", 0, "N", "Of list: the latest N of them."},
    {"series", 0, "NAME", "Only the series of this name, as series shows it."},
    {"by", 0, "PARTS",
     "What runs of a series have in common, with commas: model, config, list (the names of their "
     "files), model-hash, config-hash, list-hash (what is in them), options, board, runtime, tool, "
     "governor. Without it model,config,list,options,board."},
    {"ratio", 'r', "R", "A step of times or errors counts from this ratio on, 1.03 without it."},
    {"absolute", 'a', "TIME", "And of times from this time on, as 10us; 10us without it."},
    {"share", 0, "D", "A step of an accuracy counts from this difference on, 0.001 without it."},
    {"reason", 0, "TEXT", "Of level: why the level is another one from this run on."},
    {"remove", 0, "", "Of level: what was said of this run holds no more."},
    {"keep", 0, "N", "Of prune: the latest N runs of each series stay."},
    {"output", 'o', "FILE", "Where a report or an export goes."},
    {"dry-run", 0, "", "Say what would be done, and do nothing."},
    {"json", 0, "", "Print lines of JSON: docs/schema/history_*.json."},
    {"quiet", 'q', "", "Print nothing but faults, and what --json asks for."},
};

constexpr std::string_view kAddOptions[] = {"as-board", "dry-run", "json"};
constexpr std::string_view kListOptions[] = {"model", "board",  "outcome", "since", "before",
                                             "last",  "series", "by",      "json"};
constexpr std::string_view kShowOptions[] = {"json"};
constexpr std::string_view kSeriesOptions[] = {"model", "board",    "series", "by",
                                               "ratio", "absolute", "share",  "json"};
constexpr std::string_view kChangesOptions[] = {"model", "board",    "since", "series", "by",
                                                "ratio", "absolute", "share", "json"};
constexpr std::string_view kLevelOptions[] = {"reason", "remove"};
constexpr std::string_view kReportOptions[] = {"output", "model", "board",    "since", "series",
                                               "by",     "ratio", "absolute", "share"};
constexpr std::string_view kExportOptions[] = {"since", "before", "output"};
constexpr std::string_view kImportOptions[] = {"dry-run", "json"};
constexpr std::string_view kPruneOptions[] = {"keep",   "before", "model",  "board",
                                              "series", "by",     "dry-run"};

ExitStatus Add(const Arguments& arguments);
ExitStatus List(const Arguments& arguments);
ExitStatus Show(const Arguments& arguments);
ExitStatus ShowSeries(const Arguments& arguments);
ExitStatus ShowChanges(const Arguments& arguments);
ExitStatus SetLevel(const Arguments& arguments);
ExitStatus Report(const Arguments& arguments);
ExitStatus Export(const Arguments& arguments);
ExitStatus ImportExports(const Arguments& arguments);
ExitStatus Prune(const Arguments& arguments);

constexpr size_t kMostFolders = 100000;

constexpr VerbPart kParts[] = {
    {.name = "add",
     .about = "Takes run directories, and finds those beneath other folders. One that is\n"
              "known is not added twice, and one that has gone on is brought up to date.\n"
              "Ends with 3 if a run could not be read.",
     .options = kAddOptions,
     .run = Add,
     .leastOperands = 1,
     .mostOperands = kMostFolders},
    {.name = "list",
     .about = "Shows runs by their start, a line each.",
     .options = kListOptions,
     .run = List,
     .mostOperands = 0},
    {.name = "show",
     .about = "Tells all that is known of the run of that number.",
     .options = kShowOptions,
     .run = Show,
     .leastOperands = 1,
     .mostOperands = 1},
    {.name = "series",
     .about = "Shows which runs are compared with each other, and where each series stands.",
     .options = kSeriesOptions,
     .run = ShowSeries,
     .mostOperands = 0},
    {.name = "changes",
     .about = "Tells when times, accuracies and verdicts stepped, the runs on both sides,\n"
              "and what differs between them. Ends with 6 if outputs stand worse than before\n"
              "and nobody accepted it, else 10 if times do, else 9 if nothing was measured,\n"
              "else 11 if no series has enough runs, else 0.",
     .options = kChangesOptions,
     .run = ShowChanges,
     .mostOperands = 0},
    {.name = "level",
     .about = "Says that a new level begins with the run of that number, and why.",
     .options = kLevelOptions,
     .run = SetLevel,
     .leastOperands = 1,
     .mostOperands = 1},
    {.name = "report",
     .about = "Writes a page of all series, what got worse first. Ends as changes does.",
     .options = kReportOptions,
     .run = Report,
     .mostOperands = 0},
    {.name = "export",
     .about = "Writes all runs as lines of JSON, docs/schema/history_run.json.",
     .options = kExportOptions,
     .run = Export,
     .mostOperands = 0},
    {.name = "import",
     .about = "Takes what export wrote, of another machine or as a copy.",
     .options = kImportOptions,
     .run = ImportExports,
     .leastOperands = 1,
     .mostOperands = kMostFolders},
    {.name = "prune",
     .about = "Forgets runs. Their directories are left as they are.",
     .options = kPruneOptions,
     .run = Prune,
     .mostOperands = 0},
};

constexpr Verb kHistory{
    .name = "history",
    .summary = "a memory of all runs, and what changed when",
    .forms = kForms,
    .about =
        "Keeps what run directories tell in one file, so that runs can go and what they\n"
        "measured stays. add takes run directories, and finds those beneath other folders; one\n"
        "that is known is not added twice, and one that has gone on is brought up to date.\n"
        "\n"
        "changes tells for each series of like runs when times, accuracies and verdicts\n"
        "stepped, the runs on both sides, and what differs between them. level says that a new\n"
        "level begins with a run, and why: it is accepted. vorn timing and vorn judge compare\n"
        "with the last run of the level by --with history.\n"
        "\n"
        "Of runs that are not done nothing but that they failed counts; list shows them all.\n"
        "\n"
        "changes and report end with status 6 if a series stands at worse outputs since a step\n"
        "that nobody accepted, else 10 the same of times, else 9 if nothing was measured, else\n"
        "11 if no series has enough runs, else 0. add ends with 3 if a run could not be read.",
    .options = kOptions,
    .example = "build/release/vorn history add build/digits.run --db build/history.sqlite",
    .mostOperands = kMostFolders + 1,
    .parts = kParts,
};

// ---- What each of them takes --------------------------------------------------------------------

std::span<const std::string> OperandsOf(const Arguments& arguments) {
  return arguments.Operands().subspan(1);
}

// An empty word is most likely a variable that is not set, and the history of all other runs is not
// what is meant then.
std::string PathOf(const Arguments& arguments) {
  const auto named = arguments.Get("db");
  if (named && named->empty()) {
    throw Fault(ExitStatus::kUsage, "--db is empty; name a file, or leave it out");
  }
  return LedgerPath(named.value_or(""));
}

Ledger ReadLedger(const Arguments& arguments) { return Ledger::ForReading(PathOf(arguments)); }

uint64_t WhenOf(const Arguments& arguments, const char* name, uint64_t otherwise) {
  const auto text = arguments.Get(name);
  if (!text) return otherwise;
  if (const auto moment = MomentOf(*text, ToldTimeNs())) return *moment;
  throw Fault(ExitStatus::kUsage,
              "--" + std::string(name) +
                  " takes a day (2026-11-23), a moment (2026-11-23T02:22), or how long ago (36h, "
                  "30d, 8w), and got '" +
                  PrintableExcerpt(*text) + "'");
}

StartSpan SpanOf(const Arguments& arguments) {
  StartSpan span;
  span.sinceNs = WhenOf(arguments, "since", span.sinceNs);
  span.beforeNs = WhenOf(arguments, "before", span.beforeNs);
  return span;
}

std::vector<KeyPart> PartsOf(const Arguments& arguments) {
  return KeyPartsOf(arguments.Get("by").value_or(std::string(kUsualParts)));
}

double NumberOf(const Arguments& arguments, const char* name, double otherwise, double least,
                double most) {
  const auto text = arguments.Get(name);
  if (!text) return otherwise;
  double number = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
  const bool isNumber = error == std::errc{} && end == text->data() + text->size();
  if (isNumber && number >= least && number <= most) return number;
  throw Fault(ExitStatus::kUsage, "--" + std::string(name) + " takes a number from " +
                                      std::to_string(static_cast<int>(least)) + " to " +
                                      std::to_string(static_cast<int>(most)) + ", and got '" +
                                      PrintableExcerpt(*text) + "'");
}

LevelGates GatesOf(const Arguments& arguments) {
  constexpr double kMostRatio = 1000;
  LevelGates gates;
  gates.ratio = NumberOf(arguments, "ratio", gates.ratio, 1, kMostRatio);
  gates.share = NumberOf(arguments, "share", gates.share, 0, 1);
  const auto time = arguments.Get("absolute");
  if (!time) return gates;
  const auto ns = DurationNs(*time);
  if (!ns) {
    throw Fault(ExitStatus::kUsage,
                "--absolute takes a time with its unit, such as 10us, 0.5ms or 1s, and got '" +
                    PrintableExcerpt(*time) + "'");
  }
  gates.absoluteNs = *ns;
  return gates;
}

int64_t IdOf(const std::string& text) {
  int64_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error == std::errc{} && end == text.data() + text.size() && id > 0) return id;
  throw Fault(ExitStatus::kUsage, "a run of the history is named by its number, and '" +
                                      PrintableExcerpt(text) +
                                      "' is none; vorn history list shows them");
}

void Print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

// ---- Which runs are meant -----------------------------------------------------------------------

bool Matches(const Arguments& arguments, const char* option, const std::string& name) {
  const auto glob = arguments.Get(option);
  return !glob || text::FitsGlob(name, *glob);
}

std::string_view WordOf(const RunEntry& run) {
  switch (OutcomeOf(run.state, run.verdict)) {
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

void HoldToOutcome(const Arguments& arguments) {
  const auto word = arguments.Get("outcome");
  const std::vector<std::string> known{"right", "wrong", "done", "failed", "unfinished"};
  if (!word || std::find(known.begin(), known.end(), *word) != known.end()) return;
  throw Fault(ExitStatus::kUsage,
              "--outcome takes right, wrong, done, failed or unfinished, and got '" +
                  PrintableExcerpt(*word) + "'" + DidYouMean(*word, known));
}

// By the options of the command line.
class Choice {
 public:
  explicit Choice(const Arguments& arguments)
      : arguments_(arguments), parts_(PartsOf(arguments)), series_(arguments.Get("series")) {
    HoldToOutcome(arguments);
  }

  bool IsMeant(const RunEntry& run) const {
    const auto outcome = arguments_.Get("outcome");
    return Matches(arguments_, "model", run.model) && Matches(arguments_, "board", run.board) &&
           (!outcome || *outcome == WordOf(run)) &&
           (!series_ || SeriesNameOf(KeyOf(run, parts_)) == *series_);
  }

  bool IsMeant(const RunSeriesPoints& series) const {
    for (size_t i = 0; i < parts_.size(); ++i) {
      if (parts_[i].name == "model" && !Matches(arguments_, "model", series.key[i])) return false;
      if (parts_[i].name == "board" && !Matches(arguments_, "board", series.key[i])) return false;
    }
    return !series_ || SeriesNameOf(series.key) == *series_;
  }

  std::span<const KeyPart> Parts() const { return parts_; }

  // A series has one model, or board, only where runs are put together by it. Without it all series
  // would be meant, also by prune.
  void HoldToSeries() const {
    for (const char* option : {"model", "board"}) {
      const bool isPart = std::any_of(parts_.begin(), parts_.end(),
                                      [&](const KeyPart& part) { return part.name == option; });
      if (isPart || !arguments_.Has(option)) continue;
      throw Fault(ExitStatus::kUsage, "--" + std::string(option) +
                                          " chooses among series, and --by puts runs of any " +
                                          option + " into one; name '" + option + "' in --by, too");
    }
  }

 private:
  const Arguments& arguments_;
  std::vector<KeyPart> parts_;
  std::optional<std::string> series_;
};

// Levels are found out over all runs, whatever span is shown.
std::vector<SeriesHistory> HistoriesOf(const Ledger& ledger, const Choice& choice,
                                       const LevelGates& gates) {
  choice.HoldToSeries();
  std::vector<SeriesHistory> all;
  for (RunSeriesPoints& series : ledger.Series(choice.Parts(), {})) {
    if (choice.IsMeant(series)) all.push_back(HistoryOf(std::move(series), choice.Parts(), gates));
  }
  return all;
}

// ---- The actions --------------------------------------------------------------------------------

const char* WordOf(Addition addition) {
  switch (addition) {
    case Addition::kAdded:
      return "added";
    case Addition::kUpdated:
      return "updated";
    case Addition::kKnown:
      return "known";
    case Addition::kOlder:
      return "older";
  }
  return "";
}

const char* WordOfTrying(Addition addition) {
  switch (addition) {
    case Addition::kAdded:
      return "would add";
    case Addition::kUpdated:
      return "would update";
    default:
      return WordOf(addition);
  }
}

// What is to be looked into before anything is added; nothing where there is none yet.
std::optional<Ledger> TryLedger(const std::string& path) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(path, error);
  if (!IsThere(path) || (!error && bytes == 0)) return std::nullopt;
  return Ledger::ForTrying(path);
}

// Tells of each run, and what became of all.
ExitStatus Import(
    const Arguments& arguments,
    const std::function<ImportCounts(Ledger*, const OnImported&, const OnRefused&)>& import) {
  const bool isDry = arguments.Has("dry-run");
  const bool isQuiet = arguments.Has("quiet");
  const std::string path = PathOf(arguments);
  std::optional<Ledger> ledger;
  if (isDry) {
    ledger = TryLedger(path);
  } else {
    if (!arguments.Has("db")) MakeFoldersOf(path);
    ledger.emplace(Ledger::ForWriting(path));
  }
  const bool isJson = arguments.Has("json");
  const auto onImported = [&](const RunEntry& run, Addition addition) {
    if (isJson) {
      Json line = Json::Object({{"schema", 1}, {"what", WordOf(addition)}});
      if (isDry) line.Set("isDryRun", true);
      if (!isDry) line.Set("id", run.id);
      line.Set("identity", run.identity);
      line.Set("path", run.path);
      Print(ToText(line) + "\n");
    } else if (!isQuiet && addition != Addition::kKnown) {
      Print((isDry ? WordOfTrying(addition)
                   : std::string(WordOf(addition)) + " " + std::to_string(run.id)) +
            "  " + Printable(run.path) + "\n");
    }
  };
  const auto onRefused = [](const std::string& message) {
    std::fprintf(stderr, "vorn history: %s\n", message.c_str());
  };
  const ImportCounts counts = import(ledger ? &*ledger : nullptr, onImported, onRefused);
  if (!isQuiet) {
    std::fprintf(stderr, "vorn history: %s: %s\n",
                 isDry ? "nothing is written, it would be" : Quoted(path).c_str(),
                 TextOf(counts).c_str());
  }
  return counts.refused > 0 ? ExitStatus::kInput : ExitStatus::kDone;
}

ExitStatus Add(const Arguments& arguments) {
  const auto board = arguments.Get("as-board");
  if (board && board->empty()) {
    throw Fault(ExitStatus::kUsage, "--as-board is empty; name a board, or leave it out");
  }
  std::vector<std::string> runs;
  std::vector<std::string> closed;
  for (const std::string& folder : OperandsOf(arguments)) {
    const size_t closedBefore = closed.size();
    const std::vector<std::string> found =
        FindRuns(folder, [&](const std::string& message) { closed.push_back(message); });
    if (found.empty() && closed.size() == closedBefore) {
      throw Fault(ExitStatus::kInput, "beneath " + Quoted(folder) +
                                          " there is no run directory, none has a run.json; name "
                                          "what vorn launch --run was given");
    }
    runs.insert(runs.end(), found.begin(), found.end());
  }
  return Import(arguments,
                [&](Ledger* ledger, const OnImported& onImported, const OnRefused& onRefused) {
                  for (const std::string& message : closed) onRefused(message);
                  ImportCounts counts = ImportRuns(ledger, runs, board, onImported, onRefused);
                  counts.refused += closed.size();
                  return counts;
                });
}

ExitStatus ImportExports(const Arguments& arguments) {
  return Import(arguments, [&](Ledger* ledger, const OnImported& onImported, const OnRefused&) {
    ImportCounts all;
    for (const std::string& path : OperandsOf(arguments)) {
      const ImportCounts counts = ImportLines(ledger, path, onImported);
      all.added += counts.added;
      all.updated += counts.updated;
      all.known += counts.known;
      all.older += counts.older;
    }
    return all;
  });
}

ExitStatus List(const Arguments& arguments) {
  const Choice choice(arguments);
  const Ledger ledger = ReadLedger(arguments);
  const bool isJson = arguments.Has("json");
  const uint64_t last = arguments.GetNumber("last", kMostRuns, 1, kMostRuns);
  std::deque<RunEntry> latest;
  RunTable table;
  size_t count = 0;
  const auto show = [&](const RunEntry& run) {
    ++count;
    if (isJson) {
      Print(ToText(ToJson(run, false)) + "\n");
    } else {
      table.Add(run);
    }
  };
  const bool isCut = arguments.Has("last");
  // By which parts a series is named may be any.
  const bool areAllNeeded = isJson || arguments.Has("series");
  const RunDetail detail = areAllNeeded ? RunDetail::kAll : RunDetail::kTable;
  ledger.ForEach(SpanOf(arguments), detail, [&](RunEntry& run) {
    if (!choice.IsMeant(run)) return;
    if (!isCut) {
      show(run);
      return;
    }
    latest.push_back(std::move(run));
    if (latest.size() > last) latest.pop_front();
  });
  for (const RunEntry& run : latest) show(run);
  if (!isJson && !arguments.Has("quiet")) {
    if (count > 0) Print(table.Text());
    std::fprintf(stderr, "vorn history: %s\n", Counted(count, "run").c_str());
  }
  return ExitStatus::kDone;
}

ExitStatus Show(const Arguments& arguments) {
  const int64_t id = IdOf(OperandsOf(arguments).front());
  const RunEntry run = ReadLedger(arguments).Get(id);
  Print(arguments.Has("json") ? ToText(ToJson(run, true)) + "\n" : RunText(run));
  return ExitStatus::kDone;
}

ExitStatus ShowSeries(const Arguments& arguments) {
  const Choice choice(arguments);
  const LevelGates gates = GatesOf(arguments);
  const Ledger ledger = ReadLedger(arguments);
  const std::vector<SeriesHistory> all = HistoriesOf(ledger, choice, gates);
  if (!arguments.Has("json")) {
    if (!arguments.Has("quiet")) Print(SeriesText(all));
    return ExitStatus::kDone;
  }
  for (const SeriesHistory& series : all) Print(SeriesLine(series, choice.Parts()));
  return ExitStatus::kDone;
}

std::string Conclusion(std::span<const SeriesHistory> all, size_t changes, ExitStatus status) {
  const std::string text = std::to_string(all.size()) + " series, " + Counted(changes, "change");
  switch (status) {
    case ExitStatus::kDiffers:
      return text + "; outputs stand worse than before, and nobody accepted it\n";
    case ExitStatus::kSlower:
      return text + "; times stand worse than before, and nobody accepted it\n";
    case ExitStatus::kNothing:
      return text + "; no run was timed or judged\n";
    case ExitStatus::kCannotTell:
      return text + "; no series has the runs that a step needs\n";
    default:
      return text + "; nothing stands worse than before\n";
  }
}

ExitStatus ShowChanges(const Arguments& arguments) {
  const Choice choice(arguments);
  const LevelGates gates = GatesOf(arguments);
  const StartSpan span = SpanOf(arguments);
  const Ledger ledger = ReadLedger(arguments);
  const std::vector<SeriesHistory> all = HistoriesOf(ledger, choice, gates);
  const ExitStatus status = StatusOf(all, span.sinceNs);
  size_t count = 0;
  for (const SeriesHistory& series : all) {
    const auto changes =
        TellChanges(series, span.sinceNs, [&](int64_t id) { return ledger.Get(id); });
    count += changes.size();
    if (arguments.Has("json")) {
      for (const ToldChange& change : changes) Print(ChangeLine(series, change));
    } else if (!arguments.Has("quiet")) {
      Print(ChangesText(series, changes));
    }
  }
  if (!arguments.Has("json") && !arguments.Has("quiet")) Print(Conclusion(all, count, status));
  return status;
}

ExitStatus SetLevel(const Arguments& arguments) {
  const int64_t id = IdOf(OperandsOf(arguments).front());
  const auto reason = arguments.Get("reason");
  if (reason.has_value() == arguments.Has("remove")) {
    throw Fault(ExitStatus::kUsage,
                "'vorn history level' takes either --reason TEXT, which says why a new level "
                "begins with the run, or --remove");
  }
  if (reason && reason->find_first_not_of(" \t\n") == std::string::npos) {
    throw Fault(ExitStatus::kUsage, "--reason is empty; say why the level is another one");
  }
  Ledger ledger = Ledger::ForChanging(PathOf(arguments));
  if (reason) {
    ledger.SetLevel(id, {.reason = *reason, .setRealtimeNs = ToldTimeNs()});
  } else if (!ledger.RemoveLevel(id)) {
    throw Fault(ExitStatus::kInput,
                "nobody said that a level begins with run " + std::to_string(id));
  }
  return ExitStatus::kDone;
}

// A page or an export in its place would be the end of it, and what has the name of its journal is
// taken for one.
void HoldToOtherFile(const std::string& output, const Ledger& ledger) {
  const std::string& path = ledger.Path();
  if (!IsSameFile(output, path) && Absolute(output) != path + "-journal") return;
  throw Fault(ExitStatus::kUsage,
              "--output " + Quoted(output) + " is the history itself; name another file");
}

ExitStatus Export(const Arguments& arguments) {
  const Ledger ledger = ReadLedger(arguments);
  const auto path = arguments.Get("output");
  if (path) HoldToOtherFile(*path, ledger);
  std::optional<WholeFile> file;
  if (path) file.emplace(*path);
  ledger.ForEach(SpanOf(arguments), RunDetail::kTable, [&](const RunEntry& run) {
    const std::string line = ToText(ToJson(ledger.Get(run.id), true)) + "\n";
    if (file) {
      file->Append(line);
    } else {
      Print(line);
    }
  });
  if (file) file->Finish();
  return ExitStatus::kDone;
}

ExitStatus Prune(const Arguments& arguments) {
  PruneRequest request;
  if (arguments.Has("keep")) request.keep = arguments.GetNumber("keep", 0, 0, kMostRuns);
  if (arguments.Has("before")) request.beforeNs = WhenOf(arguments, "before", 0);
  if (request.keep.has_value() == request.beforeNs.has_value()) {
    throw Fault(ExitStatus::kUsage,
                "'vorn history prune' takes either --keep N, the latest runs of each series, or "
                "--before WHEN");
  }
  const Choice choice(arguments);
  choice.HoldToSeries();
  const bool isDry = arguments.Has("dry-run");
  const std::string path = PathOf(arguments);
  Ledger ledger = isDry ? Ledger::ForReading(path) : Ledger::ForChanging(path);
  std::vector<RunSeriesPoints> meant;
  for (RunSeriesPoints& series : ledger.Series(choice.Parts(), {})) {
    if (choice.IsMeant(series)) meant.push_back(std::move(series));
  }
  const std::vector<int64_t> ids = RunsToPrune(meant, request);
  if (isDry && !arguments.Has("quiet")) {
    for (const int64_t id : ids) Print(std::to_string(id) + "\n");
  }
  if (!isDry) ledger.Remove(ids);
  if (!arguments.Has("quiet")) {
    std::fprintf(stderr, "vorn history: %s %s\n", Counted(ids.size(), "run").c_str(),
                 isDry ? "would go" : "gone; their directories are left as they are");
  }
  if (isDry || ledger.Shrink()) return ExitStatus::kDone;
  throw Fault(ExitStatus::kLimit,
              "the room of what is gone could not be given back, the disk is full or others hold "
              "the history " +
                  Quoted(ledger.Path()) +
                  "; what is added next takes it, and the next prune tries again");
}

ExitStatus Report(const Arguments& arguments) {
  const std::string output = arguments.Need("output");
  const Choice choice(arguments);
  const LevelGates gates = GatesOf(arguments);
  const StartSpan span = SpanOf(arguments);
  const Ledger ledger = ReadLedger(arguments);
  HoldToOtherFile(output, ledger);
  const std::vector<SeriesHistory> all = HistoriesOf(ledger, choice, gates);
  const std::string page = Absolute(output);
  const std::string folder = page.substr(0, page.rfind('/'));
  WriteWholeFile(output, HistoryPage({.all = all,
                                      .find = [&](int64_t id) { return ledger.Get(id); },
                                      .sinceNs = span.sinceNs,
                                      .ledger = ledger.Path(),
                                      .folder = folder.empty() ? "/" : folder,
                                      .nowNs = ToldTimeNs()}));
  if (!arguments.Has("quiet")) {
    std::fprintf(stderr, "vorn history: %s\n", Printable(HistoryAnswer(all, span.sinceNs)).c_str());
  }
  return StatusOf(all, span.sinceNs);
}

ExitStatus History(const Arguments& arguments) {
  // A limit of a file's size is told by the write that meets it, and not by an end at once.
  (void)std::signal(SIGXFSZ, SIG_IGN);
  return RunPart(kHistory, arguments);
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kHistory, argc, argv, vorn::kit::History);
}
