#include "host/common/log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace vorn::host {
namespace {

/// What the two levels write to standard error with VORN_LOG of that value; null unsets it.
std::string Written(const char* value) {
  if (value == nullptr) {
    unsetenv("VORN_LOG");
  } else {
    setenv("VORN_LOG", value, 1);
  }
  testing::internal::CaptureStderr();
  Log(LogLevel::kError, "op", "a fault");
  Log(LogLevel::kInfo, "op", "a\nhint\t\x7f\n");
  unsetenv("VORN_LOG");
  return testing::internal::GetCapturedStderr();
}

TEST(Log, IsSilentUnlessAskedFor) {
  EXPECT_EQ(Written(nullptr), "");
  EXPECT_EQ(Written(""), "");
  EXPECT_EQ(Written("0"), "");
  EXPECT_EQ(Written("off"), "");
}

TEST(Log, WritesFaultsWhenAskedFor) {
  EXPECT_EQ(Written("1"), "vorn: op: a fault\n");
  EXPECT_EQ(Written("error"), "vorn: op: a fault\n");
}

TEST(Log, WritesEverythingOnOneLineEach) {
  EXPECT_EQ(Written("info"), "vorn: op: a fault\nvorn: op: a hint\n");
}

}  // namespace
}  // namespace vorn::host
