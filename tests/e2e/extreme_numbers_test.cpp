// Numbers at the ends of their types, in the lines, the calls and the blocks.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "e2e/expected.h"
#include "e2e/surroundings.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using support::Stage;
using support::TensorSpec;
using support::Transcript;

TEST(ExtremeNumbers, ShowStatusesWithTheirSign) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_set_dynamic_batch_size", "always", "-1");
  EXPECT_TRUE(stage.Run().HasLine("[ERROR] vorn_mdl_set_dynamic_batch_size fail! ret = -1"));
}

TEST(ExtremeNumbers, ShowTheStatusOfTheNetTypeWithItsSign) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_ext_get_mdl_net_type", "2", "-7");
  EXPECT_TRUE(stage.Run({"-t", "4"}).HasLine("[ERROR] vorn_ext_get_mdl_net_type fail! ret = -7"));
}

TEST(ExtremeNumbers, OfAnOutputsRowAreNotCutToThirtyTwoBits) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0})
      .Scratch()
      .Output({"o", {1, (int64_t{1} << 32) + 2}, 0, 16, 16, 0})
      .Line("write 0 floats 1 2 3 4");
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  const Transcript run = stage.Run();
  ASSERT_EQ(run.files.count("0/o.0.T.bin"), 1u) << run.Describe();
  EXPECT_EQ(run.files.at("0/o.0.T.bin"), support::Bytes<float>({1, 2, 3, 4}));
}

TEST(ExtremeNumbers, ShowNetTypesWithTheirSign) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Net(-3);
  EXPECT_TRUE(stage.Run({"-t", "4"}).HasLine("[INFO]  vorn_ext_get_mdl_net_type model type: -3"));
}

TEST(ExtremeNumbers, ShowModelIdsWithoutASign) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Line("model-id 4294967295")
      .Answer("vorn_mdl_execute", "always", "1")
      .Answer("vorn_mdl_unload", "always", "1");
  const Transcript run = stage.Run();
  EXPECT_TRUE(run.HasLine("[ERROR] execute model failed, modelId is 4294967295"));
  EXPECT_TRUE(run.HasLine("[ERROR] unload model failed, modelId is 4294967295"));
}

TEST(ExtremeNumbers, ShowSizesInSixtyFourBits) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0}).Scratch(16, uint64_t{5} << 30);
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  EXPECT_TRUE(stage.Run().HasLine("[ERROR] malloc device buffer failed. size is 5368709120"));
}

TEST(ExtremeNumbers, ShowTheSizeOfABufferWithoutMemoryInSixtyFourBits) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_get_data_buffer_addr", "1", "null")
      .Answer("vorn_get_data_buffer_size", "1", "8589934592");
  EXPECT_TRUE(stage.Run().HasLine("[ERROR] output[0] data or size(8589934592) invalid"));
}

/// The lines of a model whose threshold input has these extents.
Transcript RunThresholds(const std::vector<int64_t>& dims) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0}).Input({"rpn", dims, 0, 16, 16, 0}).Scratch();
  stage.File("a.bin", support::CountingBytes(16)).File("r.txt", "0.5").List({"a.bin"});
  return stage.Run({"-r", "r.txt"});
}

TEST(ExtremeNumbers, ShowTheExtentsOfThresholdsWithoutASign) {
  EXPECT_TRUE(RunThresholds({4294967295, 3})
                  .HasLine("[INFO]  input rpn data height[4294967295] * width[3]"));
  EXPECT_TRUE(RunThresholds({4, 4294967295})
                  .HasLine("[INFO]  input rpn data height[4] * width[4294967295]"));
  EXPECT_TRUE(RunThresholds({4, 1073741823})
                  .HasLine("[ERROR] [multi thr]: detPara.size 1 should be 4294967292"));
}

// A batch of 2^32 - 1 items of 2^64 - 2^36 - 16 bytes takes 16 bytes in 64 bits. Its row count is
// -1 in 32 bits: no row is read.
TEST(ExtremeNumbers, WrapToABlockWithoutRows) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, uint64_t{0} - (uint64_t{1} << 36) - 16, 0})
      .Scratch(uint64_t{0} - (uint64_t{1} << 36) - 16, uint64_t{0} - (uint64_t{1} << 36) - 16)
      .Line("see inputs hex");
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  const Transcript run = stage.Run({"-b", "-1"});
  ExpectStatus(run, 0);
  EXPECT_TRUE(run.HasLine("[WARN]  vorn_mdl_set_dynamic_batch_size set batchsize to 4294967295"));
  ASSERT_FALSE(run.record.Sights().empty()) << run.Describe();
  EXPECT_EQ(run.record.Sights().front().bytes, std::string(16, '\xA5'));
}

TEST(ExtremeNumbers, OfARowAreNotCutToThirtyTwoBits) {
  Stage stage;
  stage.script.Input({"in0", {1, (int64_t{1} << 32) + 4}, 0, 32, 64, 0})
      .Scratch()
      .Line("see inputs hex");
  stage.File("a.bin", support::CountingBytes(64)).List({"a.bin"});
  const Transcript run = stage.Run();
  ASSERT_FALSE(run.record.Sights().empty()) << run.Describe();
  EXPECT_EQ(run.record.Sights().front().bytes, support::CountingBytes(64));
}

/// A recurrent model of bytes: frames, and as many flags as are said.
void SetRecurrent(Stage* stage, const std::vector<int64_t>& frames, int64_t flags) {
  stage->script.Net(2)
      .Input({"in0", frames, 4, 4, 4, 0})
      .Input({"in1", {1, flags}, 4, 4, 4, 0})
      .Scratch();
  stage->File("flags.bin", support::CountingBytes(4)).List({"frames.bin", "flags.bin"});
}

constexpr char kTooMany[] = "[ERROR] Current number of frames[";

TEST(ExtremeNumbers, OfFlagsAreNotCutToThirtyTwoBits) {
  Stage stage;
  SetRecurrent(&stage, {4, 1}, (int64_t{1} << 32) + 1);
  stage.File("frames.bin", support::CountingBytes(4));
  EXPECT_EQ(stage.Run().rawOut.find(kTooMany), std::string::npos);
}

// Two gibibytes are -2^31 frames of one byte: more than a first dimension of -2^40, and more flags
// than any.
TEST(ExtremeNumbers, ShowFramesWithoutASign) {
  Stage stage;
  SetRecurrent(&stage, {-(int64_t{1} << 40), 1}, int64_t{1} << 33);
  support::WriteSparseFile(stage.Folder() / "frames.bin", uint64_t{1} << 31);
  const Transcript run = stage.Run();
  ExpectLinesInOrder(
      run, {std::string(kTooMany) +
                "2147483648] must be smaller than the recurrent_max_total_t[18446742974197923840]",
            std::string(kTooMany) +
                "2147483648] must be smaller than the recurrent_max_total_t[8589934592]"});
}

TEST(ExtremeNumbers, AllowNoFrameWithoutDimensions) {
  Stage stage;
  SetRecurrent(&stage, {}, 4);
  stage.File("frames.bin", "x");
  EXPECT_TRUE(stage.Run().HasLine(std::string(kTooMany) +
                                  "1] must be smaller than the recurrent_max_total_t[0]"));
}

TEST(ExtremeNumbers, OfAnIndexBelowZeroAreWidenedWithTheirSign) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0});
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  const Transcript run = stage.Run();
  const Lines asked = run.record.CallsOf("vorn_mdl_get_input_size_by_index");
  const auto isWide = [](const std::string& call) {
    return call.find("18446744073709551615") != std::string::npos;
  };
  EXPECT_TRUE(std::any_of(asked.begin(), asked.end(), isWide)) << run.Describe();
}

TEST(InputTypes, ThatLoseTheirSizeWhileTheyAreAskedForAreRefused) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_data_type_size", "2-", "0");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectLinesInOrder(
      run, {"[INFO]  The data size of data type is [0]", "[ERROR] GetInputDataSize == 0 error",
            "[ERROR] get pic device buffer failed"});
}

/// The last line of a run in which `call` always gives `answer`, with what follows it.
std::string LastLineWhere(const char* call, const char* answer) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer(call, "always", answer);
  const std::string said = stage.Run().rawOut;
  return said.substr(said.rfind('['));
}

TEST(Description, ThatCannotBeMadeIsSaidInAWholeLine) {
  EXPECT_EQ(LastLineWhere("vorn_mdl_create_desc", "null"),
            "[ERROR] create model description failed\n");
}

TEST(Description, ThatCannotBeFilledIsSaidInAWholeLine) {
  EXPECT_EQ(LastLineWhere("vorn_mdl_get_desc", "1"), "[ERROR] get model description failed\n");
}

TEST(DumpedFiles, AreOpenToAllWhereTheMaskAllowsIt) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = AfterShell("umask 0");
  const Transcript run = stage.Run();
  ASSERT_EQ(run.rawFileNames.size(), 2u);
  for (const std::string& name : run.rawFileNames) {
    struct stat status {};
    ASSERT_EQ(stat((stage.Folder() / "out" / name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0666u) << name;
  }
}

TEST(DumpedFiles, OfAnOutputWithoutANameAreNamedOutput) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_get_output_name_by_index", "always", "null");
  const Transcript run = stage.Run();
  EXPECT_EQ(run.files.count("0/output.0.T.bin"), 1u) << run.Describe();
}

}  // namespace
}  // namespace e2e
