// A device against its reference, from what people have to a verdict: every step is a verb that
// could have been called alone.
//
//     RUN/device.model.json  vorn inspect      and the same of the reference
//     RUN/device.inputs      vorn prepare      tensors for the device
//     RUN/reference.inputs   vorn prepare      tensors for the reference
//     RUN/device             vorn launch       a run directory
//     RUN/reference          vorn launch       the same on the host runtime
//     RUN/floor              vorn launch       the reference rounded, where that is asked for
//     RUN/verdict.json, .xml vorn judge
//     RUN/qualify.json       what was asked for, the steps as commands, and their statuses
#ifndef VORN_KIT_QUALIFY_QUALIFICATION_H_
#define VORN_KIT_QUALIFY_QUALIFICATION_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/verb_process.h"
#include "kit/json/json.h"

namespace vorn::kit {

/// One of the two that are compared.
struct QualifiedSide {
  std::string model;
  std::optional<std::string> config;   ///< of the runtime; without it an empty one
  std::optional<std::string> runtime;  ///< a libvorn.so; without it the one that vorn-run would get
  std::optional<std::string> program;  ///< as `vorn launch --program` takes it
  std::vector<std::string> inputs;     ///< as `vorn prepare --input` takes them
  std::vector<std::string> recipes;    ///< as `vorn prepare --recipe` does
  std::optional<Json> job;             ///< instead of both: what stands under "inputs" of a job
};

struct Qualification {
  std::string run;
  QualifiedSide device;
  std::optional<QualifiedSide> reference;
  std::optional<std::string> expected;  ///< instead of a reference: as `vorn judge --expected`
  /// A configuration that rounds: the reference is run with it, too, and is the floor of `vorn
  /// judge`.
  std::optional<std::string> floor;
  uint64_t batch = 1;
  std::optional<uint64_t> most;   ///< samples
  std::optional<uint64_t> chunk;  ///< of both runs
  bool areFaultsLeftOut = false;
  bool isQuiet = false;
  std::vector<std::string> judgeWords;  ///< options of `vorn judge`: --map, --rules, …
};

/// Reads a file of a qualification, whose paths are relative to its folder. Throws a Fault of
/// kInput that names the file and the key.
[[nodiscard]] Qualification ReadQualification(const std::string& path);

struct QualifyStep {
  std::string name;  ///< "prepare the device's inputs"
  VerbCall call;
  std::optional<ExitStatus> status;  ///< empty: not reached
  std::string out;
  bool wasStopped = false;  ///< by a signal: nothing behind it runs
};

/// Runs the steps one behind the other, all descriptions of models first; `show` is told of each
/// before it runs, and when it has ended. The ones behind a step that failed are not reached, but
/// for a run of which some samples are missing. Writes RUN/qualify.json. Throws a Fault for what is
/// wrong before the first step.
[[nodiscard]] std::vector<QualifyStep> Qualify(const Qualification& qualification,
                                               const std::function<void(const QualifyStep&)>& show);

/// The status of all: of those of the steps the first in the order of ExitStatus.
[[nodiscard]] ExitStatus StatusOf(const std::vector<QualifyStep>& steps);

}  // namespace vorn::kit

#endif  // VORN_KIT_QUALIFY_QUALIFICATION_H_
