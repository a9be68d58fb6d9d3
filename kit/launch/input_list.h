// The list of inputs as vorn-run reads it, with the lines that things came from.
//
// A line is a path, or the name of a model input, ':' and a path; the folder of the list and '/' go
// in front of every path. Nothing is trimmed, empty lines count for nothing. If every entry names
// an input, and the lines divide by the model's inputs, each group is put into their order and the
// names are taken off; otherwise they stay in front of the paths.
#ifndef VORN_KIT_LAUNCH_INPUT_LIST_H_
#define VORN_KIT_LAUNCH_INPUT_LIST_H_

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/common/file_identity.h"

namespace vorn::kit {

/// What stands before the first ':' of a line, if that is a name as vorn-run sees it.
[[nodiscard]] std::optional<std::string_view> NameInLine(std::string_view line);

/// One input of one inference.
struct ListedInput {
  uint64_t line = 0;                ///< from 1, empty lines counted
  std::string text;                 ///< the whole line
  std::optional<std::string> name;  ///< as the list has it, where the names are taken off
  std::string path;                 ///< as the list has it, without the name
  std::string file;                 ///< what vorn-run opens
};

/// The folder of a file as vorn-run finds it: "." for a name alone.
[[nodiscard]] std::string FolderOfList(const std::string& listFile);

/// A list that is read as its lines are asked for: what is held of it does not grow with them, but
/// for sixteen bytes in 4,096 lines. Not for two threads at once.
class InputList {
 public:
  InputList();  ///< without a line
  ~InputList();
  InputList(InputList&&) noexcept;
  InputList& operator=(InputList&&) noexcept;

  /// Of a file, which has to stay as it is; another one that is put in its place is not seen.
  /// Throws a Fault of kInput.
  static InputList OfFile(const std::string& path);

  /// Of what stood in a file in that folder.
  static InputList OfBytes(std::string bytes, const std::string& folder);

  // Lists that are made of this one, which stays.

  /// `names` are those of all inputs but task and work buffer, thresholds included. Inputs that are
  /// named twice in a group keep the order of their lines.
  [[nodiscard]] InputList SortedBy(const std::vector<std::string>& names) const;

  /// The first lines alone, empty ones not counted, as if the list had no more.
  [[nodiscard]] InputList FirstOf(uint64_t lines) const;

  /// Without the first bytes, which are not to hold the end of a line.
  [[nodiscard]] InputList Without(uint64_t bytes) const;

  /// The same out of memory, whatever becomes of the file. `bytes` are all of it.
  [[nodiscard]] InputList HeldIn(std::string bytes) const;

  // What there is in it. Empty lines do not count.

  [[nodiscard]] uint64_t Lines() const { return lines_; }
  [[nodiscard]] uint64_t LastNumber() const { return lastNumber_; }    ///< of the last line
  [[nodiscard]] uint64_t NamedLines() const { return named_; }         ///< that have a name
  [[nodiscard]] uint64_t LinesNamedRightly() const { return known_; }  ///< have one of `names`
  [[nodiscard]] bool AreNamesUsed() const { return areNamesUsed_; }

  /// What it is read of, with the hash of all of it; without a path where that is memory.
  [[nodiscard]] FileIdentity File() const;

  /// By the order in which they are taken, below Lines(); quick one behind the other. It stays
  /// until the next one is asked for. Throws a Fault of kInput where the file cannot be read, or
  /// was changed.
  [[nodiscard]] const ListedInput& Input(uint64_t place) const;

 private:
  struct Source;
  // What a list is made of.
  struct Recipe {
    std::shared_ptr<const Source> source;
    std::string folder;
    std::vector<std::string> names;
    uint64_t begin = 0;                                    // the byte of the first line
    uint64_t most = std::numeric_limits<uint64_t>::max();  // lines
  };
  // Where a line begins, and how many are in front of it, the empty ones counted.
  struct Mark {
    uint64_t at = 0;
    uint64_t number = 0;
  };
  class Reader;

  explicit InputList(Recipe recipe);
  [[nodiscard]] uint64_t GroupSize() const { return areNamesUsed_ ? recipe_.names.size() : 1; }
  void ReadGroup(uint64_t first) const;
  [[nodiscard]] ListedInput TakeApart(ListedInput line) const;

  Recipe recipe_;
  uint64_t lines_ = 0;
  uint64_t lastNumber_ = 0;
  uint64_t named_ = 0;
  uint64_t known_ = 0;
  bool areNamesUsed_ = false;
  std::vector<Mark> marks_;  // of each 4,096th line

  mutable std::unique_ptr<Reader> reader_;
  mutable uint64_t next_ = 0;  // the line that it comes to
  mutable uint64_t groupAt_ = 0;
  mutable std::vector<ListedInput> group_;  // lines that are sorted together
};

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_INPUT_LIST_H_
