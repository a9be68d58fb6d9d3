// From the paths of the command line to the paths of a run.
#ifndef VORN_SRC_SAMPLE_PREPARE_PATHS_H_
#define VORN_SRC_SAMPLE_PREPARE_PATHS_H_

#include "common/sample_options.h"

namespace vorn::run {

/// Resolves model, configuration and rpn files and reads the input list. Returns 1 for the first
/// path whose length is out of range; missing files, the list included, are not a failure here.
[[nodiscard]] int PreparePaths(const SampleOptions& options, ResolvedPaths& paths);

}  // namespace vorn::run

#endif  // VORN_SRC_SAMPLE_PREPARE_PATHS_H_
