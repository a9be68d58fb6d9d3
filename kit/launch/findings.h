// What speaks against a run, or is to be known of it.
#ifndef VORN_KIT_LAUNCH_FINDINGS_H_
#define VORN_KIT_LAUNCH_FINDINGS_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kit/common/fault.h"

namespace vorn::kit {

struct Finding {
  ExitStatus status = ExitStatus::kInput;  ///< kDone: a remark, nothing is wrong
  std::string message;                     ///< one line, with file and line of the list in front

  bool operator==(const Finding&) const = default;
};

/// Every line of a list may have its fault: the first hundred are kept, and the others counted; of
/// two that are put together a hundred of each.
class Findings {
 public:
  void Add(Finding finding);
  void Add(const Findings& others);

  [[nodiscard]] bool IsEmpty() const { return first_.empty(); }
  [[nodiscard]] const std::vector<Finding>& First() const& { return first_; }
  [[nodiscard]] std::vector<Finding> First() && { return std::move(first_); }

  /// Those of `later` that are not found here, too, with `front` in front of each.
  void AddNew(const Findings& later, const std::string& front);

  /// The worst by the table of ExitStatus; kDone if there are only remarks.
  [[nodiscard]] ExitStatus Status() const { return status_; }

  /// All of them as one text, as a Fault prints it: a line each, with the program's name in front
  /// of all but the first.
  [[nodiscard]] std::string Text(const std::string& program) const;

 private:
  std::vector<Finding> first_;
  uint64_t more_ = 0;
  ExitStatus status_ = ExitStatus::kDone;
};

/// The one of two that stands first in the table of ExitStatus.
[[nodiscard]] ExitStatus FirstOf(ExitStatus one, ExitStatus other);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_FINDINGS_H_
