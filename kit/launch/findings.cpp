#include "kit/launch/findings.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vorn::kit {
namespace {

constexpr size_t kMostFindings = 100;

}  // namespace

void Findings::Add(Finding finding) {
  status_ = FirstOf(status_, finding.status);
  if (first_.size() < kMostFindings) {
    first_.push_back(std::move(finding));
  } else {
    ++more_;
  }
}

void Findings::Add(const Findings& others) {
  for (const Finding& finding : others.first_) Add(finding);
  status_ = FirstOf(status_, others.status_);
  more_ += others.more_;
}

void Findings::AddNew(const Findings& later, const std::string& front) {
  const std::vector<Finding> here = first_;
  for (const Finding& finding : later.first_) {
    if (std::find(here.begin(), here.end(), finding) != here.end()) continue;
    first_.push_back({.status = finding.status, .message = front + finding.message});
  }
  // Where there are many it is for the same reason, as a rule.
  status_ = FirstOf(status_, later.status_);
  more_ = std::max(more_, later.more_);
}

std::string Findings::Text(const std::string& program) const {
  std::string text;
  for (const Finding& finding : first_) {
    text += (text.empty() ? "" : "\n" + program + ": ") + finding.message;
  }
  if (more_ > 0) text += "\n" + program + ": and " + std::to_string(more_) + " more";
  return text;
}

ExitStatus FirstOf(ExitStatus one, ExitStatus other) {
  constexpr std::array kOrder{ExitStatus::kUsage,      ExitStatus::kInput,    ExitStatus::kModel,
                              ExitStatus::kRuntime,    ExitStatus::kLimit,    ExitStatus::kPartial,
                              ExitStatus::kDiffers,    ExitStatus::kSlower,   ExitStatus::kNothing,
                              ExitStatus::kCannotTell, ExitStatus::kOwnFault, ExitStatus::kDone};
  for (const ExitStatus status : kOrder) {
    if (status == one || status == other) return status;
  }
  return ExitStatus::kOwnFault;
}

}  // namespace vorn::kit
