// Where something fails here, the order of message, free and destroy is part of the behaviour; so
// are the queries, which are asked anew at every step.
#include "model/input_dataset.h"

#include <algorithm>
#include <cstddef>

#include "common/log.h"
#include "common/runtime_memory.h"
#include "model/input_file.h"
#include "model/rpn_file.h"
#include "model/rpn_layout.h"

namespace vorn::run {
namespace {

// Size and stride of every rpn block are those of this input, also where the model has more data
// inputs than one and the rpn input stands further back.
constexpr uint64_t kRpnBlockIndex = 1;

constexpr uint32_t kSingleClassHeight = 1;
constexpr uint32_t kMultiClassHeight = kThresholdKinds;

uint32_t ToExtent(int64_t dimension) {
  return static_cast<uint32_t>(std::max<int64_t>(dimension, 0));
}

}  // namespace

uint64_t InputDataset::GetInputNum() const {
  return vorn_mdl_get_num_inputs(model_.modelDesc) - kScratchInputs;
}

int InputDataset::InitInput() {
  inputDataset_ = vorn_mdl_create_dataset();
  if (inputDataset_ == nullptr) {
    PrintLine("[ERROR] can't create dataset, create input failed\n");
    return 1;
  }
  return 0;
}

void InputDataset::DestroyInput() { DestroyDataset(inputDataset_); }

// ---- Blocks from files --------------------------------------------------------------------------

int InputDataset::CreateInputBuf(std::span<const std::string> files) {
  int32_t index = 0;
  for (const std::string& file : files) {
    if (CreateFileInput(file, index) != 0) return 1;
    ++index;
  }
  return 0;
}

int InputDataset::CreateFileInput(const std::string& file, int32_t index) {
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
                               .modelDesc = model_.modelDesc,
                               .index = static_cast<uint64_t>(index),
                               .modelId = model_.modelId};
  void* block = ReadInputFile(file, target, batchSize_, nlpTotalT_);
  if (block == nullptr) {
    PrintLine("[ERROR] get pic device buffer failed\n");
    return 1;
  }
  // Registered with the size from before the reading, even if the file has changed the batch size.
  return CreateInputOrFree(block, param);
}

int InputDataset::GetInputStrideParam(int32_t index, StrideParam& param) const {
  const auto wideIndex = static_cast<uint64_t>(static_cast<int64_t>(index));
  if (vorn_mdl_get_input_dims(model_.modelDesc, wideIndex, &param.dims) != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_mdl_get_input_dims error!\n");
    return 1;
  }
  param.stride = vorn_mdl_get_input_default_stride(model_.modelDesc, wideIndex);
  if (param.stride == 0) {
    PrintLine("[ERROR] vorn_mdl_get_input_default_stride error!\n");
    return 1;
  }
  param.size = batchSize_ * vorn_mdl_get_input_size_by_index(model_.modelDesc, wideIndex);
  if (param.size == 0) {
    PrintLine("[ERROR] vorn_mdl_get_input_size_by_index error!\n");
    return 1;
  }
  return 0;
}

uint64_t InputDataset::GetInputDataSize(int32_t index) const {
  const auto wideIndex = static_cast<uint64_t>(static_cast<int64_t>(index));
  return vorn_data_type_size(vorn_mdl_get_input_data_type(model_.modelDesc, wideIndex)) >> 3;
}

// Takes the block over: it goes with the dataset, or right away.
int InputDataset::CreateInputOrFree(void* block, const StrideParam& param) {
  if (CreateInput(block, param.size, static_cast<int32_t>(param.stride)) == 0) return 0;
  PrintLine("[ERROR] execute CreateInput failed\n");
  vorn_rt_free(block);
  return 1;
}

int InputDataset::CreateInput(void* block, uint64_t size, int32_t stride) {
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

// ---- Blocks of thresholds -----------------------------------------------------------------------

int InputDataset::SetRpnData() {
  std::vector<std::vector<float>> detParas;
  for (const std::string& file : rpnFiles_) {
    std::vector<float>& detPara = detParas.emplace_back();
    if (ReadRpnPara(file, detPara) != 0) {
      PrintLine("[ERROR] read rpn para error\n");
      return 1;
    }
    if (CheckRpnPara(detPara) != 0) return 1;
  }
  for (const std::vector<float>& detPara : detParas) {
    if (CreateRpnBuffer(detPara) != 0) {
      PrintLine("[ERROR] SetDetParas error\n");
      return 1;
    }
  }
  return 0;
}

int InputDataset::CheckRpnPara(const std::vector<float>& detPara) {
  vorn_mdl_io_dims dims{};
  if (vorn_mdl_get_input_dims(model_.modelDesc, GetInputNum() - 1, &dims) != VORN_SUCCESS ||
      dims.dimCount != 2) {
    PrintLine("[ERROR] vorn_mdl_get_input_dims rpn_data error!\n");
    return 1;
  }
  rpnHeight_ = ToExtent(dims.dims[0]);
  rpnWidth_ = ToExtent(dims.dims[1]);
  PrintLine("[INFO]  input rpn data height[%u] * width[%u]\n", rpnHeight_, rpnWidth_);

  const uint32_t area = rpnHeight_ * rpnWidth_;
  switch (rpnHeight_) {
    case kSingleClassHeight:
      if (detPara.size() != kThresholdKinds || area != kThresholdKinds) {
        // The number shown is the count of complete sets of thresholds, not of values.
        PrintLine("[ERROR] [single thr]: detPara.size %lu should be 4, Please check rpn file.\n",
                  detPara.size() / kThresholdKinds);
        return 1;
      }
      classMode_ = 0;
      return 0;
    case kMultiClassHeight:
      if (detPara.size() != area) {
        PrintLine("[ERROR] [multi thr]: detPara.size %zu should be %u\n", detPara.size(), area);
        return 1;
      }
      classMode_ = 1;
      return 0;
    default:
      PrintLine("[ERROR] only support single or multi class\n");
      return 1;
  }
}

int InputDataset::CreateRpnBuffer(const std::vector<float>& detPara) {
  // One set of thresholds whatever the batch size.
  const uint64_t size = vorn_mdl_get_input_size_by_index(model_.modelDesc, kRpnBlockIndex);
  void* block = MallocZeroed(size);
  if (block == nullptr) {
    PrintLine("[ERROR] malloc device buffer failed\n");
    return 1;
  }
  const uint64_t stride = vorn_mdl_get_input_default_stride(model_.modelDesc, kRpnBlockIndex);
  WriteRpnValues({static_cast<std::byte*>(block), size}, detPara, rpnWidth_,
                 static_cast<int32_t>(stride));

  vorn_data_buffer* buffer = vorn_create_data_buffer(block, size, stride);
  if (buffer == nullptr) {
    vorn_rt_free(block);
    PrintLine("[ERROR] can't create data buffer, create input failed\n");
    return 1;
  }
  if (vorn_mdl_add_dataset_buffer(inputDataset_, buffer) != VORN_SUCCESS) {
    PrintLine("[ERROR] add input dataset buffer failed\n");
    vorn_rt_free(block);
    vorn_destroy_data_buffer(buffer);
    return 1;
  }
  return 0;
}

// ---- Zero-filled blocks -------------------------------------------------------------------------

int InputDataset::CreateTaskBufAndWorkBuf() {
  const uint64_t inputs = vorn_mdl_get_num_inputs(model_.modelDesc);
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

int InputDataset::CreateExtraInput(uint32_t index) {
  StrideParam param;
  if (GetInputStrideParam(static_cast<int32_t>(index), param) != 0) {
    PrintLine("[ERROR] Error, GetInputStrideParam failed\n");
    return 1;
  }
  void* block = MallocZeroed(param.size);
  if (block == nullptr) {
    PrintLine("[ERROR] malloc device buffer failed. size is %zu\n", param.size);
    return 1;
  }
  return CreateInputOrFree(block, param);
}

// ---- What the runtime has to know besides the buffers -------------------------------------------

int InputDataset::SetBatchSize() {
  const vorn_status status =
      vorn_mdl_set_dynamic_batch_size(model_.modelId, inputDataset_, 0, batchSize_);
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_mdl_set_dynamic_batch_size fail! ret = %d\n", status);
    return 1;
  }
  PrintLine("[WARN]  vorn_mdl_set_dynamic_batch_size set batchsize to %u\n", batchSize_);
  return 0;
}

int InputDataset::SetNlpTotalT() {
  if (nlpTotalT_ <= 0) return 0;
  vorn_net_type netType = VORN_NET_FEED_FORWARD;
  vorn_status status = vorn_ext_get_mdl_net_type(model_.modelId, &netType);
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_ext_get_mdl_net_type fail! ret = %d\n", status);
    return 1;
  }
  PrintLine("[INFO]  vorn_ext_get_mdl_net_type model type: %d\n", netType);
  if (netType != VORN_NET_RECURRENT) return 0;

  status = vorn_mdl_set_total_t(model_.modelId, inputDataset_, static_cast<uint64_t>(nlpTotalT_));
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_mdl_set_total_t failed, ret = %d\n", status);
    return 1;
  }
  PrintLine("[WARN]  vorn_mdl_set_total_t set total_t to %u\n", static_cast<uint32_t>(nlpTotalT_));
  return 0;
}

}  // namespace vorn::run
