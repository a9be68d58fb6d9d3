#include "kit/launch/program_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vorn::kit::FilesTrace;
using vorn::kit::ProgramLog;

constexpr std::string_view kLines =
    "[INFO]  vorn init success\n"
    "[INFO]  create model description success\n"
    "[INFO]  start to process file:/a\n"
    "[WARN]  The input data shape not match model's input shape [N,C,H,W]\n"
    "[WARN]  Reset the batchSize to [3]\n"
    "[INFO]  start to process file:/b\n"
    "[WARN]  vorn_mdl_set_dynamic_batch_size set batchsize to 3\n"
    "[INFO]  model execute success\n"
    "[INFO]  dump data success\n"
    "[INFO]  start to process file:/c\n"
    "[WARN]  Reset the batchSize to [4]\n"
    "[ERROR] Empty file: /c\n"
    "[ERROR] get pic device buffer failed\n"
    "[ERROR] something that nobody knows\n"
    "[INFO]  end to finalize vorn\n";

std::map<std::string, uint64_t> Counts(const ProgramLog& log) {
  std::map<std::string, uint64_t> counts;
  for (const auto& [id, complaint] : log.Complaints()) counts[id] = complaint.count;
  return counts;
}

TEST(ProgramLog, CountsWhatWasDone) {
  ProgramLog log;
  log.Take(kLines);
  EXPECT_TRUE(log.IsModelLoaded());
  EXPECT_EQ(log.Begun(2), 2U);
  EXPECT_EQ(log.Begun(1), 3U);
  EXPECT_EQ(log.Begun(0), 0U);
  EXPECT_EQ(log.Executed(), 1U);
  EXPECT_EQ(log.Dumped(), 1U);
}

TEST(ProgramLog, TracesTheFilesOfTheList) {
  FilesTrace expected;
  expected.Add("d/a");
  expected.Add("d/b");
  ProgramLog log;
  EXPECT_EQ(log.Listed().Files(), 0U);
  log.Take("[INFO]  inputPath: model\n[INFO]  create model description success\n");
  EXPECT_EQ(log.Listed(), FilesTrace());
  log.Take("[INFO]  inputPath: d/a\n[INFO]  resolved path: /d/a\n[INFO]  inputPath: d/b\n");
  log.Take("[INFO]  start to process file:/d/a\n[INFO]  inputPath: d/c\n");
  EXPECT_EQ(log.Listed().Files(), 2U);
  EXPECT_EQ(log.Listed(), expected);
  FilesTrace other;
  other.Add("d/");
  other.Add("ad/b");
  EXPECT_NE(log.Listed(), other);
}

TEST(ProgramLog, CountsComplaintsById) {
  ProgramLog log;
  log.Take(kLines);
  EXPECT_EQ(Counts(log), (std::map<std::string, uint64_t>{{"batch-reset", 2},
                                                          {"input-empty", 1},
                                                          {"input-read-step", 1},
                                                          {"input-shape", 1},
                                                          {"unknown", 1}}));
  EXPECT_EQ(log.Complaints().at("batch-reset").firstLine, "[WARN]  Reset the batchSize to [3]");
  EXPECT_EQ(log.Complaints().at("unknown").explanation, nullptr);
  EXPECT_EQ(log.Faults(), 5U);  // all but the one that follows of another
}

// What was before the last dump has not kept the inference from being done.
TEST(ProgramLog, TellsTheFirstCauseBehindTheLastDump) {
  ProgramLog log;
  log.Take(kLines);
  EXPECT_EQ(log.Cause(), "[WARN]  Reset the batchSize to [4]");
  EXPECT_EQ(log.LastLine(), "[ERROR] something that nobody knows");
  log.Take("[INFO]  dump data success\n");
  EXPECT_EQ(log.Cause(), "");
}

TEST(ProgramLog, TakesPiecesThatAreCutAnywhere) {
  ProgramLog whole;
  whole.Take(kLines);
  for (size_t size = 1; size < 90; ++size) {
    ProgramLog log;
    for (size_t at = 0; at < kLines.size(); at += size) log.Take(kLines.substr(at, size));
    EXPECT_EQ(Counts(log), Counts(whole)) << size;
    EXPECT_EQ(log.Begun(1), 3U) << size;
    EXPECT_EQ(log.Dumped(), 1U) << size;
    EXPECT_EQ(log.Cause(), whole.Cause()) << size;
  }
}

TEST(ProgramLog, WaitsForTheEndOfALine) {
  ProgramLog log;
  log.Take("[ERROR] Empty file: /c");
  EXPECT_THAT(log.Complaints(), IsEmpty());
  log.Take("\n");
  EXPECT_EQ(Counts(log).size(), 1U);
}

TEST(ProgramLog, KeepsLongLinesShort) {
  ProgramLog log;
  log.Take("[ERROR] Empty file: " + std::string(1 << 20, 'x') + "\n");
  EXPECT_LT(log.Cause().size(), 1024U);
  EXPECT_EQ(log.Complaints().count("input-empty"), 1U);
}

}  // namespace
