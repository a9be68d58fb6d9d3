#include "kit/launch/run_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Key;
using vorn::kit::ExitStatus;
using vorn::kit::RunFolder;
using vorn::kit::SampleRecord;
using vorn::kit::SampleStatus;

class RunFolderTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  std::string FaultOf(const std::function<void()>& action, ExitStatus status) const {
    try {
      action();
    } catch (const vorn::kit::Fault& fault) {
      EXPECT_EQ(fault.Status(), status);
      return fault.what();
    }
    return "";
  }

  support::TempDir folder_;
};

TEST_F(RunFolderTest, MakesFoldersAboveIt) {
  const RunFolder run(Path("a/b/c"), false);
  EXPECT_TRUE(std::filesystem::is_directory(Path("a/b/c")));
  EXPECT_FALSE(run.Before().has_value());
  EXPECT_EQ(run.Path("x"), Path("a/b/c/x"));
  EXPECT_THAT(FaultOf([] { RunFolder("/proc/no/folder", false); }, ExitStatus::kLimit),
              HasSubstr("cannot make the folder '/proc/no/folder'"));
}

TEST_F(RunFolderTest, IsThereForOneLaunchOnly) {
  const RunFolder run(Path("run"), false);
  EXPECT_THAT(FaultOf([&] { RunFolder(Path("run"), true); }, ExitStatus::kUsage),
              HasSubstr("belongs to a launch or a merge that runs now"));
}

TEST_F(RunFolderTest, TakesNoFolderThatHoldsSomething) {
  support::WriteFile(Path("run/run.json"), ToJson(vorn::kit::RunFacts{}));
  EXPECT_THAT(FaultOf([&] { RunFolder(Path("run"), false); }, ExitStatus::kUsage),
              HasSubstr("is not empty"));
  EXPECT_TRUE(RunFolder(Path("run"), true).Before().has_value());
  support::WriteFile(Path("other/letter"), "");
  EXPECT_THAT(FaultOf([&] { RunFolder(Path("other"), true); }, ExitStatus::kUsage),
              HasSubstr("holds something else than a run"));
}

TEST_F(RunFolderTest, GoesOnWhereALaunchWasKilledAtOnce) {
  support::WriteFile(Path("run/run.json.77.part"), "{");
  EXPECT_FALSE(RunFolder(Path("run"), true).Before().has_value());
  EXPECT_FALSE(std::filesystem::exists(Path("run/run.json.77.part")));
  support::WriteFile(Path("other/run.json.7a.part"), "{");
  EXPECT_THAT(FaultOf([&] { RunFolder(Path("other"), true); }, ExitStatus::kUsage),
              HasSubstr("holds something else than a run"));
}

TEST_F(RunFolderTest, NamesARecordThatCannotBeRead) {
  support::WriteFile(Path("run/run.json"), "{");
  EXPECT_THAT(FaultOf([&] { RunFolder(Path("run"), true); }, ExitStatus::kInput),
              HasSubstr("run.json"));
}

TEST_F(RunFolderTest, RemovesAllOfATreeAndNothingBehindLinks) {
  support::WriteFile(Path("keep/file"), "x");
  support::WriteFile(Path("tree/a/b/file"), "x");
  std::filesystem::create_symlink(Path("keep"), Path("tree/a/link"));
  vorn::kit::RemoveTree(Path("tree"));
  vorn::kit::RemoveTree(Path("tree"));
  EXPECT_FALSE(std::filesystem::exists(Path("tree")));
  EXPECT_THAT(support::ReadTree(folder_.Path()), ElementsAre(Key("keep/file")));
}

TEST_F(RunFolderTest, MovesAFolderToWhereSomethingIs) {
  support::WriteFile(Path("from/new"), "x");
  support::WriteFile(Path("to/old"), "x");
  vorn::kit::MoveFolder(Path("from"), Path("to"));
  EXPECT_THAT(support::ReadTree(folder_.Path()), ElementsAre(Key("to/new")));
  EXPECT_THAT(FaultOf([&] { vorn::kit::MoveFolder(Path("from"), Path("x")); }, ExitStatus::kLimit),
              HasSubstr("cannot move"));
}

TEST_F(RunFolderTest, ReadsAPieceOfAFile) {
  support::WriteFile(Path("file"), "0123456789");
  EXPECT_EQ(vorn::kit::ReadFrom(Path("file"), 3, 4), "3456");
  EXPECT_EQ(vorn::kit::ReadFrom(Path("file"), 8, 100), "89");
  EXPECT_EQ(vorn::kit::ReadFrom(Path("file"), 10, 1), "");
  EXPECT_EQ(vorn::kit::ReadFrom(Path("none"), 0, 1), "");
  EXPECT_EQ(vorn::kit::SizeOfFile(Path("file")), 10U);
  EXPECT_EQ(vorn::kit::SizeOfFile(Path("none")), 0U);
}

SampleRecord Sample(uint64_t index, SampleStatus status) {
  return {.index = index, .status = status, .inputs = {}, .outputs = {}, .reason = {}};
}

TEST_F(RunFolderTest, PutsSamplesInOrderAndFillsTheGaps) {
  support::WriteFile(Path("samples.jsonl"), ToLine(Sample(3, SampleStatus::kDone)) +
                                                ToLine(Sample(1, SampleStatus::kAside)) +
                                                ToLine(Sample(7, SampleStatus::kDone)) +
                                                ToLine(Sample(1, SampleStatus::kDone)));
  std::vector<SampleRecord> shown;
  vorn::kit::SortSamples(
      Path("samples.jsonl"), 4,
      [](uint64_t index) { return Sample(index, SampleStatus::kMissing); },
      [&](const SampleRecord& record) { shown.push_back(record); });
  const std::vector<SampleRecord> expected{
      Sample(0, SampleStatus::kMissing), Sample(1, SampleStatus::kDone),
      Sample(2, SampleStatus::kMissing), Sample(3, SampleStatus::kDone)};
  EXPECT_EQ(shown, expected);
  EXPECT_EQ(vorn::kit::ReadSamples(folder_.Path().string()), expected);
}

TEST_F(RunFolderTest, MakesSamplesWhereThereAreNone) {
  vorn::kit::SortSamples(
      Path("samples.jsonl"), 0,
      [](uint64_t index) { return Sample(index, SampleStatus::kMissing); },
      [](const SampleRecord&) {});
  EXPECT_EQ(support::ReadFile(Path("samples.jsonl")), "");
}

}  // namespace
