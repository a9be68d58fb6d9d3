#include "kit/model/dump_array.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/files.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

using support::Bytes;
using testing::ElementsAre;

TensorDescription Output(uint32_t type = VORN_FLOAT32) {
  TensorDescription output;
  output.shape = {2, 3};
  output.type = type;
  return output;
}

TEST(DumpArray, HeadersAreAligned) {
  const std::string header = ArrayHeader(Output(), {4, 3});
  EXPECT_EQ(header.size() % 64, 0U);
  EXPECT_EQ(header.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
  EXPECT_EQ(static_cast<unsigned char>(header[8]) + 256 * header[9], int(header.size()) - 10);
  EXPECT_EQ(header.substr(10, 59), "{'descr': '<f4', 'fortran_order': False, 'shape': (4, 3), }");
  EXPECT_EQ(header.back(), '\n');
  EXPECT_NE(ArrayHeader(Output(), {7}).find("(7,)"), std::string::npos);
  EXPECT_NE(ArrayHeader(Output(), {}).find("()"), std::string::npos);
  EXPECT_EQ(ArrayHeader(Output(), std::vector<uint64_t>(60, 1000000)).size() % 64, 0U);
}

TEST(DumpArray, ShapesHoldAllValues) {
  EXPECT_THAT(ShapeOfDump(Output(), 1, 6), ElementsAre(2, 3));
  EXPECT_THAT(ShapeOfDump(Output(), 5, 30), ElementsAre(10, 3));
  EXPECT_THAT(ShapeOfDump(Output(), 1, 7), ElementsAre(7));
  TensorDescription none;
  EXPECT_THAT(ShapeOfDump(none, 1, 9), ElementsAre(9));
  none.shape = {int64_t{1} << 40, int64_t{1} << 40};
  EXPECT_THAT(ShapeOfDump(none, 1, 9), ElementsAre(9));
  EXPECT_EQ(BatchOfDump(none, 9), 1U);
}

TEST(DumpArray, FindsTheBatch) {
  EXPECT_EQ(BatchOfDump(Output(), 6), 1U);
  EXPECT_EQ(BatchOfDump(Output(), 30), 5U);
  EXPECT_EQ(BatchOfDump(Output(), 7), 1U);
  EXPECT_EQ(BatchOfDump(Output(), 0), 1U);
}

// A dump holds the bits of these, and an array of floats would hold rubbish.
TEST(DumpArray, TakesBitsForWhatTheyMean) {
  const std::string words = Bytes<int32_t>({-1, 7});
  EXPECT_NE(ArrayHeader(Output(VORN_INT32), {2}).find("'<i4'"), std::string::npos);
  EXPECT_NE(ArrayHeader(Output(VORN_UINT32), {2}).find("'<u4'"), std::string::npos);
  EXPECT_EQ(ArrayValues(Output(VORN_INT32), words), words);
  EXPECT_NE(ArrayHeader(Output(VORN_FLOAT16), {2}).find("'<f2'"), std::string::npos);
  EXPECT_EQ(ArrayValues(Output(VORN_FLOAT16), Bytes<float>({0x3C00, 0xC000, 0xFFFF})),
            Bytes<uint16_t>({0x3C00, 0xC000, 0xFFFF}));
  EXPECT_EQ(ArrayValues(Output(VORN_FLOAT16), Bytes<float>({-1, 65536, NAN})),
            Bytes<uint16_t>({0x7E00, 0x7E00, 0x7E00}));
}

TEST(DumpArray, KnowsWhatADumpCannotHold) {
  for (uint32_t type = VORN_FLOAT32; type <= VORN_UINT16; ++type) {
    EXPECT_TRUE(AreValuesDumped(Output(type))) << type;
  }
  for (uint32_t type = VORN_INT64; type <= VORN_BOOL; ++type) {
    EXPECT_FALSE(AreValuesDumped(Output(type))) << type;
  }
  EXPECT_TRUE(AreValuesDumped(Output(99)));
  EXPECT_TRUE(AreValuesDumped(TensorDescription{}));
}

}  // namespace
}  // namespace vorn::kit
