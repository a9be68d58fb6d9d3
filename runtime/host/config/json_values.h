// Reading typed values out of JSON, each refused by the key under which it stands.
//
// Every function fails with VORN_ERROR_CONFIG, the key, the value seen and what to give instead.
#ifndef VORN_RUNTIME_HOST_CONFIG_JSON_VALUES_H_
#define VORN_RUNTIME_HOST_CONFIG_JSON_VALUES_H_

#include <algorithm>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/common/excerpt.h"
#include "host/common/failure.h"

namespace vorn::host {

/// What a refused value looks like in a message: its text, cut where it gets long.
std::string Shown(const nlohmann::json& value);

/// Enough for the longest configuration, printed anew with its numbers written out.
inline constexpr size_t kMaxJsonBytes = 16 << 20;

/// The text as JSON; `what` ("the configuration") is for the message. Values are at most 16 deep,
/// so that whatever walks over them may recurse, and no object has a key twice.
nlohmann::json ParseJsonObject(std::string_view what, std::string_view text);

int64_t IntegerInRange(const std::string& key, const nlohmann::json& value, int64_t least,
                       int64_t most);
std::string Text(const std::string& key, const nlohmann::json& value);

inline constexpr int64_t kLargestDim = INT32_MAX;

/// The size of a dimension, from 1 on.
int64_t Dim(const std::string& key, const nlohmann::json& value);

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
    named.emplace(name, read(key + "." + Excerpt(name), member));
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

using Path = const std::string&;
using Value = const nlohmann::json&;

/// A key that an object may have, and how its value comes into a target.
template <typename Target>
struct Key {
  std::string_view name;
  void (*read)(Path path, Value value, Target& target);
};

template <typename Target>
std::vector<std::string_view> NamesOf(std::span<const Key<Target>> keys) {
  std::vector<std::string_view> names;
  for (const Key<Target>& key : keys) names.push_back(key.name);
  return names;
}

/// Reads every member of `object`, whose own path ("model.", or nothing) is the `prefix` of theirs.
/// A member without a key is refused: a mistyped one would otherwise do nothing, silently.
template <typename Target>
void ReadKeys(const nlohmann::json& object, const std::string& prefix,
              std::span<const Key<Target>> keys, Target& target) {
  for (const auto& [name, value] : object.items()) {
    const auto key = std::ranges::find(keys, name, &Key<Target>::name);
    if (key == keys.end()) {
      std::string known;
      for (const Key<Target>& one : keys) known += (known.empty() ? "" : ", ") + Join(one.name);
      throw Failure(VORN_ERROR_CONFIG, "key '", prefix, Excerpt(name),
                    "' is not known; the keys are ", known);
    }
    key->read(prefix + name, value, target);
  }
}

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_JSON_VALUES_H_
