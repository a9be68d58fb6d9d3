#include "kit/judge/accuracy.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "kit/judge/top_agreement.h"

namespace vorn::kit {
namespace {

double ShareOf(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

double AreaOf(const Box& box) {
  return std::max(box.right - box.left, 0.0) * std::max(box.bottom - box.top, 0.0);
}

double IntersectionOverUnion(const Box& one, const Box& other) {
  const Box common{std::max(one.left, other.left),
                   std::max(one.top, other.top),
                   std::min(one.right, other.right),
                   std::min(one.bottom, other.bottom),
                   0,
                   0};
  const double both = AreaOf(common);
  const double either = AreaOf(one) + AreaOf(other) - both;
  return either <= 0 ? 0 : both / either;
}

double ThresholdOf(size_t i) { return 0.5 + 0.05 * static_cast<double>(i); }

// The mean over 101 points of recall of the best precision at that recall or a higher one.
double AveragePrecision(const std::vector<bool>& isRight, uint64_t labelled) {
  std::vector<double> recalls;
  std::vector<double> precisions;
  uint64_t right = 0;
  for (size_t i = 0; i < isRight.size(); ++i) {
    right += isRight[i] ? 1 : 0;
    recalls.push_back(ShareOf(right, labelled));
    precisions.push_back(ShareOf(right, i + 1));
  }
  for (size_t i = precisions.size(); i > 1; --i) {
    precisions[i - 2] = std::max(precisions[i - 2], precisions[i - 1]);
  }
  constexpr int kPoints = 101;
  double sum = 0;
  for (int point = 0; point < kPoints; ++point) {
    const double recall = point / 100.0;
    const auto at = std::lower_bound(recalls.begin(), recalls.end(), recall - 1e-12);
    if (at != recalls.end()) sum += precisions[static_cast<size_t>(at - recalls.begin())];
  }
  return sum / kPoints;
}

std::vector<Box> OfLabel(const std::vector<Box>& boxes, int64_t label) {
  std::vector<Box> found;
  std::copy_if(boxes.begin(), boxes.end(), std::back_inserter(found),
               [&](const Box& box) { return box.label == label; });
  return found;
}

}  // namespace

void ClassAccuracy::Take(std::span<const float> scores, uint64_t label) {
  TopFive top;
  for (size_t i = 0; i < scores.size(); ++i) top.Take(scores[i], i);
  ++items_;
  top1_ += top.Count() > 0 && top.Index(0) == label ? 1 : 0;
  top5_ += top.Holds(label) ? 1 : 0;
}

std::vector<Score> ClassAccuracy::Scores() const {
  return {{"top 1", ShareOf(top1_, items_)}, {"top 5", ShareOf(top5_, items_)}};
}

void MaskAccuracy::Take(std::span<const float> values, std::span<const float> labels) {
  const size_t pixels = labels.size();
  const size_t planes = pixels == 0 ? 0 : values.size() / pixels;
  for (size_t pixel = 0; pixel < pixels; ++pixel) {
    const auto label = static_cast<int64_t>(labels[pixel]);
    if (ignored_ && label == static_cast<int64_t>(*ignored_)) continue;
    int64_t found = -1;
    if (planes == 1) {
      // Whatever is no class is none.
      const float value = values[pixel];
      found = value >= 0 && value <= 1e9F ? static_cast<int64_t>(value) : -1;
    } else {
      TopFive top;
      for (size_t plane = 0; plane < planes; ++plane) {
        top.Take(values[plane * pixels + pixel], plane);
      }
      if (top.Count() > 0) found = static_cast<int64_t>(top.Index(0));
    }
    ++pixels_;
    right_ += found == label ? 1 : 0;
    classes_[label].both += found == label ? 1 : 0;
    ++classes_[label].labelled;
    if (found >= 0) ++classes_[found].found;
  }
}

std::vector<Score> MaskAccuracy::Scores() const {
  double sum = 0;
  for (const auto& [label, counts] : classes_) {
    sum += ShareOf(counts.both, counts.found + counts.labelled - counts.both);
  }
  const double mean = classes_.empty() ? 0 : sum / static_cast<double>(classes_.size());
  return {{"pixel accuracy", ShareOf(right_, pixels_)}, {"mean IoU", mean}};
}

void BoxAccuracy::Take(const std::vector<Box>& found, const std::vector<Box>& labelled) {
  std::map<int64_t, bool> labels;
  for (const Box& box : found) labels[box.label] = true;
  for (const Box& box : labelled) labels[box.label] = true;
  for (const auto& [label, isThere] : labels) {
    TakeClass(label, OfLabel(found, label), OfLabel(labelled, label));
  }
}

// Boxes are taken by their scores; each takes the label that it fits best of those that are left.
void BoxAccuracy::TakeClass(int64_t label, std::vector<Box> found,
                            const std::vector<Box>& labelled) {
  constexpr size_t kMostFound = 100;
  OfClass& known = classes_[label];
  known.labelled += labelled.size();
  std::stable_sort(found.begin(), found.end(),
                   [](const Box& a, const Box& b) { return a.score > b.score; });
  if (found.size() > kMostFound) found.resize(kMostFound);
  std::vector<std::vector<bool>> isTaken(kThresholds, std::vector<bool>(labelled.size()));
  for (const Box& box : found) {
    Found one{box.score, std::vector<bool>(kThresholds)};
    for (size_t i = 0; i < kThresholds; ++i) {
      double best = ThresholdOf(i) - 1e-10;
      size_t taken = labelled.size();
      for (size_t k = 0; k < labelled.size(); ++k) {
        const double fit = IntersectionOverUnion(box, labelled[k]);
        if (isTaken[i][k] || fit < best) continue;
        best = fit;
        taken = k;
      }
      if (taken == labelled.size()) continue;
      isTaken[i][taken] = true;
      one.isRight[i] = true;
    }
    known.found.push_back(std::move(one));
  }
}

std::vector<Score> BoxAccuracy::Scores() const {
  double all = 0;
  double half = 0;
  size_t classes = 0;
  for (const auto& [label, known] : classes_) {
    if (known.labelled == 0) continue;
    ++classes;
    std::vector<size_t> order(known.found.size());
    std::iota(order.begin(), order.end(), 0U);
    std::stable_sort(order.begin(), order.end(), [&, &found = known.found](size_t a, size_t b) {
      return found[a].score > found[b].score;
    });
    for (size_t i = 0; i < kThresholds; ++i) {
      std::vector<bool> isRight;
      for (const size_t at : order) isRight.push_back(known.found[at].isRight[i]);
      const double precision = AveragePrecision(isRight, known.labelled);
      all += precision / kThresholds;
      half += i == 0 ? precision : 0;
    }
  }
  const auto count = static_cast<double>(std::max<size_t>(classes, 1));
  return {{"mAP 50-95", all / count}, {"mAP 50", half / count}};
}

std::optional<std::vector<Box>> BoxesOf(std::span<const float> values) {
  constexpr size_t kRow = 6;
  if (values.size() % kRow != 0) return std::nullopt;
  std::vector<Box> boxes;
  for (size_t at = 0; at < values.size(); at += kRow) {
    const auto row = values.subspan(at, kRow);
    const bool isFound = row[4] > 0;  // NaN is none
    if (!isFound || !(std::abs(row[5]) < 1e9F)) continue;
    boxes.push_back({static_cast<double>(row[0]), static_cast<double>(row[1]),
                     static_cast<double>(row[2]), static_cast<double>(row[3]),
                     static_cast<int64_t>(row[5]), static_cast<double>(row[4])});
  }
  return boxes;
}

}  // namespace vorn::kit
