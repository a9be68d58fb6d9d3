// What a person wants to know of a qualification, on a screenful.
#ifndef VORN_KIT_QUALIFY_SUMMARY_H_
#define VORN_KIT_QUALIFY_SUMMARY_H_

#include <string>
#include <vector>

#include "kit/qualify/qualification.h"

namespace vorn::kit {

/// What ran on what, right or wrong and why, how fast, what to open. Reads what the steps have left
/// in the run; what cannot be read is left out.
[[nodiscard]] std::string SummaryText(const Qualification& qualification,
                                      const std::vector<QualifyStep>& steps);

}  // namespace vorn::kit

#endif  // VORN_KIT_QUALIFY_SUMMARY_H_
