// Numbers as a page shows them: the same in every locale and on every machine.
#ifndef VORN_KIT_PAGE_NUMBER_TEXT_H_
#define VORN_KIT_PAGE_NUMBER_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace vorn::kit {

/// What a number counts, and so in which unit a person wants to read it.
enum class Quantity {
  kNumber,        ///< as it is
  kCount,         ///< whole numbers
  kNanoseconds,   ///< "36.7 µs", "1.2 s"
  kBytes,         ///< "39.6 KiB"
  kFraction,      ///< 0.5 is "50 %"
  kKilohertz,     ///< "1.8 GHz"
  kMilliCelsius,  ///< "54.2 °C"
};

/// "10,000".
[[nodiscard]] std::string CountText(uint64_t count);

/// "1 call", "10,000 calls".
[[nodiscard]] std::string CountedText(uint64_t count, std::string_view one);

/// That many significant digits, no zeros behind them: "0.0443", "17", "3.78e+08", "NaN", "−∞".
[[nodiscard]] std::string NumberText(double value, int digits = 4);

/// "36.7 µs".
[[nodiscard]] std::string TimeText(double nanoseconds);

/// "12.5 %" of 0.125. What is not quite all or none does not read as 100 % or 0 %.
[[nodiscard]] std::string PercentText(double fraction);

/// "1 percentage point", "-0.5 percentage points": the difference of two shares.
[[nodiscard]] std::string PercentagePointsText(double difference);

/// By its quantity.
[[nodiscard]] std::string QuantityText(double value, Quantity quantity);

/// A unit in which numbers up to `largest` read well: each is to be multiplied by `factor`.
struct Unit {
  double factor = 1;
  std::string name;  ///< "µs"; empty for plain numbers
};
[[nodiscard]] Unit UnitFor(double largest, Quantity quantity);

/// A place in a drawing: at most two decimals, never "-0".
[[nodiscard]] std::string PlaceText(double value);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_NUMBER_TEXT_H_
