// Where the places of an input tensor lie in the picture that it was made from: a recipe resizes
// the picture, cuts it, and sets it into room that it fills. In shares, 0 left or top, 1 right or
// bottom.
//
//     input · size of the input = picture · resized − cut + placed, along each axis
#ifndef VORN_KIT_REPORT_PICTURE_FIT_H_
#define VORN_KIT_REPORT_PICTURE_FIT_H_

#include <cstdint>
#include <optional>

#include "kit/json/json.h"
#include "kit/report/report_facts.h"

namespace vorn::kit {

/// One axis, in pixels.
struct AxisFit {
  double input = 1;    ///< size of the tensor
  double resized = 1;  ///< of the picture behind resizing
  double cut = 0;      ///< of that, left out in front
  double placed = 0;   ///< of the tensor, filled in front

  [[nodiscard]] double ToPicture(double share) const {
    return (share * input + cut - placed) / resized;
  }
  [[nodiscard]] double ToInput(double share) const {
    return (share * resized - cut + placed) / input;
  }
};

struct PictureFit {
  AxisFit x;
  AxisFit y;
  uint64_t width = 0;  ///< of the picture, behind its orientation
  uint64_t height = 0;

  [[nodiscard]] ReportBox ToPicture(const ReportBox& box) const;
};

/// Of "geometry" in a manifest of vorn prepare, for an input of that size; empty where it tells no
/// such thing.
[[nodiscard]] std::optional<PictureFit> FitOf(const Json& geometry, double inputWidth,
                                              double inputHeight);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_PICTURE_FIT_H_
