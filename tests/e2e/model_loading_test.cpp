// Reading the model file into the runtime's memory and handing it over.
#include <gtest/gtest.h>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

Transcript RunModel(Stage* stage, const std::string& name) {
  return stage->RunWith({"-m", name, "-i", "list.txt", "-j", "vorn.json", "-o", "out"});
}

/// What follows when the model could not be loaded.
Lines NotLoaded() {
  return Join({{"[ERROR] execute LoadModelFromFileWithMem failed",
                "[WARN]  no model had been loaded, unload failed"},
               ProcessFailed()});
}

TEST(LoadModel, TakesAFileOfOneByte) {
  Stage stage;
  SetPlain(&stage);
  stage.File("model.om", "m");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.record.CallsOf("vorn_rt_malloc").front(), "vorn_rt_malloc(1, 2) = 0 block#1");
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem"),
            (Lines{"vorn_mdl_load_from_mem(block#1, 1) = 0 model#1"}));
}

TEST(LoadModel, ReportsAFileThatIsMissing) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = RunModel(&stage, "none.om");
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, Join({PathChecks({"none.om", "vorn.json"}),
                             BringUp(),
                             {"[ERROR] failed to get file $DIR/none.om",
                              "[ERROR] open file $DIR/none.om failed",
                              "[ERROR] load model from file failed, model file is $DIR/none.om"},
                             NotLoaded()}));
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem"),
            (Lines{"vorn_mdl_load_from_mem(null, 0) = 1"}));
  EXPECT_TRUE(run.record.CallsOf("vorn_mdl_unload").empty());
  EXPECT_TRUE(run.record.CallsOf("vorn_mdl_create_desc").empty());
  ExpectClean(run);
}

TEST(LoadModel, ReportsAnEmptyFileOnceForEachReading) {
  Stage stage;
  SetPlain(&stage);
  stage.File("model.om", "");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, Join({PathChecks({"model.om", "vorn.json"}),
                             BringUp(),
                             {"[ERROR] binfile is empty, filename is $DIR/model.om",
                              "[ERROR] binfile is empty, filename is $DIR/model.om",
                              "[ERROR] load model from file failed, model file is $DIR/model.om"},
                             NotLoaded()}));
  ExpectClean(run);
}

TEST(LoadModel, TakesFourGibibytesForAnEmptyFile) {
  Stage stage;
  SetPlain(&stage);
  support::WriteSparseFile(stage.Folder() / "model.om", uint64_t{4} << 30);
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run, {"[ERROR] binfile is empty, filename is $DIR/model.om",
                           "[ERROR] binfile is empty, filename is $DIR/model.om",
                           "[ERROR] load model from file failed, model file is $DIR/model.om"});
}

// The length is taken as a signed 32-bit number when memory is asked for.
TEST(LoadModel, AsksForTooMuchForAFileOfTwoGibibytes) {
  Stage stage;
  SetPlain(&stage);
  support::WriteSparseFile(stage.Folder() / "model.om", uint64_t{2} << 30);
  const Transcript run = stage.Run();
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  ExpectLinesInOrder(
      run, {"[ERROR] malloc device buffer failed. size is 2147483648",
            "[INFO]  load model $DIR/model.om success", "[ERROR] get model description failed"});
  EXPECT_EQ(run.record.CallsOf("vorn_rt_malloc"),
            (Lines{"vorn_rt_malloc(18446744071562067968, 2) = 5"}));
}

TEST(LoadModel, ReportsAFolder) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = RunModel(&stage, "out");
  ExpectLinesInOrder(run, {"[ERROR] $DIR/out is not a file, please enter a file"});
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem").front().substr(0, 31),
            "vorn_mdl_load_from_mem(null, 0)");
}

TEST(LoadModel, CountsAsDoneWithoutMemoryForTheImage) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_rt_malloc", "1", "5").Answer("vorn_mdl_load_from_mem", "1", "0");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, {"[ERROR] malloc device buffer failed. size is 25",
                           "[INFO]  load model $DIR/model.om success",
                           "[INFO]  create model description success"});
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem"),
            (Lines{"vorn_mdl_load_from_mem(null, 0) = 0 model#1 [scripted]"}));
  ExpectClean(run);
}

TEST(LoadModel, DoesNotLookAtTheRuntimesStatus) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_load_from_mem", "1", "6 effect");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
  ExpectClean(run);
}

// Files of the kernel's own seem to be a page long; what can be read of them is a few bytes.
TEST(LoadModel, ClearsWhatAFileThatEndsEarlyLeaves) {
  const std::string path = "/sys/devices/system/cpu/online";
  std::error_code missing;
  const uintmax_t length = std::filesystem::file_size(path, missing);
  if (missing) GTEST_SKIP() << path << " is not here";
  const std::string content = support::ReadFile(path);
  if (content.empty() || content.size() >= length) GTEST_SKIP() << path << " says its length here";
  Stage stage;
  SetPlain(&stage);
  stage.script.Line("dump-image image");
  const Transcript run = RunModel(&stage, path);
  ExpectStatus(run, 0);
  EXPECT_EQ(support::ReadFile(stage.Folder() / "image"),
            content + std::string(length - content.size(), '\0'));
}

TEST(LoadModel, PrintsTheModelIdAsAnUnsignedNumber) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Line("model-id 4294967295");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_TRUE(run.HasLine("[INFO]  unload model success, modelId is 4294967295"));
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_unload"), (Lines{"vorn_mdl_unload(4294967295) = 0"}));
}

}  // namespace
}  // namespace e2e
