// vorn.h: descriptions. A query that fails answers 0 or null, a type with a code that has no size,
// a format with -1.
#include "host/tensor/description.h"

#include <cstdint>
#include <memory>
#include <vector>

#include "host/interface/entry.h"
#include "host/state/tables.h"
#include "vorn/vorn.h"

using vorn::host::Answer;
using vorn::host::AnswerWith;
using vorn::host::Change;
using vorn::host::Desc;
using vorn::host::Failure;
using vorn::host::Look;
using vorn::host::ModelDescription;
using vorn::host::Needs;
using vorn::host::RequirePlace;
using vorn::host::TensorDescription;

namespace {

using Tensors = std::vector<TensorDescription> ModelDescription::*;

constexpr vorn_data_type kNoType = UINT32_MAX;
constexpr vorn_format kNoFormat = -1;

/// What the description was last filled with.
std::shared_ptr<const ModelDescription> ModelOf(const vorn_mdl_desc* desc) {
  return Look()->descriptions.At(desc).Model();
}

/// The tensor at a position, held so that destroying the description elsewhere does no harm here.
std::shared_ptr<const TensorDescription> At(const vorn_mdl_desc* desc, Tensors list,
                                            uint64_t index) {
  const std::shared_ptr<const ModelDescription> model = ModelOf(desc);
  const std::vector<TensorDescription>& tensors = (*model).*list;
  if (index >= tensors.size()) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "index is ", index, "; the model has ",
                  tensors.size());
  }
  return {model, &tensors[index]};
}

constexpr Tensors kInputs = &ModelDescription::inputs;
constexpr Tensors kOutputs = &ModelDescription::outputs;

uint64_t CountOf(const char* operation, const vorn_mdl_desc* desc, Tensors list) {
  return AnswerWith<uint64_t>(operation, 0, [&] { return ((*ModelOf(desc)).*list).size(); });
}

vorn_status DimsOf(const char* operation, const vorn_mdl_desc* desc, Tensors list, uint64_t index,
                   vorn_mdl_io_dims* dims) {
  return Answer(operation, [&] {
    RequirePlace(dims);
    FillDims(*At(desc, list, index), *dims);
  });
}

vorn_data_type TypeOf(const char* operation, const vorn_mdl_desc* desc, Tensors list,
                      uint64_t index) {
  return AnswerWith(operation, kNoType, [&] { return At(desc, list, index)->type; });
}

uint64_t SizeOf(const char* operation, const vorn_mdl_desc* desc, Tensors list, uint64_t index) {
  return AnswerWith<uint64_t>(operation, 0,
                              [&] { return At(desc, list, index)->layout.ItemBytes(); });
}

uint64_t StrideOf(const char* operation, const vorn_mdl_desc* desc, Tensors list, uint64_t index) {
  return AnswerWith<uint64_t>(operation, 0, [&] { return At(desc, list, index)->layout.stride; });
}

vorn_format FormatOf(const char* operation, const vorn_mdl_desc* desc, Tensors list,
                     uint64_t index) {
  return AnswerWith(operation, kNoFormat, [&] { return At(desc, list, index)->format; });
}

}  // namespace

vorn_mdl_desc* vorn_mdl_create_desc(void) {
  return AnswerWith<vorn_mdl_desc*>(__func__, nullptr,
                                    [&] { return Change(Needs::kContext)->descriptions.Create(); });
}

vorn_status vorn_mdl_destroy_desc(vorn_mdl_desc* desc) {
  return Answer(__func__, [&] { Change()->descriptions.Destroy(desc); });
}

vorn_status vorn_mdl_get_desc(vorn_mdl_desc* desc, uint32_t modelId) {
  return Answer(__func__, [&] {
    const Change tables(Needs::kContext);
    Desc& live = tables->descriptions.At(desc);
    live.Fill(tables->models.At(modelId)->description());
  });
}

uint64_t vorn_mdl_get_num_inputs(const vorn_mdl_desc* desc) {
  return CountOf(__func__, desc, kInputs);
}

uint64_t vorn_mdl_get_num_outputs(const vorn_mdl_desc* desc) {
  return CountOf(__func__, desc, kOutputs);
}

vorn_status vorn_mdl_get_input_dims(const vorn_mdl_desc* desc, uint64_t index,
                                    vorn_mdl_io_dims* dims) {
  return DimsOf(__func__, desc, kInputs, index, dims);
}

vorn_status vorn_mdl_get_output_dims(const vorn_mdl_desc* desc, uint64_t index,
                                     vorn_mdl_io_dims* dims) {
  return DimsOf(__func__, desc, kOutputs, index, dims);
}

const char* vorn_mdl_get_output_name_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  return AnswerWith<const char*>(__func__, nullptr,
                                 [&] { return At(desc, kOutputs, index)->name.c_str(); });
}

vorn_data_type vorn_mdl_get_input_data_type(const vorn_mdl_desc* desc, uint64_t index) {
  return TypeOf(__func__, desc, kInputs, index);
}

vorn_data_type vorn_mdl_get_output_data_type(const vorn_mdl_desc* desc, uint64_t index) {
  return TypeOf(__func__, desc, kOutputs, index);
}

uint64_t vorn_mdl_get_input_size_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  return SizeOf(__func__, desc, kInputs, index);
}

uint64_t vorn_mdl_get_output_size_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  return SizeOf(__func__, desc, kOutputs, index);
}

uint64_t vorn_mdl_get_input_default_stride(const vorn_mdl_desc* desc, uint64_t index) {
  return StrideOf(__func__, desc, kInputs, index);
}

uint64_t vorn_mdl_get_output_default_stride(const vorn_mdl_desc* desc, uint64_t index) {
  return StrideOf(__func__, desc, kOutputs, index);
}

vorn_format vorn_mdl_get_input_format(const vorn_mdl_desc* desc, uint64_t index) {
  return FormatOf(__func__, desc, kInputs, index);
}

vorn_format vorn_mdl_get_output_format(const vorn_mdl_desc* desc, uint64_t index) {
  return FormatOf(__func__, desc, kOutputs, index);
}
