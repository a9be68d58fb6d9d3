// Files of pictures, and resizing: the first byte says which decoder, the rest is the file, whose
// magic bytes are put right. It is refused with a line that a person can read, or a picture comes
// out that is whole, and the same one again when it is decoded again.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/picture/decode.h"
#include "kit/picture/resize.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;
using std::string_view_literals::operator""sv;

struct Magic {
  kit::PictureFormat format;
  std::string_view bytes;
};

// Of PNM and TIFF there are several, which stay as they are.
constexpr std::array kMagics{
    Magic{kit::PictureFormat::kJpeg, "\xff\xd8\xff"sv},
    Magic{kit::PictureFormat::kPng, "\x89PNG\r\n\x1a\n"sv},
    Magic{kit::PictureFormat::kWebp, "RIFF"sv},
    Magic{kit::PictureFormat::kTiff, ""sv},
    Magic{kit::PictureFormat::kPnm, "P"sv},
    Magic{kit::PictureFormat::kBmp, "BM"sv},
};

void CheckPicture(const kit::Picture& picture) {
  Require(picture.width > 0 && picture.height > 0, "a picture has pixels");
  Require(picture.channels >= 1 && picture.channels <= 4, "one to four channels");
  Require(picture.pixels.size() == picture.RowBytes() * picture.height, "all pixels are there");
}

void DecodeFile(const Magic& magic, std::string bytes) {
  std::copy_n(magic.bytes.begin(), std::min(magic.bytes.size(), bytes.size()), bytes.begin());
  kit::DecodeLimits limits;
  limits.mostPixels = 1 << 18;
  limits.mostBytes = 1 << 21;
  const kit::DecodedPicture decoded = kit::DecodePicture("x", bytes, limits);
  CheckPicture(decoded.picture);
  Require(uint64_t{decoded.picture.width} * decoded.picture.height <= limits.mostPixels,
          "no more pixels than are allowed");
  Require(decoded.orientation >= 1 && decoded.orientation <= 8, "an orientation that there is");
  for (const std::string& remark : decoded.remarks) RequireReason(remark);
  Require(kit::DecodePicture("x", bytes, limits).picture.pixels == decoded.picture.pixels,
          "decoding twice gives the same");
  CheckPicture(kit::ApplyOrientation(decoded.picture, decoded.orientation));
}

// A few numbers, then values that are repeated until there are enough.
void ResizePicture(std::span<const uint8_t> bytes) {
  if (bytes.size() < 12) return;
  const std::vector<std::string_view> names = kit::ResizeRuleNames();
  const kit::ResizeRule rule = kit::ResizeRuleNamed(names[bytes[0] % names.size()]).value();
  const auto type = static_cast<kit::PixelType>(bytes[1] % 3);
  kit::Picture picture = kit::MakePicture(bytes[2] % 80, bytes[3] % 80, bytes[4] % 5, type);
  const uint32_t width = bytes[5];
  const uint32_t height = bytes[6];
  std::optional<kit::ResizeBox> box;
  if (bytes[7] % 2 == 1) {
    const auto edge = [&](size_t i) { return static_cast<float>(bytes[i]) / 3; };
    box = kit::ResizeBox{edge(8), edge(9), edge(10), edge(11)};
  }
  for (size_t i = 0; i < picture.pixels.size(); ++i) {
    picture.pixels[i] = std::byte{bytes[i % bytes.size()]};
  }
  const kit::Picture resized = kit::Resize(picture, width, height, rule, box);
  CheckPicture(resized);
  Require(resized.width == width && resized.height == height, "the size that was asked for");
  Require(resized.channels == picture.channels && resized.type == type, "the same kind");
}

}  // namespace

void Pictures(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  const size_t kind = bytes[0] % (kMagics.size() + 1);
  try {
    if (kind == kMagics.size()) {
      ResizePicture(bytes.subspan(1));
    } else {
      DecodeFile(kMagics[kind], std::string(bytes.begin() + 1, bytes.end()));
    }
  } catch (const kit::Fault& fault) {
    RequireReason(fault.what());
  } catch (const std::exception& error) {
    throw Violation{"another exception than a fault: " + std::string(error.what())};
  }
}

}  // namespace fuzz
