// The one way in which anything below the C interface says that it cannot do what it was asked.
//
// Inside this library a fault travels as an exception, because nearly every function has one and a
// status beside every result would drown the steps. It ends at the C interface (entry.h), where it
// becomes the status and one line of the log.
#ifndef VORN_RUNTIME_HOST_COMMON_FAILURE_H_
#define VORN_RUNTIME_HOST_COMMON_FAILURE_H_

#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string>

#include "vorn/vorn.h"

namespace vorn::host {

/// Joins what can be streamed: Join("input ", 3, " is missing").
template <typename... Parts>
std::string Join(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

/// "'a', 'b'", or "none".
template <typename Names>
std::string Quoted(const Names& names) {
  std::string text;
  for (const auto& name : names) text += Join(text.empty() ? "'" : ", '", name, "'");
  return text.empty() ? "none" : text;
}

/// "1 node", "3 nodes".
inline std::string Counted(size_t count, const char* what) {
  return Join(count, ' ', what, count == 1 ? "" : "s");
}

/// A status other than 0, and the reason: what was wrong, the value seen, what to change.
class Failure : public std::runtime_error {
 public:
  template <typename... Parts>
  explicit Failure(vorn_status status, const Parts&... reason)
      : std::runtime_error(Join(reason...)), status_(status) {}

  vorn_status status() const { return status_; }

 private:
  vorn_status status_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_COMMON_FAILURE_H_
