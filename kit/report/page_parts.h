// The parts of a report's page, each of one kind of facts. For page.cpp alone.
#ifndef VORN_KIT_REPORT_PAGE_PARTS_H_
#define VORN_KIT_REPORT_PAGE_PARTS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kit/page/page.h"
#include "kit/report/report_facts.h"

namespace vorn::kit {

/// What all parts of a run's share: ids of a second run's begin with "run-2-".
struct RunOnPage {
  const ReportRun& run;
  std::string idPrefix;  ///< empty for the first run

  [[nodiscard]] std::string Id(std::string_view name) const { return idPrefix + std::string(name); }
  [[nodiscard]] std::string SampleId(uint64_t sample) const {
    return Id("sample-" + std::to_string(sample));
  }
};

[[nodiscard]] Tone ToneOf(ReportTone tone);
[[nodiscard]] Html VerdictPill(ReportVerdict verdict);

/// "2026-11-23 13:00:12 UTC".
[[nodiscard]] std::string DayAndTime(uint64_t realtimeNs);

/// Sentences, an item each; nothing of none.
[[nodiscard]] Html Sentences(const std::vector<std::string>& sentences);

/// page_outputs.cpp: the verdict by output, differences over samples.
[[nodiscard]] Html OutputsPart(const RunOnPage& on);
/// All samples, behind a fold an output.
[[nodiscard]] Html SamplesPart(const RunOnPage& on);
/// Inner tensors along the graph.
[[nodiscard]] Html InsidePart(const RunOnPage& on);

/// page_details.cpp: the worst samples.
[[nodiscard]] Html DetailsPart(const RunOnPage& on);

/// page_times.cpp: executions, their distribution, phases.
[[nodiscard]] Html TimesPart(const RunOnPage& on);
/// Frequency, temperature and memory beneath the times, on the same axis.
[[nodiscard]] Html MachineOverTimePart(const RunOnPage& on);
/// Calls of the trace by operation and over time.
[[nodiscard]] Html CallsPart(const RunOnPage& on);

/// page_run.cpp: findings and warnings, boards, the machine, command lines; figures for the head.
[[nodiscard]] Html FindingsPart(const RunOnPage& on);
[[nodiscard]] Html BoardsPart(const RunOnPage& on);
[[nodiscard]] Html MachinePart(const RunOnPage& on);
[[nodiscard]] Html CommandsPart(const RunOnPage& on);
[[nodiscard]] std::vector<Tile> RunTiles(const ReportRun& run);

/// page_comparison.cpp: runs side by side.
[[nodiscard]] Html ComparisonPart(const ReportFacts& facts);
/// Of two runs; none of more, which have a row each.
[[nodiscard]] std::vector<Tile> ComparisonTiles(const ReportFacts& facts);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_PAGE_PARTS_H_
