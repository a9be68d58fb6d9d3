#include "kit/report/picture_fit.h"

#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

Json Geometry(const char* text) { return ParseJson(text); }

// 8 x 4 pixels become 4 x 2, in the middle of 4 x 4.
TEST(PictureFit, TakesALetterboxBack) {
  const auto fit = FitOf(
      Geometry(R"({"picture": [4, 8], "resized": [2, 4], "cut": [0, 0], "placed": [1, 0]})"), 4, 4);
  ASSERT_TRUE(fit.has_value());
  EXPECT_EQ(fit->width, 8U);
  EXPECT_EQ(fit->height, 4U);
  const ReportBox box = fit->ToPicture({0.5, 0.25, 1, 0.75, 3, 0.9});
  EXPECT_DOUBLE_EQ(box.left, 0.5);
  EXPECT_DOUBLE_EQ(box.top, 0);
  EXPECT_DOUBLE_EQ(box.right, 1);
  EXPECT_DOUBLE_EQ(box.bottom, 1);
  EXPECT_EQ(box.label, 3);
  EXPECT_EQ(box.score, 0.9);
}

// 300 x 200 pixels become 384 x 256, of which the middle 224 x 224 are cut out.
TEST(PictureFit, TakesACropBack) {
  const auto fit = FitOf(
      Geometry(
          R"({"picture": [200, 300], "resized": [256, 384], "cut": [16, 80], "placed": [0, 0]})"),
      224, 224);
  ASSERT_TRUE(fit.has_value());
  // By hand: pixel 80 of 384 is the first that is seen, and 304 the first that is not any more.
  EXPECT_DOUBLE_EQ(fit->x.ToPicture(0), 80.0 / 384);
  EXPECT_DOUBLE_EQ(fit->x.ToPicture(1), 304.0 / 384);
  EXPECT_DOUBLE_EQ(fit->y.ToPicture(0.5), 0.5);
  for (const double share : {0.0, 0.3, 1.0}) {
    EXPECT_DOUBLE_EQ(fit->x.ToInput(fit->x.ToPicture(share)), share);
    EXPECT_DOUBLE_EQ(fit->y.ToInput(fit->y.ToPicture(share)), share);
  }
}

TEST(PictureFit, IsNoneOfWhatTellsNothing) {
  for (const char* text :
       {"{}", R"({"picture": 1})",
        R"({"picture": [4], "resized": [2, 4], "cut": [0, 0], "placed": [1, 0]})",
        R"({"picture": [4, 8], "resized": [0, 4], "cut": [0, 0], "placed": [1, 0]})",
        R"({"picture": [4, 8], "resized": [-2, 4], "cut": [0, 0], "placed": [1, 0]})"}) {
    EXPECT_FALSE(FitOf(Geometry(text), 4, 4).has_value()) << text;
  }
}

}  // namespace
}  // namespace vorn::kit
