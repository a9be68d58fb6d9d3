// verdict.json, as vorn judge leaves it, read for a report.
#ifndef VORN_KIT_REPORT_JUDGEMENT_H_
#define VORN_KIT_REPORT_JUDGEMENT_H_

#include <string>
#include <string_view>

#include "kit/report/report_facts.h"

namespace vorn::kit {

struct KeptJudgement {
  ReportJudgement facts;
  std::string map;  ///< the text of the map that sides were paired by; empty without one
};

/// Takes what is there: a verdict of an older version has no columns. `path` is noted. Throws a
/// JsonError that says what is missing or wrong.
[[nodiscard]] KeptJudgement ParseJudgement(std::string_view text, const std::string& path);

/// Throws a Fault of kInput that names the file.
[[nodiscard]] KeptJudgement ReadJudgement(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_JUDGEMENT_H_
