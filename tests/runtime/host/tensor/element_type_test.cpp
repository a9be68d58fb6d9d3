#include "host/tensor/element_type.h"

#include <gtest/gtest.h>

namespace vorn::host {
namespace {

TEST(ElementBits, KnowsEveryNumberedCode) {
  const uint64_t expected[] = {32, 16, 8, 32, 8, 32, 16, 16, 64, 64, 64, 8};
  for (vorn_data_type code = 0; code < 12; ++code) EXPECT_EQ(ElementBits(code), expected[code]);
}

TEST(ElementBits, Is0ForAnyOtherCode) {
  EXPECT_EQ(ElementBits(12), 0u);
  EXPECT_EQ(ElementBits(UINT32_MAX), 0u);
  EXPECT_EQ(ElementBytes(UINT32_MAX), 0u);
}

TEST(NumberedBits, KnowsTheCodesOfTheInterfaceAlone) {
  for (vorn_data_type code = 0; code < 12; ++code) EXPECT_EQ(NumberedBits(code), ElementBits(code));
  EXPECT_EQ(ElementBits(kBfloat16), 16u);
  EXPECT_EQ(NumberedBits(kBfloat16), 0u);
  EXPECT_EQ(NumberedBits(12), 0u);
}

}  // namespace
}  // namespace vorn::host
