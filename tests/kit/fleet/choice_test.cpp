// What one attempt is worth; what becomes of several, merge_test.cpp tells by whole runs.
#include "kit/fleet/choice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/fleet/made_fleet.h"

namespace {

using fleet_test::MadeAttempt;
using fleet_test::MadeFleet;
using testing::ElementsAre;
using testing::IsEmpty;
using vorn::kit::AttemptLook;
using vorn::kit::ChunkChoice;
using vorn::kit::SampleRecord;
using vorn::kit::SampleStatus;

class Choice : public testing::Test {
 protected:
  Choice() {
    vorn::kit::ForEachInput(fleet_.Folder(), 0, 4,
                            [&](SampleRecord record) { planned_.push_back(std::move(record)); });
  }

  AttemptLook Look(uint64_t number, const std::string& board, const std::string& outputs) const {
    MadeAttempt attempt;
    attempt.board = board;
    attempt.outputs = outputs;
    const std::string run = fleet_.Attempt(0, number, attempt);
    return LookInto({.folder = run, .board = board, .attempt = number, .outputs = {}},
                    fleet_.Plan(), planned_);
  }

  // The attempts that inferences are taken from, by their places; -1: none.
  static std::vector<int> From(const ChunkChoice& choice) {
    std::vector<int> from;
    for (const auto& sample : choice.samples) {
      from.push_back(sample.from ? static_cast<int>(*sample.from) : -1);
    }
    return from;
  }

  const MadeFleet fleet_{4, 4};
  std::vector<SampleRecord> planned_;
};

TEST_F(Choice, TakesTheFirstThatHasItDone) {
  const std::vector<AttemptLook> attempts{Look(1, "b1", "a.A."), Look(2, "b2", "ab.."),
                                          Look(3, "b3", "abF.")};
  const ChunkChoice choice = ChooseSamples(attempts, planned_, {});
  EXPECT_THAT(From(choice), ElementsAre(0, 1, 0, -1));
  EXPECT_EQ(choice.samples[2].record.status, SampleStatus::kAside);
  EXPECT_EQ(choice.samples[3].record.reason, "was not run");
  EXPECT_THAT(choice.differences, IsEmpty());
}

TEST_F(Choice, TakesWhatIsInDoubtLast) {
  const std::vector<AttemptLook> attempts{Look(1, "b1", "abcd"), Look(2, "b2", "a.cd"),
                                          Look(3, "b3", "aXcd")};
  const ChunkChoice choice = ChooseSamples(attempts, planned_, {"b1"});
  EXPECT_THAT(From(choice), ElementsAre(1, 2, 1, 1));
  ASSERT_EQ(choice.differences.size(), 1U);
  EXPECT_EQ(choice.differences[0].index, 1U);
  EXPECT_EQ(choice.differences[0].line, 2U);
  EXPECT_THAT(choice.differences[0].attempts, ElementsAre(0, 2));
}

TEST_F(Choice, KnowsAnAttemptByItsModelAndItsInferences) {
  EXPECT_EQ(Look(1, "b1", "abcd").fault, "");
  const std::vector<SampleRecord> fewer(planned_.begin(), planned_.begin() + 3);
  const AttemptLook look = LookInto(
      {.folder = fleet_.Folder() + "/chunks/0/1", .board = "b1", .attempt = 1, .outputs = {}},
      fleet_.Plan(), fewer);
  EXPECT_EQ(look.fault, "it has inference 3 of 3");
  EXPECT_FALSE(look.HasDone(0));
}

}  // namespace
