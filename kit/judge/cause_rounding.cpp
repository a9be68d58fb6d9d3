// Causes that round every value: to a shorter float, or to steps.
#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "kit/judge/cause_evidence.h"
#include "kit/judge/rules.h"
#include "kit/tensor/element_type.h"

namespace vorn::kit {
namespace {

constexpr double kMostBefore = 0.7;  // of the expected values that have the form anyway

// Shares of the elements of which something holds, where the expected one is finite and not 0.
struct Shares {
  double actual = 0;    ///< the actual value has the form
  double expected = 0;  ///< the expected value has it
  double rounded = 0;   ///< the actual value is the expected one rounded to it
  double near = 0;      ///< it is within a few steps of that
};

Shares SharesOf(const CauseQuestion& question, float (*round)(float), double step) {
  uint64_t known = 0;
  std::array<uint64_t, 4> counts{};
  for (size_t i = 0; i < question.actual.size(); ++i) {
    const float a = question.actual[i];
    const float e = question.expected[i];
    if (!std::isfinite(e) || e == 0) continue;
    ++known;
    counts[0] += round(a) == a ? 1 : 0;
    counts[1] += round(e) == e ? 1 : 0;
    counts[2] += round(e) == a ? 1 : 0;
    const double apart = std::abs(static_cast<double>(a) - static_cast<double>(e));
    counts[3] += apart <= step * std::abs(static_cast<double>(e)) + 1e-7 ? 1 : 0;
  }
  constexpr uint64_t kFewest = 4;
  if (known < kFewest) return {};
  const auto share = [&](size_t i) {
    return static_cast<double>(counts[i]) / static_cast<double>(known);
  };
  return {share(0), share(1), share(2), share(3)};
}

bool IsRoundedTo(const char* id, const std::string& name, const Shares& shares,
                 std::vector<Cause>& causes) {
  if (shares.expected > kMostBefore || shares.rounded < 0.99) return false;
  causes.push_back({id, "the values are the expected ones rounded to " + name, shares.rounded});
  return true;
}

bool HasPrecisionOf(const char* id, const std::string& name, const Shares& shares,
                    std::vector<Cause>& causes) {
  if (shares.expected > kMostBefore || shares.near < 0.95 || shares.actual < 0.999) return false;
  causes.push_back({id, "the values have the precision of " + name + ", and differ by its steps",
                    0.9 * shares.near});
  return true;
}

// The step that all values are multiples of, in at most 256 levels; 0 if there is none.
double StepOf(std::span<const float> values) {
  constexpr size_t kMostLevels = 256;
  std::vector<float> levels;
  for (const float value : values) {
    if (!std::isfinite(value)) return 0;
    const auto at = std::lower_bound(levels.begin(), levels.end(), value);
    if (at != levels.end() && *at == value) continue;
    if (levels.size() == kMostLevels) return 0;
    levels.insert(at, value);
  }
  constexpr size_t kFewest = 4;
  if (levels.size() < kFewest) return 0;
  double gap = std::numeric_limits<double>::infinity();
  for (size_t i = 1; i < levels.size(); ++i) {
    gap = std::min(gap, static_cast<double>(levels[i]) - static_cast<double>(levels[i - 1]));
  }
  const double reach = static_cast<double>(levels.back()) - static_cast<double>(levels.front());
  const auto farthest = std::max(std::abs(static_cast<double>(levels.front())),
                                 std::abs(static_cast<double>(levels.back())));
  // Neighbours need not be among the values.
  constexpr int kMostParts = 8;
  for (int part = 1; part <= kMostParts; ++part) {
    // The difference of two rounded values is off by more than the greatest of them is.
    const double rough = gap / part;
    if (reach / rough > static_cast<double>(kMostLevels)) return 0;
    const double step = farthest / std::nearbyint(farthest / rough);
    const bool areMultiples = std::all_of(levels.begin(), levels.end(), [&](float level) {
      const double steps = static_cast<double>(level) / step;
      return std::abs(steps - std::nearbyint(steps)) < 1e-3;
    });
    if (areMultiples) return step;
  }
  return 0;
}

// Of values in too few levels to tell a step of their own, such as the scores of a sure classifier:
// one of the usual steps of 0 to 1, if all are multiples of it and some are no whole numbers.
double UsualStepOf(std::span<const float> values) {
  constexpr std::array<double, 4> kSteps{1.0 / 255, 1.0 / 256, 1.0 / 127, 1.0 / 128};
  constexpr int kFewest = 2;
  for (const double step : kSteps) {
    int between = 0;
    const bool areMultiples = std::all_of(values.begin(), values.end(), [&](float value) {
      const double steps = static_cast<double>(value) / step;
      between += value != std::nearbyint(value) ? 1 : 0;
      return std::abs(value) <= 1 && std::abs(steps - std::nearbyint(steps)) < 1e-3;
    });
    if (areMultiples && between >= kFewest) return step;
  }
  return 0;
}

// The share of elements that are the expected ones in such steps; empty where too few are. Those
// that ended at the least or the greatest value count where `maySaturate`.
std::optional<double> ShareInSteps(const CauseQuestion& question, double step, bool maySaturate) {
  const auto [least, most] = std::minmax_element(question.actual.begin(), question.actual.end());
  uint64_t explained = 0;
  uint64_t differing = 0;
  uint64_t differingExplained = 0;
  for (size_t i = 0; i < question.actual.size(); ++i) {
    const auto a = static_cast<double>(question.actual[i]);
    const auto e = static_cast<double>(question.expected[i]);
    const bool isSaturated =
        maySaturate && *least < *most &&
        ((question.actual[i] == *most && e > a) || (question.actual[i] == *least && e < a));
    const bool isExplained = std::abs(a - e) <= 0.51 * step || isSaturated;
    explained += isExplained ? 1 : 0;
    differing += a != e ? 1 : 0;
    differingExplained += isExplained && a != e ? 1 : 0;
  }
  // Where nearly all is 0 on both sides, nearly all is explained by anything.
  const double share = static_cast<double>(explained) / static_cast<double>(question.actual.size());
  if (differingExplained * 100 < differing * 85 || share < 0.97) return std::nullopt;
  return share;
}

// Of a sample that holds too few levels to tell a step: one of 8 bits over what was expected of all
// samples, if every value is a multiple of it.
double FaintStepOf(const CauseQuestion& question) {
  const double reach = question.reach;
  if (reach <= 0 || !std::isfinite(reach)) return 0;
  constexpr double kMostSteps = 127;
  const auto [least, most] = std::minmax_element(question.actual.begin(), question.actual.end());
  const double farthest =
      std::max(std::abs(static_cast<double>(*least)), std::abs(static_cast<double>(*most)));
  if (farthest == 0) return reach / kMostSteps;
  // What a device was calibrated for is not what was met, so that only the size of a step is known.
  // The greatest value there is a few steps of it, or nearly all.
  for (const double levels : {1.0, 2.0, 3.0, 4.0, 127.0, 128.0, 255.0, 256.0}) {
    const double step = farthest / levels;
    if (step * kMostSteps > reach * 1.25 || step * kMostSteps < reach / 4) continue;
    const bool areMultiples =
        std::all_of(question.actual.begin(), question.actual.end(), [&](float value) {
          const double steps = static_cast<double>(value) / step;
          const double whole = std::nearbyint(steps);
          return whole == 0 ? value == 0 : std::abs(steps - whole) < 1e-3;
        });
    if (areMultiples) return step;
  }
  return 0;
}

// Whether at least half of what differs became nothing: so few levels fit much else.
bool AreMostlyNoughts(const CauseQuestion& question) {
  constexpr uint64_t kFewest = 2;
  uint64_t differing = 0;
  uint64_t noughts = 0;
  for (size_t i = 0; i < question.actual.size(); ++i) {
    if (question.actual[i] == question.expected[i]) continue;
    ++differing;
    noughts += question.actual[i] == 0 ? 1 : 0;
  }
  return noughts >= kFewest && noughts * 2 >= differing;
}

void FindIntRounding(const CauseQuestion& question, std::vector<Cause>& causes) {
  if (StepOf(question.expected) != 0) return;
  double step = StepOf(question.actual);
  if (step == 0 && UsualStepOf(question.expected) == 0) step = UsualStepOf(question.actual);
  if (const auto share = step != 0 ? ShareInSteps(question, step, true) : std::nullopt) {
    causes.push_back({"rounded-int8",
                      "the values are the expected ones in steps of " + NumberText(step) +
                          ", at most 256 of them: rounded to 8 bits",
                      *share});
    return;
  }
  step = FaintStepOf(question);
  if (step == 0 || !AreMostlyNoughts(question)) return;
  // Of so few levels the greatest may be any value, and no end of a type.
  const auto share = ShareInSteps(question, step, false);
  if (!share) return;
  constexpr double kCertainty = 0.7;  // anything that is nearly 0 would look like this
  causes.push_back({"rounded-int8",
                    "no difference is more than half a step of 8 bits over the values of all "
                    "samples, about " +
                        NumberText(step) + ": rounded to 8 bits",
                    kCertainty * *share});
  const float first = question.actual[0];
  if (std::any_of(question.actual.begin(), question.actual.end(),
                  [&](float value) { return value != first; })) {
    return;
  }
  constexpr double kAsWell = 0.5;
  causes.push_back(
      {"constant", "every element is " + NumberText(static_cast<double>(first)), kAsWell});
}

}  // namespace

void FindRounding(const CauseQuestion& question, std::vector<Cause>& causes) {
  constexpr double kStepsBfloat16 = 0x1p-6;  // a few of them
  constexpr double kStepsFloat16 = 0x1p-9;
  const Shares brain = SharesOf(question, RoundedToBfloat16, kStepsBfloat16);
  const Shares half = SharesOf(question, RoundedToFloat16, kStepsFloat16);
  if (IsRoundedTo("rounded-bfloat16", "bfloat16", brain, causes) ||
      IsRoundedTo("rounded-float16", "float16", half, causes)) {
    return;
  }
  FindIntRounding(question, causes);
  if (!causes.empty()) return;
  // Few bits of bfloat16 are few of float16, too.
  if (HasPrecisionOf("rounded-bfloat16", "bfloat16", brain, causes)) return;
  HasPrecisionOf("rounded-float16", "float16", half, causes);
}

void FindShortType(const CauseQuestion& question, std::vector<Cause>& causes) {
  struct ShortType {
    const char* id;
    const char* name;
    float (*round)(float);
  };
  constexpr ShortType kTypes[] = {{"rounded-bfloat16", "bfloat16", RoundedToBfloat16},
                                  {"rounded-float16", "float16", RoundedToFloat16}};
  // Whole numbers and the like are ones of every type.
  constexpr size_t kFewestValues = 16;
  std::set<float> values;
  for (const float value : question.actual) {
    if (values.size() == kFewestValues) break;
    if (std::isfinite(value) && value != std::nearbyint(value)) values.insert(value);
  }
  if (values.size() < kFewestValues) return;
  constexpr double kCertainty = 0.5;  // it says what was computed in, and not what went wrong
  for (const ShortType& type : kTypes) {
    const Shares shares = SharesOf(question, type.round, 0);
    if (shares.actual < 1 || shares.expected > kMostBefore) continue;
    causes.push_back({type.id,
                      "every value is one of " + std::string(type.name) +
                          ", and they differ by more than its steps: errors of it have grown, or "
                          "something else is wrong, too",
                      kCertainty});
    return;
  }
}

}  // namespace vorn::kit
