// A history that is as large as somebody's may become, through the importer's own insertion.
#ifndef VORN_BENCH_HISTORY_MADE_RUNS_H_
#define VORN_BENCH_HISTORY_MADE_RUNS_H_

#include <cstddef>
#include <string>

namespace vorn::bench {

/// Adds so many runs, evenly of `series` series, each with 100 times and two figures of a verdict;
/// some series step.
void MakeHistory(const std::string& path, size_t runs, size_t series);

}  // namespace vorn::bench

#endif  // VORN_BENCH_HISTORY_MADE_RUNS_H_
