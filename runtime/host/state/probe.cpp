// A child process, and how it ended. It says through a pipe that its steps came back: its exit
// status would not tell that from an exit in the midst of them, and a program may have its
// children's ends taken by somebody else.
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

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;
};

[[noreturn]] void RefuseProcess() {
  throw Failure(VORN_ERROR_INTERNAL, "there is no process for a probe (", std::strerror(errno),
                ")");
}

Pipe OpenPipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) RefuseProcess();
  return {.readEnd = ends[0], .writeEnd = ends[1]};
}

/// Signals end the child in silence, whatever the program does about them, and leave no core.
void BeQuiet() {
  for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  // Not 0, which the kernel does not heed where it hands cores to a program.
  const rlimit noCore = {.rlim_cur = 1, .rlim_max = 1};
  setrlimit(RLIMIT_CORE, &noCore);
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (nowhere < 0) _exit(1);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
}

[[noreturn]] void RunInChild(int writeEnd, uint32_t seconds, const std::function<void()>& steps) {
  BeQuiet();
  alarm(seconds);
  try {
    steps();
  } catch (...) {
    // Came back.
  }
  const char done = 1;
  _exit(write(writeEnd, &done, 1) == 1 ? 0 : 1);
}

/// Whether the child said that it came back. Waits until it did or is gone.
bool SaysThatItCameBack(int readEnd) {
  char done = 0;
  ssize_t count = -1;
  do {
    count = read(readEnd, &done, 1);
  } while (count < 0 && errno == EINTR);
  return count == 1;
}

/// The child's status; nothing is known of it where somebody else took it.
int StatusOf(pid_t child) {
  constexpr int kExitOne = 1 << 8;
  int status = kExitOne;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  return status;
}

}  // namespace

ProbeResult Probe(uint32_t seconds, const std::function<void()>& steps) {
  const Pipe pipe = OpenPipe();
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    RunInChild(pipe.writeEnd, seconds, steps);
  }
  close(pipe.writeEnd);
  const bool cameBack = child > 0 && SaysThatItCameBack(pipe.readEnd);
  close(pipe.readEnd);
  if (child < 0) RefuseProcess();
  const int status = StatusOf(child);
  if (cameBack) return {};
  if (!WIFSIGNALED(status)) {
    return {.end = ProbeEnd::kEnded, .how = Join("exit status ", WEXITSTATUS(status))};
  }
  if (WTERMSIG(status) == SIGALRM) return {.end = ProbeEnd::kTimeout, .how = {}};
  return {.end = ProbeEnd::kEnded, .how = strsignal(WTERMSIG(status))};
}

}  // namespace vorn::host
