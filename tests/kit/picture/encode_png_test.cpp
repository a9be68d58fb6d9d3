#include "kit/picture/encode_png.h"

#include <gtest/gtest.h>

#include <random>

#include "kit/common/fault.h"
#include "kit/picture/decode.h"

namespace vorn::kit {
namespace {

TEST(EncodePng, GivesBackEveryPixelOfEveryKind) {
  std::mt19937 random(1);
  for (const uint32_t channels : {1U, 2U, 3U, 4U}) {
    Picture picture = MakePicture(31, 17, channels, PixelType::kUint8);
    for (std::byte& value : picture.pixels) value = static_cast<std::byte>(random() % 256);
    const std::string bytes = EncodePng(picture);
    const Picture decoded = DecodePicture("it", bytes).picture;
    EXPECT_EQ(decoded.channels, channels);
    EXPECT_EQ(decoded.width, 31U);
    EXPECT_EQ(decoded.pixels, picture.pixels);
    EXPECT_EQ(EncodePng(picture), bytes);
  }
}

TEST(EncodePng, RefusesOtherTypes) {
  EXPECT_THROW((void)EncodePng(MakePicture(2, 2, 1, PixelType::kUint16)), Fault);
}

}  // namespace
}  // namespace vorn::kit
