// The list of inputs as vorn-run reads it, with the lines that things came from.
//
// A line is a path, or the name of a model input, ':' and a path; the folder of the list and '/' go
// in front of every path. Nothing is trimmed, empty lines count for nothing. If every entry names
// an input, and the lines divide by the model's inputs, each group is put into their order and the
// names are taken off; otherwise they stay in front of the paths.
#ifndef VORN_KIT_LAUNCH_INPUT_LIST_H_
#define VORN_KIT_LAUNCH_INPUT_LIST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::kit {

/// A line that is not empty.
struct ListLine {
  uint64_t number = 0;  ///< from 1, empty lines counted
  std::string text;
};

[[nodiscard]] std::vector<ListLine> SplitListLines(std::string_view bytes);

/// What stands before the first ':' of a line, if that is a name as vorn-run sees it.
[[nodiscard]] std::optional<std::string_view> NameInLine(std::string_view line);

/// One input of one inference.
struct ListedInput {
  uint64_t line = 0;
  std::optional<std::string> name;  ///< as the list has it, where the names are taken off
  std::string path;                 ///< as the list has it, without the name
  std::string file;                 ///< what vorn-run opens
};

struct ResolvedList {
  std::vector<ListedInput> inputs;  ///< in the order in which they are taken
  bool areNamesUsed = false;
};

/// `folder` is that of the list; `inputNames` are those of all inputs but task and work buffer,
/// thresholds included. Inputs that are named twice in a group keep the order of their lines.
[[nodiscard]] ResolvedList ResolveList(const std::vector<ListLine>& lines,
                                       const std::string& folder,
                                       const std::vector<std::string>& inputNames);

/// The folder of a file as vorn-run finds it: "." for a name alone.
[[nodiscard]] std::string FolderOfList(const std::string& listFile);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_INPUT_LIST_H_
