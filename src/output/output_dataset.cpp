// Where something fails here, the order of message, free and destroy is part of the behaviour.
#include "output/output_dataset.h"

#include "common/log.h"
#include "common/runtime_memory.h"

namespace vorn::run {
namespace {

// The block belongs to the dataset once its buffer has been added; until then to this function.
int AddOutputBuffer(vorn_mdl_dataset* outputDataset, uint64_t size, uint64_t stride) {
  void* block = MallocZeroed(size);
  if (block == nullptr) {
    PrintLine("[ERROR] can't malloc buffer, size is %zu, create output failed\n", size);
    return 1;
  }
  vorn_data_buffer* buffer = vorn_create_data_buffer(block, size, stride);
  if (buffer == nullptr) {
    PrintLine("[ERROR] can't create data buffer, create output failed\n");
    vorn_rt_free(block);
    return 1;
  }
  if (vorn_mdl_add_dataset_buffer(outputDataset, buffer) != VORN_SUCCESS) {
    PrintLine("[ERROR] can't add data buffer, create output failed\n");
    vorn_rt_free(block);
    vorn_destroy_data_buffer(buffer);
    return 1;
  }
  return 0;
}

int CreateOneOutput(const vorn_mdl_desc* modelDesc, uint64_t index, uint32_t batchSize,
                    vorn_mdl_dataset* outputDataset) {
  const uint64_t stride = vorn_mdl_get_output_default_stride(modelDesc, index);
  if (stride == 0) {
    PrintLine("[ERROR] Error, output default stride is %lu.\n", stride);
    return 1;
  }
  const uint64_t size = batchSize * vorn_mdl_get_output_size_by_index(modelDesc, index);
  if (size == 0) {
    PrintLine("[ERROR] Error, output size is %lu.\n", size);
    return 1;
  }
  return AddOutputBuffer(outputDataset, size, stride);
}

}  // namespace

int CreateOutputDataset(const vorn_mdl_desc* modelDesc, uint32_t batchSize,
                        vorn_mdl_dataset*& outputDataset) {
  outputDataset = vorn_mdl_create_dataset();
  if (outputDataset == nullptr) {
    PrintLine("[ERROR] can't create dataset, create output failed\n");
    return 1;
  }
  const uint64_t outputs = vorn_mdl_get_num_outputs(modelDesc);
  for (uint64_t i = 0; i < outputs; ++i) {
    if (CreateOneOutput(modelDesc, i, batchSize, outputDataset) != 0) return 1;
  }
  PrintLine("[INFO]  create model output success\n");
  return 0;
}

}  // namespace vorn::run
