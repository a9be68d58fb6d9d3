// Running the model: how often, which status counts, what a failure leaves.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

Lines FailedExecution() {
  return Join({{"[ERROR] execute model failed, modelId is 1", "[ERROR] execute inference failed"},
               Unloaded(),
               ProcessFailed()});
}

TEST(Execute, RunsTheModelTwentyOneTimesUnderProfiling) {
  Stage stage;
  SetPlain(&stage);
  stage.List({"a.bin", "a.bin"});
  const Transcript run = stage.Run({"-p", "1"});
  ExpectStatus(run, 0);
  const Lines calls = run.record.CallsOf("vorn_mdl_execute");
  ASSERT_EQ(calls.size(), 42u);
  for (size_t i = 0; i < calls.size(); ++i) {
    EXPECT_EQ(calls[i], i < 21 ? "vorn_mdl_execute(1, dataset#2, dataset#1) = 0"
                               : "vorn_mdl_execute(1, dataset#3, dataset#1) = 0");
  }
  EXPECT_EQ(run.record.CallsOf("vorn_rt_set_op_wait_timeout").size(), 3u);
  EXPECT_EQ(run.files.size(), 4u) << "dumped once an inference";
}

TEST(Execute, ForgetsAFailureThatIsNotTheLast) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_execute", "1-20", "7");
  const Transcript run = stage.Run({"-p", "1"});
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run), Lines{});
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_execute").size(), 21u);
  EXPECT_EQ(run.files.size(), 2u);
}

TEST(Execute, ReportsAFailureOfTheLast) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_execute", "21", "7");
  const Transcript run = stage.Run({"-p", "1"});
  ExpectStatus(run, 1);
  const Lines errors = FromFirstError(run);
  const Lines expected = FailedExecution();
  ASSERT_GT(errors.size(), expected.size());
  EXPECT_EQ(Lines(errors.begin(), errors.begin() + static_cast<long>(expected.size())), expected);
  EXPECT_TRUE(run.files.empty());
}

TEST(Execute, LeavesNoFileAndReleasesTheInputsFirst) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_execute", "1", "-7");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedExecution());
  EXPECT_TRUE(run.files.empty());
  EXPECT_FALSE(std::filesystem::exists(stage.Folder() / "out/0"));
  const Lines calls = run.record.CallsWithoutQueries();
  EXPECT_LT(std::find(calls.begin(), calls.end(), "vorn_mdl_destroy_dataset(dataset#2) = 0"),
            std::find(calls.begin(), calls.end(), "vorn_mdl_unload(1) = 0"));
  ExpectClean(run);
}

TEST(Execute, EndsTheRunAtTheGroupThatFails) {
  Stage stage;
  SetPlain(&stage);
  stage.List({"a.bin", "a.bin", "a.bin"});
  stage.script.Answer("vorn_mdl_execute", "2", "7");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), FailedExecution());
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_execute").size(), 2u);
  EXPECT_EQ(run.files.size(), 2u);
  EXPECT_EQ(run.files.count("0/prob.0.T.bin"), 1u);
}

TEST(Execute, DoesNotCareForTheWaitTimeOut) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_rt_set_op_wait_timeout", "2-", "9");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
}

}  // namespace
}  // namespace e2e
