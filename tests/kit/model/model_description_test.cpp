#include "kit/model/model_description.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;

TensorDescription Tensor(std::vector<int64_t> shape, uint32_t type) {
  TensorDescription tensor;
  tensor.shape = std::move(shape);
  tensor.type = type;
  tensor.elementBits = BitsOfType(type);
  return tensor;
}

TEST(TensorDescription, ComputesItsSizes) {
  TensorDescription tensor = Tensor({2, 3, 5}, VORN_INT16);
  tensor.strideBytes = 16;
  tensor.deviceBytes = 96;
  EXPECT_EQ(tensor.RowBytes(), 10U);
  EXPECT_EQ(tensor.DenseBytes(), 60U);
  EXPECT_EQ(tensor.Rows(), 6U);
}

TEST(TensorDescription, KnowsNoSizeWhereSomethingIsMissing) {
  TensorDescription tensor = Tensor({2, 3}, VORN_FLOAT32);
  EXPECT_EQ(tensor.Rows(), std::nullopt);
  tensor.strideBytes = 0;
  tensor.deviceBytes = 24;
  EXPECT_EQ(tensor.Rows(), std::nullopt);
  tensor.elementBits = std::nullopt;
  EXPECT_EQ(tensor.RowBytes(), std::nullopt);
  EXPECT_EQ(tensor.DenseBytes(), std::nullopt);
  tensor.elementBits = 4;  // half a byte
  EXPECT_EQ(tensor.DenseBytes(), std::nullopt);
  EXPECT_EQ(Tensor({}, VORN_FLOAT32).RowBytes(), std::nullopt);
  EXPECT_EQ(Tensor({}, VORN_FLOAT32).DenseBytes(), 4U);
}

TEST(TensorDescription, KnowsNoSizeThatDoesNotFit) {
  EXPECT_EQ(Tensor({INT64_MAX, 4}, VORN_FLOAT32).DenseBytes(), std::nullopt);
  EXPECT_EQ(Tensor({4, INT64_MAX}, VORN_FLOAT32).RowBytes(), std::nullopt);
  EXPECT_EQ(Tensor({-1, 4}, VORN_FLOAT32).DenseBytes(), std::nullopt);
  EXPECT_EQ(Tensor({4, -1}, VORN_FLOAT32).RowBytes(), std::nullopt);
  EXPECT_EQ(Tensor({0, 4}, VORN_FLOAT32).DenseBytes(), 0U);
}

TEST(TypeName, IsTheHeadersForEachCode) {
  std::vector<std::string> names;
  for (uint32_t type = 0; type <= 12; ++type) names.push_back(TypeName(type));
  EXPECT_THAT(names, ElementsAre("float32", "float16", "int8", "int32", "uint8", "uint32", "int16",
                                 "uint16", "int64", "uint64", "float64", "bool", "type 12"));
}

TEST(BitsOfType, IsTheHeadersForEachCode) {
  std::vector<uint64_t> bits;
  for (uint32_t type = 0; type <= 12; ++type) bits.push_back(BitsOfType(type).value_or(0));
  EXPECT_THAT(bits, ElementsAre(32, 16, 8, 32, 8, 32, 16, 16, 64, 64, 64, 8, 0));
}

TEST(Names, TellUnknownCodesByNumber) {
  EXPECT_EQ(FormatName(VORN_FORMAT_NCHW), "NCHW");
  EXPECT_EQ(FormatName(VORN_FORMAT_NHWC), "NHWC");
  EXPECT_EQ(FormatName(VORN_FORMAT_ND), "ND");
  EXPECT_EQ(FormatName(-3), "format -3");
  EXPECT_EQ(NetTypeName(VORN_NET_FEED_FORWARD), "feed-forward");
  EXPECT_EQ(NetTypeName(VORN_NET_DETECTION), "detection");
  EXPECT_EQ(NetTypeName(VORN_NET_RECURRENT), "recurrent");
  EXPECT_EQ(NetTypeName(9), "net type 9");
}

TEST(ShapeText, PutsDimensionsBesideEachOther) {
  EXPECT_EQ(ShapeText({1, 3, 224, 224}), "1x3x224x224");
  EXPECT_EQ(ShapeText({7}), "7");
  EXPECT_EQ(ShapeText({}), "");
}

std::vector<std::string_view> RolesOf(const ModelDescription& description) {
  std::vector<std::string_view> roles;
  for (const TensorDescription& input : description.inputs) roles.push_back(RoleName(input.role));
  for (const TensorDescription& output : description.outputs) {
    roles.push_back(RoleName(output.role));
  }
  return roles;
}

TEST(AssignRoles, TakesTheLastTwoInputsForScratch) {
  ModelDescription description;
  description.inputs.resize(4);
  description.outputs.resize(1);
  AssignRoles(description);
  EXPECT_THAT(RolesOf(description), ElementsAre("data", "data", "task", "work", "output"));
}

TEST(AssignRoles, FindsThresholdsOfADetectionModelOnly) {
  ModelDescription description;
  const TensorDescription scratch = Tensor({16}, VORN_UINT8);
  description.inputs = {Tensor({1, 4}, VORN_FLOAT32),
                        Tensor({1, 4}, VORN_FLOAT32),
                        Tensor({4, 80}, VORN_FLOAT32),
                        Tensor({3, 4}, VORN_FLOAT32),
                        Tensor({1, 4}, VORN_INT32),
                        Tensor({1, 1, 4}, VORN_FLOAT32),
                        scratch,
                        scratch};
  AssignRoles(description);
  EXPECT_THAT(RolesOf(description),
              ElementsAre("data", "data", "data", "data", "data", "data", "task", "work"));
  description.netType = VORN_NET_DETECTION;
  AssignRoles(description);
  EXPECT_THAT(RolesOf(description), ElementsAre("data", "thresholds", "thresholds", "data", "data",
                                                "data", "task", "work"));
}

TEST(AssignRoles, BearsAModelWithoutInputs) {
  ModelDescription description;
  AssignRoles(description);
  description.inputs.resize(1);
  AssignRoles(description);
  EXPECT_THAT(RolesOf(description), ElementsAre("work"));
}

}  // namespace
}  // namespace vorn::kit
