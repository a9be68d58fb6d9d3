// The ranges of all tensors inside a network, measured over inputs: what rounding to 8 bits goes
// by.
//
// The host runtime gives every inner tensor as a further output where its configuration says so; a
// part of the list after the other is run so by `vorn launch`, measured, and removed again: the
// dumps of all inner tensors are large.
//
//     {"schema": 1, "kind": "ranges", "samples": 200, "model": {…},
//      "tensors": {"conv1": {"min": -1.5, "max": 3.2}, …}}
#ifndef VORN_KIT_CALIBRATE_CALIBRATE_H_
#define VORN_KIT_CALIBRATE_CALIBRATE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "kit/common/file_identity.h"

namespace vorn::kit {

struct TensorRange {
  float least = 0;
  float most = 0;
  uint64_t finite = 0;     ///< values that were measured
  uint64_t notFinite = 0;  ///< NaN and infinite ones, which no range holds

  void Take(float value);
};

struct CalibrateRequest {
  std::string model;
  std::optional<std::string> config;
  std::string list;
  std::string work;  ///< a folder for what is removed again; made, and gone at the end
  uint64_t batch = 1;
  uint64_t part = 16;            ///< inferences that are run before they are measured
  std::optional<uint64_t> most;  ///< inferences
};

struct Ranges {
  FileIdentity model;
  uint64_t samples = 0;
  std::map<std::string, TensorRange> tensors;
};

/// Throws a Fault: of kInput for the list, of kModel for the model and the configuration, and the
/// status of the launch that failed. `show` is told how many of how many inferences are measured.
[[nodiscard]] Ranges MeasureRanges(const CalibrateRequest& request,
                                   const std::function<void(uint64_t, uint64_t)>& show);

/// The file, with a line end. Tensors without a finite value are left out.
[[nodiscard]] std::string RangesJson(const Ranges& ranges);

}  // namespace vorn::kit

#endif  // VORN_KIT_CALIBRATE_CALIBRATE_H_
