// Models that no compiler would make, and places that cannot be written to. Nothing is
// promised for them but this: the run ends by itself and touches no memory that is not its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::ModelScript;
using support::Stage;
using support::TensorSpec;
using support::Transcript;

const TensorSpec kIn{"in0", {1, 4}, 0, 16, 16, 0};
const TensorSpec kOut{"o", {1, 4}, 0, 16, 16, 0};

void ExpectSurvived(const Transcript& run, int status) {
  ExpectStatus(run, status);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.record.Violations(), Lines{}) << run.Describe();
  EXPECT_EQ(run.record.CallsOf("vorn_finalize").size(), 1u);
}

TEST(StrangeModel, WithAnOutputWiderThanItsRows) {
  for (const std::vector<int64_t>& dims :
       {std::vector<int64_t>{2, 8}, std::vector<int64_t>{2, INT64_MAX}}) {
    SCOPED_TRACE(InfoShape(dims));
    Stage stage;
    stage.script.Input(kIn).Scratch().Output({"o", dims, 0, 16, 32, 0}).Line("write 0 counter 0");
    stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
    ExpectSurvived(stage.Run(), 0);
  }
}

TEST(StrangeModel, WithElementsNarrowerThanTheyAreRead) {
  // One byte per element by the runtime, four by the code: the second row lies far behind the
  // block.
  Stage stage;
  stage.script.Input(kIn).Scratch().Output({"o", {2, 4}, 11, 16, 32, 0}).Line("write 0 counter 0");
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  const Transcript run = stage.Run();
  ExpectSurvived(run, 0);
  EXPECT_EQ(run.files.at("0/o.0.T.bin").substr(0, 16), support::CountingBytes(16));
}

// The output block is for the batch of the command line; the file brings more.
TEST(StrangeModel, WhoseBatchGrowsAfterTheOutputsAreMade) {
  Stage stage;
  stage.script.Input(kIn).Scratch().Output(kOut).Line("write 0 counter 7");
  stage.File("a.bin", support::CountingBytes(64)).List({"a.bin"});
  const Transcript run = stage.Run();
  ExpectSurvived(run, 0);
  ExpectLinesInOrder(run, BatchSet(4));
  EXPECT_EQ(run.files.at("0/o.0.T.bin").substr(0, 16), support::CountingBytes(16, 7));
}

TEST(StrangeModel, WithAnInputWiderThanItsRows) {
  Stage stage;
  stage.script.Input({"in0", {1, 100}, 4, 16, 32, 0}).Scratch().Output(kOut);
  stage.File("a.bin", support::CountingBytes(32)).List({"a.bin"});
  const Transcript run = stage.Run();
  ExpectSurvived(run, 0);
}

TEST(StrangeModel, WithAnInputOfNegativeWidth) {
  Stage stage;
  stage.script.Input({"in0", {1, -4}, 4, 16, 32, 0}).Scratch().Output(kOut);
  stage.File("a.bin", support::CountingBytes(32)).List({"a.bin"});
  ExpectSurvived(stage.Run(), 0);
}

TEST(StrangeModel, WithAnInputOfNoDimensions) {
  Stage stage;
  stage.script.Input({"in0", {}, 4, 16, 16, 0}).Scratch().Output(kOut);
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  ExpectSurvived(stage.Run(), 0);
}

TEST(StrangeModel, WithAnInputSmallerThanItsStride) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 32, 16, 0}).Scratch().Line("see inputs hex");
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  const Transcript run = stage.Run();
  ExpectSurvived(run, 0);
  EXPECT_EQ(InputsSeen(run)[0].bytes, std::string(16, '\xA5')) << "no row, nothing copied";
}

TEST(StrangeModel, WithAnRpnBlockTooSmallForItsValues) {
  for (const char* text : {"1 2 3 4", "1 2 3 4 5 6 7 8"}) {
    SCOPED_TRACE(text);
    Stage stage;
    const int64_t height = std::string(text).size() > 8 ? 4 : 1;
    const int64_t width = height == 4 ? 2 : 4;
    stage.script.Input(kIn).Input({"rpn", {height, width}, 0, 8, 8, 0}).Scratch();
    stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("r", text);
    ExpectSurvived(stage.Run({"-r", "r"}), 0);
  }
}

TEST(StrangeModel, WithOneInputCountsDownPastZero) {
  Stage stage;
  stage.script.Input(kIn).Output(kOut);
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  const Transcript run = stage.Run();
  ExpectSurvived(run, 0);
  ExpectLinesInOrder(run,
                     {"[INFO]  Model inputNum: 18446744073709551615", "[INFO]  Model Iters : 0"});
}

TEST(StrangeModel, WithoutAnyInputDividesByNoNames) {
  Stage stage;
  stage.script.Output(kOut);
  stage.List({"a.bin"});
  EXPECT_TRUE(stage.Run().EndedByDivision());
}

TEST(StrangeBatch, BelowZeroIsAHugeOne) {
  Stage stage;
  stage.script.Input(kIn).Scratch().Output(kOut);
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  const Transcript run = stage.Run({"-b", "-1"});
  ExpectSurvived(run, 1);
  ExpectLinesInOrder(run, Info(stage.script, 4294967295));
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] can't malloc buffer, size is 68719476720, create output failed",
                   "[ERROR] execute CreateOutput failed"},
                  Unloaded(),
                  ProcessFailed()}));
}

TEST(StandardOutput, MayBeClosed) {
  Stage stage;
  SetPlain(&stage);
  stage.stdoutGoes = support::Command::Stdout::kClosed;
  const Transcript run = stage.Run();
  ExpectSurvived(run, 0);
  EXPECT_EQ(run.files.at("0/prob.0.T.bin"), support::Bytes(kPlainOutput))
      << "no line may have found its way into a file that took the closed number";
  EXPECT_EQ(run.files.at("0/prob.0.T.float"), TextDump(kPlainOutput));
  for (const std::string& line : run.record.Lines()) EXPECT_NE(line[0], '[') << line;
}

TEST(StandardOutput, MayBeFull) {
  Stage stage;
  SetPlain(&stage);
  stage.stdoutGoes = support::Command::Stdout::kDescriptor;
  stage.descriptor = open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (stage.descriptor < 0) GTEST_SKIP() << "/dev/full is not here";
  const Transcript run = stage.Run();
  close(stage.descriptor);
  ExpectSurvived(run, 0);
  EXPECT_EQ(run.files.size(), 2u);
}

}  // namespace
}  // namespace e2e
