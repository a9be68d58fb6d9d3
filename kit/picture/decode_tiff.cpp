// TIFF, by libtiff. A file is strips or tiles, each of all samples or (planes) of one. They are
// read as they are stored, and then become grey or colours:
//
//     piece    rows of a strip or tile; a row fills up to a byte
//     stored   what the pieces hold, samples side by side, 8 bits or 16 bits or floats each
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kit/picture/decoders.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostHeadBytes = 64 << 20;

// The file in memory, and what the library said of it last.
struct TiffSource {
  std::string_view bytes;
  uint64_t place = 0;
  std::string error;
  std::string warning;
};

TiffSource& SourceOf(void* handle) { return *static_cast<TiffSource*>(handle); }

tmsize_t ReadBytes(thandle_t handle, void* to, tmsize_t wanted) {
  TiffSource& source = SourceOf(handle);
  if (wanted < 0 || source.place > source.bytes.size()) return 0;
  const size_t given =
      std::min<size_t>(static_cast<size_t>(wanted), source.bytes.size() - source.place);
  std::memcpy(to, source.bytes.data() + source.place, given);
  source.place += given;
  return static_cast<tmsize_t>(given);
}

tmsize_t WriteNothing(thandle_t, void*, tmsize_t) { return 0; }

toff_t SeekTo(thandle_t handle, toff_t offset, int from) {
  TiffSource& source = SourceOf(handle);
  if (from == SEEK_SET) source.place = offset;
  if (from == SEEK_CUR) source.place += offset;
  if (from == SEEK_END) source.place = source.bytes.size() + offset;
  return source.place;
}

int CloseNothing(thandle_t) { return 0; }

toff_t SizeOfSource(thandle_t handle) { return SourceOf(handle).bytes.size(); }

std::string WordsOf(const char* format, va_list arguments) {
  std::array<char, 300> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  return text.data();
}

int TakeError(TIFF*, void* source, const char*, const char* format, va_list arguments) {
  if (SourceOf(source).error.empty()) SourceOf(source).error = WordsOf(format, arguments);
  return 1;  // not to the process's own handler, which prints
}

int TakeWarning(TIFF*, void* source, const char*, const char* format, va_list arguments) {
  SourceOf(source).warning = WordsOf(format, arguments);
  return 1;
}

using TiffHandle = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

TiffHandle OpenTiff(TiffSource& source, const DecodeLimits& limits) {
  const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(
      TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
  // Beside a piece, whose size is ours to check, the library allocates what a head is made of.
  const uint64_t most = std::max(limits.mostBytes, kMostHeadBytes);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(most));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), TakeError, &source);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), TakeWarning, &source);
  return {TIFFClientOpenExt("picture", "rm", &source, ReadBytes, WriteNothing, SeekTo, CloseNothing,
                            SizeOfSource, nullptr, nullptr, options.get()),
          TIFFClose};
}

struct TiffHead {
  uint32_t width = 0;
  uint32_t height = 0;
  uint16_t bits = 1;
  uint16_t samples = 1;
  uint16_t meaning = 0;  // the tag PhotometricInterpretation
  uint16_t compression = COMPRESSION_NONE;
  uint16_t planes = PLANARCONFIG_CONTIG;
  std::vector<uint16_t> extras;  // what the samples behind the colours are

  [[nodiscard]] PixelType Type() const {
    return bits == 32 ? PixelType::kFloat32 : bits == 16 ? PixelType::kUint16 : PixelType::kUint8;
  }
};

TiffHead ReadHead(const PictureFile& file, TIFF* tiff) {
  TiffHead head;
  TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &head.width);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &head.height);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &head.bits);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &head.samples);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &head.compression);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &head.planes);
  if (TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &head.meaning) == 0) {
    RefusePicture(file, "is a TIFF that does not say what its values mean");
  }
  uint16_t count = 0;
  uint16_t* extras = nullptr;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &count, &extras);
  head.extras.assign(extras, extras + count);
  head.extras.resize(std::max<size_t>(count, head.samples), EXTRASAMPLE_UNSPECIFIED);
  // Without the tag the library calls them unspecified; as Pillow does, they are taken for alpha.
  const size_t place = head.meaning == PHOTOMETRIC_RGB ? 3 : 1;
  if (!HasTag(file.bytes, TIFFTAG_EXTRASAMPLES) && head.samples > place) {
    head.extras.assign(head.samples - place, EXTRASAMPLE_UNASSALPHA);
  }

  uint16_t format = SAMPLEFORMAT_UINT;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
  const bool isWhole = format == SAMPLEFORMAT_UINT || format == SAMPLEFORMAT_VOID;
  const bool isKnown = isWhole ? head.bits == 1 || head.bits == 2 || head.bits == 4 ||
                                     head.bits == 8 || head.bits == 16
                               : format == SAMPLEFORMAT_IEEEFP && head.bits == 32;
  if (!isKnown) {
    const char* kind = isWhole                         ? "unsigned"
                       : format == SAMPLEFORMAT_IEEEFP ? "floating-point"
                       : format == SAMPLEFORMAT_INT    ? "signed"
                                                       : "complex";
    RefusePicture(file, "is a TIFF of " + std::to_string(head.bits) + "-bit " + kind +
                            " samples; unsigned ones of up to 16 bits and 32-bit floating-point "
                            "ones are read");
  }
  return head;
}

// How many samples are colours, or 0 if the meaning is none of those that are read.
uint32_t ColoursOf(const TiffHead& head) {
  switch (head.meaning) {
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_MINISBLACK:
      return 1;
    case PHOTOMETRIC_RGB:
      return head.bits >= 8 ? 3 : 0;
    case PHOTOMETRIC_YCBCR:  // the JPEG in it becomes RGB
      return head.compression == COMPRESSION_JPEG && head.bits == 8 ? 3 : 0;
    case PHOTOMETRIC_PALETTE:
      return head.bits <= 8 && head.samples == 1 ? 1 : 0;
    case PHOTOMETRIC_SEPARATED:
      return head.bits == 8 ? 4 : 0;
    default:
      return 0;
  }
}

void RefuseUnknown(const PictureFile& file, const TiffHead& head) {
  const uint32_t colours = ColoursOf(head);
  if (colours == 0 || head.samples < colours) {
    RefusePicture(file, "is a TIFF of photometric interpretation " + std::to_string(head.meaning) +
                            " with " + std::to_string(head.samples) + " samples of " +
                            std::to_string(head.bits) + " bits and compression " +
                            std::to_string(head.compression) +
                            "; grey, RGB, palettes, CMYK of 8 bits and JPEG in TIFF are read");
  }
  if (head.samples > 32 || (head.samples > 1 && head.bits < 8)) {
    RefusePicture(file, "is a TIFF of " + std::to_string(head.samples) + " samples of " +
                            std::to_string(head.bits) + " bits a pixel, which is not read");
  }
  if (!TIFFIsCODECConfigured(head.compression)) {
    RefusePicture(file, "is a TIFF of compression " + std::to_string(head.compression) +
                            ", which the library does not know");
  }
}

// Puts a row of a piece at `to`, whose pixels have `step` samples; the row has `samples` of them.
void PutRow(const TiffHead& head, const uint8_t* row, uint32_t columns, uint32_t samples,
            std::byte* to, uint32_t step) {
  const size_t size = BytesOf(head.Type());
  if (head.bits >= 8) {
    if (samples == step) {
      std::memcpy(to, row, size_t{columns} * samples * size);
      return;
    }
    for (uint32_t x = 0; x < columns; ++x) {  // a plane of its own: one sample a pixel
      std::memcpy(to + size_t{x} * step * size, row + x * size, size);
    }
    return;
  }
  const uint32_t perByte = 8U / head.bits;
  for (uint32_t x = 0; x < columns; ++x) {
    const uint32_t shift = (perByte - 1 - x % perByte) * head.bits;
    to[x] =
        std::byte{static_cast<unsigned char>(row[x / perByte] >> shift & ((1U << head.bits) - 1U))};
  }
}

// All strips or tiles into `stored`. Refuses what the library cannot read.
class PieceReader {
 public:
  PieceReader(const PictureFile& file, TIFF* tiff, TiffSource& source, const TiffHead& head)
      : file_(file), tiff_(tiff), source_(source), head_(head) {
    isTiled_ = TIFFIsTiled(tiff) != 0;
    columns_ = head.width;
    if (isTiled_) {
      TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &columns_);
      TIFFGetField(tiff, TIFFTAG_TILELENGTH, &rows_);
    } else {
      TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rows_);
      rows_ = std::min(rows_, head.height);
    }
    samples_ = head.planes == PLANARCONFIG_SEPARATE ? 1U : head.samples;
    bytes_ = isTiled_ ? TIFFTileSize64(tiff) : TIFFStripSize64(tiff);
    rowBytes_ = (uint64_t{columns_} * samples_ * head.bits + 7) / 8;
    // Neither is trusted: what we compute must be what the library does.
    if (columns_ == 0 || rows_ == 0 || bytes_ < rowBytes_ * rows_) {
      RefuseAsSaid(file, PictureFormat::kTiff, "its strips or tiles are of an impossible size");
    }
    if (bytes_ > file.limits.mostBytes) {
      RefuseAsSaid(file, PictureFormat::kTiff, "its strips or tiles are larger than the limit");
    }
    piece_.resize(bytes_);
  }

  void ReadAll(Picture& stored) {
    source_.warning.clear();
    const uint32_t planes = samples_ == 1 ? head_.samples : 1U;
    for (uint32_t plane = 0; plane < planes; ++plane) {
      for (uint64_t y = 0; y < head_.height; y += rows_) {
        for (uint64_t x = 0; x < head_.width; x += columns_) {
          ReadPiece(static_cast<uint32_t>(x), static_cast<uint32_t>(y), plane);
          PutPiece(static_cast<uint32_t>(x), static_cast<uint32_t>(y), plane, stored);
        }
      }
    }
  }

 private:
  void ReadPiece(uint32_t x, uint32_t y, uint32_t plane) {
    const auto sample = static_cast<uint16_t>(plane);
    const uint32_t rows = std::min(rows_, head_.height - y);
    const uint64_t wanted = isTiled_ ? bytes_ : rowBytes_ * rows;
    const tmsize_t got = isTiled_
                             ? TIFFReadEncodedTile(tiff_, TIFFComputeTile(tiff_, x, y, 0, sample),
                                                   piece_.data(), static_cast<tmsize_t>(bytes_))
                             : TIFFReadEncodedStrip(tiff_, TIFFComputeStrip(tiff_, y, sample),
                                                    piece_.data(), static_cast<tmsize_t>(wanted));
    if (got < 0 || static_cast<uint64_t>(got) < wanted || !source_.error.empty()) {
      RefuseAsSaid(file_, PictureFormat::kTiff,
                   source_.error.empty() ? "the file ends too early" : source_.error);
    }
    // By now the head is read, and what it warns of are the pixels.
    if (!source_.warning.empty()) RefuseAsSaid(file_, PictureFormat::kTiff, source_.warning);
  }

  void PutPiece(uint32_t x, uint32_t y, uint32_t plane, Picture& stored) const {
    const uint32_t rows = std::min(rows_, head_.height - y);
    const uint32_t columns = std::min(columns_, head_.width - x);
    const size_t size = BytesOf(stored.type);
    for (uint32_t row = 0; row < rows; ++row) {
      std::byte* to = stored.Row<std::byte>(y + row) + (size_t{x} * head_.samples + plane) * size;
      PutRow(head_, piece_.data() + row * rowBytes_, columns, samples_, to, head_.samples);
    }
  }

  const PictureFile& file_;
  TIFF* tiff_;
  TiffSource& source_;
  const TiffHead& head_;
  bool isTiled_ = false;
  uint32_t columns_ = 0;
  uint32_t rows_ = 0;
  uint32_t samples_ = 0;
  uint64_t bytes_ = 0;
  uint64_t rowBytes_ = 0;
  std::vector<uint8_t> piece_;
};

// The first `channels` of the samples of each pixel.
Picture WithChannels(Picture stored, uint32_t channels) {
  if (stored.channels == channels) return stored;
  Picture picture = MakePicture(stored.width, stored.height, channels, stored.type);
  const size_t wide = stored.channels * BytesOf(stored.type);
  const size_t narrow = channels * BytesOf(stored.type);
  const std::byte* from = stored.pixels.data();
  for (size_t i = 0; i < size_t{stored.width} * stored.height; ++i) {
    std::memcpy(picture.pixels.data() + i * narrow, from + i * wide, narrow);
  }
  return picture;
}

// Greys of few bits over the whole range, white as the largest. Pillow turns round those of 8 bits
// at most.
void SpreadGreys(const TiffHead& head, Picture& picture, std::vector<std::string>& remarks) {
  const bool isInverted = head.meaning == PHOTOMETRIC_MINISWHITE;
  if (picture.type != PixelType::kUint8) {
    if (isInverted) remarks.emplace_back("its white is 0, and left so, as Pillow leaves it");
    return;
  }
  const unsigned factor = head.bits > 8 ? 1 : 255U / ((1U << head.bits) - 1U);
  auto* values = picture.Row<uint8_t>(0);
  for (size_t i = 0; i < picture.pixels.size(); i += picture.channels) {
    const unsigned value = values[i] * factor;
    values[i] = static_cast<uint8_t>(isInverted ? 255U - value : value);
  }
}

Picture LookUpColours(const PictureFile& file, TIFF* tiff, const TiffHead& head,
                      const Picture& indices) {
  uint16_t* red = nullptr;
  uint16_t* green = nullptr;
  uint16_t* blue = nullptr;
  if (TIFFGetField(tiff, TIFFTAG_COLORMAP, &red, &green, &blue) == 0) {
    RefuseAsSaid(file, PictureFormat::kTiff, "its palette is missing");
  }
  const size_t colours = size_t{1} << head.bits;
  Picture picture = MakePicture(indices.width, indices.height, 3, PixelType::kUint8);
  auto* to = picture.Row<uint8_t>(0);
  for (const std::byte byte : indices.pixels) {
    const auto index = std::to_integer<size_t>(byte) % colours;
    *to++ = static_cast<uint8_t>(red[index] >> 8);
    *to++ = static_cast<uint8_t>(green[index] >> 8);
    *to++ = static_cast<uint8_t>(blue[index] >> 8);
  }
  return picture;
}

// Divided by 255, rounded.
unsigned Of255(unsigned product) { return (product + 128 + ((product + 128) >> 8)) >> 8; }

Picture ColoursOfInk(const Picture& ink) {
  Picture picture = MakePicture(ink.width, ink.height, 3, PixelType::kUint8);
  const auto* from = ink.Row<uint8_t>(0);
  auto* to = picture.Row<uint8_t>(0);
  for (size_t i = 0; i < size_t{ink.width} * ink.height; ++i, from += 4, to += 3) {
    const unsigned white = 255U - from[3];
    for (int c = 0; c < 3; ++c) to[c] = static_cast<uint8_t>(white - Of255(from[c] * white));
  }
  return picture;
}

// Colours that were stored multiplied by their alpha.
void DivideByAlpha(Picture& picture) {
  auto* values = picture.Row<uint8_t>(0);
  const uint32_t colours = picture.channels - 1;
  for (size_t i = 0; i < picture.pixels.size(); i += picture.channels) {
    const unsigned alpha = values[i + colours];
    if (alpha == 0 || alpha == 255) continue;
    for (size_t c = i; c < i + colours; ++c) {
      values[c] = static_cast<uint8_t>(std::min(255U, values[c] * 255U / alpha));
    }
  }
}

Picture WithMeaning(const PictureFile& file, TIFF* tiff, const TiffHead& head, Picture stored,
                    std::vector<std::string>& remarks) {
  const uint32_t colours = ColoursOf(head);
  if (head.meaning == PHOTOMETRIC_PALETTE) return LookUpColours(file, tiff, head, stored);
  if (head.meaning == PHOTOMETRIC_SEPARATED) {
    remarks.emplace_back(kInkRemark);
    return ColoursOfInk(WithChannels(std::move(stored), 4));
  }
  const uint32_t extras = head.samples - colours;
  const bool isMultiplied = extras > 0 && head.extras[0] == EXTRASAMPLE_ASSOCALPHA;
  const bool hasAlpha = extras > 0 && head.extras[0] != EXTRASAMPLE_UNSPECIFIED;
  if (isMultiplied && head.Type() == PixelType::kFloat32) {
    RefusePicture(file,
                  "is a TIFF of floating-point colours that are multiplied by their alpha, "
                  "which is not read");
  }
  Picture picture = WithChannels(std::move(stored), colours + (hasAlpha ? 1 : 0));
  if (extras > (hasAlpha ? 1 : 0)) {
    remarks.emplace_back("its further samples, which are no colours, are left out");
  }
  if (isMultiplied) {
    picture = UpperBytes(std::move(picture));  // as Pillow does before it divides
    DivideByAlpha(picture);
  }
  if (colours == 1) SpreadGreys(head, picture, remarks);
  if (picture.type == PixelType::kUint16 && picture.channels > 1) {
    remarks.emplace_back(kWideRemark);
  }
  return picture;
}

}  // namespace

std::string TiffDecoder() {
  // "LIBTIFF, Version 4.5.0", and more lines.
  const std::string_view words = TIFFGetVersion();
  constexpr std::string_view kBefore = "Version ";
  const size_t place = words.find(kBefore);
  if (place == std::string_view::npos) return "libtiff";
  const std::string_view version = words.substr(place + kBefore.size());
  return "libtiff " + std::string(version.substr(0, version.find_first_of(" \n")));
}

void DecodeTiff(const PictureFile& file, DecodedPicture& decoded) {
  TiffSource source{file.bytes, 0, {}, {}};
  const TiffHandle tiff = OpenTiff(source, file.limits);
  if (!tiff) RefuseAsSaid(file, PictureFormat::kTiff, source.error);
  const TiffHead head = ReadHead(file, tiff.get());
  RefuseUnknown(file, head);
  if (head.meaning == PHOTOMETRIC_YCBCR) {
    TIFFSetField(tiff.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  }
  Picture stored = MakeWithinLimits(file, head.width, head.height, head.samples, head.Type());
  source.error.clear();
  PieceReader(file, tiff.get(), source, head).ReadAll(stored);

  uint16_t orientation = 1;
  TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_ORIENTATION, &orientation);
  decoded.orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;
  uint32_t profileBytes = 0;
  void* profile = nullptr;
  if (TIFFGetField(tiff.get(), TIFFTAG_ICCPROFILE, &profileBytes, &profile) != 0) {
    decoded.remarks.emplace_back(kProfileRemark);
  }
  decoded.picture = WithMeaning(file, tiff.get(), head, std::move(stored), decoded.remarks);
  if (TIFFLastDirectory(tiff.get()) == 0) {
    decoded.remarks.emplace_back("it has several pictures; the first one is taken");
  }
}

}  // namespace vorn::kit
