// Fails the first runtime call, then the second, and so on until a run gets by without a failure.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::RecordedCall;
using support::Stage;
using support::Transcript;

/// The call that the script refused; its operation is empty if none was reached.
RecordedCall RefusedCall(const Transcript& run) {
  for (const std::string& line : run.record.Calls()) {
    RecordedCall call = support::ParseCall(line);
    if (call.scripted) return call;
  }
  return {};
}

/// What the runtime may still hold at the end of a run in which this call was refused.
bool MayLeaveSomething(const std::string& operation) {
  static const char* const kSuch[] = {
      // It was not released because the runtime refused to.
      "vorn_rt_free", "vorn_destroy_data_buffer", "vorn_mdl_destroy_dataset",
      "vorn_mdl_destroy_desc", "vorn_mdl_unload", "vorn_rt_destroy_stream",
      "vorn_rt_destroy_context",
      // Without the answer the buffers of a dataset cannot be found.
      "vorn_mdl_get_dataset_num_buffers", "vorn_mdl_get_dataset_buffer",
      "vorn_get_data_buffer_addr",
      // The block of a file is not returned if the net type is unknown or the size is wrong.
      "vorn_ext_get_mdl_net_type", "vorn_mdl_get_input_size_by_index"};
  return std::find(std::begin(kSuch), std::end(kSuch), operation) != std::end(kSuch);
}

/// The violations that a runtime causes by that refusal; any other is the command's fault.
bool FollowsFrom(const std::string& operation, const std::string& violation) {
  static const struct {
    const char* operation;
    const char* violation;
  } kSuch[] = {
      // A buffer that is not given out is asked for its block and destroyed all the same.
      {"vorn_mdl_get_dataset_buffer", "null is no buffer"},
      // A model that hides its outputs when the dataset is made gets none.
      {"vorn_mdl_get_num_outputs", "has 0 buffers, the model wants 1"},
      // The size is asked for twice, for the buffer and for its block.
      {"vorn_mdl_get_input_size_by_index", "the buffer is larger than"},
      // The image goes, whether the model went or not.
      {"vorn_mdl_unload", "block#1 is the image of model 1"},
  };
  return std::any_of(std::begin(kSuch), std::end(kSuch), [&](const auto& such) {
    return operation == such.operation && violation.find(such.violation) != std::string::npos;
  });
}

/// How a run may end: by itself, or in one of the divisions that are not guarded.
bool EndedInOneOfTheKnownWays(const Transcript& run) {
  return run.status == 0 || run.status == 1 || run.EndedByDivision();
}

void Sweep(void (*prepare)(Stage*), const Lines& more) {
  size_t n = 0;
  for (;;) {
    ++n;
    ASSERT_LT(n, 1000u) << "no run gets by";
    Stage stage;
    prepare(&stage);
    stage.script.Line("fail " + std::to_string(n) + " 13");
    const Transcript run = stage.Run(more);
    const RecordedCall refused = RefusedCall(run);
    SCOPED_TRACE("call " + std::to_string(n) + ", " + refused.operation);
    EXPECT_TRUE(EndedInOneOfTheKnownWays(run)) << run.Describe();
    for (const std::string& violation : run.record.Violations()) {
      EXPECT_TRUE(FollowsFrom(refused.operation, violation)) << violation << "\n" << run.Describe();
    }
    if (run.status && !MayLeaveSomething(refused.operation)) {
      EXPECT_EQ(run.record.Live(), support::kNothingLive) << run.Describe();
    }
    if (run.status == 1) {
      EXPECT_TRUE(run.HasLine("[ERROR] sample process failed") ||
                  run.HasLine("[ERROR] sample init resource failed"));
    }
    if (run.status) {
      EXPECT_EQ(run.record.CallsOf("vorn_finalize").size(), 1u);
    }
    // Calls without a way to fail pass unmarked; past the last call nothing is refused any more.
    if (run.record.Calls().size() < n) break;
  }
  EXPECT_GT(n, 100u);
}

TEST(FailureSweep, OfAPlainRunOfTwoInferences) {
  Sweep(
      [](Stage* stage) {
        SetPlain(stage);
        stage->List({"a.bin", "a.bin"});
      },
      {});
}

TEST(FailureSweep, OfADetectionModel) {
  Sweep(
      [](Stage* stage) {
        stage->script.Net(1)
            .Input({"in0", {1, 4}, 0, 16, 16, 0})
            .Input({"rpn", {1, 4}, 0, 16, 16, 0})
            .Scratch()
            .Output({"o", {1, 4}, 0, 16, 16, 0});
        stage->File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("r", "1 2 3 4");
      },
      {"-r", "r"});
}

TEST(FailureSweep, OfARecurrentModel) {
  Sweep(
      [](Stage* stage) {
        stage->script.Net(2)
            .Input({"x", {8, 3}, 0, 16, 128, 0})
            .Input({"mask", {1, 8}, 4, 16, 16, 0})
            .Scratch()
            .Output({"o", {1, 4}, 0, 16, 16, 0});
        stage->File("x", support::CountingBytes(36)).File("m", "12345678").List({"x", "m"});
      },
      {});
}

}  // namespace
}  // namespace e2e
