// The verb, as a program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/report/made_run.h"
#include "support/command.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ReportVerb : public testing::Test {
 protected:
  void SetUp() override {
    const MadeRun reference(folder_.Path() / "reference");
    reference.Write();
    MadeRun run(folder_.Path() / "run");
    run.samples[1] = {0.7F, 0.1F, 0.1F, 0.1F};
    run.Write();
    JudgeRuns(run.folder, reference.folder);
  }

  [[nodiscard]] support::Outcome Report(std::vector<std::string> words) const {
    words.insert(words.begin(), "report");
    support::Command command{VORN_COMMAND, std::move(words), {}, folder_.Path()};
    command.environment["SOURCE_DATE_EPOCH"] = "1700000000";
    return support::RunCommand(command);
  }

  support::TempDir folder_;
};

TEST_F(ReportVerb, TellsTheTopPartWithoutAFile) {
  const support::Outcome ended = Report({"run"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out,
              StartsWith("WRONG  'digits.onnx' on the host 'board-7' (Cortex-A55) is wrong in 1 "
                         "of 4 samples of 'prob'"));
  EXPECT_THAT(ended.out, HasSubstr("vorn report run -o report.html"));
  EXPECT_THAT(ended.out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(Report({"run", "--quiet"}).out, Not(HasSubstr("the whole page")));
  EXPECT_THAT(Report({"reference", "run"}).out,
              HasSubstr("the whole page: vorn report reference run -o report.html"));
}

TEST_F(ReportVerb, WritesAPageWholeAndTheSameEachTime) {
  const support::Outcome ended = Report({"run", "-o", "report.html", "--title", "<A & B>"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(ended.out, "");
  EXPECT_THAT(ended.err, HasSubstr("wrote 'report.html'"));
  const std::string page = support::ReadFile(folder_.Path() / "report.html");
  EXPECT_THAT(page, HasSubstr("is wrong in 1 of 4 samples"));
  EXPECT_THAT(page, HasSubstr("&lt;A &amp; B&gt;"));
  EXPECT_THAT(page, Not(HasSubstr("<A & B>")));
  EXPECT_EQ(Report({"run", "-o", "report.html", "--title", "<A & B>", "-q"}).err, "");
  EXPECT_EQ(support::ReadFile(folder_.Path() / "report.html"), page);
}

TEST_F(ReportVerb, WritesInNoPlaceOfTheRun) {
  const std::string verdict = support::ReadFile(folder_.Path() / "run/verdict.json");
  std::filesystem::create_symlink("run/run.json", folder_.Path() / "link");
  for (const char* output : {"run/verdict.json", "run/../run/times.jsonl", "link"}) {
    const support::Outcome ended = Report({"reference", "run", "--json", "-o", output});
    EXPECT_EQ(ended.status, 2) << ended.Describe();
    EXPECT_THAT(ended.err, HasSubstr("is a file of the run; name another one"));
  }
  EXPECT_EQ(support::ReadFile(folder_.Path() / "run/verdict.json"), verdict);
  EXPECT_EQ(Report({"run", "-o", "run/report.html"}).status, 0);
}

TEST_F(ReportVerb, PrintsJsonByItsSchema) {
  const support::Outcome ended = Report({"run", "reference", "--json"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(support::FaultBySchema("report", ended.out), "");
  EXPECT_THAT(ended.out, HasSubstr("\"madeRealtimeNs\": 1700000000000000000"));
}

TEST_F(ReportVerb, PrintsMarkdown) {
  const support::Outcome ended = Report({"run", "--markdown"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("**WRONG**"));
  EXPECT_THAT(ended.out, HasSubstr("| prob | WRONG | 4 | 1 |"));
}

TEST_F(ReportVerb, OpensAsManySamplesAsItIsTold) {
  EXPECT_THAT(Report({"run", "--json", "--samples", "0"}).out, HasSubstr("\"details\": []"));
  EXPECT_EQ(Report({"run", "--samples", "101"}).status, 2);
}

TEST_F(ReportVerb, RefusesWhatIsNoRun) {
  EXPECT_EQ(Report({}).status, 2);
  EXPECT_EQ(Report({"run", "--json", "--markdown"}).status, 2);
  const support::Outcome ended = Report({"nothing", "-o", "report.html"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("'nothing' is not there"));
  EXPECT_FALSE(std::filesystem::exists(folder_.Path() / "report.html"));
  const support::Outcome unwritable = Report({"run", "-o", "no/folder/report.html"});
  EXPECT_EQ(unwritable.status, 7);
  EXPECT_THAT(unwritable.err, HasSubstr("no/folder/report.html"));
}

}  // namespace
}  // namespace vorn::kit
