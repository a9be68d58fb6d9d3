// A picture in memory: what decoders make, and what is resized.
//
//     pixels   row 0 | row 1 | …            dense: no stride, no padding
//     row      pixel 0 | pixel 1 | …
//     pixel    a value for each channel, in the byte order of this machine
#ifndef VORN_KIT_PICTURE_PICTURE_H_
#define VORN_KIT_PICTURE_PICTURE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace vorn::kit {

/// Makes elements that hold anything until they are written, where a vector would clear them: a
/// large picture is cleared for a good part of the time that decoding it takes.
template <typename Value>
struct UnclearedAllocator : std::allocator<Value> {
  template <typename Other>
  void construct(Other* place) noexcept {
    ::new (static_cast<void*>(place)) Other;
  }
  template <typename Other, typename... Arguments>
  void construct(Other* place, Arguments&&... arguments) {
    ::new (static_cast<void*>(place)) Other(std::forward<Arguments>(arguments)...);
  }
};

using PixelBytes = std::vector<std::byte, UnclearedAllocator<std::byte>>;

enum class PixelType { kUint8, kUint16, kFloat32 };

/// Bytes of one value.
[[nodiscard]] size_t BytesOf(PixelType type);

/// "uint8", "uint16", "float32".
[[nodiscard]] const char* NameOf(PixelType type);

struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;  ///< 1 grey, 2 grey and alpha, 3 RGB, 4 RGB and alpha
  PixelType type = PixelType::kUint8;
  PixelBytes pixels;

  [[nodiscard]] bool HasAlpha() const { return channels == 2 || channels == 4; }
  [[nodiscard]] size_t RowValues() const { return size_t{width} * channels; }
  [[nodiscard]] size_t RowBytes() const { return RowValues() * BytesOf(type); }
  /// "640x480, 3 channels of uint8".
  [[nodiscard]] std::string Description() const;

  /// The values of row `y`, as what `type` says that they are.
  template <typename Value>
  [[nodiscard]] const Value* Row(uint32_t y) const {
    return reinterpret_cast<const Value*>(pixels.data() + y * RowBytes());
  }
  template <typename Value>
  [[nodiscard]] Value* Row(uint32_t y) {
    return reinterpret_cast<Value*>(pixels.data() + y * RowBytes());
  }
};

/// A picture of that size, all zeros.
[[nodiscard]] Picture MakePicture(uint32_t width, uint32_t height, uint32_t channels,
                                  PixelType type);

/// The same, whose values are anything: for whoever writes all of them.
[[nodiscard]] Picture MakeUnclearedPicture(uint32_t width, uint32_t height, uint32_t channels,
                                           PixelType type);

/// The picture as it is to be looked at, by an orientation as EXIF numbers them: 1 as it is,
/// 2 mirrored, 3 turned by half, 4 mirrored and turned by half, 5 transposed, 6 turned clockwise,
/// 7 transposed over the other diagonal, 8 turned counter-clockwise. Any other number counts as 1.
[[nodiscard]] Picture ApplyOrientation(Picture picture, int orientation);

/// 8 bits a value: the upper byte of 16 bits, which is what Pillow makes of 16-bit colours and
/// OpenCV of any 16-bit picture. 8 bits stay as they are; floats have no such form and are left as
/// they are.
[[nodiscard]] Picture UpperBytes(Picture picture);

/// Without alpha, which is dropped and not multiplied in.
[[nodiscard]] Picture WithoutAlpha(Picture picture);

}  // namespace vorn::kit

#endif  // VORN_KIT_PICTURE_PICTURE_H_
