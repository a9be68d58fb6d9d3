// The list, against what vorn-run's own reader makes of the same bytes.
#include "kit/launch/input_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "model/sort_inputs.h"
#include "sample/input_list.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vorn::kit::ListedInput;
using vorn::kit::ListLine;
using vorn::kit::ResolveList;
using vorn::kit::SplitListLines;

std::vector<std::string> Files(const vorn::kit::ResolvedList& list) {
  std::vector<std::string> files;
  for (const ListedInput& input : list.inputs) files.push_back(input.file);
  return files;
}

std::vector<uint64_t> Lines(const vorn::kit::ResolvedList& list) {
  std::vector<uint64_t> lines;
  for (const ListedInput& input : list.inputs) lines.push_back(input.line);
  return lines;
}

TEST(InputList, CountsEmptyLinesAndLeavesThemOut) {
  const std::vector<ListLine> lines = SplitListLines("\na\n\n b \nc");
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].number, 2U);
  EXPECT_EQ(lines[0].text, "a");
  EXPECT_EQ(lines[1].number, 4U);
  EXPECT_EQ(lines[1].text, " b ");
  EXPECT_EQ(lines[2].number, 5U);
  EXPECT_THAT(SplitListLines(""), IsEmpty());
  EXPECT_THAT(SplitListLines("\n\n"), IsEmpty());
}

TEST(InputList, PutsTheFolderInFrontOfEveryPath) {
  const auto list = ResolveList(SplitListLines("a\n/b\nx:c\n"), "dir", {"in"});
  EXPECT_THAT(Files(list), ElementsAre("dir/a", "dir//b", "x:dir/c"));
  EXPECT_EQ(list.inputs[2].path, "c");
  EXPECT_EQ(list.inputs[2].name, std::nullopt);
  EXPECT_FALSE(list.areNamesUsed);
}

TEST(InputList, SortsGroupsByName) {
  const auto list = ResolveList(SplitListLines("b:1\na:2\n\na:3\nb:4\n"), "d", {"a", "b"});
  EXPECT_TRUE(list.areNamesUsed);
  EXPECT_THAT(Files(list), ElementsAre("d/2", "d/1", "d/3", "d/4"));
  EXPECT_THAT(Lines(list), ElementsAre(2, 1, 4, 5));
  EXPECT_EQ(list.inputs[0].name, "a");
  EXPECT_EQ(list.inputs[0].path, "2");
}

TEST(InputList, KeepsNamesThatAreNotAllKnownOrDoNotComeOutEven) {
  EXPECT_THAT(Files(ResolveList(SplitListLines("a:1\nc:2\n"), "d", {"a", "b"})),
              ElementsAre("a:d/1", "c:d/2"));
  EXPECT_THAT(Files(ResolveList(SplitListLines("a:1\n2\n"), "d", {"a", "b"})),
              ElementsAre("a:d/1", "d/2"));
  EXPECT_THAT(Files(ResolveList(SplitListLines("a:1\nb:2\na:3\n"), "d", {"a", "b"})),
              ElementsAre("a:d/1", "b:d/2", "a:d/3"));
}

TEST(InputList, FindsTheFolderOfAList) {
  EXPECT_EQ(vorn::kit::FolderOfList("list.txt"), ".");
  EXPECT_EQ(vorn::kit::FolderOfList("a/list.txt"), "a");
  EXPECT_EQ(vorn::kit::FolderOfList("/list.txt"), "/");
}

// Random lists of a small alphabet, so that names, colons and empty lines meet in all ways.
TEST(InputList, ReadsAsVornRunDoes) {
  std::mt19937 random(20261122);
  const std::vector<std::vector<std::string>> models{{"a"}, {"a", "b"}, {"b", "a", "a/b"}};
  int sorted = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string bytes;
    const size_t size = random() % 24;
    for (size_t i = 0; i < size; ++i) {
      constexpr std::string_view kPieces[] = {"a", "b", ":", "/", "\n", "a:", "b:", "\na:b", "\r"};
      bytes += kPieces[random() % std::size(kPieces)];
    }
    const std::string folder = std::vector<std::string>{".", "d", "a:d"}[random() % 3];
    const auto& names = models[random() % models.size()];
    std::istringstream stream(bytes);
    std::vector<std::string> expected = vorn::run::ReadInputEntries(stream, folder);
    const std::vector<std::string> before = expected;
    vorn::run::SortInputsByName(expected, names);
    const auto list = ResolveList(SplitListLines(bytes), folder, names);
    ASSERT_EQ(Files(list), expected) << testing::PrintToString(bytes) << " in " << folder;
    ASSERT_EQ(list.areNamesUsed, expected != before || expected.empty());
    sorted += list.areNamesUsed && !expected.empty() ? 1 : 0;
  }
  EXPECT_GT(sorted, 100);
}

}  // namespace
