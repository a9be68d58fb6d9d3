// What is kept of texts and lists that files of a run may make as long as they like: enough for
// each that a program of ours writes, and little enough that a report stays small.
#ifndef VORN_KIT_REPORT_BOUNDS_H_
#define VORN_KIT_REPORT_BOUNDS_H_

#include <string>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// A longer text has its beginning and its end, cut between characters, and between them how many
/// bytes are left out: "aaa… (999,600 bytes left out) …zzz".
void CutText(std::string& text, size_t most);

/// The first `most`, and behind these a text that says how many more there were.
void CutTexts(std::vector<std::string>& texts, size_t most);

/// All of a run but its answer, in which names of it stand: ask for that afterwards.
void BoundRun(ReportRun& run);

/// Likewise of a comparison.
void BoundComparison(ReportComparison& comparison);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_BOUNDS_H_
