#include "kit/fleet/round.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::SizeIs;
using vorn::kit::Board;
using vorn::kit::FleetState;

class Round : public testing::Test {
 protected:
  Round() {
    for (const char* name : {"b1", "b2"}) {
      Board board;
      board.name = name;
      board.host = name;
      boards_.push_back(board);
    }
    boards_[1].slots = 2;
  }

  std::string Fleet() const { return folder_.Path() / "it's"; }
  std::string File(const std::string& name) const {
    return support::ReadFile(Fleet() + "/round/" + name);
  }
  bool Has(const std::string& name) const { return fs::exists(Fleet() + "/round/" + name); }

  void Prepare(const FleetState& state) {
    vorn::kit::StopSignals signals;
    PrepareRound(Fleet(), state, boards_, {2, 5}, signals);
  }

  support::TempDir folder_;
  std::vector<Board> boards_;
};

TEST_F(Round, KnowsWhatIsToDoAndWhoHasFailed) {
  FleetState state;
  state.chunks.resize(6);
  state.chunks[2].failed = {"b1"};
  state.chunks[5].failed = {"b1"};
  auto& board = state.boards["b1"];
  board.failuresInARow = 2;
  board.sampleNs = {7.5, 9};
  board.checked = 1;
  state.boards["b2"].isAside = true;
  Prepare(state);
  EXPECT_EQ(File("chunks.txt"), "2\n5\n");
  EXPECT_EQ(File("boards/b1.failed"), "2\n5\n");
  EXPECT_EQ(File("boards/b2.failed"), "");
  EXPECT_EQ(File("boards/b1.row"), "xx");
  EXPECT_EQ(File("boards/b1.times"), "7\n9\n");
  EXPECT_TRUE(Has("boards/b1.checked"));
  EXPECT_FALSE(Has("boards/b2.checked"));
  EXPECT_FALSE(Has("boards/b1.aside"));
  EXPECT_TRUE(Has("boards/b2.aside"));
  EXPECT_EQ(vorn::kit::ReadBoards(Fleet() + "/round/boards.json"), boards_);
}

TEST_F(Round, BeginsAnew) {
  support::WriteFile(Fleet() + "/round/over", "");
  support::WriteFile(Fleet() + "/round/claims/2", "");
  support::WriteFile(Fleet() + "/round/waiting/1", "");
  Prepare({});
  EXPECT_FALSE(Has("over"));
  EXPECT_FALSE(Has("claims/2"));
  EXPECT_FALSE(Has("waiting/1"));
}

TEST_F(Round, HasTicketsForEverySlot) {
  // Three slots of two at once, of which each may spend three on a board that fails its
  // cross-check.
  EXPECT_THAT(support::SplitLines(TicketsFor(boards_, 5)), SizeIs(5 + 6 * 4));
  EXPECT_THAT(RoundCommand(boards_), Contains("6"));
}

// What it is about is a text for a shell, and is not in it.
TEST_F(Round, HasNothingOfNamesInItsCommand) {
  boards_[0].name = boards_[0].host = "$(touch x)";
  for (const std::string& word : RoundCommand(boards_)) {
    EXPECT_EQ(word.find("touch"), word.npos) << word;
  }
}

}  // namespace
