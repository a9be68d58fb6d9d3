#include "kit/page/number_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace vorn::kit {
namespace {

std::string Printed(double value, std::chars_format format, int precision) {
  std::array<char, 400> text{};  // the longest fixed double has 309 digits before the point
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value, format, precision);
  return {text.data(), end.ptr};
}

void DropZeros(std::string& fixed) {
  if (fixed.find('.') == std::string::npos) return;
  while (fixed.back() == '0') fixed.pop_back();
  if (fixed.back() == '.') fixed.pop_back();
}

struct Step {
  double from;  // in the quantity's own unit
  double factor;
  const char* name;
};

template <size_t kCount>
Unit LargestThatFits(const std::array<Step, kCount>& steps, double largest) {
  for (const Step& step : steps) {
    if (largest >= step.from) return {step.factor, step.name};
  }
  return {steps.back().factor, steps.back().name};
}

}  // namespace

std::string CountText(uint64_t count) {
  const std::string digits = std::to_string(count);
  std::string text;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text += ',';
    text += digits[i];
  }
  return text;
}

std::string CountedText(uint64_t count, std::string_view one) {
  return CountText(count) + " " + std::string(one) + (count == 1 ? "" : "s");
}

std::string NumberText(double value, int digits) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "∞" : "−∞";
  if (value == 0) return "0";
  std::string text = Printed(value, std::chars_format::general, digits);
  // Whole numbers that a person can still read are not cut into powers of ten.
  if (text.find('e') != std::string::npos && std::abs(value) >= 1 && std::abs(value) < 1e7) {
    text = Printed(std::round(value), std::chars_format::fixed, 0);
  }
  return text;
}

Unit UnitFor(double largest, Quantity quantity) {
  largest = std::abs(largest);
  constexpr double kKibi = 1024;
  switch (quantity) {
    case Quantity::kNumber:
    case Quantity::kCount:
      return {};
    case Quantity::kFraction:
      return {100, "%"};
    case Quantity::kMilliCelsius:
      return {1e-3, "°C"};
    case Quantity::kNanoseconds:
      return LargestThatFits(
          std::array<Step, 4>{
              {{1e9, 1e-9, "s"}, {1e6, 1e-6, "ms"}, {1e3, 1e-3, "µs"}, {0, 1, "ns"}}},
          largest);
    case Quantity::kKilohertz:
      return LargestThatFits(
          std::array<Step, 3>{{{1e6, 1e-6, "GHz"}, {1e3, 1e-3, "MHz"}, {0, 1, "kHz"}}}, largest);
    case Quantity::kBytes:
      return LargestThatFits(std::array<Step, 5>{{{std::pow(kKibi, 4), std::pow(kKibi, -4), "TiB"},
                                                  {std::pow(kKibi, 3), std::pow(kKibi, -3), "GiB"},
                                                  {std::pow(kKibi, 2), std::pow(kKibi, -2), "MiB"},
                                                  {kKibi, 1 / kKibi, "KiB"},
                                                  {0, 1, "bytes"}}},
                             largest);
  }
  return {};
}

std::string QuantityText(double value, Quantity quantity) {
  if (quantity == Quantity::kFraction) return PercentText(value);
  if (quantity == Quantity::kCount && value >= 0 && value < 1e15) {
    return CountText(static_cast<uint64_t>(std::llround(value)));
  }
  const Unit unit = UnitFor(value, quantity);
  const std::string number = NumberText(value * unit.factor);
  if (quantity == Quantity::kBytes && value == 1) return "1 byte";
  return unit.name.empty() ? number : number + " " + unit.name;
}

std::string TimeText(double nanoseconds) {
  return QuantityText(nanoseconds, Quantity::kNanoseconds);
}

std::string PercentText(double fraction) {
  if (!std::isfinite(fraction)) return NumberText(fraction) + " %";
  const double percent = fraction * 100;
  if (percent > 0 && percent < 0.01) return "< 0.01 %";
  if (percent < 100 && percent > 99.99) return "> 99.99 %";
  std::string text = Printed(percent, std::chars_format::fixed, std::abs(percent) < 10 ? 2 : 1);
  // Rounding up to the whole would say more than is true.
  if (percent < 100 && text == "100.0") text = Printed(percent, std::chars_format::fixed, 2);
  DropZeros(text);
  return (text == "-0" ? "0" : text) + " %";
}

std::string PercentagePointsText(double difference) {
  const double points = difference * 100;
  std::string text = NumberText(points, 3);
  return text + (text == "1" || text == "-1" ? " percentage point" : " percentage points");
}

std::string PlaceText(double value) {
  if (!std::isfinite(value)) return "0";
  std::string text = Printed(std::clamp(value, -1e6, 1e6), std::chars_format::fixed, 2);
  DropZeros(text);
  return text == "-0" ? "0" : text;
}

}  // namespace vorn::kit
