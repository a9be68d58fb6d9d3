#include "kit/page/chart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <regex>

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

Chart ChartOf(std::vector<double> y, ChartSeries::Style style = ChartSeries::Style::kLine) {
  Chart chart;
  chart.id = "c";
  chart.title = "Title";
  chart.description = "What is to be seen";
  chart.x = {.label = "x", .from = 0.0, .to = 10.0};
  chart.y = {.label = "y", .from = 0.0, .to = 10.0};
  ChartSeries series{.name = "series", .x = {}, .y = std::move(y), .style = style};
  for (size_t i = 0; i < series.y.size(); ++i) series.x.push_back(static_cast<double>(i));
  chart.series = {std::move(series)};
  return chart;
}

// The d of the first path of that kind among the marks; the key above them has some, too.
std::string PathOf(const Html& html, const std::string& kind) {
  std::smatch found;
  const std::string bytes = html.Bytes().substr(html.Bytes().find("class=\"marks\""));
  const std::regex path("<path class=\"" + kind + " [a-z0-9]*\" d=\"([^\"]*)\"");
  return std::regex_search(bytes, found, path) ? found[1].str() : "";
}

TEST(RoundTicks, StandAtRoundNumbers) {
  EXPECT_THAT(RoundTicks(0, 10, 5), ElementsAre(0, 2, 4, 6, 8, 10));
  EXPECT_THAT(RoundTicks(0.3, 1.1, 4),
              ElementsAre(0.4, testing::DoubleEq(0.6000000000000001), 0.8, 1.0));
  EXPECT_THAT(RoundTicks(1, 1000, 4, true), ElementsAre(1, 2, 5, 10, 20, 50, 100, 200, 500, 1000));
  EXPECT_THAT(RoundTicks(1, 1e6, 4, true), ElementsAre(1, 10, 100, 1000, 10000, 100000, 1000000));
}

TEST(RoundTicks, AreNoneWhereThereIsNoRange) {
  EXPECT_THAT(RoundTicks(1, 1, 5), IsEmpty());
  EXPECT_THAT(RoundTicks(NAN, 1, 5), IsEmpty());
  EXPECT_THAT(RoundTicks(0, INFINITY, 5), IsEmpty());
  EXPECT_THAT(RoundTicks(-1, 1, 5, true), IsEmpty());
}

TEST(RoundTicks, AreFewWhateverTheRange) {
  for (int step = 0; step < 54; ++step) {
    const double from = -1e300 + step * 3.7e298;
    EXPECT_LE(RoundTicks(from, from + 1e290, 5).size(), 24U);
  }
  EXPECT_LE(RoundTicks(5e-324, 1e308, 5, true).size(), 30U);
  EXPECT_LE(RoundTicks(1e15, 1e15 + 1, 5).size(), 24U);
}

// From 100 µs to 100 ms there are ten, of which a phone has room for some.
TEST(Draw, TellsWhichTextsOfAnAxisNeedRoom) {
  Chart chart;
  chart.id = "c";
  chart.x = {.quantity = Quantity::kNanoseconds, .isLogarithmic = true, .from = 1e5, .to = 1e8};
  chart.series = {{.x = {1e5, 1e8}, .y = {1, 2}}};
  const std::string html = Draw(chart).Bytes();
  EXPECT_THAT(html, HasSubstr("class=\"tick\" x=\"0%\""));
  EXPECT_THAT(html, HasSubstr("class=\"tick w3\" x=\"10.03%\""));
  EXPECT_THAT(html, HasSubstr("class=\"tick w2\" x=\"43.37%\""));
  // A few whole numbers have room anywhere.
  chart.x = {.quantity = Quantity::kCount, .from = 0, .to = 4};
  EXPECT_THAT(Draw(chart).Bytes(), Not(HasSubstr("tick w")));
}

TEST(Draw, CountsInWholeNumbers) {
  Chart chart;
  chart.id = "c";
  chart.x = {.quantity = Quantity::kCount, .from = 0, .to = 1.5};
  chart.series = {{.x = {0, 1}, .y = {1, 2}}};
  EXPECT_EQ(Draw(chart).Bytes().find("x=\"33.33%\""), std::string::npos);  // of 0.5
  EXPECT_NE(Draw(chart).Bytes().find("x=\"66.67%\""), std::string::npos);
}

TEST(Draw, PutsALineWhereItsValuesAre) {
  EXPECT_EQ(PathOf(Draw(ChartOf({0, 5, 10})), "line"), "M0 1000h0L100 500L200 0");
}

TEST(Draw, BreaksALineWhereAValueIsMissing) {
  EXPECT_EQ(PathOf(Draw(ChartOf({0, NAN, 10})), "line"), "M0 1000h0M200 0h0");
}

TEST(Draw, MakesStepsOfWhatHolds) {
  EXPECT_EQ(PathOf(Draw(ChartOf({0, 5}, ChartSeries::Style::kSteps)), "line"),
            "M0 1000h0L100 1000L100 500");
}

TEST(Draw, MakesBarsBetweenTheirEdges) {
  Chart chart = ChartOf({4, 0}, ChartSeries::Style::kBars);
  chart.series[0].x = {0, 5, 10};
  EXPECT_EQ(PathOf(Draw(chart), "bars"), "M0 1000L0 600L500 600L500 1000Z");
}

TEST(Draw, MakesABandOfBothSides) {
  Chart chart = ChartOf({2, 2}, ChartSeries::Style::kBand);
  chart.series[0].top = {4, 6};
  EXPECT_EQ(PathOf(Draw(chart), "band"), "M0 600L100 400L100 800L0 800Z");
}

TEST(Draw, SaysItselfToWhoDoesNotSeeIt) {
  const std::string html = Draw(ChartOf({1, 2})).Bytes();
  EXPECT_THAT(
      html,
      HasSubstr("role=\"img\" aria-labelledby=\"c-title\" aria-describedby=\"c-description\""));
  EXPECT_THAT(html, HasSubstr("<title id=\"c-title\">Title</title>"));
  EXPECT_THAT(html, HasSubstr("<desc id=\"c-description\">What is to be seen</desc>"));
  EXPECT_THAT(html, HasSubstr("<summary>Data as a table</summary>"));
}

TEST(Draw, TellsEachValueInTheTable) {
  Chart chart = ChartOf({1.5, NAN, -INFINITY});
  chart.y.quantity = Quantity::kNumber;
  const std::string html = Draw(chart).Bytes();
  EXPECT_THAT(html, HasSubstr(">1.5</td>"));
  EXPECT_THAT(html, HasSubstr(">–</td>"));
  EXPECT_THAT(html, HasSubstr(">−∞</td>"));
}

TEST(Draw, PutsSeriesOverTheSamePlacesIntoOneTable) {
  Chart chart = ChartOf({1, 2});
  chart.series.push_back(chart.series[0]);
  chart.series[1].name = "other";
  const std::string html = Draw(chart).Bytes();
  EXPECT_EQ(html.find("<table"), html.rfind("<table"));
  EXPECT_THAT(html, HasSubstr(">other</th>"));
}

// A slow reference: the least and the greatest of each stretch have to be on the drawing.
TEST(Draw, DrawsStretchesOfManyValuesFromLeastToMost) {
  std::vector<double> values(4000, 5);
  values[2345] = 9;
  values[17] = 1;
  Chart chart = ChartOf(values);
  chart.x.to = 4000;
  const Html html = Draw(chart);
  EXPECT_THAT(PathOf(html, "range"), HasSubstr(" 100"));  // 9 of 10, from above
  EXPECT_THAT(PathOf(html, "range"), HasSubstr(" 900"));  // 1 of 10
  EXPECT_LT(html.Bytes().size(), 60'000U);
}

TEST(Draw, StaysWithinItsSizeAndFiniteWhateverTheData) {
  for (const std::vector<double>& values : std::vector<std::vector<double>>{{},
                                                                            {NAN, NAN},
                                                                            {INFINITY, -INFINITY},
                                                                            {1e308, -1e308},
                                                                            {5e-324, 0},
                                                                            {1, 1, 1},
                                                                            {-0.0}}) {
    for (const bool isLogarithmic : {false, true}) {
      Chart chart = ChartOf(values);
      chart.x = {.label = "x", .isLogarithmic = isLogarithmic};
      chart.y = {.label = "y", .isLogarithmic = isLogarithmic};
      const std::string html = Draw(chart).Bytes();
      const std::string drawing = html.substr(0, html.find("<details"));
      EXPECT_THAT(drawing, Not(HasSubstr("nan")));
      EXPECT_THAT(drawing, Not(HasSubstr("inf")));
    }
  }
}

TEST(Draw, EscapesItsTexts) {
  Chart chart = ChartOf({1});
  chart.title = chart.description = chart.x.label = chart.series[0].name = "<b>";
  EXPECT_THAT(Draw(chart).Bytes(), Not(HasSubstr("<b>")));
}

TEST(DrawRowPlot, KeepsNumbersAndTheirUnitsOnOneLine) {
  RowPlot plot;
  plot.rows = {{Text("a"), {}, "sending 2 s, 14 % of 3 samples, 1 to 2", false}};
  EXPECT_THAT(Draw(plot).Bytes(),
              HasSubstr("sending 2\xC2\xA0s, 14\xC2\xA0% of 3 samples, 1 to 2"));
}

TEST(DrawRowPlot, PutsMarksAtTheirPlacesByShare) {
  RowPlot plot;
  plot.axis = {.label = "time", .from = 0.0, .to = 10.0};
  plot.rows = {{Text("part"), {{.from = 2.5, .to = 7.5}}, "5", false},
               {Text("whole"), {{.from = 0, .to = 10}}, "10", true}};
  const std::string html = Draw(plot).Bytes();
  EXPECT_THAT(html, HasSubstr("<rect class=\"bar i1\" x=\"25%\" y=\"20%\" width=\"50%\""));
  EXPECT_THAT(html, HasSubstr("<tr class=\"sum\">"));
}

TEST(DrawRowPlot, DrawsAnIntervalWithItsMiddleAndTheReference) {
  RowPlot plot;
  plot.axis = {.label = "ratio", .from = 0.5, .to = 1.5};
  plot.reference = 1;
  plot.rows = {{Text("run"),
                {{.kind = RowPlot::Mark::Kind::kInterval, .from = 1.1, .to = 1.3, .at = 1.25}},
                "1.25",
                false}};
  const std::string html = Draw(plot).Bytes();
  EXPECT_THAT(html, HasSubstr("x1=\"60%\" x2=\"80%\""));
  EXPECT_THAT(html, HasSubstr("cx=\"75%\""));
  EXPECT_THAT(html, HasSubstr("<line class=\"level\" x1=\"50%\" x2=\"50%\""));
}

TEST(DrawSparkline, BreaksAtWhatIsMissingAndMarksSteps) {
  Sparkline line{"medians of a series, last 8.1 ms", {1, NAN, 3}, {2}};
  const std::string html = Draw(line).Bytes();
  EXPECT_THAT(html, HasSubstr("<title>medians of a series, last 8.1 ms</title>"));
  EXPECT_THAT(html, HasSubstr("class=\"step\" d=\"M1000 1000L1000 0\""));
  EXPECT_THAT(html, HasSubstr("M0 1000h0M1000 0h0"));
}

}  // namespace
}  // namespace vorn::kit
