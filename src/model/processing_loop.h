// The work of one run once the runtime is up: one model over a list of input files.
#ifndef VORN_SRC_MODEL_PROCESSING_LOOP_H_
#define VORN_SRC_MODEL_PROCESSING_LOOP_H_

#include "common/sample_options.h"

namespace vorn::run {

/// Loads the model, brings `paths.inputFiles` into the order of its inputs and resolves them in
/// place, runs one inference per group of input files, and releases the model, however the run
/// ends. Files left over after the last whole group are ignored. Returns 0, or 1 after having
/// printed what failed. A model without data inputs ends the process by an integer division fault.
[[nodiscard]] int Process(const SampleOptions& options, ResolvedPaths& paths);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_PROCESSING_LOOP_H_
