// Chunk by chunk, so that no more than one of them is held. Until the last step run.json says that
// it runs; whatever a merge left that was killed is made again.
#include "kit/fleet/merge.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "kit/common/file_place.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/fleet/attempt.h"
#include "kit/fleet/board_report.h"
#include "kit/fleet/choice.h"
#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/fleet_state.h"
#include "kit/fleet/journal.h"
#include "kit/fleet/linked_file.h"
#include "kit/fleet/merged_facts.h"
#include "kit/fleet/sample_proof.h"
#include "kit/launch/dumps.h"
#include "kit/launch/machine.h"
#include "kit/launch/plan.h"
#include "kit/launch/run_folder.h"
#include "kit/launch/run_report.h"
#include "kit/launch/run_samples.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostHolesTold = 100;  // ranges of inferences that follow each other
constexpr size_t kMostNoted = 1000;     // inferences and attempts that boards.json names
constexpr size_t kMostLinesTold = 5;    // of them, lines on the console
constexpr uint64_t kMostModelBytes = 256 << 20;

// What the journals say of an attempt.
struct NotedAttempt {
  std::string board;
  std::string outputs;
  uint64_t outputsAtNs = 0;
};

// Inferences that follow each other and are not there for the same reason.
struct Hole {
  SampleStatus status = SampleStatus::kMissing;
  std::string reason;
  uint64_t inferences = 0;
  uint64_t firstLine = 0;
  uint64_t lastLine = 0;
};

const char* NameOfHole(SampleStatus status) {
  if (status == SampleStatus::kAside) return "put aside";
  return status == SampleStatus::kFailed ? "failed" : "not run";
}

std::string FileName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string ArrayBeside(const std::string& dump) {
  constexpr std::string_view kDump = ".bin";
  if (!dump.ends_with(kDump)) return "";
  return dump.substr(0, dump.size() - kDump.size()) + ".npy";
}

// What run.json of the folder says has to be a merge of this fleet that has holes, or was not
// ended.
void CheckMergedBefore(const std::string& run, const RunFacts& before, const FleetPlan& plan) {
  const auto refuse = [&](const std::string& what) {
    throw Fault(ExitStatus::kUsage, Quoted(run) + " holds " + what + "; name another with --run");
  };
  if (!before.fleet) refuse("a run that is no merge of a fleet");
  if (before.fleet != plan.id) refuse("the merge of another fleet, or of another plan of this one");
  const bool isWhole = before.state == RunState::kDone && before.status == 0;
  if (isWhole) refuse("the merge of this fleet, whole");
}

class Merger {
 public:
  Merger(const MergeRequest& request, Console& console)
      : request_(request),
        console_(console),
        plan_(ReadFleetPlan(request.fleet)),
        folder_(request.run, true),
        facts_(plan_) {}

  ExitStatus Merge() {
    if (folder_.Before()) CheckMergedBefore(request_.run, *folder_.Before(), plan_);
    HoldToOwnFiles(request_.fleet, plan_);
    try {
      Begin();
      ReadNotes();
      CheckBoards();
      for (uint64_t chunk = 0; chunk < plan_.chunks.size(); ++chunk) MergeChunk(chunk);
      return End();
    } catch (const Fault& fault) {
      Abandon(fault);
      throw;
    }
  }

 private:
  // ---- The beginning ----------------------------------------------------------------------------

  void Begin() {
    RunFacts& facts = facts_.Facts();
    facts.command = request_.command;
    facts.version = request_.version;
    facts.machine = DescribeMachine();  // until it is known where it ran
    facts.startRealtimeNs = RealtimeNs();
    WriteRun();
    RemoveTree(Path(kBoardReportFolder));
    RemoveUnfinishedReports();
    ClearPlace(Path(kBoardReportFile));
    MakeFolders(Path(kDumpsFolder));
    MakeFolders(Path(kBoardReportFolder));
    WriteWholeFile(Path(kModelFile), ReadWholeFile(request_.fleet + "/" + kModelFile,
                                                   "the description of the fleet's model",
                                                   ExitStatus::kInput, kMostModelBytes));
    samples_.emplace(Path(kSamplesFile));
    times_.emplace(Path(kTimesFile));
  }

  // Of a process that was killed; those of the run's own files are removed with it.
  void RemoveUnfinishedReports() const {
    for (const std::string& name : NamesIn(request_.run)) {
      const bool isReport = name.starts_with(std::string(kBoardReportFile) + ".") &&
                            name.ends_with(kUnfinishedSuffix);
      if (isReport) RemoveTree(Path(name));
    }
  }

  void ReadNotes() {
    state_.unreadableLines = ReadJournals(request_.fleet, [&](const JournalRecord& record) {
      TakeRecord(record, plan_, state_);
      boardTimes_.Take(record);
      if (record.chunk) {
        Note(record, notedOfChunks_[{*record.chunk, record.attempt}]);
      } else if (record.attempt != 0) {
        Note(record, notedOfBoards_[{record.board, record.attempt}]);
      }
    });
    Settle(plan_, state_);
    if (state_.unreadableLines > 0) {
      Warn("journal-damaged", state_.unreadableLines, "lines of the journals cannot be read");
    }
    for (const auto& [name, state] : state_.boards) Board(name).state = state;
  }

  static void Note(const JournalRecord& record, NotedAttempt& noted) {
    const bool isOfAttempt = record.event == JournalEvent::kBegin ||
                             record.event == JournalEvent::kEnd ||
                             record.event == JournalEvent::kFound;
    if (!isOfAttempt || record.board.empty()) return;
    noted.board = record.board;
    if (record.outputs.empty() || record.realtimeNs < noted.outputsAtNs) return;
    noted.outputs = record.outputs;
    noted.outputsAtNs = record.realtimeNs;
  }

  MergedBoard& Board(const std::string& name) {
    const auto [at, isNew] = boards_.try_emplace(name);
    if (isNew) {
      at->second.name = name;
      at->second.folder = std::string(kBoardReportFolder) + "/" + FolderNameOf(name);
    }
    return at->second;
  }

  // ---- What all boards did ----------------------------------------------------------------------

  // By what lies there, and not by what was noted when it came.
  void CheckBoards() {
    if (plan_.crossCheck.empty()) return;
    const std::vector<SampleRecord> planned = ReadPlanned(request_.fleet, plan_, std::nullopt);
    std::set<std::string> names;
    for (const auto& [name, board] : boards_) names.insert(name);
    for (const std::string& name : NamesIn(request_.fleet + "/" + kCrossFolder)) names.insert(name);
    FleetState checked = state_;
    for (const std::string& name : names) {
      BoardState& state = checked.boards[name];
      state.checked.reset();
      state.checkOutputs.clear();
      if (const auto records = RecordsOfCheck(name, planned)) TakeCheck(name, *records, state);
    }
    Compare(DisagreeingBoards(checked));
  }

  // Of the last attempt that has them all.
  std::optional<std::vector<SampleRecord>> RecordsOfCheck(
      const std::string& board, const std::vector<SampleRecord>& planned) {
    const std::string folder = CrossFolder(request_.fleet, board);
    if (board.find('/') != std::string::npos || board == "." || board == "..") return {};
    std::vector<uint64_t> attempts = AttemptsIn(folder);
    std::reverse(attempts.begin(), attempts.end());
    for (const uint64_t attempt : attempts) {
      const auto noted = notedOfBoards_.find({board, attempt});
      const AttemptLook look = LookInto(
          {.folder = folder + "/" + std::to_string(attempt),
           .board = board,
           .attempt = attempt,
           .outputs = noted == notedOfBoards_.end() ? std::string() : noted->second.outputs},
          plan_, planned);
      TakeMoments(look, board);
      size_t done = 0;
      while (done < planned.size() && look.HasDone(done)) ++done;
      if (done == planned.size()) return look.records;
    }
    return std::nullopt;
  }

  void TakeCheck(const std::string& name, const std::vector<SampleRecord>& records,
                 BoardState& state) {
    state.checked = 1;
    state.checkOutputs = OutputsHash(records);
    Board(name).isChecked = true;
    for (const SampleRecord& record : records) checks_[name].push_back(OutputsHash({record}));
  }

  void Compare(const std::vector<std::string>& disagreeing) {
    inDoubt_.insert(disagreeing.begin(), disagreeing.end());
    for (const auto& [name, outputs] : checks_) {
      if (inDoubt_.count(name) == 0) agreed_ = outputs;
    }
    for (const std::string& name : disagreeing) {
      std::string told;
      for (size_t i = 0; i < plan_.crossCheck.size(); ++i) {
        if (checks_[name][i] == agreed_[i]) continue;
        Board(name).disagreesAt.push_back(plan_.crossCheck[i]);
        told += (told.empty() ? "" : ", ") + std::to_string(plan_.crossCheck[i]);
      }
      const std::string text =
          "board " + Quoted(name) + " has other outputs than the others at inference " + told;
      Warn("board-disagrees", 1, text);
      console_.Say(text + "; all that was taken from it is in doubt");
    }
  }

  // ---- Chunks -----------------------------------------------------------------------------------

  void MergeChunk(uint64_t chunk) {
    const FleetChunk& about = plan_.chunks[chunk];
    const std::vector<SampleRecord> planned = ReadPlanned(request_.fleet, plan_, chunk);
    std::vector<AttemptLook> attempts;
    for (const uint64_t attempt : AttemptsIn(ChunkFolder(request_.fleet, chunk))) {
      attempts.push_back(LookInto(PlaceOf(chunk, attempt), plan_, planned));
      NoteUnfit(chunk, attempts.back());
      TakeMoments(attempts.back(), NameOf(attempts.back()));
      TakeTrace(chunk, attempts.back());
    }
    const ChunkChoice choice = ChooseSamples(attempts, planned, inDoubt_);
    for (const Difference& difference : choice.differences) NoteDifference(difference, attempts);
    for (size_t at = 0; at < choice.samples.size(); ++at) {
      TakeSample(choice.samples[at], at, attempts);
    }
    TakeTimes(chunk, choice, attempts);
    TakeFacts(chunk, choice, attempts);
    console_.Show({.series = {},
                   .done = about.first + about.inferences,
                   .all = plan_.inferences,
                   .doneHere = about.first + about.inferences,
                   .faults = 0,
                   .elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::steady_clock::now() - began_)});
  }

  AttemptPlace PlaceOf(uint64_t chunk, uint64_t attempt) const {
    AttemptPlace place{.folder = ChunkFolder(request_.fleet, chunk) + "/" + std::to_string(attempt),
                       .board = {},
                       .attempt = attempt,
                       .outputs = {}};
    const auto noted = notedOfChunks_.find({chunk, attempt});
    if (noted != notedOfChunks_.end()) {
      place.board = noted->second.board;
      place.outputs = noted->second.outputs;
    }
    return place;
  }

  // Where no journal tells the board, what the machine calls itself.
  static std::string NameOf(const AttemptLook& look) {
    if (!look.place.board.empty()) return look.place.board;
    const bool isTold = look.facts && !look.facts->machine.host.empty();
    return isTold ? look.facts->machine.host : "unknown";
  }

  static std::string Told(uint64_t chunk, const AttemptLook& look) {
    return "chunk " + std::to_string(chunk) + ", attempt " + std::to_string(look.place.attempt) +
           " on " + Quoted(NameOf(look));
  }

  void NoteUnfit(uint64_t chunk, const AttemptLook& look) {
    std::string reason = look.fault;
    uint64_t faults = 0;
    for (size_t at = 0; look.fault.empty() && at < look.faults.size(); ++at) {
      if (look.faults[at].empty()) continue;
      if (faults++ > 0) continue;
      reason = "inference " + std::to_string(plan_.chunks[chunk].first + at) +
               " does not count: " + look.faults[at];
    }
    if (reason.empty()) return;
    if (faults > 1) reason += ", and " + std::to_string(faults - 1) + " more";
    const std::string text = Told(chunk, look) + ": " + reason;
    Warn("attempt-unfit", 1, text);
    if (report_.unfitAttempts++ < kMostLinesTold) console_.Say(text);
    if (report_.unfit.size() >= kMostNoted) return;
    report_.unfit.push_back({.chunk = chunk,
                             .attempt = look.place.attempt,
                             .board = NameOf(look),
                             .reason = std::move(reason)});
  }

  void NoteDifference(const Difference& difference, const std::vector<AttemptLook>& attempts) {
    const uint64_t at = difference.index - plan_.chunks[ChunkOf(plan_, difference.index)].first;
    UnequalSample sample{.index = difference.index, .line = difference.line, .attempts = {}};
    for (const size_t i : difference.attempts) {
      sample.attempts.push_back({.board = NameOf(attempts[i]),
                                 .attempt = attempts[i].place.attempt,
                                 .outputs = OutputsHash({attempts[i].records[at]}),
                                 .isCrossCheck = false});
    }
    NoteUnequal(std::move(sample));
  }

  void NoteUnequal(UnequalSample sample) {
    std::string text = "inference " + std::to_string(sample.index) + " (" + PlaceOf(sample.line) +
                       ") did not give the same twice:";
    for (const UnequalSample::Attempt& attempt : sample.attempts) {
      text += (&attempt == &sample.attempts.front() ? " " : ", ") + Quoted(attempt.board) +
              (attempt.isCrossCheck ? " at the cross-check"
                                    : " in attempt " + std::to_string(attempt.attempt));
    }
    Warn("not-deterministic", 1, text);
    if (report_.notDeterministic++ < kMostLinesTold) console_.Say(text);
    if (report_.unequal.size() < kMostNoted) report_.unequal.push_back(std::move(sample));
  }

  std::string PlaceOf(uint64_t line) const {
    return line == 0 ? "no line" : Printable(plan_.list.path) + ":" + std::to_string(line);
  }

  // ---- An inference -----------------------------------------------------------------------------

  void TakeSample(const ChosenSample& chosen, size_t at, const std::vector<AttemptLook>& attempts) {
    const SampleRecord& record = chosen.record;
    const std::string dumps = std::string(kDumpsFolder) + "/" + std::to_string(record.index);
    if (chosen.from) {
      PlaceDumps(record, attempts[*chosen.from].place.folder + "/" + kDumpsFolder + "/" +
                             std::to_string(at));
    } else {
      RemoveTree(Path(dumps));
    }
    samples_->Append(ToLine(record));
    CountSample(record.status, facts_.Facts().counts);
    if (IsRepeated(before_, record)) {
      Warn(kRepeatedWarning, 1, RepeatedText(record.index, PlaceOf(FirstLineOf(record))));
    }
    before_ = record;
    if (record.status == SampleStatus::kDone) {
      EndHole();
      TakeFrom(attempts[*chosen.from], at, record.index);
    } else {
      TakeHole(record);
    }
  }

  void PlaceDumps(const SampleRecord& record, const std::string& from) {
    const std::string to = Path(kDumpsFolder) + "/" + std::to_string(record.index);
    std::vector<std::string> names;
    for (const SampleOutput& output : record.outputs) {
      names.push_back(FileName(output.path));
      if (output.text) names.push_back(FileName(*output.text));
      const std::string array = plan_.options.areArrays ? ArrayBeside(FileName(output.path)) : "";
      if (!array.empty() && IsOwnFile(from + "/" + array)) names.push_back(array);
    }
    MakeFolderFor(to, names);
    bool isCopied = false;
    for (const std::string& name : names) {
      if (LinkOrCopy(from + "/" + name, to + "/" + name)) isCopied = true;
    }
    if (!isCopied) return;
    for (const SampleOutput& output : record.outputs) {
      if (DoesVerify(request_.run, output)) continue;
      throw Fault(ExitStatus::kLimit,
                  Quoted(Path(output.path)) + " is not what was copied there; look at the disk");
    }
  }

  static uint64_t FirstLineOf(const SampleRecord& record) {
    return record.inputs.empty() ? 0 : record.inputs.front().line;
  }

  void TakeFrom(const AttemptLook& look, size_t at, uint64_t index) {
    MergedBoard& board = Board(NameOf(look));
    ++board.samples;
    if (inDoubt_.count(board.name) != 0) {
      ++board.inDoubt;
      return;
    }
    CompareWithCheck(look, at, index);
  }

  // What boards agree on, this one did elsewhere, too.
  void CompareWithCheck(const AttemptLook& look, size_t at, uint64_t index) {
    const auto found = std::find(plan_.crossCheck.begin(), plan_.crossCheck.end(), index);
    if (found == plan_.crossCheck.end() || agreed_.empty()) return;
    const std::string& agreed = agreed_[static_cast<size_t>(found - plan_.crossCheck.begin())];
    const std::string outputs = OutputsHash({look.records[at]});
    if (outputs == agreed) return;
    UnequalSample sample{.index = index, .line = FirstLineOf(before_), .attempts = {}};
    sample.attempts.push_back({.board = NameOf(look),
                               .attempt = look.place.attempt,
                               .outputs = outputs,
                               .isCrossCheck = false});
    for (const auto& [name, all] : checks_) {
      if (inDoubt_.count(name) != 0) continue;
      sample.attempts.push_back(
          {.board = name, .attempt = 0, .outputs = agreed, .isCrossCheck = true});
      break;
    }
    NoteUnequal(std::move(sample));
  }

  // ---- Holes ------------------------------------------------------------------------------------

  void TakeHole(const SampleRecord& record) {
    const std::string reason = record.reason.value_or("");
    if (hole_ && (hole_->status != record.status || hole_->reason != reason)) EndHole();
    if (!hole_) {
      hole_ = Hole{.status = record.status,
                   .reason = reason,
                   .inferences = 0,
                   .firstLine = FirstLineOf(record),
                   .lastLine = 0};
    }
    ++hole_->inferences;
    hole_->lastLine = record.inputs.empty() ? 0 : record.inputs.back().line;
  }

  void EndHole() {
    if (!hole_) return;
    std::string place = PlaceOf(hole_->firstLine);
    if (hole_->lastLine > hole_->firstLine) place += "-" + std::to_string(hole_->lastLine);
    if (holes_++ < kMostHolesTold) {
      console_.Say(place + " (" + Counted(hole_->inferences, "inference") + ") " +
                   NameOfHole(hole_->status) + ": " + hole_->reason);
    }
    hole_.reset();
  }

  // ---- What was measured ------------------------------------------------------------------------

  // The last line of each inference that is taken from an attempt.
  void TakeTimes(uint64_t chunk, const ChunkChoice& choice,
                 const std::vector<AttemptLook>& attempts) {
    std::map<uint64_t, TimesRecord> times;  // by place in the chunk
    for (size_t i = 0; i < attempts.size(); ++i) {
      const auto isTaken = [&](uint64_t at) {
        return at < choice.samples.size() && choice.samples[at].from == i &&
               choice.samples[at].record.status == SampleStatus::kDone;
      };
      ReadLinesOf(attempts[i], kTimesFile, [&](std::string_view line) {
        TimesRecord record = TimesFromLine(line);
        if (isTaken(record.index)) times[record.index] = std::move(record);
      });
    }
    for (auto& [at, record] : times) {
      const AttemptLook& look = attempts[*choice.samples[at].from];
      record.index = plan_.chunks[chunk].first + at;
      record.chunk = chunk;
      record.attempt = look.place.attempt;
      times_->Append(ToLine(record));
    }
    timed_ += times.size();
  }

  // A file that is damaged, or missing, takes nothing from the outputs.
  void ReadLinesOf(const AttemptLook& look, const char* name,
                   const std::function<void(std::string_view line)>& take) {
    const std::string path = look.place.folder + "/" + name;
    if (!IsOwnFile(path)) return;
    try {
      ForEachLine(path, "a file of the attempt", ExitStatus::kInput, take);
    } catch (const Fault& fault) {
      if (fault.Status() != ExitStatus::kInput) throw;
      Warn("attempt-file-damaged", 1, fault.what());
    }
  }

  std::string FolderFor(MergedBoard& board) const {
    std::string folder = Path(board.folder);
    MakeFolders(folder);
    return folder;
  }

  void TakeMoments(const AttemptLook& look, const std::string& name) {
    MergedBoard& board = Board(name);
    std::string lines;
    ReadLinesOf(look, kMachineFile, [&](std::string_view line) {
      const MachineMoment moment = MachineFromLine(line);
      for (const auto& [zone, temperature] : moment.temperatureMilliC) {
        auto& highest = board.highestTemperatureMilliC;
        highest = std::max(highest.value_or(temperature), temperature);
      }
      for (const uint64_t frequency : moment.frequencyKhz) {
        auto& lowest = board.lowestFrequencyKhz;
        lowest = std::min(lowest.value_or(frequency), frequency);
      }
      lines += ToLine(moment);
    });
    if (look.facts && !board.runtime) board.runtime = look.facts->runtime;
    if (!lines.empty()) LineFile(FolderFor(board) + "/" + kMachineFile).Append(lines);
  }

  void TakeTrace(uint64_t chunk, const AttemptLook& look) {
    const std::string trace = look.place.folder + "/" + kTraceFile;
    if (!IsOwnFile(trace)) return;
    LinkOrCopy(trace, FolderFor(Board(NameOf(look))) + "/" + std::to_string(chunk) + "." +
                          std::to_string(look.place.attempt) + ".vtrace");
  }

  void TakeFacts(uint64_t chunk, const ChunkChoice& choice,
                 const std::vector<AttemptLook>& attempts) {
    std::set<size_t> taken;
    bool isWhole = true;
    for (const ChosenSample& sample : choice.samples) {
      if (sample.from) taken.insert(*sample.from);
      isWhole = isWhole && sample.record.status == SampleStatus::kDone;
    }
    for (const size_t i : taken) {
      facts_.Take(*attempts[i].facts, Told(chunk, attempts[i]), isWhole);
    }
  }

  // ---- The end ----------------------------------------------------------------------------------

  ExitStatus End() {
    EndHole();
    if (holes_ > kMostHolesTold) {
      console_.Say("and " + std::to_string(holes_ - kMostHolesTold) +
                   " more; samples.jsonl names them all");
    }
    RunFacts& facts = facts_.Facts();
    TellOfBoards();
    facts_.Finish(timed_ == facts.counts.done);
    samples_->Finish();
    times_->Finish();
    WriteReport();
    const bool isWhole = facts.counts.done == plan_.inferences;
    const bool differs = report_.notDeterministic > 0 || !inDoubt_.empty();
    const ExitStatus status = FirstOf(isWhole ? ExitStatus::kDone : ExitStatus::kPartial,
                                      differs ? ExitStatus::kDiffers : ExitStatus::kDone);
    facts.state = RunState::kDone;
    facts.status = static_cast<int>(status);
    if (!facts.endRealtimeNs) facts.endRealtimeNs = RealtimeNs();
    WriteRun();
    Summarise(facts);
    return status;
  }

  void TellOfBoards() {
    uint64_t inDoubt = 0;
    std::string unchecked;
    uint64_t uncheckedBoards = 0;
    for (auto& [name, board] : boards_) {
      board.samplesPerSecond = boardTimes_.SamplesPerSecond(name);
      inDoubt += board.inDoubt;
      if (board.isChecked || board.samples == 0 || plan_.crossCheck.empty()) continue;
      if (uncheckedBoards++ < kMostLinesTold)
        unchecked += (unchecked.empty() ? "" : ", ") + Quoted(name);
    }
    if (inDoubt > 0) {
      Warn("samples-in-doubt", inDoubt, "are from boards that disagree with the others");
    }
    if (uncheckedBoards > 0) {
      Warn("board-not-checked", uncheckedBoards,
           "nothing compares these boards with the others: " + unchecked +
               (uncheckedBoards > kMostLinesTold ? ", ..." : ""));
    }
  }

  void WriteReport() {
    report_.fleet = plan_.id;
    report_.crossCheck = plan_.crossCheck;
    for (const auto& [name, board] : boards_) report_.boards.push_back(board);
    WriteWholeFile(Path(kBoardReportFile), ToJson(report_));
  }

  void Summarise(const RunFacts& facts) {
    for (const RunWarning& warning : facts.warnings) {
      console_.Say("warning " + warning.id + ", " + Counted(warning.count, "time") + ": " +
                   warning.message);
    }
    std::string text = Quoted(request_.run) + " has " + std::to_string(facts.counts.done) + " of " +
                       Counted(plan_.inferences, "inference");
    const auto add = [&](uint64_t count, const char* what) {
      if (count > 0) text += ", " + std::to_string(count) + " " + what;
    };
    add(facts.counts.failed, "failed");
    add(facts.counts.aside, "put aside");
    add(facts.counts.missing, "not run");
    console_.Say(text);
    if (facts.counts.done == plan_.inferences) return;
    console_.Say(
        "what is missing is run by: " + QuotedCommand({"vorn", "fleet", "resume", request_.fleet}) +
        "; then merge once more");
  }

  // Nothing says "running" that does not.
  void Abandon(const Fault& fault) {
    try {
      facts_.Facts().state = RunState::kFailed;
      facts_.Facts().status = static_cast<int>(fault.Status());
      WriteRun();
    } catch (const Fault&) {
      // The first fault is the one to tell of.
    }
  }

  void WriteRun() { WriteWholeFile(Path(kRunFile), ToJson(facts_.Facts())); }
  void Warn(const std::string& id, uint64_t count, const std::string& message) {
    facts_.Warn(id, count, message);
  }
  [[nodiscard]] std::string Path(const std::string& name) const { return folder_.Path(name); }

  const MergeRequest& request_;
  Console& console_;
  const FleetPlan plan_;
  const RunFolder folder_;
  MergedFacts facts_;
  FleetState state_;
  BoardTimes boardTimes_;
  std::map<std::pair<uint64_t, uint64_t>, NotedAttempt> notedOfChunks_;  // chunk, attempt
  std::map<std::pair<std::string, uint64_t>, NotedAttempt> notedOfBoards_;
  std::map<std::string, MergedBoard> boards_;
  std::map<std::string, std::vector<std::string>> checks_;  // by board: OutputsHash of each
  std::vector<std::string> agreed_;                         // the same that most boards have
  std::set<std::string> inDoubt_;
  std::optional<WholeFile> samples_;
  std::optional<WholeFile> times_;
  SampleRecord before_;
  std::optional<Hole> hole_;
  uint64_t holes_ = 0;
  uint64_t timed_ = 0;
  BoardReport report_;
  std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
};

}  // namespace

ExitStatus MergeFleet(const MergeRequest& request, Console& console) {
  return Merger(request, console).Merge();
}

}  // namespace vorn::kit
