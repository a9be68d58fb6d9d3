// Two runs side by side: times, outputs, what else is not the same.
#ifndef VORN_KIT_REPORT_COMPARE_H_
#define VORN_KIT_REPORT_COMPARE_H_

#include <string>
#include <vector>

#include "kit/report/report_facts.h"
#include "kit/report/run_facts.h"

namespace vorn::kit {

/// What is not the same of two runs' surroundings: model, configuration, list, runtime, program,
/// options, host, kernel, processor, governor, libraries that were mapped.
[[nodiscard]] std::vector<ReportChange> EnvironmentChanges(const RunFacts& base,
                                                           const RunFacts& other);

/// Outputs of both that were judged and have another verdict.
[[nodiscard]] std::vector<ReportChange> VerdictChanges(const ReportRun& base,
                                                       const ReportRun& other);

/// Outputs by the hashes in samples.jsonl of both runs, which are read once each. Keeps 8 bytes an
/// output and sample of the first one. Throws a Fault of kInput for a file that cannot be read, and
/// of kLimit where there are too many of them.
[[nodiscard]] std::vector<ReportOutputChange> OutputChanges(const std::string& base,
                                                            const std::string& other);

/// Every further run against the first one; the times all together, so that the level holds for
/// all. `places` are those of the runs.
[[nodiscard]] std::vector<ReportComparison> CompareRuns(const std::vector<RunPlace>& places,
                                                        const std::vector<ReportRun>& runs);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_COMPARE_H_
