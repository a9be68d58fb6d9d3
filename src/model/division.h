// Integer division by counts that a model or its runtime supplies. A zero ends the process the way
// an integer division does on x86-64, by SIGFPE: scripts tell that end from an error by the signal.
#ifndef VORN_SRC_MODEL_DIVISION_H_
#define VORN_SRC_MODEL_DIVISION_H_

#include <cstdint>

namespace vorn::run {

/// Ends the process by SIGFPE whatever handler or mask is in place. The division itself would not
/// do: it does not trap on every processor, sanitizers intercept it, and the compiler may assume
/// that it never happens.
[[noreturn]] void RaiseDivisionFault();

inline uint64_t DivideOrFault(uint64_t dividend, uint64_t divisor) {
  if (divisor == 0) RaiseDivisionFault();
  return dividend / divisor;
}

inline uint64_t RemainderOrFault(uint64_t dividend, uint64_t divisor) {
  if (divisor == 0) RaiseDivisionFault();
  return dividend % divisor;
}

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_DIVISION_H_
