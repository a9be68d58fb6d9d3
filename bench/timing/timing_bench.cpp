// How often `vorn timing` errs, by simulation, as a table: timing_bench [TRIALS [SEED]].
#include <array>
#include <cstdio>
#include <cstdlib>

#include "timing/simulation.h"

namespace {

using vorn::bench::Course;
using vorn::bench::CourseName;
using vorn::bench::Outcomes;
using vorn::bench::Simulate;
using vorn::bench::Simulation;

constexpr std::array<size_t, 12> kCounts{3, 4, 5, 6, 7, 8, 10, 15, 20, 30, 50, 100};
constexpr std::array kFactors{1.005, 1.01, 1.02, 1.03, 1.05, 1.07, 1.1, 1.15,
                              1.2,   1.3,  1.5,  2.0,  3.0,  5.0,  10.0};
constexpr double kFound = 0.8;

double Share(size_t part, size_t whole) {
  return static_cast<double>(part) / static_cast<double>(whole);
}

// The least change of the row that is called slower in 8 of 10 trials; 0 if none is.
double LeastFound(Simulation simulation) {
  simulation.trials /= 4;
  for (const double factor : kFactors) {
    simulation.factor = factor;
    if (Share(Simulate(simulation).slower, simulation.trials) >= kFound) return factor;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const size_t trials = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 4000;
  const uint64_t seed = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 1;
  if (trials < 4) {
    std::fputs("timing_bench: give the trials of each case, 4 at least\n", stderr);
    return 2;
  }
  std::printf("%zu trials a case, seed %llu\n\n", trials, static_cast<unsigned long long>(seed));
  std::puts(
      "| course | values a side | equal called different | interval holds the truth | 8 of 10 "
      "found |");
  std::puts("|---|---|---|---|---|");
  for (const Course course : vorn::bench::kCourses) {
    for (const size_t count : kCounts) {
      const Simulation simulation{.course = course, .count = count, .trials = trials, .seed = seed};
      const Outcomes equal = Simulate(simulation);
      const double least = LeastFound(simulation);
      std::printf("| %s | %zu | %.1f %% | %.1f %% | ", CourseName(course).data(), count,
                  100 * Share(equal.slower + equal.faster, trials),
                  100 * Share(equal.covered, trials));
      if (least > 0) {
        std::printf("+%.1f %% |\n", 100 * (least - 1));
      } else {
        std::puts("nothing |");
      }
      std::fflush(stdout);
    }
  }
  return 0;
}
