// What a run tells that was merged of many boards' work: boards.json.
#ifndef VORN_KIT_REPORT_FLEET_FACTS_H_
#define VORN_KIT_REPORT_FLEET_FACTS_H_

#include <string>
#include <string_view>

#include "kit/report/report_facts.h"

namespace vorn::kit {

inline constexpr const char* kBoardsFile = "boards.json";

/// Throws a JsonError that says what is missing or wrong.
[[nodiscard]] ReportFleet ParseFleetFacts(std::string_view text);

/// Throws a Fault of kInput that names the file.
[[nodiscard]] ReportFleet ReadFleetFacts(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_FLEET_FACTS_H_
