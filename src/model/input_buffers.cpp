// The input dataset of one inference: a block an input, in index order, registered with its size
// and row stride. Where something fails, the order of message, free and destroy is part of the
// behaviour; so are the queries, which are asked anew at every step.
#include "common/log.h"
#include "common/model_inputs.h"
#include "common/runtime_memory.h"
#include "model/input_file.h"
#include "model/model_process.h"

namespace vorn::run {

int ModelProcess::InitInput() {
  inputDataset_ = vorn_mdl_create_dataset();
  if (inputDataset_ == nullptr) {
    PrintLine("[ERROR] can't create dataset, create input failed\n");
    return 1;
  }
  return 0;
}

int ModelProcess::CreateInput(void* block, uint64_t size, int32_t stride) {
  // A stride is carried as a signed 32-bit value and widened with its sign.
  const auto wideStride = static_cast<uint64_t>(static_cast<int64_t>(stride));
  vorn_data_buffer* buffer = vorn_create_data_buffer(block, size, wideStride);
  if (buffer == nullptr) {
    PrintLine("[ERROR] can't create data buffer, create input failed\n");
    return 1;
  }
  if (vorn_mdl_add_dataset_buffer(inputDataset_, buffer) != VORN_SUCCESS) {
    PrintLine("[ERROR] add input dataset buffer failed\n");
    vorn_destroy_data_buffer(buffer);
    return 1;
  }
  return 0;
}

uint64_t ModelProcess::GetInputDataSize(int32_t index) const {
  const auto wideIndex = static_cast<uint64_t>(static_cast<int64_t>(index));
  return vorn_data_type_size(vorn_mdl_get_input_data_type(modelDesc_, wideIndex)) >> 3;
}

int ModelProcess::GetInputStrideParam(int32_t index, StrideParam& param) const {
  const auto wideIndex = static_cast<uint64_t>(static_cast<int64_t>(index));
  if (vorn_mdl_get_input_dims(modelDesc_, wideIndex, &param.dims) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_mdl_get_input_dims error!\n");
    return 1;
  }
  param.stride = vorn_mdl_get_input_default_stride(modelDesc_, wideIndex);
  if (param.stride == 0) {
    PrintLine("[ERROR] vorn_mdl_get_input_default_stride error!\n");
    return 1;
  }
  param.size = batchSize_ * vorn_mdl_get_input_size_by_index(modelDesc_, wideIndex);
  if (param.size == 0) {
    PrintLine("[ERROR] vorn_mdl_get_input_size_by_index error!\n");
    return 1;
  }
  return 0;
}

int ModelProcess::CreateInputBuf(std::span<const std::string> files) {
  int32_t index = 0;
  for (const std::string& file : files) {
    if (CreateFileInput(file, index) != 0) return 1;
    ++index;
  }
  return 0;
}

int ModelProcess::CreateFileInput(const std::string& file, int32_t index) {
  PrintLine("[INFO]  start to process file:%s\n", file.c_str());
  StrideParam param;
  if (GetInputStrideParam(index, param) != 0) {
    PrintLine("[ERROR] GetStrideParam error\n");
    return 1;
  }
  if (GetInputDataSize(index) == 0) {
    PrintLine("[ERROR] GetInputDataSize == 0 error\n");
    return 1;
  }
  const InputFileTarget target{.dims = param.dims,
                               .modelDesc = modelDesc_,
                               .index = static_cast<uint64_t>(index),
                               .modelId = modelId_};
  void* block = ReadInputFile(file, target, batchSize_, nlpTotalT_);
  if (block == nullptr) {
    PrintLine("[ERROR] get pic device buffer failed\n");
    return 1;
  }
  // Registered with the size from before the reading, even if the file has changed the batch size.
  if (CreateInput(block, param.size, static_cast<int32_t>(param.stride)) != 0) {
    PrintLine("[ERROR] execute CreateInput failed\n");
    vorn_rt_free(block);
    return 1;
  }
  return 0;
}

int ModelProcess::CreateExtraInput(uint32_t index) {
  StrideParam param;
  if (GetInputStrideParam(static_cast<int32_t>(index), param) != 0) {
    PrintLine("[ERROR] Error, GetInputStrideParam failed\n");
    return 1;
  }
  void* block = MallocRuntimeMemory(param.size);
  if (block == nullptr) {
    PrintLine("[ERROR] malloc device buffer failed. size is %zu\n", param.size);
    return 1;
  }
  ZeroBuffer(block, param.size);
  if (CreateInput(block, param.size, static_cast<int32_t>(param.stride)) != 0) {
    PrintLine("[ERROR] execute CreateInput failed\n");
    vorn_rt_free(block);
    return 1;
  }
  return 0;
}

int ModelProcess::CreateTaskBufAndWorkBuf() {
  const uint64_t inputs = vorn_mdl_get_num_inputs(modelDesc_);
  if (inputs <= kScratchInputs) {
    PrintLine("[ERROR] input dataset Num is error.\n");
    return 1;
  }
  const uint64_t buffers = vorn_mdl_get_dataset_num_buffers(inputDataset_);
  if (buffers == 0) {
    PrintLine("[ERROR] input dataset Num is 0.\n");
    return 1;
  }
  for (uint64_t i = buffers; i < inputs; ++i) {
    if (CreateExtraInput(static_cast<uint32_t>(i)) != 0) {
      PrintLine("[ERROR] execute Create taskBuffer and workBuffer failed\n");
      return 1;
    }
  }
  return 0;
}

}  // namespace vorn::run
