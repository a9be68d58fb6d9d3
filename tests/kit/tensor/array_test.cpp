#include "kit/tensor/array.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <numeric>

#include "kit/common/fault.h"
#include "kit/tensor/npy.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMost = 1 << 20;

template <typename Value>
std::vector<Value> ValuesOf(const Array& array) {
  std::vector<Value> values(array.bytes.size() / sizeof(Value));
  std::memcpy(values.data(), array.bytes.data(), array.bytes.size());
  return values;
}

class ArrayTest : public testing::Test {
 protected:
  // A file with `head` in front, as StoredTensor tells of it.
  template <typename Value>
  StoredTensor Store(ElementType type, Shape shape, const std::vector<Value>& values) {
    const std::string path = folder_.Path() / "values";
    std::string bytes = "head";
    bytes.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(Value));
    support::WriteFile(path, bytes);
    StoredTensor tensor;
    tensor.path = path;
    tensor.offsetBytes = 4;
    tensor.type = type;
    tensor.elements = values.size();
    tensor.shape = std::move(shape);
    return tensor;
  }

  support::TempDir folder_;
};

TEST_F(ArrayTest, KeepsWholeNumbersThatNoFloatHolds) {
  const std::vector<int64_t> values{(int64_t{1} << 53) + 1, -7, INT64_MIN, INT64_MAX};
  const Array array = ReadArray(Store(ElementType::kInt64, {2, 2}, values), kMost);
  EXPECT_EQ(array.type, ElementType::kInt64);
  EXPECT_EQ(array.shape, (Shape{2, 2}));
  EXPECT_EQ(ValuesOf<int64_t>(array), values);
}

TEST_F(ArrayTest, GivesAnItemOfTheOutermostDimension) {
  std::vector<uint16_t> values(12);
  std::iota(values.begin(), values.end(), uint16_t{0});
  const Array array = ReadItem(Store(ElementType::kUint16, {3, 2, 2}, values), 1, kMost);
  EXPECT_EQ(array.shape, (Shape{2, 2}));
  EXPECT_EQ(ValuesOf<uint16_t>(array), (std::vector<uint16_t>{4, 5, 6, 7}));
}

TEST_F(ArrayTest, PutsColumnMajorValuesIntoRows) {
  StoredTensor tensor = Store<uint8_t>(ElementType::kUint8, {2, 3}, {0, 3, 1, 4, 2, 5});
  tensor.isColumnMajor = true;
  EXPECT_EQ(ValuesOf<uint8_t>(ReadArray(tensor, kMost)), (std::vector<uint8_t>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(ValuesOf<uint8_t>(ReadItem(tensor, 1, kMost)), (std::vector<uint8_t>{3, 4, 5}));
}

TEST_F(ArrayTest, SwapsTheOtherByteOrder) {
  StoredTensor tensor = Store<uint32_t>(ElementType::kInt32, {2}, {0x01000000, 0xfeffffff});
  tensor.isSwapped = true;
  EXPECT_EQ(ValuesOf<int32_t>(ReadArray(tensor, kMost)), (std::vector<int32_t>{1, -2}));
}

TEST_F(ArrayTest, RefusesAnItemBeyondTheEnd) {
  const StoredTensor tensor = Store<uint8_t>(ElementType::kUint8, {2, 3}, {0, 1, 2, 3, 4, 5});
  try {
    (void)ReadItem(tensor, 2, kMost);
    FAIL() << "it was taken";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_NE(std::string(fault.what()).find("has no item 2; its shape is 2x3"), std::string::npos)
        << fault.what();
  }
}

TEST_F(ArrayTest, RefusesMoreThanIsReadAtOnce) {
  const StoredTensor tensor = Store<uint8_t>(ElementType::kUint8, {2, 3}, {0, 1, 2, 3, 4, 5});
  try {
    (void)ReadArray(tensor, 5);
    FAIL() << "it was taken";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kLimit);
  }
  EXPECT_EQ(ReadArray(tensor, 6).bytes.size(), 6U);
}

TEST_F(ArrayTest, RefusesAFileThatBecameShorter) {
  StoredTensor tensor = Store<uint8_t>(ElementType::kUint8, {2, 3}, {0, 1, 2, 3, 4, 5});
  tensor.elements = 7;
  tensor.shape = Shape{7};
  EXPECT_THROW((void)ReadArray(tensor, kMost), Fault);
}

}  // namespace
}  // namespace vorn::kit
