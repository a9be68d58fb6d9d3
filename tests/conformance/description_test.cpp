// What a description says, tensor by tensor.
#include <cstring>

#include "model.h"

namespace conformance {
namespace {

/// A model and its description, of which nothing is believed yet.
class Description : public ModelContract {
 protected:
  void Begin() override {
    ModelContract::Begin();
    desc = vorn_mdl_create_desc();
    Require(desc != nullptr, "vorn_mdl_create_desc gave null");
    Require(vorn_mdl_get_desc(desc, model->Id()) == VORN_SUCCESS, "vorn_mdl_get_desc failed");
    inputs = vorn_mdl_get_num_inputs(desc);
    outputs = vorn_mdl_get_num_outputs(desc);
  }
  void End() override {
    if (desc != nullptr) {
      EXPECT_EQ(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
    }
    ModelContract::End();
  }

  vorn_mdl_desc* desc = nullptr;
  uint64_t inputs = 0;
  uint64_t outputs = 0;
};

/// The queries about inputs, or those about outputs.
struct Queries {
  const char* kind;
  decltype(vorn_mdl_get_input_dims) dims;
  decltype(vorn_mdl_get_input_data_type) type;
  decltype(vorn_mdl_get_input_size_by_index) size;
  decltype(vorn_mdl_get_input_default_stride) stride;
  decltype(vorn_mdl_get_input_format) format;
};

Queries OfInputs() {
  return {"input",
          vorn_mdl_get_input_dims,
          vorn_mdl_get_input_data_type,
          vorn_mdl_get_input_size_by_index,
          vorn_mdl_get_input_default_stride,
          vorn_mdl_get_input_format};
}

Queries OfOutputs() {
  return {"output",
          vorn_mdl_get_output_dims,
          vorn_mdl_get_output_data_type,
          vorn_mdl_get_output_size_by_index,
          vorn_mdl_get_output_default_stride,
          vorn_mdl_get_output_format};
}

std::string NameOf(const Queries& ask, const char* query, uint64_t index) {
  return "vorn_mdl_get_" + std::string(ask.kind) + "_" + query + " of " + ask.kind + " " +
         std::to_string(index);
}

/// The record, or one with nothing in it and a failure.
vorn_mdl_io_dims DimsOf(const Queries& ask, const vorn_mdl_desc* desc, uint64_t index) {
  vorn_mdl_io_dims dims;
  std::memset(&dims, 0xAB, sizeof dims);
  EXPECT_EQ(ask.dims(desc, index, &dims), VORN_SUCCESS) << NameOf(ask, "dims", index);
  EXPECT_NE(std::memchr(dims.name, 0, sizeof dims.name), nullptr)
      << NameOf(ask, "dims", index) << ": the name has no end";
  EXPECT_GE(dims.dimCount, 1u) << NameOf(ask, "dims", index);
  EXPECT_LE(dims.dimCount, uint64_t{VORN_MAX_DIMS}) << NameOf(ask, "dims", index);
  if (dims.dimCount > VORN_MAX_DIMS) dims.dimCount = 0;
  for (uint64_t k = 0; k < dims.dimCount; ++k) {
    EXPECT_GE(dims.dims[k], 1) << NameOf(ask, "dims", index) << ", dimension " << k;
  }
  return dims;
}

/// Bytes and rows of one item, by the shape.
void ExpectFits(const Queries& ask, const vorn_mdl_desc* desc, uint64_t index) {
  const vorn_mdl_io_dims dims = DimsOf(ask, desc, index);
  const uint64_t bits = vorn_data_type_size(ask.type(desc, index));
  EXPECT_NE(bits, 0u) << NameOf(ask, "data_type", index) << ": vorn_data_type_size gives 0 for it";
  EXPECT_EQ(bits % 8, 0u) << NameOf(ask, "data_type", index);
  if (dims.dimCount == 0) return;
  uint64_t rows = 1;
  for (uint64_t k = 0; k + 1 < dims.dimCount; ++k) rows *= static_cast<uint64_t>(dims.dims[k]);
  const auto rowElements = static_cast<uint64_t>(dims.dims[dims.dimCount - 1]);
  const uint64_t stride = ask.stride(desc, index);
  EXPECT_GE(stride, rowElements * bits / 8)
      << NameOf(ask, "default_stride", index) << ": rows overlap";
  EXPECT_EQ(ask.size(desc, index), rows * stride)
      << NameOf(ask, "size_by_index", index) << ": " << rows << " rows times "
      << NameOf(ask, "default_stride", index);
}

CONTRACT(Description, CountsInputsWithTheScratchInputs) {
  EXPECT_GE(inputs, 3u) << "vorn_mdl_get_num_inputs: a data input, task buffer and work buffer";
  EXPECT_GE(outputs, 1u) << "vorn_mdl_get_num_outputs";
}

CONTRACT(Description, GivesDataInputsThatFit) {
  for (uint64_t i = 0; i + 2 < inputs; ++i) ExpectFits(OfInputs(), desc, i);
}

CONTRACT(Description, GivesOutputsThatFit) {
  for (uint64_t i = 0; i < outputs; ++i) ExpectFits(OfOutputs(), desc, i);
}

CONTRACT(Description, GivesScratchInputsThatCanBeAllocated) {
  Require(inputs >= 2, "vorn_mdl_get_num_inputs gave less than 2");
  for (const uint64_t i : {inputs - 2, inputs - 1}) {
    DimsOf(OfInputs(), desc, i);
    const uint64_t stride = vorn_mdl_get_input_default_stride(desc, i);
    const uint64_t size = vorn_mdl_get_input_size_by_index(desc, i);
    EXPECT_NE(stride, 0u) << "vorn_mdl_get_input_default_stride of input " << i;
    EXPECT_NE(size, 0u) << "vorn_mdl_get_input_size_by_index of input " << i;
    Block block(size, std::byte{0});
  }
}

CONTRACT(Description, SaysTheSameWhenAskedAgain) {
  vorn_mdl_desc* other = vorn_mdl_create_desc();
  EXPECT_NE(other, desc) << "vorn_mdl_create_desc";
  Require(vorn_mdl_get_desc(other, model->Id()) == VORN_SUCCESS, "vorn_mdl_get_desc failed");
  EXPECT_EQ(vorn_mdl_get_num_inputs(other), inputs);
  EXPECT_EQ(vorn_mdl_get_num_outputs(other), outputs);
  for (const Queries& ask : {OfInputs(), OfOutputs()}) {
    const uint64_t count = ask.kind == std::string("input") ? inputs : outputs;
    for (uint64_t i = 0; i < count; ++i) {
      const vorn_mdl_io_dims first = DimsOf(ask, desc, i);
      const vorn_mdl_io_dims second = DimsOf(ask, other, i);
      EXPECT_STREQ(first.name, second.name) << NameOf(ask, "dims", i);
      ASSERT_EQ(first.dimCount, second.dimCount) << NameOf(ask, "dims", i);
      EXPECT_EQ(std::memcmp(first.dims, second.dims, first.dimCount * sizeof *first.dims), 0)
          << NameOf(ask, "dims", i);
      EXPECT_EQ(ask.type(desc, i), ask.type(other, i)) << NameOf(ask, "data_type", i);
      EXPECT_EQ(ask.size(desc, i), ask.size(other, i)) << NameOf(ask, "size_by_index", i);
      EXPECT_EQ(ask.stride(desc, i), ask.stride(other, i)) << NameOf(ask, "default_stride", i);
      EXPECT_EQ(ask.format(desc, i), ask.format(other, i)) << NameOf(ask, "format", i);
    }
  }
  EXPECT_EQ(vorn_mdl_destroy_desc(other), VORN_SUCCESS);
}

CONTRACT(Description, GivesTheWholeNameOfAnOutput) {
  for (uint64_t i = 0; i < outputs; ++i) {
    const vorn_mdl_io_dims dims = DimsOf(OfOutputs(), desc, i);
    const char* name = vorn_mdl_get_output_name_by_index(desc, i);
    ASSERT_NE(name, nullptr) << "vorn_mdl_get_output_name_by_index of output " << i;
    const std::string shown(dims.name, strnlen(dims.name, sizeof dims.name));
    // The record cuts a name that is longer than it.
    const size_t compared = shown.size() + 1 < sizeof dims.name ? std::string::npos : shown.size();
    EXPECT_EQ(std::string(name).substr(0, compared), shown)
        << "vorn_mdl_get_output_name_by_index of output " << i;
  }
}

CONTRACT(Description, KeepsNamesUntilItIsDestroyed) {
  std::vector<const char*> names;
  std::vector<std::string> copies;
  for (uint64_t i = 0; i < outputs; ++i) {
    names.push_back(vorn_mdl_get_output_name_by_index(desc, i));
    Require(names.back() != nullptr, "vorn_mdl_get_output_name_by_index gave null");
    copies.emplace_back(names.back());
  }
  for (uint64_t i = 0; i < outputs; ++i) DimsOf(OfOutputs(), desc, i);
  model->Unload();
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(names[i], copies[i]) << "vorn_mdl_get_output_name_by_index, after vorn_mdl_unload";
  }
}

/// Expects that nothing is known of a tensor.
void ExpectNothing(const Queries& ask, const vorn_mdl_desc* desc, uint64_t index) {
  vorn_mdl_io_dims before;
  std::memset(&before, 0xAB, sizeof before);
  vorn_mdl_io_dims dims = before;
  EXPECT_NE(ask.dims(desc, index, &dims), VORN_SUCCESS) << NameOf(ask, "dims", index);
  EXPECT_EQ(std::memcmp(&dims, &before, sizeof dims), 0)
      << NameOf(ask, "dims", index) << " wrote its result after a failure";
  EXPECT_EQ(ask.size(desc, index), 0u) << NameOf(ask, "size_by_index", index);
  EXPECT_EQ(ask.stride(desc, index), 0u) << NameOf(ask, "default_stride", index);
  // Types and formats have no value for a failure; they only have to come back.
  ask.type(desc, index);
  ask.format(desc, index);
}

CONTRACT(Description, KnowsNothingBeyondItsCounts) {
  for (const uint64_t beyond : {uint64_t{0}, uint64_t{1000}}) {
    ExpectNothing(OfInputs(), desc, inputs + beyond);
    ExpectNothing(OfOutputs(), desc, outputs + beyond);
    EXPECT_EQ(vorn_mdl_get_output_name_by_index(desc, outputs + beyond), nullptr);
  }
  ExpectNothing(OfInputs(), desc, UINT64_MAX);
  ExpectNothing(OfOutputs(), desc, UINT64_MAX);
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(desc, UINT64_MAX), nullptr);
}

CONTRACT(Description, KnowsNothingBeforeItIsFilled) {
  vorn_mdl_desc* empty = vorn_mdl_create_desc();
  EXPECT_EQ(vorn_mdl_get_num_inputs(empty), 0u);
  EXPECT_EQ(vorn_mdl_get_num_outputs(empty), 0u);
  ExpectNothing(OfInputs(), empty, 0);
  ExpectNothing(OfOutputs(), empty, 0);
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(empty, 0), nullptr);
  EXPECT_EQ(vorn_mdl_destroy_desc(empty), VORN_SUCCESS);
}

CONTRACT(Description, RefusesNull) {
  EXPECT_NE(vorn_mdl_get_input_dims(desc, 0, nullptr), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_get_output_dims(desc, 0, nullptr), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_get_desc(nullptr, model->Id()), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_destroy_desc(nullptr), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_num_inputs(nullptr), 0u);
  EXPECT_EQ(vorn_mdl_get_num_outputs(nullptr), 0u);
  ExpectNothing(OfInputs(), nullptr, 0);
  ExpectNothing(OfOutputs(), nullptr, 0);
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(nullptr, 0), nullptr);
}

}  // namespace
}  // namespace conformance
