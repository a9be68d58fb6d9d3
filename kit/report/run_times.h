// How long a run took: every execution in order, what the series is like, phases, and what the
// machine did meanwhile.
#ifndef VORN_KIT_REPORT_RUN_TIMES_H_
#define VORN_KIT_REPORT_RUN_TIMES_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// One series, or A and B of a run that took turns; none of no executions. Moments count from
/// `startRealtimeNs`. Throws a Fault of kInput for times that cannot be.
[[nodiscard]] std::vector<ReportSeries> SeriesOf(const std::vector<TimesRecord>& records,
                                                 uint64_t startRealtimeNs);

/// The phases of run.json in the order of a run, so that they add up to the whole; what the run
/// does not tell of its whole time is a part of its own, and so are together all but the longest
/// of those that are not known here. Empty where it tells no phases.
[[nodiscard]] std::vector<ReportPhase> PhasesOf(const std::map<std::string, uint64_t>& phases,
                                                uint64_t& wholeNs);

/// Moments that are earlier than `startRealtimeNs`, by a clock that was set, count as 0.
[[nodiscard]] ReportMachine MachineOf(const std::vector<MachineMoment>& moments,
                                      uint64_t startRealtimeNs);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_RUN_TIMES_H_
