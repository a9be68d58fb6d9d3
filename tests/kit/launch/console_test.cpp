#include "kit/launch/console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using vorn::kit::Console;
using vorn::kit::Progress;

using std::chrono::milliseconds;
using vorn::kit::ProgressText;

TEST(Console, SaysHowFarARunIs) {
  EXPECT_EQ(ProgressText({.series = "",
                          .done = 0,
                          .all = 200,
                          .doneHere = 0,
                          .faults = 0,
                          .elapsed = milliseconds(900)}),
            "0 of 200 inferences");
  EXPECT_EQ(ProgressText({.series = "B",
                          .done = 20,
                          .all = 50,
                          .doneHere = 0,
                          .faults = 0,
                          .elapsed = milliseconds(0)}),
            "B: 20 of 50 inferences");
  EXPECT_EQ(ProgressText({.series = "",
                          .done = 1,
                          .all = 1,
                          .doneHere = 0,
                          .faults = 1,
                          .elapsed = milliseconds(0)}),
            "1 of 1 inference, 1 fault");
}

// 50 of them in 10 s; 100 were done before, and 350 are left.
TEST(Console, ReckonsWithWhatIsDoneHere) {
  EXPECT_EQ(ProgressText({.series = "",
                          .done = 150,
                          .all = 500,
                          .doneHere = 50,
                          .faults = 2,
                          .elapsed = milliseconds(10000)}),
            "150 of 500 inferences, 5.0/s, 1:10 left, 2 faults");
}

TEST(Console, DoesNotReckonBelowNothing) {
  EXPECT_EQ(ProgressText({.series = "",
                          .done = 7,
                          .all = 5,
                          .doneHere = 7,
                          .faults = 0,
                          .elapsed = milliseconds(7000)}),
            "7 of 5 inferences, 1.0/s, 0:00 left");
}

// Standard error is a terminal for a while; what comes out of it.
class OnATerminal : public testing::Test {
 protected:
  OnATerminal() : terminal_(posix_openpt(O_RDWR | O_NOCTTY)), before_(dup(STDERR_FILENO)) {
    setenv("TERM", "xterm", 1);
    if (terminal_ < 0 || grantpt(terminal_) != 0 || unlockpt(terminal_) != 0) return;
    const int end = open(ptsname(terminal_), O_RDWR | O_NOCTTY);
    dup2(end, STDERR_FILENO);
    close(end);
  }
  ~OnATerminal() override {
    PutBack();
    close(terminal_);
    close(before_);
  }

  void PutBack() {
    std::fflush(stderr);
    dup2(before_, STDERR_FILENO);
  }

  // A terminal makes "\r\n" of "\n".
  std::string Said() {
    std::fputs("end", stderr);
    std::fflush(stderr);
    std::string said;
    while (said.find("end") == std::string::npos) {
      std::array<char, 256> piece{};
      const ssize_t got = read(terminal_, piece.data(), piece.size());
      if (got <= 0) break;
      said.append(piece.data(), static_cast<size_t>(got));
    }
    return said;
  }

  Progress progress_{
      .series = "", .done = 1, .all = 9, .doneHere = 0, .faults = 0, .elapsed = milliseconds(1)};

 private:
  int terminal_;
  int before_;
};

TEST_F(OnATerminal, AConsoleShowsHowFarItIsBelowItsLines) {
  Console console(false);
  console.Show(progress_);
  progress_.done = 2;
  console.Show(progress_);  // too soon behind the first
  console.Say("a line");
  console.Show(progress_);  // which is gone, and may be there again
  console.Say("another");
  console.Say("a third");
  EXPECT_EQ(Said(),
            "\r\x1b[K1 of 9 inferences\r\x1b[Kvorn launch: a line\r\n"
            "\r\x1b[K2 of 9 inferences\r\x1b[Kvorn launch: another\r\n"
            "vorn launch: a third\r\nend");
}

TEST_F(OnATerminal, AQuietConsoleSaysNothing) {
  Console console(true);
  console.Show(progress_);
  console.Say("a line");
  EXPECT_EQ(Said(), "end");
}

TEST_F(OnATerminal, AConsoleMovesNothingOnADumbOne) {
  setenv("TERM", "dumb", 1);
  Console console(false);
  console.Show(progress_);
  console.Say("a line");
  EXPECT_EQ(Said(), "vorn launch: a line\r\nend");
}

TEST(Console, ShowsLinesOnlyWhereThereIsNoTerminal) {
  testing::internal::CaptureStderr();
  Console console(false);
  console.Show(
      {.series = "", .done = 1, .all = 9, .doneHere = 0, .faults = 0, .elapsed = milliseconds(1)});
  console.Say("a line");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "vorn launch: a line\n");
}

}  // namespace
