#include "support/command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace support {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kCannotStart = 127;

/// A pipe whose ends close themselves.
struct Pipe {
  Pipe() {
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe can be had");
  }
  ~Pipe() {
    Close(0);
    Close(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void Close(size_t end) {
    if (ends[end] >= 0) close(ends[end]);
    ends[end] = -1;
  }

  std::array<int, 2> ends{-1, -1};  // to read from, to write to
};

std::vector<std::string> ComposeEnvironment(const Command& command) {
  std::map<std::string, std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const size_t equals = text.find('=');
    if (equals != std::string::npos) all[text.substr(0, equals)] = text.substr(equals + 1);
  }
  for (const auto& [name, value] : command.environment) {
    if (value) {
      all[name] = *value;
    } else {
      all.erase(name);
    }
  }
  std::vector<std::string> entries;
  for (const auto& [name, value] : all) entries.push_back(name + "=" + value);
  return entries;
}

std::vector<char*> Pointers(std::vector<std::string>* texts) {
  std::vector<char*> pointers;
  for (std::string& text : *texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// What the child does between fork and exec: nothing but system calls.
[[noreturn]] void BecomeProgram(const Command& command, char* const* arguments,
                                char* const* environment, const Pipe& out, const Pipe& err) {
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  const int null = open("/dev/null", O_RDONLY);
  dup2(null, STDIN_FILENO);
  if (null > STDERR_FILENO) close(null);
  dup2(err.ends[1], STDERR_FILENO);
  switch (command.stdoutGoes) {
    case Command::Stdout::kCapture:
      dup2(out.ends[1], STDOUT_FILENO);
      break;
    case Command::Stdout::kClosed:
      close(STDOUT_FILENO);
      break;
    case Command::Stdout::kDescriptor:
      dup2(command.descriptor, STDOUT_FILENO);
      break;
  }
  if (!command.directory.empty() && chdir(command.directory.c_str()) != 0) _exit(kCannotStart);
  execvpe(command.program.c_str(), arguments, environment);
  _exit(kCannotStart);
}

/// Takes what is there; false once the other end is closed.
bool Drain(int descriptor, std::string* text) {
  std::array<char, 65536> buffer;
  const ssize_t count = read(descriptor, buffer.data(), buffer.size());
  if (count > 0) text->append(buffer.data(), static_cast<size_t>(count));
  return count > 0 || (count < 0 && errno == EINTR);
}

/// Reads both texts until the child has closed them or the time is up.
void ReadBoth(Pipe* out, Pipe* err, Clock::time_point deadline, Outcome* outcome) {
  std::array<pollfd, 2> waiting{pollfd{out->ends[0], POLLIN, 0}, pollfd{err->ends[0], POLLIN, 0}};
  std::array<std::string*, 2> texts{&outcome->out, &outcome->err};
  while (waiting[0].fd >= 0 || waiting[1].fd >= 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return;
    if (poll(waiting.data(), waiting.size(), static_cast<int>(left.count())) < 0) continue;
    for (size_t i = 0; i < waiting.size(); ++i) {
      if (waiting[i].revents != 0 && !Drain(waiting[i].fd, texts[i])) waiting[i].fd = -1;
    }
  }
}

/// Waits for the child, kills it when the time is up, and notes how it ended.
void Await(pid_t child, Clock::time_point deadline, Outcome* outcome) {
  int state = 0;
  while (waitpid(child, &state, WNOHANG) == 0) {
    if (Clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      continue;
    }
    outcome->timedOut = true;
    kill(child, SIGKILL);
    waitpid(child, &state, 0);
    break;
  }
  if (WIFEXITED(state)) outcome->status = WEXITSTATUS(state);
  if (WIFSIGNALED(state)) outcome->signal = WTERMSIG(state);
}

}  // namespace

std::string Outcome::Describe() const {
  std::string text;
  if (status) text += "exit status " + std::to_string(*status) + "\n";
  if (signal) text += std::string("signal ") + strsignal(*signal) + "\n";
  if (timedOut) text += "killed after the time-out\n";
  return text + "--- stdout\n" + out + "--- stderr\n" + err + "---\n";
}

Outcome RunCommand(const Command& command) {
  std::vector<std::string> arguments = command.arguments;
  arguments.insert(arguments.begin(), command.program);
  std::vector<std::string> environment = ComposeEnvironment(command);
  const std::vector<char*> argumentPointers = Pointers(&arguments);
  const std::vector<char*> environmentPointers = Pointers(&environment);
  const Clock::time_point deadline = Clock::now() + command.timeout;
  Pipe out;
  Pipe err;
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process can be had");
  if (child == 0) {
    BecomeProgram(command, argumentPointers.data(), environmentPointers.data(), out, err);
  }
  out.Close(1);
  err.Close(1);
  Outcome outcome;
  ReadBoth(&out, &err, deadline, &outcome);
  Await(child, deadline, &outcome);
  if (outcome.status == kCannotStart && outcome.out.empty() && outcome.err.empty()) {
    throw std::runtime_error("cannot run " + command.program);
  }
  return outcome;
}

}  // namespace support
