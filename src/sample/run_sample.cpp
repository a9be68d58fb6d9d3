// Runtime up and down, one printed line per step, and the run in between.
#include "sample/run_sample.h"

#include "common/log.h"
#include "common/perf_info.h"
#include "model/processing_loop.h"
#include "vorn/vorn.h"

namespace vorn::run {
namespace {

constexpr uint32_t kNoWaitTimeout = 0;
constexpr vorn_rt_run_mode kExpectedRunMode = 0;

/// The runtime's life around a run: `InitResource`, then `Process` if that succeeded; the
/// destructor takes the runtime down in every case. Lives on one thread, on which the runtime's
/// context is current in between.
class SampleProcess {
 public:
  /// Borrows both. Touches no runtime state.
  SampleProcess(const SampleOptions& options, ResolvedPaths& paths)
      : options_(options), paths_(paths) {}
  SampleProcess(const SampleProcess&) = delete;
  SampleProcess& operator=(const SampleProcess&) = delete;
  ~SampleProcess() { DestroyResource(); }

  /// Brings the runtime up: configuration, device, operator wait time-out, context, stream, run
  /// mode. Returns 1 after printing the first step that failed; nothing is rolled back here, the
  /// destructor does that.
  [[nodiscard]] int InitResource();

  /// Runs the model over all inputs. Needs a runtime that is up.
  [[nodiscard]] int Process() { return run::Process(options_, paths_); }

 private:
  [[nodiscard]] int OpenDevice() const;
  [[nodiscard]] int CreateContextAndStream();
  void DestroyResource();

  const SampleOptions& options_;
  ResolvedPaths& paths_;
  int32_t deviceId_ = 0;
  vorn_rt_context* context_ = nullptr;
  vorn_rt_stream* stream_ = nullptr;
};

int SampleProcess::InitResource() {
  if (vorn_init(paths_.jsonFile.c_str()) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn init failed\n");
    return 1;
  }
  PrintLine("[INFO]  vorn init success\n");
  if (OpenDevice() != 0) return 1;
  return CreateContextAndStream();
}

int SampleProcess::OpenDevice() const {
  if (vorn_rt_set_device(deviceId_) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn open device %d failed\n", deviceId_);
    return 1;
  }
  PrintLine("[INFO]  open device %d success\n", deviceId_);
  if (vorn_rt_set_op_wait_timeout(kNoWaitTimeout) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn set op wait time failed\n");
    return 1;
  }
  PrintLine("[INFO]  set op wait time success\n");
  return 0;
}

int SampleProcess::CreateContextAndStream() {
  if (vorn_rt_create_context(&context_, deviceId_) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn create context failed\n");
    return 1;
  }
  PrintLine("[INFO]  create context success\n");
  if (vorn_rt_create_stream(&stream_) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn create stream failed\n");
    return 1;
  }
  PrintLine("[INFO]  create stream success\n");
  vorn_rt_run_mode runMode = kExpectedRunMode;
  if (vorn_rt_get_run_mode(&runMode) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn get run mode failed\n");
    return 1;
  }
  if (runMode != kExpectedRunMode) {
    PrintLine("[ERROR] vorn run mode failed\n");
    return 1;
  }
  PrintLine("[INFO]  get run mode success\n");
  return 0;
}

// Every step runs whatever the steps before it reported, and also on a runtime that never came up.
void SampleProcess::DestroyResource() {
  if (stream_ != nullptr && vorn_rt_destroy_stream(stream_) != VORN_SUCCESS) {
    PrintLine("[ERROR] destroy stream failed\n");
  }
  PrintLine("[INFO]  end to destroy stream\n");
  if (context_ != nullptr && vorn_rt_destroy_context(context_) != VORN_SUCCESS) {
    PrintLine("[ERROR] destroy context failed\n");
  }
  PrintLine("[INFO]  end to destroy context\n");
  if (vorn_rt_reset_device(deviceId_) != VORN_SUCCESS) PrintLine("[ERROR] reset device failed\n");
  PrintLine("[INFO]  end to reset device is %d\n", deviceId_);
  if (vorn_finalize() != VORN_SUCCESS) PrintLine("[ERROR] finalize vorn failed\n");
  PrintLine("[INFO]  end to finalize vorn\n");
  if (options_.profile == 1) PrintPerfInfo(g_perfInfo);
}

}  // namespace

// The outcome line comes before the teardown, which the destructor does.
int RunSample(const SampleOptions& options, ResolvedPaths& paths) {
  SampleProcess sample(options, paths);
  if (sample.InitResource() != 0) {
    PrintLine("[ERROR] sample init resource failed\n");
    return 1;
  }
  if (sample.Process() != 0) {
    PrintLine("[ERROR] sample process failed\n");
    return 1;
  }
  PrintLine("[INFO]  execute sample success\n");
  return 0;
}

}  // namespace vorn::run
