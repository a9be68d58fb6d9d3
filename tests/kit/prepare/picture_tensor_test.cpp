#include "kit/prepare/picture_tensor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "kit/common/fault.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

Recipe Read(const std::string& members) {
  return RecipeFromJson(ParseJson(R"({"schema": 1, "name": "mine")" + members + "}"));
}

TensorDescription Input(std::vector<int64_t> shape, uint32_t type = VORN_FLOAT32) {
  TensorDescription input;
  input.name = "picture";
  input.shape = std::move(shape);
  input.type = type;
  input.elementBits = BitsOfType(type);
  input.format = VORN_FORMAT_NCHW;
  return input;
}

Picture Noise(uint32_t width, uint32_t height, uint32_t channels) {
  Picture picture = MakePicture(width, height, channels, PixelType::kUint8);
  std::mt19937 random(width * 1000 + height);
  for (std::byte& value : picture.pixels) value = static_cast<std::byte>(random());
  return picture;
}

uint8_t At(const Picture& picture, uint32_t y, uint32_t x, uint32_t c) {
  return picture.Row<uint8_t>(y)[x * picture.channels + c];
}

std::vector<float> Floats(const std::vector<std::byte>& bytes) {
  std::vector<float> values(bytes.size() / sizeof(float));
  std::memcpy(values.data(), bytes.data(), bytes.size());
  return values;
}

struct PictureTensor {
  std::vector<std::byte> bytes;
  PictureGeometry geometry;
};

PictureTensor Make(const Picture& picture, const Recipe& recipe, const TensorDescription& input,
                   int orientation = 1) {
  PictureTensor made;
  made.geometry = MakeTensor(picture, orientation, recipe, TargetOf(input, recipe), made.bytes);
  return made;
}

std::string WhyNot(const std::function<void()>& action) {
  try {
    action();
  } catch (const Fault& fault) {
    return fault.what();
  }
  return "it is taken";
}

TEST(MakeTensor, PutsChannelsBehindEachOtherOrFirst) {
  const Picture picture = Noise(3, 2, 3);
  const Recipe recipe = Read("");
  const std::vector<float> first = Floats(Make(picture, recipe, Input({1, 3, 2, 3})).bytes);
  TensorDescription last = Input({1, 2, 3, 3});
  const std::vector<float> behind =
      Floats(Make(picture, Read(R"(, "layout": "NHWC")"), last).bytes);
  for (uint32_t y = 0; y < 2; ++y) {
    for (uint32_t x = 0; x < 3; ++x) {
      for (uint32_t c = 0; c < 3; ++c) {
        const float value = At(picture, y, x, c);
        EXPECT_EQ(first[(c * 2 + y) * 3 + x], value);
        EXPECT_EQ(behind[(y * 3 + x) * 3 + c], value);
      }
    }
  }
}

TEST(MakeTensor, ComputesStepByStepInFloat32) {
  const Picture picture = Noise(16, 16, 3);
  const Recipe recipe = Read(R"(, "values": [{"divide": 255}, {"subtract": [0.485, 0.456, 0.406]},
                                 {"divide": [0.229, 0.224, 0.225]}])");
  const std::vector<float> made = Floats(Make(picture, recipe, Input({1, 3, 16, 16})).bytes);
  const float mean[3] = {0.485F, 0.456F, 0.406F};
  const float deviation[3] = {0.229F, 0.224F, 0.225F};
  for (uint32_t i = 0; i < 16 * 16; ++i) {
    for (uint32_t c = 0; c < 3; ++c) {
      volatile float value = static_cast<float>(At(picture, i / 16, i % 16, c)) / 255.0F;
      value = value - mean[c];
      value = value / deviation[c];
      ASSERT_EQ(made[c * 256 + i], value);
    }
  }
}

TEST(MakeTensor, TakesColoursInTheirOrder) {
  const Picture picture = Noise(4, 4, 4);
  const auto bytes = [&](const char* colours, int channels) {
    return Make(picture, Read(std::string(R"(, "colours": ")") + colours + "\""),
                Input({1, channels, 4, 4}, VORN_UINT8))
        .bytes;
  };
  const auto value = [&](uint32_t c) { return static_cast<std::byte>(At(picture, 1, 2, c)); };
  EXPECT_EQ(bytes("bgr", 3)[6], value(2));
  EXPECT_EQ(bytes("bgr", 3)[32 + 6], value(0));
  EXPECT_EQ(bytes("rgba", 4)[48 + 6], value(3));
  EXPECT_EQ(bytes("bgra", 4)[6], value(2));
  const double grey =
      0.299 * At(picture, 1, 2, 0) + 0.587 * At(picture, 1, 2, 1) + 0.114 * At(picture, 1, 2, 2);
  EXPECT_NEAR(static_cast<double>(bytes("grey-pil", 1)[6]), grey, 0.51);
  EXPECT_NEAR(static_cast<double>(bytes("grey-opencv", 1)[6]), grey, 0.51);
}

// What cvtColor(…, COLOR_BGR2GRAY) of OpenCV 4.6 gives, on a processor with AVX2.
TEST(MakeTensor, MakesOpencvsGreyOfBytes) {
  Picture picture = MakePicture(5, 1, 3, PixelType::kUint8);
  const uint8_t colours[] = {0, 0, 250, 50, 218, 49, 102, 232, 130, 155, 229, 138, 209, 104, 140};
  std::memcpy(picture.pixels.data(), colours, sizeof colours);
  const std::vector<std::byte> made =
      Make(picture, Read(R"(, "colours": "grey-opencv")"), Input({1, 1, 1, 5}, VORN_UINT8)).bytes;
  const uint8_t greys[] = {28, 149, 182, 197, 139};
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(made[i], std::byte{greys[i]}) << i;
}

TEST(MakeTensor, MakesOpencvsGreyOfSixteenBits) {
  Picture picture = MakePicture(6, 1, 3, PixelType::kUint16);
  const uint16_t colours[] = {33813, 27104, 34673, 22037, 65186, 50937, 36237, 47940, 64571,
                              16753, 49353, 37222, 13257, 22858, 58443, 52189, 34595, 39402};
  std::memcpy(picture.pixels.data(), colours, sizeof colours);
  const std::vector<float> made = Floats(
      Make(picture, Read(R"(, "depth": "stored", "colours": "grey-opencv")"), Input({1, 1, 1, 6}))
          .bytes);
  EXPECT_EQ(made, (std::vector<float>{29973, 50660, 46336, 38223, 24043, 40404}));
}

// Eight pixels at a time, and what is left of a row one by one, which rounds in another order.
TEST(MakeTensor, MakesOpencvsGreyOfFloats) {
  Picture picture = MakePicture(9, 2, 3, PixelType::kFloat32);
  const int colours[] = {59,  30,  89,  201, 148, 184, 235, 88, 43, 4,  2,  166, 171, 181,
                         208, 249, 137, 253, 136, 226, 131, 7,  83, 58, 69, 104, 110};
  auto* to = reinterpret_cast<float*>(picture.pixels.data());
  for (size_t i = 0; i < 54; ++i) to[i] = static_cast<float>(colours[i % 27] / 255.0);
  const std::vector<float> made =
      Floats(Make(picture, Read(R"(, "colours": "grey-opencv")"), Input({1, 1, 2, 9})).bytes);
  const float greys[] = {0x1.6c99a80000000p-3F, 0x1.5138220000000p-1F, 0x1.fd480a0000000p-2F,
                         0x1.560a440000000p-4F, 0x1.6b98a80000000p-1F, 0x1.70dd6a0000000p-1F,
                         0x1.79ff1e0000000p-1F, 0x1.cd35aa0000000p-3F, 0x1.7a5a9e0000000p-2F};
  for (size_t i = 0; i < 18; ++i) EXPECT_EQ(made[i], greys[i % 9]) << i;
}

TEST(MakeTensor, MakesGreyPicturesColoured) {
  const Picture picture = Noise(2, 2, 1);
  const PictureTensor made = Make(picture, Read(""), Input({1, 3, 2, 2}, VORN_UINT8));
  for (size_t c = 0; c < 3; ++c) EXPECT_EQ(made.bytes[c * 4 + 1], picture.pixels[1]);
}

TEST(MakeTensor, DropsAlphaOrPutsThePictureOverAColour) {
  Picture picture = MakePicture(1, 1, 4, PixelType::kUint8);
  const uint8_t pixel[4] = {100, 200, 50, 64};
  std::memcpy(picture.pixels.data(), pixel, 4);
  const TensorDescription input = Input({1, 3, 1, 1}, VORN_UINT8);
  EXPECT_EQ(Make(picture, Read(""), input).bytes[1], std::byte{200});
  const std::vector<std::byte> over =
      Make(picture, Read(R"(, "alpha": {"over": [255, 0, 10]})"), input).bytes;
  EXPECT_EQ(static_cast<int>(over[0]), std::lround((100 * 64 + 255 * 191) / 255.0));
  EXPECT_EQ(static_cast<int>(over[1]), std::lround((200 * 64 + 0 * 191) / 255.0));
  EXPECT_EQ(static_cast<int>(over[2]), std::lround((50 * 64 + 10 * 191) / 255.0));
}

TEST(MakeTensor, CutsOutTheMiddle) {
  const Picture picture = Noise(7, 6, 1);
  const TensorDescription input = Input({1, 1, 3, 4}, VORN_UINT8);
  // (7 − 4) / 2 = 1.5: to the even one, or down; (6 − 3) / 2 = 1.5 as well.
  const PictureTensor even = Make(picture, Read(R"(, "colours": "grey-pil", "crop": {})"), input);
  EXPECT_EQ(even.geometry.cutLeft, 2U);
  EXPECT_EQ(even.geometry.cutTop, 2U);
  EXPECT_EQ(even.bytes[0], static_cast<std::byte>(At(picture, 2, 2, 0)));
  const PictureTensor down =
      Make(picture, Read(R"(, "colours": "grey-pil", "crop": {"rounding": "down"})"), input);
  EXPECT_EQ(down.bytes[0], static_cast<std::byte>(At(picture, 1, 1, 0)));
  EXPECT_EQ(down.bytes[11], static_cast<std::byte>(At(picture, 3, 4, 0)));
}

TEST(MakeTensor, FitsTheShorterSide) {
  const Recipe recipe =
      Read(R"(, "resize": {"rule": "pil-nearest", "fit": "shorter", "size": 8}, "crop": {})");
  const PictureTensor wide = Make(Noise(33, 16, 3), recipe, Input({1, 3, 8, 8}, VORN_UINT8));
  EXPECT_EQ(wide.geometry.resized, (PictureSize{.width = 16, .height = 8}));  // 16.5 down
  EXPECT_EQ(wide.geometry.cutLeft, 4U);
  const PictureTensor tall = Make(Noise(16, 33, 3), recipe, Input({1, 3, 8, 8}, VORN_UINT8));
  EXPECT_EQ(tall.geometry.resized, (PictureSize{.width = 8, .height = 16}));
}

TEST(MakeTensor, FillsWhatALetterboxLeaves) {
  const Recipe recipe =
      Read(R"(, "resize": {"rule": "opencv-nearest", "fit": "letterbox", "fill": [1, 2, 3]})");
  // 8x4 into 9x9: the ratio is 9/8, 4.5 rows round to the even 4, and 5 are left: 2 above.
  const PictureTensor made = Make(Noise(8, 4, 3), recipe, Input({1, 3, 9, 9}, VORN_UINT8));
  EXPECT_EQ(made.geometry.resized, (PictureSize{.width = 9, .height = 4}));
  EXPECT_EQ(made.geometry.placedTop, 2U);
  EXPECT_EQ(made.geometry.placedLeft, 0U);
  for (size_t c = 0; c < 3; ++c) {
    EXPECT_EQ(made.bytes[c * 81 + 9], static_cast<std::byte>(c + 1));
    EXPECT_EQ(made.bytes[c * 81 + 80], static_cast<std::byte>(c + 1));
  }
  const PictureTensor small =
      Make(Noise(2, 2, 3),
           Read(R"(, "resize": {"rule": "opencv-nearest", "fit": "letterbox", "enlarge": false,
               "placement": "top-left"})"),
           Input({1, 3, 9, 9}, VORN_UINT8));
  EXPECT_EQ(small.geometry.resized, (PictureSize{.width = 2, .height = 2}));
  EXPECT_EQ(small.bytes[2], std::byte{114});
}

TEST(MakeTensor, FollowsTheOrientationOrNot) {
  const Picture picture = Noise(4, 2, 1);
  const PictureTensor turned =
      Make(picture, Read(R"(, "colours": "grey-pil")"), Input({1, 1, 4, 2}, VORN_UINT8), 6);
  EXPECT_EQ(turned.geometry.orientation, 6);
  EXPECT_EQ(turned.bytes[0], static_cast<std::byte>(At(picture, 1, 0, 0)));
  const PictureTensor stored =
      Make(picture, Read(R"(, "colours": "grey-pil", "orientation": "stored")"),
           Input({1, 1, 2, 4}, VORN_UINT8), 6);
  EXPECT_TRUE(std::ranges::equal(stored.bytes, picture.pixels));
}

TEST(MakeTensor, Quantises) {
  const Picture picture = Noise(8, 8, 1);
  const PictureTensor made =
      Make(picture, Read(R"(, "colours": "grey-pil", "values": [{"divide": 255}],
                    "quantisation": {"scale": 0.0078125, "zeroPoint": -10})"),
           Input({1, 1, 8, 8}, VORN_INT8));
  for (size_t i = 0; i < 64; ++i) {
    const float value = static_cast<float>(picture.pixels[i]) / 255.0F;
    const double expected =
        std::clamp(std::nearbyint(static_cast<double>(value) / 0.0078125) - 10, -128.0, 127.0);
    ASSERT_EQ(static_cast<int8_t>(made.bytes[i]), static_cast<int>(expected));
  }
}

TEST(MakeTensor, KeepsSixteenBitsIfAsked) {
  Picture picture = MakePicture(1, 1, 1, PixelType::kUint16);
  *picture.Row<uint16_t>(0) = 0x1234;
  const TensorDescription input = Input({1, 1, 1, 1}, VORN_FLOAT32);
  EXPECT_EQ(
      Floats(Make(picture, Read(R"(, "colours": "grey-pil", "depth": "stored")"), input).bytes),
      (std::vector<float>{0x1234}));
  EXPECT_EQ(Floats(Make(picture, Read(R"(, "colours": "grey-pil")"), input).bytes),
            (std::vector<float>{0x12}));
}

TEST(MakeTensor, SaysWhatDoesNotFit) {
  EXPECT_EQ(WhyNot([] {
              (void)Make(Noise(5, 4, 3), Read(""), Input({1, 3, 8, 8}));
            }),
            "is 5x4 at the end of the recipe 'mine', and the input takes 8x8; put a \"resize\" or "
            "\"crop\" to \"model\" into it");
  EXPECT_EQ(WhyNot([] {
              (void)Make(Noise(5, 9, 3), Read(R"(, "crop": {})"), Input({1, 3, 8, 8}));
            }),
            "is 5x9 where the recipe crops, and 8x8 are to be cut out; resize to more before");
  Picture one = MakePicture(1, 1, 1, PixelType::kUint8);
  one.pixels[0] = std::byte{1};
  EXPECT_EQ(WhyNot([&] {
              (void)Make(one, Read(R"(, "colours": "grey-pil", "values": [{"divide": 255}])"),
                         Input({1, 1, 1, 1}, VORN_UINT8));
            }),
            "comes to the value 0.00392156886, which is none of uint8; put a \"quantisation\" into "
            "the recipe");
}

Picture Mirrored(const Picture& picture) {
  Picture mirrored = picture;
  for (uint32_t y = 0; y < picture.height; ++y) {
    for (uint32_t x = 0; x < picture.width; ++x) {
      std::copy_n(picture.Row<uint8_t>(y) + x * picture.channels, picture.channels,
                  mirrored.Row<uint8_t>(y) + (picture.width - 1 - x) * picture.channels);
    }
  }
  return mirrored;
}

bool operator==(const PictureGeometry& a, const PictureGeometry& b) {
  return a.picture == b.picture && a.resized == b.resized && a.cutLeft == b.cutLeft &&
         a.cutTop == b.cutTop && a.placedLeft == b.placedLeft && a.placedTop == b.placedTop;
}

// A mirrored picture that is to be mirrored is needed as a whole. What is made of it step by step
// is what is made of its rows.
TEST(TensorMaker, MakesTheSameOfRowsAsOfTheWhole) {
  const char* const recipes[] = {
      "",
      R"(, "crop": {})",
      R"(, "resize": {"rule": "opencv-linear"}, "colours": "bgr")",
      R"(, "resize": {"rule": "pil-bilinear", "fit": "shorter", "size": 40}, "crop": {},
          "values": [{"divide": 255}, {"subtract": [0.485, 0.456, 0.406]}])",
      R"(, "resize": {"rule": "opencv-linear", "fit": "shorter", "size": 33}, "crop": {})",
      R"(, "resize": {"rule": "pil-bicubic", "fit": "letterbox", "fill": [1, 200, 3]})",
      R"(, "resize": {"rule": "opencv-linear", "fit": "letterbox", "placement": "top-left"},
          "colours": "bgr", "values": [{"divide": 255}])",
      R"(, "resize": {"rule": "opencv-linear", "fit": "letterbox", "enlarge": false})",
  };
  for (const char* members : recipes) {
    for (const char* layout : {"NCHW", "NHWC"}) {
      const Recipe recipe = Read(std::string(members) + R"(, "layout": ")" + layout + "\"");
      const bool isFirst = std::string(layout) == "NCHW";
      const TensorDescription input =
          Input(isFirst ? std::vector<int64_t>{1, 3, 32, 32} : std::vector<int64_t>{1, 32, 32, 3});
      TensorMaker maker(recipe, TargetOf(input, recipe));
      // One behind the other, so that one leaves nothing in the next.
      for (const auto& [width, height] :
           {std::pair(90U, 61U), std::pair(32U, 32U), std::pair(50U, 130U), std::pair(20U, 33U)}) {
        for (const uint32_t channels : {1U, 3U}) {
          SCOPED_TRACE(std::string(members) + layout + " " + std::to_string(width));
          const Picture picture = Noise(width, height, channels);
          PictureTensor whole;
          try {
            whole = Make(Mirrored(picture), recipe, input, 2);
          } catch (const Fault&) {
            EXPECT_FALSE(maker.Begin({width, height, channels, PixelType::kUint8, 1}));
            continue;
          }
          std::vector<std::byte> bytes;
          maker.MakeInto(bytes);
          ASSERT_TRUE(maker.Begin({width, height, channels, PixelType::kUint8, 1}));
          for (uint32_t y = 0; y < height; y += 7) {
            maker.Take(picture.Row<std::byte>(y), std::min(7U, height - y));
          }
          EXPECT_EQ(bytes, whole.bytes);
          EXPECT_TRUE(maker.Geometry() == whole.geometry);
        }
      }
    }
  }
}

TEST(TensorMaker, TakesNoRowsWhereThePictureIsNeededAsAWhole) {
  const auto takes = [](const std::string& members, const PictureHead& head) {
    const Recipe recipe = Read(members);
    const auto channels = static_cast<int64_t>(ChannelsOf(recipe.colours));
    TensorMaker maker(recipe, TargetOf(Input({1, channels, 16, 16}), recipe));
    std::vector<std::byte> bytes;
    maker.MakeInto(bytes);
    return maker.Begin(head);
  };
  const std::string resized = R"(, "resize": {"rule": "opencv-linear"})";
  const PictureHead head{40, 30, 3, PixelType::kUint8, 1};
  EXPECT_TRUE(takes(resized, head));
  EXPECT_TRUE(takes(resized + R"(, "orientation": "stored")", {40, 30, 3, PixelType::kUint8, 6}));
  EXPECT_FALSE(takes(resized, {40, 30, 3, PixelType::kUint8, 6}));
  EXPECT_FALSE(takes(resized, {40, 30, 3, PixelType::kUint16, 1}));
  EXPECT_FALSE(takes(resized, {40, 30, 4, PixelType::kUint8, 1}));
  EXPECT_FALSE(takes(resized, {32, 32, 3, PixelType::kUint8, 1}));
  EXPECT_FALSE(takes(resized + R"(, "colours": "grey-opencv")", head));
  EXPECT_TRUE(takes(resized + R"(, "colours": "grey-opencv")", {40, 30, 1, PixelType::kUint8, 1}));
  EXPECT_FALSE(takes(resized + R"(, "colours": "rgba")", head));
  EXPECT_FALSE(takes("", head));
  EXPECT_FALSE(takes(R"(, "resize": {"rule": "opencv-area"})", head));
  EXPECT_FALSE(takes(R"(, "resize": {"rule": "opencv-linear", "as": "float32"})", head));
  EXPECT_FALSE(takes(R"(, "resize": {"rule": "opencv-linear", "fit": "letterbox",
                         "size": [20, 20]}, "crop": {})",
                     head));
}

TEST(TargetOf, TellsTheLayoutByTheShape) {
  EXPECT_TRUE(TargetOf(Input({1, 3, 224, 224}), Read("")).areChannelsFirst);
  EXPECT_FALSE(TargetOf(Input({1, 224, 224, 3}), Read("")).areChannelsFirst);
  EXPECT_FALSE(TargetOf(Input({224, 200, 3}), Read("")).areChannelsFirst);
  EXPECT_EQ(TargetOf(Input({1, 224, 200, 3}), Read("")).size,
            (PictureSize{.width = 200, .height = 224}));
  TensorDescription both = Input({1, 3, 100, 3});
  EXPECT_TRUE(TargetOf(both, Read("")).areChannelsFirst);
  both.format = VORN_FORMAT_ND;
  EXPECT_NE(WhyNot([&] { (void)TargetOf(both, Read("")); }).find("put \"layout\": \"NCHW\""),
            std::string::npos);
  EXPECT_NE(WhyNot([] { (void)TargetOf(Input({1, 10}), Read("")); }), "it is taken");
  EXPECT_NE(WhyNot([] {
              (void)TargetOf(Input({1, 1, 8, 8}), Read(""));
            }).find("with 1 channels in front, and the recipe 'mine' gives 3"),
            std::string::npos);
}

TEST(WhyNotStored, FindsFractionsAndWhatIsTooLarge) {
  EXPECT_EQ(WhyNotStored(Read(""), ElementType::kUint8), "");
  EXPECT_EQ(WhyNotStored(Read(R"(, "values": [{"divide": 255}])"), ElementType::kUint8),
            "a pixel of 1 comes to 0.00392156886, which is none of uint8; put a \"quantisation\" "
            "into the recipe, or leave out its \"values\"");
  EXPECT_NE(WhyNotStored(Read(""), ElementType::kInt8), "");
  EXPECT_EQ(WhyNotStored(Read(R"(, "values": [{"subtract": 128}])"), ElementType::kInt8), "");
}

}  // namespace
}  // namespace vorn::kit
