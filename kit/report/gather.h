// All that a report says, gathered out of run directories.
#ifndef VORN_KIT_REPORT_GATHER_H_
#define VORN_KIT_REPORT_GATHER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

struct ReportRequest {
  std::vector<std::string> runs;  ///< as a person names them; one at least
  std::string title;              ///< empty: made of the runs' names
  size_t samples = 8;             ///< the worst, which are opened, a run
  std::string version;            ///< of this program
  uint64_t nowRealtimeNs = 0;
};

/// Throws a Fault of kInput where a run is not there or its run.json cannot be read. What else is
/// missing or spoilt stands in the remarks of the run. Holds what ReportFacts holds, of which
/// nothing grows with the number of samples, and while it reads the times of one run, a trace, and
/// two tensors.
[[nodiscard]] ReportFacts GatherReport(const ReportRequest& request);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_GATHER_H_
