// Columns for people.
#ifndef VORN_KIT_COMMON_TEXT_TABLE_H_
#define VORN_KIT_COMMON_TEXT_TABLE_H_

#include <string>
#include <vector>

namespace vorn::kit {

/// Rows whose columns line up, two blanks between them. Columns that were said to hold numbers end
/// at the same place, the others begin there. Texts are made printable as they come.
class TextTable {
 public:
  struct Column {
    std::string title;
    bool holdsNumbers = false;
  };

  explicit TextTable(std::vector<Column> columns);

  /// A text a column; fewer leave the last ones empty. More are left out.
  void Add(std::vector<std::string> row);

  /// All lines, each with its end and without blanks before it.
  [[nodiscard]] std::string Text() const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;  ///< the titles first
};

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_TEXT_TABLE_H_
