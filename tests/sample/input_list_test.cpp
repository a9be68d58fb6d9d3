#include "sample/input_list.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "support/files.h"

namespace vorn::run {
namespace {

using Strings = std::vector<std::string>;

Strings Entries(const std::string& text) {
  std::istringstream lines(text);
  return ReadInputEntries(lines, "data");
}

TEST(ReadInputEntries, PutsTheFolderInFrontOfEveryPath) {
  EXPECT_EQ(Entries("a.bin\n\nin0:b.bin\n"), (Strings{"data/a.bin", "in0:data/b.bin"}));
}

TEST(ReadInputEntries, TakesALastLineWithoutLineFeed) {
  EXPECT_EQ(Entries("a\nb"), (Strings{"data/a", "data/b"}));
}

TEST(ReadInputEntries, KeepsBlanksReturnsAndZeros) {
  EXPECT_EQ(Entries(" a \r\n"), (Strings{"data/ a \r"}));
  EXPECT_EQ(Entries(std::string("a\0b\n", 4)), (Strings{std::string("data/a\0b", 8)}));
}

TEST(MakeInputEntry, TakesAColonAtEitherEndForAPartOfThePath) {
  EXPECT_EQ(MakeInputEntry(":x.bin", "data"), "data/:x.bin");
  EXPECT_EQ(MakeInputEntry("x.bin:", "data"), "data/x.bin:");
}

TEST(MakeInputEntry, KeepsFurtherColonsInThePath) {
  EXPECT_EQ(MakeInputEntry("in0:a:b", "data"), "in0:data/a:b");
}

TEST(MakeInputEntry, PutsTheFolderInFrontOfAnAbsolutePathToo) {
  EXPECT_EQ(MakeInputEntry("/abs/a.bin", "data"), "data//abs/a.bin");
}

TEST(ReadInputListFile, TakesTheFolderOfTheList) {
  const support::TempDir temporary;
  const std::string folder = temporary.Path();
  support::WriteFile(folder + "/list.txt", "a.bin");
  EXPECT_EQ(ReadInputListFile(folder + "/list.txt"), Strings{folder + "/a.bin"});
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder);
  EXPECT_EQ(ReadInputListFile("list.txt"), Strings{"./a.bin"});
  std::filesystem::current_path(before);
}

TEST(ReadInputListFile, PrintsAFileThatCannotBeOpened) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(ReadInputListFile("/no/such/list"), Strings{});
  EXPECT_EQ(ReadInputListFile(""), Strings{});
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[ERROR] open file /no/such/list failed\n[ERROR] open file  failed\n");
}

TEST(ReadInputListFile, FindsNothingInAFolder) { EXPECT_EQ(ReadInputListFile("/usr"), Strings{}); }

TEST(SplitString, KeepsEmptyPiecesButTheLast) {
  EXPECT_EQ(SplitString("a,b", ','), (Strings{"a", "b"}));
  EXPECT_EQ(SplitString("a,,b", ','), (Strings{"a", "", "b"}));
  EXPECT_EQ(SplitString(",a", ','), (Strings{"", "a"}));
  EXPECT_EQ(SplitString("a,", ','), (Strings{"a"}));
  EXPECT_EQ(SplitString("", ','), Strings{});
}

}  // namespace
}  // namespace vorn::run
