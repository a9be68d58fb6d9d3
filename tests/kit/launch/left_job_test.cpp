#include "kit/launch/left_job.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/files.h"

namespace {

using testing::IsEmpty;
using testing::SizeIs;
using vorn::kit::FindLeftJobs;
using vorn::kit::JobNote;
using vorn::kit::ReadJobNote;
using vorn::kit::WriteJobNote;

const JobNote kNote{.indices = {0, 1, 2, 5, 7, 8},
                    .words = {"vorn-run", "-o", "a b"},
                    .logAt = 1234567890123,
                    .launcher = 4321};

TEST(LeftJob, KeepsItsNote) {
  const support::TempDir folder;
  WriteJobNote(folder.Path(), kNote);
  EXPECT_EQ(ReadJobNote(folder.Path(), 9), kNote);
}

TEST(LeftJob, BelievesNoNoteOfAnotherRun) {
  const support::TempDir folder;
  WriteJobNote(folder.Path(), kNote);
  EXPECT_EQ(ReadJobNote(folder.Path(), 8), std::nullopt);
  EXPECT_EQ(ReadJobNote(folder.Path() / "no", 9), std::nullopt);
}

TEST(LeftJob, BelievesNoNoteThatIsDamaged) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "job.json";
  WriteJobNote(folder.Path(), kNote);
  const std::string whole = support::ReadFile(file);
  for (size_t length = 0; length + 2 < whole.size(); ++length) {
    support::WriteFile(file, whole.substr(0, length));
    ASSERT_EQ(ReadJobNote(folder.Path(), 9), std::nullopt) << length;
  }
  const size_t rows = whole.find("[[0,3]");
  ASSERT_NE(rows, whole.npos);
  for (const std::string damaged : {"[[0,9999999999999999]", "[[3,1],[2,1]", "[[0,-1]", "[[0]",
                                    "[7", "[[18446744073709551615,1]"}) {
    support::WriteFile(file, whole.substr(0, rows) + damaged + whole.substr(rows + 6));
    EXPECT_EQ(ReadJobNote(folder.Path(), 9), std::nullopt) << damaged;
  }
}

TEST(LeftJob, FindsTheFoldersOfJobs) {
  const support::TempDir folder;
  for (const char* name : {"2.1", "10.1", "2.10", "2", "2.", ".1", "2.1x", "a.b"}) {
    std::filesystem::create_directory(folder.Path() / name);
  }
  const auto jobs = FindLeftJobs(folder.Path());
  ASSERT_THAT(jobs, SizeIs(3));
  EXPECT_EQ(jobs[0].folder, folder.Path() / "2.1");
  EXPECT_EQ(jobs[1].attempt, 10U);
  EXPECT_EQ(jobs[2].chunk, 10U);
  EXPECT_THAT(FindLeftJobs(folder.Path() / "no"), IsEmpty());
}

}  // namespace
