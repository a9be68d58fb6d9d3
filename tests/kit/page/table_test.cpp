#include "kit/page/table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "kit/json/json.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;

Table TwoRows() {
  Table table;
  table.caption = "Two rows";
  table.columns = {{"name"}, {"count", true}};
  table.rows = {{{NameCell("a"), CountCell(1000)}}, {{NameCell("b"), CountCell(2)}, true}};
  return table;
}

// The JSON of a table's data element.
Json DataOf(const Html& html) {
  const std::string& bytes = html.Bytes();
  const std::string open = "<script type=\"application/json\"";
  const size_t begin = bytes.find('>', bytes.find(open)) + 1;
  return ParseJson(bytes.substr(begin, bytes.find("</script>", begin) - begin));
}

TEST(DrawTable, IsSortableByWhatIsBehindTheText) {
  const std::string html = Draw(TwoRows()).Bytes();
  EXPECT_THAT(html, HasSubstr("<table class=\"table sortable\">"));
  EXPECT_THAT(html, HasSubstr("<td class=\"n\" data-by=\"1000\">1,000</td>"));
  EXPECT_THAT(html, HasSubstr("<tr class=\"bad\">"));
  EXPECT_THAT(html, HasSubstr("<caption class=\"unseen\">Two rows</caption>"));
}

TEST(DrawTable, OfOneRowHasNothingToSort) {
  Table table = TwoRows();
  table.rows.pop_back();
  EXPECT_THAT(Draw(table).Bytes(), HasSubstr("<table class=\"table\">"));
}

TEST(DrawTable, FillsRowsThatAreShortAndCutsThoseThatAreLong) {
  Table table = TwoRows();
  table.rows = {{{TextCell("x")}}, {{TextCell("y"), CountCell(1), TextCell("beyond")}}};
  const std::string html = Draw(table).Bytes();
  EXPECT_THAT(html, HasSubstr("<td>x</td><td class=\"n\"></td>"));
  EXPECT_THAT(html, Not(HasSubstr("beyond")));
}

TEST(DrawTable, GivesScriptsNumbersThatTheyCanRead) {
  Table table = TwoRows();
  table.rows = {{{TextCell("x"), NumberCell(NAN)}}, {{TextCell("y"), NumberCell(-INFINITY)}}};
  const std::string html = Draw(table).Bytes();
  EXPECT_THAT(html, HasSubstr("data-by=\"NaN\""));
  EXPECT_THAT(html, HasSubstr("data-by=\"-Infinity\""));
}

TEST(DrawDataTable, KeepsColumnsAsData) {
  DataTable table;
  table.id = "t";
  table.caption = "All";
  table.columns = {
      {.title = "sample", .kind = DataColumn::Kind::kSamples, .numbers = {7, 8}, .linked = {7}},
      {.title = "value", .numbers = {0.123456, NAN}},
      {.title = "file", .kind = DataColumn::Kind::kTexts, .texts = {"pictures/a", "pictures/b"}},
      {.title = "verdict",
       .kind = DataColumn::Kind::kChoice,
       .words = {"right", "wrong"},
       .choices = {1, 0}}};
  table.fallback = Text("without scripts");
  const Html html = Draw(table);
  const Json data = DataOf(html);
  EXPECT_EQ(data.At("linkBase").AsText(), "sample-");
  const auto& columns = data.At("columns").Items();
  ASSERT_EQ(columns.size(), 4U);
  EXPECT_EQ(columns[0].At("linked").Items().at(0).AsUnsigned(), 7U);
  EXPECT_EQ(columns[1].At("values").Items().at(0).AsNumber(), 0.1235);
  EXPECT_TRUE(std::isnan(columns[1].At("values").Items().at(1).AsNumber()));
  EXPECT_EQ(columns[2].At("beginning").AsText(), "pictures/");
  EXPECT_EQ(columns[2].At("values").Items().at(1).AsText(), "b");
  EXPECT_EQ(columns[3].At("values").Items().at(0).AsUnsigned(), 1U);
  EXPECT_THAT(html.Bytes(), HasSubstr("<div class=\"fallback\">without scripts</div>"));
}

// A script prints the digits that stand here, and the table without scripts has the same.
TEST(DrawDataTable, HasTheDigitsThatTheRestOfThePageHas) {
  DataTable table;
  table.columns = {
      {.title = "RMSE", .numbers = {12345678, 123456, 0.000123456, 1.5}},
      {.title = "cosine", .numbers = {0.99999912, 1, 0, 0.5}, .digits = 6},
      {.title = "outside", .kind = DataColumn::Kind::kCounts, .numbers = {12345678, 1, 0, 2}}};
  const std::string html = Draw(table).Bytes();
  EXPECT_THAT(html, HasSubstr("[1.235e+07,123456,0.0001235,1.5]"));
  EXPECT_THAT(html, HasSubstr("[0.999999,1,0,0.5]"));
  EXPECT_THAT(html, HasSubstr("\"kind\":\"count\",\"values\":[12345678,1,0,2]"));
}

TEST(MeasureCell, IsADashOfWhatCouldNotBeMeasured) {
  EXPECT_EQ(MeasureCell(NAN).content.Bytes(), "–");
  EXPECT_EQ(MeasureCell(0.98765432).content.Bytes(), "0.9877");
  EXPECT_EQ(MeasureCell(0.98765432, 6).content.Bytes(), "0.987654");
}

TEST(DrawDataTable, SharesBeginningsOfWholeCharacters) {
  DataTable table;
  table.columns = {{.title = "t",
                    .kind = DataColumn::Kind::kTexts,
                    .texts = {"a\xC3\xA4", "a\xC3\xB6"}}};  // ä and ö begin with the same byte
  const Json column = DataOf(Draw(table)).At("columns").Items().at(0);
  EXPECT_EQ(column.At("beginning").AsText(), "a");
  EXPECT_EQ(column.At("values").Items().at(1).AsText(), "\xC3\xB6");
}

TEST(DrawDataTable, LetsNoTextEndItsData) {
  DataTable table;
  table.columns = {{.title = "</script>",
                    .kind = DataColumn::Kind::kTexts,
                    .texts = {"</script><img src=x>", "\xff\xE2\x80\xAE"}}};
  const Html html = Draw(table);
  EXPECT_EQ(html.Bytes().find("</script>"), html.Bytes().size() - 9);
  EXPECT_EQ(DataOf(html).At("columns").Items().at(0).At("values").Items().at(1).AsText(),
            "\\xFF\\xE2\\x80\\xAE");
}

}  // namespace
}  // namespace vorn::kit
