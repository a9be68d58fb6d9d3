// Whether somebody is still there who wants a run: they write a byte now and then.
#ifndef VORN_KIT_LAUNCH_LIFELINE_H_
#define VORN_KIT_LAUNCH_LIFELINE_H_

#include <chrono>
#include <string>

namespace vorn::kit {

/// What they read on standard output once the device is free.
inline constexpr const char* kLastProcessEnded = "vorn launch: the last process has ended\n";

/// Why nobody can hold a lifeline by this descriptor; empty: somebody can.
[[nodiscard]] std::string WhyNoLifeline(int descriptor);

class Lifeline {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// The descriptor stays the caller's. Its silence counts from `now` on.
  Lifeline(int descriptor, std::chrono::seconds longestSilence, Time now)
      : descriptor_(descriptor), longestSilence_(longestSilence), heard_(now) {}

  /// Reads what is there, throws it away and never waits for more. Whether there was nothing for
  /// too long, or nothing will ever come. Once that is so it stays so.
  [[nodiscard]] bool IsGone(Time now);

  /// "standard input came to its end"; empty while it is not gone.
  [[nodiscard]] const std::string& Why() const { return why_; }

 private:
  /// Whether anything came; sets why_ where nothing will any more.
  bool Hear();

  int descriptor_;
  std::chrono::seconds longestSilence_;
  Time heard_;
  std::string why_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_LIFELINE_H_
