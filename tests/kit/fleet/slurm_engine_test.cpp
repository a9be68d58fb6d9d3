#include "kit/fleet/slurm_engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vorn::kit::ArrayOfChunks;
using vorn::kit::ArraysOf;
using vorn::kit::ArrayWords;
using vorn::kit::FleetState;

const std::set<std::string> kNodes{"b1", "b2", "b3"};

FleetState StateOf(size_t chunks) {
  FleetState state;
  state.chunks.resize(chunks);
  return state;
}

TEST(ArraysOf, AreOneWhereNothingFailed) {
  EXPECT_THAT(ArraysOf(StateOf(5), {0, 2, 4}, kNodes),
              ElementsAre(ArrayOfChunks{.chunks = {0, 2, 4}, .without = {}}));
}

TEST(ArraysOf, KeepChunksFromNodesThatFailedThem) {
  FleetState state = StateOf(4);
  state.chunks[1].failed = {"b2"};
  state.chunks[3].failed = {"b2"};
  state.chunks[2].failed = {"b1", "a board of another engine"};
  EXPECT_THAT(ArraysOf(state, {0, 1, 2, 3}, kNodes),
              ElementsAre(ArrayOfChunks{.chunks = {0}, .without = {}},
                          ArrayOfChunks{.chunks = {2}, .without = {"b1"}},
                          ArrayOfChunks{.chunks = {1, 3}, .without = {"b2"}}));
}

TEST(ArraysOf, GiveNothingToNodesThatAreAside) {
  FleetState state = StateOf(2);
  state.boards["b3"].isAside = true;
  state.boards["b1"].isAside = false;
  state.chunks[1].failed = {"b1"};
  EXPECT_THAT(ArraysOf(state, {0, 1}, kNodes),
              ElementsAre(ArrayOfChunks{.chunks = {1}, .without = {"b1", "b3"}},
                          ArrayOfChunks{.chunks = {0}, .without = {"b3"}}));
}

TEST(ArraysOf, LeaveOutWhatNoNodeIsLeftFor) {
  FleetState state = StateOf(1);
  state.chunks[0].failed = {"b1"};
  EXPECT_THAT(ArraysOf(state, {0}, {"b1"}), IsEmpty());
  EXPECT_THAT(ArraysOf(state, {0}, {}), IsEmpty());
}

TEST(ArrayWords, TellSbatchOfTheArray) {
  EXPECT_THAT(ArrayWords("/shared/fl%t/slurm/2", 1, 40, {}, {}),
              ElementsAre("--array=0-39", "--job-name=vorn-fleet", "--chdir=/shared/fl%t/slurm/2",
                          "--output=/shared/fl%%t/slurm/2/1.%a.log", "--open-mode=append",
                          "--requeue", "--signal=B:HUP@60"));
}

TEST(ArrayWords, EndWithThoseOfTheUser) {
  const auto words =
      ArrayWords("/f", 0, 1, {"b1", "b3"}, {"--partition=lab", "--exclude=b[7-9]", "--time=30"});
  EXPECT_THAT(std::vector<std::string>(words.end() - 3, words.end()),
              ElementsAre("--partition=lab", "--time=30", "--exclude=b1,b3,b[7-9]"));
}

}  // namespace
