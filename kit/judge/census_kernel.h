// The loop over pairs of finite floats that a census spends its time in.
#ifndef VORN_KIT_JUDGE_CENSUS_KERNEL_H_
#define VORN_KIT_JUDGE_CENSUS_KERNEL_H_

#include <cstddef>

#include "kit/judge/census.h"

namespace vorn::kit {

/// The most elements of one call.
inline constexpr size_t kCensusChunk = 1024;

[[nodiscard]] bool AreAllFinite(const float* values, size_t count);

/// Adds finite pairs to the census. The greatest difference of these alone is returned.
double AddFinitePairs(const Tolerance& tolerance, const float* actual, const float* expected,
                      size_t count, Census& census);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_CENSUS_KERNEL_H_
