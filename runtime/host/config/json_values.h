// Reading typed values out of JSON, each refused by the key under which it stands.
//
// Every function fails with VORN_ERROR_CONFIG, the key, the value seen and what to give instead.
#ifndef VORN_RUNTIME_HOST_CONFIG_JSON_VALUES_H_
#define VORN_RUNTIME_HOST_CONFIG_JSON_VALUES_H_

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/common/failure.h"

namespace vorn::host {

/// What a refused value looks like in a message: its text, cut where it gets long. Never throws for
/// text that is not UTF-8.
std::string Shown(const nlohmann::json& value);

/// The text as JSON; `what` ("the configuration") is for the message.
nlohmann::json ParseJsonObject(std::string_view what, std::string_view text);

int64_t IntegerInRange(const std::string& key, const nlohmann::json& value, int64_t least,
                       int64_t most);
std::string Text(const std::string& key, const nlohmann::json& value);

/// An object with a value of one kind for each name: Named(key, value, example, read), where
/// `read(keyAndName, member)` makes the value and `example` is one that would do.
template <typename Read>
auto Named(const std::string& key, const nlohmann::json& value, const char* example, Read&& read) {
  if (!value.is_object()) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give an object such as ",
                  example);
  }
  std::map<std::string, decltype(read(key, value))> named;
  for (const auto& [name, member] : value.items()) {
    named.emplace(name, read(key + "." + name, member));
  }
  return named;
}

/// One of several words; `words` lists each with its meaning.
template <typename Meaning>
Meaning OneOf(const std::string& key, const nlohmann::json& value,
              const std::vector<std::pair<std::string_view, Meaning>>& words) {
  std::string known;
  for (const auto& [word, meaning] : words) {
    if (value.is_string() && value.get_ref<const std::string&>() == word) return meaning;
    if (!known.empty()) known += &word == &words.back().first ? " or " : ", ";
    known += Join('"', word, '"');
  }
  throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give ", known);
}

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_JSON_VALUES_H_
