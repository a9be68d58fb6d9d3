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

bool IsResized(uint32_t width, uint32_t height) {
  return width > 0 && height > 0 && std::max(width, height) <= kMostSide &&
         uint64_t{width} * height <= kMostPixels;
}

void CheckSizes(const Picture& picture, uint32_t width, uint32_t height, ResizeRule rule) {
  for (const auto& [w, h] : {std::pair(picture.width, picture.height), std::pair(width, height)}) {
    if (IsResized(w, h)) continue;
    RefuseResize(rule, "a size of " + SizeOf(w, h) + " is not resized; sides are 1 to " +
                           std::to_string(kMostSide));
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

// Rows that stay as they are.
class SameRows final : public RowResizer {
 public:
  SameRows(const RowResize& resize, TakeRow take)
      : take_(std::move(take)),
        window_(resize.window),
        values_(size_t{resize.width} * resize.channels),
        firstValue_(size_t{window_.left} * resize.channels) {}

  void Add(const uint8_t* rows, uint32_t count) override {
    for (const uint32_t end = next_ + count; next_ < end; ++next_, rows += values_) {
      if (next_ < window_.top || next_ - window_.top >= window_.height) continue;
      take_(next_ - window_.top, rows + firstValue_);
    }
  }

 private:
  TakeRow take_;
  PixelWindow window_;
  size_t values_;
  size_t firstValue_;
  uint32_t next_ = 0;
};

bool IsInside(uint32_t begin, uint32_t size, uint32_t all) {
  return size > 0 && size <= all && begin <= all - size;
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

std::unique_ptr<RowResizer> MakeRowResizer(const RowResize& resize, TakeRow take) {
  const PixelWindow& window = resize.window;
  const bool isTaken = (resize.channels == 1 || resize.channels == 3) &&
                       IsResized(resize.width, resize.height) &&
                       IsResized(resize.newWidth, resize.newHeight) &&
                       IsInside(window.left, window.width, resize.newWidth) &&
                       IsInside(window.top, window.height, resize.newHeight);
  if (!isTaken) return nullptr;
  if (resize.width == resize.newWidth && resize.height == resize.newHeight) {
    return std::make_unique<SameRows>(resize, std::move(take));
  }
  return EntryOf(resize.rule).isOpencv ? MakeOpencvRows(resize, std::move(take))
                                       : MakePillowRows(resize, std::move(take));
}

}  // namespace vorn::kit
