// How far it is, in one line of a terminal that is written anew in its place.
#ifndef VORN_KIT_COMMON_PROGRESS_LINE_H_
#define VORN_KIT_COMMON_PROGRESS_LINE_H_

#include <chrono>
#include <functional>
#include <string>

namespace vorn::kit {

/// On standard error, on a terminal only, and on one that can. It goes when this does, so that
/// what is said then has a line of its own.
class ProgressLine {
 public:
  explicit ProgressLine(bool isQuiet);
  ~ProgressLine() { Clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  /// Five times a second at most; `text` is not asked for more often.
  void Show(const std::function<std::string()>& text);

  /// Before anything else is written there.
  void Clear();

 private:
  bool canShow_;
  bool isShown_ = false;
  std::chrono::steady_clock::time_point shownAt_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_PROGRESS_LINE_H_
