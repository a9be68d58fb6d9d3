// The program that a launch is about, as a child process: started, watched, ended.
#ifndef VORN_KIT_LAUNCH_PROGRAM_H_
#define VORN_KIT_LAUNCH_PROGRAM_H_

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/launch/lifeline.h"

namespace vorn::kit {

/// From here on Ctrl-C and its like end nothing by themselves: whoever waits for a program is told.
/// One at a time; on destruction all is as before, and what came meanwhile takes effect.
class StopSignals {
 public:
  /// A lifeline that is gone asks to stop, too, as a hangup. Where there is one, whoever reads what
  /// this process says may be gone with it: that ends nothing then, either. It outlives this.
  explicit StopSignals(Lifeline* lifeline = nullptr);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Waits until a child ends or something asks to stop, that long at most; the lifeline is looked
  /// at behind it. Once something has asked it stays so.
  void Wait(std::chrono::milliseconds longest);

  /// The signal that asked to stop; 0: none did.
  [[nodiscard]] int Asked() const { return asked_; }

  /// What asked to stop, where that was the lifeline.
  [[nodiscard]] const std::string& WhyLifelineIsGone() const { return why_; }

  [[nodiscard]] const sigset_t& MaskBefore() const { return before_; }

 private:
  Lifeline* lifeline_;
  std::string why_;
  sigset_t waited_{};
  sigset_t before_{};
  struct sigaction childBefore_ {};
  int asked_ = 0;
};

struct ProgramRequest {
  std::vector<std::string> command;  ///< the program by its path, and its words
  std::vector<std::pair<std::string, std::string>> environment;  ///< laid over this process's
  std::string out;  ///< a file that its standard output goes behind the end of
  std::string err;  ///< the same for standard error
};

struct ProgramEnd {
  std::optional<int> status;
  std::optional<int> signal;
};

/// A running program, with nothing on its standard input and in a process group of its own. It does
/// not outlive this process, whatever ends that.
class Program {
 public:
  /// Throws a Fault of kRuntime if it cannot be started, of kLimit if a file cannot be opened.
  Program(const ProgramRequest& request, const StopSignals& signals);
  /// Kills it if it runs still.
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  [[nodiscard]] pid_t Pid() const { return pid_; }

  /// How it ended; empty while it runs.
  [[nodiscard]] std::optional<ProgramEnd> Poll();

  /// Behind its end: ends what is left of its group, by SIGTERM, and by SIGKILL what is there still
  /// after `grace`. Returns what that was: "process 17 (name)".
  std::vector<std::string> EndRest(std::chrono::milliseconds grace) const;

  /// Sends a signal to all of its group.
  void Send(int signal) const;

 private:
  pid_t pid_ = -1;
  std::optional<ProgramEnd> end_;
};

/// "SIGFPE"; "signal 99" for one without a name.
[[nodiscard]] std::string SignalName(int number);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_PROGRAM_H_
