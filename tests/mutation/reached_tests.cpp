// reached_tests.cpp: notes for each test of a program which places of the changed sources it
// reaches, itself or in the programs that it starts. Linked with every test under the preset
// `mutation`; see switched.py.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "mutation/switch.h"

namespace mutation {
namespace {

/// Appends a line for each test to the file VORN_REACHED.tests: its name, its milliseconds, places.
class Listener : public testing::EmptyTestEventListener {
 public:
  explicit Listener(const std::string& path) : path_(path + ".tests") {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) count_ = status.st_size;
  }

  void OnTestEnd(const testing::TestInfo& test) override {
    last_ = std::string(test.test_suite_name()) + "." + test.name();
    Write(test.result()->elapsed_time());
  }

  void OnTestSuiteEnd(const testing::TestSuite&) override { Write(0); }

 private:
  void Write(int64_t milliseconds) {
    if (getpid() != owner_ || last_.empty())
      return;  // a test in a child of its own is its parent's
    std::FILE* const file = std::fopen(path_.c_str(), "a");
    if (file == nullptr) return;
    std::fprintf(file, "%s %lld", last_.c_str(), static_cast<long long>(milliseconds));
    for (off_t place = 0; place < count_; ++place) {
      if (places[place] == 0) continue;
      std::fprintf(file, " %lld", static_cast<long long>(place));
      places[place] = 0;
    }
    std::fputc('\n', file);
    std::fclose(file);
  }

  std::string path_;
  std::string last_;
  pid_t owner_ = getpid();
  off_t count_ = 0;
};

const bool isListening = [] {
  if (places == nullptr) return false;
  testing::UnitTest::GetInstance()->listeners().Append(new Listener(std::getenv("VORN_REACHED")));
  return true;
}();

}  // namespace
}  // namespace mutation
