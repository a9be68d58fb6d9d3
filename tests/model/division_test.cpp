#include "model/division.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace vorn::run {
namespace {

TEST(Division, DividesAndTakesTheRemainder) {
  EXPECT_EQ(DivideOrFault(7, 2), 3U);
  EXPECT_EQ(RemainderOrFault(7, 2), 1U);
}

TEST(DivisionDeathTest, EndsByTheSignalOnZero) {
  EXPECT_EXIT((void)DivideOrFault(1, 0), testing::KilledBySignal(SIGFPE), "");
  EXPECT_EXIT((void)RemainderOrFault(0, 0), testing::KilledBySignal(SIGFPE), "");
}

TEST(DivisionDeathTest, EndsByTheSignalEvenWhereItIsHandledOrBlocked) {
  const auto divide = [] {
    std::signal(SIGFPE, SIG_IGN);
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    (void)DivideOrFault(1, 0);
  };
  EXPECT_EXIT(divide(), testing::KilledBySignal(SIGFPE), "");
}

// What an earlier function leaves where the next one has its variables.
__attribute__((noinline)) void LeaveOnes() {
  volatile unsigned char bytes[4096];
  for (volatile unsigned char& byte : bytes) byte = 0xFF;
}

TEST(DivisionDeathTest, LetsNoOtherSignalThrough) {
  const auto divide = [] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    std::raise(SIGTERM);
    std::raise(SIGUSR1);
    LeaveOnes();
    (void)DivideOrFault(1, 0);
  };
  EXPECT_EXIT(divide(), testing::KilledBySignal(SIGFPE), "");
}

TEST(DivisionDeathTest, EndsByTheSignalWithoutTheProgramsHandler) {
  const auto divide = [] {
    std::signal(SIGFPE, [](int) { _exit(0); });
    (void)DivideOrFault(1, 0);
  };
  EXPECT_EXIT(divide(), testing::KilledBySignal(SIGFPE), "");
  const auto takeRemainder = [] {
    std::signal(SIGFPE, [](int) { _exit(0); });
    (void)RemainderOrFault(1, 0);
  };
  EXPECT_EXIT(takeRemainder(), testing::KilledBySignal(SIGFPE), "");
}

}  // namespace
}  // namespace vorn::run
