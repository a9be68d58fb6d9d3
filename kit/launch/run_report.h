// What a launch tells of its run: in run.json, and in lines on the console.
#ifndef VORN_KIT_LAUNCH_RUN_REPORT_H_
#define VORN_KIT_LAUNCH_RUN_REPORT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/launch/console.h"
#include "kit/launch/plan.h"
#include "kit/launch/program_log.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

// Warnings that a later process may make untrue.
inline constexpr const char* kProgramEndWarning = "program-end";
inline constexpr const char* kNotTracedWarning = "not-traced";
inline constexpr const char* kDroppedWarning = "calls-dropped";

class RunReport {
 public:
  /// Both outlive it.
  RunReport(const LaunchRequest& request, Console& console)
      : request_(request), console_(console) {}

  /// What run.json is to hold.
  [[nodiscard]] RunFacts& Facts() { return facts_; }

  [[nodiscard]] ExitStatus Status() const { return status_; }
  [[nodiscard]] uint64_t Faults() const { return faults_; }  ///< that the program named so far

  /// The status of the whole is the one that stands first in the table.
  void Take(ExitStatus status) { status_ = FirstOf(status_, status); }

  /// The same of a program that did not end as it was to, with a warning and a line that say why.
  void TakeEnd(ExitStatus status, const std::string& message);

  /// A warning that is there already counts on, and keeps its message.
  void Warn(const std::string& id, uint64_t count, const std::string& message);

  /// What the program complained of in its log.
  void WarnOfComplaints(const ProgramLog& log);

  /// Processes that the program left, by their names.
  void WarnOfLeft(const std::vector<std::string>& left);

  /// The loader was asked before a run; only what was mapped is sure.
  void WarnOfOtherRuntimes();

  /// A process without a trace does not matter any more where others did what it was to do.
  void ForgetMissingTraces();
  [[nodiscard]] bool MissesTraces() const;

  /// A line about an inference that is not done, for the first few of them.
  void TellOfTrouble(const SampleRecord& record, const std::string& what);

  /// "list.txt:3", where the inputs of an inference begin.
  [[nodiscard]] std::string PlaceOf(const SampleRecord& record) const;

  /// The warnings and counts, and how to go on if something is missing. `undividedLines`: the lines
  /// of the list where nothing told how many of them make an inference.
  void Summarise(std::optional<uint64_t> undividedLines);
  void TellHowToGoOn();

 private:
  const LaunchRequest& request_;
  Console& console_;
  RunFacts facts_;
  ExitStatus status_ = ExitStatus::kDone;
  uint64_t faults_ = 0;
  uint64_t troubles_ = 0;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_RUN_REPORT_H_
