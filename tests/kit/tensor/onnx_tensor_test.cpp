#include "kit/tensor/onnx_tensor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/tensor/tensor_reader.h"
#include "support/files.h"
#include "support/onnx_writer.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

class OnnxTensor : public testing::Test {
 protected:
  std::string Path() const { return folder_.Path() / "output_0.pb"; }

  StoredTensor Open(const std::string& message) {
    support::WriteFile(Path(), message);
    return OpenOnnxTensor(Path());
  }

  std::vector<float> Values(const std::string& message) {
    const StoredTensor tensor = Open(message);
    TensorReader reader(tensor, ElementOrder::Of(tensor));
    return ReadAll(reader, 1000);
  }

  std::string Refusal(const std::string& message) {
    try {
      (void)Open(message);
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      return fault.what();
    }
    return "taken";
  }

 private:
  support::TempDir folder_;
};

std::string Varints(const std::vector<uint64_t>& values) {
  std::string bytes;
  for (uint64_t value : values) {
    while (value >= 128) {
      bytes += static_cast<char>(value % 128 + 128);
      value /= 128;
    }
    bytes += static_cast<char>(value);
  }
  return bytes;
}

WireWriter Tensor(uint64_t type, const std::vector<uint64_t>& dims) {
  WireWriter message;
  for (const uint64_t dim : dims) message.Varint(1, dim);
  message.Varint(2, type);
  return message;
}

TEST_F(OnnxTensor, ReadsRawValues) {
  const std::string message = Tensor(1, {1, 3})
                                  .Bytes(8, "probabilities")
                                  .Bytes(9, support::Bytes<float>({1.5F, -2, 3}))
                                  .str();
  const StoredTensor tensor = Open(message);
  EXPECT_EQ(tensor.name, "probabilities");
  EXPECT_EQ(tensor.shape, (Shape{1, 3}));
  EXPECT_EQ(Values(message), (std::vector<float>{1.5F, -2, 3}));
}

TEST_F(OnnxTensor, ReadsPackedDimensionsAndSkipsWhatItDoesNotKnow) {
  WireWriter message;
  message.Bytes(1, Varints({2, 1}))
      .Varint(2, 2)
      .Bytes(12, "a text for people")
      .Varint(99, 1)
      .Bytes(9, std::string("\x07\xFF", 2));
  EXPECT_EQ(Values(message.str()), (std::vector<float>{7, 255}));
}

TEST_F(OnnxTensor, ReadsTheFieldsOfTypes) {
  EXPECT_EQ(Values(Tensor(1, {2}).Bytes(4, support::Bytes<float>({1, 2})).str()),
            (std::vector<float>{1, 2}));
  EXPECT_EQ(Values(Tensor(11, {1}).Bytes(10, support::Bytes<double>({0.25})).str()),
            (std::vector<float>{0.25F}));
  EXPECT_EQ(Values(Tensor(3, {2}).Bytes(5, Varints({static_cast<uint64_t>(-7), 300})).str()),
            (std::vector<float>{-7, 300}));
  EXPECT_EQ(Values(Tensor(7, {1}).Bytes(7, Varints({static_cast<uint64_t>(-1)})).str()),
            (std::vector<float>{-1}));
  EXPECT_EQ(Values(Tensor(13, {1}).Bytes(11, Varints({UINT64_MAX})).str()),
            (std::vector<float>{0x1p64F}));
  EXPECT_EQ(Values(Tensor(10, {2}).Bytes(5, Varints({0x3C00, 0xC000})).str()),
            (std::vector<float>{1, -2}));
  EXPECT_EQ(Values(Tensor(9, {2}).Bytes(5, Varints({1, 0})).str()), (std::vector<float>{1, 0}));
  EXPECT_EQ(Values(Tensor(16, {2}).Bytes(5, Varints({0x3F80, 0xC000})).str()),
            (std::vector<float>{1, -2}));
  EXPECT_EQ(Values(Tensor(12, {2}).Bytes(11, Varints({1, 4294967295U})).str()),
            (std::vector<float>{1, 4294967296.0F}));
}

// Keys 0x91 and 0x95 stand for numbers of 8 and of 4 bytes in a field that nobody knows.
TEST_F(OnnxTensor, SkipsNumbersOfFixedSize) {
  const std::string values = Tensor(2, {1}).Bytes(9, "\x07").str();
  const std::string eight("\x91\x01\x01\x02\x03\x04\x05\x06\x07\x08", 10);
  const std::string four("\x95\x01\x01\x02\x03\x04", 6);
  EXPECT_EQ(Values(eight + four + values), (std::vector<float>{7}));
  EXPECT_EQ(Values(values + four + eight), (std::vector<float>{7}));
  EXPECT_THAT(Refusal(values + four.substr(0, 5)), HasSubstr("ends within a field"));
  EXPECT_THAT(Refusal(values + eight.substr(0, 9)), HasSubstr("ends within a field"));
}

TEST_F(OnnxTensor, BoundsNamesAndDimensions) {
  const std::string value = support::Bytes<float>({1});
  const std::vector<uint64_t> ones(64, 1);
  EXPECT_EQ(Open(Tensor(1, ones).Bytes(9, value).str()).shape, (Shape(64, 1)));
  EXPECT_THAT(Refusal(Tensor(1, ones).Varint(1, 1).Bytes(9, value).str()),
              HasSubstr("more than 64 dimensions"));
  EXPECT_THAT(Refusal(Tensor(1, {1}).Bytes(1, Varints(ones)).Bytes(9, value).str()),
              HasSubstr("more than 64 dimensions"));
  const std::string name(64 * 1024, 'n');
  EXPECT_EQ(Open(Tensor(1, {1}).Bytes(8, name).Bytes(9, value).str()).name, name);
  EXPECT_THAT(Refusal(Tensor(1, {1}).Bytes(8, name + "n").Bytes(9, value).str()),
              HasSubstr("a name of more than 64 KiB"));
}

TEST_F(OnnxTensor, ReadsAScalarAndAnEmptyOne) {
  EXPECT_EQ(Values(Tensor(1, {}).Bytes(9, support::Bytes<float>({4})).str()),
            (std::vector<float>{4}));
  EXPECT_EQ(Values(Tensor(1, {0, 5}).str()), std::vector<float>{});
}

TEST_F(OnnxTensor, RefusesOtherNumbersOfValues) {
  const std::string two = support::Bytes<float>({1, 2});
  EXPECT_THAT(Refusal(Tensor(1, {3}).Bytes(9, two).str()),
              HasSubstr("should hold 3 of float32, and has 8 bytes of values"));
  EXPECT_THAT(Refusal(Tensor(1, {2}).str()), HasSubstr("has no values for its shape 2"));
  EXPECT_THAT(Refusal(Tensor(7, {2}).Bytes(7, Varints({1, 2, 3})).str()),
              HasSubstr("another number of them"));
  EXPECT_THAT(Refusal(Tensor(7, {1ULL << 40}).Bytes(7, Varints({1})).str()),
              HasSubstr("write it with raw_data"));
  EXPECT_THAT(Refusal(Tensor(1, {1ULL << 40, 1ULL << 40}).Bytes(9, two).str()),
              HasSubstr("does not fit memory"));
  EXPECT_THAT(Refusal(Tensor(1, {static_cast<uint64_t>(-2)}).str()),
              HasSubstr("negative dimension"));
  EXPECT_THAT(Refusal(Tensor(1, {2}).Bytes(9, two).Bytes(4, two).str()), HasSubstr("twice"));
  EXPECT_THAT(Refusal(Tensor(7, {2}).Bytes(4, two).str()), HasSubstr("should hold 2 of int64"));
}

TEST_F(OnnxTensor, RefusesWhatIsNoTensorOfNumbers) {
  EXPECT_THAT(Refusal(""), HasSubstr("elements of type 0"));
  EXPECT_THAT(Refusal(Tensor(8, {1}).Bytes(6, "text").str()), HasSubstr("holds texts"));
  EXPECT_THAT(Refusal(Tensor(14, {1}).str()), HasSubstr("elements of type 14"));
  EXPECT_THAT(Refusal(Tensor(1, {1}).Varint(14, 1).str()), HasSubstr("in another file"));
  EXPECT_THAT(Refusal(Tensor(1, {1}).Varint(4, 1).str()), HasSubstr("one by one"));
  EXPECT_THAT(Refusal("\x0F"), HasSubstr("no whole numbers"));
  EXPECT_THAT(Refusal("\x1F"), HasSubstr("holds texts or a part"));
  EXPECT_THAT(Refusal("\x67"), HasSubstr("unknown kind 7"));
  EXPECT_THAT(Refusal("hello, world"), HasSubstr("is no TensorProto"));
  EXPECT_THAT(Refusal(std::string(20, '\xFF')), HasSubstr("has no end"));
}

TEST_F(OnnxTensor, RefusesWhatWasCutOffAtAnyPlace) {
  const std::string message =
      Tensor(1, {2}).Bytes(8, "name").Bytes(9, support::Bytes<float>({1, 2})).str();
  for (size_t bytes = 0; bytes < message.size(); ++bytes) {
    EXPECT_NE(Refusal(message.substr(0, bytes)), "taken") << bytes;
  }
  EXPECT_EQ(Refusal(message), "taken");
}

}  // namespace
}  // namespace vorn::kit
