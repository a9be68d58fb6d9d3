#include "kit/picture/picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace vorn::kit {
namespace {

using testing::ElementsAre;

template <typename Value>
Picture PictureOf(uint32_t width, uint32_t height, uint32_t channels, PixelType type,
                  const std::vector<Value>& values) {
  Picture picture = MakePicture(width, height, channels, type);
  EXPECT_EQ(values.size() * sizeof(Value), picture.pixels.size());
  std::memcpy(picture.pixels.data(), values.data(), picture.pixels.size());
  return picture;
}

template <typename Value>
std::vector<Value> ValuesOf(const Picture& picture) {
  return {picture.Row<Value>(0), picture.Row<Value>(0) + picture.RowValues() * picture.height};
}

// Two rows of three, numbered as they are to be seen; what the orientations of EXIF store instead.
TEST(ApplyOrientation, ShowsThePictureAsItIsMeant) {
  const std::vector<std::vector<uint8_t>> stored = {
      {1, 2, 3, 4, 5, 6},  // 1: as it is
      {3, 2, 1, 6, 5, 4},  // 2: the first column of the file is the right side
      {6, 5, 4, 3, 2, 1},  // 3: the first row is the bottom, the first column the right side
      {4, 5, 6, 1, 2, 3},  // 4: the first row is the bottom
      {1, 4, 2, 5, 3, 6},  // 5: the first row is the left side
      {3, 6, 2, 5, 1, 4},  // 6: the first row is the right side
      {6, 3, 5, 2, 4, 1},  // 7: the first row is the right side, the first column the bottom
      {4, 1, 5, 2, 6, 3},  // 8: the first row is the left side, the first column the bottom
  };
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const bool isTurned = orientation >= 5;
    const Picture picture =
        ApplyOrientation(PictureOf(isTurned ? 2 : 3, isTurned ? 3 : 2, 1, PixelType::kUint8,
                                   stored[static_cast<size_t>(orientation - 1)]),
                         orientation);
    EXPECT_EQ(picture.width, 3U) << orientation;
    EXPECT_EQ(picture.height, 2U) << orientation;
    EXPECT_THAT(ValuesOf<uint8_t>(picture), ElementsAre(1, 2, 3, 4, 5, 6)) << orientation;
  }
}

TEST(ApplyOrientation, KeepsTheValuesOfAPixelTogether) {
  for (const uint32_t channels : {1U, 2U, 3U, 4U}) {
    for (const PixelType type : {PixelType::kUint8, PixelType::kUint16, PixelType::kFloat32}) {
      Picture picture = MakePicture(2, 1, channels, type);
      const size_t pixel = picture.pixels.size() / 2;
      for (size_t i = 0; i < pixel; ++i) picture.pixels[i] = std::byte(i + 1);
      const Picture mirrored = ApplyOrientation(picture, 2);
      for (size_t i = 0; i < pixel; ++i) {
        EXPECT_EQ(mirrored.pixels[i], std::byte{0});
        EXPECT_EQ(mirrored.pixels[pixel + i], std::byte(i + 1));
      }
    }
  }
}

TEST(ApplyOrientation, LeavesThePictureForOtherNumbers) {
  for (const int orientation : {-1, 0, 9}) {
    const Picture picture =
        ApplyOrientation(PictureOf<uint8_t>(2, 1, 1, PixelType::kUint8, {1, 2}), orientation);
    EXPECT_THAT(ValuesOf<uint8_t>(picture), ElementsAre(1, 2));
  }
}

TEST(UpperBytes, HalvesSixteenBitsAndLeavesTheRest) {
  const Picture wide = PictureOf<uint16_t>(2, 1, 1, PixelType::kUint16, {0x12ff, 0xfe00});
  EXPECT_THAT(ValuesOf<uint8_t>(UpperBytes(wide)), ElementsAre(0x12, 0xfe));
  const Picture floats = PictureOf<float>(1, 1, 1, PixelType::kFloat32, {0.5F});
  EXPECT_THAT(ValuesOf<float>(UpperBytes(floats)), ElementsAre(0.5F));
}

TEST(WithoutAlpha, DropsTheLastOfTwoOrFour) {
  const Picture grey = PictureOf<uint16_t>(2, 1, 2, PixelType::kUint16, {1, 2, 3, 4});
  EXPECT_THAT(ValuesOf<uint16_t>(WithoutAlpha(grey)), ElementsAre(1, 3));
  const Picture colours = PictureOf<uint8_t>(1, 2, 4, PixelType::kUint8, {1, 2, 3, 4, 5, 6, 7, 8});
  EXPECT_THAT(ValuesOf<uint8_t>(WithoutAlpha(colours)), ElementsAre(1, 2, 3, 5, 6, 7));
  const Picture plain = PictureOf<uint8_t>(1, 1, 3, PixelType::kUint8, {1, 2, 3});
  EXPECT_THAT(ValuesOf<uint8_t>(WithoutAlpha(plain)), ElementsAre(1, 2, 3));
}

}  // namespace
}  // namespace vorn::kit
