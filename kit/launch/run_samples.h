// The inferences of a run while it is made: samples.jsonl and the dumps.
//
// An inference is done once its line stands in samples.jsonl, which is written behind its dumps.
#ifndef VORN_KIT_LAUNCH_RUN_SAMPLES_H_
#define VORN_KIT_LAUNCH_RUN_SAMPLES_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kit/common/file_identity.h"
#include "kit/common/whole_file.h"
#include "kit/launch/dumps.h"
#include "kit/launch/plan.h"
#include "kit/launch/run_folder.h"
#include "kit/launch/run_report.h"

namespace vorn::kit {

/// Adds an inference to those of its status.
void CountSample(SampleStatus status, SampleCounts& counts);

class RunSamples {
 public:
  /// All outlive it. Opens the file, or makes it. Throws a Fault of kLimit, as do all that write.
  RunSamples(const LaunchRequest& request, const Plan& plan, const RunFolder& folder,
             RunReport& report);

  [[nodiscard]] const std::vector<bool>& AreDone() const { return isDone_; }
  [[nodiscard]] uint64_t Done() const { return done_; }

  /// What became of them so far, `dumped` more of them done; what is to come is missing.
  [[nodiscard]] SampleCounts CountsSoFar(uint64_t dumped) const;

  /// None is done of as many as the plan has by now.
  void Restart();

  /// What was done before counts as far as its inputs and outputs are what they were. `mayGoOn` is
  /// asked again and again; once it says no, the rest is not looked at.
  void TakeBefore(const std::function<bool()>& mayGoOn);

  /// Moves the dumps of an inference, a folder, to their place, unless they are there already, and
  /// notes what they are worth.
  void Take(uint64_t index, const std::string& dumps);

  /// The same if they are whole; otherwise they stay.
  void TakeIfWhole(uint64_t index, const std::string& dumps);

  /// An inference that ended its process, and why.
  void PutAside(uint64_t index, bool isToBlame, const std::string& reason);

  /// What was noted goes into the file, and outlasts a loss of power.
  void Write();

  /// Puts the file in the order of the list, each inference once, counts them into run.json, and
  /// compares each with the one before.
  void Finish();

 private:
  void TakeFound(uint64_t index, const std::string& dumps, DumpsFound found);
  void Mark(uint64_t index, bool isDone);
  [[nodiscard]] DumpsFound Inspect(const std::string& dumps) const;
  [[nodiscard]] bool HasItsInputs(const SampleRecord& record);
  SampleRecord RecordOf(uint64_t index, bool areFilesRead);
  FileIdentity Identify(const std::string& input);

  const LaunchRequest& request_;
  const Plan& plan_;
  const RunFolder& folder_;
  RunReport& report_;
  LineFile file_;
  std::string lines_;  // that are not written yet
  std::vector<bool> isDone_;
  uint64_t done_ = 0;
  uint64_t failed_ = 0;  // in this launch
  uint64_t aside_ = 0;
  std::map<std::string, FileIdentity> inputs_;  // some that inferences may share
};

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_RUN_SAMPLES_H_
