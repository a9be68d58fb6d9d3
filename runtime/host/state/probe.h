// Trying something out where it can do no harm.
#ifndef VORN_RUNTIME_HOST_STATE_PROBE_H_
#define VORN_RUNTIME_HOST_STATE_PROBE_H_

#include <cstdint>
#include <functional>
#include <string>

namespace vorn::host {

/// How a probe came to its end.
enum class ProbeEnd {
  kReturned,  ///< or threw: whoever does the same again will see it
  kEnded,     ///< by a signal, as when a library aborts, or by an exit
  kTimeout
};

struct ProbeResult {
  ProbeEnd end = ProbeEnd::kReturned;
  std::string how;  ///< for kEnded: "Aborted", "exit status 3", "how is not known"
};

/// Runs `steps` in a copy of this process, and waits for its end: what they do to memory is seen by
/// nobody, what they write to standard output and standard error goes nowhere, and no signal
/// handler of the program runs in it. After that many seconds, if not 0, the copy is ended. Only
/// the calling thread is in the copy, so a lock that another thread holds meanwhile stays held
/// there. Fails with VORN_ERROR_INTERNAL where there is no process to be had, or no file to be
/// opened.
ProbeResult Probe(uint32_t seconds, const std::function<void()>& steps);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_PROBE_H_
