// The description of a model out of what vorn-run printed, where there is no runtime to ask.
#ifndef VORN_KIT_MODEL_RUN_LOG_H_
#define VORN_KIT_MODEL_RUN_LOG_H_

#include <string_view>

#include "kit/model/model_description.h"

namespace vorn::kit {

/// Reads the lines of a run, the first description among them; what stands around them is passed
/// over, and so is what a terminal or a serial line added (carriage returns, time stamps in front).
/// Sizes, which are multiplied by the batch there, come out as those of one item. Empty stay the
/// net type and all hashes. Throws a Fault of kInput that says what was not found.
[[nodiscard]] ModelDescription ReadRunLog(std::string_view log);

}  // namespace vorn::kit

#endif  // VORN_KIT_MODEL_RUN_LOG_H_
