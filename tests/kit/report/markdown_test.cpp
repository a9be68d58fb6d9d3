#include "kit/report/markdown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "kit/report/full_facts.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(EscapedMarkdown, LeavesNoMarkup) {
  EXPECT_EQ(EscapedMarkdown("plain words 7 µs"), "plain words 7 µs");
  EXPECT_EQ(EscapedMarkdown("a|b"), "a\\|b");
  EXPECT_EQ(EscapedMarkdown("<b> & </b>"), "&lt;b&gt; &amp; &lt;/b&gt;");
  EXPECT_EQ(EscapedMarkdown("`x` *y* _z_"), "\\`x\\` \\*y\\* \\_z\\_");
  EXPECT_EQ(EscapedMarkdown("[a](b)"), "\\[a\\](b)");
  EXPECT_EQ(EscapedMarkdown("@team #1"), "@&#8203;team \\#&#8203;1");
  EXPECT_EQ(EscapedMarkdown("https://x"), "https:&#8203;//x");
  EXPECT_EQ(EscapedMarkdown("www.x"), "www&#8203;.x");
  EXPECT_EQ(EscapedMarkdown("- x"), "\\- x");
  EXPECT_EQ(EscapedMarkdown("12. x"), "12\\. x");
  EXPECT_EQ(EscapedMarkdown("0.0381"), "0.0381");
  EXPECT_EQ(EscapedMarkdown(""), "");
  EXPECT_EQ(EscapedMarkdown("a\nb"), "a\\\\x0Ab");
}

// Every row of a table has as many cells as its title line, whatever names stand in it.
TEST(MarkdownText, KeepsTablesWhole) {
  const std::string text = MarkdownText(FullFacts());
  EXPECT_THAT(text, StartsWith("### "));
  EXPECT_THAT(text, HasSubstr("**WRONG**: the answer of"));
  EXPECT_THAT(text, Not(HasSubstr("<script")));
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));
  std::istringstream lines(text);
  size_t cells = 0;
  size_t rows = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with('|')) {
      cells = 0;
      continue;
    }
    size_t bars = 0;
    for (size_t i = 0; i < line.size(); ++i) bars += line[i] == '|' && line[i - (i > 0)] != '\\';
    if (cells != 0) {
      EXPECT_EQ(bars, cells) << line;
    }
    cells = bars;
    ++rows;
  }
  EXPECT_GT(rows, 10U);
}

TEST(MarkdownText, FencesCommandsThatHoldFences) {
  ReportFacts facts = FullFacts();
  facts.runs.resize(1);
  facts.comparisons.clear();
  EXPECT_THAT(MarkdownText(facts), HasSubstr("````sh\n# run it again\n```"));
}

TEST(MarkdownText, FitsIntoAComment) {
  ReportFacts facts = FullFacts();
  for (int i = 0; i < 400; ++i) facts.comparisons.push_back(facts.comparisons.front());
  const std::string text = MarkdownText(facts);
  EXPECT_LE(text.size(), 61000U);
  EXPECT_THAT(text, HasSubstr("The rest is left out"));
}

// There it would be folded, and a line of code.
TEST(MarkdownText, IsNotCutInAFold) {
  ReportFacts facts = FullFacts();
  facts.runs.resize(1);
  facts.comparisons.clear();
  facts.runs[0].commands = {{.purpose = "run it again", .command = std::string(70000, 'x')}};
  const std::string text = MarkdownText(facts);
  EXPECT_THAT(text, HasSubstr("worst samples</summary>"));
  EXPECT_THAT(text, Not(HasSubstr("```sh")));
  EXPECT_THAT(text, Not(HasSubstr("commands that repeat it")));
  EXPECT_THAT(text, HasSubstr("The rest is left out"));
}

TEST(MarkdownText, CutsALongCellBeforeItEscapesIt) {
  ReportFacts facts = FullFacts();
  facts.answer.more = {"a\n" + std::string(297, 'b') + "µ"};
  EXPECT_THAT(MarkdownText(facts), HasSubstr("\n- a\\\\x0A" + std::string(297, 'b') + "...\n"));
}

}  // namespace
}  // namespace vorn::kit
