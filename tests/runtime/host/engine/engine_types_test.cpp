#include "host/engine/engine_types.h"

#include <gtest/gtest.h>

namespace vorn::host {
namespace {

TEST(NameOf, SaysWhatAnInputHoldsThatNoTensorOfOursCan) {
  EXPECT_STREQ(NameOf(ONNX_TENSOR_ELEMENT_DATA_TYPE_STRING), "strings");
  EXPECT_STREQ(NameOf(ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX64), "complex numbers");
  EXPECT_STREQ(NameOf(ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX128), "complex numbers");
  EXPECT_STREQ(NameOf(ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT8E5M2),
               "packed or 8-bit floating-point numbers");
}

TEST(NameOf, SaysWhatAValueIsThatIsNoTensor) {
  EXPECT_STREQ(NameOf(ONNX_TYPE_SEQUENCE), "a sequence");
  EXPECT_STREQ(NameOf(ONNX_TYPE_MAP), "a map");
  EXPECT_STREQ(NameOf(ONNX_TYPE_SPARSETENSOR), "a sparse tensor");
  EXPECT_STREQ(NameOf(ONNX_TYPE_OPTIONAL), "an optional value");
  EXPECT_STREQ(NameOf(ONNX_TYPE_OPAQUE), "no tensor");
}

}  // namespace
}  // namespace vorn::host
