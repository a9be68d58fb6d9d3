// A child process, and how it ended.
//
// It leaves a word in a pipe when its steps came back, or when its time is up: its exit status
// would not tell the first from an exit in the midst of them, and a program may have its children's
// ends taken by somebody else. The parent waits for the child itself and reads the word then. It
// does not wait for the pipe to be closed: a process that another thread forks meanwhile, another
// probe's for one, holds the same pipe open as long as it runs.
#include "host/state/probe.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

constexpr char kCameBack = 'b';
constexpr char kTimeIsUp = 't';

[[noreturn]] void RefuseProcess(int error) {
  throw Failure(VORN_ERROR_INTERNAL, "there is no process for a probe (", std::strerror(error),
                ")");
}

/// A program that has closed its standard streams gets their numbers for what is opened next, and
/// the child puts something else there. Leaves its fault in `errno`.
int BeyondStandardStreams(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return moved;
}

/// Where the child's lines go. It is opened before there is a child: one that could not do so
/// itself would look like one that the model has ended.
class Nowhere {
 public:
  Nowhere() : descriptor_(BeyondStandardStreams(open("/dev/null", O_RDWR | O_CLOEXEC))) {
    if (descriptor_ >= 0) return;
    throw Failure(VORN_ERROR_INTERNAL, "/dev/null cannot be opened for a probe (",
                  std::strerror(errno), ")");
  }
  Nowhere(const Nowhere&) = delete;
  Nowhere& operator=(const Nowhere&) = delete;
  ~Nowhere() { close(descriptor_); }

  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

/// A pipe for one word.
class Pipe {
 public:
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) RefuseProcess(errno);
    readEnd_ = BeyondStandardStreams(ends[0]);
    writeEnd_ = BeyondStandardStreams(ends[1]);
    if (readEnd_ >= 0 && writeEnd_ >= 0) return;
    const int error = errno;
    Close();
    RefuseProcess(error);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() { Close(); }

  /// As it stands; 0 where there is none. Does not wait for one.
  char Word() const {
    char word = 0;
    while (read(readEnd_, &word, 1) < 0 && errno == EINTR) continue;
    return word;
  }

  int writeEnd() const { return writeEnd_; }

 private:
  void Close() const {
    if (readEnd_ >= 0) close(readEnd_);
    if (writeEnd_ >= 0) close(writeEnd_);
  }

  int readEnd_ = -1;
  int writeEnd_ = -1;
};

/// In the child, for its signal handler.
int wordsGoTo = -1;

/// Leaves the word and ends the child.
[[noreturn]] void EndWith(char word) { _exit(write(wordsGoTo, &word, 1) == 1 ? 0 : 1); }

/// Signals end the child in silence, whatever the program does about them, and leave no core.
void BeQuiet(int nowhere) {
  for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  // Not 0, which the kernel does not heed where it hands cores to a program.
  const rlimit noCore = {.rlim_cur = 1, .rlim_max = 1};
  setrlimit(RLIMIT_CORE, &noCore);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
}

[[noreturn]] void RunInChild(uint32_t seconds, int nowhere, const std::function<void()>& steps) {
  BeQuiet(nowhere);
  signal(SIGALRM, [](int) { EndWith(kTimeIsUp); });
  alarm(seconds);
  try {
    steps();
  } catch (...) {
    // Came back.
  }
  EndWith(kCameBack);
}

/// The child's status, when it is gone; nothing where somebody else took it.
std::optional<int> StatusOf(pid_t child) {
  int status = 0;
  pid_t taken = -1;
  do {
    taken = waitpid(child, &status, 0);
  } while (taken < 0 && errno == EINTR);
  return taken == child ? std::optional(status) : std::nullopt;
}

std::string HowItEnded(std::optional<int> status) {
  if (!status) return "how is not known";
  if (WIFSIGNALED(*status)) return strsignal(WTERMSIG(*status));
  return Join("exit status ", WEXITSTATUS(*status));
}

}  // namespace

ProbeResult Probe(uint32_t seconds, const std::function<void()>& steps) {
  const Pipe pipe;
  const Nowhere nowhere;
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    wordsGoTo = pipe.writeEnd();
    RunInChild(seconds, nowhere.descriptor(), steps);
  }
  if (child < 0) RefuseProcess(errno);
  const std::optional<int> status = StatusOf(child);
  switch (pipe.Word()) {
    case kCameBack:
      return {};
    case kTimeIsUp:
      return {.end = ProbeEnd::kTimeout, .how = {}};
    default:
      return {.end = ProbeEnd::kEnded, .how = HowItEnded(status)};
  }
}

}  // namespace vorn::host
