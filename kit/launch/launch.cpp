// A launch that is killed at any moment has lost what ran, and nothing that was recorded.
#include "kit/launch/launch.h"

#include <unistd.h>

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
#include "kit/launch/execution_times.h"
#include "kit/launch/job.h"
#include "kit/launch/left_job.h"
#include "kit/launch/libraries.h"
#include "kit/launch/lifeline.h"
#include "kit/launch/machine.h"
#include "kit/launch/run_folder.h"
#include "kit/launch/run_report.h"
#include "kit/launch/run_samples.h"
#include "kit/launch/run_times.h"
#include "kit/launch/runtime_words.h"
#include "kit/model/model_json.h"
#include "kit/model/run_log.h"
#include "kit/run/configuration_files.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostAsideInARow = 20;
constexpr size_t kMostStandardError = 16 * 1024;
constexpr size_t kMostErrorsRead = 16 << 20;
constexpr uint64_t kMostLogBytes = 256 << 20;
constexpr size_t kLogPieceBytes = 256 * 1024;

// Throws a Fault of kUsage where a run was begun with something else than it is gone on with.
void CheckSameRun(const std::string& run, const RunFacts& before, const RunFacts& now) {
  const auto compare = [&](const FileIdentity& was, const FileIdentity& is, const char* what) {
    if (was.xxh3 == is.xxh3) return;
    throw Fault(ExitStatus::kUsage, Quoted(run) + " was begun with another " + what + " (" +
                                        Quoted(was.path) + "); name another folder with --run");
  };
  compare(before.model, now.model, "model");
  if (before.configuration && now.configuration) {
    compare(*before.configuration, *now.configuration, "configuration");
  }
  if (before.configurationFiles && before.configurationFiles != now.configurationFiles) {
    throw Fault(ExitStatus::kUsage, Quoted(run) +
                                        " was begun with another file that the configuration "
                                        "names; name another folder with --run");
  }
  if (before.list && now.list) compare(*before.list, *now.list, "list");
  if (before.runtime && now.runtime) compare(*before.runtime, *now.runtime, "runtime");
  if (before.options && before.options != now.options) {
    const auto named = [](const std::vector<std::string>& options) {
      return options.empty() ? "no options of vorn-run" : "'" + QuotedCommand(options) + "'";
    };
    throw Fault(ExitStatus::kUsage, Quoted(run) + " was begun with " + named(*before.options) +
                                        ", and this is with " + named(*now.options) +
                                        "; give the same, or name another folder with --run");
  }
}

// What a script does is not known from its bytes: one that was put in order may be the same to a
// run.
std::string WhyNotSameProgram(const std::string& run, const RunFacts& before, const RunFacts& now) {
  if (!before.program || !now.program || before.program->xxh3 == now.program->xxh3) return "";
  const bool isOfSamePath = before.program->path == now.program->path;
  return Quoted(run) + " was begun with another program (" + Quoted(before.program->path) +
         (isOfSamePath ? ", which has changed" : "; now it is " + Quoted(now.program->path)) + ")";
}

class Launcher {
 public:
  Launcher(const LaunchRequest& request, Plan plan, Console& console, StopSignals& signals)
      : request_(request),
        plan_(std::move(plan)),
        console_(console),
        signals_(signals),
        folder_(request.run, request.isResumed),
        report_(request, console) {}

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
      if (!samples_->AreDone()[i]) indices.push_back(i);
    }
    while (!indices.empty() && !IsTooLate() && !isOver_) {
      indices = RunPart(chunk, std::move(indices));
    }
  }

  [[nodiscard]] bool IsOver() const { return isOver_; }

  // For a reason that lies elsewhere.
  void Stop() { isOver_ = true; }

  // To be called before the first chunk.
  void TellOfLastProcessOnceEnded() { tellsOfLastProcess_ = true; }

  ExitStatus End() {
    if (hasRun_) {
      Finish();
    } else {
      Leave();
    }
    isEnded_ = true;
    return report_.Status();
  }

  // Nothing says "running" that does not.
  void Abandon(const Fault& fault) {
    if (!isBegun_ || isEnded_) return;  // what is there is another run's, or is told already
    try {
      EndAs(RunState::kFailed, fault.Status());
    } catch (const Fault&) {
      // The first fault is the one to tell of.
    }
  }

 private:
  // ---- The beginning ----------------------------------------------------------------------------

  void BeginFolder() {
    began_ = std::chrono::steady_clock::now();
    if (request_.limit) deadline_ = began_ + *request_.limit;
    RunFacts& facts = report_.Facts();
    facts.command = request_.command;
    facts.version = request_.version;
    facts.options.emplace();
    for (const std::string& word : OptionsOf(request_)) facts.options->push_back(Printable(word));
    facts.model = plan_.model.model;
    facts.configuration = plan_.model.configuration;
    facts.configurationFiles = FilesNamedIn(request_.config);
    facts.list = plan_.list;
    facts.runtime = plan_.model.runtime;
    facts.program = plan_.program;
    facts.mapped = plan_.libraries;
    for (MappedFile& file : facts.mapped) {  // as the system tells it of what is mapped
      if (std::string real = RealPath(file.path); !real.empty()) file.path = std::move(real);
    }
    facts.machine = DescribeMachine();
    facts.startRealtimeNs = RealtimeNs();
    // Before anything else: a folder with it is known to be a run.
    if (!folder_.Before()) WriteRun();
    samples_.emplace(request_, plan_, folder_, report_);
    times_.emplace(folder_.Path(kTimesFile));
    moments_.emplace(folder_.Path(kMachineFile));
    isBegun_ = !folder_.Before();
    if (folder_.Before()) GoOn(*folder_.Before());
    if (isOver_) return;
    RemoveTree(folder_.Path(kChunksFolder));
    MakeFolders(folder_.Path(kDumpsFolder));
    if (plan_.isModelKnown) WriteWholeFile(folder_.Path(kModelFile), ToJson(plan_.model));
    report_.Facts().counts = samples_->CountsSoFar(0);
    WriteRun();
  }

  // What is there stays where it is of the same files and verifies.
  void GoOn(const RunFacts& before) {
    CheckSameRun(request_.run, before, report_.Facts());
    RunFacts& facts = report_.Facts();
    const std::string otherProgram = WhyNotSameProgram(request_.run, before, facts);
    if (!otherProgram.empty() && !request_.isAnyway) {
      throw Fault(ExitStatus::kUsage,
                  otherProgram + "; name another folder with --run, or go on with --anyway");
    }
    isBegun_ = true;
    facts.startRealtimeNs = before.startRealtimeNs;
    facts.counts = before.counts;
    if (!facts.runtime) facts.runtime = before.runtime;
    // That of the end is told of the last process, and others are found again.
    for (const RunWarning& warning : before.warnings) {
      const bool isOver = warning.id == kProgramEndWarning || warning.id == kRepeatedWarning ||
                          IsOfRuntimeWords(warning.id);
      if (!isOver) facts.warnings.push_back(warning);
    }
    facts.phases = before.phases;
    if (!otherProgram.empty()) report_.Warn("program-changed", 1, otherProgram);
    WriteRun();
    samples_->TakeBefore([&] { return !IsCutOff(); });
    if (isOver_) return;
    attempts_ = times_->Attempts();
    const uint64_t recorded = samples_->Done();
    facts.counts = samples_->CountsSoFar(0);
    TakeLeftJobs();
    if (isOver_) return;
    times_->KeepLastOf(samples_->AreDone());
    const uint64_t done = samples_->Done();
    std::string text = "going on with " + std::to_string(done) + " of " +
                       Counted(plan_.inferences, "inference") + " done";
    if (done > recorded) {
      text += ", " + std::to_string(done - recorded) + " of them by a process that was cut off";
    }
    console_.Say(text);
  }

  // Whether it has to end now. Once it has to, it has to.
  bool IsCutOff() {
    const bool isLate = deadline_ && std::chrono::steady_clock::now() > *deadline_;
    isOver_ = isOver_ || isLate || IsStopped();
    return isOver_;
  }

  // Processes may all be shorter than what is left of the time.
  bool IsTooLate() {
    if (isOver_ || !IsCutOff() || signals_.Asked() != 0) return isOver_;
    report_.TakeEnd(ExitStatus::kLimit, "ended after " + LimitText());
    return true;
  }

  std::string LimitText() const {
    const auto limit = request_.limit.value_or(std::chrono::seconds(0));
    return std::to_string(limit.count()) + " s, the time for all (--timeout)";
  }

  // What was looked at of a run that is gone on with is as it was.
  void Leave() {
    const bool wasStopped = signals_.Asked() != 0;
    report_.Take(wasStopped ? ExitStatus::kPartial : ExitStatus::kLimit);
    EndAs(wasStopped ? RunState::kInterrupted : RunState::kFailed, report_.Status());
    const std::string why = wasStopped ? "was stopped" : "ended after " + LimitText() + ",";
    console_.Say(why + " while it looked at what is there; nothing was run");
    report_.TellHowToGoOn();
  }

  void EndAs(RunState state, ExitStatus status) {
    report_.Facts().state = state;
    report_.Facts().status = static_cast<int>(status);
    report_.Facts().endRealtimeNs = RealtimeNs();
    WriteRun();
  }

  // ---- A process that was cut off with its launch -----------------------------------------------

  void TakeLeftJobs() {
    for (const LeftJob& left : FindLeftJobs(folder_.Path(kChunksFolder))) {
      uint64_t& most = attempts_[left.chunk];
      most = std::max(most, left.attempt);
      const auto note = ReadJobNote(left.folder, plan_.inferences);
      const bool isOfRun =
          note && note->words == NotedWords(request_) &&
          std::all_of(note->indices.begin(), note->indices.end(),
                      [&](uint64_t index) { return ChunkOf(index) == left.chunk; });
      if (isOfRun) TakeLeftJob(left, *note);
    }
  }

  uint64_t ChunkOf(uint64_t index) const { return request_.chunk ? index / *request_.chunk : 0; }

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
    const uint64_t dumped = std::min<uint64_t>(end.log.Dumped(), job.indices.size());
    for (uint64_t place = 0; place < dumped && !IsCutOff(); ++place) {
      const uint64_t index = job.indices[place];
      if (!samples_->AreDone()[index]) samples_->TakeIfWhole(index, LeftDumps(job, place));
    }
    samples_->Write();
    if (isOver_) return;
    const JobTrace trace = TraceOfJob({.command = {request_.program},
                                       .layer = {},
                                       .output = job.folder + "/" + kTraceFile,
                                       .calls = {}},
                                      note.launcher);
    if (!trace.file.empty()) TakeLeftTimes(job, trace.file, left);
    report_.WarnOfComplaints(end.log);
  }

  // The launch may have been killed while it took them over.
  std::string LeftDumps(const Job& job, uint64_t place) const {
    std::string folder = DumpsOf(job) + "/" + std::to_string(place);
    if (SizeOfFile(folder) != 0) return folder;
    return folder_.Path(kDumpsFolder) + "/" + std::to_string(job.indices[place]);
  }

  void TakeLeftTimes(const Job& job, const std::string& trace, const LeftJob& left) {
    const auto isTimed = times_->Timed(plan_.inferences, [&](const TimesRecord& record) {
      return record.chunk == left.chunk && record.attempt == left.attempt;
    });
    try {
      AppendTimes(ReadExecutionTimes(trace), job, left.chunk, left.attempt,
                  [&](uint64_t index) { return samples_->AreDone()[index] && !isTimed[index]; });
      if (!request_.chunk) MoveFolder(trace, folder_.Path(kTraceFile));
    } catch (const Fault& fault) {
      if (fault.Status() != ExitStatus::kInput) throw;
      report_.Warn(kNotTracedWarning, 1, fault.what());
    }
  }

  void WriteRun() { WriteWholeFile(folder_.Path(kRunFile), ToJson(report_.Facts())); }

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
    uint64_t withoutTexts = 0;
    const JobEnd end =
        RunJob(job, request_, plan_, signals_, [&](pid_t pid, const ProgramLog& log) {
          if (!request_.isTextKept) RemoveTexts(job, log.Dumped(), withoutTexts);
          Look(pid, log);
        });
    if (tellsOfLastProcess_ && IsLastProcess(job, end, chunk)) TellOfLastProcess();
    if (!plan_.isModelKnown) LearnModel(job, end);
    TakeTimes(job, end, chunk, attempt);
    std::vector<uint64_t> left = TakeSamples(job, end);
    if (!isToBeTakenOver_) report_.WarnOfComplaints(end.log);
    report_.WarnOfLeft(end.left);
    Conclude(job, end, left);
    if (isToBeTakenOver_) {
      RemoveTree(job.folder + "/" + kTraceFile);  // its times were taken
    } else {
      RemoveTree(job.folder);
    }
    report_.Facts().counts = samples_->CountsSoFar(0);
    WriteRun();
    return left;
  }

  // Whether the device is needed no more.
  bool IsLastProcess(const Job& job, const JobEnd& end, uint64_t chunk) const {
    return plan_.isModelKnown && !job.indices.empty() && chunk + 1 == Chunks() &&
           end.reason == JobEnd::Reason::kEnded && end.program.status == 0 &&
           end.log.Dumped() >= job.indices.size();
  }

  static void TellOfLastProcess() {
    std::fputs(kLastProcessEnded, stdout);
    (void)std::fflush(stdout);  // whoever reads it may be gone, which the lifeline is for
  }

  // They are most of the bytes. Those of inferences that are done, and of outputs that are.
  static void RemoveTexts(const Job& job, uint64_t dumped, uint64_t& done) {
    for (uint64_t place = done; place <= dumped; ++place) {
      RemoveWholeTexts(DumpsOf(job) + "/" + std::to_string(place));
    }
    done = dumped;
  }

  void Look(pid_t pid, const ProgramLog& log) {
    const auto now = std::chrono::steady_clock::now();
    console_.Show({.series = request_.series,
                   .done = samples_->Done() + log.Dumped(),
                   .all = plan_.inferences,
                   .doneHere = doneHere_ + log.Dumped(),
                   .faults = report_.Faults() + log.Faults(),
                   .elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - began_)});
    // A runtime brings its own libraries with the first model.
    const bool hasLoaded = log.IsModelLoaded() && !isLookedAtLoaded_;
    if (isLookedAt_ && !hasLoaded && now - lookedAt_ < std::chrono::seconds(1)) return;
    isLookedAt_ = true;
    isLookedAtLoaded_ = log.IsModelLoaded();
    lookedAt_ = now;
    ShowCounts(log.Dumped(), now);
    moments_->Append(ToLine(TakeMoment(pid)));
    for (const std::string& path : MappedLibraries(pid)) {
      auto& mapped = report_.Facts().mapped;
      const bool isKnown = std::any_of(mapped.begin(), mapped.end(),
                                       [&](const MappedFile& file) { return file.path == path; });
      if (!isKnown) mapped.push_back({.path = path, .buildId = BuildIdOf(path)});
    }
  }

  // For whoever reads run.json meanwhile. A slow disk is not to be kept busy with it.
  void ShowCounts(uint64_t dumped, SteadyTime now) {
    constexpr int kShare = 100;  // of the time, one part at most
    const SampleCounts counts = samples_->CountsSoFar(dumped);
    if (now < countAgain_ || counts == report_.Facts().counts) return;
    report_.Facts().counts = counts;
    try {
      WriteRun();
    } catch (const Fault&) {
      // What has to be written will be tried again, and tell of it.
    }
    const auto done = std::chrono::steady_clock::now();
    countAgain_ = done + (done - now) * kShare;
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
    samples_->Restart();
    for (uint64_t i = 0; i < plan_.inferences; ++i) job.indices.push_back(i);
  }

  // ---- What a job left --------------------------------------------------------------------------

  void TakeTimes(const Job& job, const JobEnd& end, uint64_t chunk, uint64_t attempt) {
    if (!end.whyNoTrace.empty()) report_.Warn(kNotTracedWarning, 1, end.whyNoTrace);
    if (end.trace.empty()) return;
    AppendTimes(ReadExecutionTimes(end.trace), job, chunk, attempt, [](uint64_t) { return true; });
    const bool isKept =
        !request_.chunk || end.reason != JobEnd::Reason::kEnded || end.program.status != 0;
    if (isKept) MoveFolder(end.trace, folder_.Path(kTraceFile));
  }

  void AppendTimes(const ExecutionTimes& times, const Job& job, uint64_t chunk, uint64_t attempt,
                   const std::function<bool(uint64_t index)>& isWanted) {
    if (times.dropped > 0) {
      report_.Warn(kDroppedWarning, times.dropped,
                   "calls had no room in the trace: times are missing");
    }
    times_->Append(times, job.indices, chunk, attempt, isWanted);
    for (const auto& [phase, duration] : times.phases) report_.Facts().phases[phase] += duration;
    LearnRuntime(times.runtime);
  }

  // Of a program whose loader could not be asked.
  void LearnRuntime(const std::string& path) {
    if (report_.Facts().runtime || path.empty()) return;
    try {
      report_.Facts().runtime = IdentifyFile(path, "the runtime", ExitStatus::kRuntime);
    } catch (const Fault& fault) {
      report_.Warn("runtime-unknown", 1, fault.what());
    }
  }

  // The inferences of the job that are still to do.
  std::vector<uint64_t> TakeSamples(const Job& job, const JobEnd& end) {
    const uint64_t dumped = std::min<uint64_t>(end.log.Dumped(), job.indices.size());
    const bool isAtOne =
        plan_.perInference != 0 && end.log.Begun(plan_.perInference) > end.log.Dumped();
    uint64_t resolved = 0;
    // What was not looked at when somebody asks to stop is what a killed launch leaves.
    const bool mayStop = end.reason != JobEnd::Reason::kStopped;
    for (; resolved < dumped && !(mayStop && IsStopped()); ++resolved) {
      samples_->Take(job.indices[resolved], DumpsOf(job) + "/" + std::to_string(resolved));
    }
    doneHere_ += resolved;
    isToBeTakenOver_ = resolved < dumped;
    asideNow_ = resolved == dumped && dumped < job.indices.size() && isAtOne &&
                end.reason != JobEnd::Reason::kStopped && end.reason != JobEnd::Reason::kLimit;
    if (asideNow_) {
      const bool isToBlame = end.program.signal || end.reason != JobEnd::Reason::kEnded;
      samples_->PutAside(job.indices[resolved++], isToBlame, DescribeEnd(end, request_));
    }
    samples_->Write();
    return {job.indices.begin() + static_cast<ptrdiff_t>(resolved), job.indices.end()};
  }

  // Asked for each inference, of which there may be thousands a second.
  bool IsStopped() {
    const auto now = std::chrono::steady_clock::now();
    if (now >= signalsAgain_) {
      signals_.Wait(std::chrono::milliseconds(0));
      signalsAgain_ = now + std::chrono::milliseconds(10);
    }
    return signals_.Asked() != 0;
  }

  // ---- What follows of how it ended -------------------------------------------------------------

  void Conclude(const Job& job, const JobEnd& end, const std::vector<uint64_t>& left) {
    const bool isProgress = left.size() < job.indices.size();
    asideInARow_ = asideNow_ && job.indices.size() - left.size() == 1 ? asideInARow_ + 1 : 0;
    if (end.program.signal && end.reason == JobEnd::Reason::kEnded) {
      report_.Facts().signal = SignalName(*end.program.signal);
    }
    if (end.program.status) report_.Facts().programStatus = *end.program.status;
    switch (end.reason) {
      case JobEnd::Reason::kStopped:
        isOver_ = true;
        return;
      case JobEnd::Reason::kLimit:
        report_.TakeEnd(ExitStatus::kLimit, "the program " + DescribeEnd(end, request_));
        isOver_ = true;
        return;
      case JobEnd::Reason::kSampleLimit:
        report_.Take(ExitStatus::kLimit);
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
      report_.TakeEnd(ExitStatus::kRuntime,
                      std::to_string(asideInARow_) +
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
      report_.TakeEnd(ExitStatus::kLimit,
                      "the disk of " + Quoted(request_.run) +
                          " is full: what was dumped last, and what the program said of it, "
                          "is not there; make room and go on with --resume");
      return;
    }
    if (end.program.status == 0) {
      report_.TakeEnd(ExitStatus::kRuntime, "the program ended with status 0 after " +
                                                std::to_string(resolved - (asideNow_ ? 1 : 0)) +
                                                " of " + Counted(job.indices.size(), "inference"));
      return;
    }
    const Explanation* cause = end.log.Cause().empty() ? nullptr : Explain(end.log.Cause());
    const auto status =
        end.program.signal || cause == nullptr ? ExitStatus::kRuntime : cause->status;
    if (asideNow_) {
      report_.Take(status);  // it was said with the sample
      return;
    }
    report_.TakeEnd(status, "the program " + DescribeEnd(end, request_));
  }

  // ---- The end ----------------------------------------------------------------------------------

  void Finish() {
    const bool wasStopped = signals_.Asked() != 0;
    samples_->Finish();
    report_.WarnOfOtherRuntimes();
    ForgetWhatWasTraced();
    if (!isToBeTakenOver_) RemoveTree(folder_.Path(kChunksFolder));
    RunFacts& facts = report_.Facts();
    const std::string errors = folder_.Path(kErrorsFile);
    const uint64_t size = SizeOfFile(errors);
    facts.standardError =
        ReadFrom(errors, size - std::min<uint64_t>(size, kMostStandardError), kMostStandardError);
    // A model is loaded, and complained of, before anything else is.
    for (const RunWarning& warning : WarningsInWords(ReadFrom(errors, 0, kMostErrorsRead))) {
      report_.Warn(warning.id, warning.count, warning.message);
    }
    if (facts.counts.done < facts.counts.inferences) report_.Take(ExitStatus::kPartial);
    const bool hasFailed = isOver_ && report_.Status() != ExitStatus::kDone;
    EndAs(wasStopped  ? RunState::kInterrupted
          : hasFailed ? RunState::kFailed
                      : RunState::kDone,
          report_.Status());
    report_.Summarise(plan_.isModelKnown ? std::nullopt : std::optional(plan_.inputs.Lines()));
  }

  void ForgetWhatWasTraced() {
    if (!report_.MissesTraces() || plan_.inferences == 0) return;
    const auto isTimed = times_->Timed(plan_.inferences, [](const TimesRecord&) { return true; });
    if (std::find(isTimed.begin(), isTimed.end(), false) == isTimed.end()) {
      report_.ForgetMissingTraces();
    }
  }

  const LaunchRequest& request_;
  Plan plan_;
  Console& console_;
  StopSignals& signals_;
  RunFolder folder_;
  RunReport report_;
  std::optional<RunSamples> samples_;
  std::optional<RunTimes> times_;
  std::optional<LineFile> moments_;
  uint64_t doneHere_ = 0;
  uint64_t asideInARow_ = 0;
  bool asideNow_ = false;
  bool isOver_ = false;
  bool tellsOfLastProcess_ = false;
  bool isBegun_ = false;          // the run directory is this run's to write to
  bool isToBeTakenOver_ = false;  // a process has dumped what nobody has looked at
  bool hasRun_ = false;           // it came to its first chunk
  bool isEnded_ = false;
  std::map<uint64_t, uint64_t> attempts_;  // by chunk
  SteadyTime began_;
  std::optional<SteadyTime> deadline_;
  bool isLookedAt_ = false;
  bool isLookedAtLoaded_ = false;  // once the model of the process was there
  SteadyTime lookedAt_;
  SteadyTime countAgain_;    // not before
  SteadyTime signalsAgain_;  // neither
};

std::optional<Lifeline> LifelineOf(const LaunchRequest& request) {
  if (!request.lifeline) return std::nullopt;
  return Lifeline(STDIN_FILENO, *request.lifeline, std::chrono::steady_clock::now());
}

void SayWhyStopped(const StopSignals& signals, Console& console) {
  const std::string& why = signals.WhyLifelineIsGone();
  if (!why.empty()) console.Say(why + ": the run is ended");
}

}  // namespace

ExitStatus Launch(const LaunchRequest& request, Plan plan, Console& console) {
  HoldList(plan);
  std::optional<Lifeline> lifeline = LifelineOf(request);
  StopSignals signals(lifeline ? &*lifeline : nullptr);
  Launcher launcher(request, std::move(plan), console, signals);
  if (lifeline) launcher.TellOfLastProcessOnceEnded();
  try {
    launcher.Begin();
    // Of a model that is learned of in the first chunk the list is run in that one.
    const uint64_t chunks = launcher.Chunks();
    for (uint64_t chunk = 0; chunk < chunks && !launcher.IsOver(); ++chunk) {
      launcher.RunChunk(chunk);
    }
    SayWhyStopped(signals, console);
    return launcher.End();
  } catch (const Fault& fault) {
    launcher.Abandon(fault);
    throw;
  }
}

ExitStatus LaunchInTurns(const std::array<LaunchRequest, 2>& requests, std::array<Plan, 2> plans,
                         Console& console) {
  for (Plan& plan : plans) HoldList(plan);
  std::optional<Lifeline> lifeline = LifelineOf(requests[0]);
  StopSignals signals(lifeline ? &*lifeline : nullptr);
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
    SayWhyStopped(signals, console);
    const ExitStatus status = one.End();
    return FirstOf(status, other.End());
  } catch (const Fault& fault) {
    one.Abandon(fault);
    other.Abandon(fault);
    throw;
  }
}

}  // namespace vorn::kit
