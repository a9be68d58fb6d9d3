#include "host/state/probe.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace vorn::host {
namespace {

TEST(Probe, LeavesNothingBehind) {
  int value = 1;
  testing::internal::CaptureStderr();
  const ProbeResult result = Probe(0, [&] {
    value = 2;
    std::fputs("heard by nobody\n", stderr);
  });
  EXPECT_EQ(result.end, ProbeEnd::kReturned);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Probe, TakesWhatIsThrownForAReturn) {
  EXPECT_EQ(Probe(0, [] { throw std::runtime_error("seen again"); }).end, ProbeEnd::kReturned);
}

TEST(Probe, TellsTheSignalThatEndedIt) {
  const ProbeResult aborted = Probe(0, [] { std::abort(); });
  EXPECT_EQ(aborted.end, ProbeEnd::kEnded);
  EXPECT_EQ(aborted.how, "Aborted");
  EXPECT_EQ(Probe(0, [] { raise(SIGFPE); }).how, "Floating point exception");
  EXPECT_EQ(Probe(0, [] { std::terminate(); }).how, "Aborted");
}

TEST(Probe, TakesNoExitForAReturn) {
  const ProbeResult exited = Probe(0, [] { _exit(0); });
  EXPECT_EQ(exited.end, ProbeEnd::kEnded);
  EXPECT_EQ(exited.how, "exit status 0");
  EXPECT_EQ(Probe(0, [] { _exit(3); }).how, "exit status 3");
}

TEST(Probe, IsNotMisledByAProgramThatIgnoresItsChildren) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(Probe(0, [] {}).end, ProbeEnd::kReturned);
  EXPECT_EQ(Probe(0, [] { std::abort(); }).end, ProbeEnd::kEnded);
  signal(SIGCHLD, SIG_DFL);
}

TEST(Probe, RunsNoHandlerOfTheProgram) {
  signal(SIGTERM, [](int) { _exit(7); });
  EXPECT_EQ(Probe(0, [] { raise(SIGTERM); }).how, "Terminated");
  signal(SIGTERM, SIG_DFL);
}

TEST(Probe, IsEndedAfterItsTime) {
  const ProbeResult result = Probe(1, [] {
    for (;;) pause();
  });
  EXPECT_EQ(result.end, ProbeEnd::kTimeout);
}

}  // namespace
}  // namespace vorn::host
