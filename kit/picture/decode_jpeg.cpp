// JPEG, by libjpeg-turbo. It reports through longjmp, which must not leave anything with a
// destructor behind: the steps that call it are functions of JpegReader without such objects.
// The library's headers need two others before them.
// clang-format off
#include <cstddef>
#include <cstdio>
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include <algorithm>
#include <array>
#include <csetjmp>
#include <string>
#include <string_view>
#include <utility>

#include "kit/picture/decoders.h"

#define VORN_TEXT_OF(number) #number
#define VORN_TEXT(number) VORN_TEXT_OF(number)

namespace vorn::kit {
namespace {

// A progressive file of a few kilobytes can ask for thousands of passes over a large picture.
constexpr int kMostScans = 500;
// Shown at once: a part of what a processor's own cache holds.
constexpr size_t kShownBytes = size_t{128} << 10;
// Taken at once at least, and a multiple of it: as many as the library makes of a row of blocks,
// and as are resized together.
constexpr uint32_t kTakenRows = 16;
constexpr std::string_view kExifMark{"Exif\0\0", 6};
constexpr std::string_view kProfileMark{"ICC_PROFILE\0", 12};

// The library's own record first: it gives us a pointer to that.
struct JpegErrors {
  jpeg_error_mgr base;
  jmp_buf jump;
  std::array<char, JMSG_LENGTH_MAX> message;
};

[[noreturn]] void EndWithMessage(j_common_ptr info) {
  auto* errors = reinterpret_cast<JpegErrors*>(info->err);
  info->err->format_message(info, errors->message.data());
  longjmp(errors->jump, 1);
}

// The library warns of corrupt data and goes on with pixels of its own making. Only what leaves the
// pixels whole may pass.
void TakeMessage(j_common_ptr info, int level) {
  if (level >= 0) return;
  switch (info->err->msg_code) {
    case JWRN_EXTRANEOUS_DATA:
    case JWRN_JFIF_MAJOR:
    case JWRN_ADOBE_XFORM:
    case JWRN_TOO_MUCH_DATA:
      return;
    default:
      EndWithMessage(info);
  }
}

void PrintNothing(j_common_ptr) {}

void StopEndlessScans(j_common_ptr info) {
  auto* decompress = reinterpret_cast<j_decompress_ptr>(info);
  if (decompress->input_scan_number <= kMostScans) return;
  auto* errors = reinterpret_cast<JpegErrors*>(info->err);
  std::snprintf(errors->message.data(), errors->message.size(), "it has more than %d scans",
                kMostScans);
  longjmp(errors->jump, 1);
}

class JpegReader {
 public:
  explicit JpegReader(std::string_view bytes) : bytes_(bytes) {
    info_.err = jpeg_std_error(&errors_.base);
    errors_.base.error_exit = EndWithMessage;
    errors_.base.emit_message = TakeMessage;
    errors_.base.output_message = PrintNothing;
    errors_.message[0] = '\0';
    progress_.progress_monitor = StopEndlessScans;
  }
  ~JpegReader() { jpeg_destroy_decompress(&info_); }
  JpegReader(const JpegReader&) = delete;
  JpegReader& operator=(const JpegReader&) = delete;

  // Each step: false, and Message() says why.
  bool ReadHead(uint64_t mostBytes) {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_create_decompress(&info_);
    info_.progress = &progress_;
    // All of the coefficients of a progressive picture, twice as many bytes as pixels, and some.
    info_.mem->max_memory_to_use = static_cast<long>(mostBytes / 2 * 5);
    jpeg_mem_src(&info_, reinterpret_cast<const unsigned char*>(bytes_.data()), bytes_.size());
    jpeg_save_markers(&info_, JPEG_APP0 + 1, 0xffff);
    jpeg_save_markers(&info_, JPEG_APP0 + 2, 0xffff);
    jpeg_read_header(&info_, TRUE);
    return true;
  }

  bool Start() {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_start_decompress(&info_);
    return true;
  }

  // The next ones.
  bool ReadRows(uint8_t* to, size_t rowBytes, uint32_t rows) {
    if (setjmp(errors_.jump) != 0) return false;
    for (const uint32_t end = info_.output_scanline + rows; info_.output_scanline < end;) {
      JSAMPROW row = to + (rows - (end - info_.output_scanline)) * rowBytes;
      jpeg_read_scanlines(&info_, &row, 1);
    }
    return true;
  }

  bool Finish() {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_finish_decompress(&info_);
    return true;
  }

  // Of the kind of a marker, what is behind its mark; empty if there is none.
  [[nodiscard]] std::string_view Marker(int kind, std::string_view mark) const {
    for (const jpeg_marker_struct* marker = info_.marker_list; marker; marker = marker->next) {
      const std::string_view data(reinterpret_cast<const char*>(marker->data), marker->data_length);
      if (marker->marker == kind && data.starts_with(mark)) return data.substr(mark.size());
    }
    return {};
  }

  [[nodiscard]] jpeg_decompress_struct& Info() { return info_; }
  [[nodiscard]] std::string Message() const { return errors_.message.data(); }

 private:
  std::string_view bytes_;
  jpeg_decompress_struct info_{};
  jpeg_progress_mgr progress_{};
  JpegErrors errors_{};
};

// Shows the rows as they come; of ink nothing, which is not yet what the picture is made of.
bool ReadAllRows(JpegReader& reader, const PictureFile& file, bool isInk, Picture& picture) {
  const size_t rowBytes = picture.RowBytes();
  const auto atOnce = static_cast<uint32_t>(std::max<size_t>(1, kShownBytes / rowBytes));
  for (uint32_t y = 0; y < picture.height; y += atOnce) {
    const uint32_t rows = std::min(atOnce, picture.height - y);
    if (!reader.ReadRows(picture.Row<uint8_t>(y), rowBytes, rows)) return false;
    if (!isInk) file.show({picture.Row<char>(y), rows * rowBytes});
  }
  return reader.Finish();
}

// The same without a picture: rows are shown and taken while they are in the processor's cache.
bool GiveAllRows(JpegReader& reader, const PictureFile& file, const PictureHead& head) {
  const size_t rowBytes = size_t{head.width} * head.channels;
  const auto fitting = static_cast<uint32_t>(kShownBytes / rowBytes);
  const uint32_t atOnce = std::max(kTakenRows, fitting / kTakenRows * kTakenRows);
  PixelBytes taken(rowBytes * std::min(atOnce, head.height));
  for (uint32_t y = 0; y < head.height; y += atOnce) {
    const uint32_t rows = std::min(atOnce, head.height - y);
    if (!reader.ReadRows(reinterpret_cast<uint8_t*>(taken.data()), rowBytes, rows)) return false;
    file.show({reinterpret_cast<const char*>(taken.data()), rows * rowBytes});
    file.taker->Take(taken.data(), rows);
  }
  return reader.Finish();
}

// Ink is stored upside down, as Adobe's programs do it, and is read so even where nothing says that
// it is theirs.
void TurnInkIntoColours(const Picture& ink, Picture& colours) {
  const auto* from = ink.Row<uint8_t>(0);
  const auto* end = from + ink.pixels.size();
  for (auto* to = colours.Row<uint8_t>(0); from != end; from += 4, to += 3) {
    for (int i = 0; i < 3; ++i) {
      const int product = (255 - from[i]) * from[3] + 128;  // divided by 255 and rounded
      to[i] = static_cast<uint8_t>(from[3] - (((product >> 8) + product) >> 8));
    }
  }
}

}  // namespace

std::string JpegDecoder() { return "libjpeg-turbo " VORN_TEXT(LIBJPEG_TURBO_VERSION); }

void DecodeJpeg(const PictureFile& file, DecodedPicture& decoded) {
  const auto refuse = [&](const JpegReader& reader) {
    RefuseAsSaid(file, PictureFormat::kJpeg, reader.Message());
  };
  JpegReader reader(file.bytes);
  if (!reader.ReadHead(file.limits.mostBytes)) refuse(reader);
  jpeg_decompress_struct& info = reader.Info();
  decoded.orientation = OrientationOf(reader.Marker(JPEG_APP0 + 1, kExifMark));
  if (!reader.Marker(JPEG_APP0 + 2, kProfileMark).empty()) {
    decoded.remarks.emplace_back(kProfileRemark);
  }
  switch (info.jpeg_color_space) {
    case JCS_GRAYSCALE:
      info.out_color_space = JCS_GRAYSCALE;
      break;
    case JCS_CMYK:
    case JCS_YCCK:
      info.out_color_space = JCS_CMYK;
      break;
    case JCS_RGB:
    case JCS_YCbCr:
      info.out_color_space = JCS_RGB;
      break;
    default:
      RefusePicture(file, "has " + std::to_string(info.num_components) +
                              " components of an unknown meaning; grey, RGB, YCbCr, CMYK and "
                              "YCCK are read");
  }
  const bool isInk = info.out_color_space == JCS_CMYK;
  const uint32_t stored = isInk ? 4 : info.out_color_space == JCS_RGB ? 3 : 1;
  CheckWithinLimits(file, info.image_width, info.image_height, stored, PixelType::kUint8);
  const PictureHead head{info.image_width, info.image_height, stored, PixelType::kUint8,
                         decoded.orientation};
  decoded.isTaken = file.taker != nullptr && !isInk && file.taker->Begin(head);
  if (decoded.isTaken) {
    if (!reader.Start() || !GiveAllRows(reader, file, head)) refuse(reader);
    return;
  }
  Picture picture = MakeUnclearedPicture(head.width, head.height, stored, PixelType::kUint8);
  if (!reader.Start() || !ReadAllRows(reader, file, isInk, picture)) refuse(reader);
  if (!isInk) {
    decoded.picture = std::move(picture);
    return;
  }
  decoded.remarks.emplace_back(kInkRemark);
  decoded.picture = MakeUnclearedPicture(picture.width, picture.height, 3, PixelType::kUint8);
  TurnInkIntoColours(picture, decoded.picture);
}

}  // namespace vorn::kit
