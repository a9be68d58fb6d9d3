#include "kit/report/gather.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kit/common/fault.h"
#include "kit/report/facts_json.h"
#include "kit/report/made_run.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

class GatherTest : public testing::Test {
 protected:
  [[nodiscard]] std::string Path(const char* name) const {
    return (folder_.Path() / name).string();
  }

  support::TempDir folder_;
};

TEST_F(GatherTest, NamesRunsByWhatTellsThemApart) {
  MadeRun(folder_.Path() / "old/run").Write();
  MadeRun(folder_.Path() / "new/run").Write();
  ReportRequest request;
  request.runs = {Path("old/run"), Path("new/run/"), Path("old/run")};
  const ReportFacts facts = GatherReport(request);
  ASSERT_THAT(facts.runs, SizeIs(3));
  EXPECT_THAT(facts.runs[0].name, testing::EndsWith("old/run"));
  EXPECT_THAT(facts.runs[1].name, testing::EndsWith("new/run"));
  EXPECT_EQ(facts.runs[2].name, facts.runs[0].name + " (2)");
  EXPECT_THAT(facts.comparisons, SizeIs(2));
}

TEST_F(GatherTest, AnswersWithTheComparisonOfTwo) {
  MadeRun(folder_.Path() / "one").Write();
  MadeRun(folder_.Path() / "two").Write();
  ReportRequest request;
  request.runs = {Path("one"), Path("two")};
  const ReportFacts facts = GatherReport(request);
  EXPECT_EQ(facts.title, "one, two");
  EXPECT_EQ(facts.answer.verdict, "cannot tell");
  EXPECT_THAT(facts.answer.more, SizeIs(2));
  EXPECT_THAT(facts.answer.more[1], HasSubstr("'two': 'digits.onnx' on the host 'board-7'"));
  request.title = "A title";
  EXPECT_EQ(GatherReport(request).title, "A title");
}

TEST_F(GatherTest, IsTitledByModelAndFolder) {
  MadeRun(folder_.Path() / "demo/run").Write();
  ReportRequest request;
  request.runs = {Path("demo/run/")};
  EXPECT_EQ(GatherReport(request).title, "digits.onnx, demo/run");
}

TEST_F(GatherTest, GivesTheSameBytesForTheSameRuns) {
  const MadeRun reference(folder_.Path() / "reference");
  reference.Write();
  MadeRun run(folder_.Path() / "run");
  run.samples[0] = {0.1F, 0.7F, NAN, 0.1F};
  run.Write();
  JudgeRuns(run.folder, reference.folder);
  ReportRequest request;
  request.runs = {run.folder.string(), reference.folder.string()};
  request.nowRealtimeNs = 5;
  const std::string json = FactsJson(GatherReport(request));
  EXPECT_EQ(FactsJson(GatherReport(request)), json);
  EXPECT_EQ(support::FaultBySchema("report", json), "");
}

TEST_F(GatherTest, RefusesARunThatIsNone) {
  ReportRequest request;
  request.runs = {Path("nothing")};
  try {
    (void)GatherReport(request);
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("is not there"));
  }
}

}  // namespace
}  // namespace vorn::kit
