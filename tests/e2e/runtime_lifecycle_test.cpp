// Bringing the runtime up, taking it down, and the outcome line in between.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

struct Step {
  const char* operation;
  size_t linesBefore;  // how many of the lines of a good start come before
  const char* error;
  Lines releases;  // what the runtime is then asked to release
};

const Lines kAlways{"vorn_rt_reset_device(0)", "vorn_finalize()"};
const Lines kWithContext{"vorn_rt_destroy_context(context#1)", "vorn_rt_reset_device(0)",
                         "vorn_finalize()"};
const Lines kWithStream{"vorn_rt_destroy_stream(stream#1)", "vorn_rt_destroy_context(context#1)",
                        "vorn_rt_reset_device(0)", "vorn_finalize()"};

/// The calls behind the one that failed, without their answers.
Lines CallsBehind(const Transcript& run, const std::string& operation) {
  Lines calls;
  bool behind = false;
  for (const std::string& line : run.record.Calls()) {
    if (behind) calls.push_back(line.substr(0, line.rfind(" = ")));
    behind |= line.rfind(operation + "(", 0) == 0;
  }
  return calls;
}

TEST(InitResource, StopsAtTheFirstFailureAndReleasesWhatThereIs) {
  const Step steps[] = {
      {"vorn_init", 0, "[ERROR] vorn init failed", kAlways},
      {"vorn_rt_set_device", 1, "[ERROR] vorn open device 0 failed", kAlways},
      {"vorn_rt_set_op_wait_timeout", 2, "[ERROR] vorn set op wait time failed", kAlways},
      {"vorn_rt_create_context", 3, "[ERROR] vorn create context failed", kAlways},
      {"vorn_rt_create_stream", 4, "[ERROR] vorn create stream failed", kWithContext},
      {"vorn_rt_get_run_mode", 5, "[ERROR] vorn get run mode failed", kWithStream},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.operation);
    Stage stage;
    SetPlain(&stage);
    // Taking down what never came up may fail or not; another test is about that.
    stage.script.Answer(step.operation, "always", "-5")
        .Answer("vorn_rt_reset_device", "always", "0")
        .Answer("vorn_finalize", "always", "0");
    const Transcript run = stage.Run();
    ExpectStatus(run, 1);
    const Lines start = BringUp();
    EXPECT_EQ(run.lines,
              Join({PathChecks({"model.om", "vorn.json"}),
                    Lines(start.begin(), start.begin() + static_cast<long>(step.linesBefore)),
                    {step.error, "[ERROR] sample init resource failed"},
                    Closing()}));
    EXPECT_EQ(CallsBehind(run, step.operation), step.releases);
    EXPECT_EQ(run.record.Live(), support::kNothingLive);
    EXPECT_TRUE(run.files.empty());
  }
}

TEST(InitResource, AcceptsNoOtherRunModeThanZero) {
  for (const char* mode : {"1", "-1"}) {
    SCOPED_TRACE(mode);
    Stage stage;
    SetPlain(&stage);
    stage.script.Line(std::string("run-mode ") + mode);
    const Transcript run = stage.Run();
    ExpectStatus(run, 1);
    const Lines start = BringUp();
    EXPECT_EQ(run.lines,
              Join({PathChecks({"model.om", "vorn.json"}),
                    Lines(start.begin(), start.begin() + 5),
                    {"[ERROR] vorn run mode failed", "[ERROR] sample init resource failed"},
                    Closing()}));
    EXPECT_EQ(CallsBehind(run, "vorn_rt_get_run_mode"), kWithStream);
    ExpectClean(run);
  }
}

// The runtime here refuses to reset what was never set and to end what never began.
TEST(DestroyResource, TriesDeviceAndRuntimeThatNeverCameUp) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_init", "always", "1");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, Join({PathChecks({"model.om", "vorn.json"}),
                             {"[ERROR] vorn init failed", "[ERROR] sample init resource failed",
                              "[INFO]  end to destroy stream", "[INFO]  end to destroy context",
                              "[ERROR] reset device failed", "[INFO]  end to reset device is 0",
                              "[ERROR] finalize vorn failed", "[INFO]  end to finalize vorn"}}));
  EXPECT_EQ(run.record.Calls(), (Lines{"vorn_init(\"$DIR/vorn.json\") = 1 [scripted]",
                                       "vorn_rt_reset_device(0) = 3", "vorn_finalize() = 3"}));
}

TEST(DestroyResource, ReportsEachFailureAndGoesOn) {
  const struct {
    const char* operation;
    const char* error;
    const char* before;  // the line that follows the error
  } steps[] = {
      {"vorn_rt_destroy_stream", "[ERROR] destroy stream failed", "[INFO]  end to destroy stream"},
      {"vorn_rt_destroy_context", "[ERROR] destroy context failed",
       "[INFO]  end to destroy context"},
      {"vorn_rt_reset_device", "[ERROR] reset device failed", "[INFO]  end to reset device is 0"},
      {"vorn_finalize", "[ERROR] finalize vorn failed", "[INFO]  end to finalize vorn"},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.operation);
    Stage stage;
    SetPlain(&stage);
    stage.script.Answer(step.operation, "always", "4");
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    Lines expected = PlainRun(stage.script);
    expected.insert(std::find(expected.begin(), expected.end(), step.before), step.error);
    EXPECT_EQ(run.lines, expected);
    EXPECT_EQ(run.record.CallsOf(step.operation).size(), 1u);
    EXPECT_EQ(run.record.CallsOf("vorn_finalize").size(), 1u);
  }
}

TEST(RunSample, ReportsAProcessThatFailedAndTakesTheRuntimeDown) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_execute", "always", "7");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run, Join({Unloaded(), ProcessFailed()}));
  EXPECT_EQ(run.lines.back(), Closing().back());
  ExpectClean(run);
}

}  // namespace
}  // namespace e2e
