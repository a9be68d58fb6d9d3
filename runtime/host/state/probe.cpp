// A child process, and how it ended.
#include "host/state/probe.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

/// Signals end the child in silence, whatever the program does about them, and leave no core file.
void BeQuiet() {
  for (const int number : {SIGABRT, SIGALRM, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGTRAP}) {
    signal(number, SIG_DFL);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  const rlimit noCore = {.rlim_cur = 0, .rlim_max = 0};
  setrlimit(RLIMIT_CORE, &noCore);
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
}

[[noreturn]] void RunInChild(pid_t parent, uint32_t seconds, const std::function<void()>& steps) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(0);  // it was gone before
  BeQuiet();
  alarm(seconds);
  try {
    steps();
  } catch (...) {
    _exit(0);
  }
  _exit(0);
}

}  // namespace

ProbeResult Probe(uint32_t seconds, const std::function<void()>& steps) {
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) {
    throw Failure(VORN_ERROR_INTERNAL, "there is no process for a probe (", std::strerror(errno),
                  ")");
  }
  if (child == 0) RunInChild(parent, seconds, steps);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    // A program that ignores its children's ends is told nothing about them.
    if (errno != EINTR) return {};
  }
  if (!WIFSIGNALED(status)) return {};
  if (WTERMSIG(status) == SIGALRM) return {.end = ProbeEnd::kTimeout, .signal = {}};
  return {.end = ProbeEnd::kSignal, .signal = strsignal(WTERMSIG(status))};
}

}  // namespace vorn::host
