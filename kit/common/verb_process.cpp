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

// While another process is to end in order, this one does not end before.
class SignalsLeftToTheOther {
 public:
  SignalsLeftToTheOther() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &ignore, &before_[i]);
    // Ignored, as some parents leave it, how the other ended would be told to nobody.
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &byDefault, &childBefore_);
  }
  ~SignalsLeftToTheOther() { Restore(); }
  SignalsLeftToTheOther(const SignalsLeftToTheOther&) = delete;
  SignalsLeftToTheOther& operator=(const SignalsLeftToTheOther&) = delete;

  void Restore() const {
    for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &before_[i], nullptr);
    sigaction(SIGCHLD, &childBefore_, nullptr);
  }

 private:
  static constexpr std::array kSignals{SIGINT, SIGQUIT};
  std::array<struct sigaction, kSignals.size()> before_{};
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
  const SignalsLeftToTheOther signals;
  const pid_t child = fork();
  if (child == 0) {
    signals.Restore();
    (void)prctl(PR_SET_PDEATHSIG, SIGTERM);  // it is not to go on alone
    if (call.isOutKept) dup2(pipe[1], STDOUT_FILENO);
    Become(program, call);
  }
  const int error = errno;
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
  if (WIFSIGNALED(status)) {
    throw Fault(ExitStatus::kRuntime, "'vorn " + call.verb + "' was ended by signal " +
                                          std::to_string(WTERMSIG(status)) + " (" +
                                          strsignal(WTERMSIG(status)) + ")");
  }
  end.status = static_cast<ExitStatus>(WEXITSTATUS(status));
  return end;
}

}  // namespace vorn::kit
