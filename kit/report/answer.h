// The answer in a sentence that a person can repeat.
#ifndef VORN_KIT_REPORT_ANSWER_H_
#define VORN_KIT_REPORT_ANSWER_H_

#include <string>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// Of one run, of which all else was gathered: right or wrong, on what, how fast, against what.
[[nodiscard]] ReportAnswer AnswerOf(const ReportRun& run);

/// Of two runs: slower or faster, whether the outputs changed, and what else did.
[[nodiscard]] ReportAnswer AnswerOf(const ReportComparison& comparison, const ReportRun& base,
                                    const ReportRun& other);

/// The text between quotes, whatever is in it: it is escaped where it is shown.
[[nodiscard]] std::string InQuotes(const std::string& text);

/// The last two parts of a path: a library's own name is the same of each runtime, and many a run
/// is called "run".
[[nodiscard]] std::string WithFolderAbove(const std::string& path);

/// The last part of a path, in quotes.
[[nodiscard]] std::string FileName(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_ANSWER_H_
