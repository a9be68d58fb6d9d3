#include "kit/picture/resize.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>

#include "kit/common/fault.h"
#include "kit/picture/resize_rules.h"
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

std::optional<ResizeBox> BoxNamed(const std::string& text) {
  if (text == "-") return {};
  ResizeBox box;
  if (std::sscanf(text.c_str(), "%f,%f,%f,%f", &box.left, &box.top, &box.right, &box.bottom) != 4) {
    throw std::runtime_error("the box " + text);
  }
  return box;
}

// As Resize does it, with instructions that are not the best ones of this processor.
Picture ResizeWith(Instructions instructions, const Picture& picture, uint32_t width,
                   uint32_t height, ResizeRule rule, const std::optional<ResizeBox>& box = {}) {
  if (NameOf(rule).starts_with("opencv")) {
    return ResizeAsOpencv(picture, width, height, rule, instructions);
  }
  const ResizeBox whole{0, 0, static_cast<float>(picture.width),
                        static_cast<float>(picture.height)};
  return ResizeAsPillow(picture, width, height, rule, box.value_or(whole), instructions);
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
    const Picture picture = MadePicture(size[0], size[1], channels, TypeNamed(type));
    const Picture resized =
        Resize(picture, size[2], size[3], ResizeRuleNamed(rule).value(), BoxNamed(box));
    EXPECT_EQ(HashOf(resized.pixels), hash) << line;
    for (const Instructions instructions : InstructionsHere()) {
      const Picture same = ResizeWith(instructions, picture, size[2], size[3],
                                      ResizeRuleNamed(rule).value(), BoxNamed(box));
      EXPECT_EQ(HashOf(same.pixels), hash) << line << ", " << static_cast<int>(instructions);
    }
    ++cases;
  }
  EXPECT_GT(cases, 1000U);
}

// One value of a picture, 0 beyond the border.
int32_t ValueAt(const Picture& picture, int64_t x, int64_t y, uint32_t c) {
  if (x < 0 || y < 0 || x >= picture.width || y >= picture.height) return 0;
  return picture.Row<uint8_t>(static_cast<uint32_t>(y))[x * picture.channels + c];
}

// The triangle over all pixels of a line, by the formulas at the head of resize_pillow.cpp.
std::vector<int32_t> TriangleWeights(uint32_t inSize, uint32_t outSize, uint32_t out) {
  const double scale = static_cast<double>(inSize) / outSize;
  const double widening = std::max(scale, 1.0);
  const double centre = (out + 0.5) * scale;
  std::vector<double> weights(inSize);
  double sum = 0;
  for (uint32_t i = 0; i < inSize; ++i) {
    // Whose middle, rounded half up, lies within the support.
    const bool isTaken = i >= static_cast<int64_t>(std::max(centre - widening + 0.5, 0.0)) &&
                         i < static_cast<int64_t>(std::floor(centre + widening + 0.5));
    const double x = std::abs((i - centre + 0.5) * (1.0 / widening));
    if (isTaken && x < 1) weights[i] = 1 - x;
    sum += weights[i];
  }
  std::vector<int32_t> whole(inSize);
  for (uint32_t i = 0; i < inSize; ++i) {
    whole[i] = static_cast<int32_t>(std::floor(weights[i] / sum * (1 << 22) + 0.5));
  }
  return whole;
}

uint8_t WholeOf(int64_t sum) {
  return static_cast<uint8_t>(std::clamp<int64_t>((sum + (1 << 21)) >> 22, 0, 255));
}

// Columns, and then rows, each value by itself.
Picture SlowPilBilinear(const Picture& picture, uint32_t width, uint32_t height) {
  Picture narrow = MakePicture(width, picture.height, picture.channels, PixelType::kUint8);
  Picture resized = MakePicture(width, height, picture.channels, PixelType::kUint8);
  for (uint32_t x = 0; x < width; ++x) {
    const auto weights = TriangleWeights(picture.width, width, x);
    for (uint32_t y = 0; y < picture.height; ++y) {
      for (uint32_t c = 0; c < picture.channels; ++c) {
        int64_t sum = 0;
        for (uint32_t i = 0; i < picture.width; ++i) sum += weights[i] * ValueAt(picture, i, y, c);
        narrow.Row<uint8_t>(y)[x * picture.channels + c] = WholeOf(sum);
      }
    }
  }
  for (uint32_t y = 0; y < height; ++y) {
    const auto weights = TriangleWeights(picture.height, height, y);
    for (uint32_t x = 0; x < width; ++x) {
      for (uint32_t c = 0; c < picture.channels; ++c) {
        int64_t sum = 0;
        for (uint32_t i = 0; i < picture.height; ++i) sum += weights[i] * ValueAt(narrow, x, i, c);
        resized.Row<uint8_t>(y)[x * picture.channels + c] = WholeOf(sum);
      }
    }
  }
  return resized;
}

struct TwoTaps {
  int64_t places[2];
  int32_t weights[2];
};

// By the formulas at the head of resize_opencv.cpp.
TwoTaps TwoTapsOf(uint32_t inSize, uint32_t outSize, uint32_t out, bool isColumn) {
  const double scale = 1.0 / (static_cast<double>(outSize) / inSize);
  auto rest = static_cast<float>((out + 0.5) * scale - 0.5);
  auto place = static_cast<int64_t>(std::floor(rest));
  rest -= static_cast<float>(place);
  if (isColumn && (place < 0 || place >= int64_t{inSize} - 1)) {
    place = place < 0 ? 0 : int64_t{inSize} - 1;
    rest = 0;
  }
  const int64_t last = int64_t{inSize} - 1;
  return {{std::clamp<int64_t>(place, 0, last), std::clamp<int64_t>(place + 1, 0, last)},
          {static_cast<int32_t>(std::nearbyint((1.F - rest) * 2048.F)),
           static_cast<int32_t>(std::nearbyint(rest * 2048.F))}};
}

Picture SlowOpencvLinear(const Picture& picture, uint32_t width, uint32_t height) {
  Picture resized = MakePicture(width, height, picture.channels, PixelType::kUint8);
  for (uint32_t y = 0; y < height; ++y) {
    const TwoTaps rows = TwoTapsOf(picture.height, height, y, false);
    for (uint32_t x = 0; x < width; ++x) {
      const TwoTaps columns = TwoTapsOf(picture.width, width, x, true);
      for (uint32_t c = 0; c < picture.channels; ++c) {
        int32_t sum = 2;
        for (size_t row = 0; row < 2; ++row) {
          int32_t across = 0;
          for (size_t column = 0; column < 2; ++column) {
            across += columns.weights[column] *
                      ValueAt(picture, columns.places[column], rows.places[row], c);
          }
          sum += (across >> 4) * rows.weights[row] >> 16;
        }
        resized.Row<uint8_t>(y)[x * picture.channels + c] =
            static_cast<uint8_t>(std::clamp(sum >> 2, 0, 255));
      }
    }
  }
  return resized;
}

// Sizes around those of vectors, one pixel wide or high, larger and smaller.
TEST(Resize, GivesTheSameWithAllInstructions) {
  const uint32_t sizes[][4] = {
      {1, 1, 5, 3},    {3, 2, 1, 1},    {5, 7, 4, 9},    {16, 16, 5, 5}, {17, 33, 16, 15},
      {31, 18, 37, 7}, {64, 3, 21, 19}, {33, 47, 66, 1}, {1, 40, 6, 13}, {100, 35, 32, 34},
      {2, 9, 90, 9},   {40, 1, 17, 1},  {6, 50, 5, 49},  {7, 5, 15, 10}, {95, 61, 11, 6}};
  for (const auto& size : sizes) {
    const uint32_t width = size[0];
    const uint32_t height = size[1];
    const uint32_t newWidth = size[2];
    const uint32_t newHeight = size[3];
    for (uint32_t channels = 1; channels <= 3; channels += 2) {
      // Noise, and the largest values only, of which sums are the largest.
      Picture white = MakePicture(width, height, channels, PixelType::kUint8);
      std::fill(white.pixels.begin(), white.pixels.end(), std::byte{255});
      for (const Picture& picture :
           {MadePicture(width, height, channels, PixelType::kUint8), white}) {
        const Picture pillow = SlowPilBilinear(picture, newWidth, newHeight);
        const Picture opencv = SlowOpencvLinear(picture, newWidth, newHeight);
        for (const Instructions instructions : InstructionsHere()) {
          const auto made = [&](ResizeRule rule) {
            return ResizeWith(instructions, picture, newWidth, newHeight, rule);
          };
          const std::string what = testing::PrintToString(std::vector{
              width, height, newWidth, newHeight, channels, static_cast<uint32_t>(instructions)});
          EXPECT_EQ(made(ResizeRule::kPilBilinear).pixels, pillow.pixels) << what;
          EXPECT_EQ(made(ResizeRule::kOpencvLinear).pixels, opencv.pixels) << what;
        }
      }
    }
  }
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
  // One column more than fits; the box is what is wrong behind the size, before anything is made.
  const ResizeBox box{0, 0, 4, 3};
  EXPECT_THAT(RefusalOf(1, PixelType::kUint8, 65536, 65535, ResizeRule::kOpencvNearest, box),
              HasSubstr("a size of 65536x65535 is not resized"));
  EXPECT_THAT(RefusalOf(1, PixelType::kUint8, 65535, 65535, ResizeRule::kOpencvNearest, box),
              HasSubstr("it takes no box"));
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
