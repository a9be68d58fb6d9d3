// Running the model on the datasets.
#include "common/log.h"
#include "common/perf_info.h"
#include "common/wall_clock.h"
#include "model/model_process.h"

namespace vorn::run {

int ModelProcess::Execute() {
  if (SetNlpTotalT() != 0) {
    PrintLine("[ERROR] Set nlpTotalt failed\n");
    return 1;
  }
  if (profile_ != 1) g_perfInfo.executeCount = 1;
  vorn_rt_set_op_wait_timeout(0);

  // Of several executions the last one decides.
  vorn_status status = VORN_SUCCESS;
  const double start = GetCurrentTimeMs();
  for (uint32_t i = 0; i < g_perfInfo.executeCount; ++i) {
    status = vorn_mdl_execute(modelId_, inputDataset_, outputDataset_);
  }
  g_perfInfo.executeTime = GetCurrentTimeMs() - start;
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] execute model failed, modelId is %u\n", modelId_);
    return 1;
  }
  ++execCounter_;
  PrintLine("[INFO]  model execute success\n");
  return 0;
}

}  // namespace vorn::run
