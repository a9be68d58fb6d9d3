// The reference of a run, made anew: its samples through another model on the host runtime.
//
//     RUN/reference/model.json    the reference as the host runtime describes it
//     RUN/reference/config.json   an empty configuration, where none was given
//     RUN/reference/job.json      what vorn prepare is asked for: the sources of RUN's tensors
//     RUN/reference/inputs/       what it made; not there where RUN's own files serve
//     RUN/reference/list.txt      RUN's own files, where they do
//     RUN/reference/run/          the run of vorn launch
//     RUN/reference/key.json      what that was run on: it is begun anew when this changes
#ifndef VORN_KIT_JUDGE_REFERENCE_H_
#define VORN_KIT_JUDGE_REFERENCE_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/common/verb_process.h"

namespace vorn::kit {

struct ReferenceRequest {
  std::string run;    ///< whose samples it is about; a run directory with samples.jsonl
  std::string model;  ///< the reference's
  std::optional<std::string> config;
  std::vector<std::string> recipes;      ///< "[NAME=]RECIPE", of the reference's inputs
  std::optional<std::string> runtime{};  ///< a libvorn.so; without it the host runtime's
};

struct ReferenceRun {
  std::string path;  ///< the run directory of the reference
  /// The run's sample and the reference's, where the numbers are not the same.
  std::vector<std::pair<uint64_t, uint64_t>> samples;
};

/// Tensors are made by `vorn prepare` of the sources that the manifest beside RUN's tensors tells,
/// where a recipe is given or the reference takes something else than RUN's model; else RUN's own
/// files are taken. Random numbers and signals are made anew as a whole, so that RUN's list has to
/// be the one that was prepared; flags follow their frames. Then `vorn launch` runs the reference
/// with the host runtime that lies with the programs, or with the one that is named, and with RUN's
/// thresholds where it takes any. `show` is told of each step before it runs. What is there and
/// made of the same stays.
///
/// Throws a Fault for what does not fit, and with the status of a step that failed, which has said
/// itself what was wrong.
[[nodiscard]] ReferenceRun MakeReference(const ReferenceRequest& request,
                                         const std::function<void(const VerbCall&)>& show);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_REFERENCE_H_
