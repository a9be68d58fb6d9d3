// What is done counts once its line stands in samples.jsonl, which is written behind its dumps: a
// launch that is killed at any moment has lost the job that ran, and nothing else.
#include "kit/launch/launch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/launch/dumps.h"
#include "kit/launch/execution_times.h"
#include "kit/launch/job.h"
#include "kit/launch/left_job.h"
#include "kit/launch/libraries.h"
#include "kit/launch/machine.h"
#include "kit/launch/run_folder.h"
#include "kit/model/model_json.h"
#include "kit/model/run_log.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostAsideInARow = 20;
constexpr size_t kMostKeptInputs = 64;
constexpr size_t kMostStandardError = 16 * 1024;
constexpr uint64_t kMostLogBytes = 256 << 20;
constexpr size_t kMostNamed = 5;  // samples that a summary names
constexpr size_t kLogPieceBytes = 256 * 1024;

constexpr const char* kProgramEnd = "program-end";
constexpr const char* kRepeated = "output-repeated";
constexpr const char* kNotTraced = "not-traced";
constexpr const char* kDropped = "calls-dropped";

// Identities of files that many inferences share.
class InputFiles {
 public:
  FileIdentity Identify(const std::string& path) {
    if (const auto known = known_.find(path); known != known_.end()) return known->second;
    FileIdentity file{.path = path, .sizeBytes = {}, .xxh3 = {}};
    try {
      file = IdentifyFile(path, "the input", ExitStatus::kInput);
    } catch (const Fault&) {
      // It was not there for the program either.
    }
    if (known_.size() >= kMostKeptInputs) known_.clear();
    known_[path] = file;
    return file;
  }

 private:
  std::map<std::string, FileIdentity> known_;
};

class Launcher {
 public:
  Launcher(const LaunchRequest& request, Plan plan, Console& console, StopSignals& signals)
      : request_(request),
        plan_(std::move(plan)),
        console_(console),
        signals_(signals),
        folder_(request.run, request.isResumed) {}

  // After a Fault of any of these: Abandon. First Begin, then, unless it is over, each chunk, then
  // End.
  void Begin() {
    BeginFolder();
    hasRun_ = !isOver_;
  }

  [[nodiscard]] uint64_t Chunks() const {
    const uint64_t size = request_.chunk.value_or(plan_.inferences);
    // Where nothing is known to do, the program decides what it does with the list.
    return plan_.inferences == 0 ? 1 : (plan_.inferences - 1) / size + 1;
  }

  void RunChunk(uint64_t chunk) {
    if (plan_.inferences == 0) {
      RunPart(chunk, {});
      return;
    }
    const uint64_t size = request_.chunk.value_or(plan_.inferences);
    std::vector<uint64_t> indices;
    for (uint64_t i = chunk * size; i < std::min((chunk + 1) * size, plan_.inferences); ++i) {
      if (!isDone_[i]) indices.push_back(i);
    }
    while (!indices.empty() && !isOver_) indices = RunPart(chunk, std::move(indices));
  }

  [[nodiscard]] bool IsOver() const { return isOver_; }

  // For a reason that lies elsewhere.
  void Stop() { isOver_ = true; }

  ExitStatus End() {
    if (hasRun_) {
      Finish();
    } else {
      Leave();
    }
    isEnded_ = true;
    return status_;
  }

  // Nothing says "running" that does not.
  void Abandon(const Fault& fault) {
    if (!isBegun_ || isEnded_) return;  // what is there is another run's, or is told already
    facts_.state = RunState::kFailed;
    facts_.status = static_cast<int>(fault.Status());
    facts_.endRealtimeNs = RealtimeNs();
    try {
      WriteRun();
    } catch (const Fault&) {
      // The first fault is the one to tell of.
    }
  }

 private:
  // ---- The beginning ----------------------------------------------------------------------------

  void BeginFolder() {
    began_ = std::chrono::steady_clock::now();
    if (request_.limit) deadline_ = began_ + *request_.limit;
    facts_.command = request_.command;
    facts_.version = request_.version;
    facts_.options.emplace();
    for (const std::string& word : OptionsOf(request_)) facts_.options->push_back(Printable(word));
    facts_.model = plan_.model.model;
    facts_.configuration = plan_.model.configuration;
    facts_.list = plan_.list;
    facts_.runtime = plan_.model.runtime;
    facts_.mapped = plan_.libraries;
    facts_.machine = DescribeMachine();
    facts_.startRealtimeNs = RealtimeNs();
    isDone_.assign(plan_.inferences, false);
    // Before anything else: a folder with it is known to be a run.
    if (!folder_.Before()) WriteRun();
    samples_.emplace(folder_.Path(kSamplesFile));
    times_.emplace(folder_.Path(kTimesFile));
    moments_.emplace(folder_.Path(kMachineFile));
    isBegun_ = !folder_.Before();
    if (folder_.Before()) GoOn(*folder_.Before());
    if (isOver_) return;
    RemoveTree(folder_.Path(kChunksFolder));
    MakeFolders(folder_.Path(kDumpsFolder));
    if (plan_.isModelKnown) WriteWholeFile(folder_.Path(kModelFile), ToJson(plan_.model));
    WriteRun();
  }

  static std::string Named(const std::vector<std::string>& options) {
    return options.empty() ? "no options of vorn-run" : "'" + QuotedCommand(options) + "'";
  }

  // What is there stays where it is of the same files and verifies.
  void GoOn(const RunFacts& before) {
    const auto compare = [&](const FileIdentity& was, const FileIdentity& is, const char* what) {
      if (was.xxh3 == is.xxh3) return;
      throw Fault(ExitStatus::kUsage, Quoted(request_.run) + " was begun with another " + what +
                                          " (" + Quoted(was.path) +
                                          "); name another folder with --run");
    };
    compare(before.model, facts_.model, "model");
    if (before.configuration && facts_.configuration) {
      compare(*before.configuration, *facts_.configuration, "configuration");
    }
    if (before.list && facts_.list) compare(*before.list, *facts_.list, "list");
    if (before.runtime && facts_.runtime) compare(*before.runtime, *facts_.runtime, "runtime");
    if (before.options && before.options != facts_.options) {
      throw Fault(ExitStatus::kUsage, Quoted(request_.run) + " was begun with " +
                                          Named(*before.options) + ", and this is with " +
                                          Named(*facts_.options) +
                                          "; give the same, or name another folder with --run");
    }
    isBegun_ = true;
    facts_.startRealtimeNs = before.startRealtimeNs;
    facts_.counts = before.counts;
    // That of the end is told of the last process, and that of outputs is found again.
    for (const RunWarning& warning : before.warnings) {
      if (warning.id != kProgramEnd && warning.id != kRepeated) facts_.warnings.push_back(warning);
    }
    facts_.phases = before.phases;
    WriteRun();
    ForEachLine(folder_.Path(kSamplesFile), "the samples of the run", ExitStatus::kInput,
                [&](std::string_view line) { TakeSample(SampleFromLine(line)); });
    if (isOver_) return;
    attempts_ = AttemptsBefore();
    const uint64_t recorded = CountDone();
    TakeLeftJobs();
    if (isOver_) return;
    KeepTimesOfDone();
    done_ = CountDone();
    std::string text = "going on with " + std::to_string(done_) + " of " +
                       Counted(plan_.inferences, "inference") + " done";
    if (done_ > recorded) {
      text += ", " + std::to_string(done_ - recorded) + " of them by a process that was cut off";
    }
    console_.Say(text);
  }

  uint64_t CountDone() const {
    return static_cast<uint64_t>(std::count(isDone_.begin(), isDone_.end(), true));
  }

  // Whether it has to end now. Once it has to, it has to.
  bool IsCutOff() {
    const bool isLate = deadline_ && std::chrono::steady_clock::now() > *deadline_;
    isOver_ = isOver_ || isLate || IsStopped();
    return isOver_;
  }

  void TakeSample(const SampleRecord& record) {
    if (record.index >= isDone_.size() || IsCutOff()) return;
    const bool isWhole =
        record.status == SampleStatus::kDone && record.outputs.size() == plan_.model.outputs.size();
    isDone_[record.index] =
        isWhole &&
        std::all_of(record.outputs.begin(), record.outputs.end(), [&](const auto& output) {
          return DoesVerify(request_.run, output, [&] { return !IsCutOff(); });
        });
  }

  // What was looked at of a run that is gone on with is as it was.
  void Leave() {
    const bool wasStopped = signals_.Asked() != 0;
    status_ = wasStopped ? ExitStatus::kPartial : ExitStatus::kLimit;
    facts_.state = wasStopped ? RunState::kInterrupted : RunState::kFailed;
    facts_.status = static_cast<int>(status_);
    facts_.endRealtimeNs = RealtimeNs();
    WriteRun();
    const std::string why =
        wasStopped ? "was stopped"
                   : "ended after " +
                         std::to_string(request_.limit.value_or(std::chrono::seconds(0)).count()) +
                         " s, the time for all (--timeout),";
    console_.Say(why + " while it looked at what is there; nothing was run");
    SayHowToGoOn();
  }

  // ---- A process that was cut off with its launch -----------------------------------------------

  void TakeLeftJobs() {
    for (const LeftJob& left : FindLeftJobs(folder_.Path(kChunksFolder))) {
      uint64_t& most = attempts_[left.chunk];
      most = std::max(most, left.attempt);
      const auto note = ReadJobNote(left.folder, plan_.inferences);
      if (note && note->words == NotedWords(request_)) TakeLeftJob(left, *note);
    }
  }

  // Of what the log says was dumped, what is whole. The rest is run again.
  void TakeLeftJob(const LeftJob& left, const JobNote& note) {
    const Job job{.indices = note.indices,
                  .takesWholeList = false,
                  .folder = left.folder,
                  .log = folder_.Path(kLogFile),
                  .errors = folder_.Path(kErrorsFile),
                  .deadline = {}};
    JobEnd end;
    uint64_t at = note.logAt;
    for (std::string piece; !(piece = ReadFrom(job.log, at, kLogPieceBytes)).empty();) {
      end.log.Take(piece);
      at += piece.size();
    }
    std::string lines;
    const uint64_t dumped = std::min<uint64_t>(end.log.Dumped(), job.indices.size());
    for (uint64_t place = 0; place < dumped && !IsCutOff(); ++place) {
      if (isDone_[job.indices[place]]) continue;
      const std::string folder = LeftDumps(job, place);
      DumpsFound found = Inspect(folder);
      if (found.faults.empty()) {
        lines += ToLine(TakeDumps(job.indices[place], folder, std::move(found)));
      }
    }
    samples_->Append(lines);
    samples_->Sync();
    if (isOver_) return;
    const JobTrace trace = TraceOfJob({.command = {request_.program},
                                       .layer = {},
                                       .output = job.folder + "/" + kTraceFile,
                                       .calls = {}},
                                      note.launcher);
    if (!trace.file.empty()) TakeLeftTimes(job, trace.file, left);
    TakeComplaints(end);
  }

  // The launch may have been killed while it took them over.
  std::string LeftDumps(const Job& job, uint64_t place) const {
    std::string folder = DumpsOf(job) + "/" + std::to_string(place);
    if (SizeOfFile(folder) != 0) return folder;
    return folder_.Path(kDumpsFolder) + "/" + std::to_string(job.indices[place]);
  }

  void TakeLeftTimes(const Job& job, const std::string& trace, const LeftJob& left) {
    std::vector<bool> isTimed(plan_.inferences, false);
    ForEachTimes([&](const TimesRecord& record, std::string_view) {
      const bool isOfJob = record.chunk == left.chunk && record.attempt == left.attempt;
      if (isOfJob && record.index < isTimed.size()) isTimed[record.index] = true;
    });
    try {
      AppendTimes(ReadExecutionTimes(trace), job, left.chunk, left.attempt,
                  [&](uint64_t index) { return isDone_[index] && !isTimed[index]; });
      if (!request_.chunk) MoveFolder(trace, folder_.Path(kTraceFile));
    } catch (const Fault& fault) {
      if (fault.Status() != ExitStatus::kInput) throw;
      Warn(kNotTraced, 1, fault.what());
    }
  }

  void ForEachTimes(
      const std::function<void(const TimesRecord& record, std::string_view line)>& take) const {
    ForEachLine(folder_.Path(kTimesFile), "the times of the run", ExitStatus::kInput,
                [&](std::string_view line) { take(TimesFromLine(line), line); });
  }

  // An inference that is run again is timed again: its last line counts, if it is done.
  void KeepTimesOfDone() {
    std::vector<uint64_t> last(plan_.inferences, 0);  // lines, from 1
    uint64_t lines = 0;
    ForEachTimes([&](const TimesRecord& record, std::string_view) {
      ++lines;
      if (record.index < last.size() && isDone_[record.index]) last[record.index] = lines;
    });
    const auto kept = std::count_if(last.begin(), last.end(), [](uint64_t at) { return at != 0; });
    if (static_cast<uint64_t>(kept) == lines) return;
    WholeFile file(folder_.Path(kTimesFile));
    uint64_t number = 0;
    ForEachTimes([&](const TimesRecord& record, std::string_view line) {
      ++number;
      if (record.index >= last.size() || last[record.index] != number) return;
      file.Append(line);
      file.Append("\n");
    });
    file.Finish();
    times_.emplace(folder_.Path(kTimesFile));
  }

  std::map<uint64_t, uint64_t> AttemptsBefore() const {
    std::map<uint64_t, uint64_t> attempts;
    ForEachTimes([&](const TimesRecord& record, std::string_view) {
      uint64_t& most = attempts[record.chunk];
      most = std::max(most, record.attempt);
    });
    return attempts;
  }

  void WriteRun() { WriteWholeFile(folder_.Path(kRunFile), ToJson(facts_)); }

  // ---- Chunks and jobs --------------------------------------------------------------------------

  // Runs a process over these, and returns what is still to do of them.
  std::vector<uint64_t> RunPart(uint64_t chunk, std::vector<uint64_t> indices) {
    Job job{.indices = std::move(indices),
            .takesWholeList = false,
            .folder = "",
            .log = folder_.Path(kLogFile),
            .errors = folder_.Path(kErrorsFile),
            .deadline = deadline_};
    const bool isAll = job.indices.size() == plan_.inferences;
    job.takesWholeList = isAll && (!request_.chunk || plan_.inferences == 0);
    const uint64_t attempt = ++attempts_[chunk];
    job.folder =
        folder_.Path(kChunksFolder) + "/" + std::to_string(chunk) + "." + std::to_string(attempt);
    const JobEnd end = RunJob(job, request_, plan_, signals_,
                              [this](pid_t pid, const ProgramLog& log) { Look(pid, log); });
    if (!plan_.isModelKnown) LearnModel(job, end);
    TakeTimes(job, end, chunk, attempt);
    std::vector<uint64_t> left = TakeSamples(job, end);
    if (!isToBeTakenOver_) TakeComplaints(end);
    TellOfLeft(end);
    Conclude(job, end, left);
    if (isToBeTakenOver_) {
      RemoveTree(job.folder + "/" + kTraceFile);  // its times were taken
    } else {
      RemoveTree(job.folder);
    }
    WriteRun();
    return left;
  }

  void TellOfLeft(const JobEnd& end) {
    if (end.left.empty()) return;
    const size_t count = end.left.size();
    Warn("left-processes", 1,
         "the program ended and left " +
             (count == 1 ? "a process" : std::to_string(count) + " processes") +
             " of its group running, which " + (count == 1 ? "was" : "were") +
             " ended: " + end.left.front());
  }

  void Look(pid_t pid, const ProgramLog& log) {
    const auto now = std::chrono::steady_clock::now();
    console_.Show({.done = done_ + log.Dumped(),
                   .all = plan_.inferences,
                   .doneHere = doneHere_ + log.Dumped(),
                   .faults = faults_ + log.Faults(),
                   .elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - began_)});
    if (isLookedAt_ && now - lookedAt_ < std::chrono::seconds(1)) return;
    isLookedAt_ = true;
    lookedAt_ = now;
    moments_->Append(ToLine(TakeMoment(pid)));
    for (const std::string& path : MappedLibraries(pid)) {
      const bool isKnown = std::any_of(facts_.mapped.begin(), facts_.mapped.end(),
                                       [&](const MappedFile& file) { return file.path == path; });
      if (!isKnown) facts_.mapped.push_back({.path = path, .buildId = BuildIdOf(path)});
    }
  }

  // Of a model that could not be described, what the program printed of it.
  void LearnModel(Job& job, const JobEnd& end) {
    try {
      TakeModel(plan_, request_,
                ReadRunLog(ReadWholeFile(job.log, "the log", ExitStatus::kInput, kMostLogBytes)));
      WriteWholeFile(folder_.Path(kModelFile), ToJson(plan_.model));
    } catch (const Fault&) {
      plan_.inferences = end.log.Dumped();  // more is not known of it
    }
    isDone_.assign(plan_.inferences, false);
    for (uint64_t i = 0; i < plan_.inferences; ++i) job.indices.push_back(i);
  }

  // ---- What a job left --------------------------------------------------------------------------

  void TakeTimes(const Job& job, const JobEnd& end, uint64_t chunk, uint64_t attempt) {
    if (!end.whyNoTrace.empty()) Warn(kNotTraced, 1, end.whyNoTrace);
    if (end.trace.empty()) return;
    AppendTimes(ReadExecutionTimes(end.trace), job, chunk, attempt, [](uint64_t) { return true; });
    const bool isKept =
        !request_.chunk || end.reason != JobEnd::Reason::kEnded || end.program.status != 0;
    if (isKept) MoveFolder(end.trace, folder_.Path(kTraceFile));
  }

  void AppendTimes(const ExecutionTimes& times, const Job& job, uint64_t chunk, uint64_t attempt,
                   const std::function<bool(uint64_t index)>& isWanted) {
    if (times.dropped > 0) {
      Warn(kDropped, times.dropped, "calls had no room in the trace: times are missing");
    }
    std::string lines;
    const size_t count = std::min(times.inferences.size(), job.indices.size());
    for (size_t i = 0; i < count; ++i) {
      if (!isWanted(job.indices[i])) continue;
      lines += ToLine(TimesRecord{.index = job.indices[i],
                                  .chunk = chunk,
                                  .attempt = attempt,
                                  .host = times.host,
                                  .startRealtimeNs = times.inferences[i].startRealtimeNs,
                                  .executeNs = times.inferences[i].executeNs,
                                  .series = {}});
    }
    times_->Append(lines);
    for (const auto& [phase, duration] : times.phases) facts_.phases[phase] += duration;
    LearnRuntime(times.runtime);
  }

  // Of a program whose loader could not be asked.
  void LearnRuntime(const std::string& path) {
    if (facts_.runtime || path.empty()) return;
    try {
      facts_.runtime = IdentifyFile(path, "the runtime", ExitStatus::kRuntime);
    } catch (const Fault& fault) {
      Warn("runtime-unknown", 1, fault.what());
    }
  }

  // The inferences of the job that are still to do.
  std::vector<uint64_t> TakeSamples(const Job& job, const JobEnd& end) {
    const uint64_t dumped = std::min<uint64_t>(end.log.Dumped(), job.indices.size());
    const bool isAtOne =
        plan_.perInference != 0 && end.log.Begun(plan_.perInference) > end.log.Dumped();
    std::string lines;
    uint64_t resolved = 0;
    // What was not looked at when somebody asks to stop is what a killed launch leaves.
    const bool mayStop = end.reason != JobEnd::Reason::kStopped;
    for (; resolved < dumped && !(mayStop && IsStopped()); ++resolved) {
      const std::string folder = DumpsOf(job) + "/" + std::to_string(resolved);
      lines += ToLine(TakeDumps(job.indices[resolved], folder, Inspect(folder)));
    }
    isToBeTakenOver_ = resolved < dumped;
    const bool isToBlame = resolved == dumped && dumped < job.indices.size() && isAtOne &&
                           end.reason != JobEnd::Reason::kStopped &&
                           end.reason != JobEnd::Reason::kLimit;
    if (isToBlame) lines += ToLine(PutAside(job.indices[resolved++], end));
    asideNow_ = isToBlame;
    samples_->Append(lines);
    samples_->Sync();
    return {job.indices.begin() + static_cast<ptrdiff_t>(resolved), job.indices.end()};
  }

  bool IsStopped() {
    signals_.Wait(std::chrono::milliseconds(0));
    return signals_.Asked() != 0;
  }

  SampleRecord RecordOf(uint64_t index, bool areFilesRead) {
    SampleRecord record{.index = index, .status = {}, .inputs = {}, .outputs = {}, .reason = {}};
    if (!plan_.isModelKnown) return record;
    for (const ListedInput& input : plan_.InputsOf(index)) {
      FileIdentity file{.path = input.file, .sizeBytes = {}, .xxh3 = {}};
      if (areFilesRead) file = inputFiles_.Identify(input.file);
      record.inputs.push_back(
          {.line = input.line, .name = input.name, .path = input.path, .file = std::move(file)});
    }
    return record;
  }

  DumpsFound Inspect(const std::string& folder) const {
    return InspectDumps(folder, plan_.model,
                        {.isTextKept = request_.isTextKept,
                         .areArrays = request_.areArrays,
                         .batch = BatchOf(plan_, request_)});
  }

  SampleRecord TakeDumps(uint64_t index, const std::string& from, DumpsFound found) {
    SampleRecord record = RecordOf(index, true);
    const std::string name = std::string(kDumpsFolder) + "/" + std::to_string(index);
    if (from != folder_.Path(name)) {
      RemoveTree(folder_.Path(name));
      if (SizeOfFile(from) != 0) MoveFolder(from, folder_.Path(name));
    }
    for (SampleOutput& output : found.outputs) {
      output.path = name + "/" + output.path;
      if (output.text) output.text = name + "/" + *output.text;
    }
    record.outputs = std::move(found.outputs);
    record.status = found.faults.empty() ? SampleStatus::kDone : SampleStatus::kFailed;
    if (!found.faults.empty()) {
      record.reason = Joined(found.faults);
      Trouble(record, "failed");
    }
    isDone_[index] = found.faults.empty();
    done_ += found.faults.empty() ? 1 : 0;
    ++doneHere_;
    if (!found.unfit.empty()) {
      Warn("not-finite", 1,
           "outputs hold " + std::to_string(found.nans) + " NaN and " +
               std::to_string(found.infinities) + " infinities, first " +
               Quoted(found.unfit.front()) + " of inference " + std::to_string(index) + " (" +
               PlaceOf(record) + ")");
    }
    return record;
  }

  static std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) joined += (joined.empty() ? "" : "; ") + text;
    return joined;
  }

  std::string PlaceOf(const SampleRecord& record) const {
    if (record.inputs.empty()) return "no line";
    return Printable(request_.list) + ":" + std::to_string(record.inputs.front().line);
  }

  SampleRecord PutAside(uint64_t index, const JobEnd& end) {
    SampleRecord record = RecordOf(index, true);
    const bool isAside = end.program.signal || end.reason != JobEnd::Reason::kEnded;
    record.status = isAside ? SampleStatus::kAside : SampleStatus::kFailed;
    record.reason = DescribeEnd(end, request_);
    Trouble(record, isAside ? "put aside" : "failed");
    return record;
  }

  void Trouble(const SampleRecord& record, const std::string& what) {
    ++troubles_;
    if (troubles_ > kMostNamed) return;
    console_.Say("inference " + std::to_string(record.index) + " (" + PlaceOf(record) + ") " +
                 what + ": " + record.reason.value_or(""));
  }

  void TakeComplaints(const JobEnd& end) {
    faults_ += end.log.Faults();
    for (const auto& [id, complaint] : end.log.Complaints()) {
      const Explanation* known = complaint.explanation;
      std::string message = Printable(complaint.firstLine);
      if (known == nullptr) {
        message += ": not known here";
      } else {
        message += ": " + std::string(known->means) + "; " + std::string(known->advice);
      }
      Warn(id, complaint.count, message);
    }
  }

  void Warn(const std::string& id, uint64_t count, const std::string& message) {
    for (RunWarning& warning : facts_.warnings) {
      if (warning.id != id) continue;
      warning.count += count;
      return;
    }
    facts_.warnings.push_back({.id = id, .count = count, .message = message});
  }

  // ---- What follows of how it ended -------------------------------------------------------------

  void Conclude(const Job& job, const JobEnd& end, const std::vector<uint64_t>& left) {
    const bool isProgress = left.size() < job.indices.size();
    asideInARow_ = asideNow_ && job.indices.size() - left.size() == 1 ? asideInARow_ + 1 : 0;
    if (end.program.signal && end.reason == JobEnd::Reason::kEnded) {
      facts_.signal = SignalName(*end.program.signal);
    }
    if (end.program.status) facts_.programStatus = *end.program.status;
    switch (end.reason) {
      case JobEnd::Reason::kStopped:
        isOver_ = true;
        return;
      case JobEnd::Reason::kLimit:
        Take(ExitStatus::kLimit, "the program " + DescribeEnd(end, request_));
        isOver_ = true;
        return;
      case JobEnd::Reason::kSampleLimit:
        status_ = FirstOf(status_, ExitStatus::kLimit);
        break;
      case JobEnd::Reason::kEnded:
        if (signals_.Asked() == 0) ConcludeEnd(job, end, left);
        break;
    }
    if (signals_.Asked() != 0) isOver_ = true;
    // In one piece is in one piece; and without progress it would end like this again and again.
    if (!request_.chunk || (!left.empty() && !isProgress)) {
      isOver_ = true;
    } else if (asideInARow_ >= kMostAsideInARow) {
      Take(ExitStatus::kRuntime, std::to_string(asideInARow_) +
                                     " inferences one after the other ended the program; the "
                                     "rest would do the same");
      isOver_ = true;
    }
  }

  void ConcludeEnd(const Job& job, const JobEnd& end, const std::vector<uint64_t>& left) {
    const uint64_t resolved = job.indices.size() - left.size();
    const bool isCut = !left.empty() || asideNow_;
    if (end.program.status == 0 && !isCut) return;
    // Of a chunk the sample that did it was named, and the rest goes on.
    if (request_.chunk && asideNow_) return;
    // A log that could not be written tells less than the program did.
    if (end.isDiskFull) {
      Take(ExitStatus::kLimit,
           "the disk of " + Quoted(request_.run) +
               " is full: what was dumped last, and what the program said of it, "
               "is not there; make room and go on with --resume");
      return;
    }
    if (end.program.status == 0) {
      Take(ExitStatus::kRuntime, "the program ended with status 0 after " +
                                     std::to_string(resolved - (asideNow_ ? 1 : 0)) + " of " +
                                     Counted(job.indices.size(), "inference"));
      return;
    }
    const Explanation* cause = end.log.Cause().empty() ? nullptr : Explain(end.log.Cause());
    const auto status =
        end.program.signal || cause == nullptr ? ExitStatus::kRuntime : cause->status;
    if (asideNow_) {
      status_ = FirstOf(status_, status);  // it was said with the sample
      return;
    }
    Take(status, "the program " + DescribeEnd(end, request_));
  }

  void Take(ExitStatus status, const std::string& message) {
    status_ = FirstOf(status_, status);
    Warn(kProgramEnd, 1, message);
    console_.Say(message);
  }

  // ---- The end ----------------------------------------------------------------------------------

  void Finish() {
    const bool wasStopped = signals_.Asked() != 0;
    CompareSamples();
    CompareRuntimes();
    ForgetWhatWasTraced();
    if (!isToBeTakenOver_) RemoveTree(folder_.Path(kChunksFolder));
    const std::string errors = folder_.Path(kErrorsFile);
    const uint64_t size = SizeOfFile(errors);
    facts_.standardError =
        ReadFrom(errors, size - std::min<uint64_t>(size, kMostStandardError), kMostStandardError);
    if (facts_.counts.done < facts_.counts.inferences) {
      status_ = FirstOf(status_, ExitStatus::kPartial);
    }
    facts_.state = wasStopped                                ? RunState::kInterrupted
                   : isOver_ && status_ != ExitStatus::kDone ? RunState::kFailed
                                                             : RunState::kDone;
    facts_.status = static_cast<int>(status_);
    facts_.endRealtimeNs = RealtimeNs();
    WriteRun();
    Summarise();
  }

  // The loader was asked before; only what was mapped is sure.
  void CompareRuntimes() {
    if (!facts_.runtime) return;
    const std::string expected = RealPath(facts_.runtime->path);
    for (const MappedFile& file : facts_.mapped) {
      const std::string name = file.path.substr(file.path.rfind('/') + 1);
      if (!name.starts_with("libvorn.so") || RealPath(file.path) == expected) continue;
      Warn("other-runtime", 1,
           "the program had " + Quoted(file.path) + " and was to have " +
               Quoted(facts_.runtime->path));
    }
  }

  // A process without a trace does not matter any more where another one did what it was to do.
  void ForgetWhatWasTraced() {
    const auto isOfTimes = [](const RunWarning& warning) {
      return warning.id == kNotTraced || warning.id == kDropped;
    };
    auto& warnings = facts_.warnings;
    const bool isThere = std::any_of(warnings.begin(), warnings.end(), isOfTimes);
    if (!isThere || plan_.inferences == 0) return;
    std::vector<bool> isTimed(plan_.inferences, false);
    ForEachTimes([&](const TimesRecord& record, std::string_view) {
      if (record.index < isTimed.size()) isTimed[record.index] = true;
    });
    const bool areTimed = std::find(isTimed.begin(), isTimed.end(), false) == isTimed.end();
    if (areTimed) std::erase_if(warnings, isOfTimes);
  }

  // In the order of the list, so that each can be compared with the one before.
  void CompareSamples() {
    facts_.counts = {};
    facts_.counts.inferences = plan_.inferences;
    SampleRecord before;
    SortSamples(
        folder_.Path(kSamplesFile), plan_.inferences,
        [&](uint64_t index) {
          SampleRecord record = RecordOf(index, false);
          record.status = SampleStatus::kMissing;
          record.reason = "was not run";
          return record;
        },
        [&](const SampleRecord& record) {
          Count(record.status);
          if (IsRepeated(before, record)) {
            Warn(kRepeated, 1,
                 "outputs are those of the inference before, and the inputs are others; first "
                 "inference " +
                     std::to_string(record.index) + " (" + PlaceOf(record) + ")");
          }
          before = record;
        });
  }

  void Count(SampleStatus status) {
    switch (status) {
      case SampleStatus::kDone:
        ++facts_.counts.done;
        break;
      case SampleStatus::kFailed:
        ++facts_.counts.failed;
        break;
      case SampleStatus::kAside:
        ++facts_.counts.aside;
        break;
      case SampleStatus::kMissing:
        ++facts_.counts.missing;
        break;
    }
  }

  static bool IsRepeated(const SampleRecord& before, const SampleRecord& now) {
    const bool areDone = before.status == SampleStatus::kDone &&
                         now.status == SampleStatus::kDone && now.index == before.index + 1;
    if (!areDone || now.outputs.empty() || now.outputs.size() != before.outputs.size())
      return false;
    const bool areSame =
        std::equal(now.outputs.begin(), now.outputs.end(), before.outputs.begin(),
                   [](const auto& one, const auto& other) { return one.xxh3 == other.xxh3; });
    if (!areSame || now.inputs.size() != before.inputs.size()) return false;
    return !std::equal(
        now.inputs.begin(), now.inputs.end(), before.inputs.begin(),
        [](const auto& one, const auto& other) { return one.file.xxh3 == other.file.xxh3; });
  }

  void Summarise() {
    if (troubles_ > kMostNamed) {
      console_.Say("and " + std::to_string(troubles_ - kMostNamed) +
                   " more; samples.jsonl names them all");
    }
    for (const RunWarning& warning : facts_.warnings) {
      if (warning.id == kProgramEnd) continue;
      const Explanation* known = FindById(warning.id);
      if (known != nullptr && known->role == LineRole::kFollows) continue;
      console_.Say("warning " + warning.id + ", " + Counted(warning.count, "time") + ": " +
                   warning.message);
    }
    const SampleCounts& counts = facts_.counts;
    std::string text = Quoted(request_.run) + " has " + std::to_string(counts.done) + " of " +
                       Counted(counts.inferences, "inference");
    const auto add = [&](uint64_t count, const char* what) {
      if (count > 0) text += ", " + std::to_string(count) + " " + what;
    };
    add(counts.failed, "failed");
    add(counts.aside, "put aside");
    add(counts.missing, "not run");
    console_.Say(text);
    if (counts.done != counts.inferences) SayHowToGoOn();
  }

  void SayHowToGoOn() {
    std::vector<std::string> again = request_.command;
    if (std::find(again.begin(), again.end(), "--resume") == again.end()) {
      again.emplace_back("--resume");
    }
    console_.Say("to go on: " + QuotedCommand(again));
  }

  static const Explanation* FindById(const std::string& id) {
    for (const Explanation& explanation : AllExplanations()) {
      if (explanation.id == id) return &explanation;
    }
    return nullptr;
  }

  const LaunchRequest& request_;
  Plan plan_;
  Console& console_;
  StopSignals& signals_;
  RunFolder folder_;
  std::optional<LineFile> samples_;
  std::optional<LineFile> times_;
  std::optional<LineFile> moments_;
  InputFiles inputFiles_;
  RunFacts facts_;
  ExitStatus status_ = ExitStatus::kDone;
  std::vector<bool> isDone_;
  uint64_t done_ = 0;
  uint64_t doneHere_ = 0;
  uint64_t faults_ = 0;
  uint64_t troubles_ = 0;
  uint64_t asideInARow_ = 0;
  bool asideNow_ = false;
  bool isOver_ = false;
  bool isBegun_ = false;          // the run directory is this run's to write to
  bool isToBeTakenOver_ = false;  // a process has dumped what nobody has looked at
  bool hasRun_ = false;           // it came to its first chunk
  bool isEnded_ = false;
  std::map<uint64_t, uint64_t> attempts_;  // by chunk
  SteadyTime began_;
  std::optional<SteadyTime> deadline_;
  bool isLookedAt_ = false;
  SteadyTime lookedAt_;
};

}  // namespace

ExitStatus Launch(const LaunchRequest& request, Plan plan, Console& console) {
  StopSignals signals;
  Launcher launcher(request, std::move(plan), console, signals);
  try {
    launcher.Begin();
    // Of a model that is learned of in the first chunk the list is run in that one.
    const uint64_t chunks = launcher.Chunks();
    for (uint64_t chunk = 0; chunk < chunks && !launcher.IsOver(); ++chunk) {
      launcher.RunChunk(chunk);
    }
    return launcher.End();
  } catch (const Fault& fault) {
    launcher.Abandon(fault);
    throw;
  }
}

ExitStatus LaunchInTurns(const std::array<LaunchRequest, 2>& requests, std::array<Plan, 2> plans,
                         Console& console) {
  StopSignals signals;
  Launcher one(requests[0], std::move(plans[0]), console, signals);
  Launcher other(requests[1], std::move(plans[1]), console, signals);
  try {
    one.Begin();
    other.Begin();
    const auto areOver = [&] { return one.IsOver() || other.IsOver(); };
    for (uint64_t chunk = 0; chunk < one.Chunks() && !areOver(); ++chunk) {
      // Neither of them always comes first.
      const std::array turn{chunk % 2 == 0 ? &one : &other, chunk % 2 == 0 ? &other : &one};
      for (Launcher* launcher : turn) {
        if (!areOver()) launcher->RunChunk(chunk);
      }
    }
    if (areOver()) {
      one.Stop();
      other.Stop();
    }
    const ExitStatus status = one.End();
    return FirstOf(status, other.End());
  } catch (const Fault& fault) {
    one.Abandon(fault);
    other.Abandon(fault);
    throw;
  }
}

std::string QuotedCommand(const std::vector<std::string>& words) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./=+,:@%";
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += ' ';
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
      text += word;
      continue;
    }
    // What would steer a terminal is shown as bash takes it.
    if (const std::string shown = Printable(word); shown != word) {
      text += "$'";
      for (const char c : shown) text += c == '\'' ? std::string("\\'") : std::string(1, c);
      text += '\'';
      continue;
    }
    text += '\'';
    for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    text += '\'';
  }
  return text;
}

}  // namespace vorn::kit
