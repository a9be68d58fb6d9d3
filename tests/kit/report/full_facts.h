// Facts in which every part of a report is, with names that somebody chose to do harm.
#ifndef VORN_TESTS_KIT_REPORT_FULL_FACTS_H_
#define VORN_TESTS_KIT_REPORT_FULL_FACTS_H_

#include "kit/report/report_facts.h"

namespace vorn::kit {

inline constexpr const char* kHostileName =
    "</td>|<script>alert(1)</script>\x1b[31m`\n## @team #1 [x](javascript:y) \xff https://e.x ";

/// Two runs of which the first has everything.
[[nodiscard]] ReportFacts FullFacts();

}  // namespace vorn::kit

#endif  // VORN_TESTS_KIT_REPORT_FULL_FACTS_H_
