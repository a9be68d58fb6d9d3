// Standard output in memory while fuzz targets run.
#ifndef VORN_TESTS_FUZZ_CAPTURED_STDOUT_H_
#define VORN_TESTS_FUZZ_CAPTURED_STDOUT_H_

#include <string>

namespace fuzz {

/// Catches what is written to file descriptor 1 for as long as it lives. One at a time.
class CapturedStdout {
 public:
  CapturedStdout();
  ~CapturedStdout();
  CapturedStdout(const CapturedStdout&) = delete;
  CapturedStdout& operator=(const CapturedStdout&) = delete;

 private:
  int original_;
};

/// What has been written since the last call; nothing of it is kept.
std::string TakeStdout();

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_CAPTURED_STDOUT_H_
