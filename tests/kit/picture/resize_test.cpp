#include "kit/picture/resize.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>

#include "kit/common/fault.h"
#include "picture/reference.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// The numbers of make_references.py.
Picture MadePicture(uint32_t width, uint32_t height, uint32_t channels, PixelType type) {
  Picture picture = MakePicture(width, height, channels, type);
  uint32_t state = 12345;
  for (size_t i = 0; i < picture.RowValues() * height; ++i) {
    state = state * 1664525U + 1013904223U;
    switch (type) {
      case PixelType::kUint8:
        picture.Row<uint8_t>(0)[i] = static_cast<uint8_t>(state >> 24);
        break;
      case PixelType::kUint16:
        picture.Row<uint16_t>(0)[i] = static_cast<uint16_t>(state >> 16);
        break;
      case PixelType::kFloat32:
        picture.Row<float>(0)[i] = static_cast<float>(state >> 8) / 16777216 - 0.5F;
        break;
    }
  }
  return picture;
}

PixelType TypeNamed(const std::string& name) {
  for (const PixelType type : {PixelType::kUint8, PixelType::kUint16, PixelType::kFloat32}) {
    if (name == NameOf(type)) return type;
  }
  throw std::runtime_error("the type " + name);
}

std::optional<ResizeBox> BoxNamed(std::string text) {
  if (text == "-") return {};
  ResizeBox box;
  if (std::sscanf(text.c_str(), "%f,%f,%f,%f", &box.left, &box.top, &box.right, &box.bottom) != 4) {
    throw std::runtime_error("the box " + text);
  }
  return box;
}

TEST(Resize, GivesWhatTheOriginalsGive) {
  size_t cases = 0;
  for (const std::string& line :
       support::SplitLines(support::ReadFile(VORN_PICTURES "/resized.txt"))) {
    std::istringstream words(line);
    std::string rule;
    std::string type;
    uint32_t channels = 0;
    uint32_t size[4] = {};
    std::string box;
    std::string hash;
    words >> rule >> type >> channels >> size[0] >> size[1] >> size[2] >> size[3] >> box >> hash;
    const Picture resized = Resize(MadePicture(size[0], size[1], channels, TypeNamed(type)),
                                   size[2], size[3], ResizeRuleNamed(rule).value(), BoxNamed(box));
    EXPECT_EQ(HashOf(resized.pixels), hash) << line;
    ++cases;
  }
  EXPECT_GT(cases, 1000U);
}

TEST(Resize, LeavesFlatPicturesFlat) {
  for (const std::string_view name : ResizeRuleNames()) {
    for (const PixelType type : {PixelType::kUint8, PixelType::kUint16, PixelType::kFloat32}) {
      Picture picture = MakePicture(7, 5, 3, type);
      for (size_t i = 0; i < 7 * 5 * 3; ++i) {
        if (type == PixelType::kUint8) picture.Row<uint8_t>(0)[i] = 200;
        if (type == PixelType::kUint16) picture.Row<uint16_t>(0)[i] = 65535;
        if (type == PixelType::kFloat32) picture.Row<float>(0)[i] = -3;
      }
      const Picture resized = Resize(picture, 13, 3, ResizeRuleNamed(name).value());
      for (size_t i = 0; i < 13 * 3 * 3; ++i) {
        if (type == PixelType::kUint8) {
          EXPECT_EQ(resized.Row<uint8_t>(0)[i], 200) << name;
        } else if (type == PixelType::kUint16) {
          EXPECT_EQ(resized.Row<uint16_t>(0)[i], 65535) << name;
        } else {
          EXPECT_NEAR(resized.Row<float>(0)[i], -3, 1e-5) << name;
        }
      }
    }
  }
}

TEST(Resize, TakesABoxAsACropWhereThePixelsAreWhole) {
  const Picture picture = MadePicture(12, 9, 3, PixelType::kUint8);
  Picture crop = MakePicture(6, 4, 3, PixelType::kUint8);
  for (uint32_t y = 0; y < 4; ++y) {
    std::memcpy(crop.Row<uint8_t>(y), picture.Row<uint8_t>(y + 3) + 15, crop.RowBytes());
  }
  // With nothing of its neighbours, the same as the crop for a filter that is a box.
  EXPECT_EQ(Resize(picture, 3, 2, ResizeRule::kPilBox, ResizeBox{5, 3, 11, 7}).pixels,
            Resize(crop, 3, 2, ResizeRule::kPilBox).pixels);
  EXPECT_EQ(Resize(picture, 6, 4, ResizeRule::kPilNearest, ResizeBox{5, 3, 11, 7}).pixels,
            crop.pixels);
}

std::string RefusalOf(uint32_t channels, PixelType type, uint32_t width, uint32_t height,
                      ResizeRule rule, const std::optional<ResizeBox>& box = {}) {
  try {
    (void)Resize(MakePicture(4, 3, channels, type), width, height, rule, box);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "not refused";
}

TEST(Resize, RefusesWhatPillowHasNoModeFor) {
  EXPECT_EQ(RefusalOf(4, PixelType::kFloat32, 2, 2, ResizeRule::kPilBilinear),
            "resizing by pil-bilinear: Pillow has no alpha beside float32; drop the alpha or make "
            "it uint8 before");
  EXPECT_EQ(RefusalOf(2, PixelType::kUint16, 2, 2, ResizeRule::kOpencvLinear), "not refused");
}

TEST(Resize, RefusesSizesThatAreNone) {
  EXPECT_THAT(RefusalOf(1, PixelType::kUint8, 0, 2, ResizeRule::kOpencvArea),
              HasSubstr("a size of 0x2 is not resized"));
  EXPECT_THAT(RefusalOf(1, PixelType::kUint8, 2, 1U << 30, ResizeRule::kPilBox),
              HasSubstr("a size of 2x1073741824 is not resized"));
}

TEST(Resize, RefusesBoxesThatAreNone) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  for (const ResizeBox& box : {ResizeBox{0, 0, 5, 3}, ResizeBox{-1, 0, 4, 3}, ResizeBox{2, 0, 2, 3},
                               ResizeBox{3, 0, 1, 3}, ResizeBox{0, 0, 4, kNan}}) {
    EXPECT_THAT(RefusalOf(1, PixelType::kUint8, 2, 2, ResizeRule::kPilBilinear, box),
                HasSubstr("is empty or not inside of 4x3"));
  }
  EXPECT_THAT(
      RefusalOf(1, PixelType::kUint8, 2, 2, ResizeRule::kOpencvLinear, ResizeBox{0, 0, 4, 3}),
      HasSubstr("it takes no box; crop the picture before"));
}

TEST(ResizeRuleNamed, KnowsEveryNameAndNoOther) {
  for (const std::string_view name : ResizeRuleNames()) {
    EXPECT_EQ(NameOf(ResizeRuleNamed(name).value()), name);
  }
  EXPECT_FALSE(ResizeRuleNamed("bilinear"));
  EXPECT_EQ(ResizeRuleNames().size(), 10U);
}

}  // namespace
}  // namespace vorn::kit
