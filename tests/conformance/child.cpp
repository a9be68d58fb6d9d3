// A child is this program started anew rather than a fork: a runtime may have threads, and a device
// may be open, that a fork would leave in half.
#include "child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>

namespace conformance {
namespace {

std::vector<std::string>& CommandLine() {
  static std::vector<std::string> words;
  return words;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// Without GoogleTest's own variables: a filter, a report file or a shard is the parent's business.
std::vector<std::string> Environment() {
  std::vector<std::string> kept;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::string_view(*variable).substr(0, 6) != "GTEST_") kept.emplace_back(*variable);
  }
  return kept;
}

/// Makes a system call again as long as a signal cuts it short.
template <typename Call>
auto Persist(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

std::string ReadToEnd(int file) {
  std::string text;
  char bytes[4096];
  const auto more = [&] { return read(file, bytes, sizeof bytes); };
  for (ssize_t count = 0; (count = Persist(more)) > 0;) {
    text.append(bytes, static_cast<size_t>(count));
  }
  return text;
}

/// Starts the child with its output into `sink`; 0 if that fails.
pid_t Start(std::vector<std::string> words, int sink) {
  std::vector<std::string> environment = Environment();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, sink, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, sink, STDERR_FILENO);
  pid_t child = 0;
  const int failed = posix_spawn(&child, "/proc/self/exe", &actions, nullptr,
                                 Pointers(words).data(), Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  return failed == 0 ? child : 0;
}

std::string HowItEnded(int status, uint32_t seconds) {
  if (WIFEXITED(status)) return "ended with status " + std::to_string(WEXITSTATUS(status));
  const int signal = WTERMSIG(status);
  if (signal == SIGALRM) return "did not come back within " + std::to_string(seconds) + " s";
  return "ended with signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
}

}  // namespace

void RememberCommandLine(std::vector<std::string> words) { CommandLine() = std::move(words); }

ChildEnd RunAsChild(const std::string& test, uint32_t seconds) {
  std::vector<std::string> words = CommandLine();
  words.insert(words.end(), {"--in-process", "--seconds", std::to_string(seconds),
                             "--gtest_filter=" + test, "--gtest_brief=1"});
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {.how = "got no pipe", .output = ""};
  const pid_t child = Start(std::move(words), ends[1]);
  close(ends[1]);
  ChildEnd end;
  end.output = ReadToEnd(ends[0]);
  close(ends[0]);
  int status = 0;
  if (child == 0 || Persist([&] { return waitpid(child, &status, 0); }) != child) {
    end.how = "could not be started";
  } else {
    end.hasPassed = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    end.hasSkipped = WIFEXITED(status) && WEXITSTATUS(status) == kSkippedStatus;
    end.how = HowItEnded(status, seconds);
  }
  return end;
}

}  // namespace conformance
