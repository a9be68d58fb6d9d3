#include "kit/common/verb_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kit/common/own_folder.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostOutBytes = 256 << 20;

// What the handler knows; it is asked to end by one signal at a time, and the last one counts.
volatile sig_atomic_t g_other = 0;
volatile sig_atomic_t g_asked = 0;

void HandOn(int number, siginfo_t* about, void* /*context*/) {
  const int error = errno;
  g_asked = number;
  // A terminal has told the other one as well.
  if (g_other > 0 && about->si_code != SI_KERNEL) kill(static_cast<pid_t>(g_other), number);
  errno = error;
}

// While another process is to end in order, this one does not end before.
class SignalsLeftToTheOther {
 public:
  SignalsLeftToTheOther() {
    g_other = 0;
    g_asked = 0;
    struct sigaction handOn {};
    handOn.sa_sigaction = HandOn;
    handOn.sa_flags = SA_SIGINFO | SA_RESTART;
    for (size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], nullptr, &before_[i]);
      if (before_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &handOn, nullptr);
    }
    // Ignored, as some parents leave it, how the other ended would be told to nobody.
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &byDefault, &childBefore_);
  }
  ~SignalsLeftToTheOther() { Restore(); }
  SignalsLeftToTheOther(const SignalsLeftToTheOther&) = delete;
  SignalsLeftToTheOther& operator=(const SignalsLeftToTheOther&) = delete;

  // Between these two no signal comes, so that none is lost while nobody is there to have it.
  void Hold() {
    sigset_t held;
    sigemptyset(&held);
    for (const int number : kSignals) sigaddset(&held, number);
    sigprocmask(SIG_BLOCK, &held, &maskBefore_);
  }
  void LetCome() const { sigprocmask(SIG_SETMASK, &maskBefore_, nullptr); }

  void Restore() const {
    for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &before_[i], nullptr);
    sigaction(SIGCHLD, &childBefore_, nullptr);
  }

 private:
  static constexpr std::array kSignals{SIGINT, SIGQUIT, SIGTERM, SIGHUP};
  std::array<struct sigaction, kSignals.size()> before_{};
  sigset_t maskBefore_{};
  struct sigaction childBefore_ {};
};

[[noreturn]] void Become(const std::string& program, const VerbCall& call) {
  for (const auto& [name, value] : call.environment) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  std::vector<char*> words{const_cast<char*>(program.c_str())};
  for (const std::string& word : call.words) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  execv(program.c_str(), words.data());
  std::fprintf(stderr, "%s: %s\n", program.c_str(), std::strerror(errno));
  _exit(127);
}

std::string ReadAll(int fd) {
  std::string text;
  std::array<char, 1 << 16> piece;
  while (text.size() < kMostOutBytes) {
    const ssize_t taken = read(fd, piece.data(), piece.size());
    if (taken < 0 && errno == EINTR) continue;
    if (taken <= 0) break;
    text.append(piece.data(), static_cast<size_t>(taken));
  }
  return text;
}

}  // namespace

std::string CommandText(const VerbCall& call) {
  std::vector<std::string> words;
  for (const auto& [name, value] : call.environment) {
    if (words.empty()) words.emplace_back("env");
    if (value) {
      words.push_back(name + "=" + *value);
    } else {
      words.insert(words.begin() + 1, {"-u", name});
    }
  }
  words.insert(words.end(), {"vorn", call.verb});
  words.insert(words.end(), call.words.begin(), call.words.end());
  return QuotedCommand(words);
}

VerbEnd RunVerbProcess(const VerbCall& call) {
  const std::string program = OwnFolder() + "/vorn-" + call.verb;
  if (access(program.c_str(), X_OK) != 0) {
    throw Fault(ExitStatus::kOwnFault, "the verb " + call.verb + " is missing: " + Quoted(program) +
                                           ": " + SystemReason(errno));
  }
  int pipe[2] = {-1, -1};
  if (call.isOutKept && pipe2(pipe, O_CLOEXEC) != 0) {
    throw Fault(ExitStatus::kLimit, "no pipe can be made: " + SystemReason(errno));
  }
  std::fflush(nullptr);
  SignalsLeftToTheOther signals;
  signals.Hold();
  const pid_t child = fork();
  if (child == 0) {
    signals.Restore();
    signals.LetCome();
    (void)prctl(PR_SET_PDEATHSIG, SIGTERM);  // it is not to go on alone
    if (call.isOutKept) dup2(pipe[1], STDOUT_FILENO);
    Become(program, call);
  }
  const int error = errno;
  g_other = child;
  signals.LetCome();
  if (call.isOutKept) close(pipe[1]);
  VerbEnd end;
  if (child > 0 && call.isOutKept) end.out = ReadAll(pipe[0]);
  if (call.isOutKept) close(pipe[0]);
  if (child < 0) {
    throw Fault(ExitStatus::kLimit, "no process can be started: " + SystemReason(error));
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  g_other = 0;
  signals.Restore();
  end.asked = g_asked;
  if (end.asked == SIGTERM || end.asked == SIGHUP) (void)raise(end.asked);
  if (WIFSIGNALED(status) && end.asked != 0) {
    end.status = ExitStatus::kPartial;  // it was asked to, and has no order of its own to end in
    return end;
  }
  if (WIFSIGNALED(status)) {
    throw Fault(ExitStatus::kRuntime, "'vorn " + call.verb + "' was ended by signal " +
                                          std::to_string(WTERMSIG(status)) + " (" +
                                          strsignal(WTERMSIG(status)) + ")");
  }
  end.status = static_cast<ExitStatus>(WEXITSTATUS(status));
  return end;
}

}  // namespace vorn::kit
