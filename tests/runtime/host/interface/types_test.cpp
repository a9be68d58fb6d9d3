// Every dense element type on its way through a model.
#include <gmock/gmock.h>

#include "runtime/host/host_fixture.h"

namespace {

using testing::HasSubstr;

class HostTypes : public HostFixture {
 protected:
  /// What comes out of a model that passes its input on.
  template <typename Shown, typename Value>
  std::vector<Shown> Passed(OnnxType type, const std::vector<Value>& values) {
    const auto count = static_cast<int64_t>(values.size());
    EXPECT_EQ(Load(OnnxWriter()
                       .Input("x", type, {1, count})
                       .Output("y", type, {1, count})
                       .Node("Identity", {"x"}, {"y"})),
              VORN_SUCCESS);
    Blocks in = Inputs();
    Blocks out = Outputs();
    in.Put(0, values, values.size());
    EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
    auto shown = out.Take<Shown>(0, values.size(), values.size());
    Unload();
    return shown;
  }
};

TEST_F(HostTypes, PassThroughAsTheirBytesWhereNativeOutputsAreAskedFor) {
  Restart(R"({"outputTypes": "native"})");
  const std::pair<OnnxType, vorn_data_type> types[] = {
      {kOnnxFloat, VORN_FLOAT32},  {kOnnxFloat16, VORN_FLOAT16}, {kOnnxInt8, VORN_INT8},
      {kOnnxInt32, VORN_INT32},    {kOnnxUint8, VORN_UINT8},     {kOnnxUint32, VORN_UINT32},
      {kOnnxInt16, VORN_INT16},    {kOnnxUint16, VORN_UINT16},   {kOnnxInt64, VORN_INT64},
      {kOnnxUint64, VORN_UINT64},  {kOnnxDouble, VORN_FLOAT64},  {kOnnxBool, VORN_BOOL},
      {kOnnxBfloat16, VORN_UINT16}};
  for (const auto& [onnx, type] : types) {
    ASSERT_EQ(Load(OnnxWriter()
                       .Input("x", onnx, {2, 3})
                       .Output("y", onnx, {2, 3})
                       .Node("Identity", {"x"}, {"y"})),
              VORN_SUCCESS)
        << onnx;
    EXPECT_EQ(vorn_mdl_get_input_data_type(desc, 0), type);
    EXPECT_EQ(vorn_mdl_get_output_data_type(desc, 0), type);
    Blocks in = Inputs();
    Blocks out = Outputs();
    const uint64_t bytes = vorn_data_type_size(type) / 8;
    std::vector<uint8_t> values(6 * bytes, 1);
    if (type != VORN_BOOL) {
      for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint8_t>(i + 1);
    }
    in.Put(0, values, 3 * bytes);
    ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS) << onnx;
    EXPECT_EQ(out.Take<uint8_t>(0, values.size(), 3 * bytes), values) << onnx;
    Unload();
  }
}

TEST_F(HostTypes, AreShownAsFloatsWhereADumpWouldNotShowThem) {
  EXPECT_EQ(Passed<float>(kOnnxInt64, std::vector<int64_t>{-1, 40000, int64_t{1} << 24}),
            (std::vector<float>{-1, 40000, 0x1p24F}));
  EXPECT_EQ(Passed<float>(kOnnxInt32, std::vector<int32_t>{-7, 7}), (std::vector<float>{-7, 7}));
  EXPECT_EQ(Passed<float>(kOnnxUint32, std::vector<uint32_t>{1, UINT32_MAX}),
            (std::vector<float>{1, 0x1p32F}));
  EXPECT_EQ(Passed<float>(kOnnxUint64, std::vector<uint64_t>{3}), std::vector<float>{3});
  EXPECT_EQ(Passed<float>(kOnnxDouble, std::vector<double>{0.1, -2}),
            (std::vector<float>{0.1F, -2}));
  EXPECT_EQ(Passed<float>(kOnnxFloat16, std::vector<uint16_t>{0x3c00, 0xc000}),
            (std::vector<float>{1, -2}));
  EXPECT_EQ(Passed<float>(kOnnxBfloat16, std::vector<uint16_t>{0x3f80, 0xc000}),
            (std::vector<float>{1, -2}));
}

TEST_F(HostTypes, AreShownAsTheyAreWhereADumpShowsThem) {
  EXPECT_EQ(Passed<uint8_t>(kOnnxBool, std::vector<uint8_t>{1, 0}), (std::vector<uint8_t>{1, 0}));
  EXPECT_EQ(Passed<int8_t>(kOnnxInt8, std::vector<int8_t>{-1}), std::vector<int8_t>{-1});
  EXPECT_EQ(Passed<uint16_t>(kOnnxUint16, std::vector<uint16_t>{65535}),
            std::vector<uint16_t>{65535});
}

TEST_F(HostTypes, TakeAnyByteButZeroForTrue) {
  EXPECT_EQ(Passed<uint8_t>(kOnnxBool, std::vector<uint8_t>{2, 0, 255, 1}),
            (std::vector<uint8_t>{1, 0, 1, 1}));
}

TEST_F(HostTypes, AreConvertedForEveryItemOfABatch) {
  for (const OnnxDim& first : {OnnxDim("n"), OnnxDim(1)}) {
    ASSERT_EQ(Load(OnnxWriter()
                       .Input("x", kOnnxFloat, {first, 5})
                       .Output("at", kOnnxInt64, {first, 1})
                       .Node("ArgMax", {"x"}, {"at"}, {IntAttribute("axis", 1)})),
              VORN_SUCCESS);
    Blocks in = Inputs(3);
    Blocks out = Outputs(3);
    in.Put<float>(0, {0, 9, 0, 0, 0, 0, 0, 0, 9, 0, 9, 0, 0, 0, 0}, 5);
    ASSERT_EQ(vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 3), VORN_SUCCESS);
    for (int repeat = 0; repeat < 2; ++repeat) {
      ASSERT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
      EXPECT_EQ(out.Take<float>(0, 3, 1), (std::vector<float>{1, 3, 0}));
    }
    const auto bytes = out.Bytes(0);
    EXPECT_EQ(bytes[4], 0xee);  // padding
    Unload();
  }
}

TEST_F(HostTypes, ThatAreNotServedAreRefusedByTensorAndType) {
  EXPECT_THAT(Refusal(OnnxWriter()
                          .Input("x", kOnnxFloat, {1})
                          .Output("words", kOnnxString, {1})
                          .Node("Cast", {"x"}, {"words"}, {IntAttribute("to", kOnnxString)})),
              HasSubstr("output 'words' holds strings"));
}

}  // namespace
