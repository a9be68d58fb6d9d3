#include "host/tensor/description.h"

#include <gtest/gtest.h>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

vorn_status StatusOfShape(const Shape& shape) {
  return StatusOf([&] { DescribeTensor("input", "x", VORN_FLOAT32, shape, 16); });
}

TEST(DescribeTensor, CallsFourDimensionsNchw) {
  EXPECT_EQ(DescribeTensor("input", "x", VORN_UINT8, {1, 3, 4, 4}, 16).format, VORN_FORMAT_NCHW);
  EXPECT_EQ(DescribeTensor("input", "x", VORN_UINT8, {1, 3, 4}, 16).format, VORN_FORMAT_ND);
}

TEST(DescribeTensor, ShowsAScalarAsOneElement) {
  const TensorDescription scalar = DescribeTensor("input", "x", VORN_FLOAT64, {}, 16);
  EXPECT_EQ(scalar.dims, Shape{1});
  EXPECT_EQ(scalar.layout.rowBytes, 8u);
  EXPECT_EQ(scalar.layout.ItemBytes(), 16u);
}

TEST(DescribeTensor, RefusesWhatTheInterfaceCannotShow) {
  EXPECT_EQ(StatusOfShape(Shape(128, 1)), VORN_SUCCESS);
  EXPECT_EQ(StatusOfShape(Shape(129, 1)), VORN_ERROR_MODEL);
  EXPECT_EQ(StatusOfShape({3, 0}), VORN_ERROR_MODEL);
  EXPECT_EQ(StatusOfShape({INT64_MAX, 2}), VORN_ERROR_MODEL);
}

TEST(DescribeTensor, SaysWhatItCannotShow) {
  const auto refusal = [](const char* kind, const Shape& shape) {
    return ReasonOf(VORN_ERROR_MODEL, [&] { DescribeTensor(kind, "x", VORN_FLOAT32, shape, 16); });
  };
  EXPECT_EQ(refusal("input", Shape(129, 1)), "input 'x' has 129 dimensions; 128 are the most");
  EXPECT_EQ(refusal("output", {3, 0}),
            "output 'x' has the shape [3, 0]; every dimension has to be at least 1 and the whole "
            "below 2^63 bytes");
}

TEST(AppendScratchInputs, PutsTheTaskBufferBeforeTheWorkBuffer) {
  ModelDescription model;
  model.inputs.push_back(DescribeTensor("input", "x", VORN_FLOAT32, {2, 3}, 16));
  AppendScratchInputs(model, 128, 190, 16);
  ASSERT_EQ(model.inputs.size(), 3u);
  EXPECT_EQ(model.DataInputCount(), 1u);
  EXPECT_EQ(model.inputs[1].name, "task_buffer");
  EXPECT_EQ(model.inputs[1].type, VORN_UINT8);
  EXPECT_EQ(model.inputs[1].dims, Shape{128});
  EXPECT_EQ(model.inputs[2].name, "work_buffer");
  EXPECT_EQ(model.inputs[2].dims, Shape{190});
  EXPECT_EQ(model.inputs[2].layout.stride, 192u);
}

TEST(AppendScratchInputs, FindsNamesThatTheModelDoesNotHave) {
  ModelDescription model;
  model.inputs.push_back(DescribeTensor("input", "task_buffer", VORN_FLOAT32, {1}, 16));
  model.inputs.push_back(DescribeTensor("input", "task_buffer_2", VORN_FLOAT32, {1}, 16));
  AppendScratchInputs(model, 64, 64, 16);
  EXPECT_EQ(model.inputs[2].name, "task_buffer_3");
  EXPECT_EQ(model.inputs[3].name, "work_buffer");
}

TEST(FreeInputName, CountsFrom2) {
  ModelDescription model;
  EXPECT_EQ(FreeInputName(model, "flags"), "flags");
  model.inputs.push_back(DescribeTensor("input", "flags", VORN_FLOAT32, {1}, 16));
  EXPECT_EQ(FreeInputName(model, "flags"), "flags_2");
}

TEST(FillDims, CutsTheNameAndClearsTheRest) {
  const std::string name(300, 'n');
  vorn_mdl_io_dims dims;
  dims.dims[5] = 99;
  FillDims(DescribeTensor("output", name, VORN_INT8, {4, 5}, 16), dims);
  EXPECT_EQ(std::string(dims.name), std::string(127, 'n'));
  EXPECT_EQ(dims.dimCount, 2u);
  EXPECT_EQ(dims.dims[0], 4);
  EXPECT_EQ(dims.dims[1], 5);
  EXPECT_EQ(dims.dims[5], 0);
}

}  // namespace
}  // namespace vorn::host
