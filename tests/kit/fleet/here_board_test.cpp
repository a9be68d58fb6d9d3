#include "kit/fleet/here_board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/files.h"

namespace {

using testing::HasSubstr;
using vorn::kit::BoardEnd;
using vorn::kit::BoardWork;

// There is no launch beside a test; `vorn fleet plan` without --chunk is tested with one.
TEST(HereBoard, SaysWhereThereIsNoLaunch) {
  const support::TempDir folder;
  BoardWork work;
  work.folder = folder.Path();
  work.list = {"a", "b c"};
  vorn::kit::StopSignals signals;
  const BoardEnd end = RunHere(work, folder.Path(), signals);
  EXPECT_FALSE(end.hasRun);
  EXPECT_EQ(end.blame, vorn::kit::Blame::kBoard);
  EXPECT_THAT(end.reason, HasSubstr("the launch ended with status 127; it said: "));
  EXPECT_THAT(end.reason, HasSubstr("vorn-launch: No such file or directory"));
  EXPECT_NE(end.host, "");
  EXPECT_EQ(support::ReadFile(folder.Path() / "list.txt"), "a\nb c\n");
}

}  // namespace
