#include "model/sort_inputs.h"

#include <gtest/gtest.h>

#include <csignal>

namespace vorn::run {
namespace {

using Strings = std::vector<std::string>;

Strings Sorted(Strings entries, const Strings& names) {
  SortInputsByName(entries, names);
  return entries;
}

TEST(SortInputsByName, OrdersEachGroupAndStripsTheNames) {
  EXPECT_EQ(Sorted({"in1:d/b", "in0:d/a", "in0:c", "in1:d"}, {"in0", "in1"}),
            (Strings{"d/a", "d/b", "c", "d"}));
}

TEST(SortInputsByName, KeepsColonsBehindTheFirst) {
  EXPECT_EQ(Sorted({"in0:a:b"}, {"in0"}), (Strings{"a:b"}));
}

TEST(SortInputsByName, LeavesPlainOrUnknownEntriesAlone) {
  const Strings plain{"in1:b", "a"};
  EXPECT_EQ(Sorted(plain, {"in0", "in1"}), plain);
  const Strings unknown{"in1:b", "in2:a"};
  EXPECT_EQ(Sorted(unknown, {"in0", "in1"}), unknown);
}

TEST(SortInputsByName, LeavesAPartialGroupAlone) {
  const Strings three{"in1:b", "in0:a", "in1:c"};
  EXPECT_EQ(Sorted(three, {"in0", "in1"}), three);
}

TEST(SortInputsByName, LetsTheLastOfTwoEqualNamesCount) {
  EXPECT_EQ(Sorted({"x:1", "y:2", "y:3"}, {"x", "y", "x"}), (Strings{"2", "3", "1"}));
}

TEST(SortInputsByName, TakesNoEntries) { EXPECT_EQ(Sorted({}, {"in0"}), Strings{}); }

TEST(SortInputsByNameDeathTest, FaultsWithoutNames) {
  EXPECT_EXIT(Sorted({}, {}), testing::KilledBySignal(SIGFPE), "");
  EXPECT_EXIT(Sorted({"a"}, {}), testing::KilledBySignal(SIGFPE), "");
}

TEST(CheckInputNames, ComparesByteForByte) {
  EXPECT_TRUE(CheckInputNames({}, {}));
  EXPECT_TRUE(CheckInputNames({"a:x", "b:y"}, {"b", "a"}));
  EXPECT_FALSE(CheckInputNames({"A:x"}, {"a"}));
  EXPECT_FALSE(CheckInputNames({" a:x"}, {"a"}));
  EXPECT_FALSE(CheckInputNames({":x"}, {""}));
}

}  // namespace
}  // namespace vorn::run
