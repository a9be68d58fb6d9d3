// Facts of reports as a run of a detector could leave them, made up: always the same ones.
#ifndef VORN_TESTS_KIT_REPORT_MADE_REPORT_H_
#define VORN_TESTS_KIT_REPORT_MADE_REPORT_H_

#include <cstdint>
#include <string>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// A run that was judged and is wrong at two of its samples, with everything that a report can
/// tell.
[[nodiscard]] ReportFacts MadeWrongRun(uint64_t samples = 40);

/// The same, all right, without a trace.
[[nodiscard]] ReportFacts MadeRightRun();

/// Two runs, of which the second is slower and has another runtime.
[[nodiscard]] ReportFacts MadeComparison();

/// A run that was merged of three boards, of which one disagrees.
[[nodiscard]] ReportFacts MadeFleet();

/// A right run in which every text is `name`.
[[nodiscard]] ReportFacts MadeOfName(const std::string& name);

/// What is as long as it may be: `samples` samples, 20,000 calls, 2,000 moments.
[[nodiscard]] ReportFacts MadeLargeRun(uint64_t samples);

}  // namespace vorn::kit

#endif  // VORN_TESTS_KIT_REPORT_MADE_REPORT_H_
