#include "kit/page/heatmap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kit/picture/decode.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

std::string FromBase64(const std::string& text) {
  const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned held = 0;
  int bits = 0;
  for (const char c : text) {
    const size_t value = digits.find(c);
    if (value == std::string::npos) break;
    held = held << 6 | static_cast<unsigned>(value);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(held >> bits & 0xff);
  }
  return bytes;
}

Picture PictureIn(const Html& html) {
  const std::string mark = "data:image/png;base64,";
  const size_t begin = html.Bytes().find(mark) + mark.size();
  return DecodePicture(
             "map", FromBase64(html.Bytes().substr(begin, html.Bytes().find('"', begin) - begin)))
      .picture;
}

std::vector<int> PixelAt(const Picture& picture, uint32_t row, uint32_t column) {
  std::vector<int> pixel;
  for (uint32_t c = 0; c < picture.channels; ++c) {
    const size_t at = (size_t{row} * picture.width + column) * picture.channels + c;
    pixel.push_back(static_cast<int>(picture.pixels.at(at)));
  }
  return pixel;
}

TEST(PngBytes, AreDecodedToTheSamePixels) {
  const std::vector<uint8_t> grey{0, 10, 20, 30, 40, 255};
  const Picture picture = DecodePicture("grey", PngBytes(grey, 3, 2, 1)).picture;
  EXPECT_EQ(picture.width, 3U);
  EXPECT_EQ(picture.height, 2U);
  ASSERT_EQ(picture.channels, 1U);
  for (size_t i = 0; i < grey.size(); ++i) {
    EXPECT_EQ(static_cast<uint8_t>(picture.pixels.at(i)), grey[i]);
  }
  const std::vector<uint8_t> colours{1, 2, 3, 4, 5, 6};
  const Picture two = DecodePicture("colours", PngBytes(colours, 2, 1, 3)).picture;
  EXPECT_EQ(PixelAt(two, 0, 1), (std::vector<int>{4, 5, 6}));
}

TEST(PngBytes, RefusesFewerPixelsThanItIsTold) {
  const std::vector<uint8_t> pixels(5);
  EXPECT_THROW((void)PngBytes(pixels, 3, 2, 1), std::invalid_argument);
  EXPECT_THROW((void)PngBytes(pixels, 0, 2, 1), std::invalid_argument);
  EXPECT_THROW((void)PngBytes(pixels, 1, 1, 4), std::invalid_argument);
}

TEST(DrawHeatmap, IsDarkBelowAndLightAbove) {
  const std::vector<double> values{0, 1, 2, 3};
  const Picture picture = PictureIn(Draw(Heatmap{values, 2, 2, 0, 3, Palette::kScale, "map"}));
  EXPECT_EQ(PixelAt(picture, 0, 0), (std::vector<int>{68, 1, 84}));
  EXPECT_EQ(PixelAt(picture, 1, 1), (std::vector<int>{253, 231, 37}));
}

TEST(DrawHeatmap, IsWhiteWhereNothingDiffers) {
  const std::vector<double> values{-2, 0, 2};
  const Picture picture = PictureIn(Draw(Heatmap{values, 1, 3, -2, 2, Palette::kDiverging, "map"}));
  EXPECT_EQ(PixelAt(picture, 0, 1), (std::vector<int>{247, 247, 247}));
  EXPECT_GT(PixelAt(picture, 0, 0)[2], PixelAt(picture, 0, 0)[0]);
  EXPECT_GT(PixelAt(picture, 0, 2)[0], PixelAt(picture, 0, 2)[2]);
}

TEST(DrawHeatmap, ShowsWhatIsNoNumberAndWhatIsInfinite) {
  const double infinity = std::numeric_limits<double>::infinity();
  const std::vector<double> values{NAN, infinity, -infinity};
  const Picture picture = PictureIn(Draw(Heatmap{values, 1, 3, 0, 1, Palette::kScale, "map"}));
  EXPECT_EQ(PixelAt(picture, 0, 0), (std::vector<int>{255, 0, 255}));
  EXPECT_EQ(PixelAt(picture, 0, 1), (std::vector<int>{253, 231, 37}));
  EXPECT_EQ(PixelAt(picture, 0, 2), (std::vector<int>{68, 1, 84}));
}

TEST(DrawHeatmap, OfOneValueHasOneColour) {
  const std::vector<double> values{7, 7};
  const Picture picture = PictureIn(Draw(Heatmap{values, 1, 2, 7, 7, Palette::kScale, "map"}));
  EXPECT_EQ(PixelAt(picture, 0, 0), PixelAt(picture, 0, 1));
}

TEST(DrawHeatmap, IsNothingWithoutEnoughValues) {
  const std::vector<double> values{1, 2, 3};
  EXPECT_TRUE(Draw(Heatmap{values, 2, 2, 0, 1, Palette::kScale, "map"}).IsEmpty());
  EXPECT_TRUE(Draw(Heatmap{{}, 0, 0, 0, 1, Palette::kScale, "map"}).IsEmpty());
}

TEST(PictureOf, KeepsItsShape) {
  const std::string html = PictureOf("png", "a <picture>", 64, 48, 160).Bytes();
  EXPECT_THAT(html, HasSubstr("width=\"160\" height=\"120\""));
  EXPECT_THAT(html, HasSubstr("alt=\"a &lt;picture&gt;\""));
}

}  // namespace
}  // namespace vorn::kit
