// Signals are waited for, not handled: nothing here runs at a moment that nobody chose.
#include "kit/launch/program.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kit/common/fault.h"
#include "kit/common/folder_names.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr int kNotStarted = 127;
constexpr std::array kAskToStop{SIGINT, SIGTERM, SIGHUP};

int OpenForLines(const std::string& path) {
  // Without O_NONBLOCK a pipe without a reader would be waited for.
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0666);
  struct stat about {};
  if (fd >= 0 && fstat(fd, &about) == 0 && S_ISREG(about.st_mode)) {
    fcntl(fd, F_SETFL, O_APPEND);
    // Whoever inherits it holds the lock: a program that outlives this process is found by it.
    flock(fd, LOCK_SH | LOCK_NB);
    return fd;
  }
  const int error = errno;
  const std::string reason = fd >= 0 ? "it is no regular file" : SystemReason(error);
  if (fd >= 0) close(fd);
  throw Fault(ExitStatus::kLimit, "cannot write '" + Printable(path) + "': " + reason);
}

// Becomes the program. Returns only where that failed; the reason is in errno. The standard streams
// may be closed here, so that each place is taken before it is filled.
void Execute(const ProgramRequest& request, int out, int err, const sigset_t& mask, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kNotStarted);  // it was gone before that
  setpgid(0, 0);
  const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  for (const auto& [name, value] : request.environment) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> words;
  for (const std::string& word : request.command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  execv(words[0], words.data());
}

// What runs in a process group; what has ended and was not waited for yet does not.
std::vector<std::string> RunningInGroup(pid_t group) {
  std::vector<std::string> processes;
  for (const std::string& name : NamesIn("/proc")) {
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    // "17 (name) S 1 16 ...": its state, its parent, its group. The name may hold anything.
    const std::string stat = ReadFrom("/proc/" + name + "/stat", 0, 4096);
    const size_t open = stat.find('(');
    const size_t close = stat.rfind(')');
    char state = 'Z';
    int itsGroup = 0;
    const bool isKnown =
        open < close && close != std::string::npos &&
        std::sscanf(stat.c_str() + close + 1, " %c %*d %d", &state, &itsGroup) == 2;
    if (!isKnown || itsGroup != group || state == 'Z' || state == 'X') continue;
    processes.push_back("process " + name + " (" +
                        Printable(stat.substr(open + 1, close - open - 1)) + ")");
  }
  return processes;
}

}  // namespace

StopSignals::StopSignals(Lifeline* lifeline) : lifeline_(lifeline) {
  // Ignored, as some parents leave it, a child's end would be told to nobody.
  struct sigaction byDefault {};
  byDefault.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &byDefault, &childBefore_);
  sigemptyset(&waited_);
  sigaddset(&waited_, SIGCHLD);
  for (const int number : kAskToStop) {
    // Under nohup a hangup stays ignored, and in the background of a script an interrupt.
    struct sigaction now {};
    if (sigaction(number, nullptr, &now) == 0 && now.sa_handler != SIG_IGN) {
      sigaddset(&waited_, number);
    }
  }
  sigset_t blocked = waited_;
  if (lifeline_ != nullptr) sigaddset(&blocked, SIGPIPE);
  sigprocmask(SIG_BLOCK, &blocked, &before_);
}

StopSignals::~StopSignals() {
  if (lifeline_ != nullptr && sigismember(&before_, SIGPIPE) == 0) {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    const timespec now{};
    sigtimedwait(&pipe, nullptr, &now);
  }
  sigprocmask(SIG_SETMASK, &before_, nullptr);
  sigaction(SIGCHLD, &childBefore_, nullptr);
}

void StopSignals::Wait(std::chrono::milliseconds longest) {
  constexpr auto kMilli = 1000;
  const timespec time{.tv_sec = longest.count() / kMilli,
                      .tv_nsec = longest.count() % kMilli * kMilli * kMilli};
  const int number = sigtimedwait(&waited_, nullptr, &time);
  if (number > 0 && number != SIGCHLD && asked_ == 0) asked_ = number;
  if (asked_ != 0 || lifeline_ == nullptr) return;
  if (!lifeline_->IsGone(std::chrono::steady_clock::now())) return;
  asked_ = SIGHUP;
  why_ = lifeline_->Why();
}

Program::Program(const ProgramRequest& request, const StopSignals& signals) {
  const OwnedFile out(OpenForLines(request.out));
  const OwnedFile err(OpenForLines(request.err));
  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) {
    throw Fault(ExitStatus::kLimit, "cannot make a pipe: " + SystemReason(errno));
  }
  const OwnedFile told(pipe[0]);
  OwnedFile tell(pipe[1]);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw Fault(ExitStatus::kLimit, "cannot start a process: " + SystemReason(errno));
  if (pid_ == 0) {
    // Signals that end this process have to end the child, too, up to the execution.
    Execute(request, out.Get(), err.Get(), signals.MaskBefore(), parent);
    const int error = errno;
    [[maybe_unused]] const auto put = write(tell.Get(), &error, sizeof(error));
    _exit(kNotStarted);
  }
  setpgid(pid_, pid_);  // whichever of the two comes first
  tell.Close();
  int failure = 0;
  ssize_t got = 0;
  do {
    got = read(told.Get(), &failure, sizeof(failure));  // nothing comes from one that started
  } while (got < 0 && errno == EINTR);
  if (got != sizeof(failure)) return;
  waitpid(pid_, nullptr, 0);
  throw Fault(ExitStatus::kRuntime, "cannot start '" + Printable(request.command[0]) + "': " +
                                        SystemReason(failure) + "; --program names another");
}

Program::~Program() {
  if (Poll()) return;
  Send(SIGKILL);
  while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

std::optional<ProgramEnd> Program::Poll() {
  if (end_) return end_;
  int status = 0;
  const pid_t got = waitpid(pid_, &status, WNOHANG);
  if (got != pid_) return std::nullopt;
  end_.emplace();
  if (WIFSIGNALED(status)) {
    end_->signal = WTERMSIG(status);
  } else {
    end_->status = WEXITSTATUS(status);
  }
  return end_;
}

std::vector<std::string> Program::EndRest(std::chrono::milliseconds grace) const {
  constexpr useconds_t kBetweenUs = 10000;
  if (!end_ || kill(-pid_, 0) != 0) return {};
  std::vector<std::string> rest = RunningInGroup(pid_);
  if (rest.empty()) return rest;
  kill(-pid_, SIGTERM);
  const auto until = std::chrono::steady_clock::now() + grace;
  while (!RunningInGroup(pid_).empty() && std::chrono::steady_clock::now() < until) {
    usleep(kBetweenUs);
  }
  kill(-pid_, SIGKILL);
  while (!RunningInGroup(pid_).empty() && std::chrono::steady_clock::now() < until + grace) {
    usleep(kBetweenUs);
  }
  return rest;
}

void Program::Send(int signal) const {
  if (kill(-pid_, signal) != 0) kill(pid_, signal);
}

std::string SignalName(int number) {
  struct Name {
    int number;
    const char* name;
  };
  constexpr Name kNames[] = {
      {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},   {SIGQUIT, "SIGQUIT"}, {SIGILL, "SIGILL"},
      {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"}, {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},
      {SIGKILL, "SIGKILL"}, {SIGUSR1, "SIGUSR1"}, {SIGSEGV, "SIGSEGV"}, {SIGUSR2, "SIGUSR2"},
      {SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"}, {SIGTERM, "SIGTERM"}, {SIGXCPU, "SIGXCPU"},
      {SIGXFSZ, "SIGXFSZ"}, {SIGSYS, "SIGSYS"},
  };
  for (const Name& known : kNames) {
    if (known.number == number) return known.name;
  }
  return "signal " + std::to_string(number);
}

}  // namespace vorn::kit
