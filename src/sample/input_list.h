// The input list file: one entry per line, a path or name:path, relative to the folder of the list.
#ifndef VORN_SRC_SAMPLE_INPUT_LIST_H_
#define VORN_SRC_SAMPLE_INPUT_LIST_H_

#include <istream>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::run {

/// The entry of one line: `folder` and '/' go in front of the path, behind a name and its ':'. An
/// absolute path gets them too.
[[nodiscard]] std::string MakeInputEntry(std::string_view line, std::string_view folder);

/// The entries of all lines that are not empty. Lines are taken as they are, blanks and carriage
/// returns included.
[[nodiscard]] std::vector<std::string> ReadInputEntries(std::istream& lines,
                                                        std::string_view folder);

/// The entries of a list file. A file that cannot be opened is reported and has none.
[[nodiscard]] std::vector<std::string> ReadInputListFile(const std::string& listFile);

/// The pieces between delimiters, empty ones included; nothing follows a delimiter at the end.
[[nodiscard]] std::vector<std::string> SplitString(const std::string& text, char delimiter);

}  // namespace vorn::run

#endif  // VORN_SRC_SAMPLE_INPUT_LIST_H_
