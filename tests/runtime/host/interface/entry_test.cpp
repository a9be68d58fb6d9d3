#include "host/interface/entry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>

namespace vorn::host {
namespace {

/// What the log says while `steps` run.
template <typename Steps>
std::string LogOf(Steps&& steps) {
  setenv("VORN_LOG", "error", 1);
  testing::internal::CaptureStderr();
  steps();
  unsetenv("VORN_LOG");
  return testing::internal::GetCapturedStderr();
}

/// The line that an operation leaves whose steps throw that, which it answers with that status.
template <typename Thrown>
std::string LineOf(const Thrown& thrown, vorn_status status) {
  return LogOf([&] { EXPECT_EQ(Answer("op", [&] { throw thrown; }), status); });
}

TEST(Answer, IsSuccessAndSilentWhereNothingIsThrown) {
  int runs = 0;
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(Answer("op", [&] { ++runs; }), VORN_SUCCESS); }), "");
  EXPECT_EQ(runs, 1);
}

TEST(Answer, TellsWhatIsThrownInOneLineAndAStatus) {
  EXPECT_EQ(LineOf(Failure(VORN_ERROR_CONFIG, "no ", 1), VORN_ERROR_CONFIG), "vorn: op: no 1\n");
  EXPECT_EQ(LineOf(std::bad_alloc(), VORN_ERROR_OUT_OF_MEMORY),
            "vorn: op: out of memory; give the process more\n");
  EXPECT_EQ(LineOf(std::logic_error("why"), VORN_ERROR_INTERNAL), "vorn: op: why\n");
  EXPECT_EQ(LineOf(1, VORN_ERROR_INTERNAL), "vorn: op: an unknown fault\n");
}

TEST(AnswerWith, IsTheResultOrWhatStandsForNone) {
  EXPECT_EQ(LogOf([] { EXPECT_EQ(AnswerWith("op", 5, [] { return 7; }), 7); }), "");
  EXPECT_EQ(LogOf([] {
              EXPECT_EQ(
                  AnswerWith("op", 5, []() -> int { throw Failure(VORN_ERROR_MODEL, "none"); }), 5);
            }),
            "vorn: op: none\n");
}

TEST(RequirePlace, RefusesNullAlone) {
  int place = 0;
  EXPECT_NO_THROW(RequirePlace(&place));
  EXPECT_EQ(LogOf([] {
              EXPECT_EQ(Answer("op", [] { RequirePlace(nullptr); }), VORN_ERROR_INVALID_ARGUMENT);
            }),
            "vorn: op: the place for the result is null\n");
}

}  // namespace
}  // namespace vorn::host
