// The list, against what vorn-run's own reader makes of the same bytes.
#include "kit/launch/input_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <sstream>

#include "kit/common/fault.h"
#include "model/sort_inputs.h"
#include "sample/input_list.h"
#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vorn::kit::ExitStatus;
using vorn::kit::Fault;
using vorn::kit::InputList;
using vorn::kit::ListedInput;

InputList Sorted(const std::string& bytes, const std::string& folder,
                 const std::vector<std::string>& names) {
  return InputList::OfBytes(bytes, folder).SortedBy(names);
}

template <typename Member>
std::vector<Member> All(const InputList& list, Member ListedInput::*member) {
  std::vector<Member> all;
  for (uint64_t i = 0; i < list.Lines(); ++i) all.push_back(list.Input(i).*member);
  return all;
}

std::vector<std::string> Files(const InputList& list) { return All(list, &ListedInput::file); }

std::vector<uint64_t> Numbers(const InputList& list) { return All(list, &ListedInput::line); }

TEST(InputList, CountsEmptyLinesAndLeavesThemOut) {
  const InputList list = InputList::OfBytes("\na\n\n b \nc", "d");
  EXPECT_EQ(list.Lines(), 3U);
  EXPECT_EQ(list.LastNumber(), 5U);
  EXPECT_THAT(Numbers(list), ElementsAre(2, 4, 5));
  EXPECT_THAT(All(list, &ListedInput::text), ElementsAre("a", " b ", "c"));
  EXPECT_EQ(InputList::OfBytes("", "d").Lines(), 0U);
  EXPECT_EQ(InputList::OfBytes("\n\n", "d").Lines(), 0U);
  EXPECT_EQ(InputList().Lines(), 0U);
  EXPECT_EQ(InputList().SortedBy({"a"}).Lines(), 0U);
}

TEST(InputList, PutsTheFolderInFrontOfEveryPath) {
  const InputList list = Sorted("a\n/b\nx:c\n", "dir", {"in"});
  EXPECT_THAT(Files(list), ElementsAre("dir/a", "dir//b", "x:dir/c"));
  EXPECT_EQ(list.Input(2).path, "c");
  EXPECT_EQ(list.Input(2).name, std::nullopt);
  EXPECT_FALSE(list.AreNamesUsed());
}

TEST(InputList, SortsGroupsByName) {
  const InputList list = Sorted("b:1\na:2\n\na:3\nb:4\n", "d", {"a", "b"});
  EXPECT_TRUE(list.AreNamesUsed());
  EXPECT_THAT(Files(list), ElementsAre("d/2", "d/1", "d/3", "d/4"));
  EXPECT_THAT(Numbers(list), ElementsAre(2, 1, 4, 5));
  EXPECT_EQ(list.Input(0).name, "a");
  EXPECT_EQ(list.Input(0).path, "2");
  EXPECT_EQ(list.Input(0).text, "a:2");
}

TEST(InputList, KeepsNamesThatAreNotAllKnownOrDoNotComeOutEven) {
  EXPECT_THAT(Files(Sorted("a:1\nc:2\n", "d", {"a", "b"})), ElementsAre("a:d/1", "c:d/2"));
  EXPECT_THAT(Files(Sorted("a:1\n2\n", "d", {"a", "b"})), ElementsAre("a:d/1", "d/2"));
  EXPECT_THAT(Files(Sorted("a:1\nb:2\na:3\n", "d", {"a", "b"})),
              ElementsAre("a:d/1", "b:d/2", "a:d/3"));
}

TEST(InputList, CountsNames) {
  const InputList list = Sorted("a:1\nc:2\n3\na:4\n", "d", {"a", "b"});
  EXPECT_EQ(list.NamedLines(), 3U);
  EXPECT_EQ(list.LinesNamedRightly(), 2U);
}

TEST(InputList, TakesThePartThatItIsAskedFor) {
  const InputList list = InputList::OfBytes(
      "\xEF\xBB\xBF"
      "b:1\na:2\n\na:3\nb:4\n",
      "d");
  const InputList plain = list.Without(3).SortedBy({"a", "b"});
  EXPECT_THAT(Files(plain), ElementsAre("d/2", "d/1", "d/3", "d/4"));
  EXPECT_THAT(Files(plain.FirstOf(3)), ElementsAre("b:d/1", "a:d/2", "a:d/3"));
  EXPECT_THAT(Files(plain.FirstOf(2)), ElementsAre("d/2", "d/1"));
  EXPECT_EQ(plain.FirstOf(3).LastNumber(), 4U);
  EXPECT_THAT(Files(plain.FirstOf(0)), IsEmpty());
  // A mark alone leaves an empty line.
  EXPECT_THAT(Numbers(InputList::OfBytes("\xEF\xBB\xBF"
                                         "\nx\n",
                                         "d")
                          .Without(3)),
              ElementsAre(2));
}

// Lines of all lengths with empty ones among them, more than are found without a search.
TEST(InputList, FindsAnyLineOfALongList) {
  std::mt19937 random(7);
  std::string bytes;
  std::vector<std::string> expected;
  std::vector<uint64_t> numbers;
  for (uint64_t number = 1; expected.size() < 20000; ++number) {
    if (random() % 5 != 0) {
      expected.push_back("f" + std::to_string(number) + std::string(random() % 60, 'x'));
      numbers.push_back(number);
      bytes += expected.back();
    }
    bytes += "\n";
  }
  const support::TempDir folder;
  const std::string path = folder.Path() / "list.txt";
  support::WriteFile(path, bytes);
  const InputList list = InputList::OfFile(path);
  ASSERT_EQ(list.Lines(), expected.size());
  EXPECT_EQ(All(list, &ListedInput::path), expected);
  EXPECT_EQ(Numbers(list), numbers);
  for (int i = 0; i < 300; ++i) {
    const uint64_t place = random() % expected.size();
    ASSERT_EQ(list.Input(place).path, expected[place]);
    ASSERT_EQ(list.Input(place).line, numbers[place]);
  }
  EXPECT_EQ(list.Input(0).path, expected[0]);
  EXPECT_EQ(list.Input(4095).path, expected[4095]);
  EXPECT_EQ(list.Input(4096).path, expected[4096]);
  EXPECT_EQ(list.Input(0).file, folder.Path() / expected[0]);
}

std::string FaultOf(const InputList& list, uint64_t place) {
  try {
    (void)list.Input(place);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "";
}

std::string FaultOfOpening(const std::string& path) {
  try {
    (void)InputList::OfFile(path);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "";
}

TEST(InputList, SaysThatItsFileWasChanged) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "list.txt";
  std::string bytes;
  for (int i = 0; i < 5000; ++i) bytes += "a:one\nb:two\n";
  support::WriteFile(path, bytes);
  const InputList list = InputList::OfFile(path).SortedBy({"a", "b"});
  ASSERT_TRUE(list.AreNamesUsed());
  const InputList held = list.HeldIn(bytes);
  std::string nameless = bytes;
  nameless.replace(nameless.size() - 6, 1, "x:");
  std::replace(nameless.end() - 40, nameless.end(), ':', '-');
  support::WriteFile(path, nameless);
  EXPECT_THAT(FaultOf(list, 9999), HasSubstr("list.txt' was changed while it was read"));
  support::WriteFile(path, "a:one\nb:two\n");
  EXPECT_THAT(FaultOf(list, 9000), HasSubstr("list.txt' was changed while it was read"));
  EXPECT_THAT(FaultOf(list, 9000), HasSubstr("list.txt' was changed while it was read"));
  EXPECT_EQ(held.Input(9999).path, "two");
  EXPECT_THROW((void)InputList::OfFile(folder.Path() / "none"), Fault);
  EXPECT_THROW((void)InputList::OfFile(folder.Path()), Fault);  // a folder
}

// Lists that are made of one another are of one file, whatever lies at its path meanwhile.
TEST(InputList, GoesOnWithTheFileThatItBeganWith) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "list.txt";
  support::WriteFile(path, "b:1\na:2\n");
  const InputList list = InputList::OfFile(path);
  EXPECT_EQ(list.File(), vorn::kit::IdentifyFile(path, "the list", ExitStatus::kInput));
  support::WriteFile(folder.Path() / "other", "c\nd\n");
  std::filesystem::rename(folder.Path() / "other", path);
  EXPECT_THAT(All(list.SortedBy({"a", "b"}), &ListedInput::path), ElementsAre("2", "1"));
  std::filesystem::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_THAT(All(list.FirstOf(1), &ListedInput::path), ElementsAre("1"));
  EXPECT_THAT(FaultOfOpening(path), HasSubstr("list.txt' is no regular file"));
  std::filesystem::remove(path);
  EXPECT_THAT(FaultOfOpening(path), HasSubstr("list.txt' cannot be opened: No such file"));
  EXPECT_THAT(FaultOfOpening(folder.Path()), HasSubstr("' is a folder, and a file is needed"));
}

TEST(InputList, SeesThatOtherBytesOfTheSameLengthWereWritten) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "list.txt";
  support::WriteFile(path, "a\nb\n");
  std::filesystem::last_write_time(path, std::filesystem::file_time_type{});  // not of this second
  const InputList list = InputList::OfFile(path);
  support::WriteFile(path, "c\nd\n");
  EXPECT_THAT(FaultOf(list, 0), HasSubstr("list.txt' was changed while it was read; start again"));
  EXPECT_THAT(FaultOf(list, 1), HasSubstr("list.txt' was changed while it was read; start again"));
}

// A line goes over pieces that are read at once, and ends where one does.
TEST(InputList, TakesLinesOfAnyLengthUntilTheyAreNone) {
  constexpr size_t kPiece = 64 * 1024;
  constexpr size_t kMost = 1 << 20;
  const support::TempDir folder;
  const std::string path = folder.Path() / "list.txt";
  for (const size_t length : {kPiece - 2, kPiece - 1, kPiece, kPiece + 1, 3 * kPiece, kMost}) {
    const std::string line(length, 'x');
    support::WriteFile(path, "a\n" + line + "\nb\n\n" + line);
    const InputList list = InputList::OfFile(path);
    EXPECT_THAT(All(list, &ListedInput::path), ElementsAre("a", line, "b", line));
    EXPECT_THAT(Numbers(list), ElementsAre(1, 2, 3, 5));
    EXPECT_EQ(list.LastNumber(), 5U);
  }
  support::WriteFile(path, "a\n\n" + std::string(kMost + 1, 'x') + "\n");
  EXPECT_THAT(FaultOfOpening(path), HasSubstr("list.txt' has more than 1.0 MiB in line 3; a list "
                                              "has a path in each line"));
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
    const InputList list = Sorted(bytes, folder, names);
    ASSERT_EQ(Files(list), expected) << testing::PrintToString(bytes) << " in " << folder;
    ASSERT_EQ(list.AreNamesUsed(), expected != before || expected.empty());
    sorted += list.AreNamesUsed() && !expected.empty() ? 1 : 0;
  }
  EXPECT_GT(sorted, 100);
}

}  // namespace
