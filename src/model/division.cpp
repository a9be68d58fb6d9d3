// Raises the signal whatever handler or mask the process has.
#include "model/division.h"

#include <csignal>
#include <cstdlib>

namespace vorn::run {

void RaiseDivisionFault() {
  struct sigaction byDefault {};
  byDefault.sa_handler = SIG_DFL;
  sigaction(SIGFPE, &byDefault, nullptr);
  sigset_t fault;
  sigemptyset(&fault);
  sigaddset(&fault, SIGFPE);
  pthread_sigmask(SIG_UNBLOCK, &fault, nullptr);
  std::raise(SIGFPE);
  std::abort();
}

}  // namespace vorn::run
