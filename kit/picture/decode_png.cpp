// PNG, by libpng. It reports through longjmp, which must not leave anything with a destructor
// behind: the steps that call it are functions of PngReader without such objects.
#include <png.h>

#include <bit>
#include <csetjmp>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/common/printable.h"
#include "kit/picture/decoders.h"

namespace vorn::kit {
namespace {

constexpr size_t kSignatureBytes = 8;
constexpr png_alloc_size_t kMostChunkBytes = 64 << 20;
constexpr png_byte kLeftOut[] = "tEXt\0zTXt\0iTXt\0sPLT\0hIST";
constexpr int kLeftOutCount = sizeof kLeftOut / 5;

class PngReader {
 public:
  explicit PngReader(std::string_view bytes) : rest_(bytes) {}
  ~PngReader() { png_destroy_read_struct(&png_, &info_, nullptr); }
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;

  // Each step: false, and Message() says why.
  bool ReadHead() {
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, TakeError, TakeWarning);
    if (png_ == nullptr) return false;
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    info_ = png_create_info_struct(png_);
    if (info_ == nullptr) return false;
    png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);  // ours are told in our words
    png_set_chunk_malloc_max(png_, kMostChunkBytes);
    // Texts are kept, and a few kilobytes of them can become gigabytes. Nothing here asks for them.
    png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER, kLeftOut, kLeftOutCount);
    png_set_read_fn(png_, this, GiveBytes);
    png_read_info(png_, info_);
    return true;
  }

  // All kinds become grey, grey and alpha, RGB or RGBA, of 8 or 16 bits; palettes indices of 8.
  bool ChooseValues() {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    isGreyAsStored_ = png_get_color_type(png_, info_) == PNG_COLOR_TYPE_GRAY;
    if (HasPalette()) {
      png_set_packing(png_);
    } else {
      png_set_expand(png_);
    }
    if (std::endian::native == std::endian::little) png_set_swap(png_);
    png_set_interlace_handling(png_);
    png_read_update_info(png_, info_);
    return true;
  }

  bool ReadRows(png_bytepp rows) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_read_image(png_, rows);
    png_read_end(png_, info_);
    return true;
  }

  [[nodiscard]] uint32_t Width() const { return png_get_image_width(png_, info_); }
  [[nodiscard]] uint32_t Height() const { return png_get_image_height(png_, info_); }
  [[nodiscard]] uint32_t Channels() const { return png_get_channels(png_, info_); }
  [[nodiscard]] uint32_t Bits() const { return png_get_bit_depth(png_, info_); }
  [[nodiscard]] bool HasPalette() const {
    return png_get_color_type(png_, info_) == PNG_COLOR_TYPE_PALETTE;
  }
  [[nodiscard]] std::span<const png_color> Palette() const {
    png_colorp colours = nullptr;
    int count = 0;
    png_get_PLTE(png_, info_, &colours, &count);
    return {colours, static_cast<size_t>(count)};
  }
  // Of the first colours of the palette; the others have none.
  [[nodiscard]] std::span<const png_byte> Alphas() const {
    png_bytep alphas = nullptr;
    int count = 0;
    png_color_16p key = nullptr;
    png_get_tRNS(png_, info_, &alphas, &count, &key);
    return {alphas, static_cast<size_t>(count)};
  }
  [[nodiscard]] bool IsGreyAsStored() const { return isGreyAsStored_; }
  [[nodiscard]] bool HasProfile() const { return png_get_valid(png_, info_, PNG_INFO_iCCP) != 0; }
  // After the last step: EXIF data may stand behind the pixels.
  [[nodiscard]] std::string_view Exif() const {
    png_uint_32 size = 0;
    png_bytep data = nullptr;
    if (png_get_eXIf_1(png_, info_, &size, &data) == 0) return {};
    return {reinterpret_cast<const char*>(data), size};
  }
  [[nodiscard]] std::string Message() const { return message_; }

 private:
  static void TakeError(png_structp png, png_const_charp message) {
    auto* reader = static_cast<PngReader*>(png_get_error_ptr(png));
    std::strncpy(reader->message_, message, sizeof reader->message_ - 1);
    png_longjmp(png, 1);
  }

  // Of chunks that are not needed for the pixels.
  static void TakeWarning(png_structp, png_const_charp) {}

  static void GiveBytes(png_structp png, png_bytep to, size_t bytes) {
    auto* reader = static_cast<PngReader*>(png_get_io_ptr(png));
    if (bytes > reader->rest_.size()) png_error(png, "the file ends too early");
    std::memcpy(to, reader->rest_.data(), bytes);
    reader->rest_.remove_prefix(bytes);
  }

  std::string_view rest_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  bool isGreyAsStored_ = false;
  char message_[200] = "out of memory";
};

// Not by the library: it takes an index beyond the palette for black.
Picture LookUpColours(const PictureFile& file, const PngReader& reader, const Picture& indices) {
  const std::span<const png_color> palette = reader.Palette();
  const std::span<const png_byte> alphas = reader.Alphas();
  Picture picture = MakeUnclearedWithinLimits(file, indices.width, indices.height,
                                              alphas.empty() ? 3 : 4, PixelType::kUint8);
  auto* to = picture.Row<uint8_t>(0);
  for (const std::byte byte : indices.pixels) {
    const auto index = std::to_integer<size_t>(byte);
    if (index >= palette.size()) {
      RefusePicture(file, "has a pixel of colour " + std::to_string(index) + ", and a palette of " +
                              Counted(palette.size(), "colour"));
    }
    *to++ = palette[index].red;
    *to++ = palette[index].green;
    *to++ = palette[index].blue;
    if (!alphas.empty()) *to++ = index < alphas.size() ? alphas[index] : 255;
  }
  return picture;
}

// An animation is a picture with a chunk that says so before the pixels; others see the picture.
bool IsAnimation(std::string_view bytes) {
  size_t place = kSignatureBytes;
  while (place < bytes.size() && bytes.size() - place >= 8) {
    uint64_t length = 0;
    for (size_t i = 0; i < 4; ++i) {
      length = length << 8 | static_cast<unsigned char>(bytes[place + i]);
    }
    const std::string_view type = bytes.substr(place + 4, 4);
    if (type == "acTL") return true;
    if (type == "IDAT") return false;
    place += 12 + length;
  }
  return false;
}

}  // namespace

std::string PngDecoder() { return std::string("libpng ") + png_get_libpng_ver(nullptr); }

void DecodePng(const PictureFile& file, DecodedPicture& decoded) {
  const auto refuse = [&](const PngReader& reader) {
    RefuseAsSaid(file, PictureFormat::kPng, reader.Message());
  };
  PngReader reader(file.bytes);
  if (!reader.ReadHead()) refuse(reader);
  // By the largest that it can become, before the library allocates a row.
  CheckWithinLimits(file, reader.Width(), reader.Height(), 1, PixelType::kUint8);
  if (!reader.ChooseValues()) refuse(reader);
  const PixelType type = reader.Bits() == 16 ? PixelType::kUint16 : PixelType::kUint8;
  Picture picture =
      MakeUnclearedWithinLimits(file, reader.Width(), reader.Height(), reader.Channels(), type);
  std::vector<png_bytep> rows(picture.height);
  for (uint32_t y = 0; y < picture.height; ++y) rows[y] = picture.Row<png_byte>(y);
  if (!reader.ReadRows(rows.data())) refuse(reader);

  decoded.orientation = OrientationOf(reader.Exif());
  if (reader.HasProfile()) decoded.remarks.emplace_back(kProfileRemark);
  if (IsAnimation(file.bytes)) {
    decoded.remarks.emplace_back(kAnimationRemark);
  }
  if (type == PixelType::kUint16 && !reader.IsGreyAsStored()) {
    decoded.remarks.emplace_back(kWideRemark);
  }
  decoded.picture = reader.HasPalette() ? LookUpColours(file, reader, picture) : std::move(picture);
}

}  // namespace vorn::kit
