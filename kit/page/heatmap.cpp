#include "kit/page/heatmap.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csetjmp>
#include <stdexcept>
#include <vector>

#include "kit/page/base64.h"
#include "kit/page/number_text.h"

namespace vorn::kit {
namespace {

using Colour = std::array<uint8_t, 3>;

// Even steps for the eye, also in grey and to those who do not tell red from green.
constexpr std::array<Colour, 6> kScaleColours{
    {{68, 1, 84}, {65, 68, 135}, {42, 120, 142}, {34, 168, 132}, {122, 209, 81}, {253, 231, 37}}};
constexpr std::array<Colour, 5> kDivergingColours{
    {{5, 72, 158}, {121, 171, 222}, {247, 247, 247}, {239, 138, 98}, {158, 10, 24}}};
constexpr Colour kNoNumber{255, 0, 255};

template <size_t kCount>
Colour Between(const std::array<Colour, kCount>& colours, double share) {
  const double place = std::clamp(share, 0.0, 1.0) * static_cast<double>(kCount - 1);
  const size_t lower = std::min(static_cast<size_t>(place), kCount - 2);
  const double part = place - static_cast<double>(lower);
  Colour colour{};
  for (size_t i = 0; i < colour.size(); ++i) {
    const double mixed = colours[lower][i] * (1 - part) + colours[lower + 1][i] * part;
    colour[i] = static_cast<uint8_t>(std::lround(mixed));
  }
  return colour;
}

Colour ColourOf(double value, const Heatmap& map) {
  if (std::isnan(value)) return kNoNumber;
  const double clamped = std::clamp(value, map.low, std::max(map.low, map.high));
  const double share = map.high > map.low ? (clamped - map.low) / (map.high - map.low) : 0.5;
  return map.palette == Palette::kScale ? Between(kScaleColours, share)
                                        : Between(kDivergingColours, share);
}

void AppendBytes(png_structp png, png_bytep bytes, size_t count) {
  static_cast<std::string*>(png_get_io_ptr(png))
      ->append(reinterpret_cast<const char*>(bytes), count);
}

}  // namespace

std::string PngBytes(std::span<const uint8_t> pixels, uint32_t width, uint32_t height,
                     int channels) {
  const size_t rowBytes = static_cast<size_t>(width) * static_cast<size_t>(channels);
  if (width == 0 || height == 0 || (channels != 1 && channels != 3) ||
      pixels.size() / height < rowBytes) {
    throw std::invalid_argument("a picture of " + std::to_string(width) + " x " +
                                std::to_string(height) + " has not so many pixels");
  }
  std::string file;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
  if (info == nullptr || setjmp(png_jmpbuf(png)) != 0) {
    png_destroy_write_struct(&png, &info);
    throw std::runtime_error("a picture could not be written as PNG");
  }
  png_set_write_fn(png, &file, AppendBytes, nullptr);
  png_set_IHDR(png, info, width, height, 8,
               channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (uint32_t row = 0; row < height; ++row) {
    png_write_row(png, pixels.data() + row * rowBytes);
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return file;
}

Html Draw(const Heatmap& map) {
  if (map.rows == 0 || map.columns == 0 ||
      map.values.size() / map.rows < static_cast<size_t>(map.columns)) {
    return {};
  }
  std::vector<uint8_t> pixels;
  pixels.reserve(static_cast<size_t>(map.rows) * map.columns * 3);
  for (size_t i = 0; i < static_cast<size_t>(map.rows) * map.columns; ++i) {
    const Colour colour = ColourOf(map.values[i], map);
    pixels.insert(pixels.end(), colour.begin(), colour.end());
  }
  const uint32_t grown = std::max(1U, 160 / std::max(map.rows, map.columns));
  return PictureOf(PngBytes(pixels, map.columns, map.rows, 3), map.text, map.columns, map.rows,
                   map.columns * grown);
}

Html Legend(Palette palette, double low, double high) {
  constexpr uint32_t kSteps = 64;
  std::vector<double> values;
  for (uint32_t i = 0; i < kSteps; ++i) values.push_back(static_cast<double>(i) / (kSteps - 1));
  std::vector<uint8_t> pixels;
  const Heatmap map{values, 1, kSteps, 0, 1, palette, {}};
  for (const double value : values) {
    const Colour colour = ColourOf(value, map);
    pixels.insert(pixels.end(), colour.begin(), colour.end());
  }
  return Element("span", {{"class", "scale"}},
                 Text(NumberText(low)) +
                     VoidElement("img", {{"src", "data:image/png;base64," +
                                                     Base64(PngBytes(pixels, kSteps, 1, 3))},
                                         {"width", "96"},
                                         {"height", "10"},
                                         {"alt", "to"}}) +
                     Text(NumberText(high)));
}

Html PictureOf(std::string_view png, std::string_view text, uint32_t width, uint32_t height,
               uint32_t shownWidth) {
  const uint32_t shown = shownWidth == 0 ? width : shownWidth;
  const uint64_t shownHeight =
      width == 0 ? height : (static_cast<uint64_t>(height) * shown + width / 2) / width;
  return VoidElement("img", {{"class", "map"},
                             {"src", "data:image/png;base64," + Base64(png)},
                             {"width", std::to_string(shown)},
                             {"height", std::to_string(std::max<uint64_t>(shownHeight, 1))},
                             {"alt", std::string(text)}});
}

}  // namespace vorn::kit
