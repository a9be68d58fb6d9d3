// The program writes its lines into a file, not to us: what it does does not depend on how quickly
// they are read, and they are there whatever ends either of the two.
#include "kit/launch/job.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/launch/execution_times.h"
#include "kit/launch/left_job.h"
#include "kit/launch/part_list.h"
#include "kit/trace/preload_path.h"

namespace vorn::kit {
namespace {

constexpr std::chrono::milliseconds kTick{200};
constexpr std::chrono::seconds kToEndByItself{3};
constexpr size_t kPieceBytes = 256 * 1024;
constexpr size_t kMostWords = 16 * 1024;
constexpr uint64_t kMostTracedCalls = uint64_t{1} << 24;  // as many as the layer takes

// ---- The list of a job --------------------------------------------------------------------------

class ListWriter {
 public:
  ListWriter(const Job& job, const Plan& plan)
      : job_(job), plan_(plan), files_(job.folder), areNamesKept_(AreNamesKept(plan)) {}

  std::string Write() {
    std::string text;
    for (const uint64_t index : job_.indices) {
      for (const ListedInput& input : plan_.InputsOf(index)) text += Line(input) + "\n";
    }
    std::string path = job_.folder + "/list.txt";
    WriteWholeFile(path, text);
    return path;
  }

 private:
  std::string Line(const ListedInput& input) {
    return (areNamesKept_ && input.name ? *input.name + ":" : "") + files_.PathTo(input.file);
  }

  const Job& job_;
  const Plan& plan_;
  PartList files_;
  bool areNamesKept_ = false;
};

// ---- Watching -----------------------------------------------------------------------------------

class Watcher {
 public:
  Watcher(const Job& job, const LaunchRequest& request, const Plan& plan, StopSignals& signals,
          const Watch& watch)
      : job_(job), request_(request), plan_(plan), signals_(signals), watch_(watch) {
    logAt_ = SizeOfFile(job.log);
    errorsAt_ = SizeOfFile(job.errors);
    if (!request.isTraced) return;
    layer_ = std::make_unique<PreloadPath>(FindTraceLayer());
    trace_ = TraceRequest{.command = {request.program},
                          .layer = layer_->Path(),
                          .output = job.folder + "/" + kTraceFile,
                          .calls = RoomForCalls()};
  }

  JobEnd Run() {
    const std::string list = job_.takesWholeList ? request_.list : ListWriter(job_, plan_).Write();
    ProgramRequest program{.command = CommandOf(request_, list, DumpsOf(job_)),
                           .environment = {},
                           .out = job_.log,
                           .err = job_.errors};
    if (trace_) {
      program.environment = PrepareTrace(*trace_);
      // Times are counted call by call: settings of the user's for other programs are not for this.
      program.environment.emplace_back("VORN_TRACE_ONLY", "*");
    }
    // What a runtime refuses it tells of where it is asked to.
    if (std::getenv("VORN_LOG") == nullptr) program.environment.emplace_back("VORN_LOG", "1");
    WatchProgram(program);
    if (isOfOtherList_) {
      RemoveTree(job_.folder);  // that nobody takes it over
      throw Fault(ExitStatus::kInput, "the list " + Quoted(request_.list) +
                                          " was changed while the program started; start again");
    }
    CollectWords();
    return std::move(end_);
  }

 private:
  uint64_t RoomForCalls() const {
    if (!plan_.isModelKnown) return kMostTracedCalls / 64;
    return std::min(CallsOfRun(plan_.model.inputs.size(), plan_.model.outputs.size(),
                               job_.indices.size(), ExecutionsEach(request_)),
                    kMostTracedCalls);
  }

  void WatchProgram(const ProgramRequest& request) {
    Program program(request, signals_);
    sampleBegan_ = std::chrono::steady_clock::now();
    while (true) {
      ReadLog();
      if (isOfOtherList_) return;
      if (watch_) watch_(program.Pid(), end_.log);
      signals_.Wait(kTick);
      if (const auto ended = program.Poll()) {
        end_.program = *ended;
        end_.isDiskFull = IsDiskFull(job_.folder);
        std::vector<std::string> left = program.EndRest(kToEndByItself);
        if (end_.reason == JobEnd::Reason::kEnded) end_.left = std::move(left);
        break;
      }
      if (end_.reason == JobEnd::Reason::kEnded) StopWhereDue(program);
      const bool isKilled =
          end_.reason != JobEnd::Reason::kEnded && std::chrono::steady_clock::now() > killAt_;
      if (isKilled) program.Send(SIGKILL);
    }
    ReadLog();
    if (watch_ && !isOfOtherList_) watch_(program.Pid(), end_.log);
  }

  // By a signal first that it may end by itself of.
  void StopWhereDue(const Program& program) {
    const auto now = std::chrono::steady_clock::now();
    if (signals_.Asked() != 0) {
      end_.reason = JobEnd::Reason::kStopped;
    } else if (job_.deadline && now > *job_.deadline) {
      end_.reason = JobEnd::Reason::kLimit;
    } else if (IsSampleLate(now)) {
      end_.reason = JobEnd::Reason::kSampleLimit;
    } else {
      return;
    }
    if (trace_) end_.inside = OperationInside(FindRunningTrace(trace_->output));
    killAt_ = now + kToEndByItself;
    program.Send(SIGTERM);
  }

  // A sample's time runs from the end of the one before, the first one's from its first file on.
  bool IsSampleLate(SteadyTime now) {
    const uint64_t dumped = end_.log.Dumped();
    const bool isNext = dumped != dumped_ || end_.log.Begun(1) == 0;
    if (isNext) sampleBegan_ = now;
    dumped_ = dumped;
    return request_.sampleLimit && dumped < job_.indices.size() &&
           now - sampleBegan_ > *request_.sampleLimit;
  }

  void ReadLog() {
    while (true) {
      const std::string piece = ReadFrom(job_.log, logAt_, kPieceBytes);
      if (piece.empty()) break;
      end_.log.Take(piece);
      logAt_ += piece.size();
    }
    CheckWholeList();
  }

  // It opens the list by itself, and later than that was looked at.
  void CheckWholeList() {
    const bool isKnown = job_.takesWholeList && plan_.isModelKnown && !request_.isAnyway;
    if (!isKnown || isListChecked_ || end_.log.Begun(1) == 0) return;
    isListChecked_ = true;
    if (end_.log.Listed().Files() == 0) return;  // it says less than vorn-run
    FilesTrace planned;
    for (uint64_t place = 0; place < plan_.inputs.Lines(); ++place) {
      planned.Add(plan_.inputs.Input(place).file);
    }
    isOfOtherList_ = end_.log.Listed() != planned;
  }

  void CollectWords() {
    const uint64_t size = SizeOfFile(job_.errors);
    const uint64_t from = std::max(errorsAt_, size - std::min<uint64_t>(size, kMostWords));
    end_.words = ReadFrom(job_.errors, from, kMostWords);
    if (!trace_) return;
    const JobTrace trace = TraceOfJob(*trace_, getpid());
    end_.trace = trace.file;
    end_.whyNoTrace = trace.whyNone;
    if (end_.program.signal && end_.inside.empty()) end_.inside = OperationInside(end_.trace);
  }

  const Job& job_;
  const LaunchRequest& request_;
  const Plan& plan_;
  StopSignals& signals_;
  const Watch& watch_;
  std::unique_ptr<PreloadPath> layer_;
  std::optional<TraceRequest> trace_;
  JobEnd end_;
  bool isListChecked_ = false;
  bool isOfOtherList_ = false;
  uint64_t logAt_ = 0;
  uint64_t errorsAt_ = 0;
  uint64_t dumped_ = 0;
  SteadyTime sampleBegan_;
  SteadyTime killAt_;
};

std::string LastLineOf(const std::string& words) {
  std::string last;
  size_t start = 0;
  while (start < words.size()) {
    const size_t end = std::min(words.find('\n', start), words.size());
    if (end > start) last = words.substr(start, end - start);
    start = end + 1;
  }
  return last;
}

std::string Seconds(const std::optional<std::chrono::seconds>& time) {
  return time ? std::to_string(time->count()) : "0";
}

std::string WithoutTag(const std::string& line) {
  const size_t end = line.find("] ");
  const size_t text = end == std::string::npos ? 0 : line.find_first_not_of(' ', end + 1);
  return line.substr(text == std::string::npos ? 0 : text);
}

}  // namespace

std::string DumpsOf(const Job& job) { return job.folder + "/dumps"; }

std::vector<std::string> CommandOf(const LaunchRequest& request, const std::string& list,
                                   const std::string& dumps) {
  std::vector<std::string> words{request.program, "-m", request.model, "-i", list, "-j",
                                 request.config,  "-o", dumps};
  for (const std::string& option : OptionsOf(request)) words.push_back(option);
  return words;
}

std::vector<std::string> OptionsOf(const LaunchRequest& request) {
  std::vector<std::string> words;
  const auto add = [&](const char* option, const std::string& value) {
    words.emplace_back(option);
    words.push_back(value);
  };
  if (request.batch) add("-b", std::to_string(*request.batch));
  if (request.totalT) add("-t", std::to_string(*request.totalT));
  if (request.thresholds) add("-r", *request.thresholds);
  if (request.isProfiled) add("-p", "1");
  return words;
}

std::vector<std::string> NotedWords(const LaunchRequest& request) {
  std::vector<std::string> words = CommandOf(request, "", "");
  for (std::string& word : words) word = Printable(word);
  return words;
}

JobTrace TraceOfJob(const TraceRequest& request, pid_t launcher) {
  const TraceOutcome outcome = CollectTrace(request, launcher);
  // A launch that was killed may have named it already.
  const bool isThere = access(request.output.c_str(), R_OK) == 0;
  return {.file = isThere ? request.output : "", .whyNone = outcome.reason};
}

JobEnd RunJob(const Job& job, const LaunchRequest& request, const Plan& plan, StopSignals& signals,
              const Watch& watch) {
  RemoveTree(job.folder);
  MakeFolders(DumpsOf(job));
  if (!job.indices.empty()) {
    WriteJobNote(job.folder, {.indices = job.indices,
                              .words = NotedWords(request),
                              .logAt = SizeOfFile(job.log),
                              .launcher = getpid()});
  }
  return Watcher(job, request, plan, signals, watch).Run();
}

std::string DescribeEnd(const JobEnd& end, const LaunchRequest& request) {
  std::string text;
  switch (end.reason) {
    case JobEnd::Reason::kStopped:
      return "was stopped";
    case JobEnd::Reason::kLimit:
      text = "was ended after " + Seconds(request.limit) + " s, the time for all (--timeout)";
      break;
    case JobEnd::Reason::kSampleLimit:
      text = "was ended after " + Seconds(request.sampleLimit) +
             " s, the time for one inference (--sample-timeout)";
      break;
    case JobEnd::Reason::kEnded:
      text = end.program.signal
                 ? "ended by " + SignalName(*end.program.signal)
                 : "ended with status " + std::to_string(end.program.status.value_or(0));
      break;
  }
  if (!end.inside.empty()) text += " inside " + Printable(end.inside);
  if (!end.log.Cause().empty()) {
    text += " after '" + Printable(WithoutTag(end.log.Cause())) + "'";
    const Explanation* explanation = Explain(end.log.Cause());
    if (explanation != nullptr) text += ": " + std::string(explanation->means);
  }
  const std::string said = LastLineOf(end.words);
  if (!said.empty()) text += "; it said: " + Printable(said);
  return text;
}

}  // namespace vorn::kit
