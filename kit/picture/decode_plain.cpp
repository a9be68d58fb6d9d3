// PNM and BMP, which are simple enough for readers of our own.
//
// PNM: "P1" to "P6" | width | height | the most that a value can be (not of P1 and P4) | values.
//      Blanks and comments (# to the end of the line) between; one blank before binary values.
//      1, 4 bits with 1 as black; 2, 5 grey; 3, 6 RGB. 1 to 3 are texts. Above 255 two bytes a
//      value, the upper one first.
// BMP: "BM" | size of the file (4) | 0 (4) | place of the pixels (4) | size of the head (4) | width
// (4)
//      | height (4, negative: the top row first) | planes (2) | bits a pixel (2) | compression (4)
//      | … A row fills up to 4 bytes; blue comes first. Little-endian.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <vector>

#include "kit/common/printable.h"
#include "kit/picture/decoders.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostNumber = uint64_t{1} << 32;

// The words of a PNM file.
class PnmText {
 public:
  explicit PnmText(std::string_view bytes) : rest_(bytes) {}

  // None where no number comes; numbers beyond 2^32 are that.
  std::optional<uint64_t> Number() {
    SkipBlanks();
    std::optional<uint64_t> number;
    while (!rest_.empty() && rest_[0] >= '0' && rest_[0] <= '9') {
      number =
          std::min(number.value_or(0) * 10 + static_cast<uint64_t>(rest_[0] - '0'), kMostNumber);
      rest_.remove_prefix(1);
    }
    return number;
  }

  // A single 0 or 1 of a text of bits, which need no blanks.
  std::optional<uint64_t> Bit() {
    SkipBlanks();
    if (rest_.empty() || (rest_[0] != '0' && rest_[0] != '1')) return {};
    const uint64_t bit = rest_[0] == '1' ? 1 : 0;
    rest_.remove_prefix(1);
    return bit;
  }

  // What is behind the one blank.
  std::string_view Binary() { return rest_.substr(std::min<size_t>(rest_.size(), 1)); }

 private:
  void SkipBlanks() {
    while (!rest_.empty()) {
      if (rest_[0] == '#') {
        rest_.remove_prefix(std::min(rest_.find_first_of("\r\n"), rest_.size()));
      } else if (std::string_view(" \t\r\n\v\f").find(rest_[0]) != std::string_view::npos) {
        rest_.remove_prefix(1);
      } else {
        return;
      }
    }
  }

  std::string_view rest_;
};

// value / most * full, rounded, the half to the even one, by way of a double as Pillow has it.
uint16_t Scaled(uint64_t value, uint64_t most, uint64_t full) {
  if (most == full) return static_cast<uint16_t>(std::min(value, full));
  const double exact =
      static_cast<double>(value) / static_cast<double>(most) * static_cast<double>(full);
  const auto floor = static_cast<uint64_t>(exact);
  const double rest = exact - static_cast<double>(floor);
  const uint64_t rounded = rest > 0.5 || (rest == 0.5 && floor % 2 == 1) ? floor + 1 : floor;
  return static_cast<uint16_t>(std::min(rounded, full));
}

void SetValue(Picture& picture, size_t index, uint16_t value) {
  if (picture.type == PixelType::kUint8) {
    picture.Row<uint8_t>(0)[index] = static_cast<uint8_t>(value);
  } else {
    picture.Row<uint16_t>(0)[index] = value;
  }
}

[[noreturn]] void RefuseShort(const PictureFile& file, PictureFormat format) {
  RefuseAsSaid(file, format, "the file ends too early");
}

void ReadPlainBits(const PictureFile& file, PnmText& text, Picture& picture) {
  for (std::byte& pixel : picture.pixels) {
    const std::optional<uint64_t> bit = text.Bit();
    if (!bit) RefuseShort(file, PictureFormat::kPnm);
    pixel = std::byte{static_cast<unsigned char>(*bit == 1 ? 0 : 255)};
  }
}

void ReadPackedBits(const PictureFile& file, std::string_view bits, Picture& picture) {
  const size_t rowBytes = (size_t{picture.width} + 7) / 8;
  if (bits.size() / rowBytes < picture.height) RefuseShort(file, PictureFormat::kPnm);
  for (uint32_t y = 0; y < picture.height; ++y) {
    auto* row = picture.Row<uint8_t>(y);
    for (uint32_t x = 0; x < picture.width; ++x) {
      row[x] = (bits[y * rowBytes + x / 8] >> (7 - x % 8) & 1) != 0 ? 0 : 255;
    }
  }
}

void ReadNumbers(const PictureFile& file, PnmText& text, uint64_t most, Picture& picture) {
  const size_t values = picture.RowValues() * picture.height;
  const uint64_t full = picture.type == PixelType::kUint8 ? 255 : 65535;
  for (size_t i = 0; i < values; ++i) {
    const std::optional<uint64_t> number = text.Number();
    if (!number) RefuseShort(file, PictureFormat::kPnm);
    if (*number > most) {
      RefusePicture(file, "has the value " + std::to_string(*number) + ", above the " +
                              std::to_string(most) + " that its head names");
    }
    SetValue(picture, i, Scaled(*number, most, full));
  }
}

void ReadBinaryNumbers(const PictureFile& file, std::string_view bytes, uint64_t most,
                       Picture& picture) {
  const size_t size = most < 256 ? 1 : 2;
  const size_t values = picture.RowValues() * picture.height;
  if (bytes.size() / size < values) RefuseShort(file, PictureFormat::kPnm);
  const uint64_t full = picture.type == PixelType::kUint8 ? 255 : 65535;
  for (size_t i = 0; i < values; ++i) {
    uint64_t value = static_cast<unsigned char>(bytes[i * size]);
    if (size == 2) value = value << 8 | static_cast<unsigned char>(bytes[i * size + 1]);
    SetValue(picture, i, Scaled(value, most, full));
  }
}

uint64_t LittleEndian(std::string_view bytes, size_t place, size_t size) {
  uint64_t value = 0;
  for (size_t i = size; i > 0; --i) {
    value = value << 8 | static_cast<unsigned char>(bytes[place + i - 1]);
  }
  return value;
}

struct BmpHead {
  uint64_t pixels = 0;
  uint64_t headBytes = 0;
  uint64_t width = 0;
  uint64_t height = 0;
  bool isTopFirst = false;
  uint64_t bits = 0;
  bool hasAlpha = false;
  std::vector<std::array<uint8_t, 3>> palette;
};

constexpr size_t kBmpFileHead = 14;
constexpr size_t kBmpHead = 40;

// Where the channels of 32 bits lie, if the head names it: BGR, then alpha or nothing.
bool HasPlainMasks(std::string_view bytes) {
  constexpr size_t kMasks = kBmpFileHead + kBmpHead;
  return bytes.size() >= kMasks + 12 && LittleEndian(bytes, kMasks, 4) == 0xff0000 &&
         LittleEndian(bytes, kMasks + 4, 4) == 0xff00 && LittleEndian(bytes, kMasks + 8, 4) == 0xff;
}

BmpHead ReadBmpHead(const PictureFile& file) {
  const std::string_view bytes = file.bytes;
  if (bytes.size() < kBmpFileHead + kBmpHead) RefuseShort(file, PictureFormat::kBmp);
  BmpHead head;
  head.pixels = LittleEndian(bytes, 10, 4);
  head.headBytes = LittleEndian(bytes, 14, 4);
  if (head.headBytes < kBmpHead || head.headBytes > bytes.size() - kBmpFileHead) {
    RefusePicture(file, "is a BMP whose head has " + std::to_string(head.headBytes) +
                            " bytes; heads of 40 to 124 are read");
  }
  const auto width = static_cast<int32_t>(LittleEndian(bytes, 18, 4));
  const auto height = static_cast<int32_t>(LittleEndian(bytes, 22, 4));
  if (width < 0) RefuseAsSaid(file, PictureFormat::kBmp, "its width is negative");
  head.width = static_cast<uint64_t>(width);
  head.isTopFirst = height < 0;
  head.height = static_cast<uint64_t>(std::abs(static_cast<int64_t>(height)));
  head.bits = LittleEndian(bytes, 28, 2);
  const uint64_t compression = LittleEndian(bytes, 30, 4);
  const bool isKnown = compression == 0 && (head.bits == 1 || head.bits == 4 || head.bits == 8 ||
                                            head.bits == 24 || head.bits == 32);
  const bool isMasked = compression == 3 && head.bits == 32 && HasPlainMasks(bytes);
  if (!isKnown && !isMasked) {
    RefusePicture(file, "is a BMP of " + std::to_string(head.bits) + " bits and compression " +
                            std::to_string(compression) +
                            "; 1, 4, 8, 24 and 32 bits without compression are read");
  }
  // A mask for alpha is in heads of 56 bytes and more.
  head.hasAlpha = isMasked && head.headBytes >= 56 && LittleEndian(bytes, 66, 4) == 0xff000000;
  return head;
}

void ReadBmpPalette(const PictureFile& file, BmpHead& head) {
  uint64_t colours = LittleEndian(file.bytes, 46, 4);
  if (colours == 0) colours = uint64_t{1} << head.bits;
  const size_t place = kBmpFileHead + head.headBytes;
  if (colours > 256 || file.bytes.size() - place < colours * 4) {
    RefuseAsSaid(file, PictureFormat::kBmp,
                 "its palette of " + std::to_string(colours) + " colours does not fit");
  }
  for (size_t i = 0; i < colours; ++i) {
    std::array<uint8_t, 3> colour{};
    for (size_t c = 0; c < 3; ++c) {
      colour[c] = static_cast<uint8_t>(file.bytes[place + i * 4 + 2 - c]);
    }
    head.palette.push_back(colour);
  }
}

// The greys that a picture without a palette would have.
bool IsGreyPalette(const BmpHead& head) {
  if (head.bits == 1) {
    return head.palette.size() == 2 && head.palette[0] == std::array<uint8_t, 3>{0, 0, 0} &&
           head.palette[1] == std::array<uint8_t, 3>{255, 255, 255};
  }
  for (size_t i = 0; i < head.palette.size(); ++i) {
    const auto grey = static_cast<uint8_t>(i);
    if (head.palette[i] != std::array<uint8_t, 3>{grey, grey, grey}) return false;
  }
  return true;
}

void ReadPaletteRow(const BmpHead& head, std::string_view from, Picture& picture, uint32_t y) {
  auto* row = picture.Row<uint8_t>(y);
  const uint64_t perByte = 8 / head.bits;
  for (uint32_t x = 0; x < picture.width; ++x) {
    const auto byte = static_cast<unsigned char>(from[x / perByte]);
    const uint64_t shift = (perByte - 1 - x % perByte) * head.bits;
    const size_t index = byte >> shift & ((1U << head.bits) - 1U);
    const std::array<uint8_t, 3> colour =
        index < head.palette.size() ? head.palette[index] : std::array<uint8_t, 3>{};
    std::copy_n(colour.begin(), picture.channels, row + size_t{x} * picture.channels);
  }
}

void ReadColourRow(const BmpHead& head, std::string_view from, Picture& picture, uint32_t y) {
  auto* row = picture.Row<uint8_t>(y);
  const size_t bytes = head.bits / 8;
  for (uint32_t x = 0; x < picture.width; ++x) {
    const char* pixel = from.data() + x * bytes;
    uint8_t* to = row + size_t{x} * picture.channels;
    for (size_t c = 0; c < 3; ++c) to[c] = static_cast<uint8_t>(pixel[2 - c]);
    if (picture.channels == 4) to[3] = static_cast<uint8_t>(pixel[3]);
  }
}

}  // namespace

void DecodePnm(const PictureFile& file, DecodedPicture& decoded) {
  const char kind = file.bytes[1];
  PnmText text(file.bytes.substr(2));
  const bool isBits = kind == '1' || kind == '4';
  const uint32_t channels = kind == '3' || kind == '6' ? 3 : 1;
  const std::optional<uint64_t> width = text.Number();
  const std::optional<uint64_t> height = text.Number();
  const std::optional<uint64_t> most = isBits ? 1 : text.Number();
  if (!width || !height || !most) {
    RefuseAsSaid(file, PictureFormat::kPnm, "its head is no row of numbers");
  }
  if (*most == 0 || *most > 65535) {
    RefusePicture(file, "has values up to " + std::to_string(*most) + "; 1 to 65535 are read");
  }
  decoded.picture = MakeWithinLimits(file, *width, *height, channels,
                                     *most < 256 ? PixelType::kUint8 : PixelType::kUint16);
  switch (kind) {
    case '1':
      return ReadPlainBits(file, text, decoded.picture);
    case '4':
      return ReadPackedBits(file, text.Binary(), decoded.picture);
    case '2':
    case '3':
      return ReadNumbers(file, text, *most, decoded.picture);
    default:
      return ReadBinaryNumbers(file, text.Binary(), *most, decoded.picture);
  }
}

void DecodeBmp(const PictureFile& file, DecodedPicture& decoded) {
  BmpHead head = ReadBmpHead(file);
  if (head.bits <= 8) ReadBmpPalette(file, head);
  const bool isGrey = head.bits <= 8 && IsGreyPalette(head);
  decoded.picture = MakeWithinLimits(file, head.width, head.height,
                                     isGrey          ? 1
                                     : head.hasAlpha ? 4
                                                     : 3,
                                     PixelType::kUint8);
  Picture& picture = decoded.picture;
  const size_t rowBytes = (head.width * head.bits + 31) / 32 * 4;
  if (head.pixels > file.bytes.size() ||
      (file.bytes.size() - head.pixels) / rowBytes < head.height) {
    RefuseShort(file, PictureFormat::kBmp);
  }
  for (uint32_t y = 0; y < picture.height; ++y) {
    const uint32_t row = head.isTopFirst ? y : picture.height - 1 - y;
    const std::string_view from = file.bytes.substr(head.pixels + y * rowBytes, rowBytes);
    if (head.bits <= 8) {
      ReadPaletteRow(head, from, picture, row);
    } else {
      ReadColourRow(head, from, picture, row);
    }
  }
}

}  // namespace vorn::kit
