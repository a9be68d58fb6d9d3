#include "kit/common/text_table.h"

#include <algorithm>

#include "kit/common/printable.h"

namespace vorn::kit {

TextTable::TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {
  std::vector<std::string> titles;
  for (const Column& column : columns_) titles.push_back(column.title);
  Add(std::move(titles));
}

void TextTable::Add(std::vector<std::string> row) {
  row.resize(columns_.size());
  for (std::string& text : row) text = Printable(text);
  rows_.push_back(std::move(row));
}

std::string TextTable::Text() const {
  std::vector<size_t> widths(columns_.size());
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(row[i]));
  }
  std::string text;
  for (const auto& row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string blanks(widths[i] - DisplayWidth(row[i]), ' ');
      if (i > 0) line += "  ";
      line += columns_[i].holdsNumbers ? blanks + row[i] : row[i] + blanks;
    }
    line.resize(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace vorn::kit
