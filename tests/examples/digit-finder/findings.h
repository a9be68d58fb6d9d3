// What the digit finder finds, and what there is to find.
#ifndef VORN_TESTS_EXAMPLES_DIGIT_FINDER_FINDINGS_H_
#define VORN_TESTS_EXAMPLES_DIGIT_FINDER_FINDINGS_H_

#include <algorithm>
#include <array>
#include <compare>
#include <vector>

namespace finder {

inline constexpr int kClasses = 10;

/// Of a square, in pixels; x2 and y2 lie behind the last one.
struct Box {
  float x1, y1, x2, y2;

  auto operator<=>(const Box&) const = default;
};

/// A row of the output `findings`.
struct Finding {
  Box box;
  float score;
  float digit;

  auto operator<=>(const Finding&) const = default;
};
static_assert(sizeof(Finding) == 6 * sizeof(float), "dumps are read as they are");

/// One set of thresholds.
struct Thresholds {
  float score;
  float overlap;
  float ink;  ///< mean of a window, 0 to 1
  float most;
};

using ThresholdsByClass = std::array<Thresholds, kClasses>;

/// Intersection over union.
inline double Overlap(const Box& a, const Box& b) {
  const double width = std::min(a.x2, b.x2) - std::max(a.x1, b.x1);
  const double height = std::min(a.y2, b.y2) - std::max(a.y1, b.y1);
  if (width <= 0 || height <= 0) return 0;
  const auto area = [](const Box& box) { return double{box.x2 - box.x1} * (box.y2 - box.y1); };
  return width * height / (area(a) + area(b) - width * height);
}

}  // namespace finder

#endif  // VORN_TESTS_EXAMPLES_DIGIT_FINDER_FINDINGS_H_
