#include "kit/picture/decode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "kit/common/fault.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/picture/decoders.h"

namespace vorn::kit {
namespace {

using DecodeFunction = void (*)(const PictureFile&, DecodedPicture&);

DecodeFunction DecodeFunctionOf(PictureFormat format) {
  switch (format) {
    case PictureFormat::kJpeg:
      return DecodeJpeg;
    case PictureFormat::kPng:
      return DecodePng;
    case PictureFormat::kWebp:
      return DecodeWebp;
    case PictureFormat::kTiff:
      return DecodeTiff;
    case PictureFormat::kPnm:
      return DecodePnm;
    case PictureFormat::kBmp:
      return DecodeBmp;
  }
  return nullptr;
}

// What people take for pictures too, so that the line can name it.
std::string KindOf(std::string_view bytes) {
  if (bytes.starts_with("GIF8")) return "is a GIF";
  if (bytes.substr(0, 12).find("ftyp") == 4) return "is a HEIF, AVIF or video file";
  if (bytes.starts_with(std::string_view("\0\0\0\x0cjP", 6))) return "is a JPEG 2000 file";
  if (bytes.starts_with("\x93NUMPY")) return "is an array (.npy)";
  if (bytes.starts_with("PK\x03\x04")) return "is a zip archive";
  if (bytes.starts_with("%PDF")) return "is a PDF";
  if (bytes.starts_with("<")) return "is a text such as SVG or HTML";
  return "is of no kind that is known here; it begins with '" + Printable(bytes.substr(0, 8)) + "'";
}

std::string ReadPictureFile(const std::string& path, const DecodeLimits& limits) {
  const auto refuse = [&](int error) {
    throw Fault(ExitStatus::kInput,
                "the picture " + Quoted(path) + " cannot be read: " + SystemReason(error));
  };
  const OwnedFile file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.IsOpen()) refuse(errno);
  struct stat status {};
  if (fstat(file.Get(), &status) != 0) refuse(errno);
  if (!S_ISREG(status.st_mode)) {
    throw Fault(ExitStatus::kInput, "the picture " + Quoted(path) + " is not a file");
  }
  if (static_cast<uint64_t>(status.st_size) > limits.mostFileBytes) {
    throw Fault(ExitStatus::kLimit, "the picture " + Quoted(path) + " is a file of " +
                                        SizeText(status.st_size) + ", more than the limit of " +
                                        SizeText(limits.mostFileBytes));
  }
  std::string bytes(static_cast<size_t>(status.st_size), '\0');
  size_t taken = 0;
  while (taken < bytes.size()) {
    const ssize_t got = read(file.Get(), bytes.data() + taken, bytes.size() - taken);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) refuse(errno);
    if (got == 0) break;  // it became shorter: the decoder will say so
    taken += static_cast<size_t>(got);
  }
  bytes.resize(taken);
  return bytes;
}

}  // namespace

void RefusePicture(const PictureFile& file, const std::string& reason) {
  throw Fault(ExitStatus::kInput, "the picture " + Quoted(file.name) + " " + reason);
}

void RefuseAsSaid(const PictureFile& file, PictureFormat format, const std::string& words) {
  RefusePicture(
      file, std::string("cannot be decoded as ") + NameOf(format) + ": " + PrintableExcerpt(words));
}

void CheckWithinLimits(const PictureFile& file, uint64_t width, uint64_t height, uint32_t channels,
                       PixelType type) {
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  if (width == 0 || height == 0) RefusePicture(file, "has no pixels: it is " + size);
  const auto refuse = [&](const std::string& limit) {
    throw Fault(ExitStatus::kLimit, "the picture " + Quoted(file.name) + " is " + size +
                                        " pixels, more than the limit of " + limit);
  };
  const uint64_t most = file.limits.mostPixels;
  if (width > UINT32_MAX || height > UINT32_MAX || width > most || height > most / width) {
    refuse(std::to_string(most) + " pixels");
  }
  if (file.limits.mostBytes / (channels * BytesOf(type)) < width * height) {
    refuse(SizeText(file.limits.mostBytes) + " of pixels");
  }
}

Picture MakeWithinLimits(const PictureFile& file, uint64_t width, uint64_t height,
                         uint32_t channels, PixelType type) {
  CheckWithinLimits(file, width, height, channels, type);
  return MakePicture(static_cast<uint32_t>(width), static_cast<uint32_t>(height), channels, type);
}

Picture MakeUnclearedWithinLimits(const PictureFile& file, uint64_t width, uint64_t height,
                                  uint32_t channels, PixelType type) {
  CheckWithinLimits(file, width, height, channels, type);
  return MakeUnclearedPicture(static_cast<uint32_t>(width), static_cast<uint32_t>(height), channels,
                              type);
}

const char* NameOf(PictureFormat format) {
  switch (format) {
    case PictureFormat::kJpeg:
      return "JPEG";
    case PictureFormat::kPng:
      return "PNG";
    case PictureFormat::kWebp:
      return "WebP";
    case PictureFormat::kTiff:
      return "TIFF";
    case PictureFormat::kPnm:
      return "PNM";
    case PictureFormat::kBmp:
      return "BMP";
  }
  return "";
}

std::optional<PictureFormat> FormatOf(std::string_view bytes) {
  using std::string_view_literals::operator""sv;
  if (bytes.starts_with("\xff\xd8\xff")) return PictureFormat::kJpeg;
  if (bytes.starts_with("\x89PNG\r\n\x1a\n")) return PictureFormat::kPng;
  if (bytes.starts_with("RIFF") && bytes.substr(0, 12).ends_with("WEBP")) {
    return PictureFormat::kWebp;
  }
  for (const std::string_view magic : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv}) {
    if (bytes.starts_with(magic)) return PictureFormat::kTiff;
  }
  if (bytes.size() > 2 && bytes[0] == 'P' && bytes[1] >= '1' && bytes[1] <= '6' &&
      std::string_view(" \t\r\n\v\f#").find(bytes[2]) != std::string_view::npos) {
    return PictureFormat::kPnm;
  }
  // "BM", the size of the file, two fields of zeros: the letters alone begin many texts.
  if (bytes.starts_with("BM") && bytes.size() >= 18 && bytes.substr(6, 4) == "\0\0\0\0"sv) {
    return PictureFormat::kBmp;
  }
  return {};
}

std::string DecoderOf(PictureFormat format) {
  switch (format) {
    case PictureFormat::kJpeg:
      return JpegDecoder();
    case PictureFormat::kPng:
      return PngDecoder();
    case PictureFormat::kWebp:
      return WebpDecoder();
    case PictureFormat::kTiff:
      return TiffDecoder();
    case PictureFormat::kPnm:
    case PictureFormat::kBmp:
      return "vorn";
  }
  return "";
}

DecodedPicture DecodePicture(const std::string& name, std::string_view bytes,
                             const DecodeLimits& limits, const ShowPixels& show, RowTaker* taker) {
  size_t shown = 0;
  const ShowPixels count = [&](std::string_view pixels) {
    shown += pixels.size();
    if (show) show(pixels);
  };
  const PictureFile file{name, bytes, limits, count, taker};
  if (bytes.empty()) RefusePicture(file, "is empty");
  if (bytes.size() > limits.mostFileBytes) {
    throw Fault(ExitStatus::kLimit, "the picture " + Quoted(name) + " is a file of " +
                                        SizeText(bytes.size()) + ", more than the limit of " +
                                        SizeText(limits.mostFileBytes));
  }
  const std::optional<PictureFormat> format = FormatOf(bytes);
  if (!format) {
    RefusePicture(file, KindOf(bytes) + "; JPEG, PNG, WebP, TIFF, PNM and BMP are read");
  }
  DecodedPicture decoded;
  decoded.format = NameOf(*format);
  decoded.decoder = DecoderOf(*format);
  DecodeFunctionOf (*format)(file, decoded);
  const PixelBytes& pixels = decoded.picture.pixels;
  if (shown < pixels.size()) {
    count({reinterpret_cast<const char*>(pixels.data()) + shown, pixels.size() - shown});
  }
  return decoded;
}

DecodedPicture DecodePictureFile(const std::string& path, const DecodeLimits& limits,
                                 const ShowPixels& show, RowTaker* taker) {
  return DecodePicture(path, ReadPictureFile(path, limits), limits, show, taker);
}

}  // namespace vorn::kit
