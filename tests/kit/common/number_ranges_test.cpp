#include "kit/common/number_ranges.h"

#include <gtest/gtest.h>

#include <vector>

namespace vorn::kit {
namespace {

std::string Told(const std::vector<uint64_t>& numbers, size_t most = 5) {
  return RangesText(numbers, most);
}

TEST(RangesText, JoinsWhatFollowsEachOther) {
  EXPECT_EQ(Told({}), "");
  EXPECT_EQ(Told({17}), "17");
  EXPECT_EQ(Told({17, 18}), "17 and 18");
  EXPECT_EQ(Told({17, 18, 19}), "17 to 19");
  EXPECT_EQ(Told({0, 60, 61, 62, 63, 70, 150, 151, 152}), "0, 60 to 63, 70 and 150 to 152");
  EXPECT_EQ(Told({UINT64_MAX - 2, UINT64_MAX - 1, UINT64_MAX}),
            "18446744073709551613 to 18446744073709551615");
}

TEST(RangesText, CountsWhatItDoesNotName) {
  EXPECT_EQ(Told({1, 3, 5, 7, 9, 11}), "1, 3, 5, 7, 9 and 1 more");
  EXPECT_EQ(Told({1, 2, 3, 5, 7, 8, 9}, 1), "1 to 3 and 4 more");
  EXPECT_EQ(Told({1, 2, 4}, 2), "1, 2 and 1 more");
}

}  // namespace
}  // namespace vorn::kit
