// Loading the model: the image into runtime memory, the times and the size into the statistics.
#include "common/log.h"
#include "common/perf_info.h"
#include "common/wall_clock.h"
#include "model/model_file.h"
#include "model/model_process.h"

namespace vorn::run {

int ModelProcess::LoadModelFromFileWithMem(const std::string& modelFile) {
  uint32_t size = 0;
  const double readStart = GetCurrentTimeMs();
  modelMemPtr_ = ReadBinFile(modelFile, size);
  g_perfInfo.readModelFileTime = GetCurrentTimeMs() - readStart;
  modelMemSize_ = size;

  // Tried without an image, too, and its status is ignored: an image that the runtime rejects shows
  // in `CreateDesc`.
  const double loadStart = GetCurrentTimeMs();
  vorn_mdl_load_from_mem(modelMemPtr_, modelMemSize_, &modelId_);
  g_perfInfo.modelLoadTime = GetCurrentTimeMs() - loadStart;

  if (GetFileSize(modelFile, g_perfInfo.omSize) != 0) {
    vorn_rt_free(modelMemPtr_);
    PrintLine("[ERROR] load model from file failed, model file is %s\n", modelFile.c_str());
    return 1;
  }
  loadFlag_ = true;
  PrintLine("[INFO]  load model %s success\n", modelFile.c_str());
  return 0;
}

}  // namespace vorn::run
