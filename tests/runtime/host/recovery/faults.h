// Faults on purpose: the n-th allocation of this program, or the n-th call of ONNX Runtime, fails.
//
// Allocations are seen through replaced operators new and, by the linker's --wrap, where the
// runtime calls posix_memalign and calloc itself. Calls are seen through a copy of ONNX Runtime's
// table of functions, which the runtime takes everything from.
//
// What ONNX Runtime allocates for itself is spared: it frees an address that is none when such an
// allocation fails within a run, and the process ends by a signal.
#ifndef VORN_TESTS_RUNTIME_HOST_RECOVERY_FAULTS_H_
#define VORN_TESTS_RUNTIME_HOST_RECOVERY_FAULTS_H_

#include <cstdint>

namespace vorn::host {

enum class Fault {
  kAllocation,  ///< of the runtime, also where ONNX Runtime takes memory of a device from it
  kCall         ///< of ONNX Runtime
};

/// Brings ONNX Runtime up and puts the copy in the place of its table; once in a program.
void WatchEngine();

/// Lets the event number `n` of that kind, from 0, fail on this thread. Events count while the
/// thread is exposed, so that a test's own steps are spared.
void Arm(Fault fault, int64_t n);

/// Ends that; whether it has failed by now.
bool Disarm();

class Exposed {
 public:
  Exposed();
  Exposed(const Exposed&) = delete;
  Exposed& operator=(const Exposed&) = delete;
  ~Exposed();
};

}  // namespace vorn::host

#endif  // VORN_TESTS_RUNTIME_HOST_RECOVERY_FAULTS_H_
