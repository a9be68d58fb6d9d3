// The rpn inputs of a detection model: thresholds from files, checked against the model's shape.
// Where something fails, the order of message, free and destroy is part of the behaviour.
#include <algorithm>
#include <cstddef>

#include "common/log.h"
#include "common/runtime_memory.h"
#include "model/model_process.h"
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

int ModelProcess::SetRpnData() {
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

int ModelProcess::CheckRpnPara(const std::vector<float>& detPara) {
  vorn_mdl_io_dims dims{};
  if (vorn_mdl_get_input_dims(modelDesc_, GetInputNum() - 1, &dims) != VORN_SUCCESS ||
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

int ModelProcess::CreateRpnBuffer(const std::vector<float>& detPara) {
  // One set of thresholds whatever the batch size.
  const uint64_t size = vorn_mdl_get_input_size_by_index(modelDesc_, kRpnBlockIndex);
  void* block = MallocRuntimeMemory(size);
  if (block == nullptr) {
    PrintLine("[ERROR] malloc device buffer failed\n");
    return 1;
  }
  ZeroBuffer(block, size);
  const uint64_t stride = vorn_mdl_get_input_default_stride(modelDesc_, kRpnBlockIndex);
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

}  // namespace vorn::run
