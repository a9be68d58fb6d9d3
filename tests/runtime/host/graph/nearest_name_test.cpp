#include "host/graph/nearest_name.h"

#include <gtest/gtest.h>

#include <string>

namespace vorn::host {
namespace {

TEST(NearestName, IsTheOneWithTheFewestChanges) {
  EXPECT_EQ(NearestName("conv3", {"relu1", "conv2", "convolution"}), "conv2");
  EXPECT_EQ(NearestName("cnov3", {"n", "conv3", "cnv"}), "conv3");  // two exchanged
  EXPECT_EQ(NearestName("scores", {"score", "scoresum"}), "score");
  EXPECT_EQ(NearestName("", {"abc", "a"}), "a");
}

TEST(NearestName, IsTheFirstOfSeveral) { EXPECT_EQ(NearestName("b", {"a", "c"}), "a"); }

TEST(NearestName, IsNothingWhereThereAreNone) { EXPECT_EQ(NearestName("a", {}), ""); }

TEST(NearestName, ComparesTheBeginningsOfLongOnes) {
  const std::string one = std::string(100000, 'a') + "1";
  const std::string other = "b" + std::string(100000, 'a');
  EXPECT_EQ(NearestName(std::string(100000, 'a') + "2", {other, one}), one);
}

}  // namespace
}  // namespace vorn::host
