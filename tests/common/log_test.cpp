#include "common/log.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

namespace vorn::run {
namespace {

TEST(PrintLine, FormatsAsPrintfDoes) {
  testing::internal::CaptureStdout();
  PrintLine("[INFO]  %s %d %.2f %zu\n", "text", -5, 1.5, size_t{7});
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[INFO]  text -5 1.50 7\n");
}

TEST(PrintLine, PrintsLinesOfEveryLengthWhole) {
  for (const size_t length : {1022, 1023, 1024, 1025, 3000000}) {
    const std::string text(length, 'x');
    testing::internal::CaptureStdout();
    PrintLine("%s\n", text.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), text + "\n") << length;
  }
}

// A character that the locale has none for.
TEST(PrintLine, PrintsNothingOfWhatCannotBeFormatted) {
  testing::internal::CaptureStdout();
  PrintLine("before %lc behind\n", wint_t{0x20AC});
  PrintLine("next\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "next\n");
}

}  // namespace
}  // namespace vorn::run
