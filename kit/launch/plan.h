// What a launch is going to do, and all that speaks against it.
#ifndef VORN_KIT_LAUNCH_PLAN_H_
#define VORN_KIT_LAUNCH_PLAN_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/launch/checks.h"
#include "kit/launch/input_list.h"
#include "kit/model/model_description.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

struct LaunchRequest {
  std::string model;
  std::string config;
  std::string list;
  std::string run;                        ///< the run directory
  std::string program;                    ///< vorn-run, by its path
  std::optional<std::string> thresholds;  ///< as -r of vorn-run takes them
  std::optional<int64_t> batch;
  std::optional<int64_t> totalT;
  bool isProfiled = false;
  std::optional<std::string> modelJson;       ///< a description of the model
  std::optional<uint64_t> chunk;              ///< inferences a process; empty: one process for all
  std::optional<std::chrono::seconds> limit;  ///< for all of it
  std::optional<std::chrono::seconds> sampleLimit;  ///< for one inference
  std::optional<std::chrono::seconds> lifeline;     ///< the longest silence on standard input
  bool isResumed = false;
  bool isTraced = true;
  bool isTextKept = true;
  bool areArrays = false;
  std::string series;                ///< "A" or "B" of two that take turns
  std::string runOption = "--run";   ///< that named `run`
  uint64_t runsOfDisk = 1;           ///< that find their room on the disk together
  bool isAnyway = false;             ///< what speaks against it is said, and it runs
  std::vector<std::string> command;  ///< of the verb
  std::string version;
};

struct Plan {
  bool isModelKnown = false;
  ModelDescription model;  ///< with the identity of model, configuration and runtime
  std::optional<FileIdentity> list;
  std::optional<FileIdentity> program;
  InputList inputs;           ///< in its lines' order while the model is not known
  uint64_t perInference = 0;  ///< inputs; 0 while the model is not known
  uint64_t inferences = 0;
  std::vector<MappedFile> libraries;  ///< that the program is linked with
  Findings findings;

  [[nodiscard]] std::vector<ListedInput> InputsOf(uint64_t inference) const;
};

/// A file on the disk, as the checks have to know it.
[[nodiscard]] FileState LookAtFile(const std::string& path);

/// The files that -r names, with commas between them, and what vorn-run reads in them.
[[nodiscard]] std::vector<CheckRequest::Thresholds> LookAtThresholds(const std::string& files);

/// Looks at everything and runs nothing but, where no description is kept, a load of the model.
[[nodiscard]] Plan MakePlan(const LaunchRequest& request);

/// Puts a description into a plan that was made without one, and divides the list by it.
void TakeModel(Plan& plan, const LaunchRequest& request, ModelDescription model);

/// Reads the list once more and keeps it in memory: whoever changes the file from there on does not
/// change the run. Throws a Fault of kInput where it is not what the plan was made with.
void HoldList(Plan& plan);

/// Whether the list of a part names its inputs, as the whole list does: vorn-run sorts by all
/// inputs, thresholds included, and only where these are the same is a part sorted as the whole is.
[[nodiscard]] bool AreNamesKept(const Plan& plan);

/// The batch that counts: that of a recurrent model is 1.
[[nodiscard]] uint64_t BatchOf(const Plan& plan, const LaunchRequest& request);

/// How often an inference is executed.
[[nodiscard]] uint64_t ExecutionsEach(const LaunchRequest& request);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_PLAN_H_
