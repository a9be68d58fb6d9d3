// One run, gathered: everything but its comparison with others.
#ifndef VORN_KIT_REPORT_RUN_FACTS_H_
#define VORN_KIT_REPORT_RUN_FACTS_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// Where the parts of a run lie.
struct RunPlace {
  std::string run;      ///< the folder with run.json
  std::string verdict;  ///< the file, whether or not it is there
  std::string given;    ///< as the person named it, maybe a folder around it
  /// Of two that took turns the file with the times of both, else empty.
  std::string turns;
};

/// The run or runs that a path stands for: a run directory; that of the device in a qualification;
/// A and B where two took turns. Throws a Fault of kInput that says what was looked for.
[[nodiscard]] std::vector<RunPlace> FindRuns(const std::string& path);

/// Throws a Fault of kInput where run.json is not there or cannot be read. Of all other parts that
/// are missing or spoilt, a remark tells. At most `details` samples are opened.
[[nodiscard]] ReportRun GatherRun(const RunPlace& place, size_t details);

/// Throws a Fault of kUsage where `output` is one of the files that a run tells by: a report in its
/// place would be the end of the run.
void HoldToOtherFile(const std::string& output, const RunPlace& place);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_RUN_FACTS_H_
