#include "host/graph/weights.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

using testing::ElementsAre;

GraphNode Node(std::string_view op) {
  GraphNode node;
  node.op = op;
  return node;
}

WeightScheme PerChannel(size_t axis) { return {.kind = WeightScheme::kPerChannel, .axis = axis}; }
constexpr WeightScheme kPerTensor = {.kind = WeightScheme::kPerTensor, .axis = 0};
constexpr WeightScheme kUntouched = {.kind = WeightScheme::kUntouched, .axis = 0};

TEST(SchemeOf, IsByOutputChannelsForWeights) {
  EXPECT_EQ(SchemeOf(Node("Conv"), 1, 4), PerChannel(0));
  EXPECT_EQ(SchemeOf(Node("ConvTranspose"), 1, 4), PerChannel(1));
  EXPECT_EQ(SchemeOf(Node("Gemm"), 1, 2), PerChannel(1));
  EXPECT_EQ(SchemeOf(Node("MatMul"), 1, 3), PerChannel(2));
  EXPECT_EQ(SchemeOf(Node("MatMul"), 1, 1), kPerTensor);
  EXPECT_EQ(SchemeOf(Node("MatMul"), 0, 2), kPerTensor);
  EXPECT_EQ(SchemeOf(Node("Add"), 1, 4), kPerTensor);
}

TEST(SchemeOf, IsAMatterOfAttributes) {
  const std::string image =
      OnnxWriter()
          .Node("Gemm", {"a", "b"}, {"c"}, {IntAttribute("transB", 1)})
          .Node("ConvTranspose", {"a", "b"}, {"d"}, {IntAttribute("group", 2)})
          .Image();
  const OnnxGraph graph(BytesOf(image));
  EXPECT_EQ(SchemeOf(graph.nodes[0], 1, 2), PerChannel(0));
  EXPECT_EQ(SchemeOf(graph.nodes[1], 1, 4), kPerTensor);
}

TEST(SchemeOf, LeavesBiasesAndNormalisations) {
  for (const char* op : {"Conv", "ConvTranspose", "Gemm"})
    EXPECT_EQ(SchemeOf(Node(op), 2, 1), kUntouched);
  for (size_t i = 1; i <= 4; ++i) EXPECT_EQ(SchemeOf(Node("BatchNormalization"), i, 1), kUntouched);
  EXPECT_EQ(SchemeOf(Node("LSTM"), 2, 3), kPerTensor);
  EXPECT_EQ(SchemeOf(Node("LSTM"), 3, 2), kUntouched);
}

TEST(Common, IsTheWholeWhereReadersDiffer) {
  EXPECT_EQ(Common(PerChannel(0), PerChannel(0)), PerChannel(0));
  EXPECT_EQ(Common(PerChannel(0), PerChannel(1)), kPerTensor);
  EXPECT_EQ(Common(PerChannel(0), kUntouched), PerChannel(0));
  EXPECT_EQ(Common(kUntouched, PerChannel(0)), PerChannel(0));
  EXPECT_EQ(Common(kUntouched, kUntouched), kUntouched);
}

std::string FloatBytes(const std::vector<float>& floats) {
  std::string bytes(floats.size() * sizeof(float), '\0');
  std::memcpy(bytes.data(), floats.data(), bytes.size());
  return bytes;
}

TEST(FloatsOf, TakesEveryWayToWriteThem) {
  const WireWriter head = WireWriter().Varint(1, 2).Varint(2, 1);
  const std::string raw = WireWriter(head).Bytes(9, FloatBytes({1, 2})).str();
  const std::string packed = WireWriter(head).Bytes(4, FloatBytes({1, 2})).str();
  const std::string single = head.str() + "\x25" + FloatBytes({1}) + "\x25" + FloatBytes({2});
  for (const std::string& message : {raw, packed, single}) {
    const FileTensor tensor = ReadFileTensor(BytesOf(message));
    ASSERT_EQ(FloatsOf(tensor), (std::vector<float>{1, 2}));
    const std::string other = WithFloats(tensor, std::vector<float>{3, 4});
    EXPECT_EQ(FloatsOf(ReadFileTensor(BytesOf(other))), (std::vector<float>{3, 4}));
    EXPECT_THAT(ReadFileTensor(BytesOf(other)).dims, ElementsAre(2));
  }
}

TEST(FloatsOf, TakesNothingElse) {
  const auto isTaken = [](const WireWriter& tensor) {
    return FloatsOf(ReadFileTensor(BytesOf(tensor.str()))).has_value();
  };
  EXPECT_TRUE(isTaken(WireWriter().Varint(2, 1).Bytes(9, FloatBytes({1}))));  // a scalar
  EXPECT_FALSE(isTaken(WireWriter().Varint(1, 1).Varint(2, 11).Bytes(9, FloatBytes({1}))));
  EXPECT_FALSE(isTaken(WireWriter().Varint(1, 3).Varint(2, 1).Bytes(9, FloatBytes({1, 2}))));
  EXPECT_FALSE(isTaken(WireWriter().Varint(1, 1).Varint(2, 1).Bytes(9, FloatBytes({1, 2}))));
  EXPECT_FALSE(isTaken(WireWriter().Varint(1, 1).Varint(2, 1).Bytes(9, "12345")));
  EXPECT_FALSE(isTaken(WireWriter().Varint(1, 0).Varint(2, 1)));
  // A product of 2^64 comes out as 0, and of 2^64 + 2 as 2.
  EXPECT_FALSE(isTaken(WireWriter().Varint(1, 1ULL << 32).Varint(1, 1ULL << 32).Varint(2, 1)));
}

TEST(RoundWeight, RoundsEveryChannelByItsOwnGrid) {
  // [2, 2, 2], with channels along each axis in turn; the largest of a channel is 127 or 254.
  const std::vector<float> floats = {127, 1.4F, 254, 3.4F, 127, 2.6F, 254, 7.4F};
  const std::vector<int64_t> dims = {2, 2, 2};
  std::vector<float> middle = floats;
  RoundWeight(Rounding::kToInt8, PerChannel(1), dims, middle);
  EXPECT_THAT(middle, ElementsAre(127, 1, 254, 4, 127, 3, 254, 8));
  std::vector<float> first = floats;
  RoundWeight(Rounding::kToInt8, PerChannel(0), dims, first);
  EXPECT_THAT(first, ElementsAre(128, 2, 254, 4, 128, 2, 254, 8));
  std::vector<float> whole = floats;
  RoundWeight(Rounding::kToInt8, kPerTensor, dims, whole);
  EXPECT_EQ(whole, first);
  std::vector<float> bias = floats;
  RoundWeight(Rounding::kToInt8, kUntouched, dims, bias);
  EXPECT_EQ(bias, floats);
}

TEST(RoundWeight, HasNoSchemeInFloats) {
  std::vector<float> floats = {1.001F, 70000};
  RoundWeight(Rounding::kToFloat16, kUntouched, std::vector<int64_t>{2}, floats);
  EXPECT_EQ(floats[0], 1.0009765625F);
  EXPECT_TRUE(std::isinf(floats[1]));
  floats = {1.001F, 70000};
  RoundWeight(Rounding::kToBfloat16, kPerTensor, std::vector<int64_t>{2}, floats);
  EXPECT_THAT(floats, ElementsAre(1, 70144));
}

}  // namespace
}  // namespace vorn::host
