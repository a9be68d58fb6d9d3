#include "kit/picture/resize.h"

#include <algorithm>
#include <array>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/picture/resize_rules.h"

namespace vorn::kit {
namespace {

struct NamedRule {
  ResizeRule rule;
  std::string_view name;
  bool isOpencv;
};

constexpr std::array kRules{
    NamedRule{ResizeRule::kOpencvNearest, "opencv-nearest", true},
    NamedRule{ResizeRule::kOpencvLinear, "opencv-linear", true},
    NamedRule{ResizeRule::kOpencvArea, "opencv-area", true},
    NamedRule{ResizeRule::kOpencvCubic, "opencv-cubic", true},
    NamedRule{ResizeRule::kPilNearest, "pil-nearest", false},
    NamedRule{ResizeRule::kPilBox, "pil-box", false},
    NamedRule{ResizeRule::kPilBilinear, "pil-bilinear", false},
    NamedRule{ResizeRule::kPilHamming, "pil-hamming", false},
    NamedRule{ResizeRule::kPilBicubic, "pil-bicubic", false},
    NamedRule{ResizeRule::kPilLanczos, "pil-lanczos", false},
};

constexpr uint64_t kMostPixels = uint64_t{65535} * 65535;
constexpr uint32_t kMostSide = (1U << 24) - 1;  // beyond it, floats no longer tell columns apart

const NamedRule& EntryOf(ResizeRule rule) {
  return *std::find_if(kRules.begin(), kRules.end(),
                       [&](const NamedRule& entry) { return entry.rule == rule; });
}

[[noreturn]] void RefuseResize(ResizeRule rule, const std::string& reason) {
  throw Fault(ExitStatus::kInput, "resizing by " + std::string(NameOf(rule)) + ": " + reason);
}

std::string SizeOf(uint32_t width, uint32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

void CheckSizes(const Picture& picture, uint32_t width, uint32_t height, ResizeRule rule) {
  for (const auto& [w, h] : {std::pair(picture.width, picture.height), std::pair(width, height)}) {
    if (w == 0 || h == 0 || w > kMostSide || h > kMostSide || uint64_t{w} * h > kMostPixels) {
      RefuseResize(rule, "a size of " + SizeOf(w, h) + " is not resized; sides are 1 to " +
                             std::to_string(kMostSide));
    }
  }
}

void CheckBox(const Picture& picture, const ResizeBox& box, ResizeRule rule) {
  const auto fitsIn = [](float from, float to, uint32_t size) {  // false for NaN
    return from >= 0 && to > from && to <= static_cast<float>(size);
  };
  if (EntryOf(rule).isOpencv) RefuseResize(rule, "it takes no box; crop the picture before");
  if (!fitsIn(box.left, box.right, picture.width) || !fitsIn(box.top, box.bottom, picture.height)) {
    RefuseResize(rule, "the box from (" + std::to_string(box.left) + ", " +
                           std::to_string(box.top) + ") to (" + std::to_string(box.right) + ", " +
                           std::to_string(box.bottom) + ") is empty or not inside of " +
                           SizeOf(picture.width, picture.height));
  }
}

}  // namespace

std::vector<Instructions> InstructionsHere() {
#ifdef __x86_64__
  std::vector<Instructions> instructions{Instructions::kPlain, Instructions::kSse2};
  if (__builtin_cpu_supports("avx2") == 0) return instructions;
  instructions.push_back(Instructions::kAvx2);
  if (__builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
      __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("avx512vbmi") != 0 &&
      __builtin_cpu_supports("avx512vnni") != 0) {
    instructions.push_back(Instructions::kAvx512);
  }
  return instructions;
#else
  return {Instructions::kPlain};
#endif
}

Instructions BestInstructions() {
  static const Instructions best = InstructionsHere().back();
  return best;
}

std::string_view NameOf(ResizeRule rule) { return EntryOf(rule).name; }

std::optional<ResizeRule> ResizeRuleNamed(std::string_view name) {
  for (const NamedRule& entry : kRules) {
    if (entry.name == name) return entry.rule;
  }
  return {};
}

std::vector<std::string_view> ResizeRuleNames() {
  std::vector<std::string_view> names;
  for (const NamedRule& entry : kRules) names.push_back(entry.name);
  return names;
}

std::string WhyNotResized(ResizeRule rule, PixelType type, uint32_t channels) {
  if (channels < 1 || channels > 4) return std::to_string(channels) + " channels are not resized";
  const bool hasAlpha = channels == 2 || channels == 4;
  if (EntryOf(rule).isOpencv || type == PixelType::kUint8 || !hasAlpha) return {};
  return std::string("Pillow has no alpha beside ") + NameOf(type) +
         "; drop the alpha or make it uint8 before";
}

Picture Resize(const Picture& picture, uint32_t width, uint32_t height, ResizeRule rule,
               const std::optional<ResizeBox>& box) {
  const std::string reason = WhyNotResized(rule, picture.type, picture.channels);
  if (!reason.empty()) RefuseResize(rule, reason);
  CheckSizes(picture, width, height, rule);
  if (box) CheckBox(picture, *box, rule);
  if (EntryOf(rule).isOpencv) return ResizeAsOpencv(picture, width, height, rule);
  const ResizeBox whole{0, 0, static_cast<float>(picture.width),
                        static_cast<float>(picture.height)};
  return ResizeAsPillow(picture, width, height, rule, box.value_or(whole));
}

}  // namespace vorn::kit
