// The table of the interface, for looking up.
#include "scripted/operations.h"

#include <algorithm>
#include <iterator>

#include "vorn/operations.h"

namespace scripted {
namespace {

#define VORN_NEEDS_NOTHING Needs::kNothing
#define VORN_NEEDS_RUNTIME Needs::kRuntime
#define VORN_NEEDS_CONTEXT Needs::kContext
#define VORN_ROW(name, needs, ...) {#name, VORN_NEEDS_##needs},
constexpr Operation kOperations[] = {VORN_OPERATIONS(VORN_ROW, VORN_NO_PARAMETER)};
#undef VORN_ROW

}  // namespace

const Operation* FindOperation(std::string_view name) {
  const auto* found = std::ranges::find(kOperations, name, &Operation::name);
  return found == std::end(kOperations) ? nullptr : found;
}

}  // namespace scripted
