#include "kit/picture/picture.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

// Where the pixel at (x, y) of the turned picture was before, in pixels of `width` and `height`.
struct Turn {
  bool isTransposed;
  bool isFromRight;
  bool isFromBottom;
};

Turn TurnOf(int orientation) {
  switch (orientation) {
    case 2:
      return {false, true, false};
    case 3:
      return {false, true, true};
    case 4:
      return {false, false, true};
    case 5:
      return {true, false, false};
    case 6:
      return {true, false, true};
    case 7:
      return {true, true, true};
    case 8:
      return {true, true, false};
    default:
      return {false, false, false};
  }
}

template <size_t kBytes>
void TurnPixels(const Picture& from, Turn turn, Picture& to) {
  const std::byte* source = from.pixels.data();
  std::byte* target = to.pixels.data();
  for (uint32_t y = 0; y < to.height; ++y) {
    for (uint32_t x = 0; x < to.width; ++x) {
      uint32_t fromX = turn.isTransposed ? y : x;
      uint32_t fromY = turn.isTransposed ? x : y;
      if (turn.isFromRight) fromX = from.width - 1 - fromX;
      if (turn.isFromBottom) fromY = from.height - 1 - fromY;
      std::memcpy(target, source + (size_t{fromY} * from.width + fromX) * kBytes, kBytes);
      target += kBytes;
    }
  }
}

using TurnFunction = void (*)(const Picture&, Turn, Picture&);

TurnFunction TurnPixelsOf(size_t bytes) {
  switch (bytes) {
    case 1:
      return TurnPixels<1>;
    case 2:
      return TurnPixels<2>;
    case 3:
      return TurnPixels<3>;
    case 4:
      return TurnPixels<4>;
    case 6:
      return TurnPixels<6>;
    case 8:
      return TurnPixels<8>;
    case 12:
      return TurnPixels<12>;
    default:
      return TurnPixels<16>;
  }
}

}  // namespace

size_t BytesOf(PixelType type) {
  switch (type) {
    case PixelType::kUint8:
      return 1;
    case PixelType::kUint16:
      return 2;
    case PixelType::kFloat32:
      return 4;
  }
  return 0;
}

const char* NameOf(PixelType type) {
  switch (type) {
    case PixelType::kUint8:
      return "uint8";
    case PixelType::kUint16:
      return "uint16";
    case PixelType::kFloat32:
      return "float32";
  }
  return "";
}

std::string Picture::Description() const {
  return std::to_string(width) + "x" + std::to_string(height) + ", " +
         Counted(channels, "channel") + " of " + NameOf(type);
}

Picture MakePicture(uint32_t width, uint32_t height, uint32_t channels, PixelType type) {
  Picture picture = MakeUnclearedPicture(width, height, channels, type);
  std::fill(picture.pixels.begin(), picture.pixels.end(), std::byte{0});
  return picture;
}

Picture MakeUnclearedPicture(uint32_t width, uint32_t height, uint32_t channels, PixelType type) {
  Picture picture{width, height, channels, type, {}};
  picture.pixels.resize(picture.RowBytes() * height);
  return picture;
}

Picture ApplyOrientation(Picture picture, int orientation) {
  if (orientation < 2 || orientation > 8) return picture;
  const Turn turn = TurnOf(orientation);
  Picture turned = MakeUnclearedPicture(turn.isTransposed ? picture.height : picture.width,
                                        turn.isTransposed ? picture.width : picture.height,
                                        picture.channels, picture.type);
  TurnPixelsOf(picture.channels * BytesOf(picture.type))(picture, turn, turned);
  return turned;
}

Picture UpperBytes(Picture picture) {
  if (picture.type != PixelType::kUint16) return picture;
  Picture upper =
      MakeUnclearedPicture(picture.width, picture.height, picture.channels, PixelType::kUint8);
  for (uint32_t y = 0; y < picture.height; ++y) {
    const auto* from = picture.Row<uint16_t>(y);
    std::transform(from, from + picture.RowValues(), upper.Row<uint8_t>(y),
                   [](uint16_t value) { return static_cast<uint8_t>(value >> 8); });
  }
  return upper;
}

Picture WithoutAlpha(Picture picture) {
  if (!picture.HasAlpha()) return picture;
  Picture plain =
      MakeUnclearedPicture(picture.width, picture.height, picture.channels - 1, picture.type);
  const size_t wide = picture.channels * BytesOf(picture.type);
  const size_t narrow = plain.channels * BytesOf(plain.type);
  const std::byte* from = picture.pixels.data();
  for (std::byte* to = plain.pixels.data(); to != plain.pixels.data() + plain.pixels.size();
       to += narrow, from += wide) {
    std::memcpy(to, from, narrow);
  }
  return plain;
}

}  // namespace vorn::kit
