#include "kit/report/summary_tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/report/full_facts.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(OutputTable, HasWrongOutputsFirstAndSomeOnly) {
  ReportJudgement judgement;
  for (const ReportVerdict verdict :
       {ReportVerdict::kRight, ReportVerdict::kNotJudged, ReportVerdict::kWrong}) {
    ReportOutput output;
    output.name = VerdictText(verdict);
    output.verdict = verdict;
    judgement.outputs.push_back(output);
  }
  judgement.outputsLeftOut = 10;
  const SummaryTable table = OutputTable(judgement, 2);
  ASSERT_THAT(table.rows, SizeIs(2));
  EXPECT_EQ(table.rows[0][0], "WRONG");
  EXPECT_EQ(table.rows[1][0], "not judged");
  EXPECT_EQ(table.leftOut, 11U);
}

TEST(SummaryTables, HaveACellForEachColumn) {
  const ReportFacts facts = FullFacts();
  const ReportRun& run = facts.runs[0];
  for (const SummaryTable& table :
       {OutputTable(*run.judgement, 5), WorstTable(run), TimesTable(facts.runs),
        BoardTable(*run.fleet, 5), OutputChangeTable(facts.comparisons[0], 5),
        ChangeTable(facts.comparisons[0])}) {
    EXPECT_FALSE(table.rows.empty());
    for (const auto& row : table.rows) EXPECT_EQ(row.size(), table.columns.size());
  }
}

TEST(OutputChangeTable, LeavesOutWhatIsTheSame) {
  ReportComparison comparison;
  comparison.outputs = {
      {"same", 5, 0, 0, 0, {}}, {"other", 4, 1, 0, 0, 3}, {"one", 0, 0, 2, 0, {}}};
  const SummaryTable table = OutputChangeTable(comparison, 1);
  ASSERT_THAT(table.rows, SizeIs(1));
  EXPECT_THAT(table.rows[0], ElementsAre("other", "4", "1", "3", "0"));
  EXPECT_EQ(table.leftOut, 1U);
}

}  // namespace
}  // namespace vorn::kit
