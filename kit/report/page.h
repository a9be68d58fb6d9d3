// The page of a report: facts in, one HTML file out. What it is made of is in kit/page.
#ifndef VORN_KIT_REPORT_PAGE_H_
#define VORN_KIT_REPORT_PAGE_H_

#include <string>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// The whole file, as it is to be written. The same facts are the same bytes. Of one run each part
/// is a section of the page; of several the comparison comes first, and each run is a section.
[[nodiscard]] std::string ReportPage(const ReportFacts& facts);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_PAGE_H_
