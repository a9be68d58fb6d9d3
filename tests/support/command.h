// Runs a program as a child process and keeps what it said and how it ended.
#ifndef VORN_TESTS_SUPPORT_COMMAND_H_
#define VORN_TESTS_SUPPORT_COMMAND_H_

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace support {

struct Command {
  std::string program;  // a path, or a name to be found in PATH
  std::vector<std::string> arguments;

  /// Laid over this process's environment; without a value the variable is taken out.
  std::map<std::string, std::optional<std::string>> environment;

  std::filesystem::path directory;  // to run in; empty: the present one

  enum class Stdout { kCapture, kClosed, kDescriptor };
  Stdout stdoutGoes = Stdout::kCapture;
  int descriptor = -1;  // of kDescriptor; stays open here

  std::chrono::seconds timeout{120};
};

/// How a child ended: by itself with a status, or by a signal.
struct Outcome {
  std::optional<int> status;
  std::optional<int> signal;
  bool timedOut = false;  // the signal was ours then
  std::string out;
  std::string err;

  /// All of it, for the message of a failing test.
  [[nodiscard]] std::string Describe() const;
};

/// Runs the command to its end, with standard input empty and without a core file. A child that
/// takes longer than the time-out is killed, and it alone. Throws std::runtime_error if the child
/// cannot be started.
[[nodiscard]] Outcome RunCommand(const Command& command);

}  // namespace support

#endif  // VORN_TESTS_SUPPORT_COMMAND_H_
