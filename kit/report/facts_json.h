// A report's facts as JSON: docs/schema/report.json.
#ifndef VORN_KIT_REPORT_FACTS_JSON_H_
#define VORN_KIT_REPORT_FACTS_JSON_H_

#include <string>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// All of it, indented, with a line end. Pictures are PNG files in Base64.
[[nodiscard]] std::string FactsJson(const ReportFacts& facts);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_FACTS_JSON_H_
