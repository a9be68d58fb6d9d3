#include "kit/fleet/locked_file.h"

#include <gtest/gtest.h>

#include <csignal>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using vorn::kit::Fault;
using vorn::kit::LockedFile;
using vorn::kit::StopSignals;
using Share = LockedFile::Share;

class LockedFileTest : public testing::Test {
 protected:
  [[nodiscard]] std::string Path() const { return (folder_.Path() / "lock").string(); }

 private:
  support::TempDir folder_;
};

TEST_F(LockedFileTest, IsForOneAloneOrForSeveralTogether) {
  const LockedFile one(Path());
  const LockedFile other(Path());
  EXPECT_TRUE(one.TryTake(Share::kWithOthers));
  EXPECT_TRUE(other.TryTake(Share::kWithOthers));
  const LockedFile third(Path());
  EXPECT_FALSE(third.TryTake(Share::kAlone));
}

TEST_F(LockedFileTest, IsFreeOnceItsHolderEnds) {
  const LockedFile one(Path());
  {
    const LockedFile other(Path());
    ASSERT_TRUE(other.TryTake(Share::kAlone));
    EXPECT_FALSE(one.TryTake(Share::kWithOthers));
  }
  StopSignals signals;
  EXPECT_TRUE(one.Take(Share::kAlone, signals));
}

TEST_F(LockedFileTest, IsWaitedForUntilSomebodyAsksToStop) {
  const LockedFile one(Path());
  ASSERT_TRUE(one.TryTake(Share::kAlone));
  struct sigaction ended {};
  struct sigaction before {};
  ended.sa_handler = [](int) {};
  sigaction(SIGTERM, &ended, &before);
  {
    StopSignals signals;
    raise(SIGTERM);
    EXPECT_FALSE(LockedFile(Path()).Take(Share::kAlone, signals));
    EXPECT_EQ(signals.Asked(), SIGTERM);
  }
  sigaction(SIGTERM, &before, nullptr);
}

TEST_F(LockedFileTest, IsRefusedWhereItCannotBe) {
  EXPECT_THROW(LockedFile(Path() + "/none/lock"), Fault);
}

}  // namespace
