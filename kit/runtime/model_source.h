// Where the description of a model comes from: a file, what an earlier run kept, or the runtime.
#ifndef VORN_KIT_RUNTIME_MODEL_SOURCE_H_
#define VORN_KIT_RUNTIME_MODEL_SOURCE_H_

#include <optional>
#include <string>

#include "kit/model/model_description.h"

namespace vorn::kit {

/// All of these were identified: size and hash are there. A runtime that is not known cannot be
/// asked, so that `file` has to be there.
struct ModelSource {
  FileIdentity model;
  FileIdentity configuration;
  std::optional<FileIdentity> runtime;
  std::optional<std::string> file;  ///< a model.json that was named; it has to be of this model
};

/// The description with the three files in it. Loads the model only where nothing is kept of the
/// same model, configuration and runtime, and keeps what it learns; a folder that cannot be written
/// is no fault. Throws a Fault of kModel or kRuntime.
[[nodiscard]] ModelDescription DescribeFrom(const ModelSource& source);

/// The folder for what is kept: in XDG_CACHE_HOME, else in .cache of HOME; empty without both.
[[nodiscard]] std::string CacheFolder();

}  // namespace vorn::kit

#endif  // VORN_KIT_RUNTIME_MODEL_SOURCE_H_
