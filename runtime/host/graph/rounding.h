// Values as a device of lower precision would hold them. What is rounded stays float32: nothing but
// the numbers that the other type has is left of it.
#ifndef VORN_RUNTIME_HOST_GRAPH_ROUNDING_H_
#define VORN_RUNTIME_HOST_GRAPH_ROUNDING_H_

#include <cstddef>
#include <span>

#include "host/config/model_settings.h"

namespace vorn::host {

/// The numbers of an integer type: `scale` times the whole numbers from `low` to `high`.
struct Grid {
  float scale = 1;
  float low = 0;
  float high = 0;

  bool operator==(const Grid&) const = default;
};

/// Of 256 steps, for values of that range. Zero is one of them, also where the range leaves it out.
Grid GridFor(const Range& range);

/// Of the steps from -127 to 127, for these values. The largest finite one decides.
Grid SymmetricGridFor(std::span<const float> values);

/// To the nearest number, ties to even; `to` may be `from`. NaN stays NaN. Beyond the largest
/// number of float16 and bfloat16 lies infinity, a grid has its ends.
void RoundToFloat16(const float* from, float* to, size_t count);
void RoundToBfloat16(const float* from, float* to, size_t count);
void RoundToGrid(const Grid& grid, const float* from, float* to, size_t count);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_ROUNDING_H_
