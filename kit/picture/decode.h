// Files of pictures, decoded. What a file is, its bytes say and never its name. The values are
// those that Pillow gives for the same file, with the same libraries underneath; where it would
// throw something away (16 bits a colour), what the file holds is kept.
//
// A file is an enemy until it is decoded: sizes are held to the limits before anything is allocated
// by them, what is truncated or corrupt is a fault even where a library would fill it up in grey,
// and no library writes to standard error. A library may still have a fault of its own: decode the
// pictures of others in a child.
#ifndef VORN_KIT_PICTURE_DECODE_H_
#define VORN_KIT_PICTURE_DECODE_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/picture/picture.h"

namespace vorn::kit {

struct DecodeLimits {
  uint64_t mostPixels = uint64_t{1} << 28;
  uint64_t mostBytes = uint64_t{1} << 30;      ///< of the decoded pixels
  uint64_t mostFileBytes = uint64_t{1} << 30;  ///< of the file
};

enum class PictureFormat { kJpeg, kPng, kWebp, kTiff, kPnm, kBmp };

/// "JPEG", "PNG", "WebP", "TIFF", "PNM", "BMP".
[[nodiscard]] const char* NameOf(PictureFormat format);

/// What a file that begins with these bytes (32 are enough) is; none if it is no picture of a kind
/// that is known here.
[[nodiscard]] std::optional<PictureFormat> FormatOf(std::string_view bytes);

/// The library that decodes it and its version: "libpng 1.6.39"; "vorn" for PNM and BMP.
[[nodiscard]] std::string DecoderOf(PictureFormat format);

struct DecodedPicture {
  Picture picture;       ///< as it is stored: the orientation is not applied
  bool isTaken = false;  ///< a RowTaker has its rows, and `picture` none
  std::string format;    ///< as NameOf has it
  std::string decoder;   ///< as DecoderOf has it
  int orientation = 1;   ///< 1 to 8, as ApplyOrientation takes it; 1 where the file says nothing
  /// What somebody should know, a line each, such as "its colour profile is not applied".
  std::vector<std::string> remarks;
};

/// Is given all bytes of the pixels in order, piece by piece: where the decoder can, while they are
/// in the processor's cache. Those of a file that is refused later, too.
using ShowPixels = std::function<void(std::string_view)>;

/// What is known of a picture before its first row.
struct PictureHead {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;
  PixelType type = PixelType::kUint8;
  int orientation = 1;  ///< as in DecodedPicture
};

/// Takes a picture row by row, where the decoder can give it so: all of it need not be in memory
/// then. Those of a file that is refused later, too.
class RowTaker {
 public:
  virtual ~RowTaker() = default;

  /// Whether it takes the rows of this picture. Else the picture is decoded whole.
  virtual bool Begin(const PictureHead& head) = 0;

  /// The next rows from the top, as a Picture has them; they are gone afterwards.
  virtual void Take(const std::byte* rows, uint32_t count) = 0;
};

/// Decodes the file `name` whose bytes these are. Throws a Fault of kInput that names it, and one
/// of kLimit where it is larger than the limits.
[[nodiscard]] DecodedPicture DecodePicture(const std::string& name, std::string_view bytes,
                                           const DecodeLimits& limits = {},
                                           const ShowPixels& show = nullptr,
                                           RowTaker* taker = nullptr);

/// Reads the file and decodes it. Throws as above.
[[nodiscard]] DecodedPicture DecodePictureFile(const std::string& path,
                                               const DecodeLimits& limits = {},
                                               const ShowPixels& show = nullptr,
                                               RowTaker* taker = nullptr);

}  // namespace vorn::kit

#endif  // VORN_KIT_PICTURE_DECODE_H_
