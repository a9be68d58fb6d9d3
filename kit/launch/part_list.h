// Lines of a list that lies in a folder of its own, about files that lie elsewhere.
#ifndef VORN_KIT_LAUNCH_PART_LIST_H_
#define VORN_KIT_LAUNCH_PART_LIST_H_

#include <cstdint>
#include <string>

namespace vorn::kit {

class PartList {
 public:
  /// `folder` is there, and the list is to lie in it.
  explicit PartList(std::string folder);

  /// How a list in the folder names a file: by a relative path without a colon, which would make a
  /// name of what stands before it. Where there is none, by a link that this makes in the folder.
  /// Throws a Fault of kLimit.
  [[nodiscard]] std::string PathTo(const std::string& file);

 private:
  std::string Real(const std::string& file);
  std::string Link(const std::string& target);

  std::string folder_;
  std::string real_;
  std::string lastFolder_;  ///< of the file before, as it was given, with its "/"
  std::string lastReal_;    ///< the same without links
  uint64_t links_ = 0;
};

/// A path from one absolute folder to a file, both without symbolic links.
[[nodiscard]] std::string RelativePath(const std::string& folder, const std::string& file);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_PART_LIST_H_
