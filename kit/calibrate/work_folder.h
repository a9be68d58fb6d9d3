// A folder beside a file that is being made, for what is removed again.
//
//     OUTPUT.PID.work/.lock   held by the process and by those that it starts, as long as one lives
#ifndef VORN_KIT_CALIBRATE_WORK_FOLDER_H_
#define VORN_KIT_CALIBRATE_WORK_FOLDER_H_

#include <string>
#include <vector>

#include "kit/common/owned_file.h"

namespace vorn::kit {

class WorkFolder {
 public:
  /// Removes the folders of the same output whose processes are no more, and makes its own. Throws
  /// a Fault of kUsage where the output is a folder, of kLimit where the folder cannot be made.
  explicit WorkFolder(const std::string& output);
  /// Removes it.
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

  /// Those that were found and removed.
  [[nodiscard]] const std::vector<std::string>& Removed() const { return removed_; }

 private:
  void RemoveLeft(const std::string& output);
  void Make(const std::string& output);

  std::string path_;
  OwnedFile lock_;
  std::vector<std::string> removed_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_CALIBRATE_WORK_FOLDER_H_
