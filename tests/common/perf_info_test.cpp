#include "common/perf_info.h"

#include <gtest/gtest.h>

#include <string>

#include "support/files.h"

namespace vorn::run {
namespace {

PerfInfo Sample() {
  PerfInfo info;
  info.inputSize = 2048;
  info.taskBufSize = 512;
  info.workBufSize = 1536;
  info.outputSize = 100;
  info.omSize = 4294967295U;
  info.readModelFileTime = 1.005;
  info.modelLoadTime = 12.3456;
  info.executeCount = 4;
  info.executeTime = 10.0;
  return info;
}

TEST(PrintPerfInfo, ShowsKilobytesAndTheMeanExecution) {
  testing::internal::CaptureStdout();
  PrintPerfInfo(Sample());
  const std::string rule(51, '=');
  const std::string thinRule(51, '-');
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[INFO]  " + rule +
                "\n"
                "[INFO]  Input Size:                2.000 KB.\n"
                "[INFO]  Task Buffer Size:          0.500 KB.\n"
                "[INFO]  Work Buffer Size:          1.500 KB.\n"
                "[INFO]  Output Size:               0.098 KB.\n"
                "[INFO]  Om Size:                   4194303.999 KB.\n"
                "[INFO]  " +
                thinRule +
                "\n"
                "[INFO]  Read Model File Time:      1.00 ms\n"
                "[INFO]  Model Load Time:           12.35 ms\n"
                "[INFO]  Model Execute Time:        2.50 ms\n"
                "[INFO]  " +
                rule + "\n");
}

TEST(PerfInfo, StartsAtZeroWithTwentyOneExecutions) {
  const PerfInfo info;
  EXPECT_EQ(info.executeCount, 21U);
  EXPECT_EQ(info.inputSize + info.taskBufSize + info.workBufSize + info.outputSize + info.omSize,
            0U);
  EXPECT_EQ(info.readModelFileTime + info.modelLoadTime + info.executeTime, 0.0);
}

TEST(WriteProfileCsv, WritesNineHeadingsAndEightValues) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "profile.csv";
  support::WriteFile(path, "an older and much longer content that has to go away\n\n\n");
  WriteProfileCsv(Sample(), path);
  EXPECT_EQ(support::ReadFile(path),
            "Model Load Time(ms),Read Model File Time(ms),Model Execute Time(ms),Input Size(KB),"
            "Task Buffer Size(KB),Output Size(KB),Mapper Temp Buffer(KB),Online Model Size(KB),"
            "Vorn Init Memory Size(KB)\n"
            "12.35,1.00,2.50,2.000,0.500,0.098,1.500,4194303.999,\n");
}

TEST(WriteProfileCsv, SaysNothingWhereItCannotWrite) {
  testing::internal::CaptureStdout();
  WriteProfileCsv(Sample(), "/nonexistent-folder/profile.csv");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace vorn::run
