// Checks an output in the order in which its faults are reported, then reads it.
#include "output/output_values.h"

#include <cstddef>
#include <span>

#include "common/log.h"
#include "output/destride.h"

namespace vorn::run {
namespace {

// The block behind output `index`; empty, with a message, where there is none.
std::span<const std::byte> OutputBlock(const vorn_mdl_dataset* outputDataset, uint64_t index) {
  const vorn_data_buffer* buffer = vorn_mdl_get_dataset_buffer(outputDataset, index);
  if (buffer == nullptr) {
    PrintLine("[ERROR] output[%zu] dataBuffer nullptr invalid\n", index);
    return {};
  }
  const void* data = vorn_get_data_buffer_addr(buffer);
  const uint64_t bytes = vorn_get_data_buffer_size(buffer);
  if (data == nullptr || bytes == 0) {
    PrintLine("[ERROR] output[%zu] data or size(%zu) invalid\n", index, bytes);
    return {};
  }
  return {static_cast<const std::byte*>(data), bytes};
}

// The rows of one output over the whole batch; returns 1 with a message where they make no sense.
int OutputRows(const OutputSource& source, uint64_t index, RowShape& shape) {
  const auto shortIndex = static_cast<int32_t>(index);
  StrideParam param;
  if (GetOutputStrideParam(source.modelDesc, shortIndex, param) != 0) {
    PrintLine("[ERROR] Error, GetOutputStrideParam failed\n");
    return 1;
  }
  const auto dimensions = Dimensions(param.dims);
  if (dimensions.empty() || dimensions.back() <= 0) {
    PrintLine("[ERROR] Error, dims para invalid\n");
    return 1;
  }
  const uint64_t elementSize = GetOutputDataSize(source.modelDesc, shortIndex);
  if (elementSize == 0) {
    PrintLine("[ERROR] Error, dataSize == 0 invalid\n");
    return 1;
  }
  shape.rows = param.size / param.stride * source.batchSize;
  shape.rowElements = param.stride / elementSize;
  shape.lastDim = static_cast<uint64_t>(dimensions.back());
  return 0;
}

}  // namespace

int GetOutputStrideParam(const vorn_mdl_desc* modelDesc, int32_t index, StrideParam& param) {
  const auto wideIndex = static_cast<uint64_t>(static_cast<int64_t>(index));
  if (vorn_mdl_get_output_dims(modelDesc, wideIndex, &param.dims) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_mdl_get_output_dims error!\n");
    return 1;
  }
  param.stride = vorn_mdl_get_output_default_stride(modelDesc, wideIndex);
  if (param.stride == 0) {
    PrintLine("[ERROR] vorn_mdl_get_output_default_stride error!\n");
    return 1;
  }
  param.size = vorn_mdl_get_output_size_by_index(modelDesc, wideIndex);
  if (param.size == 0) {
    PrintLine("[ERROR] vorn_mdl_get_output_size_by_index error!\n");
    return 1;
  }
  return 0;
}

uint64_t GetOutputDataSize(const vorn_mdl_desc* modelDesc, int32_t index) {
  const auto wideIndex = static_cast<uint64_t>(static_cast<int64_t>(index));
  return vorn_data_type_size(vorn_mdl_get_output_data_type(modelDesc, wideIndex)) >> 3;
}

template <typename Element>
int GetOutputWithOutStride(const OutputSource& source, uint64_t index, ValueBuffer& buffer,
                           std::span<const float>& values) {
  const std::span<const std::byte> block = OutputBlock(source.outputDataset, index);
  if (block.empty()) return 1;
  RowShape shape;
  if (OutputRows(source, index, shape) != 0) return 1;
  values = RemoveStride<Element>(block, shape, buffer);
  return 0;
}

template int GetOutputWithOutStride<float>(const OutputSource&, uint64_t, ValueBuffer&,
                                           std::span<const float>&);
template int GetOutputWithOutStride<int8_t>(const OutputSource&, uint64_t, ValueBuffer&,
                                            std::span<const float>&);
template int GetOutputWithOutStride<uint8_t>(const OutputSource&, uint64_t, ValueBuffer&,
                                             std::span<const float>&);
template int GetOutputWithOutStride<int16_t>(const OutputSource&, uint64_t, ValueBuffer&,
                                             std::span<const float>&);
template int GetOutputWithOutStride<uint16_t>(const OutputSource&, uint64_t, ValueBuffer&,
                                              std::span<const float>&);

}  // namespace vorn::run
