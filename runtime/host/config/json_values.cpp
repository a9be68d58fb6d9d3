// JSON values by kind.
#include "host/config/json_values.h"

namespace vorn::host {

using nlohmann::json;

std::string Shown(const json& value) {
  constexpr size_t kLongest = 60;
  std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
  if (text.size() > kLongest) text = text.substr(0, kLongest) + "...";
  return text;
}

json ParseJsonObject(std::string_view what, std::string_view text) {
  json root;
  try {
    root = json::parse(text);
  } catch (const json::exception& e) {
    throw Failure(VORN_ERROR_CONFIG, what, " is not JSON (", e.what(),
                  "); the smallest valid one is {}");
  }
  if (!root.is_object()) {
    throw Failure(VORN_ERROR_CONFIG, what, " is ", Shown(root),
                  "; give a JSON object, at least {}");
  }
  return root;
}

int64_t IntegerInRange(const std::string& key, const json& value, int64_t least, int64_t most) {
  // An unsigned number beyond int64 would come out negative, so it is looked at as what it is.
  const bool isTooLarge =
      value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX);
  const bool fits = value.is_number_integer() && !isTooLarge && value.get<int64_t>() >= least &&
                    value.get<int64_t>() <= most;
  if (!fits) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give a whole number from ",
                  least, " to ", most);
  }
  return value.get<int64_t>();
}

std::string Text(const std::string& key, const json& value) {
  if (value.is_string() && !value.get_ref<const std::string&>().empty()) {
    return value.get<std::string>();
  }
  throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give a name in quotes");
}

int64_t Dim(const std::string& key, const json& value) {
  return IntegerInRange(key, value, 1, kLargestDim);
}

}  // namespace vorn::host
