#include "kit/common/nearest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace vorn::kit {
namespace {

using testing::Eq;
using testing::Optional;

// By its definition, without a table: what the first characters may have come from.
size_t SlowDistance(const std::string& one, const std::string& other) {
  if (one.empty()) return other.size();
  if (other.empty()) return one.size();
  const std::string shorterOne = one.substr(1);
  const std::string shorterOther = other.substr(1);
  size_t least = std::min(SlowDistance(shorterOne, other), SlowDistance(one, shorterOther)) + 1;
  least = std::min(least, SlowDistance(shorterOne, shorterOther) + (one[0] == other[0] ? 0 : 1));
  const bool areExchanged =
      one.size() > 1 && other.size() > 1 && one[0] == other[1] && one[1] == other[0];
  if (areExchanged) least = std::min(least, SlowDistance(one.substr(2), other.substr(2)) + 1);
  return least;
}

TEST(EditDistance, IsWhatTheSlowWayFinds) {
  std::mt19937 random(1);
  for (int round = 0; round < 500; ++round) {
    std::string one(random() % 6, ' ');
    std::string other(random() % 6, ' ');
    for (char& letter : one) letter = static_cast<char>('a' + random() % 3);
    for (char& letter : other) letter = static_cast<char>('a' + random() % 3);
    EXPECT_EQ(EditDistance(one, other), SlowDistance(one, other)) << one << " and " << other;
  }
}

TEST(NearestName, TakesOneSlipOfTheKeyboardForAShortWord) {
  const std::vector<std::string> names{"inspect", "launch", "judge"};
  EXPECT_THAT(NearestName("inpsect", names), Optional(Eq("inspect")));
  EXPECT_THAT(NearestName("jugde", names), Optional(Eq("judge")));
  EXPECT_THAT(NearestName("lunch", names), Optional(Eq("launch")));
}

TEST(NearestName, TakesTheNearestOfSeveralAndTheFirstOfEqualOnes) {
  const std::vector<std::string> names{"image_b", "image_a", "image_aa"};
  EXPECT_THAT(NearestName("image_a", names), Optional(Eq("image_a")));
  EXPECT_THAT(NearestName("image_c", names), Optional(Eq("image_b")));
}

TEST(NearestName, HasNoneForAWordThatIsTooFar) {
  const std::vector<std::string> names{"inspect", "judge"};
  EXPECT_EQ(NearestName("x", names), std::nullopt);
  EXPECT_EQ(NearestName("ju", names), std::nullopt);  // three letters are missing
  EXPECT_EQ(NearestName("inspector", {}), std::nullopt);
  EXPECT_EQ(NearestName("innnspect", names), "inspect");  // two of nine
  EXPECT_EQ(NearestName("abcdefghi", names), std::nullopt);
}

TEST(NearestName, TakesAWordThatWasCutShortForTheOnlyOneThatBeginsSo) {
  const std::vector<std::string> names{"status", "stow", "--model", "--model-json"};
  EXPECT_EQ(NearestName("stat", names), "status");
  EXPECT_EQ(NearestName("--model-", names), "--model");  // a slip is nearer
  EXPECT_EQ(NearestName("--mod", names), std::nullopt);  // of two
  EXPECT_EQ(NearestName("sta", names), std::nullopt);
}

TEST(DidYouMean, AsksOnlyWhereThereIsOne) {
  const std::vector<std::string> names{"batch"};
  EXPECT_EQ(DidYouMean("bacth", names), "; did you mean 'batch'?");
  EXPECT_EQ(DidYouMean("model", names), "");
}

}  // namespace
}  // namespace vorn::kit
