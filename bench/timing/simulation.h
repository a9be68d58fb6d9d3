// Series of times that are made up, to find out how often their judge errs: the truth is known.
#ifndef VORN_BENCH_TIMING_SIMULATION_H_
#define VORN_BENCH_TIMING_SIMULATION_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kit/timing/comparison.h"

namespace vorn::bench {

enum class Course {
  kLogNormal,       ///< independent, with a tail: standard deviation of the logarithm 0.1
  kBimodal,         ///< three of ten are a quarter slower; 0.02 within each heap
  kDrifting,        ///< 15 % slower at the end than at the start, and 0.05
  kAutocorrelated,  ///< each follows the one before by 0.6; 0.05
  kInterleaved,     ///< the last, which both of a pair share, and 0.05 of their own
};
inline constexpr Course kCourses[] = {Course::kLogNormal, Course::kBimodal, Course::kDrifting,
                                      Course::kAutocorrelated, Course::kInterleaved};
[[nodiscard]] std::string_view CourseName(Course course);

struct Simulation {
  Course course = Course::kLogNormal;
  size_t count = 10;  ///< values a side
  double factor = 1;  ///< by which the second side is slower in truth
  size_t trials = 1000;
  uint64_t seed = 1;
  int resamples = 2000;
};

/// How many of the trials had each outcome, of the statistics alone: the gates are open.
struct Outcomes {
  size_t slower = 0;
  size_t faster = 0;
  size_t covered = 0;  ///< the interval holds the factor
};

[[nodiscard]] Outcomes Simulate(const Simulation& simulation);

}  // namespace vorn::bench

#endif  // VORN_BENCH_TIMING_SIMULATION_H_
