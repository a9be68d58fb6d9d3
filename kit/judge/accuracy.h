// How well outputs name what labels say: classes, masks, boxes. Each taker is given one sample
// after the other, of one side.
#ifndef VORN_KIT_JUDGE_ACCURACY_H_
#define VORN_KIT_JUDGE_ACCURACY_H_

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// A measure and its value, 0 to 1.
struct Score {
  std::string metric;
  double value = 0;
};

/// Shares of items whose label is the greatest, or one of the five greatest.
class ClassAccuracy {
 public:
  /// `scores`: one value a class.
  void Take(std::span<const float> scores, uint64_t label);
  [[nodiscard]] std::vector<Score> Scores() const;

 private:
  uint64_t items_ = 0;
  uint64_t top1_ = 0;
  uint64_t top5_ = 0;
};

/// Share of pixels of the right class, and the mean over classes of intersection over union; a
/// class that neither side has anywhere does not count.
class MaskAccuracy {
 public:
  explicit MaskAccuracy(std::optional<uint64_t> ignored) : ignored_(ignored) {}

  /// `values`: a class a pixel, or as many values for each class one behind the other (classes
  /// first), of which the greatest counts; `labels` a class a pixel.
  void Take(std::span<const float> values, std::span<const float> labels);
  [[nodiscard]] std::vector<Score> Scores() const;

 private:
  struct Counts {
    uint64_t both = 0;
    uint64_t found = 0;
    uint64_t labelled = 0;
  };

  std::optional<uint64_t> ignored_;
  uint64_t pixels_ = 0;
  uint64_t right_ = 0;
  std::map<int64_t, Counts> classes_;
};

struct Box {
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
  int64_t label = 0;
  double score = 0;  ///< of a box that was found
};

/// Mean average precision as COCO counts it: over intersections over union from 0.50 to 0.95 in
/// steps of 0.05, 101 points of recall, at most 100 boxes a sample and class, all sizes, no crowds;
/// and at 0.50 alone.
class BoxAccuracy {
 public:
  void Take(const std::vector<Box>& found, const std::vector<Box>& labelled);
  [[nodiscard]] std::vector<Score> Scores() const;

  static constexpr size_t kThresholds = 10;

 private:
  struct Found {
    double score = 0;
    std::vector<bool> isRight;  ///< by threshold
  };
  struct OfClass {
    uint64_t labelled = 0;
    std::vector<Found> found;
  };

  void TakeClass(int64_t label, std::vector<Box> found, const std::vector<Box>& labelled);

  std::map<int64_t, OfClass> classes_;
};

/// Boxes of an output: rows of left, top, right, bottom, score, class. Rows whose score is not
/// above 0 are room that was not used. Empty where the values are no such rows.
[[nodiscard]] std::optional<std::vector<Box>> BoxesOf(std::span<const float> values);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_ACCURACY_H_
