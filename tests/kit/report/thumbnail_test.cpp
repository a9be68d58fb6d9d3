#include "kit/report/thumbnail.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/picture/decode.h"
#include "kit/picture/encode_png.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

Picture Gradient(uint32_t width, uint32_t height) {
  Picture picture = MakePicture(width, height, 3, PixelType::kUint8);
  for (size_t i = 0; i < picture.pixels.size(); ++i) {
    picture.pixels[i] = static_cast<std::byte>(i % 251);
  }
  return picture;
}

std::string WhyNot(const std::string& path, const std::optional<std::string>& xxh3 = {}) {
  try {
    (void)ThumbnailOf(path, xxh3);
    return "";
  } catch (const Fault& fault) {
    return fault.what();
  }
}

TEST(ThumbnailOf, MakesALargePictureSmall) {
  const support::TempDir folder;
  const std::string path = (folder.Path() / "picture").string();
  const std::string bytes = EncodePng(Gradient(640, 320));
  support::WriteFile(path, bytes);
  const ReportPicture picture = ThumbnailOf(path, Xxh3Of(bytes));
  EXPECT_EQ(picture.width, kMostReportPicture);
  EXPECT_EQ(picture.height, kMostReportPicture / 2);
  EXPECT_EQ(picture.sourceWidth, 640U);
  EXPECT_EQ(picture.sourceHeight, 320U);
  EXPECT_EQ(picture.name, path);
  EXPECT_FALSE(picture.isTensor);
  const DecodedPicture decoded = DecodePicture("it", picture.png);
  EXPECT_EQ(decoded.picture.width, picture.width);
  EXPECT_EQ(decoded.picture.height, picture.height);
}

TEST(ThumbnailOf, LeavesASmallPictureAsItIs) {
  const support::TempDir folder;
  const std::string path = (folder.Path() / "picture").string();
  const Picture picture = Gradient(7, 5);
  support::WriteFile(path, EncodePng(picture));
  EXPECT_EQ(DecodePicture("it", ThumbnailOf(path, {}).png).picture.pixels, picture.pixels);
}

TEST(ThumbnailOf, SaysWhyThereIsNone) {
  const support::TempDir folder;
  const std::string path = (folder.Path() / "picture").string();
  EXPECT_THAT(WhyNot(path), HasSubstr("picture"));
  support::WriteFile(path, "some text");
  EXPECT_THAT(WhyNot(path), HasSubstr("no picture of a kind that is known here"));
  const std::string bytes = EncodePng(Gradient(20, 20));
  support::WriteFile(path, bytes.substr(0, bytes.size() / 2));
  EXPECT_THAT(WhyNot(path), HasSubstr("cannot be decoded"));
  support::WriteFile(path, bytes);
  EXPECT_THAT(WhyNot(path, Xxh3Of("something else")), HasSubstr("has changed since"));
}

TEST(PictureTensorOf, KnowsShapesOfPictures) {
  const auto nchw = PictureTensorOf({1, 3, 20, 30}, false);
  ASSERT_TRUE(nchw.has_value());
  EXPECT_EQ(nchw->rows, 20U);
  EXPECT_EQ(nchw->columns, 30U);
  EXPECT_EQ(nchw->channels, 3U);
  EXPECT_TRUE(PictureTensorOf({20, 30, 1}, true).has_value());
  EXPECT_FALSE(PictureTensorOf({1, 4, 20, 30}, false).has_value());
  EXPECT_FALSE(PictureTensorOf({1, 3, 20, 30}, true).has_value());
  EXPECT_FALSE(PictureTensorOf({1, 1, 1, 1000}, false).has_value());
  EXPECT_FALSE(PictureTensorOf({1, 3, -1, 30}, false).has_value());
  EXPECT_FALSE(PictureTensorOf({1, 3, 100000, 100000}, false).has_value());
  EXPECT_FALSE(PictureTensorOf({3, 4}, false).has_value());
}

TEST(DrawTensor, IsBlackAtTheLeastAndWhiteAtTheMost) {
  const std::vector<float> values{-1, 0, 1, 3, NAN, INFINITY};
  const ReportPicture drawn =
      DrawTensor(values, {.rows = 2, .columns = 3, .channels = 1, .areChannelsLast = false});
  EXPECT_TRUE(drawn.isTensor);
  const Picture picture = DecodePicture("it", drawn.png).picture;
  const std::vector<int> expected{0, 64, 128, 255, 0, 0};
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(std::to_integer<int>(picture.pixels[i]), expected[i]) << i;
  }
}

TEST(DrawTensor, BringsChannelsTogether) {
  // Two pixels: all of red, then all of green, then all of blue.
  const std::vector<float> values{0, 255, 51, 102, 153, 204};
  const Picture first = DecodePicture("it", DrawTensor(values, {1, 2, 3, false}).png).picture;
  const Picture last =
      DecodePicture("it", DrawTensor({{0, 51, 153, 255, 102, 204}}, {1, 2, 3, true}).png).picture;
  EXPECT_EQ(first.pixels, last.pixels);
  EXPECT_EQ(std::to_integer<int>(first.pixels[1]), 51);
}

}  // namespace
}  // namespace vorn::kit
