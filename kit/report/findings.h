// findings.jsonl: what a layer has found while a program ran, a line each.
#ifndef VORN_KIT_REPORT_FINDINGS_H_
#define VORN_KIT_REPORT_FINDINGS_H_

#include <string_view>

#include "kit/report/report_facts.h"

namespace vorn::kit {

inline constexpr const char* kFindingsFile = "findings.jsonl";

/// Takes the texts id, severity, message and operation, and the number count, as far as they are
/// there. Throws a JsonError for what is no object, or has neither id nor message.
[[nodiscard]] ReportFinding FindingFromLine(std::string_view line);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_FINDINGS_H_
