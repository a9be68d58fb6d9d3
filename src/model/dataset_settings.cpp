// What the runtime has to know of an input dataset besides its buffers.
#include "common/log.h"
#include "model/model_process.h"

namespace vorn::run {

int ModelProcess::SetBatchSize() {
  const vorn_status status =
      vorn_mdl_set_dynamic_batch_size(modelId_, inputDataset_, 0, batchSize_);
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_mdl_set_dynamic_batch_size fail! ret = %d\n", status);
    return 1;
  }
  PrintLine("[WARN]  vorn_mdl_set_dynamic_batch_size set batchsize to %u\n", batchSize_);
  return 0;
}

int ModelProcess::SetNlpTotalT() {
  if (nlpTotalT_ <= 0) return 0;
  vorn_net_type netType = VORN_NET_FEED_FORWARD;
  vorn_status status = vorn_ext_get_mdl_net_type(modelId_, &netType);
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_ext_get_mdl_net_type fail! ret = %d\n", status);
    return 1;
  }
  PrintLine("[INFO]  vorn_ext_get_mdl_net_type model type: %d\n", netType);
  if (netType != VORN_NET_RECURRENT) return 0;

  status = vorn_mdl_set_total_t(modelId_, inputDataset_, static_cast<uint64_t>(nlpTotalT_));
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_mdl_set_total_t failed, ret = %d\n", status);
    return 1;
  }
  PrintLine("[WARN]  vorn_mdl_set_total_t set total_t to %u\n", static_cast<uint32_t>(nlpTotalT_));
  return 0;
}

}  // namespace vorn::run
