// A program of the control host's, such as ssh or tar, from its start to its end.
#ifndef VORN_KIT_FLEET_CHILD_H_
#define VORN_KIT_FLEET_CHILD_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/launch/program.h"

namespace vorn::kit {

struct ChildRequest {
  std::vector<std::string> command;  ///< the program by its name or path, and its words
  std::string folder{};              ///< in which it runs; empty: where this process does
  std::string input;                 ///< comes on its standard input first
  std::string inputFile;             ///< then this file, if one is named
  uint64_t inputFrom = 0;            ///< from this byte of it on
  /// Then a line end every five seconds until it ends, so that it sees that somebody is there.
  bool isKeptAlive = false;
  std::string out;  ///< a file, made anew
  std::string err;  ///< a file, made anew
  std::optional<std::chrono::milliseconds> limit;
  /// Where there is no limit: asked now and then whether there is one by now, from the start on.
  std::function<std::optional<std::chrono::milliseconds>()> laterLimit{};
  std::chrono::milliseconds grace{10000};  ///< from being asked to end until it is killed
  std::function<void()> tick{};            ///< called some twenty times a second meanwhile
};

struct ChildEnd {
  std::optional<int> status;
  std::optional<int> signal;
  bool wasLate = false;     ///< it was ended at the limit
  bool wasStopped = false;  ///< it was ended since somebody asked this process to end
  std::chrono::nanoseconds time{0};
  std::optional<std::chrono::milliseconds> limit;  ///< that it had at its end

  [[nodiscard]] bool IsDone() const { return status == 0 && !wasLate && !wasStopped; }
};

/// Runs it. At the limit, and where this process is asked to end, its standard input ends; what is
/// there still some seconds later is killed. It does not outlive this process. Throws a Fault of
/// kLimit where a file cannot be opened or no process be made.
[[nodiscard]] ChildEnd RunChild(const ChildRequest& request, StopSignals& signals);

/// "ended with status 1", "ended by SIGKILL", "took longer than 20 s", "was stopped".
[[nodiscard]] std::string DescribeChildEnd(const ChildEnd& end);

/// The last line that is not empty of a file, printable; empty where there is none. Where that is
/// tar's, that there were errors, the line before it, which tells of one.
[[nodiscard]] std::string LastLineOf(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_CHILD_H_
