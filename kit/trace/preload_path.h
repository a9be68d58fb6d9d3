// A library by a path that LD_PRELOAD can hold.
#ifndef VORN_KIT_TRACE_PRELOAD_PATH_H_
#define VORN_KIT_TRACE_PRELOAD_PATH_H_

#include <string>

namespace vorn::kit {

/// LD_PRELOAD is a list, divided at blanks and colons, which nothing quotes. A library whose own
/// path holds one is given by a link in a new folder in /tmp, which goes with this object.
class PreloadPath {
 public:
  /// Throws a Fault of kLimit where the link cannot be made.
  explicit PreloadPath(const std::string& library);
  ~PreloadPath();
  PreloadPath(const PreloadPath&) = delete;
  PreloadPath& operator=(const PreloadPath&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string path_;
  std::string folder_;  // of the link; empty: there is none
};

}  // namespace vorn::kit

#endif  // VORN_KIT_TRACE_PRELOAD_PATH_H_
