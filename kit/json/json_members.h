// Members of objects that a person wrote, or is to read.
#ifndef VORN_KIT_JSON_JSON_MEMBERS_H_
#define VORN_KIT_JSON_JSON_MEMBERS_H_

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "kit/common/printable.h"
#include "kit/json/json.h"

namespace vorn::kit {

/// Throws a JsonError that names both where the object's "schema" is another one, or none.
void HoldToSchema(const Json& object, uint64_t schema);

/// Throws a JsonError that names a key that is none of these, and the nearest one: a misspelt key
/// would be passed over, and something else be done than was meant.
void HoldToKeys(const Json& object, std::initializer_list<const char*> keys);

/// The same of keys that a table has. `subject` begins the message: "a signal has".
void HoldToKeys(const Json& object, const std::string& subject,
                const std::vector<std::string>& known);

/// The number of `key`, which has to be finite; throws a JsonError that names the key.
[[nodiscard]] double FiniteNumber(const Json& value, const char* key);

/// The value that is called `name`; `names` has them by the value of the enumeration. Throws a
/// JsonError for what is none of them.
template <typename Enum, size_t kSize>
[[nodiscard]] Enum EnumOf(const std::string& name,
                          const std::array<std::string_view, kSize>& names) {
  const auto* const found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) throw JsonError("'" + PrintableExcerpt(name) + "' is not known here");
  return static_cast<Enum>(found - names.begin());
}

/// A value within a message: printable, and cut where it is long.
[[nodiscard]] std::string ShownValue(const Json& value);

/// The number as a person writes it: 0.1, and not the double that a float of 0.1 is.
[[nodiscard]] double ShortestDouble(float number);

}  // namespace vorn::kit

#endif  // VORN_KIT_JSON_JSON_MEMBERS_H_
