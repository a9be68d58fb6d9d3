// What the texts of a report, for a terminal and for a pull request, choose of its facts and how
// they spell it.
#ifndef VORN_KIT_REPORT_SUMMARY_TABLES_H_
#define VORN_KIT_REPORT_SUMMARY_TABLES_H_

#include <string>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// Cells as texts, which may be hostile; the column says whether they are numbers.
struct SummaryTable {
  struct Column {
    std::string title;
    bool holdsNumbers = false;
  };
  std::vector<Column> columns;
  std::vector<std::vector<std::string>> rows;
  uint64_t leftOut = 0;  ///< further rows
};

/// A row an output, the wrong ones first; at most `most`.
[[nodiscard]] SummaryTable OutputTable(const ReportJudgement& judgement, size_t most);

/// A row a sample and output, as far as they were opened.
[[nodiscard]] SummaryTable WorstTable(const ReportRun& run);

/// A row a series of times of each run.
[[nodiscard]] SummaryTable TimesTable(const std::vector<ReportRun>& runs);

/// A row a board; at most `most`.
[[nodiscard]] SummaryTable BoardTable(const ReportFleet& fleet, size_t most);

/// A row an output whose bytes are not the same in both runs.
[[nodiscard]] SummaryTable OutputChangeTable(const ReportComparison& comparison, size_t most);

/// A row a thing that is not the same.
[[nodiscard]] SummaryTable ChangeTable(const ReportComparison& comparison);

/// The answer in a few words, in capitals where it is bad.
[[nodiscard]] std::string VerdictHeading(const ReportAnswer& answer);

/// "right", "WRONG", "not judged".
[[nodiscard]] std::string VerdictText(ReportVerdict verdict);

/// Of the census, NaN where it has no such measure.
[[nodiscard]] double MeasureOf(const ReportOutput& output, const char* name);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_SUMMARY_TABLES_H_
