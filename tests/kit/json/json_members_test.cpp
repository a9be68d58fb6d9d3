#include "kit/json/json_members.h"

#include <gtest/gtest.h>

#include <array>

namespace vorn::kit {
namespace {

std::string WhatHolds(const char* text) {
  try {
    HoldToKeys(ParseJson(text), {"scale", "zeroPoint"});
  } catch (const JsonError& error) {
    return error.what();
  }
  return "";
}

TEST(HoldToKeys, TakesThoseThatThereAre) {
  EXPECT_EQ(WhatHolds("{}"), "");
  EXPECT_EQ(WhatHolds(R"({"zeroPoint": 1, "scale": 2})"), "");
}

TEST(HoldToKeys, SaysWhoseKeysTheyAre) {
  try {
    HoldToKeys(ParseJson(R"({"hops": 1})"), "a signal has", {"window", "hop"});
    ADD_FAILURE() << "it was taken";
  } catch (const JsonError& error) {
    EXPECT_STREQ(error.what(), "a signal has no key 'hops'; did you mean 'hop'?");
  }
}

TEST(HoldToKeys, NamesAnotherAndTheNearest) {
  EXPECT_EQ(WhatHolds(R"({"zeropoint": 1})"),
            "there is no key 'zeropoint'; did you mean 'zeroPoint'?");
  EXPECT_EQ(WhatHolds(R"({"scale": 1, "colour": 1})"), "there is no key 'colour'");
}

TEST(FiniteNumber, RefusesWhatIsNone) {
  EXPECT_EQ(FiniteNumber(Json(0.5), "scale"), 0.5);
  EXPECT_THROW((void)FiniteNumber(Json("Infinity"), "scale"), JsonError);
  EXPECT_THROW((void)FiniteNumber(Json("much"), "scale"), JsonError);
}

TEST(ShownValue, IsPrintableAndCut) {
  EXPECT_EQ(ShownValue(Json("a\x7f")), R"("a\x7F")");
  EXPECT_LT(ShownValue(Json(std::string(1000, 'a'))).size(), 300U);
}

TEST(ShortestDouble, IsWhatAPersonWrites) {
  EXPECT_EQ(ShortestDouble(0.1F), 0.1);
  EXPECT_EQ(ShortestDouble(-3.4028235e38F), -3.4028235e38);
  EXPECT_EQ(ShortestDouble(1.36441695e-05F), 1.36441695e-05) << "nine digits";
  EXPECT_EQ(ShortestDouble(0), 0);
}

TEST(EnumOf, IsTheValueOfThatName) {
  enum class Size { kSmall, kLarge };
  constexpr std::array<std::string_view, 2> kSizes{"small", "large"};
  EXPECT_EQ(vorn::kit::EnumOf<Size>("large", kSizes), Size::kLarge);
  try {
    (void)vorn::kit::EnumOf<Size>("huge", kSizes);
    FAIL();
  } catch (const vorn::kit::JsonError& error) {
    EXPECT_STREQ(error.what(), "'huge' is not known here");
  }
}

}  // namespace
}  // namespace vorn::kit
