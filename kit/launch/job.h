// One process of vorn-run over some of the inferences: made ready, watched, and told of.
#ifndef VORN_KIT_LAUNCH_JOB_H_
#define VORN_KIT_LAUNCH_JOB_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/launch/plan.h"
#include "kit/launch/program.h"
#include "kit/launch/program_log.h"
#include "kit/launch/run_folder.h"
#include "kit/trace/under_layer.h"

namespace vorn::kit {

using SteadyTime = std::chrono::steady_clock::time_point;

struct Job {
  std::vector<uint64_t> indices;  ///< of the inferences, ascending
  bool takesWholeList = false;    ///< the list as it is, and not one of its own
  std::string folder;             ///< is made; below it lie the list and the dumps
  std::string log;                ///< what the program prints goes behind the end of these
  std::string errors;
  std::optional<SteadyTime> deadline;  ///< of the whole launch
};

struct JobEnd {
  enum class Reason { kEnded, kLimit, kSampleLimit, kStopped };
  Reason reason = Reason::kEnded;
  ProgramEnd program;
  ProgramLog log;
  std::string inside;  ///< the operation that had not come back; empty: none, or not known
  std::string words;   ///< what it said on standard error, its end where that is long
  std::string trace;   ///< a file; empty: there is none
  std::string whyNoTrace;
  bool isDiskFull = false;  ///< that of the dumps, as the program ended
  std::vector<std::string>
      left;  ///< processes that it left as it ended by itself, which were ended
};

/// Called while it runs, five times a second and once behind its end.
using Watch = std::function<void(pid_t pid, const ProgramLog& log)>;

/// Where the program puts its dumps: folder 0, 1, ... by its own count.
[[nodiscard]] std::string DumpsOf(const Job& job);

/// Throws a Fault where the program cannot be started or the folder not be made.
[[nodiscard]] JobEnd RunJob(const Job& job, const LaunchRequest& request, const Plan& plan,
                            StopSignals& signals, const Watch& watch);

/// Those of its options, beside its files, as run.json holds them.
[[nodiscard]] std::vector<std::string> OptionsOf(const LaunchRequest& request);

/// The words of vorn-run but for its list and the folder of its dumps, as a note holds them.
[[nodiscard]] std::vector<std::string> NotedWords(const LaunchRequest& request);

/// The trace that a process of the program left in its job's folder, in its place there; empty, and
/// why, where there is none.
struct JobTrace {
  std::string file;
  std::string whyNone;
};
[[nodiscard]] JobTrace TraceOfJob(const TraceRequest& request, pid_t launcher);

/// The words of vorn-run.
[[nodiscard]] std::vector<std::string> CommandOf(const LaunchRequest& request,
                                                 const std::string& list, const std::string& dumps);

/// What ended it, for a person: "ended by SIGFPE after 'get model description failed': the runtime
/// refused the model; it said: ...".
[[nodiscard]] std::string DescribeEnd(const JobEnd& end, const LaunchRequest& request);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_JOB_H_
