#include "examples/digit-finder/plain_suppression.h"

#include <algorithm>

namespace finder {
namespace {

constexpr size_t kSide = 96;
constexpr float kFullInk = 16;

bool IsKept(const Finding& candidate, const std::vector<Finding>& kept, const std::string& scene,
            const Thresholds& thresholds) {
  if (static_cast<float>(kept.size()) >= thresholds.most) return false;
  if (candidate.score <= thresholds.score) return false;
  if (InkIn(candidate.box, scene) < thresholds.ink) return false;
  return std::none_of(kept.begin(), kept.end(), [&](const Finding& other) {
    return Overlap(candidate.box, other.box) > thresholds.overlap;
  });
}

}  // namespace

std::vector<Finding> Suppress(std::vector<Finding> candidates, const std::string& scene,
                              const ThresholdsByClass& thresholds) {
  std::sort(candidates.begin(), candidates.end(),
            [](const Finding& a, const Finding& b) { return a.score > b.score; });
  std::vector<Finding> findings;
  for (int digit = 0; digit < kClasses; ++digit) {
    std::vector<Finding> kept;
    for (const Finding& candidate : candidates) {
      if (static_cast<int>(candidate.digit) != digit) continue;
      if (IsKept(candidate, kept, scene, thresholds[static_cast<size_t>(digit)])) {
        kept.push_back(candidate);
      }
    }
    findings.insert(findings.end(), kept.begin(), kept.end());
  }
  return findings;
}

float InkIn(const Box& box, const std::string& scene) {
  float sum = 0;
  for (auto y = static_cast<size_t>(box.y1); y < static_cast<size_t>(box.y2); ++y) {
    for (auto x = static_cast<size_t>(box.x1); x < static_cast<size_t>(box.x2); ++x) {
      sum += static_cast<float>(static_cast<unsigned char>(scene.at(y * kSide + x)));
    }
  }
  return sum / ((box.x2 - box.x1) * (box.y2 - box.y1)) / kFullInk;
}

}  // namespace finder
