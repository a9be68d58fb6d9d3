#include "kit/report/picture_fit.h"

#include <utility>

namespace vorn::kit {
namespace {

// Height and width, top and left.
std::pair<double, double> PairAt(const Json& geometry, const char* key) {
  const auto& pair = geometry.At(key).Items();
  if (pair.size() != 2) throw JsonError(std::string(key) + " is no pair");
  return {static_cast<double>(pair[0].AsUnsigned()), static_cast<double>(pair[1].AsUnsigned())};
}

}  // namespace

ReportBox PictureFit::ToPicture(const ReportBox& box) const {
  ReportBox placed = box;
  placed.left = x.ToPicture(box.left);
  placed.right = x.ToPicture(box.right);
  placed.top = y.ToPicture(box.top);
  placed.bottom = y.ToPicture(box.bottom);
  return placed;
}

std::optional<PictureFit> FitOf(const Json& geometry, double inputWidth, double inputHeight) {
  try {
    const auto [height, width] = PairAt(geometry, "picture");
    const auto [resizedHeight, resizedWidth] = PairAt(geometry, "resized");
    const auto [cutTop, cutLeft] = PairAt(geometry, "cut");
    const auto [placedTop, placedLeft] = PairAt(geometry, "placed");
    if (width < 1 || height < 1 || resizedWidth < 1 || resizedHeight < 1) return std::nullopt;
    if (inputWidth < 1 || inputHeight < 1) return std::nullopt;
    return PictureFit{.x = {inputWidth, resizedWidth, cutLeft, placedLeft},
                      .y = {inputHeight, resizedHeight, cutTop, placedTop},
                      .width = static_cast<uint64_t>(width),
                      .height = static_cast<uint64_t>(height)};
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

}  // namespace vorn::kit
