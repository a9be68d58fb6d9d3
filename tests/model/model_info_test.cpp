#include "model/model_info.h"

#include <gtest/gtest.h>

#include <cstring>

namespace vorn::run {
namespace {

TEST(ShapeToString, EndsWithASeparator) {
  vorn_mdl_io_dims dims{};
  EXPECT_EQ(ShapeToString(dims), "[]");
  dims.dimCount = 4;
  dims.dims[0] = 1;
  dims.dims[1] = 3;
  dims.dims[2] = 224;
  dims.dims[3] = -1;
  EXPECT_EQ(ShapeToString(dims), "[1, 3, 224, -1, ]");
}

TEST(ShapeToString, StaysInsideTheRecord) {
  vorn_mdl_io_dims dims{};
  dims.dimCount = ~uint64_t{0};
  std::string expected = "[";
  for (int i = 0; i < 128; ++i) expected += "0, ";
  EXPECT_EQ(ShapeToString(dims), expected + "]");
}

TEST(NameToString, EndsAtTheZeroOrWithTheRecord) {
  vorn_mdl_io_dims dims{};
  std::strcpy(dims.name, "image");
  EXPECT_EQ(NameToString(dims), "image");
  std::memset(dims.name, 'n', sizeof(dims.name));
  EXPECT_EQ(NameToString(dims), std::string(128, 'n'));
}

}  // namespace
}  // namespace vorn::run
