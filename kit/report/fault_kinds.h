// What kinds of fault a verdict tells of, and which samples have each: NaN and infinities by their
// counts, else the cause that fits best, else nothing but that they differ.
#ifndef VORN_KIT_REPORT_FAULT_KINDS_H_
#define VORN_KIT_REPORT_FAULT_KINDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

struct FaultKind {
  std::string words;              ///< a few, as they stand before "in sample 17": "NaN"
  std::string sentence;           ///< what is wrong, without a full stop; names may be in it
  bool areOthersAlike = false;    ///< the same of some samples by other numbers, and it says so
  std::string further{};          ///< then, behind the sentence of the first of them
  double explained = 0;           ///< of what differs, at least; 0 where it is no cause
  std::vector<uint64_t> samples;  ///< rising
};

/// Of one output, the most frequent first. Of more than kMostReportFaults wrong samples only these
/// are told.
[[nodiscard]] std::vector<FaultKind> FaultKindsOf(const ReportOutput& output);

/// The same of all outputs together, each sample once a kind. What has a kind in one output is not
/// told as a mere difference of another.
[[nodiscard]] std::vector<FaultKind> FaultKindsOf(const ReportJudgement& judgement);

/// "sample 17", "samples 17, 58 and 130 to 199", "samples 1, 3, 5, 7, 9 and 12 more".
[[nodiscard]] std::string SamplesText(const std::vector<uint64_t>& samples, size_t most = 5);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_FAULT_KINDS_H_
