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
  EXPECT_EQ(aborted.end, ProbeEnd::kSignal);
  EXPECT_EQ(aborted.signal, "Aborted");
  EXPECT_EQ(Probe(0, [] { raise(SIGFPE); }).signal, "Floating point exception");
  EXPECT_EQ(Probe(0, [] { std::terminate(); }).signal, "Aborted");
}

TEST(Probe, IsEndedAfterItsTime) {
  const ProbeResult result = Probe(1, [] {
    for (;;) pause();
  });
  EXPECT_EQ(result.end, ProbeEnd::kTimeout);
}

}  // namespace
}  // namespace vorn::host
