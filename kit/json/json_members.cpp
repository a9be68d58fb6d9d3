#include "kit/json/json_members.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kit/common/nearest.h"
#include "kit/common/printable.h"

namespace vorn::kit {

void HoldToSchema(const Json& object, uint64_t schema) {
  const Json& own = object.At("schema");
  if (own.IsNumber() && own.AsUnsigned() == schema) return;
  throw JsonError("its schema is " + ShownValue(own) + ", and this program reads " +
                  std::to_string(schema));
}

void HoldToKeys(const Json& object, std::initializer_list<const char*> keys) {
  HoldToKeys(object, "there is", {keys.begin(), keys.end()});
}

void HoldToKeys(const Json& object, const std::string& subject,
                const std::vector<std::string>& known) {
  for (const auto& [key, value] : object.Members()) {
    if (std::find(known.begin(), known.end(), key) != known.end()) continue;
    throw JsonError(subject + " no key '" + Printable(key) + "'" + DidYouMean(key, known));
  }
}

double FiniteNumber(const Json& value, const char* key) {
  const double number = value.AsNumber();
  if (!std::isfinite(number)) throw JsonError(std::string(key) + " is no finite number");
  return number;
}

std::string ShownValue(const Json& value) { return PrintableExcerpt(ToText(value)); }

double ShortestDouble(float number) {
  // What the standard library has for it needs a newer C library than boards have.
  constexpr int kEnough = 9;
  std::array<char, 40> text{};
  for (int digits = 1; digits <= kEnough; ++digits) {
    std::snprintf(text.data(), text.size(), "%.*g", digits, static_cast<double>(number));
    if (std::strtof(text.data(), nullptr) == number) break;
  }
  return std::strtod(text.data(), nullptr);
}

}  // namespace vorn::kit
