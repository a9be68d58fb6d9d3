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

/// The line that a message leads to.
std::string LineOf(LogLevel level, const std::string& message) {
  setenv("VORN_LOG", "info", 1);
  testing::internal::CaptureStderr();
  Log(level, "op", message);
  unsetenv("VORN_LOG");
  return testing::internal::GetCapturedStderr();
}

TEST(Log, KeepsLinesOfAUsualLengthWhole) {
  const std::string message(2000, 'a');
  EXPECT_EQ(LineOf(LogLevel::kError, message), "vorn: op: " + message + "\n");
}

TEST(Log, TakesWhatIsTooLongOutOfTheMiddle) {
  const std::string message = "input '" + std::string(300000, 'n') + "' is open; give it a size";
  for (const LogLevel level : {LogLevel::kError, LogLevel::kInfo}) {
    const std::string line = LineOf(level, message);
    EXPECT_LT(line.size(), level == LogLevel::kError ? 2100U : 16100U);
    EXPECT_TRUE(line.starts_with("vorn: op: input 'nnn"));
    EXPECT_TRUE(line.ends_with("nnn' is open; give it a size\n"));
    EXPECT_NE(line.find("nnn ... nnn"), std::string::npos);
  }
}

TEST(Log, KeepsThreeQuartersInFrontAndOneBehind) {
  const auto message = [](size_t longest) {
    return std::string(longest / 4 * 3, 'a') + "b" + std::string(longest / 4, 'c');
  };
  const auto line = [](size_t longest) {
    return "vorn: op: " + std::string(longest / 4 * 3, 'a') + " ... " +
           std::string(longest / 4, 'c') + "\n";
  };
  EXPECT_EQ(LineOf(LogLevel::kError, message(2000)), line(2000));
  EXPECT_EQ(LineOf(LogLevel::kInfo, message(16000)), line(16000));
}

TEST(Log, MovesOnToTheNextCharacterWhereItCuts) {
  const auto euros = [](int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += "\u20ac";
    return text;
  };
  // 3001 bytes: the cuts are at 1500 and 2501, each within a character.
  EXPECT_EQ(LineOf(LogLevel::kError, "a" + euros(1000)),
            "vorn: op: a" + euros(500) + " ... " + euros(166) + "\n");
}

TEST(Log, CutsBetweenTwoCharacters) {
  for (int shift = 0; shift < 3; ++shift) {
    std::string message(shift, 'a');
    for (int i = 0; i < 1000; ++i) message += "\u20ac";
    const std::string line = LineOf(LogLevel::kError, message);
    for (size_t at = line.find_first_of("\xe2\x82\xac"); at < line.find_last_of('\xac');) {
      if (line[at] == ' ' || line[at] == '.') {
        ++at;
        continue;
      }
      ASSERT_EQ(line.substr(at, 3), "\u20ac") << "at " << at;
      at += 3;
    }
  }
}

}  // namespace
}  // namespace vorn::host
