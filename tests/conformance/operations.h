// The operations of vorn.h as variables of the same names, filled from a runtime that is opened
// while the program runs. Within this namespace a call reads as it does in any caller, and nothing
// is linked.
#ifndef VORN_TESTS_CONFORMANCE_OPERATIONS_H_
#define VORN_TESTS_CONFORMANCE_OPERATIONS_H_

#include <string>

#include "vorn/operations.h"
#include "vorn/vorn.h"

namespace conformance {

// NOLINTNEXTLINE(bugprone-macro-parentheses): it is the name that is declared
#define VORN_DECLARE(name, ...) inline decltype(&::name) name = nullptr;
VORN_OPERATIONS(VORN_DECLARE, VORN_NO_PARAMETER)
#undef VORN_DECLARE

/// Opens the runtime at `path` and looks every operation up, the first time it is called. Returns
/// an empty text, or what is missing.
std::string OpenRuntime(const std::string& path);

}  // namespace conformance

#endif  // VORN_TESTS_CONFORMANCE_OPERATIONS_H_
