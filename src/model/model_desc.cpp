// Describing the loaded model: the info block on standard output, the names of the data inputs.
#include "common/log.h"
#include "common/model_inputs.h"
#include "common/perf_info.h"
#include "model/model_info.h"
#include "model/model_process.h"

namespace vorn::run {
namespace {

// The same queries for inputs and for outputs.
struct TensorQueries {
  decltype(&vorn_mdl_get_input_data_type) dataType;
  decltype(&vorn_mdl_get_input_size_by_index) size;
  decltype(&vorn_mdl_get_input_default_stride) stride;
  decltype(&vorn_mdl_get_input_format) format;
};

constexpr TensorQueries kInputQueries{vorn_mdl_get_input_data_type,
                                      vorn_mdl_get_input_size_by_index,
                                      vorn_mdl_get_input_default_stride, vorn_mdl_get_input_format};
constexpr TensorQueries kOutputQueries{
    vorn_mdl_get_output_data_type, vorn_mdl_get_output_size_by_index,
    vorn_mdl_get_output_default_stride, vorn_mdl_get_output_format};

// The queries come one by one between the lines: should one of them end the process, the lines
// before it tell which.
void PrintLayout(const vorn_mdl_desc* modelDesc, uint64_t index, uint32_t batchSize,
                 const TensorQueries& query) {
  const vorn_data_type dataType = query.dataType(modelDesc, index);
  const uint64_t size = batchSize * query.size(modelDesc, index);
  const uint64_t stride = query.stride(modelDesc, index);
  const vorn_format format = query.format(modelDesc, index);
  PrintLine("[INFO]  DataType: %d, stride: %zu, format: %d, dataSizeWithStride: %zu\n",
            static_cast<int>(dataType), stride, format, size);
}

}  // namespace

int ModelProcess::CreateDesc(std::vector<std::string>& inputNames) {
  modelDesc_ = vorn_mdl_create_desc();
  if (modelDesc_ == nullptr) {
    PrintLine("[ERROR] create model description failed\n");
    return 1;
  }
  if (vorn_mdl_get_desc(modelDesc_, modelId_) != VORN_SUCCESS) {
    PrintLine("[ERROR] get model description failed\n");
    return 1;
  }
  PrintLine("[INFO]  create model description success\n");
  PrintModelInfo(inputNames);
  CollectModelSizes(g_perfInfo, modelDesc_);
  return 0;
}

void ModelProcess::PrintModelInfo(std::vector<std::string>& inputNames) const {
  vorn_mdl_io_dims dims{};
  PrintLine("[INFO]  ------------------ Input Info ------------------\n");
  const uint64_t inputs = vorn_mdl_get_num_inputs(modelDesc_);
  for (uint64_t i = 0; i < inputs; ++i) {
    if (vorn_mdl_get_input_dims(modelDesc_, i, &dims) != VORN_SUCCESS) {
      PrintLine("[ERROR] get input dims failed\n");
      return;
    }
    const std::string name = NameToString(dims);
    // Task buffer and work buffer have no name to be matched; with fewer than two inputs the bound
    // wraps and every input is named.
    if (i < inputs - kScratchInputs) inputNames.push_back(name);
    PrintLine("[INFO]  Input index: %zu, name: %s\n", i, name.c_str());
    PrintLine("[INFO]  Shape: %s\n", ShapeToString(dims).c_str());
    PrintLayout(modelDesc_, i, batchSize_, kInputQueries);
  }
  PrintLine("[INFO]  ------------------ Output Info ------------------\n");
  const uint64_t outputs = vorn_mdl_get_num_outputs(modelDesc_);
  for (uint64_t i = 0; i < outputs; ++i) {
    if (vorn_mdl_get_output_dims(modelDesc_, i, &dims) != VORN_SUCCESS) {
      PrintLine("[ERROR] get output dims failed\n");
      return;
    }
    PrintLine("[INFO]  Output index: %zu, name: %s\n", i, NameToString(dims).c_str());
    PrintLine("[INFO]  Shape: %s\n", ShapeToString(dims).c_str());
    PrintLayout(modelDesc_, i, batchSize_, kOutputQueries);
  }
}

}  // namespace vorn::run
