// A folder for the files of fuzz targets, in memory where the system has such a place.
#ifndef VORN_TESTS_FUZZ_SCRATCH_FOLDER_H_
#define VORN_TESTS_FUZZ_SCRATCH_FOLDER_H_

#include <filesystem>
#include <map>
#include <string>

namespace fuzz {

/// Goes, with all that is in it, when this does.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

  /// Writes a file, unless it was last written with these very bytes.
  void Write(const std::string& name, const std::string& bytes);

  /// The files of a folder below this one, by name; the folder and its files are removed.
  std::map<std::string, std::string> Take(const std::string& name);

 private:
  std::string path_;
  std::map<std::string, std::string> written_;
};

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_SCRATCH_FOLDER_H_
