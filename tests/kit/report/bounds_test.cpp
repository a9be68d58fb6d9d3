#include "kit/report/bounds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kit/report/facts_json.h"
#include "kit/report/gather.h"
#include "kit/report/made_run.h"
#include "kit/report/markdown.h"
#include "kit/report/page.h"
#include "kit/report/terminal.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(CutText, LeavesOutTheMiddleAndSaysHowMuch) {
  std::string text = std::string(900, 'a') + std::string(100, 'z');
  CutText(text, 1000);
  EXPECT_EQ(text.size(), 1000U);
  CutText(text, 100);
  EXPECT_EQ(text, std::string(75, 'a') + "… (900 bytes left out) …" + std::string(25, 'z'));
  std::string wide;
  for (int i = 0; i < 100; ++i) wide += "é";
  CutText(wide, 101);
  EXPECT_THAT(wide, HasSubstr("é… ("));
  EXPECT_THAT(wide, HasSubstr(") …é"));
}

TEST(CutTexts, SaysHowManyAreLeftOut) {
  std::vector<std::string> texts{"a", "b", "c"};
  CutTexts(texts, 3);
  EXPECT_THAT(texts, ElementsAre("a", "b", "c"));
  CutTexts(texts, 1);
  EXPECT_THAT(texts, ElementsAre("a", "and 2 more"));
}

class BoundsTest : public testing::Test {
 protected:
  // Lists of so many items, each of a text of so many bytes.
  [[nodiscard]] ReportFacts Gathered(size_t items, size_t bytes) const {
    const auto text = [&](size_t i) { return std::to_string(i) + std::string(bytes, '<'); };
    const MadeRun reference(folder_.Path() / "reference");
    reference.Write();
    MadeRun run(folder_.Path() / "run");
    run.samples[1] = {NAN, 0.1F, 0.1F, 0.1F};
    RunFacts& facts = run.facts;
    facts.version = facts.machine.host = facts.machine.processor = facts.machine.kernel = text(0);
    facts.model.path = text(0);
    facts.standardError = text(0);
    facts.options.emplace();
    facts.configurationFiles.emplace();
    std::string findings;
    for (size_t i = 0; i < items; ++i) {
      facts.command.push_back(text(i));
      facts.options->push_back(text(i));
      facts.phases[text(i)] = i + 1;
      facts.warnings.push_back({"id" + text(i), 2, text(i)});
      facts.mapped.push_back({"/libvorn.so" + text(i), text(i)});
      facts.configurationFiles->emplace_back().path = text(i);
      findings += "{\"id\":\"" + text(i) + "\",\"message\":\"" + text(i) + "\"}\n";
    }
    run.Write();
    JudgeRuns(run.folder, reference.folder);
    support::WriteFile(run.folder / "findings.jsonl", findings);
    ReportRequest request;
    request.runs = {run.folder.string(), reference.folder.string()};
    return GatherReport(request);
  }

  static void ExpectSmall(const ReportFacts& facts) {
    constexpr size_t kMegabyte = 1'000'000;
    EXPECT_LT(ReportPage(facts).size(), 3 * kMegabyte);
    EXPECT_LT(FactsJson(facts).size(), 3 * kMegabyte);
    EXPECT_LT(MarkdownText(facts).size(), 100'000U);
    EXPECT_LT(TerminalText(facts, {}).size(), 300'000U);
    EXPECT_EQ(support::FaultBySchema("report", FactsJson(facts)), "");
  }

  support::TempDir folder_;
};

TEST_F(BoundsTest, ShowsTheFirstOfLongLists) {
  const ReportFacts facts = Gathered(5000, 10);
  ExpectSmall(facts);
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page, HasSubstr("nd 4,900 more warnings in run.json"));
  EXPECT_THAT(page, HasSubstr("4,980 further phases"));
  EXPECT_THAT(page, HasSubstr("4,800 more are in findings.jsonl"));
  EXPECT_THAT(page, HasSubstr("Libraries that were mapped (5,000)"));
  EXPECT_THAT(page, HasSubstr("bytes, too long to be shown here"));
}

TEST_F(BoundsTest, CutsLongTexts) {
  const ReportFacts facts = Gathered(3, 200'000);
  ExpectSmall(facts);
  EXPECT_THAT(FactsJson(facts), HasSubstr("bytes left out) …"));
  EXPECT_LT(facts.answer.sentence.size(), 5000U);
}

TEST_F(BoundsTest, LeavesWhatIsShortAsItIs) {
  const ReportFacts facts = Gathered(3, 10);
  EXPECT_THAT(FactsJson(facts), Not(HasSubstr("left out) …")));
  EXPECT_THAT(ReportPage(facts), Not(HasSubstr("more warnings in run.json")));
  EXPECT_EQ(facts.runs[0].facts.warnings.size(), 3U);
}

// Of verdict.json: outputs, of which each has all that it may have.
TEST_F(BoundsTest, KeepsAPageOfManyOutputsSmall) {
  ReportFacts facts = Gathered(1, 10);
  ReportJudgement& judgement = *facts.runs[0].judgement;
  ReportOutput output = judgement.outputs[0];
  output.columns = {};
  for (uint64_t i = 0; i < 500; ++i) {
    output.wrong.push_back({i, std::vector<std::string>(5, std::string(300, '<')), {}});
    output.wrong.back().causes = {{"cause-" + std::to_string(i), std::string(300, '<'), 0.5}};
    output.worst.push_back({i, i, "[1, 2]", 1, 2});
    output.columns.sample.push_back(i);
    output.columns.isWrong.push_back(1);
    output.columns.outside.push_back(3);
    for (auto* column : {&output.columns.maxAbs, &output.columns.rmse, &output.columns.cosine}) {
      column->push_back(static_cast<double>(i) / 7);
    }
  }
  judgement.outputs.assign(500, output);
  judgement.outputs[0].verdict = ReportVerdict::kRight;
  const std::string page = ReportPage(facts);
  EXPECT_LT(page.size(), 3'000'000U);
  EXPECT_THAT(page, HasSubstr("and 300 more outputs in verdict.json"));
  EXPECT_THAT(page, Not(HasSubstr("id=\"run-1-output-0\"")));
  EXPECT_THAT(page, HasSubstr("id=\"run-1-output-1\""));
}

}  // namespace
}  // namespace vorn::kit
