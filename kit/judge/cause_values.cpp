// Causes that leave every value in its place and make another one of it.
#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "kit/judge/cause_evidence.h"
#include "kit/judge/rules.h"
#include "kit/judge/top_agreement.h"
#include "kit/tensor/element_type.h"

namespace vorn::kit {
namespace {

std::string CountOf(uint64_t count) {
  return std::to_string(count) + (count == 1 ? " element" : " elements");
}

class ValueFinder {
 public:
  ValueFinder(const CauseQuestion& question, const Scales& scales, std::vector<Cause>& causes)
      : question_(question),
        scales_(scales),
        likeness_(scales.Usual()),
        causes_(causes),
        actual_(question.actual),
        expected_(question.expected),
        count_(question.actual.size()) {}

  void Find() {
    if (FindConstant()) return;
    FindTail();
    FindBits();
    FindSigns();
    FindSaturation();
    FindLinear();
    FindActivations();
    FindIsolated();
    if (causes_.empty()) FindOrderKept();
  }

 private:
  bool AreAlike(uint64_t element) const {
    return likeness_.AreAlike(actual_[element], expected_[element]);
  }

  bool IsSame(float one, float other) const {
    return std::bit_cast<uint32_t>(one) == std::bit_cast<uint32_t>(other) || one == other ||
           (std::isnan(one) && std::isnan(other));
  }

  void Add(const char* id, const std::string& text, double certainty) {
    causes_.push_back({id, text, certainty});
  }

  // What the expectation makes of each element. It may be much smaller or larger than what was
  // expected: the noise is in proportion to what is there.
  bool TryFunction(const char* id, const std::string& text,
                   const std::function<float(uint64_t)>& valueOf) {
    const Likeness likeness(actual_);
    const auto evidence = scales_.Weigh(likeness, [&](uint64_t element) {
      return std::optional(Told{actual_[element], valueOf(element)});
    });
    if (!evidence) return false;
    causes_.push_back(MakeCause(id, text, *evidence));
    return true;
  }

  // ---- Elements that nobody wrote ---------------------------------------------------------------

  bool FindConstant() {
    // Bits of numbers below 0 that were read as floats are NaN, and of other bits each.
    const auto first = std::bit_cast<uint32_t>(actual_[0]);
    for (uint64_t i = 1; i < count_; ++i) {
      if (std::bit_cast<uint32_t>(actual_[i]) != first && actual_[i] != actual_[0]) return false;
    }
    uint64_t other = 0;
    for (uint64_t i = 0; i < count_; ++i) other += AreAlike(i) ? 0 : 1;
    if (other < 2) return false;
    Add("constant", "every element is " + NumberText(static_cast<double>(actual_[0])), 1);
    return true;
  }

  void FindTail() {
    uint64_t constantFrom = count_ - 1;
    while (constantFrom > 0 && IsSame(actual_[constantFrom - 1], actual_[count_ - 1])) {
      --constantFrom;
    }
    if (IsUnwrittenFrom(constantFrom)) {
      return AddTail(constantFrom,
                     "every one is " + NumberText(static_cast<double>(actual_[count_ - 1])));
    }
    if (question_.before.size() != count_) return;
    uint64_t staleFrom = count_;
    while (staleFrom > 0 &&
           likeness_.LevelOf(actual_[staleFrom - 1], question_.before[staleFrom - 1]) == 0) {
      --staleFrom;
    }
    if (IsUnwrittenFrom(staleFrom)) AddTail(staleFrom, "they are those of the sample before");
  }

  // Whether elements are right before a place, and some behind it are not. What stands behind it is
  // known to be nothing that was written.
  bool IsUnwrittenFrom(uint64_t place) const {
    if (place == 0) return false;
    uint64_t rightBefore = 0;
    uint64_t wrongBehind = 0;
    for (uint64_t i = 0; i < place; ++i) rightBefore += AreAlike(i) ? 1 : 0;
    for (uint64_t i = place; i < count_; ++i) wrongBehind += AreAlike(i) ? 0 : 1;
    return rightBefore * 100 >= place * 99 && wrongBehind >= 2;
  }

  void AddTail(uint64_t place, const std::string& what) {
    Add("tail-unwritten",
        "the last " + CountOf(count_ - place) + " from " + std::to_string(place) +
            " on were not written: " + what,
        0.99);
  }

  // ---- Types ------------------------------------------------------------------------------------

  void FindBits() {
    TryFunction("float16-as-bits", "the bits of float16 were read as whole numbers",
                [&](uint64_t i) { return static_cast<float>(Float16BitsOf(expected_[i])); });
    TryFunction("bfloat16-as-bits", "the bits of bfloat16 were read as whole numbers",
                [&](uint64_t i) {
                  const float rounded = RoundedToBfloat16(expected_[i]);
                  return static_cast<float>(std::bit_cast<uint32_t>(rounded) >> 16);
                });
    FindWholeNumbersAsFloats();
    FindByteOrder();
  }

  // Each byte order is that of the other one's reader: what stands there is turned back.
  void FindByteOrder() {
    const auto areAll = [&](const std::function<bool(float)>& holds) {
      return std::all_of(actual_.begin(), actual_.end(), holds);
    };
    const auto isWhole = [](double least, double most) {
      return [=](float value) {
        const auto wide = static_cast<double>(value);
        return wide >= least && wide <= most && wide == std::nearbyint(wide);
      };
    };
    const auto swap16 = [](uint32_t bits) {
      return static_cast<uint16_t>((bits & 0xFFU) << 8 | (bits >> 8 & 0xFFU));
    };
    constexpr double kMostInt16 = 32767;
    constexpr double kMostUint16 = 65535;
    constexpr double kMostInt32 = 2147483647;
    if (areAll(isWhole(-kMostInt16 - 1, kMostInt16))) {
      TryTurned("int16", [=](float value) {
        return static_cast<float>(
            static_cast<int16_t>(swap16(static_cast<uint16_t>(static_cast<int16_t>(value)))));
      });
    }
    if (areAll(isWhole(0, kMostUint16))) {
      TryTurned("uint16", [=](float value) {
        return static_cast<float>(swap16(static_cast<uint32_t>(value)));
      });
    }
    // The greatest float below 2^31: beyond it there is no int32.
    if (areAll(isWhole(-kMostInt32 - 1, kMostInt32 - 128))) {
      TryTurned("int32", [](float value) {
        const auto bits = static_cast<uint32_t>(static_cast<int32_t>(value));
        return static_cast<float>(static_cast<int32_t>(__builtin_bswap32(bits)));
      });
    }
    // Of a NaN the bits of 16 are not kept.
    if (areAll([](float value) { return std::isnan(value) || RoundedToFloat16(value) == value; })) {
      TryTurned("float16", [=](float value) {
        return std::isnan(value) ? value : Float16Value(swap16(Float16BitsOf(value)));
      });
    }
    if (areAll([](float value) { return (std::bit_cast<uint32_t>(value) & 0xFFFFU) == 0; })) {
      TryTurned("bfloat16", [=](float value) {
        return Bfloat16Value(swap16(std::bit_cast<uint32_t>(value) >> 16));
      });
    }
    TryTurned("float32", [](float value) {
      return std::bit_cast<float>(__builtin_bswap32(std::bit_cast<uint32_t>(value)));
    });
  }

  void TryTurned(const std::string& type, const std::function<float(float)>& turned) {
    const auto evidence = scales_.Weigh(likeness_, [&](uint64_t i) -> std::optional<Told> {
      const float value = turned(actual_[i]);
      if (std::isnan(value) && !std::isnan(expected_[i])) return std::nullopt;
      return Told{value, expected_[i]};
    });
    if (!evidence) return;
    causes_.push_back(MakeCause(
        "byte-order", "the bytes of each " + type + " stand in the other order", *evidence));
  }

  static uint32_t Float16BitsOf(float value) {
    const float rounded = RoundedToFloat16(value);
    const uint32_t sign = std::signbit(value) ? 0x8000U : 0;
    if (std::isnan(rounded)) return sign | 0x7E00U;
    const float magnitude = std::abs(rounded);
    if (std::isinf(magnitude)) return sign | 0x7C00U;
    constexpr float kLeastNormal = 0x1p-14F;
    if (magnitude < kLeastNormal) return sign | static_cast<uint32_t>(magnitude * 0x1p24F);
    return sign | (std::bit_cast<uint32_t>(magnitude) - (112U << 23)) >> 13;
  }

  void FindWholeNumbersAsFloats() {
    // They are denormal, for the most part: too small to be compared as values.
    // A 0 is one either way and tells nothing.
    uint64_t same = 0;
    uint64_t told = 0;
    for (uint64_t i = 0; i < count_; ++i) {
      if (expected_[i] == 0 && actual_[i] == 0) continue;
      ++told;
      const auto whole = static_cast<float>(std::bit_cast<int32_t>(actual_[i]));
      same += whole == expected_[i] ? 1 : 0;
    }
    if (same * 100 >= told * 97 && told >= 2) {
      Add("int32-as-float", "the bits of int32 were read as floats", 1);
    }
  }

  // Numbers below 0 that came out larger by all values of the type, or the other way round.
  void FindSigns() {
    double apart = 0;
    uint64_t wrong = 0;
    bool isSigned = true;  // it was signed and read as unsigned
    bool isUnsigned = true;
    for (uint64_t i = 0; i < count_; ++i) {
      if (AreAlike(i)) continue;
      const double difference = Difference(i);
      if (!std::isfinite(difference)) return;
      if (wrong++ == 0) apart = difference;
      if (std::abs(difference - apart) > 0.02 * std::abs(apart)) return;
      isSigned = isSigned && expected_[i] < 0 && actual_[i] > 0;
      isUnsigned = isUnsigned && expected_[i] > 0 && actual_[i] < 0;
    }
    if (wrong < 1 || (!isSigned && !isUnsigned)) return;
    for (const auto& [values, name] : {std::pair{256.0, "8"}, std::pair{65536.0, "16"}}) {
      const double step = std::abs(apart) / values;
      if (!AreWhole(step)) continue;
      return Add(isSigned ? "signed-as-unsigned" : "unsigned-as-signed",
                 CountOf(wrong) + (isSigned ? " below 0 came out " : " came out ") +
                     NumberText(std::abs(apart)) + (isSigned ? " larger: " : " smaller: ") +
                     (isSigned ? "signed" : "unsigned") + " numbers of " + name +
                     " bits were read as " + (isSigned ? "unsigned" : "signed"),
                 0.996);
    }
  }

  double Difference(uint64_t i) const {
    return static_cast<double>(actual_[i]) - static_cast<double>(expected_[i]);
  }

  // Whether all actual values are multiples of a step, and a few of them not 0.
  bool AreWhole(double step) const {
    constexpr uint64_t kFewest = 3;
    uint64_t some = 0;
    for (const float value : actual_) {
      const double steps = static_cast<double>(value) / step;
      if (std::abs(steps - std::nearbyint(steps)) > 0.01) return false;
      some += std::abs(steps) > 0.5 ? 1 : 0;
    }
    return some >= kFewest;
  }

  // ---- Functions of the value -------------------------------------------------------------------

  void FindSaturation() {
    const auto [least, most] = std::minmax_element(actual_.begin(), actual_.end());
    uint64_t atLeast = 0;
    uint64_t atMost = 0;
    for (uint64_t i = 0; i < count_; ++i) {
      if (likeness_.LevelOf(actual_[i], expected_[i]) < 2) continue;
      if (actual_[i] == *most && expected_[i] > *most) {
        ++atMost;
      } else if (actual_[i] == *least && expected_[i] < *least) {
        ++atLeast;
      } else {
        return;
      }
    }
    // One element at its end may be anything, but a place where types end.
    const auto isEnd = [](float value) {
      constexpr std::array kEnds{127.0F, 128.0F, 255.0F, 32767.0F, 32768.0F, 65504.0F, 65535.0F};
      return std::find(kEnds.begin(), kEnds.end(), std::abs(value)) != kEnds.end();
    };
    const bool isMost = atMost > 1 || (atMost == 1 && isEnd(*most));
    const bool isLeast = atLeast > 1 || (atLeast == 1 && isEnd(*least));
    if (atMost + atLeast == count_ || (!isMost && !isLeast)) return;
    std::string text = CountOf(atMost + atLeast) + " saturated at ";
    if (isLeast) text += NumberText(static_cast<double>(*least));
    if (isLeast && isMost) text += " and ";
    if (isMost) text += NumberText(static_cast<double>(*most));
    Add("saturated", text, 0.99);
  }

  void FindLinear() {
    double sumA = 0;
    double sumE = 0;
    double sumAe = 0;
    double sumEe = 0;
    double number = 0;
    for (uint64_t i = 0; i < count_; ++i) {
      if (!std::isfinite(actual_[i]) || !std::isfinite(expected_[i])) continue;
      const auto a = static_cast<double>(actual_[i]);
      const auto e = static_cast<double>(expected_[i]);
      sumA += a;
      sumE += e;
      sumAe += a * e;
      sumEe += e * e;
      ++number;
    }
    constexpr double kFewest = 4;
    if (number < kFewest || sumEe == 0) return;
    const double scale = sumAe / sumEe;
    const double offset = (sumA - sumE) / number;
    if (TryLine(scale, 0) || TryLine(1, offset)) return;
    const double spread = sumEe * number - sumE * sumE;
    if (spread <= 1e-9 * sumEe * number) return;
    const double slope = (sumAe * number - sumA * sumE) / spread;
    TryLine(slope, (sumA - slope * sumE) / number);
  }

  bool TryLine(double scale, double offset) {
    if (scale == 0 || !std::isfinite(scale)) return false;
    const Likeness likeness(actual_);  // in proportion to what is there: it may be much larger
    const auto evidence = scales_.Weigh(likeness, [&](uint64_t i) {
      const double value = scale * static_cast<double>(expected_[i]) + offset;
      return std::optional(Told{actual_[i], static_cast<float>(value)});
    });
    if (!evidence) return false;
    std::string text;
    if (scale != 1) text = "every value is " + NumberText(scale) + " times the expected one";
    if (offset != 0) {
      text += text.empty() ? "every value is the expected one plus " : ", plus ";
      text += NumberText(offset);
    }
    causes_.push_back(MakeCause(scale == 1 ? "offset" : "scaled", text, *evidence));
    return true;
  }

  // ---- Activations ------------------------------------------------------------------------------

  using Function = float (*)(float);

  struct Activation {
    const char* name;
    Function function;
  };

  static constexpr std::array<Activation, 5> kActivations{{
      {"ReLU", [](float x) { return x > 0 ? x : 0.0F; }},
      {"ReLU6", [](float x) { return std::clamp(x, 0.0F, 6.0F); }},
      {"sigmoid", [](float x) { return 1 / (1 + std::exp(-x)); }},
      {"tanh", [](float x) { return std::tanh(x); }},
      {"exp", [](float x) { return std::exp(x); }},
  }};

  void FindActivations() {
    // Whatever it is, an activation changes more than noise does.
    for (const Activation& activation : kActivations) {
      if (TryApplied(activation.name, Applied(actual_, activation.function), expected_, false))
        return;
      if (TryApplied(activation.name, Applied(expected_, activation.function), actual_, true))
        return;
    }
    const uint64_t classes =
        ClassesOf(question_.shape)
            .value_or(question_.shape.empty() ? count_ : question_.shape.back());
    if (classes < 2 || count_ % classes != 0) return;
    if (TryApplied("softmax", Softmax(actual_, classes), expected_, false)) return;
    TryApplied("softmax", Softmax(expected_, classes), actual_, true);
  }

  static std::vector<float> Applied(std::span<const float> values, Function function) {
    std::vector<float> applied(values.size());
    std::transform(values.begin(), values.end(), applied.begin(), function);
    return applied;
  }

  static std::vector<float> Softmax(std::span<const float> values, uint64_t classes) {
    std::vector<float> applied(values.size());
    for (uint64_t first = 0; first < values.size(); first += classes) {
      const auto item = values.subspan(first, classes);
      const float most = *std::max_element(item.begin(), item.end());
      double sum = 0;
      for (uint64_t i = 0; i < classes; ++i) {
        applied[first + i] = std::exp(item[i] - most);
        sum += static_cast<double>(applied[first + i]);
      }
      for (uint64_t i = 0; i < classes; ++i) {
        applied[first + i] = static_cast<float>(static_cast<double>(applied[first + i]) / sum);
      }
    }
    return applied;
  }

  bool TryApplied(const std::string& name, const std::vector<float>& applied,
                  std::span<const float> other, bool isTwice) {
    // Library functions differ in their last bits, sums in more of them: not nearly the same bits.
    const Likeness likeness(other);
    const auto evidence = scales_.Weigh(likeness, [&](uint64_t i) {
      return std::optional(Told{applied[i], other[i]});
    });
    if (!evidence) return false;
    causes_.push_back(MakeCause(
        isTwice ? "activation-added" : "activation-missing",
        isTwice ? "a " + name + " too many was applied" : "the " + name + " at the end is missing",
        *evidence));
    return true;
  }

  void FindOrderKept() {
    constexpr uint64_t kFewest = 8;
    if (count_ < kFewest) return;
    uint64_t alike = 0;
    uint64_t zeros = 0;
    for (uint64_t i = 0; i < count_; ++i) {
      if (!std::isfinite(actual_[i]) || !std::isfinite(expected_[i])) return;
      alike += AreAlike(i) ? 1 : 0;
      zeros += actual_[i] == 0 && expected_[i] == 0 ? 1 : 0;
    }
    if ((alike - zeros) * 2 > count_ - zeros) return;
    std::vector<uint32_t> order(count_);
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(),
              [&](uint32_t a, uint32_t b) { return expected_[a] < expected_[b]; });
    uint64_t kept = 0;
    uint64_t lost = 0;  // values that are the same keep no order, and lose none
    uint64_t risen = 0;
    for (uint64_t i = 1; i < count_; ++i) {
      const bool isTie = expected_[order[i]] == expected_[order[i - 1]];
      if (isTie) continue;
      ++risen;
      kept += actual_[order[i]] > actual_[order[i - 1]] ? 1 : 0;
      lost += actual_[order[i]] < actual_[order[i - 1]] ? 1 : 0;
    }
    if (risen < kFewest - 1 || kept * 4 < risen || lost * 100 > (kept + lost) * 2) return;
    Add("order-kept",
        "the order of the values is kept and the values are not: an activation is missing, or "
        "another one was taken",
        0.8 * static_cast<double>(kept) / static_cast<double>(kept + lost));
  }

  // ---- Few elements -----------------------------------------------------------------------------

  // A few differences that tower above all others, in size and in proportion to the value.
  void FindIsolated() {
    const uint64_t most = std::max<uint64_t>(count_ / 100, 1);
    constexpr uint64_t kFewest = 8;
    if (count_ < kFewest) return;
    std::vector<uint64_t> wrong;  // elements whose relative difference is one of the greatest
    double rest = 0;              // the greatest relative difference of all others
    CollectGreatest(most, wrong, rest);
    while (!wrong.empty() && !Towers(wrong.back(), rest)) {
      rest = std::max(rest, RelativeDifference(wrong.back()));
      wrong.pop_back();
    }
    if (wrong.empty() || wrong.size() > most || !TowerInSize(wrong)) return;
    constexpr double kNearlySo = 0.25;  // of what is expected: beyond it the others are wrong, too
    if (rest > kNearlySo) return;
    uint64_t oneBit = 0;
    for (const uint64_t i : wrong) {
      oneBit += std::popcount(std::bit_cast<uint32_t>(actual_[i]) ^
                              std::bit_cast<uint32_t>(expected_[i])) == 1
                    ? 1
                    : 0;
    }
    const uint64_t first = *std::min_element(wrong.begin(), wrong.end());
    std::string text = CountOf(wrong.size()) + (wrong.size() == 1 ? " is" : " are") +
                       " wrong, the first at " + std::to_string(first) +
                       ", and all others as expected or nearly so";
    if (oneBit == wrong.size()) text += "; a single bit differs";
    Add("isolated", text, 0.9);
  }

  double RelativeDifference(uint64_t i) const {
    if (IsSame(actual_[i], expected_[i])) return 0;
    const double difference = std::abs(Difference(i));
    if (!std::isfinite(difference)) return std::numeric_limits<double>::infinity();
    const double size = std::max(std::abs(static_cast<double>(actual_[i])),
                                 std::abs(static_cast<double>(expected_[i])));
    return difference / size;
  }

  // The `most` elements of the greatest relative differences, the greatest first, and what the next
  // one has.
  void CollectGreatest(uint64_t most, std::vector<uint64_t>& greatest, double& next) const {
    std::vector<std::pair<double, uint64_t>> sorted;
    for (uint64_t i = 0; i < count_; ++i) {
      const double difference = RelativeDifference(i);
      if (difference > 0) sorted.emplace_back(difference, i);
    }
    const size_t kept = std::min<size_t>(sorted.size(), most + 1);
    std::partial_sort(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(kept),
                      sorted.end(), std::greater<>());
    for (size_t i = 0; i < std::min<size_t>(kept, most); ++i) greatest.push_back(sorted[i].second);
    if (kept > most) next = sorted[most].first;
  }

  bool Towers(uint64_t element, double rest) const {
    constexpr double kTimes = 8;
    constexpr double kLeast = 0.005;
    const double own = RelativeDifference(element);
    return own >= kLeast && own >= kTimes * rest;
  }

  bool TowerInSize(std::vector<uint64_t> wrong) const {
    constexpr double kTimes = 2;
    double least = std::numeric_limits<double>::infinity();
    for (const uint64_t i : wrong) {
      const double difference = std::abs(Difference(i));
      if (std::isfinite(difference)) least = std::min(least, difference);
    }
    // There may be ten thousands of them: each is met in its turn.
    std::sort(wrong.begin(), wrong.end());
    auto next = wrong.begin();
    double rest = 0;
    for (uint64_t i = 0; i < count_; ++i) {
      if (next != wrong.end() && *next == i) {
        ++next;
        continue;
      }
      if (!IsSame(actual_[i], expected_[i])) rest = std::max(rest, std::abs(Difference(i)));
    }
    return least >= kTimes * rest;
  }

  const CauseQuestion& question_;
  const Scales& scales_;
  const Likeness& likeness_;
  std::vector<Cause>& causes_;
  std::span<const float> actual_;
  std::span<const float> expected_;
  uint64_t count_;
};

}  // namespace

void FindValueCauses(const CauseQuestion& question, const Scales& scales,
                     std::vector<Cause>& causes) {
  ValueFinder(question, scales, causes).Find();
}

}  // namespace vorn::kit
