// Runtime up and down, a line a step.
#include "sample/sample_process.h"

#include <utility>

#include "common/log.h"
#include "common/perf_info.h"

namespace vorn::run {
namespace {

constexpr uint32_t kNoWaitTimeout = 0;
constexpr vorn_rt_run_mode kExpectedRunMode = 0;

}  // namespace

SampleProcess::SampleProcess(const std::string& modelFile,
                             const std::vector<std::string>& inputFiles,
                             const std::string& jsonPath, const std::string& outputPath)
    : run_{.modelFile = modelFile,
           .inputFiles = inputFiles,
           .inputNames = {},
           .rpnFiles = {},
           .outputPath = outputPath},
      jsonFile_(jsonPath) {}

SampleProcess::~SampleProcess() { DestroyResource(); }

int SampleProcess::InitResource(std::vector<std::string> rpnFiles, int32_t batchSize,
                                int32_t nlpTotalT, int32_t profile) {
  run_.rpnFiles = std::move(rpnFiles);
  run_.batchSize = batchSize;
  run_.nlpTotalT = nlpTotalT;
  run_.profile = profile;

  if (vorn_init(jsonFile_.c_str()) != VORN_SUCCESS) {
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

int SampleProcess::Process() { return run::Process(run_); }

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
  if (run_.profile == 1) PrintPerfInfo(g_perfInfo);
}

}  // namespace vorn::run
