#include "kit/report/run_facts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "kit/judge/inside.h"
#include "kit/model/model_json.h"
#include "kit/report/answer.h"
#include "kit/report/bounds.h"
#include "kit/report/contradictions.h"
#include "kit/report/detail.h"
#include "kit/report/fault_kinds.h"
#include "kit/report/findings.h"
#include "kit/report/fleet_facts.h"
#include "kit/report/judgement.h"
#include "kit/report/places.h"
#include "kit/report/run_times.h"
#include "kit/report/trace_facts.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostModelBytes = 256 << 20;
constexpr uint64_t kMostCounted = 1 << 26;  // samples

std::string FileNameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string WithoutSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

// The value that stands behind an option in a command line.
std::vector<std::string> OptionValues(const std::vector<std::string>& command,
                                      std::string_view option) {
  std::vector<std::string> values;
  for (size_t i = 0; i < command.size(); ++i) {
    const std::string_view word = command[i];
    if (word == option && i + 1 < command.size()) values.push_back(command[i + 1]);
    if (word.starts_with(option) && word.size() > option.size() && word[option.size()] == '=') {
      values.emplace_back(word.substr(option.size() + 1));
    }
  }
  return values;
}

// ---- The parts, one after the other -------------------------------------------------------------

class Gathering {
 public:
  Gathering(const RunPlace& place, size_t details) : place_(place), most_(details) {}

  ReportRun Run() {
    run_.path = place_.given;
    run_.facts = ReadRun(place_.run);
    run_.precision = PrecisionIn(run_.facts.standardError);
    told_ = OptionValues(run_.facts.command, "--run");
    TellState();
    LookForProgram();
    TakeModel();
    TakeJudgement();
    TakeUndone();
    TellOfRepeated();
    TakeTimes();
    TakeMachine();
    TakeTrace();
    TakeFindings();
    TakeFleet();
    TakeWarnings();
    TakeCommands();
    TakeDetoursOut();
    run_.contradictions = ContradictionsOf(run_, doneSamples_);
    BoundRun(run_);
    run_.answer = AnswerOf(run_);
    return std::move(run_);
  }

 private:
  using Kind = ReportRemark::Kind;

  void Remark(Kind kind, const std::string& text) { run_.remarks.push_back({kind, "", 0, text}); }

  [[nodiscard]] std::string File(const char* name) const { return place_.run + "/" + name; }

  // Takes what a part of the run tells; what is wrong with it becomes a remark.
  template <typename Take>
  void Try(Take take) {
    try {
      take();
    } catch (const Fault& fault) {
      Remark(Kind::kWarning, fault.what());
    }
  }

  // The lines of a file as far as they can be read.
  template <typename Parse>
  auto LinesOf(const char* name, const std::string& what, Parse parse) {
    std::vector<decltype(parse(std::string_view()))> records;
    try {
      ForEachLine(File(name), what, ExitStatus::kInput,
                  [&](std::string_view line) { records.push_back(parse(line)); });
    } catch (const Fault& fault) {
      Remark(Kind::kWarning, std::string(fault.what()) + "; what stands before is shown");
    }
    return records;
  }

  void TellState() {
    const RunFacts& facts = run_.facts;
    switch (facts.state) {
      case RunState::kRunning:
        Remark(Kind::kWarning,
               "the run has not ended, or was killed: its run.json says \"running\"");
        break;
      case RunState::kInterrupted:
        Remark(Kind::kWarning, "the run was interrupted; vorn launch --resume goes on with it");
        break;
      case RunState::kFailed:
        Remark(Kind::kWarning,
               "the run failed" +
                   (facts.signal ? ": " + *facts.signal + " ended the program" : std::string()));
        break;
      case RunState::kDone:
        break;
    }
  }

  [[nodiscard]] ModelDescription ReadModel() const {
    const std::string path = File(kModelFile);
    const std::string text =
        ReadWholeFile(path, "the model's description", ExitStatus::kInput, kMostModelBytes);
    try {
      return FromJson(text);
    } catch (const Fault& fault) {
      throw Fault(ExitStatus::kInput,
                  "the model's description " + Quoted(path) + ": " + fault.what());
    }
  }

  void TakeTensors(const std::vector<TensorDescription>& tensors) {
    for (const TensorDescription& tensor : tensors) {
      if (run_.tensors.size() == kMostReportTensors) return;
      run_.tensors.push_back({std::string(RoleName(tensor.role)), tensor.name,
                              tensor.type ? TypeName(*tensor.type) : "",
                              kit::ShapeText(tensor.shape),
                              tensor.format ? FormatName(*tensor.format) : ""});
    }
  }

  void TakeModel() {
    if (!IsThere(File(kModelFile))) {
      return Remark(Kind::kMissing, "there is no model.json: shapes and types are not known");
    }
    Try([&] {
      const ModelDescription model = ReadModel();
      TakeTensors(model.inputs);
      TakeTensors(model.outputs);
    });
  }

  // ---- Verdict ----------------------------------------------------------------------------------

  void TakeJudgement() {
    if (!IsThere(place_.verdict)) {
      return Remark(Kind::kMissing, "there is no verdict: vorn judge " +
                                        QuotedCommand({place_.run}) + " --expected PATH makes one");
    }
    Try([&] {
      KeptJudgement kept = ReadJudgement(place_.verdict);
      told_.push_back(kept.facts.actual);
      const Places places(place_.run, told_);
      const auto choices = ChooseDetails(kept.facts, most_);
      run_.detailsRule = DetailsRule(kept.facts);
      run_.details = MakeDetails({place_.run, &kept, &places}, choices);
      run_.judgement = std::move(kept.facts);
      TellOfOldVerdict();
      TellOfColumns();
    });
  }

  // A verdict about the run that was there before.
  void TellOfOldVerdict() {
    constexpr uint64_t kSecondNs = 1000000000;
    struct stat about {};
    if (!run_.facts.endRealtimeNs || stat(place_.verdict.c_str(), &about) != 0) return;
    const uint64_t madeNs =
        static_cast<uint64_t>(std::max<time_t>(about.st_mtim.tv_sec, 0)) * kSecondNs +
        static_cast<uint64_t>(about.st_mtim.tv_nsec);
    if (madeNs >= *run_.facts.endRealtimeNs) return;
    Remark(Kind::kWarning,
           "the verdict is older than the end of the run, and may be about another one; vorn judge "
           "makes a new one");
  }

  void TellOfColumns() {
    uint64_t samplesPerRow = 1;
    bool areMissing = false;
    for (const ReportOutput& output : run_.judgement->outputs) {
      samplesPerRow = std::max(samplesPerRow, output.columns.samplesPerRow);
      areMissing = areMissing || (output.samples > 0 && output.columns.sample.empty());
    }
    if (samplesPerRow > 1) {
      Remark(Kind::kNote, "there are " + std::to_string(run_.judgement->samples) +
                              " samples: differences over them are a summary, in which each row "
                              "is the worst of " +
                              std::to_string(samplesPerRow) + " neighbours");
    }
    if (areMissing) {
      Remark(
          Kind::kMissing,
          "the verdict is of an older version and has no differences by sample; vorn judge makes a "
          "new one");
    }
  }

  // ---- Samples ----------------------------------------------------------------------------------

  static std::string StatusText(SampleStatus status) {
    if (status == SampleStatus::kFailed) return "failed";
    return status == SampleStatus::kAside ? "aside" : "missing";
  }

  // While a run goes on, a sample may stand there several times, of which the last one counts.
  void TakeUndone() {
    if (!IsThere(File(kSamplesFile))) {
      return Remark(Kind::kMissing, "there is no samples.jsonl: single samples are not known");
    }
    std::map<uint64_t, ReportUndone> undone;
    std::vector<bool> areDone;
    bool areCounted = run_.facts.state == RunState::kDone;
    Try([&] {
      const bool isWanted = std::exchange(areCounted, false);
      bool areKnown = true;
      ForEachLine(File(kSamplesFile), "the samples of the run", ExitStatus::kInput,
                  [&](std::string_view line) {
                    const SampleFront front = TakeSample(line, undone);
                    // An index that a damaged file tells may be anything.
                    areKnown = areKnown && front.index < kMostCounted;
                    if (!isWanted || !areKnown) return;
                    if (areDone.size() <= front.index) areDone.resize(front.index + 1);
                    areDone[front.index] = front.isDone;
                  });
      areCounted = isWanted && areKnown;
    });
    if (areCounted) {
      doneSamples_ = static_cast<uint64_t>(std::count(areDone.begin(), areDone.end(), true));
    }
    for (auto& [index, one] : undone) run_.undone.push_back(std::move(one));
  }

  static SampleFront TakeSample(std::string_view line, std::map<uint64_t, ReportUndone>& undone) {
    if (const auto front = FrontOfSample(line); front && front->isDone) {
      undone.erase(front->index);
      return *front;
    }
    const SampleRecord record = SampleFromLine(line);
    const SampleFront front{record.index, record.status == SampleStatus::kDone};
    undone.erase(record.index);
    if (front.isDone || undone.size() == kMostReportUndone) return front;
    ReportUndone& one = undone[record.index];
    one.sample = record.index;
    one.status = StatusText(record.status);
    one.reason = record.reason.value_or("");
    for (const SampleInput& input : record.inputs) one.inputs.push_back(input.path);
    return front;
  }

  // The run warns of outputs that are those of the inference before without knowing what was
  // expected. A verdict knows.
  void TellOfRepeated() {
    const auto& warnings = run_.facts.warnings;
    const bool isWarned =
        std::any_of(warnings.begin(), warnings.end(),
                    [](const RunWarning& warning) { return warning.id == kRepeatedWarning; });
    if (!isWarned || !run_.judgement) return;
    std::set<uint64_t> wrong;
    for (const ReportOutput& output : run_.judgement->outputs) {
      if (output.wrong.size() < output.wrongSamples || !output.notJudged.empty()) return;
      for (const ReportFault& fault : output.wrong) wrong.insert(fault.sample);
    }
    uint64_t repeated = 0;
    std::vector<uint64_t> wrongOnes;
    SampleRecord before;
    Try([&] {
      ForEachLine(File(kSamplesFile), "the samples of the run", ExitStatus::kInput,
                  [&](std::string_view line) {
                    SampleRecord record = SampleFromLine(line);
                    if (IsRepeated(before, record)) {
                      ++repeated;
                      if (wrong.count(record.index) > 0) wrongOnes.push_back(record.index);
                    }
                    before = std::move(record);
                  });
    });
    if (repeated == 0) return;
    repeatedText_ = RepeatedByVerdict(repeated, wrongOnes);
    isRepeatedRight_ = wrongOnes.empty();
  }

  static std::string RepeatedByVerdict(uint64_t repeated, const std::vector<uint64_t>& wrong) {
    const uint64_t right = repeated - wrong.size();
    return Counted(repeated, "sample") + (repeated == 1 ? " has" : " have") +
           ", byte for byte, the outputs of the one before, and other inputs; by the verdict " +
           (wrong.empty() ? "all of them are right: the answers are the same"
            : right == 0  ? SamplesText(wrong) + (wrong.size() == 1 ? " is" : " are") + " wrong"
                          : std::to_string(right) + " of them " + (right == 1 ? "is" : "are") +
                               " right, the answers being the same, and " + SamplesText(wrong) +
                               (wrong.size() == 1 ? " is wrong" : " are wrong")) +
           (wrong.empty() ? "" : ", of which the answer on top says what fits");
  }

  // ---- Times, machine, trace --------------------------------------------------------------------

  void TakeTimes() {
    run_.times.phases = PhasesOf(run_.facts.phases, run_.times.wholeNs);
    if (!IsThere(File(kTimesFile))) {
      return Remark(Kind::kMissing, "there is no times.jsonl: no execution was timed");
    }
    const auto records = LinesOf(kTimesFile, "the times of the run", TimesFromLine);
    Try([&] { run_.times.series = SeriesOf(records, run_.facts.startRealtimeNs); });
    if (run_.times.series.empty()) Remark(Kind::kMissing, "no execution was timed");
  }

  void TakeMachine() {
    if (!IsThere(File(kMachineFile))) {
      return Remark(Kind::kMissing,
                    "there is no machine.jsonl: memory, frequencies and temperatures are not "
                    "known");
    }
    const auto moments = LinesOf(kMachineFile, "what the machine was like", MachineFromLine);
    if (moments.empty()) return;
    run_.machine = MachineOf(moments, run_.facts.startRealtimeNs);
    if (!isProgramSeen_) return ForgetMemory();
    if (!IsMemoryOfARun()) {
      ForgetMemory();
      Remark(Kind::kMissing,
             "the program's memory was read before its first execution alone, where it is not yet "
             "what the run takes");
    }
  }

  void ForgetMemory() {
    for (auto& bytes : run_.machine->rssBytes) bytes.reset();
  }

  // Whether any reading is of a program that executes; where no moment of that is known, all are.
  [[nodiscard]] bool IsMemoryOfARun() const {
    uint64_t first = UINT64_MAX;
    for (const ReportSeries& series : run_.times.series) {
      for (const uint64_t start : series.startNs) {
        if (start > 0) first = std::min(first, start);
      }
    }
    if (first == UINT64_MAX) return true;
    const ReportMachine& machine = *run_.machine;
    bool isAny = false;
    for (size_t i = 0; i < machine.atNs.size(); ++i) {
      if (!machine.rssBytes[i]) continue;
      if (machine.atNs[i] >= first) return true;
      isAny = true;
    }
    return !isAny;
  }

  // The process that is looked at may be a script that runs the program, or still begin: the
  // libraries and the memory of that would pass for those of the program.
  void LookForProgram() {
    std::vector<MappedFile>& mapped = run_.facts.mapped;
    const auto& program = run_.facts.program;
    const bool isScript = program && FileNameOf(program->path) != "vorn-run";
    const bool isAnyKnown = !mapped.empty() || isScript;
    isProgramSeen_ =
        !isAnyKnown || std::any_of(mapped.begin(), mapped.end(), [](const MappedFile& file) {
          return FileNameOf(file.path).starts_with("libvorn.so");
        });
    if (isProgramSeen_) return;
    mapped.clear();
    Remark(Kind::kMissing,
           "the process that was looked at had no libvorn.so, as a script that runs the program, "
           "or one that has just begun: libraries and memory of the program are not known");
  }

  void TakeTrace() {
    if (!IsThere(File(kTraceFile))) {
      return Remark(Kind::kMissing,
                    "there is no trace: a run in chunks keeps none, and vorn launch --no-trace "
                    "makes none");
    }
    Try([&] { run_.trace = ReadTraceFacts(File(kTraceFile)); });
    if (run_.trace) run_.trace->beganNs = SinceStartOf(run_.facts, *run_.trace);
  }

  void TakeFindings() {
    run_.areFindingsKnown = IsThere(File(kFindingsFile));
    if (!run_.areFindingsKnown) return;
    Try([&] {
      ForEachLine(File(kFindingsFile), "the findings", ExitStatus::kInput,
                  [&](std::string_view line) {
                    if (run_.findings.size() == kMostReportFindings) {
                      ++run_.findingsLeftOut;
                    } else {
                      run_.findings.push_back(FindingFromLine(line));
                    }
                  });
    });
  }

  void TakeFleet() {
    if (IsThere(File(kBoardsFile))) {
      Try([&] { run_.fleet = ReadFleetFacts(File(kBoardsFile)); });
    } else if (run_.facts.fleet) {
      Remark(Kind::kMissing, "there is no boards.json: what each board did is not known");
    }
  }

  // Those of the run first.
  void TakeWarnings() {
    std::vector<ReportRemark> all;
    for (const RunWarning& warning : run_.facts.warnings) {
      if (warning.id == kRepeatedWarning && !repeatedText_.empty()) {
        // What the verdict has cleared is no warning any more.
        all.push_back(
            {isRepeatedRight_ ? Kind::kNote : Kind::kWarning, warning.id, 0, repeatedText_});
        continue;
      }
      all.push_back({Kind::kWarning, warning.id, warning.count, warning.message});
    }
    for (const Kind kind : {Kind::kWarning, Kind::kMissing, Kind::kNote}) {
      for (ReportRemark& remark : run_.remarks) {
        if (remark.kind == kind) all.push_back(std::move(remark));
      }
    }
    run_.remarks = std::move(all);
  }

  // ---- Commands ---------------------------------------------------------------------------------

  void Command(const char* purpose, const std::vector<std::string>& words) {
    run_.commands.push_back({purpose, QuotedCommand(words)});
  }

  // What was typed counts its paths from the folder where that was, if it is known and another one.
  void ToldCommand(const char* purpose, std::vector<std::string> words) {
    for (std::string& word : words) {
      if (word.find("..") != std::string::npos) word = WithoutDetours(word);
    }
    const std::string folder = Places(place_.run, told_).Folder();
    const bool isHere = folder.empty() || Absolute(folder) == Absolute(".");
    run_.commands.push_back(
        {purpose, (isHere ? "" : "cd " + QuotedCommand({folder}) + " && ") + QuotedCommand(words)});
  }

  // A run is never made over another one.
  std::vector<std::string> CommandForAnother() const {
    std::vector<std::string> words;
    for (const std::string& word : run_.facts.command) {
      if (word == "--resume") continue;
      const bool isRun = !words.empty() && words.back() == "--run";
      const bool isOne = word.starts_with("--run=");
      words.push_back(isRun || isOne ? WithoutSlashes(word) + ".again" : word);
    }
    return words;
  }

  void TakeCommands() {
    constexpr const char* kJudgeOnceMore = "judge the same outputs once more, without a run";
    if (!run_.facts.command.empty())
      ToldCommand("run the same once more, into a folder beside this one", CommandForAnother());
    if (run_.judgement && !run_.judgement->command.empty()) {
      ToldCommand(kJudgeOnceMore, run_.judgement->command);
    } else if (run_.judgement) {
      Command(kJudgeOnceMore,
              {"vorn", "judge", place_.run, "--expected", run_.judgement->expected});
    }
    if (!run_.times.series.empty()) Command("show its times", {"vorn", "timing", place_.run});
    if (run_.trace) {
      Command("show its calls", {"vorn", "trace", "--read", File(kTraceFile)});
      Command("make a file of the calls for a viewer",
              {"vorn", "convert", File(kTraceFile), "-o", place_.run + ".pftrace"});
    }
    Command("make this page anew", {"vorn", "report", place_.given, "-o", "report.html"});
  }

  // ---- Paths ------------------------------------------------------------------------------------

  // As a person would give it: from here on what lies below, else from the root on.
  static void Straighten(std::string& path) {
    if (path.find("..") != std::string::npos) path = WithoutDetours(path);
    const std::string here = Absolute(".") + "/";
    if (path.starts_with(here)) path.erase(0, here.size());
  }

  void TakeDetoursOut() {
    RunFacts& facts = run_.facts;
    Straighten(facts.model.path);
    for (auto* file : {&facts.configuration, &facts.list, &facts.runtime, &facts.program}) {
      if (*file) Straighten((*file)->path);
    }
    if (run_.judgement) {
      Straighten(run_.judgement->actual);
      Straighten(run_.judgement->expected);
      if (run_.judgement->floor) Straighten(run_.judgement->floor->path);
    }
    for (ReportDetail& detail : run_.details) {
      Straighten(detail.actualPath);
      Straighten(detail.expectedPath);
      for (std::string& input : detail.inputs) Straighten(input);
      for (ReportPicture& picture : detail.pictures) Straighten(picture.name);
    }
    for (ReportUndone& undone : run_.undone) {
      for (std::string& input : undone.inputs) Straighten(input);
    }
  }

  const RunPlace& place_;
  size_t most_;
  std::vector<std::string> told_;        // how the run's own files call it
  std::optional<uint64_t> doneSamples_;  // by samples.jsonl
  bool isProgramSeen_ = true;
  std::string repeatedText_;  // what the verdict says of a warning; empty: nothing
  bool isRepeatedRight_ = false;
  ReportRun run_;
};

}  // namespace

std::vector<RunPlace> FindRuns(const std::string& path) {
  const std::string folder = WithoutSlashes(path);
  const auto has = [&](const std::string& name) { return IsThere(folder + "/" + name); };
  if (has(kRunFile)) return {{folder, VerdictPathOf(folder), path, ""}};
  if (has(kQualifyFile)) {
    if (!has(std::string(kDeviceFolder) + "/" + kRunFile)) {
      throw Fault(ExitStatus::kInput, Quoted(path) +
                                          " is a qualification whose device did not run; its "
                                          "qualify.json tells how each step ended");
    }
    return {{folder + "/" + kDeviceFolder, folder + "/" + kVerdictFile, path, ""}};
  }
  if (has(std::string("A/") + kRunFile) && has(std::string("B/") + kRunFile)) {
    const std::string turns = has(kTimesFile) ? folder + "/" + kTimesFile : "";
    std::vector<RunPlace> places;
    for (const char* name : {"/A", "/B"}) {
      const std::string run = folder + name;
      places.push_back({run, VerdictPathOf(run), run, turns});
    }
    return places;
  }
  // What lies in it cannot be asked for then.
  const bool isClosed = faccessat(AT_FDCWD, (folder + "/.").c_str(), X_OK, AT_EACCESS) != 0;
  if (isClosed && errno == EACCES) {
    throw Fault(ExitStatus::kInput, Quoted(path) + " cannot be read: " + SystemReason(errno));
  }
  throw Fault(
      ExitStatus::kInput,
      Quoted(path) +
          (IsThere(folder) ? " is no run directory: there is no run.json in it" : " is not there") +
          "; name a folder that vorn launch, vorn qualify or vorn fleet has made");
}

ReportRun GatherRun(const RunPlace& place, size_t details) {
  return Gathering(place, details).Run();
}

void HoldToOtherFile(const std::string& output, const RunPlace& place) {
  std::vector<std::string> files{place.verdict};
  if (!place.turns.empty()) files.push_back(place.turns);
  for (const char* name : {kRunFile, kModelFile, kSamplesFile, kTimesFile, kMachineFile, kLogFile,
                           kErrorsFile, kTraceFile, kFindingsFile, kBoardsFile}) {
    files.push_back(place.run + "/" + name);
  }
  for (const std::string& file : files) {
    if (!IsSameFile(output, file)) continue;
    throw Fault(ExitStatus::kUsage,
                "--output " + Quoted(output) + " is a file of the run; name another one");
  }
}

}  // namespace vorn::kit
