// vorn-conformance: holds a runtime to vorn.h. See README.md.
#include <gtest/gtest.h>

#include <cstdio>

#include "child.h"
#include "options.h"

namespace {

int EndOf(int status) {
  const testing::UnitTest& run = *testing::UnitTest::GetInstance();
  const bool isAllSkipped = run.test_to_run_count() == run.skipped_test_count();
  return status == 0 && isAllSkipped && conformance::Given().inProcess ? conformance::kSkippedStatus
                                                                       : status;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const std::vector<std::string> words(argv, argv + argc);
  const std::string problem =
      conformance::ReadOptions({words.begin() + 1, words.end()}, conformance::Given());
  if (!GTEST_FLAG_GET(list_tests) && !problem.empty()) {
    std::fprintf(stderr, "vorn-conformance: %s\n%s", problem.c_str(), conformance::kUsage);
    return 2;
  }
  conformance::RememberCommandLine(words);
  return EndOf(RUN_ALL_TESTS());
}
