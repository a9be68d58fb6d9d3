// The ranges of all tensors inside a network, measured over inputs: what rounding to 8 bits goes
// by.
//
// The host runtime gives every inner tensor as a further output where its configuration says so; a
// part of the list after the other is run so by `vorn launch`, measured, and removed again: the
// dumps of all inner tensors are large, gigabytes an inference for a detector.
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
  std::string output;  ///< where the ranges are to go; what is removed again lies beside it
  uint64_t batch = 1;
  std::optional<std::string> thresholds;  ///< as -r of vorn-run takes them
  std::optional<int64_t> totalT;
  /// Inferences that are run before they are measured; without it as many as make up about 2 GB of
  /// dumps, and fewer where the disk has less.
  std::optional<uint64_t> part;
  std::optional<uint64_t> most;  ///< inferences
};

/// What is told while it goes on, by one thread at a time.
struct CalibrateWatch {
  std::function<void(const std::string&)> say;   ///< a line
  std::function<void(uint64_t, uint64_t)> show;  ///< inferences that were run, and all
};

struct Ranges {
  FileIdentity model;
  uint64_t samples = 0;
  std::map<std::string, TensorRange> tensors;
};

/// What the dumps of a part take on the disk: what is kept of all of its inferences, in whole
/// blocks, and of one the texts, which vorn-run writes as well and which go while others come.
struct PartRoom {
  uint64_t keptEach = 0;
  uint64_t textsOfOne = 0;

  [[nodiscard]] double Of(uint64_t inferences) const;
  /// The most inferences, 1 at least, that stay within about 2 GB and within what the disk has.
  [[nodiscard]] uint64_t Inferences(double freeBytes) const;
};

/// Throws a Fault: of kUsage and kLimit for the output, before anything else is looked at, of
/// kInput for the list, of kModel for the model and the configuration, of kLimit where the disk has
/// no room for a part, of kPartial if SIGINT, SIGTERM or SIGHUP asked it to end, and the status of
/// the launch that failed. For one thread of the process at a time.
[[nodiscard]] Ranges MeasureRanges(const CalibrateRequest& request, const CalibrateWatch& watch);

/// The file, with a line end. Tensors without a finite value are left out.
[[nodiscard]] std::string RangesJson(const Ranges& ranges);

}  // namespace vorn::kit

#endif  // VORN_KIT_CALIBRATE_CALIBRATE_H_
