// What files of a run say that cannot all be so: counts of another run, a file that was edited, a
// verdict on something else.
#ifndef VORN_KIT_REPORT_CONTRADICTIONS_H_
#define VORN_KIT_REPORT_CONTRADICTIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// A sentence each, without a full stop; none where all fits. `doneSamples`: how many samples are
/// done by samples.jsonl, where that is known and the run has ended.
[[nodiscard]] std::vector<std::string> ContradictionsOf(const ReportRun& run,
                                                        std::optional<uint64_t> doneSamples);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_CONTRADICTIONS_H_
