#include "kit/prepare/number_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr uint64_t kMost = 1 << 20;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

template <typename Value>
std::vector<Value> ValuesOf(const Array& array) {
  std::vector<Value> values(array.bytes.size() / sizeof(Value));
  std::memcpy(values.data(), array.bytes.data(), array.bytes.size());
  return values;
}

Array Parse(std::string_view text) { return ParseNumberText(text, "the text 't'", kMost); }

std::vector<double> Doubles(std::string_view text) {
  const Array array = Parse(text);
  EXPECT_EQ(array.type, ElementType::kFloat64) << text;
  return ValuesOf<double>(array);
}

std::vector<int64_t> Wholes(std::string_view text) {
  const Array array = Parse(text);
  EXPECT_EQ(array.type, ElementType::kInt64) << text;
  return ValuesOf<int64_t>(array);
}

std::string Refusal(std::string_view text, uint64_t mostBytes = kMost,
                    ExitStatus status = ExitStatus::kInput) {
  try {
    (void)ParseNumberText(text, "the text 't'", mostBytes);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), status);
    return fault.what();
  }
  return "taken";
}

TEST(ParseNumberText, TakesEverySeparator) {
  EXPECT_THAT(Doubles("0.5 1.5\t2.5,3.5;4.5\n5.5 , 6.5;\r\n7.5"),
              ElementsAre(0.5, 1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7.5));
}

TEST(ParseNumberText, TakesEveryNotation) {
  EXPECT_THAT(Doubles("1e-3 +2 -.5 3. 0x1.8p+1 -0X.8p1 1E+2 inf -Infinity"),
              ElementsAre(1e-3, 2, -0.5, 3, 3, -1, 100, kInfinity, -kInfinity));
  EXPECT_TRUE(std::isnan(Doubles("nan")[0]));
  EXPECT_TRUE(std::signbit(Doubles("-0.0")[0]));
}

TEST(ParseNumberText, KeepsWholeNumbersThatNoDoubleHolds) {
  EXPECT_THAT(Wholes("9007199254740993 -3 +4 0xff -0x10"),
              ElementsAre(9007199254740993, -3, 4, 255, -16));
  EXPECT_THAT(
      Wholes("9223372036854775807 -9223372036854775808"),
      ElementsAre(std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min()));
}

TEST(ParseNumberText, MakesDoublesOfAllWhereOneIsNotWhole) {
  EXPECT_THAT(Doubles("1 2 3.0"), ElementsAre(1, 2, 3));
  EXPECT_THAT(Doubles("1.5 2 3"), ElementsAre(1.5, 2, 3));
  EXPECT_THAT(Doubles("1 9223372036854775808"), ElementsAre(1, 0x1p63));
}

TEST(ParseNumberText, KnowsRowsOfAsManyNumbers) {
  EXPECT_EQ(Parse("1 2 3\n4 5 6\n").shape, (Shape{2, 3}));
  EXPECT_EQ(Parse("# head\n1, 2, 3,\n\n4, 5, 6 # last\n").shape, (Shape{2, 3}));
  EXPECT_EQ(Parse("1 2 3\n4 5\n").shape, Shape{5});
  EXPECT_EQ(Parse("1 2 3").shape, Shape{3});
  EXPECT_EQ(Parse("1\n2\n3\n").shape, Shape{3});
}

TEST(ParseNumberText, LeavesRemarksAndTheMarkOut) {
  EXPECT_THAT(Wholes("\xEF\xBB\xBF# 1 2\n3#4\n  # 5"), ElementsAre(3));
}

TEST(ParseNumberText, ReadsBackWhatWasWritten) {
  std::mt19937_64 random(20261122);
  std::string text;
  std::vector<double> written;
  while (written.size() < 2000) {
    const uint64_t bits = random();
    double value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    if (!std::isfinite(value)) continue;
    written.push_back(value);
    char digits[64];
    std::snprintf(digits, sizeof(digits), written.size() % 2 == 0 ? "%.17g\n" : "%a,", value);
    text += digits;
  }
  EXPECT_EQ(Doubles(text), written);
}

TEST(ParseNumberText, SaysWhereWhatIsNoNumberStands) {
  EXPECT_EQ(Refusal("1 2\n3  4x 5"), "the text 't' has no number: '4x', in line 2, column 4");
  EXPECT_EQ(Refusal("1,,2"), "the text 't' lacks a number before ',', in line 1, column 3");
  EXPECT_EQ(Refusal("1\n ;2"), "the text 't' lacks a number before ';', in line 2, column 2");
  EXPECT_EQ(Refusal("1\n1e999"),
            "the text 't' has a number beyond the range of float64: '1e999', in line 2, column 1");
  for (const char* word :
       {"--1", "+-1", "-", "+", "0x", "0x-1", "1e", "1.2.3", "x", "1_000", "'1'"}) {
    EXPECT_THAT(Refusal(word), HasSubstr("has no number: ")) << word;
  }
  EXPECT_THAT(Refusal("\x1b[31m"), HasSubstr("'\\x1B[31m'"));
  EXPECT_THAT(Refusal(std::string_view("1\0", 2)), HasSubstr("has no number: '1\\x00'"));
  EXPECT_THAT(Refusal(std::string(5000, 'x')), HasSubstr("xxx'…, in line 1, column 1"));
}

TEST(ParseNumberText, RefusesATextWithoutNumbers) {
  for (const char* text : {"", "\n\n", "# 1\n", "  "}) {
    EXPECT_EQ(Refusal(text), "the text 't' has no numbers in it");
  }
}

TEST(ParseNumberText, RefusesMoreThanIsTaken) {
  EXPECT_EQ(Refusal("1 2 3", 24), "taken");
  EXPECT_THAT(Refusal("1 2 3", 23, ExitStatus::kLimit), HasSubstr("more than the 2 numbers"));
}

TEST(ReadNumberText, ReadsAFile) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "n.txt";
  support::WriteFile(path, "1 2\n3 4\n");
  EXPECT_EQ(ReadNumberText(path, kMost).shape, (Shape{2, 2}));
  support::WriteFile(path, "1 x");
  try {
    (void)ReadNumberText(path, kMost);
    FAIL() << "it was taken";
  } catch (const Fault& fault) {
    EXPECT_EQ(std::string(fault.what()),
              "the text '" + path + "' has no number: 'x', in line 1, column 3");
  }
  EXPECT_THROW((void)ReadNumberText(folder.Path(), kMost), Fault);
}

}  // namespace
}  // namespace vorn::kit
