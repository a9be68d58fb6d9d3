// What a loaded model shows of itself.
#include "runtime/host/host_fixture.h"

namespace {

class HostDescription : public HostFixture {
 protected:
  vorn_mdl_io_dims InputDims(uint64_t index) {
    vorn_mdl_io_dims dims = {};
    EXPECT_EQ(vorn_mdl_get_input_dims(desc, index, &dims), VORN_SUCCESS);
    return dims;
  }
  vorn_mdl_io_dims OutputDims(uint64_t index) {
    vorn_mdl_io_dims dims = {};
    EXPECT_EQ(vorn_mdl_get_output_dims(desc, index, &dims), VORN_SUCCESS);
    return dims;
  }
  static std::vector<int64_t> Dims(const vorn_mdl_io_dims& dims) {
    return {dims.dims, dims.dims + dims.dimCount};
  }
};

OnnxWriter Image() {
  return OnnxWriter()
      .Input("gpu_0/data_0", kOnnxFloat, {"batch", 3, 4, 5})
      .Output("input:0", kOnnxFloat, {"batch", 3, 4, 5})
      .Node("Relu", {"gpu_0/data_0"}, {"input:0"});
}

TEST_F(HostDescription, ShowsInputsOutputsAndScratch) {
  ASSERT_EQ(Load(Image()), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_get_num_inputs(desc), 3u);
  ASSERT_EQ(vorn_mdl_get_num_outputs(desc), 1u);
  EXPECT_STREQ(InputDims(0).name, "gpu_0/data_0");
  EXPECT_EQ(Dims(InputDims(0)), (std::vector<int64_t>{1, 3, 4, 5}));
  EXPECT_EQ(vorn_mdl_get_input_format(desc, 0), VORN_FORMAT_NCHW);
  EXPECT_EQ(vorn_mdl_get_input_data_type(desc, 0), vorn_data_type{VORN_FLOAT32});
  EXPECT_EQ(vorn_mdl_get_input_default_stride(desc, 0), 32u);  // 20 bytes in sixteens
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc, 0), 3u * 4 * 32);
  EXPECT_STREQ(InputDims(1).name, "task_buffer");
  EXPECT_STREQ(InputDims(2).name, "work_buffer");
  for (const uint64_t scratch : {1, 2}) {
    EXPECT_EQ(vorn_mdl_get_input_data_type(desc, scratch), vorn_data_type{VORN_UINT8});
    EXPECT_EQ(vorn_mdl_get_input_format(desc, scratch), VORN_FORMAT_ND);
    EXPECT_EQ(InputDims(scratch).dimCount, 1u);
    EXPECT_GT(vorn_mdl_get_input_size_by_index(desc, scratch), 0u);
    EXPECT_GT(vorn_mdl_get_input_default_stride(desc, scratch), 0u);
  }
  EXPECT_STREQ(OutputDims(0).name, "input:0");
  EXPECT_STREQ(vorn_mdl_get_output_name_by_index(desc, 0), "input:0");
  EXPECT_EQ(Dims(OutputDims(0)), (std::vector<int64_t>{1, 3, 4, 5}));
  EXPECT_EQ(vorn_mdl_get_output_format(desc, 0), VORN_FORMAT_NCHW);
  EXPECT_EQ(vorn_mdl_get_output_default_stride(desc, 0), 32u);
  EXPECT_EQ(vorn_mdl_get_output_size_by_index(desc, 0), 3u * 4 * 32);
}

TEST_F(HostDescription, AlignsRowsAsConfigured) {
  for (const auto& [alignment, stride] : {std::pair{"1", 20u}, {"64", 64u}, {"4096", 4096u}}) {
    Restart(std::string(R"({"rowAlignment": )") + alignment + "}");
    ASSERT_EQ(Load(Image()), VORN_SUCCESS);
    EXPECT_EQ(vorn_mdl_get_input_default_stride(desc, 0), stride);
    EXPECT_EQ(vorn_mdl_get_output_size_by_index(desc, 0), 12u * stride);
  }
}

TEST_F(HostDescription, CutsALongNameInTheRecordOnly) {
  const std::string name(200, 'n');
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {2})
                     .Output(name, kOnnxFloat, {2})
                     .Node("Relu", {"x"}, {name})),
            VORN_SUCCESS);
  EXPECT_EQ(std::string(OutputDims(0).name), name.substr(0, 127));
  EXPECT_STREQ(vorn_mdl_get_output_name_by_index(desc, 0), name.c_str());
}

TEST_F(HostDescription, ShowsAScalarAsOneElement) {
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {})
                     .Output("y", kOnnxFloat, {})
                     .Node("Relu", {"x"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(Dims(InputDims(0)), std::vector<int64_t>{1});
  EXPECT_EQ(Dims(OutputDims(0)), std::vector<int64_t>{1});
  EXPECT_EQ(vorn_mdl_get_output_size_by_index(desc, 0), 16u);
}

TEST_F(HostDescription, ClosesInnerDimensionsFromTheConfiguration) {
  const auto model = OnnxWriter()
                         .Input("x", kOnnxFloat, {"batch", "time", 2})
                         .Output("y", kOnnxFloat, {"batch", "time", 2})
                         .Node("Relu", {"x"}, {"y"});
  EXPECT_EQ(Load(model), VORN_ERROR_MODEL);
  Restart(R"({"dims": {"time": 7, "elsewhere": 3}})");
  ASSERT_EQ(Load(model), VORN_SUCCESS);
  EXPECT_EQ(Dims(InputDims(0)), (std::vector<int64_t>{1, 7, 2}));
  EXPECT_EQ(Dims(OutputDims(0)), (std::vector<int64_t>{1, 7, 2}));
}

TEST_F(HostDescription, LearnsAnUndeclaredOutputShape) {
  Restart(R"({"dims": {"w": 1}})");
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {2, "w"})
                     .Constant<int64_t>("repeats", kOnnxInt64, {2}, {3, 5})
                     .ShapelessOutput("y", kOnnxFloat)
                     .Node("Tile", {"x", "repeats"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_EQ(Dims(OutputDims(0)), (std::vector<int64_t>{6, 5}));
}

TEST_F(HostDescription, OutlivesItsModel) {
  ASSERT_EQ(Load(Image()), VORN_SUCCESS);
  const char* name = vorn_mdl_get_output_name_by_index(desc, 0);
  ASSERT_EQ(vorn_mdl_unload(modelId), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_num_inputs(desc), 3u);
  EXPECT_STREQ(name, "input:0");
  EXPECT_EQ(vorn_mdl_get_desc(desc, modelId), VORN_ERROR_INVALID_HANDLE);
  EXPECT_STREQ(name, "input:0");
  modelId = 0;
}

TEST_F(HostDescription, KeepsHandedOutNamesWhenFilledAgain) {
  ASSERT_EQ(Load(Image()), VORN_SUCCESS);
  const char* name = vorn_mdl_get_output_name_by_index(desc, 0);
  const std::string other = OnnxWriter()
                                .Input("x", kOnnxFloat, {2})
                                .Output("other", kOnnxFloat, {2})
                                .Node("Relu", {"x"}, {"other"})
                                .Image();
  uint32_t otherId = 0;
  ASSERT_EQ(vorn_mdl_load_from_mem(other.data(), other.size(), &otherId), VORN_SUCCESS);
  ASSERT_EQ(vorn_mdl_get_desc(desc, otherId), VORN_SUCCESS);
  EXPECT_STREQ(vorn_mdl_get_output_name_by_index(desc, 0), "other");
  EXPECT_EQ(vorn_mdl_unload(modelId), VORN_SUCCESS);
  EXPECT_STREQ(name, "input:0");
  modelId = otherId;
}

TEST_F(HostDescription, AnswersAnIndexBeyondItsTensors) {
  ASSERT_EQ(Load(Image()), VORN_SUCCESS);
  vorn_mdl_io_dims dims = {};
  dims.dimCount = 77;
  EXPECT_EQ(vorn_mdl_get_input_dims(desc, 3, &dims), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_get_output_dims(desc, 1, &dims), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_get_output_dims(desc, 0, nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(dims.dimCount, 77u);
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(desc, 1), nullptr);
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc, UINT64_MAX), 0u);
  EXPECT_EQ(vorn_mdl_get_output_size_by_index(desc, 1), 0u);
  EXPECT_EQ(vorn_mdl_get_input_default_stride(desc, 3), 0u);
  EXPECT_EQ(vorn_mdl_get_output_default_stride(desc, 1), 0u);
  EXPECT_EQ(vorn_data_type_size(vorn_mdl_get_input_data_type(desc, 3)), 0u);
  EXPECT_EQ(vorn_data_type_size(vorn_mdl_get_output_data_type(desc, 1)), 0u);
  EXPECT_LT(vorn_mdl_get_input_format(desc, 3), 0);
  EXPECT_LT(vorn_mdl_get_output_format(desc, 1), 0);
}

TEST_F(HostDescription, AnswersEmptyDeadAndForeignDescriptions) {
  int foreign = 0;
  vorn_mdl_desc* empty = vorn_mdl_create_desc();
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(vorn_mdl_get_num_inputs(empty), 0u);
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(empty, 0), nullptr);
  EXPECT_EQ(vorn_mdl_get_desc(empty, 12345), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_destroy_desc(empty), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_destroy_desc(empty), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_get_num_inputs(empty), 0u);
  EXPECT_EQ(vorn_mdl_get_num_outputs(reinterpret_cast<vorn_mdl_desc*>(&foreign)), 0u);
  EXPECT_EQ(vorn_mdl_get_num_outputs(nullptr), 0u);
  EXPECT_EQ(vorn_mdl_destroy_desc(nullptr), VORN_ERROR_INVALID_ARGUMENT);
}

TEST_F(HostDescription, RefusesAnIndexBeyondTheLast) {
  ASSERT_EQ(Load(Image()), VORN_SUCCESS);
  vorn_mdl_io_dims dims = {};
  EXPECT_EQ(LogOf([&] {
              EXPECT_EQ(vorn_mdl_get_input_dims(desc, 3, &dims), VORN_ERROR_INVALID_ARGUMENT);
            }),
            "vorn: vorn_mdl_get_input_dims: index is 3; the model has 3\n");
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(vorn_mdl_get_output_format(desc, 1), -1); }),
            "vorn: vorn_mdl_get_output_format: index is 1; the model has 1\n");
  EXPECT_EQ(LogOf([&] {
              EXPECT_EQ(vorn_mdl_get_input_dims(desc, 0, nullptr), VORN_ERROR_INVALID_ARGUMENT);
            }),
            "vorn: vorn_mdl_get_input_dims: the place for the result is null\n");
}

}  // namespace
