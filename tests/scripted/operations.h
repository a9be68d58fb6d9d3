// The operations of vorn.h by name, and what a caller has to have in place for each.
#ifndef VORN_TESTS_SCRIPTED_OPERATIONS_H_
#define VORN_TESTS_SCRIPTED_OPERATIONS_H_

#include <string_view>

namespace scripted {

/// What an operation has to find in place; see vorn/operations.h.
enum class Needs { kNothing, kRuntime, kContext };

struct Operation {
  std::string_view name;
  Needs needs;
};

/// Null for a name that no operation has.
const Operation* FindOperation(std::string_view name);

}  // namespace scripted

#endif  // VORN_TESTS_SCRIPTED_OPERATIONS_H_
