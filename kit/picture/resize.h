// Resizing by named rules. "Bilinear" without a name does not exist: what OpenCV and what Pillow
// call so are different numbers, and a network is best with the ones that it was trained with. Each
// rule gives what the program gives that it is named after (python3-opencv 4.6 and python3-pil 9.4
// as Debian 12 has them on x86-64), bit for bit where docs/pictures.md does not say otherwise.
#ifndef VORN_KIT_PICTURE_RESIZE_H_
#define VORN_KIT_PICTURE_RESIZE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/picture/picture.h"

namespace vorn::kit {

enum class ResizeRule {
  kOpencvNearest,  ///< cv2.resize, INTER_NEAREST
  kOpencvLinear,  ///< INTER_LINEAR: two taps and no antialias; exactly half the size is kOpencvArea
  kOpencvArea,    ///< INTER_AREA: a mean when shrinking, a kind of linear when growing
  kOpencvCubic,   ///< INTER_CUBIC: four taps and no antialias
  kPilNearest,    ///< Image.resize, NEAREST
  kPilBox,        ///< BOX, as all below: antialiased
  kPilBilinear,   ///< BILINEAR
  kPilHamming,    ///< HAMMING
  kPilBicubic,    ///< BICUBIC
  kPilLanczos,    ///< LANCZOS
};

/// "opencv-linear", "pil-bicubic", …
[[nodiscard]] std::string_view NameOf(ResizeRule rule);
[[nodiscard]] std::optional<ResizeRule> ResizeRuleNamed(std::string_view name);
[[nodiscard]] std::vector<std::string_view> ResizeRuleNames();

/// The part of a picture that is resized, in its pixels; edges may lie within pixels. With rules of
/// Pillow neighbours outside of the box take no part, as with cropping before, except that parts of
/// pixels count (its argument `box`). Pillow has the edges as 32-bit floats.
struct ResizeBox {
  float left = 0;
  float top = 0;
  float right = 0;
  float bottom = 0;
};

/// Why the rule does not take such pictures, as words that go on behind a colon; empty if it does.
/// The rules of Pillow take uint8 of any channels (alpha is multiplied in before and out behind, as
/// Pillow does except for NEAREST), and without alpha uint16 and float32, channel by channel as
/// Pillow's modes "I" and "F"; uint16 results that overshoot are clamped, which "I" leaves to
/// others.
[[nodiscard]] std::string WhyNotResized(ResizeRule rule, PixelType type, uint32_t channels);

/// The picture, or the box of it, at that size. Throws a Fault of kInput where WhyNotResized has a
/// reason, where a size is 0 or more than 65535 × 65535 pixels in all, and where the box is empty,
/// or not inside of the picture, or given for a rule of OpenCV, which has none.
[[nodiscard]] Picture Resize(const Picture& picture, uint32_t width, uint32_t height,
                             ResizeRule rule, const std::optional<ResizeBox>& box = {});

/// A part of a picture, in whole pixels.
struct PixelWindow {
  uint32_t left = 0;
  uint32_t top = 0;
  uint32_t width = 0;
  uint32_t height = 0;
};

/// A picture of uint8 that becomes another one, of which the window is wanted.
struct RowResize {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;
  uint32_t newWidth = 0;
  uint32_t newHeight = 0;
  ResizeRule rule = ResizeRule::kPilBilinear;
  PixelWindow window;
};

/// Is given each row of the window once it is finished, from the top: its number in the window, and
/// its values, which are gone afterwards.
using TakeRow = std::function<void(uint32_t y, const uint8_t* values)>;

/// A picture on its way to another size, row by row, so that all of it need not be there at once.
class RowResizer {
 public:
  virtual ~RowResizer() = default;

  /// The next rows of the picture from the top, without anything between them. Behind the last one
  /// all of the window is taken.
  virtual void Add(const uint8_t* rows, uint32_t count) = 0;
};

/// One that gives to `take` what Resize gives, the window of it. Null where that cannot be done row
/// by row: for some rules, with alpha, and where Resize or the window is refused.
[[nodiscard]] std::unique_ptr<RowResizer> MakeRowResizer(const RowResize& resize, TakeRow take);

}  // namespace vorn::kit

#endif  // VORN_KIT_PICTURE_RESIZE_H_
