// Tables: small ones, which stand on the page as they are and which a script makes sortable, and
// one of very many rows, whose data stands there as columns and which a script shows a hundred rows
// at a time.
#ifndef VORN_KIT_PAGE_TABLE_H_
#define VORN_KIT_PAGE_TABLE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/page/html.h"

namespace vorn::kit {

struct Cell {
  Html content = {};
  std::optional<double> sortBy = {};  ///< of a number; texts are sorted by what they say
};

/// A cell of a count, of a number with four digits, of a time, of any text.
[[nodiscard]] Cell CountCell(uint64_t count);
[[nodiscard]] Cell NumberCell(double value);
/// A number that is none where nothing could be measured: a dash then.
[[nodiscard]] Cell MeasureCell(double value, int digits = 4);
[[nodiscard]] Cell TimeCell(double nanoseconds);
[[nodiscard]] Cell TextCell(std::string_view text);
[[nodiscard]] Cell NameCell(std::string_view name);

struct Table {
  struct Column {
    std::string title;
    bool holdsNumbers = false;  ///< set to the right
    std::string hint = {};      ///< what it means, shown with the title
  };
  struct Row {
    std::vector<Cell> cells = {};  ///< fewer leave the last columns empty
    bool isBad = false;            ///< a bar at its side
  };
  std::string caption;  ///< what the table is; read out, and shown above it if `showsCaption`
  bool showsCaption = false;
  std::vector<Column> columns;
  std::vector<Row> rows;
  bool isSortable = true;     ///< from two rows on, by buttons in the heads
  bool isFilterable = false;  ///< a field above it hides rows that do not have its words
};

/// With its own place to scroll sideways.
[[nodiscard]] Html Draw(const Table& table);

/// A column of very many rows.
struct DataColumn {
  enum class Kind {
    kNumbers,  ///< `numbers`, `digits` each; a dash of NaN, for what could not be measured
    kCounts,   ///< `numbers`, whole ones
    kTexts,    ///< `texts`; what all begin with is stored once
    kChoice,   ///< `choices[i]` is a place in `words`
    kSamples,  ///< `numbers`; those of `linked` lead to an id of the page
  };
  std::string title;
  Kind kind = Kind::kNumbers;
  std::vector<double> numbers = {};
  std::vector<std::string> texts = {};
  std::vector<std::string> words = {};
  std::vector<uint32_t> choices = {};
  std::vector<uint64_t> linked = {};
  int digits = 4;
};

/// Sorted and filtered over all of its rows, shown a hundred at a time. Without scripts `fallback`
/// stands there instead: the rows that matter.
struct DataTable {
  std::string id;
  std::string caption;
  std::vector<DataColumn> columns;   ///< of equal lengths
  std::string linkBase = "sample-";  ///< in front of a sample's number, for ids
  Html fallback;
};
[[nodiscard]] Html Draw(const DataTable& table);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_TABLE_H_
