#include "kit/json/json_members.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <vector>

#include "kit/common/nearest.h"
#include "kit/common/printable.h"

namespace vorn::kit {

void HoldToKeys(const Json& object, std::initializer_list<const char*> keys) {
  const std::vector<std::string> known(keys.begin(), keys.end());
  for (const auto& [key, value] : object.Members()) {
    if (std::find(known.begin(), known.end(), key) != known.end()) continue;
    throw JsonError("there is no key '" + Printable(key) + "'" + DidYouMean(key, known));
  }
}

double FiniteNumber(const Json& value, const char* key) {
  const double number = value.AsNumber();
  if (!std::isfinite(number)) throw JsonError(std::string(key) + " is no finite number");
  return number;
}

std::string ShownValue(const Json& value) { return PrintableExcerpt(ToText(value)); }

double ShortestDouble(float number) {
  std::array<char, 40> text{};
  const auto [end, error] = std::to_chars(text.begin(), text.end(), number);
  double value = 0;
  if (error == std::errc{}) std::from_chars(text.begin(), end, value);
  return value;
}

}  // namespace vorn::kit
