#include "kit/page/table.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kit/json/json.h"
#include "kit/page/number_text.h"

namespace vorn::kit {
namespace {

// For a script: a number as JavaScript reads it.
std::string PlainNumber(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "Infinity" : "-Infinity";
  return NumberText(value, 9);
}

Html HeadOf(const Table::Column& column) {
  std::vector<Attribute> attributes{{"scope", "col"}};
  if (column.holdsNumbers) attributes.push_back({"class", "n"});
  if (!column.hint.empty()) attributes.push_back({"title", column.hint});
  return ElementOf("th", attributes, Text(column.title));
}

Html RowOf(const Table::Row& row, const std::vector<Table::Column>& columns) {
  Html cells;
  for (size_t i = 0; i < columns.size(); ++i) {
    std::vector<Attribute> attributes;
    if (columns[i].holdsNumbers) attributes.push_back({"class", "n"});
    if (i >= row.cells.size()) {
      cells += ElementOf("td", attributes);
      continue;
    }
    const Cell& cell = row.cells[i];
    if (cell.sortBy) attributes.push_back({"data-by", PlainNumber(*cell.sortBy)});
    cells += ElementOf("td", attributes, cell.content);
  }
  std::vector<Attribute> attributes;
  if (row.isBad) attributes.push_back({"class", "bad"});
  return ElementOf("tr", attributes, cells);
}

}  // namespace

Cell CountCell(uint64_t count) { return {Text(CountText(count)), static_cast<double>(count)}; }

Cell NumberCell(double value) { return {Text(NumberText(value)), value}; }

Cell MeasureCell(double value, int digits) {
  return {Text(std::isnan(value) ? "–" : NumberText(value, digits)), value};
}

Cell TimeCell(double nanoseconds) { return {Text(TimeText(nanoseconds)), nanoseconds}; }

Cell TextCell(std::string_view text) {
  constexpr size_t kMost = 400;  // a cell of more is no table any more
  return {text.size() <= kMost ? Text(text) : Text(NameExcerpt(text, kMost)), {}};
}

Cell NameCell(std::string_view name) { return {Name(name), {}}; }

Html Draw(const Table& table) {
  Html heads;
  for (const Table::Column& column : table.columns) heads += HeadOf(column);
  Html rows;
  for (const Table::Row& row : table.rows) rows += RowOf(row, table.columns);

  std::string kind = "table";
  if (table.isSortable && table.rows.size() > 1) kind += " sortable";
  if (table.isFilterable && table.rows.size() > 1) kind += " filterable";
  Html caption;
  if (!table.caption.empty()) {
    std::vector<Attribute> attributes;
    if (!table.showsCaption) attributes.push_back({"class", "unseen"});
    caption = ElementOf("caption", attributes, Text(table.caption));
  }
  Html whole = Element("table", {{"class", kind}},
                       caption + Element("thead", Element("tr", heads)) + Element("tbody", rows));
  // What scrolls has to be reached by the keyboard, and has to have a name.
  return Element("div",
                 {{"class", "scroll"},
                  {"tabindex", "0"},
                  {"role", "group"},
                  {"aria-label", table.caption.empty() ? "table" : table.caption}},
                 whole);
}

// ---- Very many rows -----------------------------------------------------------------------------

namespace {

// As few characters as tell it: a report of ten thousand samples is to stay small. A script shows
// the digits that stand here, so that a number reads alike with scripts and without.
std::string ShortNumber(double value, int digits) {
  if (std::isnan(value)) return "\"NaN\"";
  if (std::isinf(value)) return value > 0 ? "\"Infinity\"" : "\"-Infinity\"";
  return NumberText(value, digits);
}

std::string WholeNumber(double value) { return std::to_string(static_cast<int64_t>(value)); }

template <typename Values, typename Print>
std::string ListOf(const Values& values, Print print) {
  std::string list = "[";
  for (const auto& value : values) {
    if (list.size() > 1) list += ',';
    list += print(value);
  }
  return list + "]";
}

std::string JsonText(const std::string& text) { return ToText(Json(text)); }

// What all of these begin with, not cut within a character.
std::string CommonBeginning(const std::vector<std::string>& texts) {
  if (texts.size() < 2) return {};
  size_t length = texts[0].size();
  for (const std::string& text : texts) {
    size_t same = 0;
    while (same < std::min(length, text.size()) && text[same] == texts[0][same]) ++same;
    length = same;
  }
  while (length > 0 && length < texts[0].size() &&
         (static_cast<unsigned char>(texts[0][length]) & 0xC0) == 0x80) {
    --length;
  }
  return texts[0].substr(0, length);
}

std::string ColumnJson(const DataColumn& column) {
  using Kind = DataColumn::Kind;
  const auto number = [&](double value) { return ShortNumber(value, column.digits); };
  const auto whole = [](uint64_t value) { return std::to_string(value); };
  std::string json = "{\"title\":" + JsonText(column.title) + ",\"kind\":";
  switch (column.kind) {
    case Kind::kNumbers:
      return json + "\"number\",\"values\":" + ListOf(column.numbers, number) + "}";
    case Kind::kCounts:
      return json + "\"count\",\"values\":" + ListOf(column.numbers, WholeNumber) + "}";
    case Kind::kSamples:
      return json + "\"sample\",\"values\":" + ListOf(column.numbers, WholeNumber) +
             ",\"linked\":" + ListOf(column.linked, whole) + "}";
    case Kind::kChoice:
      return json + "\"choice\",\"words\":" + ListOf(column.words, JsonText) +
             ",\"values\":" + ListOf(column.choices, whole) + "}";
    case Kind::kTexts:
      break;
  }
  // What cannot be shown is written visibly before what they share is looked for: either alone is
  // text as it is to be shown.
  std::vector<std::string> shown;
  shown.reserve(column.texts.size());
  for (const std::string& text : column.texts) shown.push_back(NameExcerpt(text, 200));
  const std::string beginning = CommonBeginning(shown);
  return json + "\"text\",\"beginning\":" + JsonText(beginning) + ",\"values\":" +
         ListOf(shown,
                [&](const std::string& text) { return JsonText(text.substr(beginning.size())); }) +
         "}";
}

}  // namespace

Html Draw(const DataTable& table) {
  const std::string json = "{\"caption\":" + JsonText(table.caption) +
                           ",\"linkBase\":" + JsonText(table.linkBase) +
                           ",\"columns\":" + ListOf(table.columns, ColumnJson) + "}";
  return Element("div", {{"class", "large"}, {"id", table.id}, {"data-from", table.id + "-data"}},
                 Element("div", {{"class", "fallback"}}, table.fallback)) +
         ScriptData(table.id + "-data", json);
}

}  // namespace vorn::kit
