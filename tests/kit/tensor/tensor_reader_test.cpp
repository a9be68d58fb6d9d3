#include "kit/tensor/tensor_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using Values = std::vector<float>;

class Tensors : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  StoredTensor Dump(const Values& values) const {
    support::WriteFile(Path("a.bin"), support::Bytes(values));
    return OpenDump(Path("a.bin"));
  }

  StoredTensor Text(const std::string& text) const {
    support::WriteFile(Path("a.float"), text);
    return OpenDumpText(Path("a.float"));
  }

 private:
  support::TempDir folder_;
};

// In blocks of `block` elements.
Values ReadInBlocks(const StoredTensor& tensor, const ElementOrder& order, size_t block,
                    const Quantisation& quantisation = {}) {
  TensorReader reader(tensor, order, quantisation);
  Values values;
  Values room(block);
  while (const size_t got = reader.Next(room)) {
    values.insert(values.end(), room.begin(), room.begin() + static_cast<std::ptrdiff_t>(got));
  }
  return values;
}

std::string RefusalOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Fault& fault) {
    return fault.what();
  }
  return "done";
}

Values Counting(size_t count) {
  Values values(count);
  for (size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i);
  return values;
}

TEST_F(Tensors, ReadADumpInBlocksOfAnySize) {
  const Values values = Counting(11);
  const StoredTensor tensor = Dump(values);
  for (const size_t block : {1U, 2U, 5U, 11U, 100U}) {
    EXPECT_EQ(ReadInBlocks(tensor, ElementOrder::Of(tensor), block), values);
  }
}

TEST_F(Tensors, RefuseADumpOfOddSize) {
  support::WriteFile(Path("odd.bin"), "12345");
  EXPECT_THAT(RefusalOf([&] { (void)OpenDump(Path("odd.bin")); }),
              HasSubstr("has 5 bytes, no whole number of 32-bit floats"));
}

TEST_F(Tensors, AreEmptyWhereTheFileIs) {
  const StoredTensor tensor = Dump({});
  EXPECT_EQ(tensor.elements, 0U);
  EXPECT_EQ(ReadInBlocks(tensor, ElementOrder::Of(tensor), 4), Values{});
}

TEST_F(Tensors, ReadATextOfNumbers) {
  const StoredTensor tensor =
      Text("1.5000000000000000\n-0.2500000000000000\ninf\n-inf\nnan\n-nan\n");
  EXPECT_EQ(tensor.elements, 6U);
  const Values values = ReadInBlocks(tensor, ElementOrder::Of(tensor), 4);
  EXPECT_EQ(values[0], 1.5F);
  EXPECT_EQ(values[1], -0.25F);
  EXPECT_EQ(values[2], INFINITY);
  EXPECT_EQ(values[3], -INFINITY);
  EXPECT_TRUE(std::isnan(values[4]) && std::isnan(values[5]));
  EXPECT_EQ(Text("7").elements, 1U);
  EXPECT_EQ(Text("").elements, 0U);
}

TEST_F(Tensors, ReadATextThatIsLongerThanAPiece) {
  std::string text;
  Values values;
  for (int i = 0; i < 100000; ++i) {
    values.push_back(static_cast<float>(i) / 8);
    text += std::to_string(values.back()) + "\n";
  }
  const StoredTensor tensor = Text(text);
  EXPECT_EQ(ReadInBlocks(tensor, ElementOrder::Of(tensor), 999), values);
}

TEST_F(Tensors, RefuseATextThatIsNone) {
  EXPECT_THAT(RefusalOf([&] { (void)Text("1\ntwo\n"); }),
              HasSubstr("has no number in line 2: 'two'"));
  EXPECT_THAT(RefusalOf([&] { (void)Text("1\n\n2\n"); }), HasSubstr("has no number in line 2: ''"));
  EXPECT_THAT(RefusalOf([&] { (void)Text("1 2\n"); }), HasSubstr("line 1: '1 2'"));
}

TEST_F(Tensors, ComeInAnotherOrderOfDimensions) {
  StoredTensor tensor = Dump(Counting(24));
  tensor.shape = Shape{2, 3, 4};
  const ElementOrder order = ElementOrder::Of(tensor).Permuted({2, 0, 1});
  EXPECT_EQ(order.shape, (Shape{4, 2, 3}));
  Values expected;
  for (size_t i = 0; i < 4; ++i) {
    for (size_t j = 0; j < 2; ++j) {
      for (size_t k = 0; k < 3; ++k) expected.push_back(static_cast<float>((j * 3 + k) * 4 + i));
    }
  }
  for (const size_t block : {1U, 7U, 24U}) EXPECT_EQ(ReadInBlocks(tensor, order, block), expected);
}

TEST_F(Tensors, ComeColumnByColumn) {
  StoredTensor tensor = Dump({1, 4, 2, 5, 3, 6});
  tensor.shape = Shape{2, 3};
  tensor.isColumnMajor = true;
  EXPECT_EQ(ReadInBlocks(tensor, ElementOrder::Of(tensor), 4), (Values{1, 2, 3, 4, 5, 6}));
}

TEST_F(Tensors, ComeAnItemAtATime) {
  StoredTensor tensor = Dump(Counting(12));
  tensor.shape = Shape{3, 2, 2};
  const ElementOrder second = ElementOrder::Of(tensor).Slice(1);
  EXPECT_TRUE(second.IsDense());
  EXPECT_EQ(ReadInBlocks(tensor, second, 3), (Values{4, 5, 6, 7}));
  EXPECT_EQ(ReadInBlocks(tensor, second.Permuted({1, 0}), 3), (Values{4, 6, 5, 7}));
}

TEST_F(Tensors, OfATextComeInAnyOrderToo) {
  StoredTensor tensor = Text("1\n2\n3\n4\n5\n6\n");
  tensor.shape = Shape{2, 3};
  const ElementOrder order = ElementOrder::Of(tensor);
  EXPECT_EQ(ReadInBlocks(tensor, order.Permuted({1, 0}), 4), (Values{1, 4, 2, 5, 3, 6}));
  EXPECT_EQ(ReadInBlocks(tensor, order.Slice(1), 4), (Values{4, 5, 6}));
}

TEST_F(Tensors, AreReadAsWhatWholeNumbersStandFor) {
  support::WriteFile(Path("q"), std::string("\x80\x00\x7F", 3));
  StoredTensor tensor;
  tensor.path = Path("q");
  tensor.type = ElementType::kInt8;
  tensor.elements = 3;
  EXPECT_EQ(ReadInBlocks(tensor, ElementOrder::Of(tensor), 2, {.scale = 0.5, .zeroPoint = -128}),
            (Values{0, 64, 127.5F}));
}

TEST_F(Tensors, RefuseAFileThatBecameShorter) {
  const StoredTensor tensor = Dump(Counting(4));
  support::WriteFile(Path("a.bin"), "1234");
  EXPECT_THAT(RefusalOf([&] { TensorReader(tensor, ElementOrder::Of(tensor)); }),
              HasSubstr("became shorter"));
}

TEST_F(Tensors, AreHeldWholeOnlyWithinALimit) {
  const StoredTensor tensor = Dump(Counting(4));
  TensorReader reader(tensor, ElementOrder::Of(tensor));
  EXPECT_THROW((void)ReadAll(reader, 3), Fault);
  EXPECT_EQ(ReadAll(reader, 4), Counting(4));
}

TEST(CountElements, KnowsWhatFits) {
  EXPECT_EQ(CountElements({}), 1U);
  EXPECT_EQ(CountElements({2, 3}), 6U);
  EXPECT_EQ(CountElements({UINT64_MAX, 0, UINT64_MAX}), 0U);
  EXPECT_EQ(CountElements({UINT64_MAX, 2}), std::nullopt);
}

}  // namespace
}  // namespace vorn::kit
