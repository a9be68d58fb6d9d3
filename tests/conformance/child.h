// One test again, in a process of its own.
#ifndef VORN_TESTS_CONFORMANCE_CHILD_H_
#define VORN_TESTS_CONFORMANCE_CHILD_H_

#include <cstdint>
#include <string>
#include <vector>

namespace conformance {

/// How a child ended.
struct ChildEnd {
  bool hasPassed = false;
  bool hasSkipped = false;
  std::string how;     ///< "ended with status 1", "ended with signal 11 (Segmentation fault)"
  std::string output;  ///< standard output and standard error together
};

inline constexpr int kSkippedStatus = 77;

/// Keeps the words that this program was started with, for the children.
void RememberCommandLine(std::vector<std::string> words);

/// Runs the test of that full name ("Group.Name") in a child, and waits for its end. The child is
/// told to end itself by an alarm if it takes more than that many seconds.
ChildEnd RunAsChild(const std::string& test, uint32_t seconds);

}  // namespace conformance

#endif  // VORN_TESTS_CONFORMANCE_CHILD_H_
