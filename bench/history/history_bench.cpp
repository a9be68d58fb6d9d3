// history_bench bounds [TRIALS]: the bounds of the chart, as kit/history/step_chart.cpp has them.
// history_bench errors [TRIALS]: false alarms and delays, as tables of Markdown.
// history_bench make FILE RUNS SERIES: a history of made-up runs.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "history/made_runs.h"
#include "history/simulation.h"
#include "kit/history/step_chart.h"

namespace vorn::bench {
namespace {

void PrintBounds(size_t trials) {
  for (const FoundBound& found : FindBounds(trials, 1)) {
    std::printf("%zu %.4f %zu\n", found.count, found.bound, found.alive);
  }
}

double In100(size_t part, size_t whole) {
  return 100 * static_cast<double>(part) / static_cast<double>(whole);
}

void PrintFalseAlarms(size_t trials) {
  std::printf(
      "| Runs without a change | runs to the first alarm by ranks | between alarms | between those "
      "that count | series with one that counts within 5 runs | 20 | 100 |\n"
      "|---|--:|--:|--:|--:|--:|--:|\n");
  for (const RunNoise noise : kRunNoises) {
    const FalseAlarms alarms = CountFalseAlarms(noise, trials, 1);
    const auto between = [](size_t runs, size_t count) {
      return count == 0 ? "more than " + std::to_string(runs) : std::to_string(runs / count);
    };
    std::printf("| %s | %s | %s | %s | %.1f %% | %.1f %% | %.1f %% |\n",
                std::string(NoiseName(noise)).c_str(),
                between(alarms.runsToFirst, alarms.first).c_str(),
                between(alarms.runs, alarms.byRanks).c_str(),
                between(alarms.runs, alarms.counting).c_str(), In100(alarms.within5, trials),
                In100(alarms.within20, trials), In100(alarms.within100, trials));
  }
}

std::string DelayText(size_t delay) {
  return delay == kNever ? "more than " + std::to_string(kLongest) : std::to_string(delay);
}

void PrintDelays(size_t trials) {
  std::printf(
      "\n| Runs | step | runs before it | told after, median | 90 %% | told within %zu |\n"
      "|---|--:|--:|--:|--:|--:|\n",
      kLongest);
  for (const RunNoise noise : kRunNoises) {
    for (const double factor : {1.04, 1.1, 1.3}) {
      for (const size_t before : {5, 20, 100}) {
        std::vector<size_t> delays = MeasureDelays(noise, before, factor, trials, 2);
        if (delays.empty()) continue;
        std::sort(delays.begin(), delays.end());
        const auto told = static_cast<size_t>(
            std::count_if(delays.begin(), delays.end(), [](size_t one) { return one != kNever; }));
        std::printf("| %s | %.0f %% | %zu | %s | %s | %.1f %% |\n",
                    std::string(NoiseName(noise)).c_str(), 100 * (factor - 1), before,
                    DelayText(delays[delays.size() / 2]).c_str(),
                    DelayText(delays[delays.size() * 9 / 10]).c_str(), In100(told, delays.size()));
      }
    }
  }
}

size_t NumberOf(const char* text, size_t otherwise) {
  return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}

int Run(int argc, char** argv) {
  const std::string word = argc > 1 ? argv[1] : "";
  constexpr size_t kUsualTrials = 1000;
  constexpr size_t kBoundTrials = 100000;
  if (word == "bounds") {
    PrintBounds(NumberOf(argv[2], kBoundTrials));
  } else if (word == "errors") {
    const size_t trials = NumberOf(argv[2], kUsualTrials);
    PrintFalseAlarms(trials);
    PrintDelays(trials);
  } else if (word == "make" && argc == 5) {
    MakeHistory(argv[2], NumberOf(argv[3], 0), NumberOf(argv[4], 1));
  } else {
    std::fprintf(stderr, "history_bench bounds|errors [TRIALS], or make FILE RUNS SERIES\n");
    return 2;
  }
  return 0;
}

}  // namespace
}  // namespace vorn::bench

int main(int argc, char** argv) {
  try {
    return vorn::bench::Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "history_bench: %s\n", error.what());
    return 1;
  }
}
