// The report of sizes and times that ends a run with -p 1.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

const std::string kDouble = "[INFO]  " + std::string(51, '=');
const std::string kSingle = "[INFO]  " + std::string(51, '-');

/// The report over these sizes, its times normalised.
Lines Report(const std::string& input, const std::string& task, const std::string& work,
             const std::string& output, const std::string& image) {
  return {kDouble,
          "[INFO]  Input Size:                " + input + " KB.",
          "[INFO]  Task Buffer Size:          " + task + " KB.",
          "[INFO]  Work Buffer Size:          " + work + " KB.",
          "[INFO]  Output Size:               " + output + " KB.",
          "[INFO]  Om Size:                   " + image + " KB.",
          kSingle,
          "[INFO]  Read Model File Time:      T ms",
          "[INFO]  Model Load Time:           T ms",
          "[INFO]  Model Execute Time:        T ms",
          kDouble};
}

Lines Tail(const Transcript& run, size_t count) {
  if (run.lines.size() < count) return run.lines;
  return {run.lines.end() - static_cast<long>(count), run.lines.end()};
}

TEST(Report, EndsAProfiledRun) {
  Stage stage;
  SetPlain(&stage);
  stage.File("model.om", std::string(1536, 'm'));
  const Transcript run = stage.Run({"-p", "1"});
  ExpectStatus(run, 0);
  // 32, 32, 64, 16 and 1536 bytes.
  EXPECT_EQ(run.lines,
            Join({PlainRun(stage.script), Report("0.031", "0.031", "0.062", "0.016", "1.500")}));
  ExpectClean(run);
}

TEST(Report, AddsUpSeveralInputsAndOutputsOfOneBatchItem) {
  Stage stage;
  SetPlain(&stage);
  stage.script = support::ModelScript();
  stage.script.Input({"in0", {1, 4}, 0, 1024, 1024, 0})
      .Input({"in1", {1, 4}, 0, 2048, 2048, 0})
      .Scratch(512, 1536)
      .Output({"o0", {1, 4}, 0, 4096, 4096, 0})
      .Output({"o1", {1, 4}, 0, 1024, 1024, 0});
  stage.List({});
  const Transcript run = stage.Run({"-p", "1", "-b", "4"});
  ExpectStatus(run, 0);
  EXPECT_EQ(Tail(run, 11), Report("3.000", "0.500", "1.500", "5.000", "0.024"));
}

TEST(Report, IsAllZeroAfterAnInitThatFailed) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_init", "always", "1");
  const Transcript run = stage.Run({"-p", "1"});
  ExpectStatus(run, 1);
  EXPECT_EQ(Tail(run, 11), Report("0.000", "0.000", "0.000", "0.000", "0.000"));
  EXPECT_NE(run.rawOut.find("[INFO]  Read Model File Time:      0.00 ms\n"
                            "[INFO]  Model Load Time:           0.00 ms\n"
                            "[INFO]  Model Execute Time:        0.00 ms\n"),
            std::string::npos)
      << run.rawOut;
}

TEST(Report, ShowsTheImageOfAModelThatWasNotExecuted) {
  Stage stage;
  SetPlain(&stage);
  stage.List({}).File("model.om", "x");
  const Transcript run = stage.Run({"-p", "1"});
  ExpectStatus(run, 0);
  EXPECT_EQ(Tail(run, 11), Report("0.031", "0.031", "0.062", "0.016", "0.001"));
  EXPECT_NE(run.rawOut.find("Model Execute Time:        0.00 ms"), std::string::npos);
}

/// The time that a line of the report shows, in milliseconds.
double TimeOf(const Transcript& run, const std::string& what) {
  const size_t at = run.rawOut.find("[INFO]  " + what + ":");
  if (at == std::string::npos) return -1;
  return std::strtod(run.rawOut.c_str() + run.rawOut.find(':', at) + 1, nullptr);
}

using Milliseconds = std::chrono::duration<double, std::milli>;

/// How far the clock that can be set, by which the command measures, is ahead of the steady one.
Milliseconds ClockLead() {
  return std::chrono::system_clock::now().time_since_epoch() -
         std::chrono::steady_clock::now().time_since_epoch();
}

struct TimedRun {
  Transcript run;
  double whole = 0;  // ms
};

/// A run with a report, during which the clock was not set.
TimedRun RunTimed(Stage& stage) {
  for (;;) {
    const Milliseconds lead = ClockLead();
    const auto start = std::chrono::steady_clock::now();
    TimedRun timed{.run = stage.Run({"-p", "1"})};
    timed.whole = Milliseconds(std::chrono::steady_clock::now() - start).count();
    if (std::abs((ClockLead() - lead).count()) < 0.5) return timed;
  }
}

// The runtime takes its time over one operation; the line that is about it shows that at least, and
// all of the lines together no more than the whole run took. A shown time is rounded.
TEST(Report, CountsTheMemoryForTheImageAsReading) {
  Stage stage;
  SetPlain(&stage);
  stage.List({}).script.Line("pause vorn_rt_malloc 200");
  const auto [run, whole] = RunTimed(stage);
  EXPECT_GE(TimeOf(run, "Read Model File Time"), 199);
  EXPECT_LE(TimeOf(run, "Read Model File Time") + TimeOf(run, "Model Load Time"), whole + 1);
}

TEST(Report, CountsTheRuntimesLoadingOnly) {
  Stage stage;
  SetPlain(&stage);
  stage.List({}).script.Line("pause vorn_mdl_load_from_mem 200");
  const auto [run, whole] = RunTimed(stage);
  EXPECT_GE(TimeOf(run, "Model Load Time"), 199);
  EXPECT_LE(TimeOf(run, "Read Model File Time") + TimeOf(run, "Model Load Time"), whole + 1);
}

TEST(Report, CountsTheLoadingOfAnEmptyModelToo) {
  Stage stage;
  SetPlain(&stage);
  stage.File("model.om", "").List({}).script.Line("pause vorn_mdl_load_from_mem 50");
  EXPECT_GE(TimeOf(RunTimed(stage).run, "Model Load Time"), 49);
}

TEST(Report, CountsExecutionsThatFailedToo) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Line("pause vorn_mdl_execute 5").Answer("vorn_mdl_execute", "always", "1");
  EXPECT_GE(TimeOf(RunTimed(stage).run, "Model Execute Time"), 4);
}

TEST(Report, ShowsTheMeanOfTheLastInferencesExecutions) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Line("pause vorn_mdl_execute 20");
  const auto [run, whole] = RunTimed(stage);
  EXPECT_GE(TimeOf(run, "Model Execute Time"), 19.9);
  EXPECT_LE(21 * TimeOf(run, "Model Execute Time"), whole + 1);
}

TEST(Report, IsNotPrintedUnlessAskedFor) {
  Stage stage;
  SetPlain(&stage);
  EXPECT_EQ(Tail(stage.Run(), 1), (Lines{"[INFO]  end to finalize vorn"}));
}

TEST(Report, LeavesNoFileBehind) {
  Stage stage;
  SetPlain(&stage);
  ExpectStatus(stage.Run({"-p", "1"}), 0);
  std::vector<std::string> names;
  for (const auto& [name, bytes] : support::ReadTree(stage.Folder())) {
    names.push_back(stage.Normalise(name));
  }
  EXPECT_EQ(names, (Lines{"a.bin", "list.txt", "model.om", "out/0/prob.0.T.bin",
                          "out/0/prob.0.T.float", "vorn.json"}));
}

}  // namespace
}  // namespace e2e
