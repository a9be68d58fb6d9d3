// Asking a runtime what a model is.
#ifndef VORN_KIT_RUNTIME_DESCRIBE_H_
#define VORN_KIT_RUNTIME_DESCRIBE_H_

#include <optional>
#include <string>

#include "kit/model/model_description.h"

namespace vorn::kit {

struct DescribeRequest {
  std::string modelPath;
  std::optional<std::string> configPath;  ///< empty: the configuration is "{}"
  std::string runtimePath;                ///< as OpenRuntime takes it
};

/// Loads the model once, on device 0, in a child process: whatever the runtime does to it, this one
/// lives on. Throws a Fault: kModel if the runtime refuses the model, kRuntime if it cannot be
/// opened or brought up, or ends the process; each with what the runtime said on standard error,
/// for which VORN_LOG is switched on. Where it names keys that it misses, the text ends with a line
/// that is a configuration with them.
[[nodiscard]] ModelDescription DescribeWithRuntime(const DescribeRequest& request);

/// The same with size and hash of the three files. Throws as well for one that cannot be read.
[[nodiscard]] ModelDescription DescribeFiles(const DescribeRequest& request);

}  // namespace vorn::kit

#endif  // VORN_KIT_RUNTIME_DESCRIBE_H_
