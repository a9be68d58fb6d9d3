#include "kit/page/base64.h"

#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

// RFC 4648, section 10.
TEST(Base64, IsThatOfTheStandardsExamples) {
  EXPECT_EQ(Base64(""), "");
  EXPECT_EQ(Base64("f"), "Zg==");
  EXPECT_EQ(Base64("fo"), "Zm8=");
  EXPECT_EQ(Base64("foo"), "Zm9v");
  EXPECT_EQ(Base64("foob"), "Zm9vYg==");
  EXPECT_EQ(Base64("\xff\xfe\xfd"), "//79");
}

}  // namespace
}  // namespace vorn::kit
