#include "model/rpn_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>

namespace vorn::run {
namespace {

struct Extraction {
  int status;
  std::vector<float> values;
};

Extraction Extract(const std::string& text) {
  std::istringstream stream(text);
  Extraction extraction{};
  extraction.status = ExtractRpnValues(stream, extraction.values);
  return extraction;
}

TEST(ExtractRpnValues, ReadsNumbersBetweenAnyWhiteSpace) {
  const Extraction extraction = Extract(" 0.5\t0.3\n\r\n0.7 -1e2");
  EXPECT_EQ(extraction.status, 0);
  EXPECT_EQ(extraction.values, (std::vector<float>{0.5F, 0.3F, 0.7F, -100.0F}));
}

TEST(ExtractRpnValues, RepeatsTheLastValueForWhiteSpaceBehindIt) {
  EXPECT_EQ(Extract("1 2\n").values, (std::vector<float>{1, 2, 2}));
  EXPECT_EQ(Extract("1 2\n").status, 0);
}

TEST(ExtractRpnValues, GivesAZeroForAnEmptyText) {
  EXPECT_EQ(Extract("").values, (std::vector<float>{0}));
  EXPECT_EQ(Extract("").status, 0);
  EXPECT_EQ(Extract("  \n").values, (std::vector<float>{0}));
}

TEST(ExtractRpnValues, AppendsAZeroForWhatIsNoNumberAndFails) {
  const Extraction extraction = Extract("1 x 2");
  EXPECT_EQ(extraction.status, 1);
  EXPECT_EQ(extraction.values, (std::vector<float>{1, 0}));
  EXPECT_EQ(Extract("inf 1").status, 1);
  EXPECT_EQ(Extract("nan 1").status, 1);
}

TEST(ExtractRpnValues, StopsAHexNumberAtItsLetter) {
  const Extraction extraction = Extract("0x10 1");
  EXPECT_EQ(extraction.status, 1);
  EXPECT_EQ(extraction.values, (std::vector<float>{0, 0}));
}

TEST(ExtractRpnValues, LimitsAnOverflowToTheLargestFloat) {
  const float largest = std::numeric_limits<float>::max();
  EXPECT_EQ(Extract("1e99 1").status, 1);
  EXPECT_EQ(Extract("1e99 1").values, (std::vector<float>{largest}));
  // At the end of the text the end is seen first.
  EXPECT_EQ(Extract("-1e99").status, 0);
  EXPECT_EQ(Extract("-1e99").values, (std::vector<float>{-largest}));
}

}  // namespace
}  // namespace vorn::run
