// What values the tensors of a model take, measured over inputs like those that it is to run.
//
//     {
//       "schema": 1,
//       "kind": "ranges",
//       "tensors": { "conv1": { "min": -1.5, "max": 3.2 } }
//     }
//
// A file may tell more, of itself and of each tensor, which is passed over.
#ifndef VORN_RUNTIME_HOST_CONFIG_RANGES_H_
#define VORN_RUNTIME_HOST_CONFIG_RANGES_H_

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "host/config/model_settings.h"

namespace vorn::host {

/// One range, of nothing but "min" and "max". Fails with VORN_ERROR_CONFIG and what to change.
Range ReadRange(const std::string& key, const nlohmann::json& value);

/// The ranges in the text of a file; `what` is for the message. Fails likewise.
std::map<std::string, Range> ParseRanges(std::string_view what, std::string_view text);

/// Those in the file at `path`. Fails likewise, also for a file that cannot be read.
std::map<std::string, Range> ReadRangesFile(const std::string& path);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_RANGES_H_
