// Values of a plane as a picture: a PNG in a `data:` address, which a page of this room allows.
#ifndef VORN_KIT_PAGE_HEATMAP_H_
#define VORN_KIT_PAGE_HEATMAP_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kit/page/html.h"

namespace vorn::kit {

/// Bytes of a PNG file, 8 bits, of grey (1) or RGB (3) pixels, row by row without padding. The same
/// pixels are the same bytes.
[[nodiscard]] std::string PngBytes(std::span<const uint8_t> pixels, uint32_t width, uint32_t height,
                                   int channels);

/// Colours for values.
enum class Palette {
  kScale,      ///< dark blue, green, yellow, from low to high
  kDiverging,  ///< blue below 0, white at 0, red above: low is −high
};

/// A plane of [rows, columns] values, row by row. What lies outside of low to high takes the colour
/// of the end; NaN is magenta.
struct Heatmap {
  std::span<const double> values;
  uint32_t rows = 0;
  uint32_t columns = 0;
  double low = 0;
  double high = 1;
  Palette palette = Palette::kScale;
  std::string text;  ///< what it shows, for who does not see it
};

/// A picture of it that grows by whole pixels to some 160 a side.
[[nodiscard]] Html Draw(const Heatmap& map);

/// The colours with the values that they stand for.
[[nodiscard]] Html Legend(Palette palette, double low, double high);

/// An <img> of a PNG file's bytes, shown as wide as `shownWidth` says, else as it is.
[[nodiscard]] Html PictureOf(std::string_view png, std::string_view text, uint32_t width,
                             uint32_t height, uint32_t shownWidth = 0);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_HEATMAP_H_
