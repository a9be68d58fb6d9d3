#include "kit/launch/lifeline.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using vorn::kit::Lifeline;
using vorn::kit::WhyNoLifeline;

/// A pipe, and a clock that goes on when it is told to.
class Lifelines : public testing::Test {
 protected:
  Lifelines() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
  ~Lifelines() override {
    for (const int end : ends_) {
      if (end >= 0) close(end);
    }
  }

  int In() const { return ends_[0]; }

  void Put(const std::string& text) const {
    ASSERT_EQ(write(ends_[1], text.data(), text.size()), ssize_t(text.size()));
  }

  void CloseOtherEnd() {
    close(ends_[1]);
    ends_[1] = -1;
  }

  static Lifeline::Time At(seconds time) { return Lifeline::Time(time); }

 private:
  std::array<int, 2> ends_{-1, -1};
};

TEST_F(Lifelines, AreGoneAfterTooLongASilence) {
  Lifeline lifeline(In(), seconds(30), At(seconds(100)));
  EXPECT_FALSE(lifeline.IsGone(At(seconds(100))));
  EXPECT_FALSE(lifeline.IsGone(At(seconds(130))));
  EXPECT_EQ(lifeline.Why(), "");
  EXPECT_TRUE(lifeline.IsGone(At(seconds(130)) + milliseconds(1)));
  EXPECT_EQ(lifeline.Why(), "nothing came on standard input for 30 s (--lifeline)");
}

TEST_F(Lifelines, HoldAsLongAsSomethingComes) {
  Lifeline lifeline(In(), seconds(30), At(seconds(0)));
  for (int time = 29; time < 1000; time += 29) {
    Put("a");
    ASSERT_FALSE(lifeline.IsGone(At(seconds(time)))) << time;
  }
  EXPECT_TRUE(lifeline.IsGone(At(seconds(1100))));
}

// What came while nobody looked was there in time, as far as anybody knows.
TEST_F(Lifelines, HoldWhereNobodyLookedForLong) {
  Lifeline lifeline(In(), seconds(1), At(seconds(0)));
  Put("a");
  EXPECT_FALSE(lifeline.IsGone(At(seconds(1000))));
  EXPECT_TRUE(lifeline.IsGone(At(seconds(1002))));
}

TEST_F(Lifelines, AreGoneWithTheOtherEnd) {
  Lifeline lifeline(In(), seconds(30), At(seconds(0)));
  Put("the last bytes");
  CloseOtherEnd();
  EXPECT_TRUE(lifeline.IsGone(At(seconds(0))));
  EXPECT_EQ(lifeline.Why(), "standard input came to its end (--lifeline)");
}

TEST_F(Lifelines, StayGone) {
  Lifeline lifeline(In(), seconds(30), At(seconds(0)));
  EXPECT_TRUE(lifeline.IsGone(At(seconds(31))));
  Put("too late");
  EXPECT_TRUE(lifeline.IsGone(At(seconds(31))));
  EXPECT_EQ(lifeline.Why(), "nothing came on standard input for 30 s (--lifeline)");
}

// All that a pipe holds has gone by then, so that whoever writes is not held up.
TEST_F(Lifelines, ThrowAwayWhatComes) {
  Lifeline lifeline(In(), seconds(30), At(seconds(0)));
  Put(std::string(65536, 'x'));
  EXPECT_FALSE(lifeline.IsGone(At(seconds(0))));
  char byte = 0;
  fcntl(In(), F_SETFL, O_NONBLOCK);
  EXPECT_EQ(read(In(), &byte, 1), -1);
}

TEST_F(Lifelines, AreGoneWhereNothingCanBeRead) {
  const int folder = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  Lifeline lifeline(folder, seconds(30), At(seconds(0)));
  EXPECT_TRUE(lifeline.IsGone(At(seconds(0))));
  close(folder);
  EXPECT_EQ(lifeline.Why(), "standard input cannot be read any more: Is a directory (--lifeline)");
}

// That is never at its end, and there is always more of it.
TEST_F(Lifelines, DoNotStayWithAFlood) {
  const int flood = open("/dev/zero", O_RDONLY | O_CLOEXEC);
  Lifeline lifeline(flood, seconds(30), At(seconds(0)));
  EXPECT_FALSE(lifeline.IsGone(At(seconds(31))));
  close(flood);
}

TEST_F(Lifelines, HoldByPipesAndSockets) {
  EXPECT_EQ(WhyNoLifeline(In()), "");
  std::array<int, 2> sockets{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
  EXPECT_EQ(WhyNoLifeline(sockets[0]), "");
  Lifeline lifeline(sockets[0], seconds(30), At(seconds(0)));
  EXPECT_FALSE(lifeline.IsGone(At(seconds(1))));
  close(sockets[1]);
  EXPECT_TRUE(lifeline.IsGone(At(seconds(1))));
  close(sockets[0]);
}

TEST_F(Lifelines, DoNotHoldByATerminalOrByNothing) {
  const int controlling = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(controlling, 0);
  ASSERT_EQ(grantpt(controlling), 0);
  ASSERT_EQ(unlockpt(controlling), 0);
  std::array<char, 64> name{};
  ASSERT_EQ(ptsname_r(controlling, name.data(), name.size()), 0);
  const int terminal = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(terminal, 0);
  EXPECT_EQ(WhyNoLifeline(terminal), "standard input is a terminal, where Ctrl-C ends the run");
  close(terminal);
  close(controlling);
  EXPECT_EQ(WhyNoLifeline(terminal), "standard input is closed");
}

}  // namespace
