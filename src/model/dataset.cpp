// The blocks of a dataset are known to its buffers alone, so they are read back from there.
#include "model/dataset.h"

#include <cstdint>

namespace vorn::run {

void DestroyDataset(vorn_mdl_dataset*& dataset) {
  if (dataset == nullptr) return;
  for (uint64_t i = 0; i < vorn_mdl_get_dataset_num_buffers(dataset); ++i) {
    vorn_data_buffer* buffer = vorn_mdl_get_dataset_buffer(dataset, i);
    vorn_rt_free(vorn_get_data_buffer_addr(buffer));
    vorn_destroy_data_buffer(buffer);
  }
  vorn_mdl_destroy_dataset(dataset);
  dataset = nullptr;
}

}  // namespace vorn::run
