#include "kit/page/page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/page/assets.h"
#include "kit/page/base64.h"
#include "support/command.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

Page SmallPage() {
  Page page;
  page.title = "A page";
  page.verdict = "right";
  page.tone = Tone::kGood;
  page.answer = "All is right.";
  page.sections = {{"first", "First", Paragraph(Text("content"))}, {"empty", "Empty", {}}};
  return page;
}

std::vector<std::string> Between(const std::string& text, const std::string& from,
                                 const std::string& to) {
  std::vector<std::string> found;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    const size_t begin = at + from.size();
    const size_t end = text.find(to, begin);
    found.push_back(text.substr(begin, end - begin));
    at = end;
  }
  return found;
}

// As a Content-Security-Policy names what it allows, by the system's own tool.
std::string PolicyHash(const std::string& bytes) {
  const support::TempDir folder;
  support::WriteFile(folder.Path() / "text", bytes);
  support::Command command;
  command.program = "sha256sum";
  command.arguments = {(folder.Path() / "text").string()};
  const support::Outcome outcome = RunCommand(command);
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  std::string hash;
  for (size_t i = 0; i < 64; i += 2) {
    hash += static_cast<char>(std::stoi(outcome.out.substr(i, 2), nullptr, 16));
  }
  return "&#39;sha256-" + Base64(hash) + "&#39;";
}

TEST(PageText, IsAWholeDocument) {
  const std::string text = PageText(SmallPage());
  EXPECT_THAT(text, StartsWith("<!DOCTYPE html>\n<html lang=\"en\">"));
  EXPECT_THAT(text, HasSubstr("<title>A page</title>"));
  EXPECT_THAT(text, HasSubstr("<h1>All is right.</h1>"));
  EXPECT_THAT(text, HasSubstr("<section id=\"first\" aria-labelledby=\"first-heading\">"));
}

TEST(PageText, LeavesOutSectionsWithoutContent) {
  EXPECT_THAT(PageText(SmallPage()), Not(HasSubstr("Empty")));
}

TEST(PageText, AllowsItsOwnStyleAndScriptsAndNothingElse) {
  for (const bool hasTimeline : {false, true}) {
    Page page = SmallPage();
    page.hasTimeline = hasTimeline;
    const std::string text = PageText(page);
    std::string policy =
        Between(text, "http-equiv=\"Content-Security-Policy\" content=\"", "\"")[0];
    EXPECT_THAT(policy, StartsWith("default-src &#39;none&#39;; style-src &#39;sha256-"));
    const auto scripts = Between(text, "<script>", "</script>");
    EXPECT_EQ(scripts.size(), hasTimeline ? 3U : 1U);
    for (const std::string& script : scripts) {
      EXPECT_THAT(policy, HasSubstr(PolicyHash(script)));
    }
    const auto styles = Between(text, "<style>", "</style>");
    EXPECT_EQ(styles.size(), hasTimeline ? 2U : 1U);
    for (const std::string& style : styles) EXPECT_THAT(policy, HasSubstr(PolicyHash(style)));
    EXPECT_THAT(policy, Not(HasSubstr("unsafe")));
    // It stands before all that it is about.
    EXPECT_LT(text.find("Content-Security-Policy"), text.find("<style>"));
  }
}

TEST(PageText, BringsTheTimelinesScriptsOnlyWhereThereIsOne) {
  Page page = SmallPage();
  EXPECT_THAT(PageText(page), Not(HasSubstr("uPlot=function")));
  page.hasTimeline = true;
  EXPECT_THAT(PageText(page), HasSubstr("uPlot=function"));
}

// What the build puts into the program is the file, to the byte.
TEST(Assets, AreTheFilesThatTheyAreMadeOf) {
  const std::filesystem::path folder = VORN_ASSETS_FOLDER;
  EXPECT_EQ(StyleText().text, support::ReadFile(folder / "style.css"));
  EXPECT_EQ(PageScriptText().text, support::ReadFile(folder / "page.js"));
  EXPECT_EQ(TimelineScriptText().text, support::ReadFile(folder / "timeline.js"));
  EXPECT_EQ(PlotScriptText().text, support::ReadFile(folder / "uplot" / "uPlot.iife.min.js"));
  EXPECT_EQ(PlotStyleText().text, support::ReadFile(folder / "uplot" / "uPlot.min.css"));
}

// Nothing in them may end the element that they stand in, or ask for anything.
TEST(Assets, StandWhereTheyArePut) {
  for (const auto& [text, hash] :
       {StyleText(), PageScriptText(), TimelineScriptText(), PlotScriptText(), PlotStyleText()}) {
    for (const char* part : {"</script", "</style", "<!--", "@import", "url(", "fetch(",
                             "XMLHttpRequest", "innerHTML", "eval("}) {
      EXPECT_EQ(text.find(part), std::string_view::npos) << part;
    }
  }
}

TEST(Tiles, ShowWhatTheyCount) {
  const std::string html =
      Tiles({{"wrong", "2", "of 40", Tone::kBad, true}, {"time", "8 ms", ""}}).Bytes();
  EXPECT_THAT(html, HasSubstr("<li class=\"bad\">"));
  EXPECT_THAT(html, HasSubstr("<span class=\"value\">8 ms</span></li>"));
}

TEST(Pill, HasASignBesideItsColour) {
  EXPECT_THAT(Pill(Tone::kBad, "WRONG").Bytes(), HasSubstr("✗"));
  EXPECT_THAT(Pill(Tone::kGood, "right").Bytes(), HasSubstr("✓"));
}

TEST(FactList, LeavesOutWhatIsNotKnown) {
  EXPECT_EQ(FactList({{"a", Text("1")}, {"b", {}}}).Bytes(),
            "<dl class=\"facts\"><dt>a</dt><dd>1</dd></dl>");
  EXPECT_TRUE(FactList({{"b", {}}}).IsEmpty());
}

TEST(LinkToFile, LeadsBelowThePageAndNowhereElse) {
  EXPECT_EQ(LinkToFile("runs/a b/report.html", Text("a")).Bytes(),
            "<a href=\"./runs/a%20b/report.html\">a</a>");
  EXPECT_EQ(LinkToFile("javascript:alert(1)", Text("a")).Bytes(),
            "<a href=\"./javascript%3Aalert%281%29\">a</a>");
  EXPECT_EQ(LinkToFile("//host/x", Text("a")).Bytes(), "a");
  EXPECT_EQ(LinkToFile("/etc/passwd", Text("a")).Bytes(), "a");
  EXPECT_EQ(LinkToFile("", Text("a")).Bytes(), "a");
}

}  // namespace
}  // namespace vorn::kit
