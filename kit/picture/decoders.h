// What decode.cpp and the decoders of the kinds of files share; nobody else includes it.
#ifndef VORN_KIT_PICTURE_DECODERS_H_
#define VORN_KIT_PICTURE_DECODERS_H_

#include <string>
#include <string_view>

#include "kit/picture/decode.h"

namespace vorn::kit {

/// A file on its way to a picture.
struct PictureFile {
  const std::string& name;
  std::string_view bytes;
  const DecodeLimits& limits;
  /// Takes the picture's first bytes, then the next ones, from a decoder that has them in order and
  /// for good; what no decoder gave is given at the end.
  const ShowPixels& show;
  /// Null, or who is asked whether they take rows, which are shown as well.
  RowTaker* taker;
};

/// "the picture 'NAME' REASON", as a fault of kInput.
[[noreturn]] void RefusePicture(const PictureFile& file, const std::string& reason);

/// The same for what a library says: "the picture 'NAME' cannot be decoded as JPEG: WORDS".
[[noreturn]] void RefuseAsSaid(const PictureFile& file, PictureFormat format,
                               const std::string& words);

/// An empty picture of that size. Refuses sizes of 0 and sizes beyond the limits, by what the head
/// of the file says.
[[nodiscard]] Picture MakeWithinLimits(const PictureFile& file, uint64_t width, uint64_t height,
                                       uint32_t channels, PixelType type);

/// The same, not cleared: for decoders that write every value or refuse the file.
[[nodiscard]] Picture MakeUnclearedWithinLimits(const PictureFile& file, uint64_t width,
                                                uint64_t height, uint32_t channels, PixelType type);

/// The same check alone, before a library allocates.
void CheckWithinLimits(const PictureFile& file, uint64_t width, uint64_t height, uint32_t channels,
                       PixelType type);

/// The orientation in EXIF data (that begin with a TIFF header), 1 to 8; 1 where there is none.
[[nodiscard]] int OrientationOf(std::string_view exif);

/// Whether the first directory of a TIFF (not of a BigTIFF) has that tag.
[[nodiscard]] bool HasTag(std::string_view tiff, uint16_t tag);

inline constexpr const char* kWideRemark =
    "it has 16 bits a colour, of which Pillow keeps the upper 8";
inline constexpr const char* kInkRemark = "its ink (CMYK) is turned into RGB by the plain formula";
inline constexpr const char* kAnimationRemark = "it is an animation; its first picture is taken";
inline constexpr const char* kProfileRemark =
    "its colour profile is not applied: the values are as they are stored";

void DecodeJpeg(const PictureFile& file, DecodedPicture& decoded);
void DecodePng(const PictureFile& file, DecodedPicture& decoded);
void DecodeWebp(const PictureFile& file, DecodedPicture& decoded);
void DecodeTiff(const PictureFile& file, DecodedPicture& decoded);
void DecodePnm(const PictureFile& file, DecodedPicture& decoded);
void DecodeBmp(const PictureFile& file, DecodedPicture& decoded);

/// The versions of the libraries, as they tell them.
[[nodiscard]] std::string JpegDecoder();
[[nodiscard]] std::string PngDecoder();
[[nodiscard]] std::string WebpDecoder();
[[nodiscard]] std::string TiffDecoder();

}  // namespace vorn::kit

#endif  // VORN_KIT_PICTURE_DECODERS_H_
