// The libvorn.so behind a layer.
#ifndef VORN_LAYERS_COMMON_NEXT_RUNTIME_H_
#define VORN_LAYERS_COMMON_NEXT_RUNTIME_H_

#include <type_traits>

#include "vorn/operations.h"
#include "vorn/vorn.h"

namespace vorn::layers {

/// The operations of the next runtime; null where it has none of that name.
struct NextRuntime {
// NOLINTNEXTLINE(bugprone-macro-parentheses): it is the name that is declared
#define VORN_LAYERS_MEMBER(name, needs, role, thing, parameters) decltype(&::name) name;
  VORN_OPERATIONS(VORN_LAYERS_MEMBER, VORN_NO_PARAMETER)
#undef VORN_LAYERS_MEMBER
  const char* path;  ///< of the file; empty if there is none
};

/// Found at the first call, by whichever thread comes first, and kept. Where the environment
/// variable VORN_NEXT names a file, that one; else the next library of this process in the loader's
/// order. One that is this layer again is refused. What is missing is told in one line on standard
/// error.
[[nodiscard]] const NextRuntime& Next();

/// What an operation answers for which there is no runtime: a status that is no success, null, or
/// 0.
template <typename Answer>
Answer Refusal() {
  if constexpr (std::is_same_v<Answer, vorn_status>) {
    return VORN_ERROR_NOT_INITIALIZED;
  } else {
    return Answer{};
  }
}

}  // namespace vorn::layers

#endif  // VORN_LAYERS_COMMON_NEXT_RUNTIME_H_
