// The runtime below its C interface, up and with a context, for tests of what needs that.
#ifndef VORN_TESTS_RUNTIME_HOST_STATE_RUNNING_H_
#define VORN_TESTS_RUNTIME_HOST_STATE_RUNNING_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "host/state/lifecycle.h"
#include "host/state/tables.h"
#include "support/files.h"
#include "support/onnx_writer.h"

namespace vorn::host {

/// Brings the runtime up before each test, and takes it down after it unless the test did so.
class RunningTest : public testing::Test {
 protected:
  void SetUp() override { Start("{}"); }
  void TearDown() override {
    if (Look()->engine != nullptr) StopRuntime();
  }

  /// Brings it up with that configuration, and a context on device 0.
  void Start(const std::string& json) {
    const support::TempDir folder;
    support::WriteFile(folder.Path() / "host.json", json);
    StartRuntime((folder.Path() / "host.json").c_str());
    const Change tables;
    tables->devices.Set(0);
    context = tables->devices.CreateContext(0);
  }
  void Restart(const std::string& json) {
    StopRuntime();
    Start(json);
  }

  static void* Allocate(uint64_t size) {
    const Change tables(Needs::kContext);
    return tables->blocks.Allocate(size, tables->devices.CurrentMemory());
  }
  static void Free(void* block) { EXPECT_TRUE(Change()->blocks.Free(block)); }

  /// What the log says while `steps` run.
  template <typename Steps>
  static std::string LogOf(Steps&& steps) {
    setenv("VORN_LOG", "error", 1);
    testing::internal::CaptureStderr();
    steps();
    unsetenv("VORN_LOG");
    return testing::internal::GetCapturedStderr();
  }

  /// y = -x, of four floats.
  static std::string Negating() {
    return OnnxWriter()
        .Input("x", kOnnxFloat, {4})
        .Output("y", kOnnxFloat, {4})
        .Node("Neg", {"x"}, {"y"})
        .Image();
  }

  vorn_rt_context* context = nullptr;
};

}  // namespace vorn::host

#endif  // VORN_TESTS_RUNTIME_HOST_STATE_RUNNING_H_
