#include "kit/picture/resize.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
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

Picture Window(const Picture& picture, const PixelWindow& window) {
  Picture cut = MakePicture(window.width, window.height, picture.channels, picture.type);
  for (uint32_t y = 0; y < window.height; ++y) {
    const auto* from = picture.Row<uint8_t>(window.top + y) + window.left * picture.channels;
    std::copy_n(from, cut.RowValues(), cut.Row<uint8_t>(y));
  }
  return cut;
}

std::unique_ptr<RowResizer> MakeRows(const RowResize& resize, Instructions instructions,
                                     TakeRow take) {
  return NameOf(resize.rule).starts_with("opencv")
             ? MakeOpencvRows(resize, std::move(take), instructions)
             : MakePillowRows(resize, std::move(take), instructions);
}

// The window of the resized picture, of rows that come so many at once.
Picture WindowByRows(const Picture& picture, const RowResize& resize, uint32_t atOnce,
                     const std::function<std::unique_ptr<RowResizer>(TakeRow)>& make) {
  Picture taken =
      MakePicture(resize.window.width, resize.window.height, picture.channels, picture.type);
  uint32_t rows = 0;
  const auto resizer = make([&](uint32_t y, const uint8_t* values) {
    EXPECT_EQ(y, rows++);
    std::copy_n(values, taken.RowValues(), taken.Row<uint8_t>(y));
  });
  EXPECT_NE(resizer, nullptr);
  for (uint32_t y = 0; resizer && y < picture.height; y += atOnce) {
    resizer->Add(picture.Row<uint8_t>(y), std::min(atOnce, picture.height - y));
  }
  EXPECT_EQ(rows, resize.window.height);
  return taken;
}

TEST(RowResizer, GivesTheWindowOfWhatResizeGives) {
  constexpr uint32_t kSizes[][4] = {{67, 45, 23, 19},  {67, 45, 130, 97}, {300, 33, 32, 33},
                                    {40, 210, 40, 64}, {64, 48, 32, 25},  {9, 7, 40, 3},
                                    {1, 1, 5, 6},      {37, 19, 1, 1},    {200, 150, 151, 113}};
  for (const std::string_view name : ResizeRuleNames()) {
    const ResizeRule rule = ResizeRuleNamed(name).value();
    const bool isByRows =
        name == "opencv-linear" || (name.starts_with("pil") && rule != ResizeRule::kPilNearest);
    for (const auto& [width, height, newWidth, newHeight] : kSizes) {
      for (const uint32_t channels : {1U, 3U}) {
        const Picture picture = MadePicture(width, height, channels, PixelType::kUint8);
        const Picture resized = Resize(picture, newWidth, newHeight, rule);
        for (const PixelWindow& window :
             {PixelWindow{0, 0, newWidth, newHeight},
              PixelWindow{newWidth / 3, newHeight / 4, (newWidth + 1) / 2, (newHeight + 2) / 3},
              PixelWindow{newWidth - 1, newHeight - 1, 1, 1}}) {
          const RowResize resize{width, height, channels, newWidth, newHeight, rule, window};
          const Picture expected = Window(resized, window);
          SCOPED_TRACE(std::string(name) + " " + resized.Description() + ", " +
                       expected.Description());
          const auto best = [&](TakeRow take) { return MakeRowResizer(resize, std::move(take)); };
          if (!isByRows) {
            EXPECT_EQ(best(nullptr), nullptr);
            continue;
          }
          for (const uint32_t atOnce : {1U, 5U, 16U, height}) {
            EXPECT_EQ(WindowByRows(picture, resize, atOnce, best).pixels, expected.pixels);
          }
          for (const Instructions instructions : InstructionsHere()) {
            const auto make = [&](TakeRow take) {
              return MakeRows(resize, instructions, std::move(take));
            };
            EXPECT_EQ(WindowByRows(picture, resize, 16, make).pixels, expected.pixels)
                << static_cast<int>(instructions);
          }
        }
      }
    }
  }
}

TEST(RowResizer, LeavesAPictureOfTheSameSizeByAnyRule) {
  const Picture picture = MadePicture(17, 23, 3, PixelType::kUint8);
  const PixelWindow window{3, 5, 11, 17};
  for (const std::string_view name : ResizeRuleNames()) {
    const RowResize resize{17, 23, 3, 17, 23, ResizeRuleNamed(name).value(), window};
    const Picture taken = WindowByRows(
        picture, resize, 4, [&](TakeRow take) { return MakeRowResizer(resize, std::move(take)); });
    EXPECT_EQ(taken.pixels, Window(picture, window).pixels) << name;
  }
}

TEST(RowResizer, IsNoneWhereThePictureIsNeededAsAWhole) {
  const RowResize fits{40, 30, 3, 19, 15, ResizeRule::kOpencvLinear, {0, 0, 19, 15}};
  EXPECT_NE(MakeRowResizer(fits, nullptr), nullptr);
  const auto isNone = [&](const std::function<void(RowResize&)>& change) {
    RowResize changed = fits;
    change(changed);
    return MakeRowResizer(changed, nullptr) == nullptr;
  };
  // Half of both sides is a mean.
  EXPECT_TRUE(isNone([](RowResize& resize) { resize.newWidth = 20; }));
  EXPECT_TRUE(isNone([](RowResize& resize) { resize.channels = 4; }));
  EXPECT_TRUE(isNone([](RowResize& resize) { resize.width = 0; }));
  EXPECT_TRUE(isNone([](RowResize& resize) { resize.newHeight = 1U << 30; }));
  EXPECT_TRUE(isNone([](RowResize& resize) { resize.window.left = 1; }));
  EXPECT_TRUE(isNone([](RowResize& resize) { resize.window.height = 0; }));
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
