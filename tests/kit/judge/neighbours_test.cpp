#include "kit/judge/neighbours.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <utility>

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// From 80 to 91 neighbours are exchanged; of 84 and 85 and of 92 and 93 the answers are the same.
struct Exchange {
  std::map<uint64_t, int> wrong;
  std::vector<uint64_t> right;
  std::set<std::pair<uint64_t, uint64_t>> alike{{84, 85}, {85, 84}, {92, 93}, {93, 92}};

  Exchange() {
    for (uint64_t sample = 0; sample < 200; ++sample) {
      const bool isPassing = sample == 84 || sample == 85 || sample == 88 || sample == 89;
      if (sample < 80 || sample > 91 || isPassing) {
        right.push_back(sample);
      } else {
        wrong[sample] = sample % 2 == 0 ? 1 : -1;
      }
    }
  }

  [[nodiscard]] std::vector<NeighbourStretch> Find() const {
    return FindStretches(wrong, right, [&](uint64_t sample, uint64_t other) {
      return alike.count({sample, other}) > 0;
    });
  }
};

TEST(FindStretches, TellsWhatCannotBeDecidedFromWhatIsRight) {
  const auto stretches = Exchange().Find();
  ASSERT_THAT(stretches, SizeIs(1));
  EXPECT_EQ(stretches[0].pattern, NeighbourPattern::kExchanged);
  EXPECT_THAT(stretches[0].wrong, ElementsAre(80, 81, 82, 83, 86, 87, 90, 91));
  EXPECT_THAT(stretches[0].undecided, ElementsAre(84, 85, 92, 93));
  EXPECT_THAT(stretches[0].right, ElementsAre(88, 89));
}

// 84 has the same answer as 83, which is not the one that it is exchanged with.
TEST(FindStretches, AsksForThePartnerOfAnExchangeAlone) {
  Exchange exchange;
  exchange.alike = {{84, 83}, {85, 86}};
  EXPECT_THAT(exchange.Find().at(0).undecided, IsEmpty());
}

// Where 81 and 83 have the same answer, what belongs to 83 seems to be that of 81.
TEST(FindStretches, FindsTheExchangeWhereACauseTellsOfTheOtherNeighbour) {
  Exchange exchange;
  exchange.wrong[82] = -1;
  exchange.alike.emplace(82, 83);
  const NeighbourStretch stretch = exchange.Find().at(0);
  EXPECT_EQ(stretch.pattern, NeighbourPattern::kExchanged);
  EXPECT_THAT(stretch.undecided, ElementsAre(84, 85, 92, 93));
}

TEST(FindStretches, TakesThoseThatWereNotLookedIntoByWhatTheyHold) {
  Exchange exchange;
  exchange.wrong[82] = exchange.wrong[83] = 0;
  exchange.alike.emplace(83, 82);
  EXPECT_THAT(exchange.Find().at(0).wrong, ElementsAre(80, 81, 83, 86, 87, 90, 91));
}

TEST(FindStretches, SaysNothingOfWhatCannotBeLookedAt) {
  const Exchange exchange;
  const auto found = FindStretches(exchange.wrong, exchange.right,
                                   [](auto, auto) { return std::optional<bool>(); });
  EXPECT_THAT(found.at(0).wrong, SizeIs(8));
  EXPECT_THAT(found.at(0).undecided, IsEmpty());
  EXPECT_THAT(found.at(0).right, IsEmpty());
}

TEST(FindStretches, AsksForTheOneBeforeWhereThatIsWhatTheyHold) {
  Exchange exchange;
  for (auto& [sample, direction] : exchange.wrong) direction = -1;
  exchange.alike = {{84, 83}, {85, 86}, {92, 91}};
  const NeighbourStretch stretch = exchange.Find().at(0);
  EXPECT_EQ(stretch.pattern, NeighbourPattern::kBefore);
  EXPECT_THAT(stretch.undecided, ElementsAre(84, 92));
}

TEST(FindStretches, TakesSamplesThatLieFarApartForSeveral) {
  std::map<uint64_t, int> wrong;
  std::vector<uint64_t> right;
  for (uint64_t sample = 0; sample < 100; ++sample) {
    const bool isWrong = sample < 8 || sample > 91;
    if (isWrong) wrong[sample] = sample % 2 == 0 ? 1 : -1;
    if (!isWrong) right.push_back(sample);
  }
  EXPECT_THAT(FindStretches(wrong, right, [](auto, auto) { return false; }), SizeIs(2));
  // What is wrong and was not looked into parts nothing.
  for (uint64_t sample = 8; sample < 92; ++sample) wrong[sample] = 0;
  const auto one = FindStretches(wrong, {}, [](auto, auto) { return false; });
  ASSERT_THAT(one, SizeIs(1));
  EXPECT_THAT(one[0].wrong, SizeIs(16));
}

TEST(FindStretches, CallsFewNone) {
  const std::map<uint64_t, int> wrong{{3, 1}, {4, -1}, {9, -1}};
  EXPECT_THAT(FindStretches(wrong, {5, 6}, [](auto, auto) { return true; }), IsEmpty());
}

TEST(FindStretches, EndsAtTheFirstSample) {
  const std::map<uint64_t, int> wrong{{1, -1}, {2, -1}, {3, -1}, {4, -1}};
  const auto found = FindStretches(wrong, {0, 5}, [](auto, auto) { return true; });
  EXPECT_THAT(found.at(0).undecided, ElementsAre(5));  // nothing stands before sample 0
}

TEST(PassingTexts, SayWhatIsTrueOfThem) {
  const NeighbourStretch stretch = Exchange().Find().at(0);
  EXPECT_THAT(PassingTexts(stretch),
              ElementsAre("Whether samples 84, 85, 92 and 93 among and beside the exchanged ones "
                          "were exchanged, too, cannot be decided: their neighbours' outputs are "
                          "alike, and what came passes as either.",
                          "Samples 88 and 89 among the exchanged ones are right: what came is not "
                          "their neighbours'."));
  EXPECT_THAT(PassingTexts({NeighbourPattern::kBefore, {1, 2, 3, 4}, {5}, {}}),
              ElementsAre("Whether sample 5 beside those that hold a neighbour's output holds one, "
                          "too, cannot be decided: the neighbour's output is alike, and what came "
                          "passes as either."));
  EXPECT_THAT(PassingTexts({NeighbourPattern::kEither, {1, 2, 4, 5}, {}, {3}}),
              ElementsAre("Sample 3 among those that hold a neighbour's output is right: what came "
                          "is not the neighbour's."));
  EXPECT_THAT(PassingTexts({NeighbourPattern::kExchanged, {1, 2, 3, 4}, {}, {}}), IsEmpty());
}

TEST(StretchText, NamesTwoThatAreEachOthers) {
  EXPECT_EQ(StretchText({NeighbourPattern::kExchanged, {79, 82, 83, 90}, {}, {}}),
            "each holds the output of its neighbour, 82 that of 83 and 83 that of 82, and so on by "
            "pairs");
  EXPECT_EQ(StretchText({NeighbourPattern::kExchanged, {1, 5, 9, 13}, {}, {}}),
            "each holds the output of its neighbour");
  EXPECT_EQ(StretchText({NeighbourPattern::kBefore, {1, 2, 3, 4}, {}, {}}),
            "each holds what belongs to the sample before it");
  EXPECT_EQ(StretchText({NeighbourPattern::kEither, {1, 2, 3, 4}, {}, {}}), "");
}

}  // namespace
}  // namespace vorn::kit
