#include "kit/common/duration.h"

#include <cmath>
#include <cstdlib>

namespace vorn::kit {
namespace {

struct Unit {
  std::string_view name;
  double ns;
};
constexpr Unit kUnits[] = {{"ns", 1},  {"us", 1e3},   {"ms", 1e6},
                           {"s", 1e9}, {"min", 60e9}, {"h", 3600e9}};

}  // namespace

std::optional<double> UnitNs(std::string_view unit) {
  for (const Unit& known : kUnits) {
    if (known.name == unit) return known.ns;
  }
  return std::nullopt;
}

std::optional<double> DurationNs(std::string_view text) {
  // strtod knows more than numbers from 0 on; and std::from_chars asks for a newer C library.
  const std::string whole(text);
  const bool isDecimal =
      whole.find_first_of(".0123456789") == 0 && whole.find_first_of("xX") == std::string::npos;
  if (!isDecimal) return std::nullopt;
  char* end = nullptr;
  const double number = std::strtod(whole.c_str(), &end);
  const auto unit = UnitNs(end);
  if (end == whole.c_str() || !std::isfinite(number) || !unit) return std::nullopt;
  return number * *unit;
}

}  // namespace vorn::kit
