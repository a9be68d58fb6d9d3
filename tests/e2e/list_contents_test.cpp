// What a list may hold: very many lines, very long ones, and bytes that are not text.
#include <gtest/gtest.h>

#include "e2e/expected.h"
#include "e2e/surroundings.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

constexpr char kNoBuffer[] = "[ERROR] get pic device buffer failed";

TEST(ListContents, OfAHundredThousandEntriesAreAllCheckedForNoInference) {
  Stage stage;
  SetPlain(&stage);
  stage.List(Lines(100000, "a.bin"));
  // More rpn files than inputs: the quotient is 0.
  const Transcript run = stage.Run({"-r", "r1,r2"});
  ExpectStatus(run, 0);
  EXPECT_EQ(EntriesChecked(run), Lines(100000, "./a.bin"));
  ExpectLinesInOrder(run, {"[INFO]  Model Iters : 0"});
  ExpectClean(run);
}

TEST(ListContents, OfAHundredThousandEntriesAreRunUpToTheFirstThatFails) {
  Stage stage;
  SetPlain(&stage);
  Lines entries(100000, "a.bin");
  entries[3] = "none.bin";
  stage.List(entries);
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run, Plan(1, 100000));
  EXPECT_EQ(FilesRead(run), (Lines{"$DIR/a.bin", "$DIR/a.bin", "$DIR/a.bin", "$DIR/none.bin"}));
  EXPECT_EQ(run.files.size(), 6u);
  ExpectClean(run);
}

TEST(ListContents, OfAHundredThousandNamedEntriesAreSortedGroupByGroup) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0}).Input({"in1", {1, 4}, 0, 16, 16, 0}).Scratch();
  Lines entries;
  Lines expected;
  for (int group = 0; group < 50000; ++group) {
    const std::string number = std::to_string(group);
    entries.push_back("in1:b" + number);
    entries.push_back("in0:a" + number);
    expected.push_back("./a" + number);
    expected.push_back("./b" + number);
  }
  stage.List(entries);
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(EntriesChecked(run), expected);
  ExpectLinesInOrder(run, Plan(2, 50000));
}

TEST(ListContents, WithALineOfMegabytesArePrintedWholeAndRefused) {
  Stage stage;
  SetPlain(&stage);
  const std::string line(3000000, 'n');
  stage.List({"a.bin", line});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(EntriesChecked(run), (Lines{"./a.bin", "./" + line}));
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] inputPath size = 3000002, out of range (0, 4096] error"},
                  Unloaded(),
                  ProcessFailed()}));
}

TEST(ListContents, WithANameOfMegabytesAreCompared) {
  Stage stage;
  const std::string name(1000000, 'n');
  SetPlain(&stage);
  stage.List({name + ":a.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run, {"[ERROR] inputPath size = 1000008, out of range (0, 4096] error"});
}

TEST(ListContents, EndAPathAtAZeroByte) {
  Stage stage;
  SetPlain(&stage);
  stage.File("list.txt", std::string("a.bin\0tail\n", 11));
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
}

TEST(ListContents, CountTheBytesBehindAZeroByte) {
  Stage stage;
  SetPlain(&stage);
  stage.File("list.txt", "a.bin" + std::string(4090, '\0'));
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] inputPath size = 4097, out of range (0, 4096] error"},
                  Unloaded(),
                  ProcessFailed()}));
  stage.File("list.txt", "a.bin" + std::string(4089, '\0'));
  ExpectStatus(stage.Run(), 0);
}

TEST(ListContents, TakeAZeroByteForAPartOfTheName) {
  Stage stage;
  SetPlain(&stage);
  stage.File("list.txt", std::string("in0\0:a.bin\n", 11));
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(EntriesChecked(run), (Lines{"in0"})) << "not stripped, and cut where it is shown";
}

TEST(ListContents, KeepTheCarriageReturnsOfAnotherSystem) {
  Stage stage;
  SetPlain(&stage);
  stage.File("list.txt", "a.bin\r\n");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            FailedInput({"[ERROR] failed to get file $DIR/a.bin\r", kNoBuffer}));
}

TEST(ListContents, MayNameAFileWithACarriageReturnOrOddBytes) {
  for (const std::string name : {"a.bin\r", "\xff\xfe", " ", "%s%n", "-m", "\t"}) {
    SCOPED_TRACE(name);
    Stage stage;
    SetPlain(&stage);
    stage.File(name, support::Bytes(kPlainInput)).List({name});
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    EXPECT_EQ(FilesRead(run), (Lines{"$DIR/" + name}));
    EXPECT_EQ(run.files.size(), 2u);
  }
}

TEST(ListContents, OfNothingButLineEndsAreNoEntries) {
  for (const char* text : {"", "\n", "\n\n\n"}) {
    Stage stage;
    SetPlain(&stage);
    stage.File("list.txt", text);
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    ExpectLinesInOrder(run, Plan(1, 0));
    EXPECT_EQ(EntriesChecked(run), Lines{});
  }
}

TEST(ListContents, StartWithAByteOrderMarkAsPartOfTheFirstPath) {
  Stage stage;
  SetPlain(&stage);
  stage.List(
      {"\xEF\xBB\xBF"
       "a.bin"});
  EXPECT_EQ(EntriesChecked(stage.Run()), (Lines{"./\xEF\xBB\xBF"
                                                "a.bin"}));
}

TEST(ListContents, StandInTheFolderThatTheNameOfTheListSays) {
  Stage stage;
  SetPlain(&stage);
  stage.File("data/list.txt", "a.bin\n");
  for (const auto& [list, entry] : std::map<std::string, std::string>{
           {"data//list.txt", "data/a.bin"},
           {"./data/list.txt", "./data/a.bin"},
           {"data/../data/list.txt", "data/../data/a.bin"},
           {stage.Folder().string() + "/data/list.txt", "$DIR/data/a.bin"}}) {
    SCOPED_TRACE(list);
    EXPECT_EQ(EntriesChecked(
                  stage.RunWith({"-m", "model.om", "-i", list, "-j", "vorn.json", "-o", "out"})),
              (Lines{entry}));
  }
}

// The stream fails where memory ends, and what was not a whole line is not an entry.
TEST(ListContents, WithoutALineEndAreNoEntriesWhenMemoryRunsOut) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer needs the address space that is to be limited";
#endif
  Stage stage;
  SetPlain(&stage);
  stage.launcher = AfterShell("ulimit -v 300000");
  if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "memory cannot be limited here";
  const Transcript run =
      stage.RunWith({"-m", "model.om", "-i", "/dev/zero", "-j", "vorn.json", "-o", "out"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Join({Plan(1, 0), Unloaded(), Success()}));
  ExpectClean(run);
}

}  // namespace
}  // namespace e2e
