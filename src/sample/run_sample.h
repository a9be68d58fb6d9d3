// One run from first to last.
#ifndef VORN_SRC_SAMPLE_RUN_SAMPLE_H_
#define VORN_SRC_SAMPLE_RUN_SAMPLE_H_

#include "common/sample_options.h"

namespace vorn::run {

/// Brings the runtime up, runs the model over all inputs (see `Process`, which changes
/// `paths.inputFiles`), prints the outcome and takes the runtime down, in every case. Returns the
/// exit status, 0 or 1.
[[nodiscard]] int RunSample(const SampleOptions& options, ResolvedPaths& paths);

}  // namespace vorn::run

#endif  // VORN_SRC_SAMPLE_RUN_SAMPLE_H_
