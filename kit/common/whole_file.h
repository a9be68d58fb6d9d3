// Files that others read while they are written.
#ifndef VORN_KIT_COMMON_WHOLE_FILE_H_
#define VORN_KIT_COMMON_WHOLE_FILE_H_

#include <string>
#include <string_view>

#include "kit/common/owned_file.h"

namespace vorn::kit {

/// At the end of the name that a file or a folder has until it is whole. Of a file there is the
/// process id between this and its name.
inline constexpr std::string_view kUnfinishedSuffix = ".part";

/// Makes the file, whose name is of this process's own, for writing, whatever a dead one of its
/// number left there: no link is followed, and two processes that write the same file do not meet.
/// Not open, with errno set, where that fails.
[[nodiscard]] OwnedFile OpenUnfinished(const std::string& path);

/// Writes a file that appears whole or not at all: under another name in the same folder, synced,
/// then renamed. Replaces what was there: of a link what it leads to. What is no regular file, such
/// as a device or a pipe, is written to as it is. Throws a Fault of kLimit that names the file.
void WriteWholeFile(const std::string& path, std::string_view bytes);

/// The same for a file that is too large to be held.
class WholeFile {
 public:
  /// Throws as above, as all of this does.
  explicit WholeFile(std::string path);
  /// Removes what was not finished.
  ~WholeFile();
  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;

  void Append(std::string_view bytes);

  /// Gives the file its name.
  void Finish();

 private:
  void Flush();
  [[noreturn]] void Refuse(int error) const;

  std::string path_;
  std::string part_;  // its name until it is finished
  std::string waiting_;
  OwnedFile file_;
  bool isWrittenInPlace_ = false;
};

/// A file of lines that grows. Move-only owner of its descriptor.
class LineFile {
 public:
  /// Opens the file, or makes it. A last line without its end, which a process left that was killed
  /// while it wrote, is cut off. Throws a Fault of kLimit that names the file.
  explicit LineFile(const std::string& path);

  /// Puts lines, each with its end, behind the last one, with as few writes as the system takes.
  /// Throws as above.
  void Append(std::string_view lines);

  /// Waits until all of it would outlast a loss of power. Throws as above.
  void Sync();

 private:
  std::string path_;
  OwnedFile file_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_WHOLE_FILE_H_
