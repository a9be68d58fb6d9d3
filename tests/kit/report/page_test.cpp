#include "kit/report/page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <regex>

#include "kit/report/made_report.h"
#include "support/files.h"
#include "support/golden.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;

size_t CountOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// Replaces what stands between two marks, wherever they stand.
std::string Emptied(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + 1)) {
    const size_t begin = at + from.size();
    const size_t end = text.find(to, begin);
    if (end == std::string::npos) break;
    text.replace(begin, end - begin, "...");
  }
  return text;
}

// What the page says, without what is the same on every page or another library's: style, scripts,
// their hashes, and how pictures are packed. An element a line, so that a difference is seen.
std::string WhatItSays(const std::string& page) {
  std::string said = Emptied(page, "<style>", "</style>");
  said = Emptied(said, "<script>", "</script>");
  said = Emptied(said, "style-src '", "'");
  said = Emptied(said, "script-src ", ";");
  said = Emptied(said, "data:image/png;base64,", "\"");
  return std::regex_replace(said, std::regex("><"), ">\n<");
}

struct GoldenPage {
  const char* name;
  ReportFacts (*make)();
};

class ReportPageGolden : public testing::TestWithParam<GoldenPage> {};

TEST_P(ReportPageGolden, SaysWhatItSaid) {
  const std::filesystem::path file =
      std::filesystem::path(VORN_PAGES_FOLDER) / (std::string(GetParam().name) + ".html");
  const std::string said = WhatItSays(ReportPage(GetParam().make()));
  if (support::MustUpdateGolden()) support::WriteFile(file, said);
  ASSERT_TRUE(std::filesystem::exists(file));
  // The whole texts are long; the first line that differs tells more.
  const auto is = support::SplitLines(said);
  const auto was = support::SplitLines(support::ReadFile(file));
  for (size_t i = 0; i < std::max(is.size(), was.size()); ++i) {
    ASSERT_EQ(i < is.size() ? is[i] : "(ends)", i < was.size() ? was[i] : "(ends)")
        << file << ", line " << i + 1 << "; VORN_UPDATE_GOLDEN=1 rewrites it";
  }
}

INSTANTIATE_TEST_SUITE_P(All, ReportPageGolden,
                         testing::Values(GoldenPage{"wrong", [] { return MadeWrongRun(); }},
                                         GoldenPage{"right", MadeRightRun},
                                         GoldenPage{"comparison", MadeComparison},
                                         GoldenPage{"fleet", MadeFleet}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(ReportPage, IsTheSameBytesForTheSameFacts) {
  EXPECT_EQ(ReportPage(MadeWrongRun()), ReportPage(MadeWrongRun()));
}

TEST(ReportPage, IsTheSameInEveryLocaleAndTimeZone) {
  const std::string page = ReportPage(MadeWrongRun());
  const char* zone = std::getenv("TZ");
  const std::string kept = zone == nullptr ? "" : zone;
  setenv("TZ", "Asia/Tokyo", 1);
  tzset();
  // Debian's minimal systems have no other locale; where there is one it writes 1,5.
  for (const char* locale : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8"}) {
    if (std::setlocale(LC_ALL, locale) != nullptr) break;
  }
  const std::string elsewhere = ReportPage(MadeWrongRun());
  std::setlocale(LC_ALL, "C");
  kept.empty() ? unsetenv("TZ") : setenv("TZ", kept.c_str(), 1);
  tzset();
  EXPECT_EQ(elsewhere, page);
}

TEST(ReportPage, SaysTheAnswerFirst) {
  const std::string page = ReportPage(MadeWrongRun());
  const size_t answer =
      page.find("<h1>&#39;detector.onnx&#39; by the runtime &#39;npu/libvorn.so&#39; on the host");
  ASSERT_NE(answer, std::string::npos);
  EXPECT_LT(page.find("WRONG</span>"), answer);
  EXPECT_LT(answer, page.find("<h2"));
}

// The key of the timeline has room for some.
TEST(ReportPage, NamesTheOperationsFirstThatTookLongest) {
  ReportFacts facts = MadeWrongRun();
  ReportTrace& trace = *facts.runs.at(0).trace;
  trace.names = {"vorn_short", "vorn_not", "vorn_long"};
  trace.spans = {{.beginNs = 0, .durationNs = 5, .operation = 0},
                 {.beginNs = 5, .durationNs = 50, .operation = 2},
                 {.beginNs = 60, .durationNs = 6, .operation = 0}};
  const std::string page = ReportPage(facts);
  EXPECT_NE(page.find("\"names\":[\"vorn_long\",\"vorn_short\",\"vorn_not\"]"), std::string::npos);
  EXPECT_NE(page.find("\"name\":[1,0,1]"), std::string::npos);
}

TEST(ReportPage, HasEachIdOnce) {
  for (const ReportFacts& facts :
       {MadeWrongRun(), MadeComparison(), MadeFleet(), MadeLargeRun(100)}) {
    const std::string page = ReportPage(facts);
    std::map<std::string, int> seen;
    const std::regex id(" id=\"([^\"]*)\"");
    for (std::sregex_iterator at(page.begin(), page.end(), id), end; at != end; ++at) {
      EXPECT_EQ(++seen[(*at)[1]], 1) << (*at)[1];
    }
    // What is linked to is there.
    const std::regex link(" href=\"#([^\"]*)\"");
    for (std::sregex_iterator at(page.begin(), page.end(), link), end; at != end; ++at) {
      EXPECT_EQ(seen.count((*at)[1]), 1U) << (*at)[1];
    }
  }
}

TEST(ReportPage, LetsNoNameBecomeMarkup) {
  const std::string hostile =
      "</script></style></title><script>alert(1)</script><img src=x onerror=alert(2)>\"' "
      "onload=\"x";
  const std::string page = ReportPage(MadeOfName(hostile));
  const std::string plain = ReportPage(MadeOfName("plain"));
  EXPECT_THAT(page, Not(HasSubstr("<script>alert")));
  EXPECT_THAT(page, Not(HasSubstr("<img src=x")));
  EXPECT_THAT(page, HasSubstr("&lt;img src=x"));
  for (const char* element :
       {"<script", "</script", "<img", "<style", "</style", "</title", "<table"}) {
    EXPECT_EQ(CountOf(page, element), CountOf(plain, element)) << element;
  }
}

TEST(ReportPage, ShowsWhatSteersInsteadOfObeying) {
  const std::string page =
      ReportPage(MadeOfName("a\xE2\x80\xAE"
                            "b\x1b[2J\n\xff\x80"));
  for (const char* raw : {"\xE2\x80\xAE", "\x1b", "\xff", "\x80\x80"}) {
    EXPECT_THAT(page, Not(HasSubstr(raw)));
  }
  EXPECT_THAT(page, HasSubstr("a\\xE2\\x80\\xAEb\\x1B[2J\\x0A\\xFF\\x80"));
}

TEST(ReportPage, StaysSmallWithNamesOfTenKilobytes) {
  const std::string page = ReportPage(MadeOfName(std::string(10240, 'n')));
  EXPECT_LT(page.size(), ReportPage(MadeOfName("n")).size() + 650'000);
  EXPECT_THAT(page, HasSubstr("(10,240 bytes)"));
}

TEST(ReportPage, HasNoAttributeThatItsPolicyForbids) {
  const std::string page = ReportPage(MadeWrongRun());
  const std::string body =
      page.substr(page.find("<body>"), page.find("<script>") - page.find("<body>"));
  EXPECT_FALSE(std::regex_search(body, std::regex("<[^>]* style=")));
  EXPECT_FALSE(std::regex_search(body, std::regex("<[^>]* on[a-z]+=")));
  EXPECT_FALSE(std::regex_search(body, std::regex("(src|href)=\"https?:")));
  EXPECT_THAT(page, HasSubstr("default-src &#39;none&#39;"));
}

TEST(ReportPage, TellsSeveralRunsApart) {
  const std::string page = ReportPage(MadeComparison());
  EXPECT_THAT(page, HasSubstr("Run 1: before"));
  EXPECT_THAT(page, HasSubstr("Run 2: after"));
  EXPECT_THAT(page, HasSubstr("1.16, 1.14 to 1.18"));
  EXPECT_THAT(page, HasSubstr("/opt/next/libvorn.so"));
}

TEST(ReportPage, HoldsTenThousandSamplesInThreeMegabytes) {
  const std::string page = ReportPage(MadeLargeRun(10000));
  EXPECT_LT(page.size(), 3'000'000U);
  RecordProperty("bytes", static_cast<int>(page.size()));
}

TEST(ReportPage, SaysThatRowsWereDrawnTogether) {
  ReportFacts facts = MadeWrongRun();
  facts.runs[0].judgement->outputs[0].columns.samplesPerRow = 100;
  EXPECT_THAT(ReportPage(facts), HasSubstr("each row stands for 100 neighbouring samples"));
  EXPECT_THAT(ReportPage(MadeWrongRun()), Not(HasSubstr("each row stands for")));
}

TEST(ReportPage, TellsOneReadingInASentence) {
  ReportFacts facts = MadeWrongRun();
  ReportMachine& machine = *facts.runs[0].machine;
  machine = {};
  machine.atNs = {100'000'000, 220'000'000};
  machine.rssBytes = {std::nullopt, uint64_t{8} << 20};
  machine.memoryAvailableBytes = {uint64_t{1} << 30, uint64_t{1} << 30};
  machine.leastFrequencyKhz = machine.mostFrequencyKhz = {std::nullopt, std::nullopt};
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page, HasSubstr("Memory of the program</strong>: 8 MiB. It was read once, 220 ms "
                              "after the start."));
  EXPECT_THAT(page, HasSubstr("resident, read once"));
  EXPECT_THAT(page, Not(HasSubstr("id=\"over-memory\"")));
  EXPECT_THAT(page, HasSubstr("id=\"over-available\""));
}

// What is not a value of the network is not known, or could not be measured.
TEST(ReportPage, HasNoNanButValues) {
  ReportFacts facts = MadeRightRun();
  ReportOutput& output = facts.runs[0].judgement->outputs[0];
  output.columns.rmse[3] = output.columns.maxAbs[3] = output.columns.cosine[3] = NAN;
  output.spreads[0].least = NAN;
  facts.runs[0].machine->rssBytes[5].reset();
  const std::string page = Emptied(ReportPage(facts), "<script>", "</script>");
  EXPECT_THAT(page, Not(HasSubstr(">NaN<")));
  EXPECT_THAT(page, Not(HasSubstr("NaN ")));
  facts = MadeWrongRun();
  EXPECT_THAT(ReportPage(facts), HasSubstr(">NaN<"));  // a worst element is one
}

TEST(ReportPage, HasAllSamplesBehindTheWorstOnesAndFolded) {
  const std::string page = ReportPage(MadeWrongRun());
  const size_t worst = page.find("<section id=\"worst\"");
  const size_t all = page.find("<section id=\"samples\"");
  ASSERT_NE(all, std::string::npos);
  EXPECT_LT(worst, all);
  EXPECT_EQ(page.find("class=\"large\"", all) != std::string::npos, true);
  EXPECT_LT(all, page.find("class=\"large\""));
  EXPECT_EQ(page.substr(page.find("<details", all), 22), "<details class=\"card\">");
}

TEST(ReportPage, TellsStepsAndTheSlowestExecutions) {
  ReportFacts facts = MadeWrongRun();
  ReportSeries& series = facts.runs[0].times.series[0];
  series.steps = {{120, 119, 118, 80, 22000, 35000}};
  series.outliers = 2;
  series.slowest = {{61, 60, 400000}, {31, 30, 300000}};
  series.drift = 0.5;
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page, HasSubstr("From sample 119 on an execution takes 35 µs (median of 80), and "
                              "took 22 µs before (median of 118): 1.59 times as long."));
  EXPECT_THAT(
      page,
      HasSubstr("2 times far off, the slowest: sample 60 with 400 µs, sample 30 with 300 µs"));
  EXPECT_THAT(page, Not(HasSubstr("the last third takes")));
}

TEST(ReportPage, CallsNoClassWrongThatEqualValuesDecide) {
  ReportFacts facts = MadeWrongRun();
  facts.runs[0].judgement->outputs[0].agreement = ReportOutput::Agreement{40, 30, 35, 8, 4};
  ReportDetail& detail = facts.runs[0].details[0];
  EXPECT_THAT(ReportPage(facts), HasSubstr("in another order, 8 more could have the same class "
                                           "first, and 4 more have it among the first five."));
  facts.runs[0].judgement->outputs[0].agreement->tied1 = 0;
  EXPECT_THAT(ReportPage(facts),
              HasSubstr("in another order, 4 more could have it among the first five."));
  detail.expectedTop = {{7, 0.5, 0.5}, {3, 0.5, 0.5}};
  detail.actualTop = {{3, 0.5}, {7, 0.5}};
  const std::string tied = ReportPage(facts);
  EXPECT_THAT(tied, HasSubstr("Classes of equal values share their places; they stand in the "));
  EXPECT_THAT(tied, HasSubstr(">0.5, equal<"));
  detail.actualTop = {{3, 0.6}, {7, 0.4}};
  detail.expectedTop = {{7, 0.5, 0.4}, {3, 0.5, 0.6}};
  // Two rows more, of which each has another class.
  EXPECT_EQ(CountOf(ReportPage(facts), "<tr class=\"bad\">"),
            CountOf(tied, "<tr class=\"bad\">") + 2);
}

// One second 0 for all that stands over time, and words that tell which.
TEST(ReportPage, SaysWhereItsTimeBegins) {
  ReportFacts facts = MadeWrongRun();
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page,
              HasSubstr("Time counts from the start of the run, when vorn launch began it ("));
  EXPECT_THAT(page, HasSubstr("which began 40 ms after the start of the run ("));
  EXPECT_THAT(page, HasSubstr("\"axis\":\"since the start of the run\",\"fromNs\":0,"));
  EXPECT_THAT(page, HasSubstr("\"later\":[340000000,"));
  // Where both clocks do not fit together the trace has a beginning of its own.
  facts.runs[0].trace->beganNs.reset();
  const std::string apart = ReportPage(facts);
  EXPECT_THAT(apart, HasSubstr("\"axis\":\"since vorn-run's process began to be traced\""));
  EXPECT_THAT(apart, HasSubstr("\"later\":[300000000,"));
}

// Words come first, and what a program looks for is a small sign behind them.
TEST(ReportPage, TellsFindingsInSentences) {
  ReportFacts facts = MadeWrongRun();
  facts.runs[0].remarks = {{ReportRemark::Kind::kWarning, "output-repeated", 0, "two samples are"}};
  facts.runs[0].findings = {{"leak", "error", 2, "a block was not freed", "vorn_rt_malloc"}};
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page, HasSubstr("<li>Two samples are. <a href=\"#outputs\">The verdict</a> "
                              "<code class=\"tag\">output-repeated</code></li>"));
  EXPECT_THAT(page, HasSubstr("<td>a block was not freed <code class=\"tag\">leak</code></td>"));
}

TEST(ReportPage, SaysWhoseMemoryItShows) {
  ReportFacts facts = MadeWrongRun();
  facts.runs[0].facts.program = FileIdentity{"/home/a/run.sh", {}, {}};
  EXPECT_THAT(ReportPage(facts), HasSubstr("resident at most, of run.sh"));
}

TEST(ReportPage, TellsSamplesThatMayBeANeighboursFromRightOnes) {
  ReportFacts facts = MadeWrongRun();
  ReportOutput& output = facts.runs[0].judgement->outputs[0];
  const auto right = std::find(output.columns.isWrong.begin(), output.columns.isWrong.end(), 0);
  const uint64_t sample =
      output.columns.sample.at(static_cast<size_t>(right - output.columns.isWrong.begin()));
  const std::string told = "right, or a neighbour";
  EXPECT_THAT(ReportPage(facts), Not(HasSubstr(told)));
  output.stretches = {{NeighbourPattern::kExchanged, {1, 2, 3, 4}, {sample}, {}}};
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page, HasSubstr("\"words\":[\"right\",\"wrong\",\"right, or a neighbour's\"]"));
  EXPECT_THAT(page, HasSubstr("right, or a neighbour&#39;s</li>"));
}

TEST(ReportPage, SpeaksOfOneSampleAsOfOne) {
  ReportFacts facts = MadeRightRun();
  ReportRun& run = facts.runs[0];
  run.judgement->outputs[0].agreement = ReportOutput::Agreement{1, 1, 1, 0, 0};
  ReportSeries& series = run.times.series.at(0);
  series.count = 0;
  series.warmUps = 1;
  series.medianNs.resize(1);
  series.startNs.resize(1);
  series.isWarmUp = {1};
  series.sample.resize(1);
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page, HasSubstr("The same class is first on both sides."));
  EXPECT_THAT(page, HasSubstr("none counts: the only one warmed up, and took "));
  EXPECT_THAT(page, Not(HasSubstr("id=\"times-order\"")));
}

// Which of nine classes that have nothing would be second is chance.
TEST(ReportPage, ListsNoClassesThatShareOneValue) {
  ReportFacts facts = MadeWrongRun();
  ReportDetail& detail = facts.runs[0].details[0];
  detail.expectedTop = {{3, 1, 1}, {6, 1e-6, 0}};
  detail.actualTop = {{3, 1}, {0, 0, 0, 9}};
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page, HasSubstr(">9 others<"));
  EXPECT_THAT(page, HasSubstr(">0 each<"));
  EXPECT_THAT(page, Not(HasSubstr("Classes of equal values")));
}

TEST(ReportPage, OfNothingButARunSaysWhatThereIs) {
  ReportFacts facts;
  facts.title = "vorn report";
  facts.answer = {
      ReportTone::kOpen, "not judged", "40 inferences are done; nobody has judged them.", {}};
  facts.runs.resize(1);
  const std::string page = ReportPage(facts);
  EXPECT_THAT(page, HasSubstr("nobody has judged them"));
  EXPECT_THAT(page, Not(HasSubstr("id=\"outputs\"")));
  EXPECT_THAT(page, Not(HasSubstr("id=\"times\"")));
}

}  // namespace
}  // namespace vorn::kit
