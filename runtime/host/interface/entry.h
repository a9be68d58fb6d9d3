// Where the C interface begins: a call's fault becomes its status and one line of the log.
#ifndef VORN_RUNTIME_HOST_INTERFACE_ENTRY_H_
#define VORN_RUNTIME_HOST_INTERFACE_ENTRY_H_

#include <exception>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

#include "host/common/failure.h"
#include "host/common/log.h"
#include "vorn/vorn.h"

namespace vorn::host {

inline vorn_status Report(std::string_view operation, vorn_status status,
                          std::string_view reason) noexcept {
  Log(LogLevel::kError, operation, reason);
  return status;
}

/// Calls `steps` and answers with a status; nothing is thrown.
template <typename Steps>
vorn_status Answer(std::string_view operation, Steps&& steps) noexcept {
  try {
    std::forward<Steps>(steps)();
    return VORN_SUCCESS;
  } catch (const Failure& e) {
    return Report(operation, e.status(), e.what());
  } catch (const std::bad_alloc&) {
    return Report(operation, VORN_ERROR_OUT_OF_MEMORY, "out of memory; give the process more");
  } catch (const std::exception& e) {
    return Report(operation, VORN_ERROR_INTERNAL, e.what());
  } catch (...) {
    return Report(operation, VORN_ERROR_INTERNAL, "an unknown fault");
  }
}

/// Calls `steps` and answers with its result, or with `otherwise` if it fails; nothing is thrown.
template <typename Result, typename Steps>
Result AnswerWith(std::string_view operation, Result otherwise, Steps&& steps) noexcept {
  static_assert(std::is_trivially_copyable_v<Result>);
  Result result = otherwise;
  Answer(operation, [&] { result = std::forward<Steps>(steps)(); });
  return result;
}

/// Refuses a null place for a result, before anything is done for it.
inline void RequirePlace(const void* place) {
  if (place == nullptr) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the place for the result is null");
  }
}

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_INTERFACE_ENTRY_H_
