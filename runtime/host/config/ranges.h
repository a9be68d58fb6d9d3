// What values the tensors of a model take, measured over inputs like those that it is to run.
//
//     {
//       "schema": 1,
//       "kind": "ranges",
//       "model": { "path": "net.onnx", "xxh3_128": "99aa06d3014798d86001c324468d497f" },
//       "tensors": { "conv1": { "min": -1.5, "max": 3.2 } }
//     }
//
// Whose ranges they are need not be told. A file may tell more, of itself and of each tensor, which
// is passed over.
#ifndef VORN_RUNTIME_HOST_CONFIG_RANGES_H_
#define VORN_RUNTIME_HOST_CONFIG_RANGES_H_

#include <cstddef>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

#include "host/config/model_settings.h"

namespace vorn::host {

/// One range, of nothing but "min" and "max". Fails with VORN_ERROR_CONFIG and what to change.
Range ReadRange(const std::string& key, const nlohmann::json& value);

struct MeasuredRanges {
  std::map<std::string, Range> tensors;
  std::string model;  ///< the path that it had; empty where the file does not tell
  std::string xxh3;   ///< of that file: XXH3-128 in hexadecimal digits; empty likewise
};

/// The ranges in the text of a file; `what` is for the message. Fails likewise.
MeasuredRanges ParseRanges(std::string_view what, std::string_view text);

/// Those in the file at `path`. Fails likewise, also for a file that cannot be read.
MeasuredRanges ReadRangesFile(const std::string& path);

/// Whose ranges those of the file at `path` are, where they are told to be of another model than
/// `image`, and what to do; empty otherwise. Not refused: one that was saved again is the same
/// network.
std::string WhoseRanges(const std::string& path, const MeasuredRanges& ranges,
                        std::span<const std::byte> image);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_RANGES_H_
