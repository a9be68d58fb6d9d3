#include "kit/page/number_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace vorn::kit {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(CountText, PutsCommasBetweenThousands) {
  EXPECT_EQ(CountText(0), "0");
  EXPECT_EQ(CountText(999), "999");
  EXPECT_EQ(CountText(1000), "1,000");
  EXPECT_EQ(CountText(1234567), "1,234,567");
  EXPECT_EQ(CountText(UINT64_MAX), "18,446,744,073,709,551,615");
}

TEST(NumberText, HasFourDigitsThatCount) {
  EXPECT_EQ(NumberText(0), "0");
  EXPECT_EQ(NumberText(0.04429741), "0.0443");
  EXPECT_EQ(NumberText(17.0), "17");
  EXPECT_EQ(NumberText(-2.5), "-2.5");
  EXPECT_EQ(NumberText(0.1 + 0.2), "0.3");
}

TEST(NumberText, WritesOutWholeNumbersThatCanBeRead) {
  EXPECT_EQ(NumberText(123456), "123456");
  EXPECT_EQ(NumberText(3.78105359e8), "3.781e+08");
  EXPECT_EQ(NumberText(1e-7), "1e-07");
}

TEST(NumberText, NamesWhatIsNoNumber) {
  EXPECT_EQ(NumberText(NAN), "NaN");
  EXPECT_EQ(NumberText(kInfinity), "∞");
  EXPECT_EQ(NumberText(-kInfinity), "−∞");
}

TEST(TimeText, TakesTheUnitThatReadsWell) {
  EXPECT_EQ(TimeText(0), "0 ns");
  EXPECT_EQ(TimeText(999), "999 ns");
  EXPECT_EQ(TimeText(36699), "36.7 µs");
  EXPECT_EQ(TimeText(8.1e6), "8.1 ms");
  EXPECT_EQ(TimeText(42e9), "42 s");
}

TEST(PercentText, SaysNeitherAllNorNoneOfWhatIsNearly) {
  EXPECT_EQ(PercentText(0), "0 %");
  EXPECT_EQ(PercentText(1), "100 %");
  EXPECT_EQ(PercentText(0.125), "12.5 %");
  EXPECT_EQ(PercentText(0.9997), "99.97 %");
  EXPECT_EQ(PercentText(0.999999), "> 99.99 %");
  EXPECT_EQ(PercentText(1e-9), "< 0.01 %");
  EXPECT_EQ(PercentText(0.05), "5 %");
}

TEST(PercentagePointsText, IsTheDifferenceOfShares) {
  EXPECT_EQ(PercentagePointsText(0.98 - 0.99), "-1 percentage point");
  EXPECT_EQ(PercentagePointsText(0.01), "1 percentage point");
  EXPECT_EQ(PercentagePointsText(-0.005), "-0.5 percentage points");
  EXPECT_EQ(PercentagePointsText(0), "0 percentage points");
}

TEST(QuantityText, GoesByTheQuantity) {
  EXPECT_EQ(QuantityText(10000, Quantity::kCount), "10,000");
  EXPECT_EQ(QuantityText(1800000, Quantity::kKilohertz), "1.8 GHz");
  EXPECT_EQ(QuantityText(54200, Quantity::kMilliCelsius), "54.2 °C");
  EXPECT_EQ(QuantityText(1536, Quantity::kBytes), "1.5 KiB");
  EXPECT_EQ(QuantityText(1, Quantity::kBytes), "1 byte");
  EXPECT_EQ(QuantityText(NAN, Quantity::kNanoseconds), "NaN ns");
}

TEST(PlaceText, HasTwoDecimalsAtMost) {
  EXPECT_EQ(PlaceText(1.0 / 3), "0.33");
  EXPECT_EQ(PlaceText(12), "12");
  EXPECT_EQ(PlaceText(-0.001), "0");
  EXPECT_EQ(PlaceText(NAN), "0");
  EXPECT_EQ(PlaceText(1e300), "1000000");
}

}  // namespace
}  // namespace vorn::kit
