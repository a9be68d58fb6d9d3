// vorn.h: data buffers and datasets.
#include "host/interface/entry.h"
#include "host/state/tables.h"
#include "vorn/vorn.h"

using vorn::host::Answer;
using vorn::host::AnswerWith;
using vorn::host::Change;
using vorn::host::Look;
using vorn::host::Needs;

vorn_data_buffer* vorn_create_data_buffer(void* block, uint64_t size, uint64_t stride) {
  return AnswerWith<vorn_data_buffer*>(__func__, nullptr, [&] {
    return Change(Needs::kContext)->datasets.CreateBuffer(block, size, stride);
  });
}

vorn_status vorn_destroy_data_buffer(vorn_data_buffer* buffer) {
  return Answer(__func__, [&] { Change()->datasets.DestroyBuffer(buffer); });
}

void* vorn_get_data_buffer_addr(const vorn_data_buffer* buffer) {
  return AnswerWith<void*>(__func__, nullptr,
                           [&] { return Look()->datasets.Buffer(buffer).address; });
}

uint64_t vorn_get_data_buffer_size(const vorn_data_buffer* buffer) {
  return AnswerWith<uint64_t>(__func__, 0, [&] { return Look()->datasets.Buffer(buffer).size; });
}

vorn_mdl_dataset* vorn_mdl_create_dataset(void) {
  return AnswerWith<vorn_mdl_dataset*>(__func__, nullptr,
                                       [&] { return Change(Needs::kContext)->datasets.Create(); });
}

vorn_status vorn_mdl_destroy_dataset(vorn_mdl_dataset* dataset) {
  return Answer(__func__, [&] { Change()->datasets.Destroy(dataset); });
}

vorn_status vorn_mdl_add_dataset_buffer(vorn_mdl_dataset* dataset, vorn_data_buffer* buffer) {
  return Answer(__func__, [&] { Change(Needs::kContext)->datasets.Add(dataset, buffer); });
}

uint64_t vorn_mdl_get_dataset_num_buffers(const vorn_mdl_dataset* dataset) {
  return AnswerWith<uint64_t>(__func__, 0,
                              [&] { return Look()->datasets.At(dataset).buffers.size(); });
}

vorn_data_buffer* vorn_mdl_get_dataset_buffer(const vorn_mdl_dataset* dataset, uint64_t index) {
  return AnswerWith<vorn_data_buffer*>(__func__, nullptr,
                                       [&] { return Look()->datasets.BufferAt(dataset, index); });
}
